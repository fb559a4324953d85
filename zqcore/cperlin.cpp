#include "zqcore/cperlin.h"

#include "zqcore/cdebug.h"

#include "platform/float4.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

// The noise is the same everywhere only if no operation keeps more bits than a float has.
static_assert(FLT_EVAL_METHOD == 0);

namespace
{
    using plat::Float4_t;
    using plat::Pick;
    using plat::Spread;

    constexpr int LATTICE = 256;
    constexpr int REPEATED = LATTICE + 2;   // entries that are repeated, so that no sum of indices needs to wrap
    constexpr int TABLE_SIZE = LATTICE + REPEATED;
    constexpr float OFFSET = 4096.0f;   // moves coordinates from -4096 on to 0 or above, so that truncation is floor

    constinit ModulePerlin_c g_Module;
    constinit std::uint32_t g_dwSeed = 1;

    // Permutation of the lattice, and gradients in one, two and three dimensions.
    struct Tables_s
    {
        int dPermutation[TABLE_SIZE];
        float dGradients1[TABLE_SIZE];
        Vector2_t dGradients2[TABLE_SIZE];
        Float4_t dGradients3[TABLE_SIZE];   // the fourth lane is 0
    };
    constinit Tables_s g_Tables{};

    // Advances the seed by a linear congruential generator with the constants of the Windows C library's rand, and
    // returns 0 to 32767.
    int Draw()
    {
        g_dwSeed = g_dwSeed * 214013u + 2531011u;
        return static_cast<int>(g_dwSeed >> 16 & 0x7FFF);
    }

    // Draws a component of a gradient that is not normalised yet, and returns it: from -1 to below 1.
    float DrawComponent()
    {
        return static_cast<float>(Draw() % (2 * LATTICE) - LATTICE) / static_cast<float>(LATTICE);
    }

    // Returns the length of a vector of this squared length, or FLT_MIN if that is 0, so that it can be a divisor.
    // Asserts that the length is finite.
    float LengthOf(float fSquare)
    {
        float const fLength = std::sqrt(fSquare);
        ZQ_ASSERT_TEXT(fLength > -FLT_MAX && fLength < FLT_MAX, "s > - FLT_MAX && s < FLT_MAX");
        return fLength == 0.0f ? FLT_MIN : fLength;
    }

    void normalize2(Vector2_t & v)
    {
        float const fLength = LengthOf(v.x * v.x + v.y * v.y);
        v = { v.x / fLength, v.y / fLength };
    }

    void normalize3(Vec3fpu_t & v)
    {
        float const fLength = LengthOf(v.x * v.x + v.y * v.y + v.z * v.z);
        v = { v.x / fLength, v.y / fLength, v.z / fLength };
    }

    // Sets entry i of each table. The order of the draws decides the noise.
    void DrawEntry(int i)
    {
        g_Tables.dPermutation[i] = i;
        g_Tables.dGradients1[i] = DrawComponent();
        Vector2_t & Gradient2 = g_Tables.dGradients2[i];
        Gradient2.x = DrawComponent();
        Gradient2.y = DrawComponent();
        normalize2(Gradient2);
        Vec3fpu_t Gradient3;
        Gradient3.x = DrawComponent();
        Gradient3.y = DrawComponent();
        Gradient3.z = DrawComponent();
        normalize3(Gradient3);
        g_Tables.dGradients3[i] = Float4_t{ Gradient3.x, Gradient3.y, Gradient3.z, 0.0f };
    }

    void BuildTables()
    {
        for (int i = 0; i < LATTICE; ++i)
        {
            DrawEntry(i);
        }
        for (int i = LATTICE - 1; i >= 1; --i)
        {
            std::swap(g_Tables.dPermutation[i], g_Tables.dPermutation[Draw() % LATTICE]);
        }
        for (int i = 0; i < REPEATED; ++i)   // the last two repeat the first two
        {
            g_Tables.dPermutation[LATTICE + i] = g_Tables.dPermutation[i];
            g_Tables.dGradients1[LATTICE + i] = g_Tables.dGradients1[i];
            g_Tables.dGradients2[LATTICE + i] = g_Tables.dGradients2[i];
            g_Tables.dGradients3[LATTICE + i] = g_Tables.dGradients3[i];
        }
    }

    // Position on the lattice of a point, moved by OFFSET, one lane for each axis.
    struct Place_s
    {
        plat::Int4_t Cell;   // lattice point at or below the moved point
        Float4_t r0;         // distance from Cell
        Float4_t r1;         // distance from Cell + 1
        Float4_t Weight;     // of Cell + 1

        explicit Place_s(Float4_t Point)
        {
            Float4_t const Moved = Point + OFFSET;
            Cell = plat::Truncate(Moved);
            r0 = Moved - plat::FloatsFromInts(Cell);
            r1 = r0 - 1.0f;
            Weight = r0 * r0 * (3.0f - 2.0f * r0);
        }

        int First(int iAxis) const { return Cell[iAxis] & (LATTICE - 1); }
        int Next(int iAxis) const { return (Cell[iAxis] + 1) & (LATTICE - 1); }
    };

    template <typename T>
    T Blend(T From, T To, T Weight)
    {
        return (To - From) * Weight + From;
    }

    float Clamp(float fNoise)
    {
        return std::max(-0.5f, std::min(fNoise, 0.5f));
    }

