#include "platform/text.h"

namespace plat
{
    namespace
    {
        constexpr char32_t REPLACEMENT = 0xFFFD;   // of Unicode

        constexpr bool WIDE_IS_UTF16 = sizeof(wchar_t) == 2;

        // Returns whether a value represents a byte.
        bool IsByte(char32_t cText)
        {
            return cText >= WIDE_OF_BYTE + 0x80 && cText <= WIDE_OF_BYTE + 0xFF;
        }

        // The forms of UTF-8 (RFC 3629), by the number of bytes that follow the first.
        struct Form_s
        {
            unsigned char cMask, cLead;   // the first byte's fixed bits
            int nFollowing;
            char32_t cFirst;   // a smaller value must use a shorter form
        };
        constexpr Form_s FORMS[] = { { 0x80, 0x00, 0, 0 }, { 0xE0, 0xC0, 1, 0x80 }, { 0xF0, 0xE0, 2, 0x800 },
            { 0xF8, 0xF0, 3, FIRST_OF_TWO } };
        constexpr unsigned char LAST_LEAD = 0xF7;   // a first byte is at most this

        // Reads the character at pText, moves after it and returns true. At a byte that starts no character, reads the
        // value that represents this byte, moves after it and returns false.
        bool ReadUtf8(unsigned char const *& pText, char32_t & cText)
        {
            unsigned char const * pByte = pText++;
            if (*pByte < 0x80)
            {
                cText = *pByte;
                return true;
            }
            cText = WIDE_OF_BYTE + *pByte;
            if (*pByte < FORMS[1].cLead || *pByte > LAST_LEAD)
            {
                return false;
            }
            Form_s const & Form = FORMS[*pByte < FORMS[2].cLead ? 1 : *pByte < FORMS[3].cLead ? 2 : 3];
            char32_t cValue = *pByte++ & static_cast<unsigned char>(~Form.cMask);
            for (int iByte = 0; iByte < Form.nFollowing; ++iByte, ++pByte)
            {
                if (!ContinuesUtf8(static_cast<char>(*pByte)))
                {
                    return false;
                }
                cValue = (cValue << 6) | (*pByte & 0x3Fu);
            }
            if (cValue < Form.cFirst || cValue > LAST_CHARACTER || IsSurrogate(cValue))
            {
                return false;
            }
            cText = cValue;
            pText = pByte;
            return true;
        }

        // Moves after the character at wszText, or after the value that represents a byte, and returns it. Returns
        // U+FFFD for any other value.
        char32_t ReadWide(wchar_t const *& wszText)
        {
            char32_t const cValue = static_cast<char32_t>(*wszText++);
            char32_t const cNext = WIDE_IS_UTF16 ? static_cast<char32_t>(*wszText) : 0;
            if (IsSurrogatePair(cValue, cNext))
            {
                ++wszText;
                return CharacterFromPair(cValue, cNext);
            }
            bool const bValid = cValue <= LAST_CHARACTER && (!IsSurrogate(cValue) || IsByte(cValue));
            return bValid ? cValue : REPLACEMENT;
        }

        // Writes a character, or the byte that a value represents, in at most 4 bytes. Returns the number of bytes.
        std::size_t PutUtf8(char * pOut, char32_t cText)
        {
            if (IsByte(cText))
            {
                pOut[0] = static_cast<char>(cText - WIDE_OF_BYTE);
                return 1;
            }
            int nFollowing = 3;
            while (cText < FORMS[nFollowing].cFirst)
            {
                --nFollowing;
            }
            pOut[0] = static_cast<char>(FORMS[nFollowing].cLead | (cText >> (6 * nFollowing)));
            for (int iByte = 1; iByte <= nFollowing; ++iByte)
            {
                pOut[iByte] = static_cast<char>(0x80 | ((cText >> (6 * (nFollowing - iByte))) & 0x3F));
            }
            return static_cast<std::size_t>(nFollowing) + 1;
        }

        // Writes a character as one wide unit, or as one or two units of UTF-16. Returns the number of units.
        std::size_t PutWide(wchar_t * pOut, char32_t cText)
        {
            if constexpr (WIDE_IS_UTF16)
            {
                return PutUtf16(pOut, cText);
            }
            pOut[0] = static_cast<wchar_t>(cText);
            return 1;
        }

        // Appends nUnits to nUsed units if the terminator still fits after them. Returns whether they fit.
        template <typename CHAR>
        bool Append(CHAR * szOut, std::size_t nSize, std::size_t & nUsed, CHAR const * pUnits, std::size_t nUnits)
        {
            if (nUsed + nUnits >= nSize)
            {
                return false;
            }
            for (std::size_t iUnit = 0; iUnit < nUnits; ++iUnit)
            {
                szOut[nUsed++] = pUnits[iUnit];
            }
            return true;
        }

