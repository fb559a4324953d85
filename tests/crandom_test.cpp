#include "zqcore/crandom.h"

#include "tests/test_support.h"
#include "zqcore/capp.h"
#include "zqcore/ccrc.h"

#include <bit>
#include <climits>
#include <cmath>
#include <ctime>
#include <random>
#include <set>

namespace
{
    // Returns the names in the list, from its head, each with a blank after it. A wrong link back shows as "!".
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
    SKIP_IF(!RandomGetSeedList(), "an earlier test of this process has shut the list down");
    std::string const sPrevious = Names();
    EXPECT_NE(sPrevious.find("Common random "), std::string::npos);
    {
        RandomNumber_c First(1, "same"), Anonymous(2), Second(3, "same"), Third(4, "third");
        EXPECT_EQ(Names(), "third same same " + sPrevious);
        Third.SetSeed(40);
        EXPECT_EQ(RandomGetSeedList()->Get().pRandom->GetSeed(), 40u);
        Second.~RandomNumber_c();
        EXPECT_EQ(Names(), "third same " + sPrevious);
        new (&Second) RandomNumber_c(5, "again");
        EXPECT_EQ(Names(), "again third same " + sPrevious);
    }
    EXPECT_EQ(Names(), sPrevious);
}

TEST(Random, SeedsForHostsStartAsDocumented)
{
    EXPECT_EQ(std::tuple(g_nSeed0, g_nSeed1, g_nSeed2, g_nSeed3), std::tuple(7u, 9u, 13u, 17u));
}

TEST(Random, TheModuleAndTheApplicationEmptyTheList)
{
    RandomNumber_c const First(0, "first");
    ASSERT_TRUE(StartModule(ModuleRandom_c::Get()));
    EXPECT_NE(Names(), "");
    Module_c::ShutdownAllModules();
    EXPECT_EQ(Names(), "");
    RandomNumber_c const Second(0, "second");
    EXPECT_EQ(Names(), "second ");
    AppMiscShutdown();
    EXPECT_EQ(Names(), "");
}

TEST(Random, StepsAreThePublishedOnes)
{
    // Numbers that an independent program of the step and the hash computes.
    for (auto const & [nSeed, dNumbers, nSeedAfter] : Rows_t<unsigned, std::vector<unsigned>, unsigned>{
             { 0, { 0x34FCE79C, 0x311EBDD0, 0x08513D0B, 0x418E608F }, 0x3463E0AC },
             { 0xDEADBEEF, { 0x841D0D80, 0x58646A06, 0x689D6E28, 0xDE85D486 }, 0x1823806B } })
    {
        RandomNumber_c Random(nSeed);
        for (unsigned const nNumber : dNumbers)
        {
            EXPECT_EQ(Random.Next(), nNumber);
        }
        EXPECT_EQ(Random.GetSeed(), nSeedAfter);
    }
}

TEST(Random, ServesTheStandardsAlgorithms)
{
    static_assert(std::uniform_random_bit_generator<RandomNumber_c>);
    RandomNumber_c Random(5), Same(5);
    EXPECT_EQ(Random(), Same.Next());
    std::set<std::vector<int>> dOrders;
    for (int i = 0; i < 200; ++i)
    {
        std::vector<int> dCards = { 1, 2, 3 };
        std::shuffle(dCards.begin(), dCards.end(), Random);
        dOrders.insert(dCards);
    }
    EXPECT_EQ(dOrders.size(), 6u);
}

TEST(Random, NumbersOfNeighbouringSeedsAndPositionsAreUnrelated)
{
    constexpr int SEEDS = 4096, BINS = 16;   // a bin for each value of the four highest bits
    auto const fnDraw = [](unsigned nSeed, int iPosition)
    {
        RandomNumber_c Random(nSeed);
        std::uint32_t dwDrawn = Random.Next();
        for (; iPosition > 0; --iPosition)
        {
            dwDrawn = Random.Next();
        }
        return dwDrawn;
    };
    for (unsigned const nStride : { 0u, 1u, 2u, 10u, 256u, 65536u, 1u << 31 })
    {
        for (int iPosition = nStride == 0 ? 1 : 0; iPosition < 4; ++iPosition)   // no number with itself
        {
            // Numbers on a line would be correlated. On a line that wraps, their differences would be alike. The limits
            // are 4 deviations, and the chi-square of BINS - 1 degrees of freedom that one of 13,000 cases exceeds.
            double fProducts = 0, dBins[BINS] = {};
            for (unsigned nSeed = 0; nSeed < SEEDS; ++nSeed)
            {
                std::uint32_t const dwFirst = fnDraw(nSeed, 0), dwOther = fnDraw(nSeed + nStride, iPosition);
                fProducts += (dwFirst / 0x1p32 - 0.5) * (dwOther / 0x1p32 - 0.5) * 12;
                ++dBins[(dwOther - dwFirst) >> 28];
            }
            double fSpread = 0;
            for (double const fBin : dBins)
            {
                fSpread += (fBin - SEEDS / BINS) * (fBin - SEEDS / BINS) / (SEEDS / BINS);
            }
            EXPECT_LT(std::abs(fProducts), 4 * std::sqrt(SEEDS))
                << "correlated: stride " << nStride << ", position " << iPosition;
            EXPECT_LT(fSpread, 45) << "alike: stride " << nStride << ", position " << iPosition;
        }
    }
}

TEST(Random, RangesAreFullAndEven)
{
    RandomNumber_c Random(1);
    EXPECT_EACH(Random.NextBelow(0) == 0, Random.NextBelow(1) == 0);
    EXPECT_EQ(Random.NextInRange(-5, -5), -5);
    // Three quarters of 2^32: without a correction the multiples of 3 would come twice as often.
    int dThirds[3] = {};
    std::uint32_t dwBits = 0, dwNumbers = 0;
    float fLeast = 1.0f, fMost = 0.0f;
    for (int i = 0; i < 30000; ++i)
    {
        ++dThirds[Random.NextBelow(0xC0000000u) % 3];
        dwBits |= static_cast<std::uint32_t>(Random.NextInRange(INT_MIN, INT_MAX));
        dwNumbers |= 1u << (Random.NextInRange(-3, 2) + 3);
        float const f = Random.NextFloat();
        fLeast = std::min(fLeast, f);
        fMost = std::max(fMost, f);
    }
    EXPECT_THAT(dThirds, testing::Each(testing::AllOf(testing::Gt(9600), testing::Lt(10400))));
    EXPECT_EQ(std::pair(dwBits, dwNumbers), std::pair(0xFFFFFFFFu, 63u));
    EXPECT_THAT(fLeast, testing::AllOf(testing::Ge(0.0f), testing::Lt(0.01f)));
    EXPECT_THAT(fMost, testing::AllOf(testing::Gt(0.99f), testing::Lt(1.0f)));
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Random.NextInRange(3, 2), 3); }), "iFirst <= iLast");
    std::uint32_t const dwMixed = (0xFFFFFFFFu & MM_MANTISSA_MASK.dLanes[3]) | MM_EXPONENT_MASK.dLanes[0];
    EXPECT_EQ(std::bit_cast<float>(dwMixed), 2.0f - 0x1p-23f);
}

TEST(Random, SeedFromTimeIsTheCrcOfTheSecond)
{
    auto const fnExpected = [](std::int64_t nSeconds)
    { return GetCrc32Polynomial(reinterpret_cast<char const *>(&nSeconds), 8); };
    std::int64_t const tNow = std::time(nullptr);
    EXPECT_THAT(RandomNumber_c::SeedFromTime(), testing::AnyOf(fnExpected(tNow), fnExpected(tNow + 1)));
}
