// clog_format_internal.h: printf's formatting, with a fast path for what log lines are made of.
#pragma once

#include "zqcore/cconfig.h"

#include <cstdarg>

/// Formats like vsnprintf. Returns the length up to the first NUL, at most nSize - 1. Wide text becomes UTF-8 in every
/// locale, and a value in it that is no character becomes U+FFFD, unless it is a byte of a path (text.h). Allocates
/// nothing. Plain %s, %c, %i, %d, %u, %x, %zu and %% are the fast path.
std::size_t FormatText(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

/// The same for texts from outside: what %s inserts is escaped whole, line ends too, as TextForLog does it. Takes only
/// the conversions of the fast path; any other ends the text.
std::size_t FormatEscaped(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

/// Escapes in place what a line must not hold, whoever wrote it: all that TextForLog escapes but tabs and line ends.
/// The text is nText bytes in a buffer of nSize, at most 16384, and is cut at a whole character if it grows too long.
/// Returns its length. A plain line costs one look at each 8 bytes.
std::size_t EscapeLine(char * szText, std::size_t nText, std::size_t nSize);

/// FormatText, then EscapeLine: what every log line and complaint is made by.
std::size_t FormatLine(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

/// Whether a text is of printable ASCII alone.
bool IsPlainText(char const * pText, std::size_t nText);

inline constexpr std::size_t LINE_PREFIX_SIZE = 64;

/// What stands in front of a line of the main log, the outcome of "%8.3f\t%i\t", put so that it ends at pEnd: at most
/// LINE_PREFIX_SIZE - 1 characters, not terminated. Where it starts.
char * FormatLinePrefix(char * pEnd, float tPassed, int iFrame);
