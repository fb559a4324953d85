#include "tools/zqsymbols/moduleindex.h"

#include "tools/zqsymbols/elffile.h"
#include "tools/zqsymbols/indexfile.h"

#include <algorithm>
#include <dwarf.h>
#include <limits>
#include <utility>

namespace zqsymbols
{
    namespace
    {
        constexpr std::uint32_t MAX_RANGE = std::numeric_limits<std::uint32_t>::max();

        // A module with a build-id that reaches either limit has an index file, because reading that is faster than
        // building the index.
        constexpr std::uint64_t BIG_BYTES = 64 << 20;   // of .debug_info as stored
        constexpr int BIG_SYMBOLS = 100000;

        // The linker's fill between two functions of a unit has fewer bytes.
        constexpr std::uint64_t MAX_GAP = 16;

        // Collector of the ranges inside a module. Skips others, and those that end 4 GiB or more after its start.
        class Collector_c
        {
        public:
            Collector_c(std::uint64_t nStart, std::uint64_t nEnd)
                : m_nStart(nStart)
                , m_nEnd(nEnd)
            {}

            void Add(std::uint64_t nFrom, std::uint64_t nTo, std::uint64_t nValue)
            {
                bool const bInside = nFrom >= m_nStart && nFrom <= nTo && nTo <= m_nEnd && nTo - m_nStart <= MAX_RANGE;
                if (bInside)
                {
                    m_dRanges.push_back({ static_cast<std::uint32_t>(nFrom - m_nStart),
                        static_cast<std::uint32_t>(nTo - nFrom), nValue });
                }
            }

            // Adds a range of a unit, or extends the last one if that belongs to the same unit and ends less than
            // MAX_GAP bytes before. Skips an empty range that does not extend it.
            void AddUnit(std::uint64_t nFrom, std::uint64_t nTo, std::uint64_t nUnit)
            {
                std::uint64_t const nLastEnd =
                    m_dRanges.empty() ? 0 : m_nStart + m_dRanges.back().nStart + m_dRanges.back().nBytes;
                bool const bExtends = !m_dRanges.empty() && m_dRanges.back().nValue == nUnit && nFrom >= nLastEnd
                                      && nFrom - nLastEnd < MAX_GAP && nFrom <= nTo && nTo <= m_nEnd
                                      && nTo - m_nStart <= MAX_RANGE;
                if (bExtends)
                {
                    m_dRanges.back().nBytes += static_cast<std::uint32_t>(nTo - nLastEnd);
                }
                else if (nFrom != nTo)
                {
                    Add(nFrom, nTo, nUnit);
                }
            }

            std::vector<IndexRange_t> m_dRanges;

        private:
            std::uint64_t m_nStart;
            std::uint64_t m_nEnd;
        };

        // Segments of a file that hold code. If a linker drops a function, its range lies outside of them.
        class Code_c
        {
        public:
            explicit Code_c(Elf * pElf)
            {
                std::size_t nHeaders = 0;
                GElf_Phdr Header;
                elf_getphdrnum(pElf, &nHeaders);
                for (int i = 0; i < static_cast<int>(nHeaders) && gelf_getphdr(pElf, i, &Header) != nullptr; ++i)
                {
                    if (Header.p_type == PT_LOAD && (Header.p_flags & PF_X) != 0)
                    {
                        m_dSegments.emplace_back(Header.p_vaddr, Header.p_memsz);
                    }
                }
            }

            // Returns whether one of the segments holds the address. Returns true if the file has no such segments.
            bool Holds(std::uint64_t nAddress) const
            {
                return m_dSegments.empty()
                       || std::ranges::any_of(m_dSegments,
                           [nAddress](auto const & Segment) { return nAddress - Segment.first < Segment.second; });
            }

        private:
            std::vector<std::pair<std::uint64_t, std::uint64_t>> m_dSegments;
        };

        // Adds the ranges of compilation units, full ones and skeletons, that start in a segment with code.
        void CollectUnits(Dwarf * pDwarf, Dwarf_Addr nBias, Collector_c & Collector)
        {
            Code_c const Code(dwarf_getelf(pDwarf));
            Dwarf_CU * pUnit = nullptr;
            Dwarf_Die Die;
            std::uint8_t nType = 0;
            while (dwarf_get_units(pDwarf, pUnit, &pUnit, nullptr, &nType, &Die, nullptr) == 0)
            {
                Dwarf_Addr nBase = 0;
                Dwarf_Addr nFrom = 0;
                Dwarf_Addr nTo = 0;
                bool const bCode = nType == DW_UT_compile || nType == DW_UT_skeleton;
                std::ptrdiff_t nNext = 0;
                while (bCode && (nNext = dwarf_ranges(&Die, nNext, &nBase, &nFrom, &nTo)) > 0)
                {
                    if (Code.Holds(nFrom))
                    {
                        Collector.AddUnit(nFrom + nBias, nTo + nBias, dwarf_dieoffset(&Die));
                    }
                }
            }
        }

