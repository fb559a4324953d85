// pool_bench.cpp: the pools, compared with allocators that a user would choose, and the reference counts.
#include "zqcore/ccom.h"
#include "zqcore/cgigapool.h"
#include "zqcore/chwm.h"
#include "zqcore/cpoolallocator.h"

#include "bench/bench_support.h"
#include "bench/mimalloc.h"

#include <boost/pool/pool.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <list>
#include <map>
#include <memory_resource>
#include <numeric>
#include <random>
#include <vector>

namespace
{
    constexpr int ELEMENTS = 100000;
    constexpr std::size_t SIZE = 64;   // bytes of a block

    enum class Order_e
    {
        Lifo,
        Fifo,
        Random
    };

    // Returns the order in which blocks are freed, by index.
    std::vector<std::size_t> FreeOrder(Order_e eOrder)
    {
        std::vector<std::size_t> dOrder(ELEMENTS);
        std::iota(dOrder.begin(), dOrder.end(), std::size_t{ 0 });
        if (eOrder == Order_e::Lifo)
        {
            std::reverse(dOrder.begin(), dOrder.end());
        }
        else if (eOrder == Order_e::Random)
        {
            std::shuffle(dOrder.begin(), dOrder.end(), std::mt19937(5));
        }
        return dOrder;
    }

    // Sizes of blocks.
    enum class Sizes_e
    {
        Same,        // SIZE
        OfClasses,   // those of CLASSES, at random
        Any          // any up to the largest of CLASSES, small ones more often
    };

    // Sizes of the multi-size pool's blocks, in bytes.
    constexpr std::array CLASSES = { 16u, 32u, 64u, 128u, 256u };

    std::vector<std::size_t> Sizes(Sizes_e eSizes)
    {
        std::vector<std::size_t> dSizes(ELEMENTS, SIZE);
        std::mt19937 Random(9);
        for (std::size_t i = 0; eSizes != Sizes_e::Same && i < dSizes.size(); ++i)
        {
            unsigned const nClass = CLASSES[Random() % CLASSES.size()];
            dSizes[i] = eSizes == Sizes_e::OfClasses ? nClass : 1 + Random() % nClass;
        }
        return dSizes;
    }

    // Allocates all blocks and releases them. The time is that of one pair.
    template <typename ALLOCATOR>
    void RunPairs(benchmark::State & State, Order_e eOrder, Sizes_e eSizes, ALLOCATOR && Allocator)
    {
        std::vector<std::size_t> const dOrder = FreeOrder(eOrder);
        std::vector<std::size_t> const dSizes = Sizes(eSizes);
        std::vector<void *> dBlocks(ELEMENTS);
        while (State.KeepRunningBatch(ELEMENTS))
        {
            for (std::size_t i = 0; i < dBlocks.size(); ++i)
            {
                dBlocks[i] = Allocator.Allocate(dSizes[i]);
            }
            for (std::size_t const i : dOrder)
            {
                Allocator.Release(dBlocks[i], dSizes[i]);
            }
        }
    }

    struct StaticPool_s
    {
        void * Allocate(std::size_t) { return Pool.Alloc(false); }
        void Release(void * pBlock, std::size_t) { Pool.Free(pBlock, false); }
        GigaPoolStatic_c Pool{ ELEMENTS, SIZE };
    };

    struct ResizeablePool_s
    {
        void * Allocate(std::size_t) { return Pool.Alloc(false); }
        void Release(void * pBlock, std::size_t) { Pool.Free(pBlock, false); }
        GigaPoolResizeable_c Pool{ ELEMENTS, SIZE };
    };

    struct MultiPool_s
    {
        MultiPool_s()
        {
            for (unsigned const nBytes : CLASSES)
            {
                Pool.AddGroup(nBytes, ELEMENTS / CLASSES.size());
            }
        }
        void * Allocate(std::size_t nBytes) { return Pool.Alloc(static_cast<unsigned>(nBytes), false); }
        void Release(void * pBlock, std::size_t) { Pool.Free(pBlock, false); }
        StaticMemoryPool_c Pool{ "bench" };
    };

