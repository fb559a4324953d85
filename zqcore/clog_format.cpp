#include "zqcore/clog_format_internal.h"

#include "platform/bytes.h"
#include "platform/text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <string_view>

namespace
{
    constexpr float FIXED_LIMIT = 1e9f;   // seconds; snprintf prints times from here on

    // Returns how many of eight characters precede the first '%', or 8 without one. The test is A. Mycroft's for a zero
    // byte in a word (1987).
    std::ptrdiff_t LengthBeforePercent(std::uint64_t nText)
    {
        static_assert(std::endian::native == std::endian::little, "the first character is the lowest byte");
        std::uint64_t const nOther = nText ^ (plat::EACH_BYTE * '%');
        return std::countr_zero((nOther - plat::EACH_BYTE) & ~nOther & plat::HIGH_BITS) / 8;
    }

    // Returns a word in which some byte has its high bit set exactly if a byte of nText is below a blank or above '~'.
    // It need not be the same byte.
    std::uint64_t OthersIn(std::uint64_t nText)
    {
        return (nText - plat::EACH_BYTE * ' ') | nText | (nText + plat::EACH_BYTE);
    }

    // Returns plat::HIGH_BITS if a character is below a blank or above '~', otherwise 0.
    std::uint64_t OtherIn(char cText)
    {
        return static_cast<unsigned char>(cText - ' ') > '~' - ' ' ? plat::HIGH_BITS : 0;
    }

    bool IsPlain(std::uint64_t nOther)
    {
        return (nOther & plat::HIGH_BITS) == 0;
    }

    // A buffer that drops what does not fit and keeps space for the terminator.
    class Output_c
    {
    public:
        Output_c(char * szOut, std::size_t nSize)
            : m_pBegin(szOut)
            , m_pOut(szOut)
            , m_pEnd(szOut + nSize - 1)
        {}

        void Put(char const * pText, std::size_t nText)
        {
            std::size_t const nCopy = std::min(nText, static_cast<std::size_t>(m_pEnd - m_pOut));
            std::memcpy(m_pOut, pText, nCopy);
            m_pOut += nCopy;
        }

        // Appends a text that may hold other than plain characters, and checks it. The finished line is not checked:
        // that would wait for the stores of all its parts.
        void PutText(char const * szText)
        {
            std::size_t const nText = std::strlen(szText);
            m_nOther |= IsPlainText(szText, nText) ? 0 : plat::HIGH_BITS;
            Put(szText, nText);
        }

        // Returns whether all is plain that PutText, PutLiteral and PutCharacter appended. May return false for plain
        // texts. Numbers are plain. What the other functions append is not checked.
        bool IsPlain() const { return ::IsPlain(m_nOther); }

        // Appends the characters before the next '%', eight at a time. Returns where the '%' is, or pEnd.
        char const * PutLiteral(char const * pText, char const * pEnd)
        {
            constexpr std::ptrdiff_t WORD = sizeof(std::uint64_t);
            char * pOut = m_pOut;   // members would be read and written again at each character
            std::uint64_t nOther = m_nOther;
            std::ptrdiff_t nLiteral = WORD;
            while (nLiteral == WORD && pEnd - pText >= WORD && m_pEnd - pOut >= WORD)
            {
                std::uint64_t nWord;
                std::memcpy(&nWord, pText, WORD);
                std::memcpy(pOut, &nWord, WORD);
                nOther |= OthersIn(nWord);
                nLiteral = LengthBeforePercent(nWord);
                pText += nLiteral;
                pOut += nLiteral;
            }
            char const * const pLimit = m_pEnd;
            for (; pText != pEnd && *pText != '%'; ++pText)
            {
                nOther |= OtherIn(*pText);
                if (pOut != pLimit)
                {
                    *pOut++ = *pText;
                }
            }
            m_pOut = pOut;
            m_nOther = nOther;
            return pText;
        }