    float Dot(Vector2_t const & Gradient, float x, float y)
    {
        return Gradient.x * x + Gradient.y * y;
    }

    // Indices of the gradients at the corners of a cell in x and y. i10 is that of the next point along x.
    struct Corners_s
    {
        int i00, i10, i01, i11;

        explicit Corners_s(Place_s const & Place)
        {
            int const * const p = g_Tables.dPermutation;
            int const iX0 = p[Place.First(0)];
            int const iX1 = p[Place.Next(0)];
            int const iY0 = Place.First(1);
            int const iY1 = Place.Next(1);
            i00 = p[iX0 + iY0];
            i10 = p[iX1 + iY0];
            i01 = p[iX0 + iY1];
            i11 = p[iX1 + iY1];
        }
    };

    // Returns the values of the four corners in the plane iZ, in the order of Corners_s. x, y and z are the distances
    // from the corners.
    Float4_t PlaneValues(Corners_s const & Corners, int iZ, Float4_t x, Float4_t y, Float4_t z)
    {
        Float4_t const * const g = g_Tables.dGradients3 + iZ;
        Float4_t const g00 = g[Corners.i00], g10 = g[Corners.i10], g01 = g[Corners.i01], g11 = g[Corners.i11];
        Float4_t const Low0 = Pick<0, 4, 1, 5>(g00, g10), Low1 = Pick<0, 4, 1, 5>(g01, g11);
        Float4_t const High0 = Pick<2, 6, 3, 7>(g00, g10), High1 = Pick<2, 6, 3, 7>(g01, g11);
        Float4_t const gx = Pick<0, 1, 4, 5>(Low0, Low1);
        Float4_t const gy = Pick<2, 3, 6, 7>(Low0, Low1);
        Float4_t const gz = Pick<0, 1, 4, 5>(High0, High1);
        return gx * x + gy * y + gz * z;
    }
}

float PerlinNoise(float x)
{
    Place_s const Place(Float4_t{ x, 0.0f, 0.0f, 0.0f });
    int const * const p = g_Tables.dPermutation;
    float const fFrom = Place.r0[0] * g_Tables.dGradients1[p[Place.First(0)]];
    float const fTo = Place.r1[0] * g_Tables.dGradients1[p[Place.Next(0)]];
    float const fNoise = Blend(fFrom, fTo, Place.Weight[0]);
    ZQ_ASSERT_EX(fNoise > -1.0f && fNoise < 1.0f, "Invalid 1D-perlin noise");
    return Clamp(fNoise);
}

float PerlinNoise(Vector2_t const & Point)
{
    Place_s const Place(Float4_t{ Point.x, Point.y, 0.0f, 0.0f });
    Corners_s const Corners(Place);
    Vector2_t const * const g = g_Tables.dGradients2;
    float const rx0 = Place.r0[0], rx1 = Place.r1[0], ry0 = Place.r0[1], ry1 = Place.r1[1], fWeight = Place.Weight[0];
    float const fFrom = Blend(Dot(g[Corners.i00], rx0, ry0), Dot(g[Corners.i10], rx1, ry0), fWeight);
    float const fTo = Blend(Dot(g[Corners.i01], rx0, ry1), Dot(g[Corners.i11], rx1, ry1), fWeight);
    float const fNoise = Blend(fFrom, fTo, Place.Weight[1]);
    ZQ_ASSERT_EX(fNoise > -1.0f && fNoise < 1.0f, "Invalid 2D-perlin noise");
    return Clamp(fNoise);
}

float PerlinNoise(Vec3fpu_t const & Point)
{
    Place_s const Place(Float4_t{ Point.x, Point.y, Point.z, 0.0f });
    Corners_s const Corners(Place);
    Float4_t const x = Pick<0, 4, 0, 4>(Place.r0, Place.r1);
    Float4_t const y = Pick<1, 1, 5, 5>(Place.r0, Place.r1);
    Float4_t const Plane0 = PlaneValues(Corners, Place.First(2), x, y, Spread<2>(Place.r0));
    Float4_t const Plane1 = PlaneValues(Corners, Place.Next(2), x, y, Spread<2>(Place.r1));
    // Each lane is one blend, so a vector serves both planes.
    Float4_t const AlongX =
        Blend(Pick<0, 2, 4, 6>(Plane0, Plane1), Pick<1, 3, 5, 7>(Plane0, Plane1), Spread<0>(Place.Weight));
    Float4_t const AlongY =
        Blend(Pick<0, 2, 0, 2>(AlongX, AlongX), Pick<1, 3, 1, 3>(AlongX, AlongX), Spread<1>(Place.Weight));
    float const fNoise = Blend(AlongY[0], AlongY[1], Place.Weight[2]);
    ZQ_ASSERT_EX(fNoise > -1.0f && fNoise < 1.0f, "Invalid 3D-perlin noise");
    return Clamp(fNoise);
}

void PerlinNoiseSetSeed(unsigned int nSeed)
{
    g_dwSeed = nSeed;
    BuildTables();
}

ModulePerlin_c::~ModulePerlin_c() = default;

ModulePerlin_c * ModulePerlin_c::Get()
{
    return &g_Module;
}

bool ModulePerlin_c::Initialize()
{
    BuildTables();
    return Module_c::Initialize();
}
