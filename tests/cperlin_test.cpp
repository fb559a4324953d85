#include "zqcore/cperlin.h"

#include "tests/test_support.h"
#include "zqcore/cstring.h"

#include <bit>
#include <cmath>

namespace
{
    struct NoiseRow_s
    {
        unsigned nSeed;
        int nDimensions;
        std::uint32_t dPoint[3], dwNoise;   // the bits of floats
    };
#include "tests/golden/perlin.inc"

    std::uint32_t Bits(float f)
    {
        return std::bit_cast<std::uint32_t>(f);
    }

    float Noise(int nDimensions, float x, float y, float z)
    {
        return nDimensions == 1   ? PerlinNoise(x)
               : nDimensions == 2 ? PerlinNoise(Vector2_t{ x, y })
                                  : PerlinNoise(Vec3fpu_t{ x, y, z });
    }
}

TEST(Perlin, MatchesTheBitsOfTheGoldenTable)
{
    for (NoiseRow_s const & Row : NOISE_ROWS)
    {
        PerlinNoiseSetSeed(Row.nSeed);
        auto const fnAxis = [&](int i) { return std::bit_cast<float>(Row.dPoint[i]); };
        float const fNoise = Noise(Row.nDimensions, fnAxis(0), fnAxis(1), fnAxis(2));
        EXPECT_EQ(Bits(fNoise), Row.dwNoise) << fNoise << " in " << Row.nDimensions << ", seed " << Row.nSeed;
    }
}

TEST(Perlin, IsZeroOnTheLatticeAndRepeats)
{
    PerlinNoiseSetSeed(1);
    for (int nDimensions = 1; nDimensions <= 3; ++nDimensions)
    {
        for (float x : { -4094.0f, -17.0f, 0.0f, 4.0f, 255.0f, 100000.0f })
        {
            EXPECT_EQ(Noise(nDimensions, x, x + 1, x - 2), 0.0f) << x << " in " << nDimensions;
        }
        EXPECT_EQ(Noise(nDimensions, 0.25f, 9.5f, -3.75f), Noise(nDimensions, 256.25f, 265.5f, 252.25f)) << nDimensions;
        EXPECT_NE(Noise(nDimensions, 0.25f, 9.5f, -3.75f), Noise(nDimensions, 1.25f, 9.5f, -3.75f)) << nDimensions;
    }
}

TEST(Perlin, BuildingTheTablesAdvancesTheSeed)
{
    Vec3fpu_t const Point{ 0.25f, 9.5f, -3.75f };
    PerlinNoiseSetSeed(1);
    float const fFirst = PerlinNoise(Point);
    ASSERT_TRUE(StartModule(ModulePerlin_c::Get()));
    Module_c::ShutdownAllModules();
    EXPECT_NE(PerlinNoise(Point), fFirst);
    PerlinNoiseSetSeed(1);
    EXPECT_EQ(PerlinNoise(Point), fFirst);
}

TEST(Perlin, ComplainsOfWhatIsNoPlace)
{
    PerlinNoiseSetSeed(1);
    LogCapture_c const Log;
    DialogScript_c const Ignore;
    for (int nDimensions = 1; nDimensions <= 3; ++nDimensions)
    {
        for (float x : { NAN, INFINITY, -1e30f })
        {
            EXPECT_LE(std::abs(Noise(nDimensions, x, 0.5f, 0.5f)), 0.5f) << x << " in " << nDimensions;
        }
        EXPECT_EQ(Log.CountHolding(Va("Invalid %dD-perlin noise", nDimensions)), 3);
    }
}
