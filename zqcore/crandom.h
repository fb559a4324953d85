// crandom.h: seeded generators of pseudo-random numbers, and the list of those that have a name.
//
// A generator is its 32-bit seed. A step is seed * 747796405 + 2891336453 modulo 2^32, which runs through all 2^32 seeds
// before one comes again (M. O'Neill, "PCG: A Family of Simple Fast Space-Efficient Statistically Good Algorithms for
// Random Number Generation", 2014). Its number is the hash lowbias32 of the new seed (C. Wellons, "Prospecting for Hash
// Functions", 2018), so that each 32-bit number comes exactly once in a period, and the numbers of neighbouring seeds
// have nothing in common: a host may seed one generator an object by the object's number. A seed gives the same numbers
// on every machine; GetSeed in the midst of a sequence and SetSeed later go on with it. No source of secrets.
//
// A named generator is in a list of the process, from the newest to the oldest, so that a host can read and set all
// seeds. A generator belongs to one thread; named ones are made and destroyed on the main thread. A number costs about a
// nanosecond.
#pragma once

#include "zqcore/clink.h"
#include "zqcore/cmodule.h"

#include <array>

class ZQ_API RandomNumber_c
{
public:
    /// A null name makes an anonymous generator, which is in no list. The name is not copied and must outlive this.
    explicit RandomNumber_c(unsigned int nStartSeed = 0, char const * szItsName = nullptr);

    /// Takes its entry out of the list.
    ~RandomNumber_c();
    RandomNumber_c(RandomNumber_c const &) = delete;
    RandomNumber_c & operator=(RandomNumber_c const &) = delete;

    void SetSeed(unsigned int nNewSeed) { nSeed = nNewSeed; }
    unsigned int GetSeed() const { return nSeed; }

    /// A seed for SetSeed: the CRC-32 of the 8 bytes of the time in seconds since 1970. It sets nothing.
    static unsigned int SeedFromTime();

    /// The next number: 0 to 2^32 - 1, each equally likely.
    std::uint32_t Next()
    {
        nSeed = nSeed * 747796405u + 2891336453u;
        std::uint32_t dwHash = nSeed;
        dwHash = (dwHash ^ dwHash >> 16) * 0x7FEB352Du;
        dwHash = (dwHash ^ dwHash >> 15) * 0x846CA68Bu;
        return dwHash ^ dwHash >> 16;
    }

    /// A number from 0 to nCount - 1, each equally likely; 0 if nCount is 0. May take more than one step.
    std::uint32_t NextBelow(std::uint32_t nCount);

    /// A number from iFirst to iLast, each equally likely. Requires iFirst <= iLast; otherwise it is iFirst.
    int NextInRange(int iFirst, int iLast);

    /// A multiple of 2^-24, from 0 to below 1.
    float NextFloat() { return static_cast<float>(Next() >> 8) * (1.0f / 16777216.0f); }

    unsigned int nSeed;    // the state
    char const * szName;   // null of an anonymous generator
};

/// An entry of the list.
struct RandomSeedEntry_s
{
    RandomNumber_c * pRandom;
    char const * szName;
};

/// The list's head; null without named generators.
ZQ_API Link_T<RandomSeedEntry_s> const * RandomGetSeedList();

/// The common generator, "Common random". It starts with seed 0.
extern ZQ_API RandomNumber_c g_Random;

/// Seeds that hosts share; the library does not use them.
extern ZQ_API unsigned int g_nSeed0, g_nSeed1, g_nSeed2, g_nSeed3;

/// For hosts that make floats four at a time: a random word with its bits outside the second mask cleared, or-ed with
/// the first, is a float from 1 to below 2. Four equal lanes, aligned for a vector register.
struct alignas(16) RandomMask_t
{
    std::array<std::uint32_t, 4> dLanes;
};
extern ZQ_API RandomMask_t const MM_EXPONENT_MASK;
extern ZQ_API RandomMask_t const MM_MANTISSA_MASK;

/// Empties the list when it shuts down; a generator that is destroyed later does nothing more.
class ZQ_API ModuleRandom_c : public Module_c
{
public:
    constexpr ModuleRandom_c()
        : Module_c("ModuleRandom_c")
    {}
    ~ModuleRandom_c() override;

    /// The instance.
    static ModuleRandom_c * Get();

protected:
    void Shutdown() override;
};