    struct BoostPool_s
    {
        void * Allocate(std::size_t) { return Pool.malloc(); }
        void Release(void * pBlock, std::size_t) { Pool.free(pBlock); }
        boost::pool<> Pool{ SIZE };
    };

    struct Glibc_c
    {
        void * Allocate(std::size_t nBytes) { return std::malloc(nBytes); }
        void Release(void * pBlock, std::size_t) { std::free(pBlock); }
    };

    struct StdPool_s
    {
        void * Allocate(std::size_t nBytes) { return Pool.allocate(nBytes); }
        void Release(void * pBlock, std::size_t nBytes) { Pool.deallocate(pBlock, nBytes); }

        // The pool's own blocks come from the C library, so that the figure does not include the tracked heap.
        struct MallocResource_c : std::pmr::memory_resource
        {
            void * do_allocate(std::size_t nBytes, std::size_t nAlign) override
            {
                return std::aligned_alloc(nAlign, (nBytes + nAlign - 1) / nAlign * nAlign);
            }
            void do_deallocate(void * pBlock, std::size_t, std::size_t) override { std::free(pBlock); }
            bool do_is_equal(std::pmr::memory_resource const & Other) const noexcept override { return this == &Other; }
        };
        MallocResource_c Upstream;
        std::pmr::unsynchronized_pool_resource Pool{ &Upstream };
    };

    template <typename ALLOCATOR>
    void Run(benchmark::State & State, Order_e eOrder, Sizes_e eSizes)
    {
        RunPairs(State, eOrder, eSizes, ALLOCATOR());
    }

    template <>
    void Run<Mimalloc_s>(benchmark::State & State, Order_e eOrder, Sizes_e eSizes)
    {
        Mimalloc_s Allocator;
        if (!Allocator.IsInstalled(State))
        {
            return;
        }
        RunPairs(State, eOrder, eSizes, Allocator);
    }

    // Sources of the allocators of containers. Get returns what the constructor of a container expects.
    struct OurAllocator_s
    {
        template <typename T>
        using Allocator_t = PoolAllocator_T<T>;
        PoolBlocks_c & Get() { return Blocks; }
        PoolBlocks_c Blocks{ "bench", ELEMENTS };
    };

    struct OurResource_s
    {
        template <typename T>
        using Allocator_t = std::pmr::polymorphic_allocator<T>;
        std::pmr::memory_resource * Get() { return &Resource; }
        PoolBlocks_c Blocks{ "bench", ELEMENTS };
        PoolResource_T<PoolBlocks_c> Resource{ Blocks };
    };

    struct StdResource_s
    {
        template <typename T>
        using Allocator_t = std::pmr::polymorphic_allocator<T>;
        std::pmr::memory_resource * Get() { return &Pool.Pool; }
        StdPool_s Pool;
    };

    struct Malloc_c
    {
        template <typename T>
        using Allocator_t = PlainHeap_T<T>;
        static PlainHeap_T<char> Get() { return {}; }
    };

    // Fills a list and clears it. The time is that of one node.
    template <typename SOURCE>
    void FillList(benchmark::State & State)
    {
        SOURCE Source;
        std::list<std::uint64_t, typename SOURCE::template Allocator_t<std::uint64_t>> List(Source.Get());
        while (State.KeepRunningBatch(ELEMENTS))
        {
            for (int i = 0; i < ELEMENTS; ++i)
            {
                List.push_back(static_cast<std::uint64_t>(i));
            }
            List.clear();
        }
    }

