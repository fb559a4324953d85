// cformat_internal.h: printf's formatting, with a short road for what log lines are made of.
#pragma once

#include "zqcore/cconfig.h"

#include <cstdarg>

/// The outcome of vsnprintf, and its length up to the first NUL, at most nSize - 1. Plain %s, %c, %i, %d, %u, %x, %zu
/// and %% are written here; a format with anything else goes to the C library whole.
std::size_t FormatText(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

inline constexpr std::size_t LINE_PREFIX_SIZE = 64;

/// What stands in front of a line of the main log, the outcome of "%8.3f\t%i\t", put so that it ends at pEnd: at most
/// LINE_PREFIX_SIZE - 1 characters, not terminated. Where it starts.
char * FormatLinePrefix(char * pEnd, float tPassed, int iFrame);
