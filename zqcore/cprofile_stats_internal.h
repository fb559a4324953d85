// cprofile_stats_internal.h: the layout of a record of the stats file (docs/formats.md), for its writer and tools.
#pragma once

#include "zqcore/cprofile.h"

#include <cstddef>
#include <cstdint>

namespace statsrecord
{
    /// Bytes of a record, of a name in it and of a slot of a frame, for every word size.
    inline constexpr std::size_t SIZE = 2504, NAME_SIZE = 32, SLOT_SIZE = 16;

    /// Offsets in a record, in bytes.
    inline constexpr std::size_t NAME = 0, TIMER = 32, CHILD = 36, NEXT = 40, START = 48, SLOTS = 56, AVERAGE = 2456,
                                 MAX = 2464, LAST = 2472, MAX_EVER = 2480, N_LAST = 2488, N_AT_MAX = 2492,
                                 MAX_SLOT = 2496;

    /// Bytes of the largest batch: the count of its records, and the records.
    inline constexpr std::size_t MAX_BATCH = sizeof(std::uint32_t) + MAX_TIMERS_TOTAL * SIZE;
}
