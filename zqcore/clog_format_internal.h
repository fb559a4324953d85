// clog_format_internal.h: printf's formatting, with a fast path for what log lines are made of.
#pragma once

#include "zqcore/cconfig.h"

#include <cstdarg>

/// Bytes that hold any text that FormatLinePrefix writes, with space for a terminator.
inline constexpr std::size_t LINE_PREFIX_SIZE = 64;

/// Bytes of the longest text that EscapeLine handles, with the terminator.
inline constexpr std::size_t ESCAPED_SIZE = 16384;

/// Formats like vsnprintf, and allocates nothing itself. Returns the length up to the first NUL, at most nSize - 1.
/// Wide text becomes UTF-8 in every locale, unless fmt has %n or another conversion that the slow path does not know. A
/// wide value that is no character becomes U+FFFD, except a byte of a path (platform/text.h). The fast path serves
/// plain %s, %c, %i, %d, %u, %x, %zu and %%. Requires that nSize is above 0.
std::size_t FormatText(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

/// Formats as FormatText does, for texts from outside, and returns the length. What %s and %c insert is escaped whole,
/// line ends too, as in TextForLog. Supports the conversions of the fast path only. Any other ends the text, and so
/// does a NUL of %c.
std::size_t FormatEscaped(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

/// Escapes in place what no line may hold: all that TextForLog escapes except tabs and line ends. Returns the length.
/// A text that grows too long is cut at a whole character. A plain line costs one test for each 8 bytes. Requires that
/// the text ends after nText bytes, in a buffer of nSize bytes, and that nSize is at most ESCAPED_SIZE.
std::size_t EscapeLine(char * szText, std::size_t nText, std::size_t nSize);

/// Formats as FormatText does, then escapes with EscapeLine, and returns the length. Formats complaints and log
/// lines, except what FormatEscaped formats. Requires that nSize is above 0 and at most ESCAPED_SIZE.
std::size_t FormatLine(char * szOut, std::size_t nSize, char const * fmt, std::va_list args) ZQ_PRINTF(3, 0);

/// Calls FormatLine with the arguments after fmt, which is a parameter of the variadic function that uses this. It is a
/// macro, because only that function itself can reach its arguments.
#define ZQ_FORMAT_LINE(szOut, nSize, fmt)                                                                              \
    do                                                                                                                 \
    {                                                                                                                  \
        std::va_list args;                                                                                             \
        va_start(args, fmt);                                                                                           \
        FormatLine(szOut, nSize, fmt, args);                                                                           \
        va_end(args);                                                                                                  \
    }                                                                                                                  \
    while (false)

/// Returns whether a text consists of printable ASCII characters.
bool IsPlainText(char const * pText, std::size_t nText);

/// Writes the start of a line of the main log, as "%8.3f\t%i\t" formats it, so that it ends at pEnd. Returns where it
/// begins. It has at most LINE_PREFIX_SIZE - 1 characters and no terminator. tPassed is in seconds. Requires that the
/// buffer has LINE_PREFIX_SIZE - 1 bytes before pEnd.
char * FormatLinePrefix(char * pEnd, float tPassed, int iFrame);
