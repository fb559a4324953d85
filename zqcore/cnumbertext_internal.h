// cnumbertext_internal.h: numbers at the start of a text, always read as in the "C" locale.
#pragma once

#include "zqcore/cconfig.h"

/// End of a number.
struct NumberEnd_t
{
    char const * pEnd;   // after the number; the start of the text if there is none
    bool bInRange;       // whether the type can hold the number; false for a denormal value, true without a number
};

/// Reads a number as strtod does and returns its end. Without a number the value is 0. A number that is too large
/// becomes HUGE_VAL, one that is too small 0, both with its sign.
NumberEnd_t TextToDouble(char const * szText, double & fValue);

/// Read a number as strtol in base 10 does and return its end. Without a number the value is 0. A number out of range
/// becomes the nearest value of the type.
NumberEnd_t TextToInteger(char const * szText, long & iValue);
NumberEnd_t TextToInteger(char const * szText, int & iValue);
NumberEnd_t TextToInteger(char const * szText, long long & iValue);
NumberEnd_t TextToInteger(char const * szText, unsigned long long & iValue);   // requires no minus sign

/// Returns what TextToDouble reads, narrowed to float. A number that is too large for a float becomes infinite.
inline float TextToFloat(char const * szText)
{
    double fValue;
    TextToDouble(szText, fValue);
    return static_cast<float>(fValue);
}

/// Returns what TextToInteger reads.
inline int TextToInt(char const * szText)
{
    int iValue;
    TextToInteger(szText, iValue);
    return iValue;
}
