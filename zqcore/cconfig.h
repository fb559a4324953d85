// cconfig.h: facts of the build that every header may use.
//
// It also brings the macros of platform/compiler.h, such as ZQ_API and ZQ_PRINTF.
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

/// Number of this build; 0 for a build without a number.
inline constexpr int ZQ_BUILD_NUMBER = 0;

/// Name of the configuration in version texts. Assertions are part of every build; the heap is chosen apart
/// from it (ZQCORE_HEAP).
inline constexpr char const * ZQ_BUILD_CONFIGURATION = "debug";
