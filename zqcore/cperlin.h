// cperlin.h: gradient noise in one, two and three dimensions (K. Perlin, "An Image Synthesizer", 1985).
//
// A lattice with a permutation of 256 and gradients of length 1, drawn from a seed by the library's own generator: a
// seed gives the same noise, bit for bit, on every machine. Noise is 0 at integer coordinates, repeats every 256 units
// and lies from -0.5 to 0.5. All arithmetic is single precision. 4096 is added to each coordinate first: those at or
// below -4096 give no continuous noise, and the far ones lose their fraction.
//
// The tables are there once the module is initialised. Any number of threads may then read noise, but none while the
// seed is set. A sample in three dimensions costs about 10 ns and takes no memory.
#pragma once

#include "zqcore/cmodule.h"

/// Points, plain values of the caller.
struct Vector2_t
{
    float x, y;
};

struct Vec3fpu_t
{
    float x, y, z;
};

/// The noise at a point.
ZQ_API float PerlinNoise(float x);
ZQ_API float PerlinNoise(Vector2_t const & Point);
ZQ_API float PerlinNoise(Vec3fpu_t const & Point);

/// Sets the seed, which is 1 at start, and rebuilds the tables. Building moves the seed on: a later initialisation of
/// the module draws other tables than this call did.
ZQ_API void PerlinNoiseSetSeed(unsigned int nSeed);

/// Builds the tables from the present seed.
class ZQ_API ModulePerlin_c : public Module_c
{
public:
    constexpr ModulePerlin_c()
        : Module_c("ModulePerlin_c")
    {}
    ~ModulePerlin_c() override;

    /// The instance.
    static ModulePerlin_c * Get();

protected:
    bool Initialize() override;
};
