// allocationgrowth.h: what snapshots of live memory hold, group by group, and how that grew from the first to the last.
#pragma once

#include "tools/zqtool/allocationreport.h"

#include <span>
#include <vector>

/// A group of blocks in each snapshot. A snapshot without blocks of the group has an empty holding.
struct GrowthRow_t
{
    std::string sName;                  // as in the snapshots; it may hold control characters
    std::vector<Holding_t> dHoldings;   // one for each snapshot, in the order of the snapshots; never empty

    /// Return the group's holding in the first and in the last snapshot.
    Holding_t const & First() const { return dHoldings.front(); }
    Holding_t const & Last() const { return dHoldings.back(); }

    /// Return the growth from the first to the last snapshot, negative if the group shrank.
    std::int64_t GrownBytes() const { return static_cast<std::int64_t>(Last().nBytes - First().nBytes); }
    std::int64_t GrownBlocks() const { return static_cast<std::int64_t>(Last().nBlocks - First().nBlocks); }

    /// Returns whether the bytes never fall from a snapshot to the next, and rise at least twice.
    bool IsSteady() const;
};

/// Property that the blocks of a group share.
enum class GroupBy_e
{
    Category,
    File,
    Line   // "file(line)"
};

/// Returns a row for each group that a snapshot has. The largest growth in bytes comes first. Of equal growths, the one
/// with more bytes in the last snapshot comes first. The rows of a single snapshot are thus sorted by size.
std::vector<GrowthRow_t> GrowthBy(GroupBy_e eBy, std::span<AllocationReport_t const> dReports);

/// Returns the rows of the source lines of one category, in the order of GrowthBy.
std::vector<GrowthRow_t> GrowthOfCategory(std::string const & sCategory, std::span<AllocationReport_t const> dReports);

/// Returns the row of all blocks, named "total". Requires a snapshot.
GrowthRow_t GrowthOfAll(std::span<AllocationReport_t const> dReports);
