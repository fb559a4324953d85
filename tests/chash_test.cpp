#include "tests/test_support.h"
#include "zqcore/chash.h"

#include <bit>
#include <map>
#include <random>
#include <ranges>

namespace
{
    struct Item_s
    {
        String_T<8> sName;
    };
}

TEST(StringHash, HashRotatesEachCharacterByItsPosition)
{
    EXPECT_EQ(StringHashOf("ab"), 0x61u ^ 0x62u << 1);
    EXPECT_EQ(StringHashOf("\xFE"), 0xFFFFFFFEu);
    EXPECT_EQ(StringHashOf(std::string(33, '\1').c_str()), 0xFFFFFFFEu);   // position 32 is position 0 again
    std::mt19937 Random(8);
    for (std::size_t nLength = 0; nLength < 200; ++nLength)
    {
        std::string sName;
        std::uint32_t iHash = 0;
        for (std::size_t i = 0; i < nLength; ++i)
        {
            sName += static_cast<char>(1 + Random() % (nLength % 3 == 0 ? 255 : 127));
            auto const iWide = static_cast<std::int32_t>(static_cast<signed char>(sName[i]));
            iHash ^= std::rotl(static_cast<std::uint32_t>(iWide), static_cast<int>(i));
        }
        ASSERT_EQ(StringHashOf(sName.c_str()), iHash) << sName;
    }
}

TEST(StringHash, BehavesLikeAMapOverRandomOperations)
{
    static StringHash_T<Item_s, 8, 64, 117> s_Table;
    std::map<std::string, Item_s *> Model;
    std::mt19937 Random(2);
    Item_s dItems[40];
    for (int iStep = 0; iStep < 100000; ++iStep)
    {
        int const iItem = static_cast<int>(Random() % std::size(dItems));
        Item_s & Item = dItems[iItem];
        Item.sName = NewString("%c%c", static_cast<char>('a' + iItem % 5), static_cast<char>('A' + iItem / 5));
        auto const Known = Model.find(Item.sName.GetBuffer());
        ASSERT_EQ(s_Table.FindByName(Item.sName), Known == Model.end() ? nullptr : &Item) << "step " << iStep;
        if (Random() % 2 && Known == Model.end())
        {
            ASSERT_EQ(s_Table.Add(&Item, &Item.sName), HASH_ADDED) << "step " << iStep;
            Model[Item.sName.GetBuffer()] = &Item;
        }
        else if (Random() % 2)
        {
            ASSERT_EQ(s_Table.DeleteByName(Item.sName), Model.erase(Item.sName.GetBuffer()) == 1) << "step " << iStep;
        }
    }
    using Table_t = decltype(s_Table);
    static_assert(std::ranges::forward_range<Table_t>);
    static_assert(std::is_same_v<std::ranges::range_reference_t<Table_t>, Item_s &>);
    std::map<std::string, Item_s *> Walked;
    for (Item_s & Item : s_Table)
    {
        EXPECT_TRUE(Walked.emplace(Item.sName, &Item).second);
    }
    EXPECT_EQ(Walked, Model);
    auto const fnIsFirst = [](Item_s const & Item) { return Item.sName == "aA"; };
    EXPECT_EQ(std::ranges::count_if(s_Table, fnIsFirst), Model.contains("aA"));
    s_Table.Reset();
    EXPECT_EQ(s_Table.First(), nullptr);
    EXPECT_EQ(s_Table.FindByName("aA"), nullptr);
}

TEST(StringHash, AddReusesTheFirstDeletedSlotAndMissesTheKeyAfterIt)
{
    static StringHash_T<Item_s, 8, 8, 1> s_Table;
    s_Table.Reset();
    // All have one slot: the fifth character counts only through bits beyond the index.
    Item_s First{ "abcda" }, Second{ "abcdb" }, Twin = Second;
    EXPECT_EACH(s_Table.Add(&First, &First.sName) == HASH_ADDED, s_Table.Add(&Second, &Second.sName) == HASH_ADDED,
        s_Table.Add(&Twin, &Twin.sName) == HASH_PRESENT, s_Table.FindByName(Twin.sName) == &Second);

    auto * const pFirstSlot = s_Table.First();
    EXPECT_EACH(s_Table.DeleteByName(First.sName), s_Table.Add(&Twin, &Twin.sName) == HASH_ADDED,
        s_Table.First() == pFirstSlot, s_Table.FindByName(Second.sName) == &Twin);
    EXPECT_EACH(s_Table.DeleteByName(Second.sName), s_Table.FindByName(Second.sName) == &Second);
}

