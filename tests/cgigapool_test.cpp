#include "zqcore/cgigapool.h"

#include "zqcore/ccallback.h"
#include "zqcore/cmemory.h"

#include "tests/test_support.h"

#include <bit>
#include <deque>
#include <iterator>
#include <map>
#include <random>
#include <set>

namespace
{
    constexpr int GROUP = GigaPoolStatic_c::GROUP_ELEMENTS;
    constexpr std::uint32_t FULL = 0xFFFFFFFF;   // a group with all elements in use
    constexpr char ARRAY_CONDITION[] = "!( ( (pGroup->m_iArray & iBit) ? true : false ) ^ bArray )";

    // A plain model of one slab: which element the next Alloc returns.
    struct Model_s
    {
        std::deque<int> dFree = { 0, 1, 2, 3 };   // groups with room
        std::uint32_t dBits[4] = {};

        // Allocates an element and returns its index, or -1 if all are in use.
        int Alloc()
        {
            if (dFree.empty())
            {
                return -1;
            }
            int const iGroup = dFree.front();
            int const iBit = std::countr_one(dBits[iGroup]);
            if ((dBits[iGroup] |= 1u << iBit) == FULL)
            {
                dFree.pop_front();
            }
            return iGroup * GROUP + iBit;
        }

        void Free(int iElement)
        {
            if (dBits[iElement / GROUP] == FULL)
            {
                dFree.push_front(iElement / GROUP);
            }
            dBits[iElement / GROUP] &= ~(1u << iElement % GROUP);
        }
    };

    // Returns the address of an element of a pool whose first one is pFirst.
    char * At(void * pFirst, int iElement, int nSize)
    {
        return static_cast<char *>(pFirst) + static_cast<std::ptrdiff_t>(iElement) * nSize;
    }

    // Allocates elements and returns their addresses in order.
    std::vector<void *> AllocateElements(GigaPoolResizeable_c & Pool, int nElements)
    {
        std::vector<void *> dTaken(static_cast<std::size_t>(nElements));
        std::generate(dTaken.begin(), dTaken.end(), [&] { return Pool.Alloc(false); });
        return dTaken;
    }

    // Expects that a receiver of a complaint about the pool may allocate from it.
    template <typename POOL>
    void ExpectThatAReceiverMayUse(POOL Pool)
    {
        static POOL * s_pPool;
        static std::set<void *> s_dOut;
        s_pPool = &Pool;
        void * const p = Pool.Alloc(false);
        g_ExecutionCallbacker.Add([](bool) { s_dOut.insert(s_pPool->Alloc(false)); }, false);
        EXPECT_EQ(FailedConditions([&] { EXPECT_TRUE(Pool.Free(p, true)); }), ARRAY_CONDITION);
        g_ExecutionCallbacker.Reset();
        EXPECT_EQ(Pool.WaterMark(), 2) << "one when the program stops, one when it continues";
        EXPECT_EQ(Pool.Alloc(false), p);
        s_dOut.insert(p);
        for (int i = 0; i < 40; ++i)
        {
            EXPECT_TRUE(s_dOut.insert(Pool.Alloc(false)).second) << "an element that is in use already";
        }
    }
}

TEST(GigaPoolStatic, ReturnsTheElementsThatAPlainModelReturns)
{
    // The sizes are those at which an element is found by product and by division, and those at their limits.
    for (int const nSize : { 1, 3, 8, 24, 64, 1000, 1447, 1448, 1449, 5000 })
    {
        SCOPED_TRACE(nSize);
        GigaPoolStatic_c Pool(3 * GROUP + 1, nSize);   // rounded up to the four groups of the model
        void * const pFirst = Pool.Alloc(false);
        Pool.Free(pFirst, false);
        Model_s Model;
        std::map<int, bool> dOut;   // element, and whether it is an array
        std::mt19937 Random(static_cast<unsigned>(nSize));
        for (int iStep = 0, nPeak = 1; iStep < 20000; ++iStep)
        {
            bool const bGrow = iStep / 1000 % 2 == 0;
            if (Random() % 4 != 0 ? bGrow : !bGrow)
            {
                bool const bArray = Random() % 3 == 0;
                void * const p = Pool.Alloc(bArray);
                int const iElement = Model.Alloc();
                ASSERT_EQ(p, iElement < 0 ? nullptr : At(pFirst, iElement, nSize)) << "step " << iStep;
                if (iElement >= 0)
                {
                    ASSERT_EQ(Pool.IsArray(p), bArray) << "step " << iStep;
                    dOut[iElement] = bArray;
                }
            }
            else if (!dOut.empty())
            {
                auto const it = std::next(dOut.begin(), static_cast<int>(Random() % dOut.size()));
                int const iInside = static_cast<int>(Random() % static_cast<unsigned>(nSize));
                ASSERT_TRUE(Pool.Free(At(pFirst, it->first, nSize) + iInside, it->second)) << "step " << iStep;
                Model.Free(it->first);
                dOut.erase(it);
            }
            nPeak = std::max(nPeak, static_cast<int>(dOut.size()));
            ASSERT_EQ(Pool.WaterMark(), static_cast<int>(dOut.size())) << "step " << iStep;
            ASSERT_EQ(Pool.HighWaterMark(), nPeak) << "step " << iStep;
        }
    }
}

