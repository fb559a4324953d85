#include "tools/zqsymbols/process.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace zqsymbols
{
    bool Process_c::Start()
    {
        plat::SymbolStart_t Start;
        if (recv(plat::SYMBOL_SOCKET, &Start, sizeof(Start), 0) != sizeof(Start) || Start.dwMagic != plat::SYMBOL_MAGIC
            || (Start.nWord != 4 && Start.nWord != 8) || Start.nPrinters > plat::SYMBOL_PRINTERS)
        {
            return false;
        }
        m_nWord = Start.nWord;
        m_iThread = Start.iThread;
        m_nPrinters = Start.nPrinters;
        m_nLockMark = Start.nLockMark;
        for (unsigned i = 0; i < (m_nWord == 8 ? std::size(NUMBERS_64) : std::size(NUMBERS_32)); ++i)
        {
            m_Registers.Set(m_nWord == 8 ? NUMBERS_64[i] : NUMBERS_32[i], Start.dRegisters[i]);
        }
        // DWARF's numbers of XMM0 (System V ABI, processor supplements). 32-bit code has XMM0 to XMM7.
        constexpr unsigned XMM0_64 = 17, XMM0_32 = 21;
        for (unsigned i = 0; i < std::min<std::uint64_t>(Start.nVectors, m_nWord == 8 ? plat::SYMBOL_VECTORS : 8u); ++i)
        {
            m_Registers.Set((m_nWord == 8 ? XMM0_64 : XMM0_32) + i, Start.dVectors[i]);
        }
        AddMappedModules();
        return true;
    }

    // Adds the modules in the list of mappings, and ends the additions. Adds successive mappings of one file as one
    // module. Adds none if the list can't be read.
    void Process_c::AddMappedModules()
    {
        std::string sModule;
        unsigned long nStart = 0;
        unsigned long nEnd = 0;
        auto const fnAdd = [&]
        {
            if (!sModule.empty())
            {
                AddModule(sModule.c_str(), nStart, nEnd);
            }
        };
        std::FILE * const pMaps = fdopen(plat::SYMBOL_MAPS, "r");
        char szLine[PATH_MAX + 104];   // a path, and the fields before it
        while (pMaps != nullptr && std::fgets(szLine, sizeof(szLine), pMaps) != nullptr)
        {
            unsigned long nFrom = 0;
            unsigned long nTo = 0;
            int nPath = 0;
            if (std::sscanf(szLine, "%lx-%lx %*s %*x %*s %*u %n", &nFrom, &nTo, &nPath) != 2 || nPath == 0)
            {
                continue;
            }
            szLine[std::strcspn(szLine, "\n")] = '\0';
            char const * const szPath = szLine + nPath;
            if (szPath[0] == '\0' && nFrom == nEnd)   // zeroed data after the file's
            {
                nEnd = nTo;
            }
            if (szPath[0] != '/' && std::strcmp(szPath, VDSO) != 0)
            {
                continue;
            }
            if (sModule != szPath)
            {
                fnAdd();
                sModule = szPath;
                nStart = nFrom;
            }
            nEnd = nTo;
        }
        fnAdd();
        if (pMaps != nullptr)
        {
            std::fclose(pMaps);
        }
        EndModules();
    }

    // Returns the page from the other side, or nothing if it is not readable there.
    std::optional<Process_c::Page_t> Process_c::FetchPage(std::uint64_t nPage)
    {
        plat::SymbolAnswer_t Need;
        Need.eAnswer = plat::ANSWER_NEEDS_MEMORY;
        Need.dValues[0] = nPage;
        plat::SymbolMemory_t Memory;
        if (send(plat::SYMBOL_SOCKET, &Need, plat::SYMBOL_ANSWER_HEAD, MSG_NOSIGNAL) < 0
            || recv(plat::SYMBOL_SOCKET, &Memory, sizeof(Memory), 0) != sizeof(Memory))
        {
            _exit(1);
        }
        std::optional<Page_t> Page;
        if (Memory.bReadable != 0)
        {
            std::memcpy(Page.emplace().data(), Memory.dBytes, plat::SYMBOL_PAGE);
        }
        return Page;
    }

    std::optional<Process_c::Page_t> const & Process_c::PageAt(std::uint64_t nPage)
    {
        auto const [itPage, bNew] = m_dPages.try_emplace(nPage);
        if (bNew)
        {
            itPage->second = FetchPage(nPage);
        }
        return itPage->second;
    }

    bool Process_c::Read(std::uint64_t nAddress, void * pBuffer, std::size_t nBytes)
    {
        auto * pTo = static_cast<std::uint8_t *>(pBuffer);
        while (nBytes > 0)
        {
            std::uint64_t const nInPage = nAddress % plat::SYMBOL_PAGE;
            std::size_t const nHere = std::min<std::size_t>(nBytes, plat::SYMBOL_PAGE - nInPage);
            std::optional<Page_t> const & Page = PageAt(nAddress - nInPage);
            if (!Page)
            {
                return false;
            }
            std::memcpy(pTo, Page->data() + nInPage, nHere);
            pTo += nHere;
            nAddress += nHere;
            nBytes -= nHere;
        }
        return true;
    }

    std::optional<std::uint64_t> Process_c::ReadNumber(std::uint64_t nAddress, std::size_t nBytes)
    {
        std::uint64_t nValue = 0;
        if (nBytes > sizeof(nValue) || !Read(Cut(nAddress), &nValue, nBytes))
        {
            return std::nullopt;
        }
        return nValue;
    }
}