        // Appends a text from outside, escaped.
        void PutEscaped(char const * szText)
        {
            m_pOut +=
                plat::TextEscape(m_pOut, static_cast<std::size_t>(m_pEnd - m_pOut) + 1, szText, plat::Controls_e::None);
        }

        void PutCharacter(char cText)
        {
            m_nOther |= OtherIn(cText);
            if (m_pOut != m_pEnd)
            {
                *m_pOut++ = cText;
            }
        }

        template <typename NUMBER>
        void PutNumber(NUMBER nNumber, int nBase = 10)
        {
            char dDigits[32];
            if (auto const [pPut, eError] = std::to_chars(m_pOut, m_pEnd, nNumber, nBase); eError == std::errc())
            {
                m_pOut = pPut;
                return;
            }
            char const * const pEnd = std::to_chars(dDigits, dDigits + sizeof dDigits, nNumber, nBase).ptr;
            Put(dDigits, static_cast<std::size_t>(pEnd - dDigits));
        }

        // Appends one argument as the C library converts it.
        template <typename ARGUMENT>
        void PutConverted(char const * szConversion, ARGUMENT Argument)
        {
            std::size_t const nRoom = static_cast<std::size_t>(m_pEnd - m_pOut);
            int const nText = std::snprintf(m_pOut, nRoom + 1, szConversion, Argument);
            m_pOut += std::min(static_cast<std::size_t>(std::max(nText, 0)), nRoom);
        }

        // Returns the number of blanks before a wide text of at most nMost bytes that is padded to nWidth, at most
        // nRoom. The whole text counts, also what has no room.
        static std::size_t BlanksBefore(
            wchar_t const * wszText, std::size_t nMost, std::size_t nWidth, std::size_t nRoom)
        {
            std::size_t nText = 0;
            for (; *wszText && nText < nWidth; ++wszText)
            {
                bool const bPair =
                    sizeof(wchar_t) == sizeof(char16_t)
                    && plat::IsSurrogatePair(static_cast<char32_t>(wszText[0]), static_cast<char32_t>(wszText[1]));
                wchar_t const wszOne[] = { wszText[0], bPair ? wszText[1] : L'\0', L'\0' };
                char szOne[8];
                std::size_t const nOne = plat::Utf8FromWide(szOne, sizeof szOne, wszOne);
                if (nText + nOne > nMost)
                {
                    break;
                }
                nText += nOne;
                wszText += bPair ? 1 : 0;
            }
            return nText < nWidth ? std::min(nWidth - nText, nRoom) : 0;
        }

        // Appends wide text as at most nMost bytes of whole characters, padded with blanks to the width. A negative
        // width pads on the right.
        void PutWide(wchar_t const * wszText, std::size_t nMost, int nWidth)
        {
            std::size_t const nRoom = static_cast<std::size_t>(m_pEnd - m_pOut);
            std::size_t const nText = plat::Utf8FromWide(m_pOut, std::min(nMost, nRoom) + 1, wszText);
            auto const nPadded = static_cast<std::size_t>(std::abs(nWidth));
            std::size_t const nBlanks = nPadded > nText ? std::min(nPadded - nText, nRoom) : 0;
            if (nWidth > 0)
            {
                std::size_t const nBefore = nBlanks > 0 ? BlanksBefore(wszText, nMost, nPadded, nRoom) : 0;
                m_pOut = std::fill_n(m_pOut, nBefore, ' ');
                m_pOut += plat::Utf8FromWide(m_pOut, std::min(nMost, nRoom - nBefore) + 1, wszText);
            }
            else
            {
                m_pOut = std::fill_n(m_pOut + nText, std::min(nBlanks, nRoom - nText), ' ');
            }
        }

        // Ends the text and returns its length.
        std::size_t Terminate()
        {
            *m_pOut = '\0';
            return static_cast<std::size_t>(m_pOut - m_pBegin);
        }

