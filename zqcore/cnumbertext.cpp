#include "zqcore/cnumbertext_internal.h"

#include "zqcore/cstring.h"

#include "platform/text.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{
    // Sets bNegative to whether a number's sign is a minus. Returns its text after leading blanks and the sign.
    char const * SkipSign(char const * szText, bool & bNegative)
    {
        while (*szText == ' ' || (*szText >= '\t' && *szText <= '\r'))
        {
            ++szText;
        }
        bNegative = *szText == '-';
        return szText + (*szText == '-' || *szText == '+');
    }

    // Returns the end of a number whose digits follow 0x, or null if there are no digits.
    char const * HexEnd(char const * pDigits)
    {
        std::size_t const nWhole = std::strspn(pDigits, plat::ALL_HEX_DIGITS);
        std::size_t const nFraction =
            pDigits[nWhole] == '.' ? std::strspn(pDigits + nWhole + 1, plat::ALL_HEX_DIGITS) : 0;
        if (nWhole + nFraction == 0)
        {
            return nullptr;
        }
        char const * const pEnd = pDigits + nWhole + (pDigits[nWhole] == '.' ? 1 + nFraction : 0);
        if (CharToLower(*pEnd) != 'p')
        {
            return pEnd;
        }
        char const * const pExponent = pEnd + 1 + (pEnd[1] == '-' || pEnd[1] == '+');
        return plat::IsDigit(*pExponent) ? pExponent + std::strspn(pExponent, plat::DECIMAL_DIGITS) : pEnd;
    }

    // Returns whether a number outside the range of a double is too large, not too small. The place of its first
    // nonzero digit and its exponent decide.
    bool IsTooLarge(char const * pNumber, char const * pEnd, bool bHex)
    {
        char const * const szDigits = bHex ? plat::ALL_HEX_DIGITS : plat::DECIMAL_DIGITS;
        char const * const pFirst = pNumber + std::strspn(pNumber, "0");
        auto nPlaces = static_cast<std::ptrdiff_t>(std::strspn(pFirst, szDigits));
        if (nPlaces == 0)
        {
            nPlaces = -static_cast<std::ptrdiff_t>(std::strspn(pFirst + 1, "0"));
        }
        char const * pExponent = pFirst + std::strcspn(pFirst, bHex ? "pP" : "eE");
        int iExponent = 0;
        if (pExponent < pEnd)
        {
            pExponent += pExponent[1] == '+' ? 2 : 1;
            if (std::from_chars(pExponent, pEnd, iExponent).ec == std::errc::result_out_of_range)
            {
                iExponent = *pExponent == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
            }
        }
        return iExponent + (bHex ? 4 : 1) * static_cast<double>(nPlaces) > 0;
    }

    template <typename T>
    NumberEnd_t ReadInteger(char const * szText, T & iValue)
    {
        bool bNegative;
        char const * const pDigits = SkipSign(szText, bNegative);
        iValue = 0;
        if (!plat::IsDigit(*pDigits))
        {
            return { szText, true };
        }
        auto const Result = std::from_chars(pDigits - bNegative, pDigits + std::strlen(pDigits), iValue);
        if (Result.ec == std::errc::result_out_of_range)
        {
            iValue = bNegative ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
        }
        return { Result.ptr, Result.ec == std::errc{} };
    }
}

NumberEnd_t TextToDouble(char const * szText, double & fValue)
{
    bool bNegative;
    char const * const pNumber = SkipSign(szText, bNegative);
    fValue = 0;
    if (*pNumber == '-')
    {
        return { szText, true };   // a second sign, which from_chars would accept
    }
    // from_chars gets the exact end of a hexadecimal number, because libstdc++ accepts signs that strtod does not.
    char const * const pHexEnd = pNumber[0] == '0' && CharToLower(pNumber[1]) == 'x' ? HexEnd(pNumber + 2) : nullptr;
    auto const Result = pHexEnd ? std::from_chars(pNumber + 2, pHexEnd, fValue, std::chars_format::hex)
                                : std::from_chars(pNumber, pNumber + std::strlen(pNumber), fValue);
    if (Result.ec == std::errc::invalid_argument)
    {
        return { szText, true };
    }
    bool bInRange = fValue == 0 || std::fabs(fValue) >= DBL_MIN || std::isnan(fValue);
    if (Result.ec == std::errc::result_out_of_range)
    {
        bInRange = false;
        fValue = IsTooLarge(pNumber + (pHexEnd ? 2 : 0), Result.ptr, pHexEnd != nullptr) ? HUGE_VAL : 0;
    }
    fValue = bNegative ? -fValue : fValue;
    return { Result.ptr, bInRange };
}

NumberEnd_t TextToInteger(char const * szText, long & iValue)
{
    return ReadInteger(szText, iValue);
}

NumberEnd_t TextToInteger(char const * szText, int & iValue)
{
    return ReadInteger(szText, iValue);
}

NumberEnd_t TextToInteger(char const * szText, long long & iValue)
{
    return ReadInteger(szText, iValue);
}

NumberEnd_t TextToInteger(char const * szText, unsigned long long & iValue)
{
    return ReadInteger(szText, iValue);
}
