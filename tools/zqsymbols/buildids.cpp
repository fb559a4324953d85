#include "tools/zqsymbols/buildids.h"

#include <algorithm>
#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <filesystem>
#include <gelf.h>
#include <string_view>
#include <unistd.h>

namespace zqsymbols
{
    namespace
    {
        std::string BuildIdOf(Elf * pElf)
        {
            constexpr char DIGITS[] = "0123456789abcdef";
            void const * pBytes = nullptr;
            ssize_t const nBytes = dwelf_elf_gnu_build_id(pElf, &pBytes);
            std::string sText;
            for (ssize_t i = 0; i < nBytes; ++i)
            {
                unsigned char const nByte = static_cast<unsigned char const *>(pBytes)[i];
                sText += { DIGITS[nByte >> 4], DIGITS[nByte & 15] };
            }
            return sText;
        }

        // Returns whether a file has the contents of a section. A stripped part keeps only its head.
        bool HasSection(Elf * pElf, std::string_view sName)
        {
            std::size_t iNames = 0;
            if (elf_getshdrstrndx(pElf, &iNames) != 0)
            {
                return false;
            }
            for (Elf_Scn * pSection = nullptr; (pSection = elf_nextscn(pElf, pSection)) != nullptr;)
            {
                GElf_Shdr Head;
                char const * const szName =
                    gelf_getshdr(pSection, &Head) != nullptr ? elf_strptr(pElf, iNames, Head.sh_name) : nullptr;
                if (szName != nullptr && szName == sName && Head.sh_type != SHT_NOBITS)
                {
                    return true;
                }
            }
            return false;
        }
    }

    void BuildIds_c::AddFile(std::string const & sFile)
    {
        int const iFile = open(sFile.c_str(), O_RDONLY | O_CLOEXEC);
        Elf * const pElf = iFile < 0 ? nullptr : elf_begin(iFile, ELF_C_READ_MMAP, nullptr);
        std::string const sBuildId = pElf != nullptr && elf_kind(pElf) == ELF_K_ELF ? BuildIdOf(pElf) : "";
        if (!sBuildId.empty())
        {
            Rank_e const eRank = HasSection(pElf, ".debug_info") || HasSection(pElf, ".zdebug_info") ? RANK_DEBUG
                                 : HasSection(pElf, ".symtab")                                       ? RANK_SYMBOLS
                                                                                                     : RANK_NONE;
            auto const [iKnown, bNew] = m_dFiles.try_emplace(sBuildId, File_s{ sFile, eRank });
            if (!bNew && iKnown->second.eRank < eRank)
            {
                iKnown->second = { sFile, eRank };
            }
        }
        elf_end(pElf);
        if (iFile >= 0)
        {
            close(iFile);
        }
    }

    void BuildIds_c::AddFolder(std::string const & sFolder, std::function<void(std::string const &)> const & fnFault)
    {
        namespace fs = std::filesystem;
        elf_version(EV_CURRENT);
        std::error_code Error;
        fs::recursive_directory_iterator itEntry(sFolder, Error);
        for (; !Error && itEntry != fs::end(itEntry); itEntry.increment(Error))
        {
            std::error_code Ignored;
            if (itEntry->is_regular_file(Ignored))
            {
                AddFile(itEntry->path().string());
            }
        }
        if (Error)
        {
            fnFault(sFolder + ": can't read the whole folder: " + Error.message());
        }
    }

    std::string BuildIds_c::Find(std::string const & sBuildId) const
    {
        auto const iFile = m_dFiles.find(sBuildId);
        return iFile == m_dFiles.end() ? "" : iFile->second.sPath;
    }
}