        // Returns whether a character ends a line, or embeds, overrides or isolates a direction of writing (Unicode
        // Standard Annex 9).
        bool EndsOrTurnsLine(char32_t cText)
        {
            return (cText >= 0x2028 && cText <= 0x202E) || (cText >= 0x2066 && cText <= 0x2069);
        }

        // Returns whether a byte is a printable ASCII character.
        bool IsPrintable(char cByte)
        {
            return cByte >= ' ' && cByte < 0x7F;
        }

        // Returns whether TextEscape leaves a character, or the value of a byte, unchanged.
        bool IsShown(char32_t cText, Controls_e eControls)
        {
            if (cText < ' ')
            {
                bool const bLayout = cText == '\t' || cText == '\r' || cText == '\n';
                return (cText == '\t' && eControls == Controls_e::Tabs) || (bLayout && eControls == Controls_e::Layout);
            }
            bool const bControl = cText >= 0x7F && cText <= 0x9F;
            return !bControl && !EndsOrTurnsLine(cText) && !IsByte(cText);
        }

        // Writes the escape of a character or of a byte's value. Returns the number of bytes, at most 6. Requires that
        // the character is at most U+FFFF.
        std::size_t PutEscape(char * pOut, char32_t cText)
        {
            constexpr char LETTERS[] = "tnvfr";   // from 0x09 on
            pOut[0] = '\\';
            if (cText == '\t' || cText == '\n' || cText == '\r')
            {
                pOut[1] = LETTERS[cText - '\t'];
                return 2;
            }
            bool const bOneByte = cText < 0x80 || IsByte(cText);
            std::size_t const nDigits = bOneByte ? 2 : 4;
            char32_t const nValue = IsByte(cText) ? cText - WIDE_OF_BYTE : cText;
            pOut[1] = bOneByte ? 'x' : 'u';
            for (std::size_t i = 0; i < nDigits; ++i)
            {
                pOut[2 + i] = HEX_DIGITS[nValue >> (4 * (nDigits - 1 - i)) & 0xF];
            }
            return 2 + nDigits;
        }

        // Writes the terminator after nUsed units, unless the buffer has no room at all.
        template <typename CHAR>
        void Terminate(CHAR * szOut, std::size_t nSize, std::size_t nUsed)
        {
            if (nSize > 0)
            {
                szOut[nUsed] = 0;
            }
        }
    }

    std::size_t WideFromUtf8(wchar_t * wszOut, std::size_t nSize, char const * szText)
    {
        unsigned char const * pText = reinterpret_cast<unsigned char const *>(szText);
        std::size_t nUsed = 0;
        while (*pText != 0)
        {
            char32_t cText;
            wchar_t dUnits[2];
            ReadUtf8(pText, cText);
            if (!Append(wszOut, nSize, nUsed, dUnits, PutWide(dUnits, cText)))
            {
                break;
            }
        }
        Terminate(wszOut, nSize, nUsed);
        return nUsed;
    }

    std::size_t Utf8FromWide(char * szOut, std::size_t nSize, wchar_t const * wszText)
    {
        std::size_t nUsed = 0;
        while (nUsed + 1 < nSize && *wszText != 0)
        {
            char dBytes[4];
            std::size_t const nBytes = PutUtf8(dBytes, ReadWide(wszText));
            if (!Append(szOut, nSize, nUsed, dBytes, nBytes))
            {
                break;
            }
        }
        Terminate(szOut, nSize, nUsed);
        return nUsed;
    }

    std::size_t TextEscape(char * szOut, std::size_t nSize, char const *& szText, Controls_e eControls)
    {
        std::size_t nUsed = 0;
        while (*szText != 0)
        {
            if (nUsed + 1 < nSize && IsPrintable(*szText))
            {
                szOut[nUsed++] = *szText++;
                continue;
            }
            auto const * pNext = reinterpret_cast<unsigned char const *>(szText);
            char32_t cText;
            ReadUtf8(pNext, cText);
            auto const * const pEnd = reinterpret_cast<char const *>(pNext);
            char dEscape[6];
            bool const bShown = IsShown(cText, eControls);
            std::size_t const nUnits = bShown ? static_cast<std::size_t>(pEnd - szText) : PutEscape(dEscape, cText);
            if (!Append(szOut, nSize, nUsed, bShown ? szText : static_cast<char const *>(dEscape), nUnits))
            {
                break;
            }
            szText = pEnd;
        }
        Terminate(szOut, nSize, nUsed);
        return nUsed;
    }

    bool IsUtf8(char const * szText)
    {
        unsigned char const * pText = reinterpret_cast<unsigned char const *>(szText);
        char32_t cText;
        bool bValid = true;
        while (bValid && *pText != 0)
        {
            bValid = ReadUtf8(pText, cText);
        }
        return bValid;
    }
}
