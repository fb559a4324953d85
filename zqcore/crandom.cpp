#include "zqcore/crandom.h"

#include "zqcore/ccrc.h"
#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"
#include "zqcore/crandom_internal.h"

#include "platform/clock.h"

namespace
{
    constinit ModuleRandom_c g_Module;
    constinit Link_T<RandomSeedEntry_s> * g_pSeedList = nullptr;   // newest first
}

// The constructor adds the generator to the list, whose head needs no constructor.
RandomNumber_c g_Random(0, "Common random");

constinit unsigned int g_nSeed0 = 7;
constinit unsigned int g_nSeed1 = 9;
constinit unsigned int g_nSeed2 = 13;
constinit unsigned int g_nSeed3 = 17;
constinit RandomMask_t const MM_EXPONENT_MASK = { { 0x3F800000, 0x3F800000, 0x3F800000, 0x3F800000 } };
constinit RandomMask_t const MM_MANTISSA_MASK = { { 0x007FFFFF, 0x007FFFFF, 0x007FFFFF, 0x007FFFFF } };

RandomNumber_c::RandomNumber_c(unsigned int nStartSeed, char const * szItsName)
    : nSeed(nStartSeed)
    , szName(szItsName)
{
    if (szName)
    {
        if (auto * const pLink = ZQ_NEW Link_T<RandomSeedEntry_s>({ this, szName }))
        {
            g_pSeedList = pLink->Link(g_pSeedList);
        }
    }
}

RandomNumber_c::~RandomNumber_c()
{
    auto * pLink = szName ? g_pSeedList : nullptr;   // an unnamed one may belong to any thread
    while (pLink && pLink->Get().pRandom != this)
    {
        pLink = pLink->pNext;
    }
    if (pLink)
    {
        g_pSeedList = pLink->Unlink(g_pSeedList);
        delete pLink;
    }
}

unsigned int RandomNumber_c::SeedFromTime()
{
    return GetCrc32Polynomial8(static_cast<std::uint64_t>(plat::SecondsSince1970()));
}

// The low half of the product identifies the numbers that would be returned once too often (D. Lemire, "Fast Random
// Integer Generation in an Interval", 2019).
std::uint32_t RandomNumber_c::NextBelow(std::uint32_t nCount)
{
    std::uint64_t nProduct = std::uint64_t{ Next() } * nCount;
    if (static_cast<std::uint32_t>(nProduct) < nCount)
    {
        std::uint32_t const nSurplus = (0u - nCount) % nCount;
        while (static_cast<std::uint32_t>(nProduct) < nSurplus)
        {
            nProduct = std::uint64_t{ Next() } * nCount;
        }
    }
    return static_cast<std::uint32_t>(nProduct >> 32);
}

int RandomNumber_c::NextInRange(int iFirst, int iLast)
{
    ZQ_ASSERT(iFirst <= iLast);
    if (iFirst > iLast)
    {
        return iFirst;
    }
    std::uint32_t const nFirst = static_cast<std::uint32_t>(iFirst);
    std::uint32_t const nCount = static_cast<std::uint32_t>(iLast) - nFirst + 1;
    return static_cast<int>(nFirst + (nCount != 0 ? NextBelow(nCount) : Next()));
}

Link_T<RandomSeedEntry_s> const * RandomGetSeedList()
{
    return g_pSeedList;
}

void RandomFreeSeedList()
{
    LinkFreeAll(g_pSeedList);
    g_pSeedList = nullptr;
}

ModuleRandom_c::~ModuleRandom_c() = default;

ModuleRandom_c * ModuleRandom_c::Get()
{
    return &g_Module;
}

void ModuleRandom_c::Shutdown()
{
    Module_c::Shutdown();
    RandomFreeSeedList();
}