    private:
        char * m_pBegin;
        char * m_pOut;
        char * m_pEnd;
        std::uint64_t m_nOther = 0;   // bitwise OR of OthersIn and OtherIn, over what IsPlain is about
    };

    // List of arguments. It is a member, because not every platform can pass a parameter of its type on by reference.
    struct Arguments_s
    {
        std::va_list args;
    };

    // Writes one conversion and moves pFormat after it. Returns false for a conversion that the fast path lacks, and
    // after a NUL of %c.
    template <bool ESCAPED>
    bool PutConversion(Output_c & Output, char const *& pFormat, Arguments_s & Arguments)
    {
        switch (*pFormat++)
        {
        case 's':
        {
            char const * const szText = va_arg(Arguments.args, char const *);
            char const * const szShown = szText ? szText : "(null)";
            if constexpr (ESCAPED)
            {
                Output.PutEscaped(szShown);
            }
            else
            {
                Output.PutText(szShown);
            }
            return true;
        }
        case 'c':
        {
            auto const cText = static_cast<char>(va_arg(Arguments.args, int));
            char const szShown[] = { cText, '\0' };
            if constexpr (ESCAPED)
            {
                Output.PutEscaped(szShown);
            }
            else
            {
                Output.PutCharacter(cText);
            }
            return cText != '\0';
        }
        case 'i':
        case 'd':
            Output.PutNumber(va_arg(Arguments.args, int));
            return true;
        case 'u':
            Output.PutNumber(va_arg(Arguments.args, unsigned));
            return true;
        case 'x':
            Output.PutNumber(va_arg(Arguments.args, unsigned), 16);
            return true;
        case '%':
            Output.PutCharacter('%');
            return true;
        case 'z':
            if (*pFormat++ == 'u')
            {
                Output.PutNumber(va_arg(Arguments.args, std::size_t));
                return true;
            }
            return false;
        default:
            return false;
        }
    }

    // Writes a number in decimal so that it ends at pEnd. Returns its start.
    char * PutDigitsBefore(char * pEnd, std::uint32_t nNumber)
    {
        do
        {
            *--pEnd = static_cast<char>('0' + nNumber % 10);
            nNumber /= 10;
        }
        while (nNumber != 0);
        return pEnd;
    }

    // The parts of one conversion of a format.
    struct Conversion_s
    {
        static constexpr int NONE = -1;
        static constexpr char FLAGS[] = "-+ #0'I";
        static constexpr char LENGTHS[] = "hlqjztL";

        char const * pFlags;
        std::size_t nFlags = 0;
        int nWidth = 0;   // negative: left-aligned
        int nPrecision = NONE;
        char const * pLength;   // hh, h, l, ll, q, j, z, t, L or nothing
        std::size_t nLength = 0;
        char cKind;   // NUL at the end of the format

        // Parses what follows a '%', reads the argument of each '*', and moves pFormat after the conversion.
        Conversion_s(char const *& pFormat, Arguments_s & Arguments)
            : pFlags(pFormat)
        {
            nFlags = std::strspn(pFormat, FLAGS);
            pFormat += nFlags;
            nWidth = std::max(TakeNumber(pFormat, Arguments), -std::numeric_limits<int>::max());
            if (std::memchr(pFlags, '-', nFlags) && nWidth > 0)
            {
                nWidth = -nWidth;
            }
            if (*pFormat == '.')
            {
                ++pFormat;
                nPrecision = std::max(TakeNumber(pFormat, Arguments), NONE);
            }
            pLength = pFormat;
            nLength = std::strspn(pFormat, LENGTHS);
            pFormat += nLength;
            cKind = *pFormat;
            pFormat += cKind != '\0';
        }

        bool IsWide() const
        {
            return cKind == 'S' || cKind == 'C' || ((cKind == 's' || cKind == 'c') && nLength == 1 && *pLength == 'l');
        }

