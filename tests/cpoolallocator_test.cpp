#include "zqcore/cpoolallocator.h"

#include "tests/test_support.h"
#include "zqcore/cmemory.h"

#include <array>
#include <list>
#include <map>
#include <numeric>
#include <random>
#include <set>

namespace
{
    template <typename T>
    using Elements_T = PoolAllocator_T<T, PoolElements_c>;
    using Map_t = std::map<int, std::string, std::less<>, PoolAllocator_T<std::pair<int const, std::string>>>;
}

TEST(PoolAllocator, ServesStandardContainersLikeTheHeap)
{
    std::ptrdiff_t const nBefore = MemoryTotalAllocations();
    {
        PoolBlocks_c Blocks("test");
        PoolBlocks_c Others("others");
        Map_t Map(Blocks), Moved(Others);
        std::map<int, std::string> Model;
        std::mt19937 Random(6);
        for (unsigned iStep = 0; iStep < 50000; ++iStep)   // until several chunks are in use
        {
            int const iFilled = static_cast<int>(Random() % 20000), iFreed = static_cast<int>(Random() % 20000);
            Map[iFilled] = Model[iFilled] = std::string(iStep % 40, 'x');
            ASSERT_EQ(Map.erase(iFreed), Model.erase(iFreed)) << "step " << iStep;
        }
        EXPECT_EQ((std::map<int, std::string>(Map.begin(), Map.end())), Model);
        auto const * const pFirst = &*Map.begin();
        Moved = std::move(Map);
        EXPECT_EACH(&*Moved.begin() == pFirst, Moved.get_allocator() == Map_t::allocator_type(Blocks));
        std::vector<double, PoolAllocator_T<double>> dLarge(Blocks);   // grows from the pool into the heap
        dLarge.resize(100);
        dLarge.resize(100000, 1.5);
        EXPECT_EQ(std::accumulate(dLarge.begin(), dLarge.end(), 0.0), 1.5 * 99900);
        struct alignas(64) Wide_s
        {
            char dBytes[64];
        };
        std::list<Wide_s, PoolAllocator_T<Wide_s>> Wide(Blocks);
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&Wide.emplace_back()) % 64, 0u);
        }
#ifdef __cpp_lib_memory_resource
        PoolResource_T Resource(Blocks);
        std::pmr::vector<std::pmr::string> dTexts(&Resource);
        for (std::size_t i = 0; i < 1000; ++i)
        {
            dTexts.emplace_back(i, 'x');
        }
        EXPECT_EQ(dTexts.back(), std::pmr::string(999, 'x'));
#endif
    }
    EXPECT_EQ(MemoryTotalAllocations(), nBefore);
}

TEST(PoolAllocator, EveryBlockIsAlignedAndApart)
{
    PoolBlocks_c Blocks("test");
    std::set<std::pair<std::uintptr_t, std::size_t>> Taken;
    for (std::size_t nBytes = 0; nBytes <= 1100; ++nBytes)
    {
        auto const nBlock = reinterpret_cast<std::uintptr_t>(Blocks.Allocate(nBytes, 16));
        ASSERT_EQ(nBlock % 16, 0u) << nBytes;
        Taken.emplace(nBlock, nBytes);
    }
    std::uintptr_t nEnd = 0;
    for (auto const & [nBlock, nBytes] : Taken)
    {
        ASSERT_GE(nBlock, nEnd) << nBytes;
        nEnd = nBlock + std::max<std::size_t>(nBytes, 1);
        Blocks.Free(reinterpret_cast<void *>(nBlock), nBytes, 16);
    }
}

TEST(PoolAllocator, AFixedPoolServesFromTheCallersStorageAloneAndStopsAtALargerBlock)
{
    constexpr int ELEMENTS = 64;
    constexpr int NODE = 48;   // bytes
    alignas(16) std::array<std::byte, GigaPoolStatic_c::StorageFor(ELEMENTS, NODE) + 1> dStorage;
    std::ptrdiff_t const nBefore = MemoryTotalAllocations();
    for (std::size_t const nSkip : { 0u, 1u })   // a start that is aligned, and one that is not
    {
        dStorage.fill(std::byte{ 0xAB });
        std::size_t const nStorage = dStorage.size() - 1;
        std::span<std::byte> const dPart = std::span(dStorage).subspan(nSkip, nStorage);
        GigaPoolStatic_c Pool(dPart, NODE);
        PoolElements_c Elements(Pool);
        std::list<std::array<char, 16>, Elements_T<std::array<char, 16>>> List(Elements);
        List.resize(ELEMENTS);
        EXPECT_EACH(Pool.GetElements() == ELEMENTS, Pool.WaterMark() == ELEMENTS, !Pool.Alloc(false));
        auto const * const pFirst = reinterpret_cast<std::byte const *>(&List.front());
        EXPECT_EACH(pFirst >= dStorage.data(), pFirst < dStorage.data() + dStorage.size());
        EXPECT_EQ(dStorage[nSkip == 0 ? nStorage : 0], std::byte{ 0xAB }) << "beside the storage";
        List.pop_front();
        List.emplace_back();
        List.clear();
        EXPECT_EACH(Pool.WaterMark() == 0, Pool.HighWaterMark() == ELEMENTS, MemoryTotalAllocations() == nBefore);
        Pool.Reset();
        Pool.Init(std::span(dStorage).first(100), NODE);
        EXPECT_EQ(Pool.GetElements(), 0);
    }
    GigaPoolStatic_c Pool(32, 8);
    PoolElements_c Elements(Pool);
    auto const Overstrain = [&]
    {
        LogToStandardError();
        Elements.Allocate(9, 1);
    };
    EXPECT_EXIT(Overstrain(), g_EndedAtBreakpoint, "no element for 9 bytes aligned to 1: they have 8 bytes");
}
