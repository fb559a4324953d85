// profile_bench.cpp: both profilers, compared with the bare clock readings, copies and locks that they need.
#include "zqcore/cfilename.h"
#include "zqcore/cprofile_stats_internal.h"
#include "zqcore/csimpleprofile.h"

#include "bench/bench_support.h"

#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

namespace
{
    // Time for the write of a batch. A program starts the next one PROFILER_FRAMES frames later.
    constexpr std::chrono::milliseconds PAUSE(10);

    // A running profiler for a benchmark, with the root and timers below it.
    struct Profiler_c
    {
        explicit Profiler_c(int nTimers)
        {
            Module_c::Register(ModuleProfiler_c::Get());
            Module_c::InitializeAllModules();
            for (int i = 1; i < nTimers; ++i)
            {
                ProfilerPush(static_cast<std::uint32_t>(i), "bench");
                ProfilerPop();
            }
        }
        ~Profiler_c() { Module_c::ShutdownAllModules(); }
    };

    void Clock(benchmark::State & State)
    {
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(__builtin_ia32_rdtsc());
            benchmark::DoNotOptimize(__builtin_ia32_rdtsc());
        }
    }
    BENCHMARK(Clock)->Name("PushPop/by_id/two_cycle_counters");
    BENCHMARK(Clock)->Name("PushPop/by_id_of_512/two_cycle_counters");
    BENCHMARK(Clock)->Name("PushPop/by_name/two_cycle_counters");

    void IdPair(benchmark::State & State, int nTimers)
    {
        Profiler_c const Profiler(nTimers);
        std::uint32_t iTimer = 0;
        for (auto _ : State)
        {
            iTimer = iTimer + 1 < static_cast<std::uint32_t>(nTimers) ? iTimer + 1 : 1;
            ProfilerPush(iTimer, "bench");
            ProfilerPop(iTimer);
        }
    }
    BENCHMARK_CAPTURE(IdPair, few, 8)->Name("PushPop/by_id/ours");
    BENCHMARK_CAPTURE(IdPair, all, MAX_TIMERS_TOTAL)->Name("PushPop/by_id_of_512/ours");

    void NamePair(benchmark::State & State)
    {
        Profiler_c const Profiler(8);
        for (auto _ : State)
        {
            ProfilerPush("Frame ModuleWorld_c", false);
            ProfilerPop();
        }
    }
    BENCHMARK(NamePair)->Name("PushPop/by_name/ours");

    // Measures a frame whose times, in ticks, are those of the previous frame plus tStep, each changed by less than 64.
    // With a step below -64 every timer's peak leaves the ring in every frame.
    void Update(benchmark::State & State, std::int64_t tFirst, std::int64_t tStep)
    {
        Profiler_c const Profiler(MAX_TIMERS_TOTAL);
        profiler::timer_t * const pFirst = ProfilerGetRoot();
        std::int64_t tFrame = tFirst;
        int iRing = 0;
        for (auto _ : State)
        {
            State.PauseTiming();
            tFrame += tStep;
            for (int i = 0; i < MAX_TIMERS_TOTAL; ++i)
            {
                pFirst[i].dFrames[iRing].tTime = tFrame + tFrame % 64 * (i + 3) % 64;
            }
            iRing = (iRing + 1) % PROFILER_FRAMES;
            State.ResumeTiming();
            ProfilerUpdateFrame(false);
        }
        Require(State, pFirst[MAX_TIMERS_TOTAL - 1].iMaxSlot >= 0);
    }
    BENCHMARK_CAPTURE(Update, steady, 1000, 0)->Name("UpdateFrame/512/ours");
    BENCHMARK_CAPTURE(Update, falling, std::int64_t{ 1 } << 60, -1000)->Name("UpdateFrame/512_falling/ours");

    std::filesystem::path BatchPath()
    {
        return std::filesystem::temp_directory_path() / "zqcore_profile_bench";
    }

    void Swap(benchmark::State & State)
    {
        Profiler_c const Profiler(MAX_TIMERS_TOTAL);
        std::filesystem::path const Path = BatchPath();
        ProfilerInitSwapStats(FileName_c(Path.c_str()));
        for (auto _ : State)
        {
            ProfilerSwapStats();
            State.PauseTiming();
            std::this_thread::sleep_for(PAUSE);
            State.ResumeTiming();
        }
        std::filesystem::remove(Path);
    }
    BENCHMARK(Swap)->Name("SwapStats/512/ours")->Iterations(50);

    // Measures the copy only. Another thread writes it to a file in the pauses, as the system does with the profiler's.
    void Copy(benchmark::State & State)
    {
        PlainVector_T<char> const dFrom(statsrecord::MAX_BATCH, 1);
        PlainVector_T<char> dTo(statsrecord::MAX_BATCH);
        std::filesystem::path const Path = BatchPath();
        std::ofstream File(Path, std::ios::binary);
        for (auto _ : State)
        {
            std::memcpy(dTo.data(), dFrom.data(), statsrecord::MAX_BATCH);
            benchmark::ClobberMemory();
            State.PauseTiming();
            std::thread([&] { File.write(dTo.data(), statsrecord::MAX_BATCH); }).join();
            std::this_thread::sleep_for(PAUSE);
            State.ResumeTiming();
        }
        std::filesystem::remove(Path);
    }
    BENCHMARK(Copy)->Name("SwapStats/512/memcpy")->Iterations(50);

    // Starts and ends a thread. The locks of the C library are cheaper in a process that never had a second thread.
    void StartAThread()
    {
        std::thread([] {}).join();
    }

    void SimplePair(benchmark::State & State)
    {
        StartAThread();
        for (auto _ : State)
        {
            SimpleProfilePush(SIMPLE_PROFILE_CONTEXT_0, SIMPLE_TIMER_AI);
            SimpleProfilePop(SIMPLE_PROFILE_CONTEXT_0, SIMPLE_TIMER_AI);
        }
    }
    BENCHMARK(SimplePair)->Name("SimplePushPop/ours");

    void Locks(benchmark::State & State)
    {
        StartAThread();
        std::recursive_mutex Use, Stats;
        for (auto _ : State)
        {
            Use.lock();
            Stats.lock();
            benchmark::DoNotOptimize(__builtin_ia32_rdtsc());
            Stats.unlock();
            Stats.lock();
            benchmark::DoNotOptimize(__builtin_ia32_rdtsc());
            Stats.unlock();
            Use.unlock();
        }
    }
    BENCHMARK(Locks)->Name("SimplePushPop/three_lock_pairs_two_counters");
}