        // Returns the size of an integer argument in bytes.
        std::size_t Bytes() const
        {
            switch (nLength == 2 && *pLength == 'l' ? 'q' : nLength == 1 ? *pLength : ' ')
            {
            case 'l':
                return sizeof(long);
            case 'z':
            case 't':
                return sizeof(std::size_t);
            case 'j':
            case 'q':
            case 'L':   // as the C library reads it before integers
                return sizeof(long long);
            default:
                return sizeof(int);
            }
        }

        // Writes the conversion with a number for each '*', and each of its flags once. A negative width has a '-' of
        // its own, beside that of the flags.
        void Spell(char * szOut, std::size_t nSize) const
        {
            Output_c Output(szOut, nSize);
            Output.PutCharacter('%');
            for (char const cFlag : std::string_view(FLAGS))
            {
                Output.Put(&cFlag, std::memchr(pFlags, cFlag, nFlags) ? 1 : 0);
            }
            if (nWidth != 0)
            {
                Output.PutNumber(nWidth);
            }
            if (nPrecision != NONE)
            {
                Output.PutCharacter('.');
                Output.PutNumber(nPrecision);
            }
            Output.Put(pLength, nLength);
            Output.PutCharacter(cKind);
            Output.Terminate();
        }

    private:
        // Moves pFormat after the '*' or the number that follows. Returns the argument of the '*', or the number, or 0
        // if neither follows.
        static int TakeNumber(char const *& pFormat, Arguments_s & Arguments)
        {
            if (*pFormat == '*')
            {
                ++pFormat;
                return va_arg(Arguments.args, int);
            }
            constexpr int LIMIT = 100000000;   // a digit more fits an int
            int nNumber = 0;
            for (; plat::IsDigit(*pFormat); ++pFormat)
            {
                nNumber = std::min(nNumber, LIMIT) * 10 + (*pFormat - '0');
            }
            return nNumber;
        }
    };

    // The promoted type of a wide character among variadic arguments.
    using PassedWide_t = decltype(+std::wint_t{});

    // Writes a conversion of wide text. The C library would stop at a character that the locale can't represent.
    void PutWideConversion(Output_c & Output, Conversion_s const & Conversion, Arguments_s & Arguments)
    {
        constexpr std::size_t UNLIMITED = SIZE_MAX - 1;
        if (Conversion.cKind == 'c' || Conversion.cKind == 'C')
        {
            wchar_t const wszCharacter[] = { static_cast<wchar_t>(va_arg(Arguments.args, PassedWide_t)), L'\0' };
            Output.PutWide(wszCharacter, UNLIMITED, Conversion.nWidth);
            return;
        }
        wchar_t const * const wszText = va_arg(Arguments.args, wchar_t const *);
        std::size_t const nMost =
            Conversion.nPrecision < 0 ? UNLIMITED : static_cast<std::size_t>(Conversion.nPrecision);
        Output.PutWide(wszText ? wszText : L"(null)", nMost, Conversion.nWidth);
    }

    // Writes a conversion that HasWide knows.
    void PutAnyConversion(Output_c & Output, Conversion_s const & Conversion, Arguments_s & Arguments)
    {
        char szConversion[64];
        Conversion.Spell(szConversion, sizeof szConversion);
        switch (Conversion.IsWide() ? 'S' : Conversion.cKind)
        {
        case 'S':
            return PutWideConversion(Output, Conversion, Arguments);
        case 'd':
        case 'i':
        case 'o':
        case 'u':
        case 'x':
        case 'X':
            if (Conversion.Bytes() == sizeof(long long))
            {
                return Output.PutConverted(szConversion, va_arg(Arguments.args, long long));
            }
            return Output.PutConverted(szConversion, va_arg(Arguments.args, int));
        case 'c':
            return Output.PutConverted(szConversion, va_arg(Arguments.args, int));
        case 's':
        case 'p':
            return Output.PutConverted(szConversion, va_arg(Arguments.args, void const *));
        case '%':
            return Output.PutCharacter('%');
        default:   // floating point
            if (*Conversion.pLength == 'L')
            {
                return Output.PutConverted(szConversion, va_arg(Arguments.args, long double));
            }
            return Output.PutConverted(szConversion, va_arg(Arguments.args, double));
        }
    }

