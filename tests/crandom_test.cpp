#include "zqcore/crandom.h"

#include "tests/test_support.h"
#include "zqcore/capp.h"
#include "zqcore/ccrc.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

namespace
{
    // The names in the list, from its head, joined by blanks; a wrong link back shows as "!".
    std::string Names()
    {
        std::string sNames;
        Link_T<RandomSeedEntry_s> const * pPrev = nullptr;
        for (auto const * pLink = RandomGetSeedList(); pLink; pPrev = pLink, pLink = pLink->pNext)
        {
            sNames += std::string(pLink->pPrev == pPrev ? "" : "!") + pLink->Get().szName + " ";
        }
        return sNames;
    }
}

TEST(Random, ListsNamedGeneratorsFromTheNewestOn)
{
    if (!RandomGetSeedList())
    {
        GTEST_SKIP() << "an earlier test of this process has shut the list down";
    }
    std::string const sFormer = Names();
    EXPECT_NE(sFormer.find("Common random "), std::string::npos);
    {
        RandomNumber_c First(1, "same"), Anonymous(2), Second(3, "same"), Third(4, "third");
        EXPECT_EQ(Names(), "third same same " + sFormer);
        Third.SetSeed(40);
        EXPECT_EQ(RandomGetSeedList()->Get().pRandom->GetSeed(), 40u);
        First.~RandomNumber_c();
        EXPECT_EQ(Names(), "third same " + sFormer);
        new (&First) RandomNumber_c(5, "again");
        EXPECT_EQ(Names(), "again third same " + sFormer);
    }
    EXPECT_EQ(Names(), sFormer);
    EXPECT_EQ(g_nSeed0 + g_nSeed1 + g_nSeed2 + g_nSeed3, 46u);
}

TEST(Random, TheModuleAndTheApplicationEmptyTheList)
{
    {
        RandomNumber_c const Late(0, "late");
        Module_c::Register(ModuleRandom_c::Get());
        ASSERT_TRUE(Module_c::InitializeAllModules());
        EXPECT_NE(RandomGetSeedList(), nullptr);
        Module_c::ShutdownAllModules();
        EXPECT_EQ(RandomGetSeedList(), nullptr);
    }
    RandomNumber_c const Later(0, "later");
    EXPECT_EQ(Names(), "later ");
    AppMiscShutdown();
    EXPECT_EQ(RandomGetSeedList(), nullptr);
}

TEST(Random, AStepIsThePublishedOneAndEverySeedAndNumberComesOnce)
{
    // The step multiplies by a number of the form 4k + 1 and adds an odd one: the period is 2^32 (Hull and Dobell, 1962).
    // The permutation is undone here, so no two seeds give one number.
    RandomNumber_c Random(0xDEADBEEF);
    for (int i = 0; i < 20000; ++i)
    {
        std::uint32_t const dwSeed = Random.GetSeed();
        std::uint32_t dw = Random.Next();
        dw ^= dw >> 22;
        dw *= 2897767785u;   // the inverse of 277803737
        std::uint32_t const nShift = (dw >> 28) + 4;
        std::uint32_t dwUndone = dw;
        for (int iPass = 0; iPass < 8; ++iPass)
        {
            dwUndone = dw ^ dwUndone >> nShift;
        }
        ASSERT_EQ(dwUndone, dwSeed);
        ASSERT_EQ(Random.GetSeed(), dwSeed * 747796405u + 2891336453u);
    }
    static_assert(747796405u % 4 == 1 && 2891336453u % 2 == 1);
    std::uint32_t const nSaved = Random.GetSeed();
    std::uint32_t const dwNext = Random.Next();
    Random.SetSeed(nSaved);
    EXPECT_EQ(Random.Next(), dwNext) << "a seed taken in the midst goes on";
}

TEST(Random, RangesAreFullAndEven)
{
    RandomNumber_c Random(1);
    EXPECT_EQ(Random.NextBelow(0), 0u);
    EXPECT_EQ(Random.NextBelow(1), 0u);
    EXPECT_EQ(Random.NextInRange(-5, -5), -5);
    std::uint32_t nAll = 0;
    for (int i = 0; i < 64; ++i)
    {
        nAll |= static_cast<std::uint32_t>(Random.NextInRange(INT_MIN, INT_MAX));
    }
    EXPECT_EQ(nAll, 0xFFFFFFFFu);
    // Three quarters of 2^32: without a correction the multiples of 3 would come twice as often.
    int dThirds[3] = {};
    for (int i = 0; i < 30000; ++i)
    {
        ++dThirds[Random.NextBelow(0xC0000000u) % 3];
    }
    for (int const nThird : dThirds)
    {
        EXPECT_NEAR(nThird, 10000, 400);
    }
    int nRange = 0;
    float fLeast = 1.0f, fMost = 0.0f;
    for (int i = 0; i < 10000; ++i)
    {
        nRange |= 1 << (Random.NextInRange(-3, 2) + 3);
        float const f = Random.NextFloat();
        fLeast = std::min(fLeast, f);
        fMost = std::max(fMost, f);
    }
    EXPECT_EQ(nRange, 63);
    EXPECT_TRUE(fLeast >= 0.0f && fLeast < 0.01f && fMost > 0.99f && fMost < 1.0f);
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Random.NextInRange(3, 2), 3); }), "iFirst <= iLast");
    std::uint32_t const dwMixed = (0xFFFFFFFFu & MM_MANTISSA_MASK.dLanes[3]) | MM_EXPONENT_MASK.dLanes[0];
    EXPECT_EQ(std::bit_cast<float>(dwMixed), 2.0f - 0x1p-23f);
}

TEST(Random, SeedFromTimeIsTheCrcOfTheSecond)
{
    std::int64_t tNow;
    unsigned nSeed;
    do
    {
        tNow = std::time(nullptr);
        nSeed = RandomNumber_c::SeedFromTime();
    }
    while (std::time(nullptr) != tNow);
    EXPECT_EQ(nSeed, GetCrc32Polynomial(reinterpret_cast<char const *>(&tNow), 8));
}