TEST(GigaPoolStatic, FindsTheElementAtEveryEdgeOfTheLargestPool)
{
    // The larger size allocates 3 GB, hardly any of it touched.
    int const nSize = sizeof(void *) == 8 && !plat::ADDRESS_CHECKER ? 1448 : 24;
    GigaPoolStatic_c Pool(GigaPoolStatic_c::MAX_ELEMENTS, nSize);
    void * const pFirst = Pool.Alloc(false);
    ASSERT_TRUE(pFirst);
    for (int i = 1; i < GigaPoolStatic_c::MAX_ELEMENTS; ++i)
    {
        ASSERT_EQ(Pool.Alloc(i % 2 != 0), At(pFirst, i, nSize)) << i;
    }
    EXPECT_EQ(Pool.Alloc(false), nullptr);
    for (int i = 0; i < GigaPoolStatic_c::MAX_ELEMENTS; ++i)
    {
        bool const bLastByte = i % 3 == 0;   // a neighbour's element would fail its array condition
        ASSERT_TRUE(Pool.Free(At(pFirst, i, nSize) + (bLastByte ? nSize - 1 : 0), i % 2 != 0)) << i;
    }
    EXPECT_EQ(Pool.WaterMark(), 0);
}

TEST(GigaPoolStatic, MisuseFailsItsConditionAndHarmsNothing)
{
    GigaPoolStatic_c Pool(64, 16);
    void * const pSingle = Pool.Alloc(false);
    void * const pArray = Pool.Alloc(true);
    void * const pOut = Pool.Alloc(false);
    int iForeign = 0;
    EXPECT_FALSE(Pool.Free(&iForeign, false));
    EXPECT_FALSE(Pool.Free(nullptr, false));
    EXPECT_EQ(Pool.WaterMark(), 3);
    EXPECT_EQ(FailedConditions([&] { Pool.Free(pSingle, true); }), ARRAY_CONDITION);
    EXPECT_EQ(FailedConditions([&] { Pool.Free(pArray, false); }), ARRAY_CONDITION);
    EXPECT_EQ(FailedConditions([&] { Pool.Free(pArray, false); }), "pGroup->m_iBits & iBit") << "freed already";
    EXPECT_EQ(Pool.WaterMark(), 1);
    EXPECT_EQ(FailedConditions([&] { Pool.IsArray(&iForeign); }), "IsValid(pPtr)");
    EXPECT_EQ(FailedConditions([&] { Pool.Init(32, 8); }), "m_pData == nullptr & m_pGroups == nullptr");
    EXPECT_EQ(Pool.ElementSize(), 16);
    Pool.ResetHighWaterMark();
    EXPECT_EQ(Pool.HighWaterMark(), 0);
    EXPECT_EQ(Pool.Alloc(false), pSingle);
    EXPECT_EQ(Pool.HighWaterMark(), 2);
    EXPECT_TRUE(Pool.Free(pOut, false));

    Pool.Reset();
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Pool.Alloc(false), nullptr); }),
        "m_pData, Trying to allocate 16 bytes, watermark 1 & m_pGroups");
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Pool.Free(pOut, false)); }), "m_pData & m_pGroups");
    Pool.Init(0, 8);
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Pool.Alloc(false), nullptr); }),
        "m_pData, Trying to allocate 8 bytes, watermark 0 & m_pGroups");
    EXPECT_EQ(
        FailedConditions([&] { Pool.Init(GigaPoolStatic_c::MAX_ELEMENTS + 1, 1); }), "m_iNumGroups<GIGA_GROUP_NULL");
    EXPECT_TRUE(Pool.Alloc(false));

    std::byte dStorage[1000];
    GigaPoolStatic_c Wide(dStorage, 1 << 27);   // the bytes of a group exceed 32 bits
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Wide.Alloc(false), nullptr); }),
        "m_pData, Trying to allocate 134217728 bytes, watermark 0 & m_pGroups");

    GigaPoolStatic_c Full(GROUP, 8);
    while (Full.Alloc(false))
    {}
    Full.Reset();
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Full.Alloc(false)); }), "") << "still full";

    GigaPoolStatic_c Overwritten(64, 8);
    GigaGroup_c * pGroups;
    std::memcpy(&pGroups, static_cast<void *>(&Overwritten), sizeof pGroups);   // its first member
    pGroups[1].Alloc(true);
    std::memset(static_cast<void *>(&pGroups[1]), 0, sizeof(std::uint32_t));   // an array that is not allocated
    EXPECT_EQ(FailedConditions(
                  [&]
                  {
                      for (int i = 0; i < GROUP; ++i)
                      {
                          Overwritten.Alloc(false);
                      }
                  }),
        "!(pGroup->m_iArray & iBit)");
}

