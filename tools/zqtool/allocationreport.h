// allocationreport.h: reads allocations.csv, the snapshot of live blocks that MemoryLogAllocations writes.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>

/// Blocks and bytes of a group of blocks.
struct Holding_t
{
    std::uint64_t nBlocks = 0;
    std::uint64_t nBytes = 0;

    bool operator==(Holding_t const &) const = default;

    /// Returns the blocks and bytes of both groups.
    Holding_t operator+(Holding_t const & Other) const { return { nBlocks + Other.nBlocks, nBytes + Other.nBytes }; }
};

/// Key of a category's blocks, if the snapshot is of a shipped game's heap, which has no list of blocks.
inline constexpr char ALL_BLOCKS[] = "blocks(all)";

/// The blocks of a snapshot.
struct AllocationReport_t
{
    std::map<std::string, std::map<std::string, Holding_t>> dCategories;   // by category, then file(line) or ALL_BLOCKS

    /// Returns the sum of all holdings.
    Holding_t Total() const;
};

/// Reads a report up to its total, the number of all blocks. Reports each fault to fnComplain with the line's number
/// from 1, and reads on unless the first line or the title of the total is wrong. Returns whether there was no fault.
/// Requires that Report is empty.
bool ReadAllocationReport(std::istream & Stream, AllocationReport_t & Report,
    std::function<void(int iLine, std::string const & sText)> const & fnComplain);