    // Returns whether the format has wide text, and only conversions that this source knows.
    bool HasWide(char const * fmt)
    {
        bool bWide = false;
        while ((fmt = std::strchr(fmt, '%')) != nullptr)
        {
            ++fmt;
            std::size_t nModifiers = std::strspn(fmt, Conversion_s::FLAGS);
            nModifiers += std::strspn(fmt + nModifiers, "*.0123456789");
            nModifiers += std::strspn(fmt + nModifiers, Conversion_s::LENGTHS);
            char const cKind = fmt[nModifiers];
            bool const bText = cKind == 's' || cKind == 'c';
            bWide = bWide || cKind == 'S' || cKind == 'C' || (bText && nModifiers > 0 && fmt[nModifiers - 1] == 'l');
            if (cKind == '\0' || !std::strchr("diouxXceEfFgGaAspSC%", cKind))
            {
                return false;
            }
            fmt += nModifiers + 1;
        }
        return bWide;
    }

    // Serves all formats, on the slow path. Writes those that HasWide accepts itself, and all others by the C library.
    ZQ_COLD void FormatAny(char * szOut, std::size_t nSize, char const * fmt, std::va_list args)
    {
        if (!HasWide(fmt))
        {
            std::vsnprintf(szOut, nSize, fmt, args);
            return;
        }
        Output_c Output(szOut, nSize);
        Arguments_s Arguments;
        va_copy(Arguments.args, args);
        char const * const pEnd = fmt + std::strlen(fmt);
        char const * pFormat = Output.PutLiteral(fmt, pEnd);
        while (pFormat != pEnd)
        {
            ++pFormat;
            PutAnyConversion(Output, Conversion_s(pFormat, Arguments), Arguments);
            pFormat = Output.PutLiteral(pFormat, pEnd);
        }
        va_end(Arguments.args);
        Output.Terminate();
    }

    // Writes a format by PutConversion. Returns false as soon as that does.
    template <bool ESCAPED>
    bool FormatPlain(Output_c & Output, char const * fmt, Arguments_s & Arguments)
    {
        char const * const pEnd = fmt + std::strlen(fmt);
        for (char const * pFormat = fmt;;)
        {
            pFormat = Output.PutLiteral(pFormat, pEnd);
            if (pFormat == pEnd)
            {
                return true;
            }
            ++pFormat;
            if (!PutConversion<ESCAPED>(Output, pFormat, Arguments))
            {
                return false;
            }
        }
    }

    // Does what FormatText does, and sets bPlain to whether the whole text is known to be plain.
    std::size_t Format(char * szOut, std::size_t nSize, char const * fmt, std::va_list args, bool & bPlain)
    {
        Output_c Output(szOut, nSize);
        Arguments_s Arguments;
        va_copy(Arguments.args, args);
        bool const bSimple = FormatPlain<false>(Output, fmt, Arguments);
        va_end(Arguments.args);
        bPlain = bSimple && Output.IsPlain();
        if (bSimple)
        {
            return Output.Terminate();
        }
        FormatAny(szOut, nSize, fmt, args);
        szOut[nSize - 1] = '\0';
        return std::strlen(szOut);
    }
}

std::size_t FormatText(char * szOut, std::size_t nSize, char const * fmt, std::va_list args)
{
    bool bPlain;
    return Format(szOut, nSize, fmt, args, bPlain);
}

std::size_t FormatEscaped(char * szOut, std::size_t nSize, char const * fmt, std::va_list args)
{
    Output_c Output(szOut, nSize);
    Arguments_s Arguments;
    va_copy(Arguments.args, args);
    FormatPlain<true>(Output, fmt, Arguments);
    va_end(Arguments.args);
    return Output.Terminate();
}

