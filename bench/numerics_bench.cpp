// numerics_bench.cpp: noise, bit fields and identifiers, compared with stb_perlin, libnoise, Boost and libuuid.
#define STB_PERLIN_IMPLEMENTATION
#include <stb/stb_perlin.h>

#include "zqcore/cbitmap.h"
#include "zqcore/cguid.h"
#include "zqcore/cperlin.h"

#include "platform/netaddress.h"

#include <benchmark/benchmark.h>
#include <boost/dynamic_bitset.hpp>
#include <libnoise/noise.h>
#include <uuid/uuid.h>

#include <initializer_list>
#include <random>
#include <string>
#include <vector>

namespace
{
    constexpr std::size_t POINTS = 4096;   // a power of 2
    constexpr unsigned STEP = 7919;        // a prime, so the tests come to all bits of a field
    constexpr int FIELD_BITS = 65536;

    // Returns random points. Neighbours rarely share a lattice cell. Branches on them can't be predicted.
    std::vector<Vec3fpu_t> const & Points()
    {
        static std::vector<Vec3fpu_t> const s_dPoints = []
        {
            std::mt19937 Random(1);
            std::uniform_real_distribution<float> Coordinate(-200.0f, 200.0f);
            std::vector<Vec3fpu_t> dPoints(POINTS);
            for (Vec3fpu_t & Point : dPoints)
            {
                Point = { Coordinate(Random), Coordinate(Random), Coordinate(Random) };
            }
            return dPoints;
        }();
        return s_dPoints;
    }

    template <typename NOISE>
    void RegisterNoise(char const * szName, NOISE fnNoise)
    {
        benchmark::RegisterBenchmark(szName,
            [fnNoise](benchmark::State & State)
            {
                std::vector<Vec3fpu_t> const & dPoints = Points();
                std::size_t i = 0;
                for (auto _ : State)
                {
                    benchmark::DoNotOptimize(fnNoise(dPoints[i++ % POINTS]));
                }
            });
    }

    template <typename BODY>
    void RegisterBits(std::string const & sName, int nBits, BODY fnBody)
    {
        std::string const sFull = sName + "/" + std::to_string(nBits);
        benchmark::RegisterBenchmark(sFull.c_str(), [=](benchmark::State & State) { fnBody(State, nBits); });
    }

    // Returns nBits bits, every third one set, so that no field is empty.
    BitVec_c Ours(int nBits)
    {
        BitVec_c Vec(nBits);
        for (int i = 0; i < nBits; i += 3)
        {
            Vec.Bis(i);
        }
        return Vec;
    }

    boost::dynamic_bitset<> Theirs(int nBits)
    {
        boost::dynamic_bitset<> Bits(static_cast<std::size_t>(nBits));
        for (std::size_t i = 0; i < Bits.size(); i += 3)
        {
            Bits.set(i);
        }
        return Bits;
    }

    void OrOurs(benchmark::State & State, int nBits)
    {
        BitVec_c Target = Ours(nBits);
        BitVec_c const Source = Ours(nBits);
        for (auto _ : State)
        {
            Target |= Source;
            benchmark::DoNotOptimize(Target);
            benchmark::ClobberMemory();
        }
    }

    void OrTheirs(benchmark::State & State, int nBits)
    {
        boost::dynamic_bitset<> Target = Theirs(nBits);
        boost::dynamic_bitset<> const Source = Theirs(nBits);
        for (auto _ : State)
        {
            Target |= Source;
            benchmark::DoNotOptimize(Target);
            benchmark::ClobberMemory();
        }
    }