TEST(GigaPool, UseOfAFreedElementIsCaughtByTheAddressChecker)
{
    SKIP_IF(!plat::ADDRESS_CHECKER, "this build has no address checker");
    GigaPoolResizeable_c Pool(1, 24);
    char * const p = static_cast<char *>(Pool.Alloc(false));
    p[23] = 1;
    Pool.Free(p, false);
    EXPECT_DEATH(static_cast<char volatile *>(p)[8] = 1, "use-after-poison");
    EXPECT_EQ(Pool.Alloc(false), p);
}

TEST(GigaPoolResizeable, KeepsOneEmptyChunkAsASpare)
{
    std::mt19937 Random(8);
    constexpr int CHUNK_BYTES = 0x40000;     // of a pool for few elements
    for (int const nSize : { 8192, 1024 })   // one group in each chunk, and eight
    {
        SCOPED_TRACE(nSize);
        int const nPerChunk = CHUNK_BYTES / nSize;
        GigaPoolResizeable_c Pool(1, nSize);
        std::vector<void *> dTaken = AllocateElements(Pool, 3 * nPerChunk);
        std::ptrdiff_t const nFull = MemoryTotalAllocations();
        void * pSpare = nullptr;
        auto const FreeChunk = [&]
        {
            std::shuffle(dTaken.end() - nPerChunk, dTaken.end(), Random);
            pSpare = dTaken[dTaken.size() - static_cast<std::size_t>(nPerChunk)];
            for (int i = 0; i < nPerChunk; ++i)
            {
                EXPECT_TRUE(Pool.IsValid(pSpare)) << nPerChunk - i << " elements in use";
                EXPECT_TRUE(Pool.Free(dTaken.back(), false));
                dTaken.pop_back();
            }
            EXPECT_FALSE(Pool.IsValid(pSpare));
        };
        FreeChunk();
        EXPECT_EQ(MemoryTotalAllocations(), nFull) << "the first empty chunk stays";
        EXPECT_FALSE(Pool.Free(pSpare, false));
        EXPECT_EQ(Pool.WaterMark(), 2 * nPerChunk) << "a pointer of no element leaves the water mark";
        void * const pAgain = Pool.Alloc(false);
        EXPECT_EQ(MemoryTotalAllocations(), nFull) << "the empty chunk is used again";
        EXPECT_TRUE(Pool.IsValid(pAgain));
        EXPECT_TRUE(Pool.Free(pAgain, false));
        FreeChunk();
        EXPECT_LT(MemoryTotalAllocations(), nFull) << "a second empty chunk is freed";
        Pool.Reset();
        EXPECT_EQ(Pool.WaterMark(), 0);
        EXPECT_EQ(Pool.HighWaterMark(), 3 * nPerChunk);
        EXPECT_TRUE(Pool.Alloc(false)) << "without a new Init";
    }
}

TEST(GigaPoolResizeable, MisuseFailsItsConditionAndHarmsNothing)
{
    GigaPoolResizeable_c Pool(1, 1024);
    std::vector<void *> dTaken = AllocateElements(Pool, 40);   // all elements of a group, and 8 of the next one
    for (std::size_t const i : { 35u, 3u })
    {
        SCOPED_TRACE(i);
        EXPECT_EQ(FailedConditions([&] { EXPECT_TRUE(Pool.Free(dTaken[i], true)); }), ARRAY_CONDITION);
        EXPECT_EQ(FailedConditions([&] { EXPECT_TRUE(Pool.Free(dTaken[i], false)); }), "pGroup->m_iBits & iBit");
        EXPECT_EQ(Pool.Alloc(true), dTaken[i]) << "the one that was freed last";
        EXPECT_EQ(FailedConditions([&] { Pool.Free(dTaken[i], false); }), ARRAY_CONDITION);
        EXPECT_EQ(Pool.Alloc(false), dTaken[i]);
    }
    EXPECT_TRUE(Pool.Free(At(dTaken[39], 1023, 1), false)) << "inside the element";
    EXPECT_EQ(Pool.Alloc(false), dTaken[39]);
    EXPECT_EQ(Pool.WaterMark(), 40);

    std::vector<void *> const dMore = AllocateElements(Pool, 300);   // past the end of the chunk
    EXPECT_EQ(FailedConditions([&] { Pool.IsArray(dTaken[0]); }), "0 && \"why would you care?\"");
    EXPECT_EQ(FailedConditions([&] { Pool.Init(1, 8); }), "!m_pFullList & !m_pHalfList");
    EXPECT_EQ(Pool.ElementSize(), 1024);
    EXPECT_TRUE(Pool.Free(dTaken[0], false));
    EXPECT_EQ(Pool.Alloc(false), dTaken[0]) << "its chunk was full";

    GigaPoolResizeable_c Unready(0, 16);
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Unready.Alloc(false), nullptr); }),
        "m_pData, Trying to allocate 0 bytes, watermark 0 & m_pGroups");
    EXPECT_EACH(Unready.WaterMark() == 0, !Unready.IsValid(&Unready));
}

TEST(GigaPool, AReceiverOfAComplaintMayUseThePool)
{
    ExpectThatAReceiverMayUse(GigaPoolStatic_c(64, 16));
    ExpectThatAReceiverMayUse(GigaPoolResizeable_c(1, 1024));
}
