#include "platform/clock.h"

#include "platform/fork.h"

#include <atomic>
#include <chrono>
#include <ctime>

namespace plat
{
    namespace
    {
        std::atomic<long> g_nKeptOffset{ 0 };   // seconds east of UTC

        // Lock around the C library's conversions of times, whose own lock would stay held in the child of a fork.
        constinit Lock_c g_ConversionLock;
        ForkLock_c const g_ConversionForkLock(g_ConversionLock);

        std::int64_t MonotonicNanoseconds()
        {
            timespec Now;
            clock_gettime(CLOCK_MONOTONIC, &Now);
            return static_cast<std::int64_t>(Now.tv_sec) * NANOSECONDS_OF_SECOND + Now.tv_nsec;
        }

        // Writes the local time of tUtc, seconds since 1970, to Local. Returns false if the system does not report it.
        bool LocalFromUtc(std::time_t tUtc, std::tm & Local)
        {
            LockScope_c const Scope(g_ConversionLock);
            return localtime_r(&tUtc, &Local) != nullptr;
        }
    }

    std::int64_t GoodClockTicks()
    {
        return MonotonicNanoseconds();
    }

    std::int64_t GoodClockFrequency()
    {
        return NANOSECONDS_OF_SECOND;
    }

    std::uint32_t CoarseClockMilliseconds()
    {
        return static_cast<std::uint32_t>(MonotonicNanoseconds() / NANOSECONDS_OF_MILLISECOND);
    }

    // The coarse clock has its finest period already. 0 is no period.
    bool CoarseClockRaise(unsigned nMilliseconds)
    {
        return nMilliseconds > 0;
    }

    void CoarseClockLower(unsigned) {}

    std::int64_t CycleCounter()
    {
#if defined(__x86_64__) || defined(__i386__)
        return static_cast<std::int64_t>(__builtin_ia32_rdtsc());
#else
        return MonotonicNanoseconds();
#endif
    }

    std::int64_t SecondsSince1970()
    {
        return std::time(nullptr);
    }

    LocalTime_t LocalTime()
    {
        timespec Now;
        clock_gettime(CLOCK_REALTIME, &Now);
        std::tm Local{};
        LocalFromUtc(Now.tv_sec, Local);
        return { Local.tm_year + 1900, Local.tm_mon + 1, Local.tm_mday, Local.tm_hour, Local.tm_min, Local.tm_sec,
            static_cast<int>(Now.tv_nsec / NANOSECONDS_OF_MILLISECOND) };
    }

    void LocalTimeKeep()
    {
        std::tm Local{};
        if (LocalFromUtc(std::time(nullptr), Local))
        {
            g_nKeptOffset = Local.tm_gmtoff;
        }
    }

    int LocalTimeKeptZone()
    {
        return static_cast<int>(g_nKeptOffset / 60);
    }

    // Does not use the C library's conversions, which acquire a lock.
    LocalTime_t LocalTimeByKept()
    {
        timespec Now;
        clock_gettime(CLOCK_REALTIME, &Now);
        std::int64_t const tLocal = std::int64_t{ Now.tv_sec } + g_nKeptOffset;   // seconds since 1970
        std::chrono::sys_seconds const Time{ std::chrono::seconds{ tLocal } };
        auto const Day = std::chrono::floor<std::chrono::days>(Time);
        auto const nSecondOfDay = static_cast<int>((Time - Day).count());
        std::chrono::year_month_day const Date{ Day };
        return { static_cast<int>(Date.year()), static_cast<int>(static_cast<unsigned>(Date.month())),
            static_cast<int>(static_cast<unsigned>(Date.day())), nSecondOfDay / 3600, nSecondOfDay / 60 % 60,
            nSecondOfDay % 60, static_cast<int>(Now.tv_nsec / NANOSECONDS_OF_MILLISECOND) };
    }
}