    void FirstOurs(benchmark::State & State, int nBits)
    {
        BitVec_c Bits(nBits);
        Bits.Bis(nBits - 1);
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(Bits);
            benchmark::DoNotOptimize(Bits.Scan1());
        }
    }

    void FirstTheirs(benchmark::State & State, int nBits)
    {
        boost::dynamic_bitset<> Bits(static_cast<std::size_t>(nBits));
        Bits.set(Bits.size() - 1);
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(Bits);
            benchmark::DoNotOptimize(Bits.find_first());
        }
    }

    void TestOurs(benchmark::State & State, int nBits)
    {
        BitVec_c const Bits = Ours(nBits);
        unsigned i = 0;
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(Bits.Bit(static_cast<int>(i)));
            i = (i + STEP) % static_cast<unsigned>(nBits);
        }
    }

    void TestTheirs(benchmark::State & State, int nBits)
    {
        boost::dynamic_bitset<> const Bits = Theirs(nBits);
        unsigned i = 0;
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(Bits.test(i));
            i = (i + STEP) % static_cast<unsigned>(nBits);
        }
    }

    // Compares two fields that have no bit in common, so the whole of both is read.
    void MeetOurs(benchmark::State & State, int nBits)
    {
        BitMap3D_c a(nBits / 64, 8, 8);
        BitMap3D_c b = a;
        a.Bis(0, 0, 0);
        b.Bis(1, 0, 0);
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(a.pMap);
            benchmark::DoNotOptimize(a.Intersects(b));
        }
    }

    void MeetTheirs(benchmark::State & State, int nBits)
    {
        boost::dynamic_bitset<> a(static_cast<std::size_t>(nBits)), b = a;
        a.set(0);
        b.set(1);
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(a);
            benchmark::DoNotOptimize(a.intersects(b));
        }
    }

    // Reports the generator's random address as a global one.
    plat::NetAddress_e GlobalAddress(unsigned char (&dAddress)[plat::NET_ADDRESS_SIZE])
    {
        dAddress[0] = 0;
        return plat::NetAddress_e::Global;
    }

    // Makes identifiers. Without a global address, which this machine may lack, Create warns and fails.
    void GuidOurs(benchmark::State & State)
    {
        plat::NetAddressSource_t const fnPrevious = plat::NetAddressSetSource(GlobalAddress);
        for (auto _ : State)
        {
            Guid_c Guid;
            bool const bCreated = Guid_c::Create(Guid);
            benchmark::DoNotOptimize(Guid);
            if (!bCreated)
            {
                State.SkipWithError("no identifier");
            }
        }
        plat::NetAddressSetSource(fnPrevious);
    }

    void GuidTheirs(benchmark::State & State)
    {
        for (auto _ : State)
        {
            uuid_t Uuid;
            uuid_generate_time(Uuid);
            benchmark::DoNotOptimize(Uuid);
        }
    }

    bool RegisterAll()
    {
        PerlinNoiseSetSeed(1);
        RegisterNoise("noise 3D/ours", [](Vec3fpu_t const & Point) { return PerlinNoise(Point); });
        RegisterNoise("noise 3D/stb_perlin",
            [](Vec3fpu_t const & Point) { return stb_perlin_noise3(Point.x, Point.y, Point.z, 0, 0, 0); });
        RegisterNoise("noise 3D/libnoise", [](Vec3fpu_t const & Point)
            { return noise::GradientCoherentNoise3D(Point.x, Point.y, Point.z, 1, noise::QUALITY_STD); });
        // The peers have no noise of fewer dimensions. A user takes a plane or a line of theirs.
        RegisterNoise("noise 2D/ours",
            [](Vec3fpu_t const & Point) {
                return PerlinNoise(Vector2_t{ Point.x, Point.y });
            });
        RegisterNoise("noise 2D/stb_perlin",
            [](Vec3fpu_t const & Point) { return stb_perlin_noise3(Point.x, Point.y, 0, 0, 0, 0); });
        RegisterNoise("noise 1D/ours", [](Vec3fpu_t const & Point) { return PerlinNoise(Point.x); });
        RegisterNoise(
            "noise 1D/stb_perlin", [](Vec3fpu_t const & Point) { return stb_perlin_noise3(Point.x, 0, 0, 0, 0, 0); });
        for (int const nBits : { 64, 512, 4096, FIELD_BITS, 1 << 26 })
        {
            RegisterBits("bits or/ours", nBits, OrOurs);
            RegisterBits("bits or/dynamic_bitset", nBits, OrTheirs);
        }
        RegisterBits("first set bit/ours", FIELD_BITS, FirstOurs);
        RegisterBits("first set bit/dynamic_bitset", FIELD_BITS, FirstTheirs);
        RegisterBits("test of a bit/ours", FIELD_BITS, TestOurs);
        RegisterBits("test of a bit/dynamic_bitset", FIELD_BITS, TestTheirs);
        RegisterBits("intersects/ours", FIELD_BITS, MeetOurs);
        RegisterBits("intersects/dynamic_bitset", FIELD_BITS, MeetTheirs);
        benchmark::RegisterBenchmark("identifier/ours", GuidOurs);
        benchmark::RegisterBenchmark("identifier/libuuid", GuidTheirs);
        return true;
    }

    [[maybe_unused]] bool const g_bRegistered = RegisterAll();
}
