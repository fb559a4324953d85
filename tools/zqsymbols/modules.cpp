#include "tools/zqsymbols/modules.h"

#include <cstring>
#include <dwarf.h>
#include <fcntl.h>

namespace zqsymbols
{
    namespace
    {
        // Returns whether a DIE is that of a unit that may have code: an index file may have any offset.
        bool IsUnit(Dwarf_Die * pDie)
        {
            int const nTag = dwarf_tag(pDie);
            return nTag == DW_TAG_compile_unit || nTag == DW_TAG_partial_unit || nTag == DW_TAG_skeleton_unit;
        }

        // Opens a module's file for libdw and returns its descriptor, or -1 on failure. Sets *ppElf and returns -1
        // for VDSO.
        int FindElf(
            Dwfl_Module * pModule, void ** ppModules, char const * szModule, Dwarf_Addr, char ** ppFile, Elf ** ppElf)
        {
            if (std::strcmp(szModule, VDSO) == 0)
            {
                *ppElf = static_cast<Modules_c *>(*ppModules)->OpenVdso(pModule);
                return -1;
            }
            *ppFile = strdup(szModule);
            return open(szModule, O_RDONLY | O_CLOEXEC);
        }

        // libdw searches for separate debug files beside the module and in the system's folders.
        char g_szDebugFolders[] = ":.debug:/usr/lib/debug";
        char * g_szDebugPath = g_szDebugFolders;

        constexpr Dwfl_Callbacks CALLBACKS = { FindElf, dwfl_standard_find_debuginfo, dwfl_offline_section_address,
            &g_szDebugPath };
    }

    Modules_c::Modules_c(std::string const & sIndexFolder)
        : m_pDwfl(dwfl_begin(&CALLBACKS))
        , m_Folder(sIndexFolder)
    {
        dwfl_report_begin(m_pDwfl);
    }

    void Modules_c::AddModule(char const * szPath, std::uint64_t nStart, std::uint64_t nEnd)
    {
        Dwfl_Module * const pModule = dwfl_report_module(m_pDwfl, szPath, nStart, nEnd);
        void ** ppModules = nullptr;
        if (pModule != nullptr
            && dwfl_module_info(pModule, &ppModules, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))
        {
            *ppModules = this;
        }
    }

    bool Modules_c::Read(std::uint64_t, void *, std::size_t)
    {
        return false;
    }

    Elf * Modules_c::OpenVdso(Dwfl_Module * pModule)
    {
        Dwarf_Addr nStart = 0;
        Dwarf_Addr nEnd = 0;
        dwfl_module_info(pModule, nullptr, &nStart, &nEnd, nullptr, nullptr, nullptr, nullptr);
        m_dVdso.resize(nEnd - nStart);
        return Read(nStart, m_dVdso.data(), m_dVdso.size()) ? elf_memory(m_dVdso.data(), m_dVdso.size()) : nullptr;
    }

    ModuleIndex_c const & Modules_c::IndexOf(Dwfl_Module * pModule)
    {
        auto const [itIndex, bNew] = m_dIndices.try_emplace(pModule);
        if (bNew)
        {
            itIndex->second.Build(pModule, m_Folder);
        }
        return itIndex->second;
    }

    std::optional<Unit_t> Modules_c::UnitAt(std::uint64_t nAddress)
    {
        Dwfl_Module * const pModule = ModuleAt(nAddress);
        Dwarf_Addr nBias = 0;
        Dwarf * const pDwarf = pModule == nullptr ? nullptr : dwfl_module_getdwarf(pModule, &nBias);
        if (pDwarf == nullptr)
        {
            return std::nullopt;
        }
        Unit_t Unit = { {}, nBias, {} };
        for (std::uint64_t const nUnit : IndexOf(pModule).UnitsAt(nAddress))
        {
            if (dwarf_offdie(pDwarf, nUnit, &Unit.Lines) != nullptr && IsUnit(&Unit.Lines)
                && dwarf_haspc(&Unit.Lines, nAddress - nBias) > 0)
            {
                char const * const szModule =
                    dwfl_module_info(pModule, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
                Unit.Die = m_Split.Find(Unit.Lines, szModule);
                return Unit;
            }
        }
        return std::nullopt;
    }

    std::optional<Symbol_t> Modules_c::SymbolAt(std::uint64_t nAddress)
    {
        Dwfl_Module * const pModule = ModuleAt(nAddress);
        std::optional<int> const iSymbol = pModule == nullptr ? std::nullopt : IndexOf(pModule).SymbolAt(nAddress);
        GElf_Sym Symbol;
        GElf_Addr nStart = 0;
        char const * const szName =
            iSymbol ? dwfl_module_getsym_info(pModule, *iSymbol, &Symbol, &nStart, nullptr, nullptr, nullptr) : nullptr;
        return szName == nullptr ? std::nullopt : std::optional(Symbol_t{ szName, nAddress - nStart });
    }
}