TEST(StringHash, FindsNoAbsentNameInASmallTableThatWasFull)
{
    static StringHash_T<Item_s, 8, 2, 1> s_Table;
    s_Table.Reset();
    for (int i = 0; i < 20; ++i)
    {
        Item_s Item{ NewString("k%i", i) };
        EXPECT_EACH(s_Table.Add(&Item, &Item.sName) == HASH_ADDED, s_Table.DeleteByName(Item.sName),
            !s_Table.FindByName("none"))
            << i;
    }
}

TEST(StringHash, PlacesKeysInTheFirstFreeSlotOfTheirChain)
{
    constexpr int SLOTS = 256, STEP = 117, PROBES = SLOTS * 2 / 3;   // a chain has two thirds of the slots (chash.h)
    static StringHash_T<Item_s, 8, SLOTS, STEP> s_Table;
    std::mt19937 Random(3);
    Item_s dItems[200];
    for (int iRound = 0; iRound < 20; ++iRound)
    {
        s_Table.Reset();
        std::map<int, Item_s *> Model;   // by slot
        for (Item_s & Item : dItems)
        {
            Item.sName = NewString("n%u", static_cast<unsigned>(Random() % 1000));
            int iSlot = static_cast<int>(StringHashOf(Item.sName)) & (SLOTS - 1);
            int nProbes = 0;
            while (nProbes < PROBES && Model.contains(iSlot) && Model[iSlot]->sName != Item.sName)
            {
                iSlot = (iSlot + STEP) & (SLOTS - 1);
                ++nProbes;
            }
            int const iExpected = nProbes == PROBES ? HASH_FULL : Model.contains(iSlot) ? HASH_PRESENT : HASH_ADDED;
            ASSERT_EQ(s_Table.Add(&Item, &Item.sName), iExpected) << "round " << iRound;
            if (iExpected == HASH_ADDED)
            {
                Model[iSlot] = &Item;
            }
        }
        auto * pSlot = s_Table.First();
        for (auto const & [iSlot, pItem] : Model)
        {
            ASSERT_EQ(pSlot->pObject, pItem) << "slot " << iSlot << " in round " << iRound;
            s_Table.Delete(pSlot);   // while iterating
            pSlot = s_Table.Next(pSlot);
        }
        EXPECT_EACH(!pSlot, !s_Table.First()) << "round " << iRound;
    }
}

TEST(IndexHash, BehavesLikeAMapUntilNoSlotIsFound)
{
    static IndexHash_T<int, 64, 117> s_Table;
    s_Table.Reset();
    std::map<std::uint32_t, int> Model;
    std::mt19937 Random(3);
    int nFull = 0;
    for (int iStep = 0; iStep < 3000; ++iStep)
    {
        auto const iKey = static_cast<std::uint32_t>(Random() % 200 << Random() % 8);
        int const * const pValue = s_Table.Find(iKey);
        auto const Known = Model.find(iKey);
        ASSERT_EQ(pValue ? *pValue : -1, Known != Model.end() ? Known->second : -1) << "step " << iStep;
        int const iResult = s_Table.Add(iStep, iKey);
        ASSERT_EQ(iResult == HASH_PRESENT, pValue != nullptr) << "step " << iStep;
        nFull += iResult == HASH_FULL;
        if (iResult == HASH_ADDED)
        {
            Model[iKey] = iStep;
        }
        ASSERT_EQ(s_Table.GetCount(), static_cast<int>(Model.size())) << "step " << iStep;
        if (iStep % 150 == 0)
        {
            s_Table.Reset();
            Model.clear();
        }
    }
    EXPECT_GT(nFull, 0);
}
