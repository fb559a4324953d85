#include "zqcore/cpagemap.h"

#include "zqcore/cmemory.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

TEST(PageMap, HoldsPagesThatCollideAsAPlainModelDoes)
{
    std::ptrdiff_t const nBefore = MemoryTotalAllocations();
    PageMap_T<int> Map;
    std::map<std::uintptr_t, int> Model;
    std::mt19937 Random(12);
    // Returns one of 240 pages, in 30 runs of 8. The home slots of all runs are the same 8, or the same 16 in a table
    // of 4096 slots.
    auto const AnyPage = [&] { return (Random() % 30) << 11 | Random() % 8; };
    auto const Address = [](std::uintptr_t iPage)
    { return reinterpret_cast<void const *>(((iPage + 1) << PageMap_T<int>::PAGE_BITS) - 1); };
    for (int iStep = 1; iStep < 20000; ++iStep)
    {
        std::uintptr_t const iPage = AnyPage();
        bool const bGrow = iStep / 1000 % 2 == 0;
        if (auto const it = Model.find(iPage); it == Model.end() && (bGrow || Random() % 4 == 0))
        {
            Map.Add(iPage, iStep);
            Model[iPage] = iStep;
        }
        else if (it != Model.end() && (!bGrow || Random() % 4 == 0))
        {
            Map.Remove(iPage);
            Model.erase(it);
        }
        std::uintptr_t const iOther = AnyPage();
        ASSERT_EQ(Map.Find(iOther), Model.contains(iOther) ? Model[iOther] : 0) << "step " << iStep;
        ASSERT_EQ(Map.PageOf(Address(iOther)), iOther) << "step " << iStep;
    }
    while (!Model.empty())
    {
        Map.Remove(Model.begin()->first);
        Model.erase(Model.begin());
    }
    EXPECT_EQ(Map.AtHome(Address(5)), 0);
    std::uintptr_t const iColliding = 5 + (1 << 11);   // its home slot is that of page 5
    Map.Add(5, 1);
    EXPECT_EQ(Map.AtHome(Address(5)), 1);
    Map.Add(iColliding, 2);
    EXPECT_EQ(Map.AtHome(Address(iColliding)), 1) << "another page's";
    EXPECT_EQ(Map.Find(iColliding), 2);
    Map.Remove(5);
    EXPECT_EQ(Map.AtHome(Address(iColliding)), 2) << "at home again";
    Map.Remove(iColliding);
    EXPECT_EQ(MemoryTotalAllocations(), nBefore) << "without pages there is no storage";
}
