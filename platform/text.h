// text.h: conversions between UTF-8 and wide text. The result is always terminated, and cut at a whole character.
#pragma once

#include <cstddef>

namespace plat
{
    /// A byte that starts no valid sequence becomes U+FFFD. Characters written, without the terminator.
    std::size_t WideFromUtf8(wchar_t * szOut, std::size_t nSize, char const * szText);

    /// A value that is no character becomes U+FFFD. Bytes written, without the terminator.
    std::size_t Utf8FromWide(char * szOut, std::size_t nSize, wchar_t const * szText);

    /// Whether all of the text is well-formed UTF-8.
    bool IsUtf8(char const * szText);
}
