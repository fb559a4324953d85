// chexdigit_internal.h: hexadecimal digits.
#pragma once

#include "zqcore/cstring.h"

/// Returns the value of a digit of either case, or -1 for any other character.
inline int HexDigitValue(char cDigit)
{
    char const cLower = CharToLower(cDigit);
    return cDigit >= '0' && cDigit <= '9' ? cDigit - '0' : cLower >= 'a' && cLower <= 'f' ? cLower - 'a' + 10 : -1;
}
