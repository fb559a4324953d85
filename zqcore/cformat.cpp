#include "zqcore/cformat_internal.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace
{
    constexpr float FIXED_LIMIT = 1e9f;   // seconds up to which a time is printed by hand

    // How many of eight characters stand ahead of the first '%'.
    std::ptrdiff_t AheadOfPercent(std::uint64_t iText)
    {
        static_assert(std::endian::native == std::endian::little, "the first character is the lowest byte");
        constexpr std::uint64_t EACH = 0x0101010101010101u;
        std::uint64_t const iOther = iText ^ (EACH * '%');
        return std::countr_zero((iOther - EACH) & ~iOther & (EACH * 0x80)) / 8;
    }

    // A buffer that takes what fits, and keeps room for the terminator.
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

        // Puts what stands ahead of the next '%', eight characters at a time; where that is, or pEnd.
        char const * PutLiteral(char const * pText, char const * pEnd)
        {
            constexpr std::ptrdiff_t WORD = sizeof(std::uint64_t);
            while (pEnd - pText >= WORD && m_pEnd - m_pOut >= WORD)
            {
                std::uint64_t iText;
                std::memcpy(&iText, pText, WORD);
                std::memcpy(m_pOut, &iText, WORD);
                std::ptrdiff_t const nAhead = AheadOfPercent(iText);
                pText += nAhead;
                m_pOut += nAhead;
                if (nAhead < WORD)
                {
                    return pText;
                }
            }
            for (; pText != pEnd && *pText != '%'; ++pText)
            {
                PutCharacter(*pText);
            }
            return pText;
        }

        void PutCharacter(char c)
        {
            if (m_pOut != m_pEnd)
            {
                *m_pOut++ = c;
            }
        }

        template <typename NUMBER>
        void PutNumber(NUMBER iNumber, int iBase = 10)
        {
            char szDigits[32];
            if (auto const [pPut, eError] = std::to_chars(m_pOut, m_pEnd, iNumber, iBase); eError == std::errc())
            {
                m_pOut = pPut;
                return;
            }
            char const * const pEnd = std::to_chars(szDigits, szDigits + sizeof szDigits, iNumber, iBase).ptr;
            Put(szDigits, static_cast<std::size_t>(pEnd - szDigits));
        }

        std::size_t Terminate()
        {
            *m_pOut = '\0';
            return static_cast<std::size_t>(m_pOut - m_pBegin);
        }

    private:
        char * m_pBegin;
        char * m_pOut;
        char * m_pEnd;
    };

    // va_list as a member: a parameter of that type can't be passed on by reference everywhere.
    struct Arguments_s
    {
        std::va_list args;
    };

    // Writes one conversion and moves behind it; false if it is not of the plain kind.
    bool PutConversion(Output_c & Output, char const *& pFormat, Arguments_s & Arguments)
    {
        switch (*pFormat++)
        {
        case 's':
        {
            char const * const szText = va_arg(Arguments.args, char const *);
            char const * const szShown = szText ? szText : "(null)";
            Output.Put(szShown, std::strlen(szShown));
            return true;
        }
        case 'c':
        {
            auto const c = static_cast<char>(va_arg(Arguments.args, int));
            Output.PutCharacter(c);
            return c != '\0';
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

    char * PutDigitsAhead(char * pEnd, std::uint32_t i)
    {
        do
        {
            *--pEnd = static_cast<char>('0' + i % 10);
            i /= 10;
        }
        while (i != 0);
        return pEnd;
    }

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
            if (!PutConversion(Output, pFormat, Arguments))
            {
                return false;
            }
        }
    }
}

std::size_t FormatText(char * szOut, std::size_t nSize, char const * fmt, std::va_list args)
{
    Output_c Output(szOut, nSize);
    Arguments_s Arguments;
    va_copy(Arguments.args, args);
    bool const bPlain = FormatPlain(Output, fmt, Arguments);
    va_end(Arguments.args);
    if (bPlain)
    {
        return Output.Terminate();
    }
    std::vsnprintf(szOut, nSize, fmt, args);
    szOut[nSize - 1] = '\0';
    return std::strlen(szOut);
}

char * FormatLinePrefix(char * pEnd, float tPassed, int iFrame)
{
    if (std::signbit(tPassed) || !(tPassed < FIXED_LIMIT) || iFrame < 0)
    {
        char szPrefix[LINE_PREFIX_SIZE];
        int const n = std::snprintf(szPrefix, sizeof szPrefix, "%8.3f\t%i\t", static_cast<double>(tPassed), iFrame);
        return static_cast<char *>(std::memcpy(pEnd - n, szPrefix, static_cast<std::size_t>(n)));
    }
    // A float times 1000 is exact in a double. Adding 1.5 times 2 to the 52nd leaves no room for a fraction, and rounds
    // to even as printf does.
    constexpr double SHIFT = 6755399441055744.0;
    constexpr std::ptrdiff_t SECONDS_WIDTH = 4;
    auto const nMilliseconds = static_cast<std::uint64_t>(static_cast<double>(tPassed) * 1000.0 + SHIFT - SHIFT);
    auto const nSeconds = static_cast<std::uint32_t>(nMilliseconds / 1000);
    auto const nRest = static_cast<std::uint32_t>(nMilliseconds % 1000);
    char * p = pEnd;
    *--p = '\t';
    p = PutDigitsAhead(p, static_cast<std::uint32_t>(iFrame));
    *--p = '\t';
    *--p = static_cast<char>('0' + nRest % 10);
    *--p = static_cast<char>('0' + nRest / 10 % 10);
    *--p = static_cast<char>('0' + nRest / 100);
    *--p = '.';
    char const * const pPoint = p;
    p = PutDigitsAhead(p, nSeconds);
    while (pPoint - p < SECONDS_WIDTH)
    {
        *--p = ' ';
    }
    return p;
}