        // Returns the rank of a symbol among those of one range: a local one comes first, then a weak one, then any
        // other. If two are equal, the one with the lower number comes last. A search finds the last one first.
        std::uint64_t Rank(GElf_Sym const & Symbol, int iSymbol)
        {
            unsigned const nBinding = GELF_ST_BIND(Symbol.st_info);
            std::uint64_t const nStrength = nBinding == STB_LOCAL ? 0 : nBinding == STB_WEAK ? 1 : 2;
            return nStrength << 32 | static_cast<std::uint32_t>(~iSymbol);
        }

        // Returns the number of the symbol that has a rank.
        int SymbolOf(std::uint64_t nRank)
        {
            return ~static_cast<int>(static_cast<std::uint32_t>(nRank));
        }

        // Returns the address in memory after a section, or 0 if there is no such section.
        std::uint64_t SectionEnd(Elf * pElf, GElf_Word iSection, GElf_Addr nBias)
        {
            GElf_Shdr Header;
            bool const bFound = gelf_getshdr(elf_getscn(pElf, iSection), &Header) != nullptr;
            return bFound ? Header.sh_addr + Header.sh_size + nBias : 0;
        }

        // Adds each symbol that has a name and an address in the module, except those of sections, to a collector: to
        // Sized if it has a size, otherwise to Sizeless.
        void SplitSymbols(Dwfl_Module * pModule, int nSymbols, Collector_c & Sized, Collector_c & Sizeless)
        {
            for (int i = 1; i < nSymbols; ++i)
            {
                GElf_Sym Symbol;
                GElf_Addr nAddress = 0;
                GElf_Word iSection = 0;
                Elf * pElf = nullptr;
                Dwarf_Addr nBias = 0;
                char const * const szName =
                    dwfl_module_getsym_info(pModule, i, &Symbol, &nAddress, &iSection, &pElf, &nBias);
                unsigned const nType = GELF_ST_TYPE(Symbol.st_info);
                if (szName == nullptr || szName[0] == '\0' || iSection == SHN_UNDEF || iSection == SHN_ABS
                    || nType == STT_SECTION || nType == STT_FILE || nType == STT_TLS)
                {
                    continue;
                }
                bool const bSized = Symbol.st_size != 0;
                std::uint64_t const nEnd = bSized ? nAddress + Symbol.st_size : SectionEnd(pElf, iSection, nBias);
                (bSized ? Sized : Sizeless).Add(nAddress, nEnd, Rank(Symbol, i));
            }
        }

        // Appends to dSized the symbols of dSizeless that start outside of its ranges, each cut at the next range.
        // Requires that both are sorted.
        void AddOutside(std::vector<IndexRange_t> & dSized, std::vector<IndexRange_t> & dSizeless)
        {
            std::vector<IndexRange_t> dAdded;
            std::uint64_t nSizedEnd = 0;
            std::size_t iSized = 0;
            for (IndexRange_t & Label : dSizeless)
            {
                while (iSized < dSized.size() && dSized[iSized].nStart <= Label.nStart)
                {
                    nSizedEnd = std::max<std::uint64_t>(
                        nSizedEnd, std::uint64_t{ dSized[iSized].nStart } + dSized[iSized].nBytes);
                    ++iSized;
                }
                if (nSizedEnd <= Label.nStart)
                {
                    std::uint32_t const nNext = iSized < dSized.size() ? dSized[iSized].nStart : MAX_RANGE;
                    Label.nBytes = std::min(Label.nBytes, nNext - Label.nStart);
                    dAdded.push_back(Label);
                }
            }
            dSized.insert(dSized.end(), dAdded.begin(), dAdded.end());
        }

        // Returns the symbols, sorted. One without a size, as assembly has, extends to the next one with a size or to
        // the end of its section. Inside of a symbol with a size it is only a label, which the result lacks.
        std::vector<IndexRange_t> CollectSymbols(
            Dwfl_Module * pModule, int nSymbols, std::uint64_t nStart, std::uint64_t nEnd)
        {
            Collector_c Sized(nStart, nEnd);
            Collector_c Sizeless(nStart, nEnd);
            SplitSymbols(pModule, nSymbols, Sized, Sizeless);
            std::sort(Sized.m_dRanges.begin(), Sized.m_dRanges.end(), IsBefore);
            std::sort(Sizeless.m_dRanges.begin(), Sizeless.m_dRanges.end(), IsBefore);
            AddOutside(Sized.m_dRanges, Sizeless.m_dRanges);
            std::sort(Sized.m_dRanges.begin(), Sized.m_dRanges.end(), IsBefore);
            return std::move(Sized.m_dRanges);
        }

