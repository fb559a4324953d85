// notinlined.h: functions that keep frames of their own, for tests of call stacks.
#pragma once

/// Attribute of a function that is not inlined. With GCC its callers know nothing of it, or with KNOWN_TO_CALLERS which
/// registers it keeps.
#if defined(__clang__) || defined(KNOWN_TO_CALLERS)
    #define NOT_INLINED __attribute__((noinline))
#else
    #define NOT_INLINED __attribute__((noipa))
#endif
