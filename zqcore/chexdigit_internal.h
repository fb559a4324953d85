// chexdigit_internal.h: hexadecimal digits.
#pragma once

#include "zqcore/cstring.h"

/// Returns the value of a digit of either case, or -1 for any other character.
inline int HexDigitValue(char c)
{
    char const cLower = CharToLower(c);
    return c >= '0' && c <= '9' ? c - '0' : cLower >= 'a' && cLower <= 'f' ? cLower - 'a' + 10 : -1;
}
