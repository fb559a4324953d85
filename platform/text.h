// text.h: conversions between UTF-8 and wide text, and tests of characters.
//
// A text that is written is terminated unless nSize is 0, and is cut between whole characters. nSize counts the
// elements of the output, wide characters or bytes, with the terminator.
//
// Paths need not be UTF-8. A byte that starts no valid sequence becomes the wide value WIDE_OF_BYTE + byte, which no
// character has. Utf8FromWide converts that value back to the byte.
#pragma once

#include <cstddef>

namespace plat
{
    /// Surrogates of UTF-16 (RFC 2781): a character from FIRST_OF_TWO on is a high one, then a low one.
    inline constexpr char32_t FIRST_HIGH_SURROGATE = 0xD800;
    inline constexpr char32_t FIRST_LOW_SURROGATE = 0xDC00;
    inline constexpr char32_t AFTER_SURROGATES = 0xE000;
    inline constexpr char32_t FIRST_OF_TWO = 0x10000;
    inline constexpr char32_t LAST_CHARACTER = 0x10FFFF;   // of Unicode

    inline constexpr char32_t WIDE_OF_BYTE = FIRST_LOW_SURROGATE;   // to which a byte from 0x80 on is added

    /// Digits of decimal numbers in ASCII, each at the index of its value.
    inline constexpr char DECIMAL_DIGITS[] = "0123456789";

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

    /// Returns whether a character is a decimal digit of ASCII.
    constexpr bool IsDigit(char cText)
    {
        return cText >= '0' && cText <= '9';
    }

    /// Returns the value of a hexadecimal digit, or -1 for any other character.
    constexpr int HexDigitValue(char cText)
    {
        return IsDigit(cText)                 ? cText - '0'
               : cText >= 'A' && cText <= 'F' ? cText - 'A' + 10
               : cText >= 'a' && cText <= 'f' ? cText - 'a' + 10
                                              : -1;
    }

    /// Returns whether a byte belongs to a UTF-8 character (RFC 3629) and is not its first.
    constexpr bool ContinuesUtf8(char cByte)
    {
        return (static_cast<unsigned char>(cByte) & 0xC0) == 0x80;
    }

    /// Returns whether a value is a surrogate, high or low.
    constexpr bool IsSurrogate(char32_t cValue)
    {
        return cValue >= FIRST_HIGH_SURROGATE && cValue < AFTER_SURROGATES;
    }

    /// Returns whether two units of UTF-16 are a high surrogate and a low one.
    constexpr bool IsSurrogatePair(char32_t cHigh, char32_t cLow)
    {
        return cHigh >= FIRST_HIGH_SURROGATE && cHigh < FIRST_LOW_SURROGATE && cLow >= FIRST_LOW_SURROGATE
               && cLow < AFTER_SURROGATES;
    }

    /// Returns the character of a pair of surrogates.
    constexpr char32_t CharacterFromPair(char32_t cHigh, char32_t cLow)
    {
        return FIRST_OF_TWO + ((cHigh - FIRST_HIGH_SURROGATE) << 10) + (cLow - FIRST_LOW_SURROGATE);
    }

    /// Writes a character as one or two units of UTF-16. Returns the number of units. Requires room for two.
    template <typename UNIT>
    constexpr std::size_t PutUtf16(UNIT * pOut, char32_t cText)
    {
        if (cText < FIRST_OF_TWO)
        {
            pOut[0] = static_cast<UNIT>(cText);
            return 1;
        }
        pOut[0] = static_cast<UNIT>(FIRST_HIGH_SURROGATE + ((cText - FIRST_OF_TWO) >> 10));
        pOut[1] = static_cast<UNIT>(FIRST_LOW_SURROGATE + ((cText - FIRST_OF_TWO) & 0x3FF));
        return 2;
    }

    /// Converts UTF-8 to wide text. Returns the number of wide characters written, without the terminator.
    std::size_t WideFromUtf8(wchar_t * wszOut, std::size_t nSize, char const * szText);

    /// Converts wide text to UTF-8. A value that is neither a character nor a byte's becomes U+FFFD. Does not read on
    /// once the output is full. Returns the number of bytes written, without the terminator.
    std::size_t Utf8FromWide(char * szOut, std::size_t nSize, wchar_t const * wszText);

    /// Copies a text so that it can't control a terminal or viewer. These are written as escapes:
    /// - control characters (C0, C1, DEL) that eControls does not leave, as `\n`, `\r`, `\t`, `\x1B` or `\u009B`
    /// - characters that end lines, or that embed, override or isolate a direction of writing, as `\u2028`
    /// - a byte that is not UTF-8, as `\xFF`
    ///
    /// All else is copied unchanged, including `\`. Copies the whole characters and escapes that fit, and moves szText
    /// after them. An nSize of 7 or more always has room for one. Returns the number of bytes written, without the
    /// terminator.
    std::size_t TextEscape(char * szOut, std::size_t nSize, char const *& szText, Controls_e eControls);

    /// Returns whether all of the text is well-formed UTF-8.
    bool IsUtf8(char const * szText);
}
