// clock.h: the machine's clocks.
//
// Threads: any thread. LocalTime and LocalTimeKeep may wait for a lock. The other calls use no lock.
#pragma once

#include <cstdint>

namespace plat
{
    inline constexpr int NANOSECONDS_OF_SECOND = 1'000'000'000;
    inline constexpr int NANOSECONDS_OF_MILLISECOND = 1'000'000;
    inline constexpr int MILLISECONDS_OF_SECOND = 1000;

    /// Date and time of day, local.
    struct LocalTime_t
    {
        int iYear, iMonth, iDay;   // month and day from 1
        int iHour, iMinute, iSecond, iMillisecond;
    };

    /// Returns the ticks of the good clock. It runs evenly and never back. Requires that GoodClockFrequency is not 0.
    std::int64_t GoodClockTicks();

    /// Returns the ticks of the good clock in a second, or 0 on a machine without one.
    std::int64_t GoodClockFrequency();

    /// Returns the coarse clock in milliseconds from an arbitrary start. Wraps after 49 days.
    std::uint32_t CoarseClockMilliseconds();

    /// Ask the system for a coarse clock that advances every nMilliseconds, and end that request. Require one
    /// CoarseClockLower with the same number for each success of CoarseClockRaise. CoarseClockRaise returns false if
    /// the system refuses.
    bool CoarseClockRaise(unsigned nMilliseconds);
    void CoarseClockLower(unsigned nMilliseconds);

    /// Returns the processor's free-running cycle counter, or GoodClockTicks on a processor other than x86.
    std::int64_t CycleCounter();

    /// Returns the whole seconds since 1970-01-01 00:00 UTC, in 64 bits on every word size.
    std::int64_t SecondsSince1970();

    /// Returns the present local time. If the system does not report it, only iMillisecond has a meaning.
    LocalTime_t LocalTime();

    /// Stores the present difference between local time and UTC, for the two functions below. If the system does not
    /// report it, the previous one stays.
    void LocalTimeKeep();

    /// Returns the local time by the difference that LocalTimeKeep stored last. Returns UTC before the first call of
    /// LocalTimeKeep. A later change to or from summer time has no effect. A fault filter may call it.
    LocalTime_t LocalTimeByKept();

    /// Returns the stored difference in minutes, positive east of UTC, or 0 before the first call of LocalTimeKeep.
    int LocalTimeKeptZone();
}
