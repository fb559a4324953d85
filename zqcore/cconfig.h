// cconfig.h: facts of the build that every header may use.
//
// This header also brings the macros of platform/compiler.h, such as ZQ_API and ZQ_PRINTF.
//
// Ownership: nothing is owned.
// Threads: any thread.
// Cost: compile-time constants.
// Failure: nothing fails.
//
//     if (ZQ_BUILD_NUMBER == 0)
//     {
//         Log("This %s build has no number.", ZQ_BUILD_CONFIGURATION);
//     }
#pragma once

#include "platform/compiler.h"

#include <cstddef>
#include <cstdint>

/// Number of this build, or 0 for a build without a number.
inline constexpr int ZQ_BUILD_NUMBER = 0;

/// Name of the configuration in version texts. Every build has assertions. The option ZQCORE_HEAP of the build selects
/// the heap.
inline constexpr char const * ZQ_BUILD_CONFIGURATION = "debug";
