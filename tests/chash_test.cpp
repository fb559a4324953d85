#include "zqcore/chash.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace
{
    struct Item_s
    {
        String_T<8> sName;
    };

    template <int SIZE>
    using Table_T = StringHash_T<Item_s, 8, SIZE, 1>;

    // Names of one slot: in a table of 8 the fifth character counts only through bits beyond the index.
    Item_s Colliding(int i)
    {
        return { String_T<8>(NewString("abcd%c", 'a' + i)) };
    }

    template <typename TABLE>
    std::multiset<std::string> Names(TABLE & Table)
    {
        std::multiset<std::string> dNames;
        for (auto * pSlot = Table.First(); pSlot; pSlot = Table.Next(pSlot))
        {
            dNames.insert(static_cast<char const *>(*pSlot->pName));
        }
        return dNames;
    }
}

TEST(StringHash, HashRotatesEachCharacterByItsPosition)
{
    EXPECT_EQ(StringHashOf(""), 0u);
    EXPECT_EQ(StringHashOf("ab"), 0x61u ^ 0x62u << 1);
    EXPECT_EQ(StringHashOf("\xFE"), 0xFFFFFFFEu);
    std::string const sLong(33, '\1'); // position 32 is position 0 again
    EXPECT_EQ(StringHashOf(sLong.c_str()), 0xFFFFFFFEu);
}

TEST(StringHash, BehavesLikeAMapOverRandomOperations)
{
    static StringHash_T<Item_s, 8, 64, 117> s_Table;
    std::map<std::string, Item_s *> Model;
    std::mt19937 Random(2);
    std::vector<Item_s> dItems(40);
    for (std::size_t i = 0; i < dItems.size(); ++i)
    {
        dItems[i].sName = NewString("%c%c", static_cast<char>('a' + i % 5), static_cast<char>('A' + i / 5));
    }
    for (int iStep = 0; iStep < 100000; ++iStep)
    {
        Item_s & Item = dItems[Random() % dItems.size()];
        char const * const szName = Item.sName;
        bool const bKnown = Model.count(szName) != 0;
        ASSERT_EQ(s_Table.FindByName(szName), bKnown ? &Item : nullptr) << szName;
        if (Random() % 2 && !bKnown)
        {
            ASSERT_EQ(s_Table.Add(&Item, &Item.sName), HASH_ADDED) << szName;
            Model[szName] = &Item;
        }
        else if (Random() % 2)
        {
            ASSERT_EQ(s_Table.DeleteByName(szName), bKnown);
            Model.erase(szName);
        }
        else if (iStep % 1000 == 0)
        {
            std::multiset<std::string> dKeys;
            for (auto const & Pair : Model)
            {
                dKeys.insert(Pair.first);
            }
            ASSERT_EQ(Names(s_Table), dKeys);
        }
    }
    s_Table.Reset();
    EXPECT_EQ(s_Table.First(), nullptr);
    EXPECT_EQ(s_Table.FindByName(dItems[0].sName), nullptr);
}

TEST(StringHash, AddTakesTheFirstDeletedSlotUnseenOfTheKeyBehindIt)
{
    static Table_T<8> s_Table;
    Item_s First = Colliding(0), Second = Colliding(1), Twin = Colliding(1);
    ASSERT_EQ(StringHashOf(First.sName) & 7, StringHashOf(Second.sName) & 7);
    EXPECT_EQ(s_Table.Add(&First, &First.sName), HASH_ADDED);
    EXPECT_EQ(s_Table.Add(&Second, &Second.sName), HASH_ADDED);
    EXPECT_EQ(s_Table.Add(&Twin, &Twin.sName), HASH_PRESENT);
    EXPECT_EQ(s_Table.FindByName(Twin.sName), &Second);

    auto * const pFirstSlot = s_Table.First();
    EXPECT_TRUE(s_Table.DeleteByName(First.sName));
    EXPECT_EQ(s_Table.Add(&Twin, &Twin.sName), HASH_ADDED);
    EXPECT_EQ(s_Table.First(), pFirstSlot);
    EXPECT_EQ(s_Table.FindByName(Second.sName), &Twin);
    EXPECT_TRUE(s_Table.DeleteByName(Second.sName));
    EXPECT_EQ(s_Table.FindByName(Second.sName), &Second);
}

TEST(StringHash, IsFullBehindTwoThirdsOfTheSlots)
{
    static Table_T<8> s_Table;
    std::vector<Item_s> dItems;
    for (int i = 0; i < 6; ++i)
    {
        dItems.push_back(Colliding(i));
    }
    for (int i = 0; i < 6; ++i)
    {
        Item_s & Item = dItems[static_cast<std::size_t>(i)];
        EXPECT_EQ(s_Table.Add(&Item, &Item.sName), i < 5 ? HASH_ADDED : HASH_FULL);
    }
    EXPECT_EQ(s_Table.FindByName(dItems[5].sName), nullptr);
    int nVisited = 0;
    for (auto * pSlot = s_Table.First(); pSlot; pSlot = s_Table.Next(pSlot))
    {
        s_Table.Delete(pSlot); // while iterating
        ++nVisited;
    }
    EXPECT_EQ(nVisited, 5);
    EXPECT_EQ(s_Table.First(), nullptr);
}

TEST(IndexHash, BehavesLikeAMapUntilNoSlotIsFound)
{
    static IndexHash_T<int, 64, 117> s_Table;
    std::map<std::uint32_t, int> Model;
    std::mt19937 Random(3);
    bool bWasFull = false;
    for (int iRound = 0; iRound < 20; ++iRound)
    {
        for (int iStep = 0; iStep < 120; ++iStep)
        {
            auto const iKey = static_cast<std::uint32_t>(Random() % 200 << Random() % 8);
            int const * const pValue = s_Table.Find(iKey);
            auto const Known = Model.find(iKey);
            ASSERT_EQ(pValue != nullptr, Known != Model.end());
            ASSERT_TRUE(!pValue || *pValue == Known->second);
            int const iResult = s_Table.Add(iStep, iKey);
            ASSERT_TRUE(pValue ? iResult == HASH_PRESENT : iResult == HASH_ADDED || iResult == HASH_FULL);
            bWasFull = bWasFull || iResult == HASH_FULL;
            if (iResult == HASH_ADDED)
            {
                Model[iKey] = iStep;
            }
            ASSERT_EQ(s_Table.GetCount(), static_cast<int>(Model.size()));
        }
        s_Table.Reset();
        Model.clear();
        ASSERT_EQ(s_Table.GetCount(), 0);
    }
    EXPECT_TRUE(bWasFull);
}