    // Inserts keys into a map in a random order and erases them in ascending order. The time is that of one key.
    template <typename SOURCE>
    void FillMap(benchmark::State & State)
    {
        using Pair_t = std::pair<std::size_t const, std::size_t>;
        constexpr std::size_t KEYS = 1000;   // so few that the tree stays in the cache
        SOURCE Source;
        std::map<std::size_t, std::size_t, std::less<>, typename SOURCE::template Allocator_t<Pair_t>> Map(
            Source.Get());
        std::vector<std::size_t> dOrder = FreeOrder(Order_e::Random);
        std::erase_if(dOrder, [](std::size_t i) { return i >= KEYS; });
        while (State.KeepRunningBatch(KEYS))
        {
            for (std::size_t const i : dOrder)
            {
                Map.emplace(i, i);
            }
            for (std::size_t i = 0; i < KEYS; ++i)
            {
                Map.erase(i);
            }
        }
    }
    BENCHMARK(FillList<OurAllocator_s>)->Name("List/ours");
    BENCHMARK(FillList<OurResource_s>)->Name("List/ours_pmr");
    BENCHMARK(FillList<StdResource_s>)->Name("List/std_pmr_pool");
    BENCHMARK(FillList<Malloc_c>)->Name("List/glibc");
    BENCHMARK(FillMap<OurAllocator_s>)->Name("Map/ours");
    BENCHMARK(FillMap<OurResource_s>)->Name("Map/ours_pmr");
    BENCHMARK(FillMap<StdResource_s>)->Name("Map/std_pmr_pool");
    BENCHMARK(FillMap<Malloc_c>)->Name("Map/glibc");

    template <typename ALLOCATOR>
    void Register(std::string const & sWork, char const * szAllocator, Sizes_e eSizes)
    {
        for (auto const & [szOrder, eOrder] :
            { std::pair{ "lifo", Order_e::Lifo }, { "fifo", Order_e::Fifo }, { "random", Order_e::Random } })
        {
            benchmark::RegisterBenchmark(
                (sWork + "/" + szOrder + "/" + szAllocator).c_str(), Run<ALLOCATOR>, eOrder, eSizes);
        }
    }

    template <typename POOL>
    void RegisterElementPool(std::string const & sWork)
    {
        Register<POOL>(sWork, "ours", Sizes_e::Same);
        Register<BoostPool_s>(sWork, "boost_pool", Sizes_e::Same);
        Register<Glibc_c>(sWork, "glibc", Sizes_e::Same);
        Register<Mimalloc_s>(sWork, "mimalloc", Sizes_e::Same);
        Register<StdPool_s>(sWork, "std_pmr_pool", Sizes_e::Same);
    }

    [[maybe_unused]] bool const g_bRegistered = []
    {
        RegisterElementPool<StaticPool_s>("Pool64/static");
        RegisterElementPool<ResizeablePool_s>("Pool64/resizeable");
        for (auto const & [szWork, eSizes] : { std::pair{ "MultiPool/64", Sizes_e::Same },
                 { "MultiPool/of_classes", Sizes_e::OfClasses }, { "MultiPool/1to256", Sizes_e::Any } })
        {
            Register<MultiPool_s>(szWork, "ours", eSizes);
            Register<Glibc_c>(szWork, "glibc", eSizes);
            Register<Mimalloc_s>(szWork, "mimalloc", eSizes);
            Register<StdPool_s>(szWork, "std_pmr_pool", eSizes);
        }
        return true;
    }();

    class Object_c : public ComObject_c
    {
        void Dispose() const override {}
    };

    // Calls AddRef on all objects, then Release on all, with a note for each reference. The time is that of one call of
    // each.
    void CountReferences(benchmark::State & State)
    {
        std::vector<Object_c> dObjects(static_cast<std::size_t>(State.range(0)));
        while (State.KeepRunningBatch(State.range(0)))
        {
            for (Object_c const & Object : dObjects)
            {
                COM_ADDREF(&Object, &dObjects);
            }
            for (Object_c const & Object : dObjects)
            {
                COM_RELEASE(&Object, &dObjects);
            }
        }
    }
    BENCHMARK(CountReferences)->Name("Com/addref_release/ours")->Arg(1)->Arg(1000)->Arg(100000);
}
