// treemap.h: a page on which areas tell how much each part of a whole holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct TreemapPart_t
{
    std::string sName;
    std::string sNote;   // shown while the pointer rests on the part
    std::uint64_t nSize = 0;
};

struct TreemapGroup_t
{
    TreemapPart_t Whole;                 // its size is that of its parts together
    std::vector<TreemapPart_t> dParts;   // largest first
};

/// One HTML page that needs nothing else. Groups come largest first.
std::string TreemapPage(std::string const & sTitle, std::vector<TreemapGroup_t> const & dGroups);