bool IsPlainText(char const * pText, std::size_t nText)
{
    std::uint64_t nOther = 0;
    char const * const pEnd = pText + nText;
    for (; static_cast<std::size_t>(pEnd - pText) >= sizeof(std::uint64_t); pText += sizeof(std::uint64_t))
    {
        std::uint64_t nWord;
        std::memcpy(&nWord, pText, sizeof nWord);
        nOther |= OthersIn(nWord);
    }
    for (; pText != pEnd; ++pText)
    {
        nOther |= OtherIn(*pText);
    }
    return IsPlain(nOther);
}

namespace
{
    // Does what EscapeLine does, for a text that is not plain.
    ZQ_COLD std::size_t EscapeSlowly(char * szText, std::size_t nText, std::size_t nSize)
    {
        char szCopy[ESCAPED_SIZE];
        nText = std::min(nText, ESCAPED_SIZE - 1);
        std::memcpy(szCopy, szText, nText);
        szCopy[nText] = '\0';
        char const * szNext = szCopy;
        return plat::TextEscape(szText, nSize, szNext, plat::Controls_e::Layout);
    }

    // Does what FormatLinePrefix does, for any values.
    ZQ_COLD char * FormatLinePrefixSlowly(char * pEnd, float tPassed, int iFrame)
    {
        char szPrefix[LINE_PREFIX_SIZE];
        int const nText = std::snprintf(szPrefix, sizeof szPrefix, "%8.3f\t%i\t", static_cast<double>(tPassed), iFrame);
        return static_cast<char *>(std::memcpy(pEnd - nText, szPrefix, static_cast<std::size_t>(nText)));
    }
}

std::size_t EscapeLine(char * szText, std::size_t nText, std::size_t nSize)
{
    return IsPlainText(szText, nText) ? nText : EscapeSlowly(szText, nText, nSize);
}

std::size_t FormatLine(char * szOut, std::size_t nSize, char const * fmt, std::va_list args)
{
    bool bPlain;
    std::size_t const nText = Format(szOut, nSize, fmt, args, bPlain);
    return bPlain ? nText : EscapeLine(szOut, nText, nSize);
}

char * FormatLinePrefix(char * pEnd, float tPassed, int iFrame)
{
    if (std::signbit(tPassed) || !(tPassed < FIXED_LIMIT) || iFrame < 0)
    {
        return FormatLinePrefixSlowly(pEnd, tPassed, iFrame);
    }
    // A float times 1000 is exact in a double. Adding 1.5 times 2 to the 52nd leaves no room for a fraction, and rounds
    // to the nearest whole number, halves to the even one, as printf does.
    constexpr double SHIFT = 6755399441055744.0;
    constexpr std::ptrdiff_t SECONDS_WIDTH = 4;
    auto const nMilliseconds = static_cast<std::uint64_t>(static_cast<double>(tPassed) * 1000.0 + SHIFT - SHIFT);
    auto const nSeconds = static_cast<std::uint32_t>(nMilliseconds / 1000);
    auto const nRest = static_cast<std::uint32_t>(nMilliseconds % 1000);
    char * pStart = pEnd;
    *--pStart = '\t';
    pStart = PutDigitsBefore(pStart, static_cast<std::uint32_t>(iFrame));
    *--pStart = '\t';
    *--pStart = static_cast<char>('0' + nRest % 10);
    *--pStart = static_cast<char>('0' + nRest / 10 % 10);
    *--pStart = static_cast<char>('0' + nRest / 100);
    *--pStart = '.';
    char const * const pPoint = pStart;
    pStart = PutDigitsBefore(pStart, nSeconds);
    while (pPoint - pStart < SECONDS_WIDTH)
    {
        *--pStart = ' ';
    }
    return pStart;
}
