// cnumbertext_internal.h: numbers at the start of a text, read as in the "C" locale whatever the locale is.
#pragma once

#include "zqcore/cconfig.h"

/// Where a number ended.
struct NumberEnd_t
{
    char const * pEnd;   // behind the number; the start of the text if there is none
    bool bInRange;       // false where strtod and strtol set errno, and for a denormal value
};

/// Reads what strtod reads. Without a number the value is 0; what is too large is HUGE_VAL with the number's sign.
NumberEnd_t TextToDouble(char const * szText, double & value);

/// Read what strtol in base 10 reads. Without a number the value is 0; out of range it is the nearest of its type.
NumberEnd_t TextToInteger(char const * szText, long & value);
NumberEnd_t TextToInteger(char const * szText, int & value);

/// Like atof, narrowed; what is too large for a float is infinite.
inline float TextToFloat(char const * szText)
{
    double fValue;
    TextToDouble(szText, fValue);
    return static_cast<float>(fValue);
}

/// Like atoi.
inline int TextToInt(char const * szText)
{
    int iValue;
    TextToInteger(szText, iValue);
    return iValue;
}
