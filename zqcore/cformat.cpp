#include "zqcore/cformat_internal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace
{
    constexpr float FIXED_LIMIT = 1e9f;   // seconds up to which a time is printed by hand

    // Digits of a number that is not negative, written towards the front; where they begin.
    char * DigitsBefore(char * pEnd, std::uint64_t n, int nAtLeast)
    {
        for (; n != 0 || nAtLeast > 0; n /= 10, --nAtLeast)
        {
            *--pEnd = static_cast<char>('0' + n % 10);
        }
        return pEnd;
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

        template <typename NUMBER>
        void PutNumber(NUMBER iNumber, int iBase = 10)
        {
            char szDigits[32];
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
            Output.Put(&c, 1);
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
            Output.Put("%", 1);
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

    bool FormatPlain(Output_c & Output, char const * fmt, Arguments_s & Arguments)
    {
        for (char const * pFormat = fmt;;)
        {
            char const * const pPercent = std::strchr(pFormat, '%');
            std::size_t const nText = pPercent ? static_cast<std::size_t>(pPercent - pFormat) : std::strlen(pFormat);
            Output.Put(pFormat, nText);
            if (!pPercent)
            {
                return true;
            }
            pFormat = pPercent + 1;
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
    int const n = std::vsnprintf(szOut, nSize, fmt, args);
    szOut[nSize - 1] = '\0';
    return n < 0 ? std::strlen(szOut) : std::min(static_cast<std::size_t>(n), nSize - 1);
}

std::size_t FormatLinePrefix(char * szOut, float tPassed, int iFrame)
{
    if (std::signbit(tPassed) || !(tPassed < FIXED_LIMIT) || iFrame < 0)
    {
        int const n = std::snprintf(szOut, LINE_PREFIX_SIZE, "%8.3f\t%i\t", static_cast<double>(tPassed), iFrame);
        return static_cast<std::size_t>(n);
    }
    // A float times 1000 is exact in a double. Adding 1.5 times 2 to the 52nd leaves no room for a fraction, and rounds
    // to even as printf does.
    constexpr double SHIFT = 6755399441055744.0;
    auto const nMilliseconds = static_cast<std::uint64_t>(static_cast<double>(tPassed) * 1000.0 + SHIFT - SHIFT);
    char szDigits[LINE_PREFIX_SIZE];
    char * const pEnd = szDigits + LINE_PREFIX_SIZE;
    char * p = pEnd;
    *--p = '\t';
    p = DigitsBefore(p, static_cast<std::uint64_t>(iFrame), 1);
    *--p = '\t';
    char const * const pTimeEnd = p;
    p = DigitsBefore(p, nMilliseconds % 1000, 3);
    *--p = '.';
    p = DigitsBefore(p, nMilliseconds / 1000, 1);
    while (pTimeEnd - p < 8)
    {
        *--p = ' ';
    }
    auto const nLength = static_cast<std::size_t>(pEnd - p);
    std::memcpy(szOut, p, nLength);
    return nLength;
}
