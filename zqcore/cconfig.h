// cconfig.h: facts of the build that every header may use.
#pragma once

#include "platform/compiler.h"

#include <cstddef>
#include <cstdint>

/// The number of this build; 0 for a build that nobody numbered.
inline constexpr int ZQ_BUILD_NUMBER = 0;

/// The configuration's word in version texts. Assertions and the debug heap are part of every build.
inline constexpr char const * ZQ_BUILD_CONFIGURATION = "debug";
