// texts.h: numbers and names in the form that a person reads.
#pragma once

#include "zqcore/cstring.h"

class File_c;

using Text_t = String_T<256>;   // of the program's output, cut at 255 characters

/// Returns the text in the form that printf needs, valid until sText changes or ends.
inline char const * Sz(Text_t const & sText)
{
    return sText;
}

/// Returns a text from outside in a form that is safe for a terminal (ctexterror.h), cut to fit.
Text_t Shown(char const * szText);

/// Returns a number with separated thousands: 12,345.
Text_t Grouped(long long iNumber);

/// Returns bytes in a suitable unit: 12.3 MB.
Text_t Size(double fBytes);

/// Returns a time in a suitable unit: 1.23 ms.
Text_t Duration(double tSeconds);

/// Return a location, or that of a file, as a path below the media root, with `/` and safe for a terminal.
/// Require that a location that is longer than the root lies below it. Any other is not cut.
Text_t BelowRoot(char const * szLocation);
Text_t BelowRoot(File_c const & File);
