// cwidepath_internal.h: paths in wide characters, as a host passes them.
#pragma once

#include <cstddef>
#include <cwchar>

inline constexpr std::size_t WIDE_PATH_SIZE = 1024;   // characters, with the terminator

/// Most bytes of such a path in UTF-8 (RFC 3629).
inline constexpr std::size_t WIDE_PATH_UTF8_SIZE = 4 * WIDE_PATH_SIZE;

/// Copies a path, cut at WIDE_PATH_SIZE - 1 characters. Null counts as empty.
inline void CopyWidePath(wchar_t (&wszTo)[WIDE_PATH_SIZE], wchar_t const * wszFrom)
{
    std::wcsncpy(wszTo, wszFrom ? wszFrom : L"", WIDE_PATH_SIZE - 1);
    wszTo[WIDE_PATH_SIZE - 1] = L'\0';
}
