// ctokenize.h: splitting a text at separators.
//
// Pieces are what stands between separators; several separators in a row give no empty piece. Each piece is cut at 255
// characters. A last piece of one character counts like any other.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

/// Appends the pieces of the text to the array. szSeparators is a set of characters; null means the blank.
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 10, 0> & dOut, char const * szSeparators);
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 1024, 0> & dOut, char const * szSeparators);

/// The same with one separator.
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 10, 0> & dOut, char cSeparator);
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 1024, 0> & dOut, char cSeparator);
