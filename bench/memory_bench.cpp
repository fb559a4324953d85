// memory_bench.cpp: the tracked allocator, compared with the allocators that a user would choose instead.
//
// It is built twice: over the debug heap, and as memory_ship_bench over the heap of a shipped game. WORK is the first
// part of the rows' names in each build.
#include "zqcore/cmemory.h"

#include "bench/mimalloc.h"

#include <cstdlib>

namespace
{
    constexpr std::size_t SIZE = 64;   // bytes of a block, as in the rows' names

    void TrackedPair(benchmark::State & State)
    {
        MemCategoryScope_c const Scope(mem::Game);
        for (auto _ : State)
        {
            char * const p = ZQ_NEW char[SIZE];
            benchmark::DoNotOptimize(p);
            delete[] p;
        }
    }
    BENCHMARK(TrackedPair)->Name(WORK "/pair64/ours")->Threads(1)->Threads(8);

    void PlainNewPair(benchmark::State & State)
    {
        for (auto _ : State)
        {
            void * const p = ::operator new(SIZE);
            benchmark::DoNotOptimize(p);
            ::operator delete(p);
        }
    }
    BENCHMARK(PlainNewPair)->Name(WORK "/pair64/ours_plain_new")->Threads(1)->Threads(8);

    void GlibcPair(benchmark::State & State)
    {
        for (auto _ : State)
        {
            void * const p = std::malloc(SIZE);
            benchmark::DoNotOptimize(p);
            std::free(p);
        }
    }
    BENCHMARK(GlibcPair)->Name(WORK "/pair64/glibc")->Threads(1)->Threads(8);

    void MimallocPair(benchmark::State & State)
    {
        Mimalloc_s Peer;
        if (!Peer.IsInstalled(State))
        {
            return;
        }
        for (auto _ : State)
        {
            void * const p = Peer.Allocate(SIZE);
            benchmark::DoNotOptimize(p);
            Peer.Release(p, SIZE);
        }
    }
    BENCHMARK(MimallocPair)->Name(WORK "/pair64/mimalloc")->Threads(1)->Threads(8);

    void DmallocPair(benchmark::State & State, char const * szOptions)
    {
        constexpr int FUNCTION_MALLOC = 10;   // DMALLOC_FUNC_MALLOC
        constexpr int FUNCTION_FREE = 18;     // DMALLOC_FUNC_FREE
        constexpr char LIBRARY[] = "libdmallocth.so.5";
        auto const fnSetup = FindPeerFunction<void (*)(char const *)>(LIBRARY, "dmalloc_debug_setup");
        auto const fnMalloc = FindPeerFunction<void * (*)(char const *, int, std::size_t, int, std::size_t, int)>(
            LIBRARY, "dmalloc_malloc");
        auto const fnFree = FindPeerFunction<int (*)(char const *, int, void *, int)>(LIBRARY, "dmalloc_free");
        if (!fnSetup || !fnMalloc || !fnFree)
        {
            State.SkipWithError("libdmalloc is not installed");
            return;
        }
        fnSetup(szOptions);
        for (auto _ : State)
        {
            void * const p = fnMalloc(__FILE__, __LINE__, SIZE, FUNCTION_MALLOC, 0, 0);
            benchmark::DoNotOptimize(p);
            fnFree(__FILE__, __LINE__, p, FUNCTION_FREE);
        }
    }
    BENCHMARK_CAPTURE(DmallocPair, runtime, "runtime")->Name(WORK "/pair64/dmalloc_runtime")->Threads(1);
    BENCHMARK_CAPTURE(DmallocPair, low, "low")->Name(WORK "/pair64/dmalloc_low")->Threads(1);

    void ScopePair(benchmark::State & State)
    {
        MemCategoryScope_c const Outer(mem::Game);
        for (auto _ : State)
        {
            MemCategoryScope_c const Scope(mem::Core);
            benchmark::ClobberMemory();
        }
    }
    BENCHMARK(ScopePair)->Name(WORK "/category_scope/ours");
}