        // Returns the size of the section of units in bytes, as stored, or 0 if there is none.
        std::uint64_t UnitBytes(Dwarf * pDwarf)
        {
            Elf * const pElf = pDwarf == nullptr ? nullptr : dwarf_getelf(pDwarf);
            std::optional<Section_t> const Section = FindSection(pElf, ".debug_info");
            return Section ? Section->Header.sh_size : 0;
        }
    }

    RangeIndex_c::RangeIndex_c(std::vector<IndexRange_t> dRanges)
        : m_dRanges(std::move(dRanges))
    {
        m_dEnds.reserve(m_dRanges.size());
        std::uint64_t nEnd = 0;
        for (IndexRange_t const & Range : m_dRanges)
        {
            nEnd = std::max(nEnd, std::uint64_t{ Range.nStart } + Range.nBytes);
            m_dEnds.push_back(nEnd);
        }
    }

    std::size_t RangeIndex_c::CountUpTo(std::uint64_t nAddress) const
    {
        auto const itAfter = std::upper_bound(m_dRanges.begin(), m_dRanges.end(), nAddress,
            [](std::uint64_t nSought, IndexRange_t const & Range) { return nSought < Range.nStart; });
        return static_cast<std::size_t>(itAfter - m_dRanges.begin());
    }

    std::string ReadBuildId(Dwfl_Module * pModule)
    {
        GElf_Addr nUnused = 0;
        unsigned char const * pBytes = nullptr;
        dwfl_module_getelf(pModule, &nUnused);
        int const nBytes = dwfl_module_build_id(pModule, &pBytes, &nUnused);
        return nBytes > 0 ? BuildIdText(pBytes, static_cast<std::size_t>(nBytes)) : "";
    }

    void ModuleIndex_c::Build(Dwfl_Module * pModule, IndexFolder_c const & Folder)
    {
        Dwarf_Addr nEnd = 0;
        Dwarf_Addr nBias = 0;
        dwfl_module_info(pModule, nullptr, &m_nStart, &nEnd, nullptr, nullptr, nullptr, nullptr);
        Dwarf * const pDwarf = dwfl_module_getdwarf(pModule, &nBias);
        int const nSymbols = dwfl_module_getsymtab(pModule);
        IndexKey_t const Key = { ReadBuildId(pModule), nEnd - m_nStart, UnitBytes(pDwarf),
            static_cast<std::uint64_t>(std::max(nSymbols, 0)) };
        bool const bBig = !Key.sBuildId.empty() && (Key.nUnitBytes >= BIG_BYTES || nSymbols >= BIG_SYMBOLS);
        std::optional<IndexParts_t> Parts = bBig ? Folder.Load(Key) : std::nullopt;
        bool const bLoaded = Parts.has_value();
        if (!bLoaded)
        {
            Collector_c Units(m_nStart, nEnd);
            if (pDwarf != nullptr)
            {
                CollectUnits(pDwarf, nBias, Units);
            }
            std::sort(Units.m_dRanges.begin(), Units.m_dRanges.end(), IsBefore);
            Parts = { std::move(Units.m_dRanges), CollectSymbols(pModule, nSymbols, m_nStart, nEnd) };
        }
        if (bBig && !bLoaded)
        {
            Folder.Save(Key, *Parts);
        }
        m_Units = RangeIndex_c(std::move(Parts->dUnits));
        m_Symbols = RangeIndex_c(std::move(Parts->dSymbols));
    }

    std::vector<std::uint64_t> ModuleIndex_c::UnitsAt(std::uint64_t nAddress) const
    {
        std::vector<std::uint64_t> dUnits;
        auto const fnAdd = [&dUnits](std::uint64_t nUnit)
        {
            dUnits.push_back(nUnit);
            return false;
        };
        m_Units.FindAt(nAddress - m_nStart, fnAdd);
        return dUnits;
    }

    std::optional<int> ModuleIndex_c::SymbolAt(std::uint64_t nAddress) const
    {
        std::optional<int> iSymbol;
        auto const fnSet = [&iSymbol](std::uint64_t nRank)
        {
            iSymbol = SymbolOf(nRank);
            return true;
        };
        m_Symbols.FindAt(nAddress - m_nStart, fnSet);
        return iSymbol;
    }
}
