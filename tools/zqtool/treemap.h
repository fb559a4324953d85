// treemap.h: a page that shows the parts of a whole as areas by size.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct TreemapPart_t
{
    std::string sName;
    std::string sNote;   // shown while the pointer is over the part
    std::uint64_t nSize = 0;
};

struct TreemapGroup_t
{
    TreemapPart_t Whole;                 // its size is the sum of its parts
    std::vector<TreemapPart_t> dParts;   // largest first
};

/// Returns one HTML page that loads nothing. Requires that the groups are sorted, largest first.
std::string TreemapPage(std::string const & sTitle, std::vector<TreemapGroup_t> const & dGroups);
