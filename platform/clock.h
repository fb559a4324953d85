// clock.h: the machine's clocks. Free of locks, callable from any thread.
#pragma once

#include <cstdint>

namespace plat
{
    /// The good clock's ticks; runs evenly and never back. Meaningful only if GoodClockFrequency is not 0.
    std::int64_t GoodClockTicks();

    /// Ticks of the good clock in a second, 0 on a machine without one.
    std::int64_t GoodClockFrequency();

    /// The coarse clock in milliseconds, from an arbitrary start; wraps after 49 days.
    std::uint32_t CoarseClockMilliseconds();

    /// Asks the system for a finer coarse clock; every success is paired with CoarseClockLower. False if refused.
    bool CoarseClockRaise(unsigned nMilliseconds);
    void CoarseClockLower(unsigned nMilliseconds);

    /// The processor's free-running cycle counter.
    std::int64_t CycleCounter();

    /// The world's time in whole seconds since 1970, of 64 bits in every word size.
    std::int64_t SecondsSince1970();

    /// Local time of day.
    struct LocalTime_t
    {
        int iYear, iMonth, iDay;   // month and day from 1
        int iHour, iMinute, iSecond, iMillisecond;
    };
    LocalTime_t LocalTime();

    /// Keeps the present difference of the local time from the world's.
    void LocalTimeKeep();

    /// Local time of day by the difference that was kept last, so that a change to or from summer time since then is
    /// not seen. A fault filter may call it, unlike LocalTime.
    LocalTime_t LocalTimeByKept();
}
