// text_support.h: a function of texts that does not call the library, for tests and fuzz targets that check it.
#pragma once

#include <string>

/// Returns the text with its ASCII capitals in lower case.
inline std::string Lower(std::string sText)
{
    for (char & c : sText)
    {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return sText;
}
