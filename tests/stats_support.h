// stats_support.h: the layout of a stats file (docs/formats.md), for tests that write or change one.
#pragma once

#include "zqcore/cprofile.h"

#include <cstddef>

/// Frames of a batch, and bytes of a timer's record.
inline constexpr std::size_t STATS_BATCH_FRAMES = PROFILER_FRAMES, STATS_RECORD = sizeof(profiler::timer_t);

/// Offsets in a record.
inline constexpr std::size_t STATS_TIMER = 32, STATS_CHILD = 36, STATS_NEXT = 40, STATS_TIMES = 56;
