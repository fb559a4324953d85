// cperlin.h: gradient noise in one, two and three dimensions (K. Perlin, "An Image Synthesizer", 1985).
//
// Tables hold 256 gradients and a permutation of their numbers, which assigns a gradient to each point of the lattice.
// In two and three dimensions a gradient has length 1, or 0 if all its components are drawn as 0. In one dimension it
// ranges from -1 to below 1. The library's own generator draws the tables from a seed, so a seed produces the same
// noise, bit for bit, on every machine. Noise is 0 at integer coordinates, repeats every 256 units, and ranges from
// -0.5 to 0.5. All arithmetic is single precision. 4096 is added to each coordinate first, so large coordinates lose
// their fraction.
//
// Ownership: the tables are static. Points are values of the caller.
// Threads: any number of threads may read noise, but not while the module is initialised or the seed is set.
// Cost: about 10 ns for a sample in three dimensions. Nothing allocates.
// Failure: noise is 0 before the module is initialised or a seed is set. A coordinate that is NaN, below -4096, or not
// below 2^31 - 4096 has no continuous noise and may fail an assertion.
//
//     PerlinNoiseSetSeed(7);
//     float const fHeight = PerlinNoise(Vector2_t{ 0.5f, 3.25f });   // from -0.5 to 0.5
//     float const fFog = PerlinNoise(Vec3fpu_t{ 0.5f, 3.25f, 1.0f });
#pragma once

#include "zqcore/cmodule.h"

/// Point in the plane.
struct Vector2_t
{
    float x, y;   // coordinates
};

/// Point in space.
struct Vec3fpu_t
{
    float x, y, z;   // coordinates
};

/// Return the noise at a point.
ZQ_API float PerlinNoise(float x);
ZQ_API float PerlinNoise(Vector2_t const & Point);
ZQ_API float PerlinNoise(Vec3fpu_t const & Point);

/// Sets the seed, which is 1 at start, and rebuilds the tables. Building advances the seed: a later initialisation of
/// the module builds other tables than this call.
ZQ_API void PerlinNoiseSetSeed(unsigned int nSeed);

/// Module that builds the tables from the present seed when it is initialised. It depends on no other module.
class ZQ_API ModulePerlin_c : public Module_c
{
public:
    constexpr ModulePerlin_c()
        : Module_c("ModulePerlin_c")
    {}
    ~ModulePerlin_c() override;

    /// Returns the only instance.
    static ModulePerlin_c * Get();

protected:
    bool Initialize() override;
};
