// text.h: conversions between UTF-8 and wide text.
//
// The result is terminated unless nSize is 0, and is cut between whole characters. nSize counts the elements of the
// output, wide characters or bytes, with the terminator.
//
// Paths need not be UTF-8. A byte that starts no valid sequence becomes the wide value WIDE_OF_BYTE + byte, which no
// character has. Utf8FromWide converts that value back to the byte.
#pragma once

#include <cstddef>

namespace plat
{
    inline constexpr char32_t WIDE_OF_BYTE = 0xDC00;   // to which a byte from 0x80 on is added

    /// Digits of hexadecimal numbers: those that are written, in capitals or not, and all that are read.
    inline constexpr char HEX_DIGITS[] = "0123456789ABCDEF";
    inline constexpr char LOWER_HEX_DIGITS[] = "0123456789abcdef";
    inline constexpr char ALL_HEX_DIGITS[] = "0123456789abcdefABCDEF";

    /// The control characters that TextEscape leaves as they are.
    enum class Controls_e
    {
        None,   // for a name, or any other text that must stay on one line
        Tabs,
        Layout   // tabs and line ends, for a text of several lines
    };

    /// Returns whether a character ends a line, or embeds, overrides or isolates a direction of writing (Unicode
    /// Standard Annex 9).
    constexpr bool TurnsText(char32_t cText)
    {
        return (cText >= 0x2028 && cText <= 0x202E) || (cText >= 0x2066 && cText <= 0x2069);
    }

    /// Converts UTF-8 to wide text. Returns the number of wide characters written, without the terminator.
    std::size_t WideFromUtf8(wchar_t * wszOut, std::size_t nSize, char const * szText);

    /// Converts wide text to UTF-8. A value that is neither a character nor a byte's becomes U+FFFD. Does not read on
    /// once the output is full. Returns the number of bytes written, without the terminator.
    std::size_t Utf8FromWide(char * szOut, std::size_t nSize, wchar_t const * wszText);

    /// Copies a text so that it can't control a terminal or viewer. These are written as escapes:
    /// - control characters (C0, C1, DEL) that eControls does not leave, as `\n`, `\r`, `\t`, `\x1B` or `\u009B`;
    /// - characters that end lines, or that embed, override or isolate a direction of writing, as `\u2028`;
    /// - a byte that is not UTF-8, as `\xFF`.
    ///
    /// All else is copied unchanged, including `\`. Copies the whole characters and escapes that fit, and moves szText
    /// after them. An nSize of 7 or more always has room for one. Returns the number of bytes written, without the
    /// terminator.
    std::size_t TextEscape(char * szOut, std::size_t nSize, char const *& szText, Controls_e eControls);

    /// Returns whether all of the text is well-formed UTF-8.
    bool IsUtf8(char const * szText);
}
