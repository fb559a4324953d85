// texts.h: numbers and names in the form that a person reads.
#pragma once

#include "zqcore/cstring.h"

class File_c;

using Text_t = String_T<256>;

/// The text as printf takes it.
inline char const * Sz(Text_t const & sText)
{
    return sText;
}

/// A text from outside as a terminal may see it (ctexterror.h), cut to fit.
Text_t Shown(char const * szText);

/// A number with its thousands apart: 12,345.
Text_t Grouped(long long iNumber);

/// Bytes in a unit that fits: 12.3 MB.
Text_t Size(double fBytes);

/// A time in a unit that fits: 1.23 ms.
Text_t Duration(double tSeconds);

/// A location of the file system as a path below the media root, with `/`, as Shown has it.
Text_t BelowRoot(char const * szLocation);
Text_t BelowRoot(File_c const & File);
