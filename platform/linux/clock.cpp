#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64

#include "platform/clock.h"

#include <ctime>

namespace plat
{
    namespace
    {
        constexpr std::int64_t NANOSECONDS = 1000000000;   // in a second

        std::int64_t MonotonicNanoseconds()
        {
            timespec Now;
            clock_gettime(CLOCK_MONOTONIC, &Now);
            return static_cast<std::int64_t>(Now.tv_sec) * NANOSECONDS + Now.tv_nsec;
        }
    }

    std::int64_t GoodClockTicks()
    {
        return MonotonicNanoseconds();
    }

    std::int64_t GoodClockFrequency()
    {
        return NANOSECONDS;
    }

    std::uint32_t CoarseClockMilliseconds()
    {
        return static_cast<std::uint32_t>(MonotonicNanoseconds() / 1000000);
    }

    // The coarse clock is as fine as it can be; only a period of nothing is refused.
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

    LocalTime_t LocalTime()
    {
        timespec Now;
        clock_gettime(CLOCK_REALTIME, &Now);
        std::tm Local{};
        localtime_r(&Now.tv_sec, &Local);
        return { Local.tm_year + 1900, Local.tm_mon + 1, Local.tm_mday, Local.tm_hour, Local.tm_min, Local.tm_sec,
            static_cast<int>(Now.tv_nsec / 1000000) };
    }
}
