// moduleindex.h: a module's compilation units and symbols, sorted by address.
//
// libdw has such tables too. Its table of units is missing for compilers that write none. Its search for a symbol reads
// all symbols.
#pragma once

#include <cstdint>
#include <elfutils/libdwfl.h>
#include <optional>
#include <string>
#include <vector>

namespace zqsymbols
{
    /// A range of nBytes addresses. nStart counts from the module's start. nValue is the offset of a unit's DIE, or a
    /// symbol's rank, which includes its number (docs/formats.md).
    struct IndexRange_t
    {
        std::uint32_t nStart;
        std::uint32_t nBytes;
        std::uint64_t nValue;
    };

    /// Index of ranges, which may overlap.
    class RangeIndex_c
    {
    public:
        RangeIndex_c() = default;

        /// Makes an index of ranges. Requires that they are sorted by IsBefore.
        explicit RangeIndex_c(std::vector<IndexRange_t> dRanges);

        /// Calls fnFound with the value of each range that holds an address, the one with the nearest start first,
        /// until fnFound returns true. The address counts from the module's start.
        template <typename FOUND>
        void FindAt(std::uint64_t nAddress, FOUND const & fnFound) const
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
        /// Returns the number of ranges that start at an address or before it.
        std::size_t CountUpTo(std::uint64_t nAddress) const;

        std::vector<IndexRange_t> m_dRanges;
        std::vector<std::uint64_t> m_dEnds;   // for each range the highest end of it and of those before
    };

    class IndexFolder_c;

    /// Index of one module. It is empty before Build.
    class ModuleIndex_c
    {
    public:
        /// Builds the index from the module's files, or for a big module reads it from its index file in a folder.
        /// Writes that file if it is missing or not usable. A module is big if it has a build-id and one of:
        /// - at least 64 MiB in its section .debug_info as stored.
        /// - at least 100,000 symbols.
        void Build(Dwfl_Module * pModule, IndexFolder_c const & Folder);

        /// Returns the offsets of the units that claim an address in memory, the one whose range has the nearest start
        /// first. The result is empty if none does.
        std::vector<std::uint64_t> UnitsAt(std::uint64_t nAddress) const;

        /// Returns the number of the innermost symbol that holds an address in memory, or nothing if none does.
        std::optional<int> SymbolAt(std::uint64_t nAddress) const;

    private:
        std::uint64_t m_nStart = 0;
        RangeIndex_c m_Units;
        RangeIndex_c m_Symbols;
    };

    /// Returns whether Left precedes Right: by their starts, then the longer one first, then by their values.
    inline bool IsBefore(IndexRange_t const & Left, IndexRange_t const & Right)
    {
        return Left.nStart != Right.nStart   ? Left.nStart < Right.nStart
               : Left.nBytes != Right.nBytes ? Left.nBytes > Right.nBytes
                                             : Left.nValue < Right.nValue;
    }

    /// Opens a module's file and returns its build-id in lower-case hexadecimal, or an empty text if it has none.
    std::string ReadBuildId(Dwfl_Module * pModule);
}
