// crandom.h: seeded generators of pseudo-random numbers, and the list of the generators that have a name.
//
// The state of a generator is its 32-bit seed. A step is seed * 747796405 + 2891336453 modulo 2^32, which visits all
// 2^32 seeds before it repeats (M. O'Neill, "PCG: A Family of Simple Fast Space-Efficient Statistically Good Algorithms
// for Random Number Generation", 2014). The number of a step is the hash lowbias32 of the new seed (C. Wellons,
// "Prospecting for Hash Functions", 2018). A period contains each 32-bit number once. The numbers of neighbouring seeds
// are unrelated, so a host may seed one generator for each object by the object's number. A seed produces the same
// numbers on every machine. A sequence continues after SetSeed with a value that GetSeed returned. The numbers are no
// source of secrets.
//
// A generator is a std::uniform_random_bit_generator, so that std::shuffle and the distributions of <random> accept it.
// Their results depend on the standard library. Those of NextBelow, NextInRange and NextFloat do not.
//
// A named generator is in a list of the process, the newest first, so that a host can read and set all seeds.
//
// Ownership: the caller owns generators and names. The library owns the entries of the list.
// Threads: a generator belongs to one thread. The list has no lock. Requires that named generators are made and
// destroyed, and that the list is read, on the main thread.
// Cost: about a nanosecond for a number. A named generator allocates its entry.
// Failure: NextInRange asserts its range. An exhausted heap ends in Abort (cmemory.h). Before MemoryInit and after
// MemoryDone a named generator without memory for its entry is not in the list.
//
//     RandomNumber_c Random(RandomNumber_c::SeedFromTime());
//     int const iDice = Random.NextInRange(1, 6);
//     float const fShare = Random.NextFloat();   // from 0 to below 1
//     unsigned int const nSaved = Random.GetSeed();
//     std::array<int, 3> dCards = { 1, 2, 3 };
//     std::shuffle(dCards.begin(), dCards.end(), Random);
#pragma once

#include "zqcore/clink.h"
#include "zqcore/cmodule.h"

#include <array>

/// A generator of pseudo-random numbers, with or without a name.
class ZQ_API RandomNumber_c
{
public:
    using result_type = std::uint32_t;   // as in standard generators

    /// Makes a generator that starts with this seed, and adds it to the list unless the name is null. Does not copy the
    /// name. Requires that the name outlives the generator.
    explicit RandomNumber_c(unsigned int nStartSeed = 0, char const * szItsName = nullptr);

    /// Removes the generator's entry from the list, if it has one.
    ~RandomNumber_c();
    RandomNumber_c(RandomNumber_c const &) = delete;
    RandomNumber_c & operator=(RandomNumber_c const &) = delete;

    /// Set and return the seed, which is the whole state.
    void SetSeed(unsigned int nNewSeed) { nSeed = nNewSeed; }
    unsigned int GetSeed() const { return nSeed; }

    /// Returns a seed for SetSeed: the CRC-32 of the time in seconds since 1970 as 8 bytes.
    static unsigned int SeedFromTime();

    /// Makes a step and returns its number: 0 to 2^32 - 1, each equally likely.
    std::uint32_t Next()
    {
        nSeed = nSeed * 747796405u + 2891336453u;
        std::uint32_t dwHash = nSeed;
        dwHash = (dwHash ^ dwHash >> 16) * 0x7FEB352Du;
        dwHash = (dwHash ^ dwHash >> 15) * 0x846CA68Bu;
        return dwHash ^ dwHash >> 16;
    }

    /// Do what Next does, and return the lowest and the highest number. The standard requires these names.
    std::uint32_t operator()() { return Next(); }
    static constexpr std::uint32_t min() { return 0; }
    static constexpr std::uint32_t max() { return 0xFFFFFFFF; }

    /// Makes one step, or several, and returns a number from 0 to nCount - 1, each equally likely. Returns 0 if nCount
    /// is 0.
    std::uint32_t NextBelow(std::uint32_t nCount);

    /// Makes one step, or several, and returns a number from iFirst to iLast, each equally likely. Asserts that
    /// iFirst <= iLast, and returns iFirst without a step otherwise.
    int NextInRange(int iFirst, int iLast);

    /// Makes a step and returns a multiple of 2^-24, from 0 to below 1.
    float NextFloat() { return static_cast<float>(Next() >> 8) * (1.0f / 16777216.0f); }

    unsigned int nSeed;   // the state

    /// Name in the list, or null if the generator has none. Requires that no host sets a name to null: the generator's
    /// entry would then stay in the list after its destruction.
    char const * szName;
};

/// An entry of the list.
struct RandomSeedEntry_s
{
    RandomNumber_c * pRandom;   // the generator
    char const * szName;        // its name, never null
};

/// Mask for hosts that make four floats at a time: a random word AND MM_MANTISSA_MASK, OR MM_EXPONENT_MASK, is a float
/// from 1 to below 2. The mask is aligned for a vector register.
struct alignas(16) RandomMask_t
{
    std::array<std::uint32_t, 4> dLanes;   // all equal
};

/// Returns the head of the list, or null if it is empty.
ZQ_API Link_T<RandomSeedEntry_s> const * RandomGetSeedList();

/// A generator for common use, named "Common random". It starts with seed 0.
extern ZQ_API RandomNumber_c g_Random;

/// Seeds for hosts: 7, 9, 13 and 17 at start. The library does not use them.
extern ZQ_API unsigned int g_nSeed0, g_nSeed1, g_nSeed2, g_nSeed3;

/// The bits of 1.0f, and those of the mantissa.
extern ZQ_API RandomMask_t const MM_EXPONENT_MASK;
extern ZQ_API RandomMask_t const MM_MANTISSA_MASK;

/// Module that empties the list when it shuts down. It depends on no other module. The destructor of a generator that
/// outlives its entry does nothing.
class ZQ_API ModuleRandom_c : public Module_c
{
public:
    constexpr ModuleRandom_c()
        : Module_c("ModuleRandom_c")
    {}
    ~ModuleRandom_c() override;

    /// Returns the only instance.
    static ModuleRandom_c * Get();

protected:
    void Shutdown() override;
};
