// Counts memory by category, counts the allocations of a frame, and writes a snapshot for `zqtool memory`.
#include "zqcore/cmemory.h"
#include "zqcore/cmemoryreport.h"

#include <cstdio>
#include <memory>
#include <vector>

namespace
{
    void PrintCategories()
    {
        mem::CategoryInfo dInfo[mem::TOTAL];
        std::ptrdiff_t nBlocks = 0, nBytes = 0, nMostBytes = 0;   // totals, not printed here
        MemoryCategoriesGet(dInfo, nBlocks, nBytes, nMostBytes);
        for (mem::Categories_e const eCategory : { mem::GameWorld, mem::Sound })
        {
            std::printf("%-10s %3i blocks, at most %3i\n", MemoryCategoryName(eCategory),
                static_cast<int>(dInfo[eCategory].iCount), static_cast<int>(dInfo[eCategory].iMaxCount));
        }
    }
}

int main()
{
    constexpr int SHIPS = 100;
    std::vector<std::unique_ptr<int>> dShips;
    {
        MemCategoryScope_c const Category(mem::GameWorld);
        dShips.reserve(SHIPS);
        for (int i = 0; i < SHIPS; ++i)
        {
            dShips.emplace_back(ZQ_NEW int(i));
        }
    }
    dShips.resize(60);
    MemoryResetFrameAllocCount();   // a frame begins
    std::vector<char> dSamples;
    {
        MemCategoryScope_c const Category(mem::Sound);
        dSamples.resize(1000);
    }
    MemoryResetFrameAllocCount();   // and ends
    std::printf("%u allocation in the frame\n", MemoryGetFrameAllocCount());
    PrintCategories();
    MemoryLogAllocations();                    // writes allocations.csv, for `zqtool memory`, and uncategorized.csv
    return std::fflush(stdout) == 0 ? 0 : 1;   // fails if the output is lost
}
