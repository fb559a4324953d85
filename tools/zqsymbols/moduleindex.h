// moduleindex.h: a module's compilation units and symbols, sorted by address.
//
// libdw has such tables too. Its table of units is missing for compilers that write none, and its search for a symbol
// reads all of them.
#pragma once

#include <cstdint>
#include <elfutils/libdwfl.h>
#include <optional>
#include <vector>

namespace zqsymbols
{
    /// Addresses from a start, both counted from the module's start. nValue is the offset of a unit's DIE or the number of
    /// a symbol.
    struct IndexRange_t
    {
        std::uint32_t nStart;
        std::uint32_t nBytes;
        std::uint64_t nValue;
    };

    /// Ranges that may overlap, in the order of their starts.
    class RangeIndex_c
    {
    public:
        RangeIndex_c() = default;

        /// Sorts the ranges. Of equal starts the longer comes first.
        explicit RangeIndex_c(std::vector<IndexRange_t> dRanges);

        /// Calls fnFound with the value of each range that holds an address, the one with the nearest start first, until
        /// it returns true.
        template <typename FOUND>
        void At(std::uint64_t nAddress, FOUND const & fnFound) const
        {
            for (std::size_t i = CountUpTo(nAddress); i-- > 0 && m_dEnds[i] > nAddress;)
            {
                IndexRange_t const & Range = m_dRanges[i];
                if (nAddress - Range.nStart < Range.nBytes && fnFound(Range.nValue))
                {
                    return;
                }
            }
        }

    private:
        std::size_t CountUpTo(std::uint64_t nAddress) const;

        std::vector<IndexRange_t> m_dRanges;
        std::vector<std::uint64_t> m_dEnds;   // of each, the highest end up to it
    };

    class ModuleIndex_c
    {
    public:
        /// Reads the module's files.
        void Build(Dwfl_Module * pModule);

        /// Returns the offsets of the units that claim an address, the one whose range has the nearest start first.
        std::vector<std::uint64_t> UnitsAt(std::uint64_t nAddress) const;

        /// Returns the number of the innermost symbol that holds an address.
        std::optional<int> SymbolAt(std::uint64_t nAddress) const;

    private:
        std::uint64_t m_nStart = 0;
        RangeIndex_c m_Units;
        RangeIndex_c m_Symbols;
    };
}
