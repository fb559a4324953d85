// ctokenize.h: splits a text at separators.
//
// A piece is a run of characters that are not separators, so no piece is empty. A text of more than 255 characters is
// cut, because a String_T<256> carries it.
//
// Ownership: pieces are copied into the caller's array.
// Threads: any thread.
// Cost: linear in the text. The array allocates as it grows.
// Failure: no call fails.
//
//     Array_T<String_T<256>, 10, 0> dWords;
//     Tokenize("walk north  fast", dWords, ' ');
//     for (String_T<256> const & sWord : dWords) { Log("%s", sWord); }
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

/// Append the pieces of the text to the array. szSeparators is a set of characters. Null means the blank.
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 10, 0> & dOut, char const * szSeparators);
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 1024, 0> & dOut, char const * szSeparators);

/// Append the pieces of the text to the array, with one character as the only separator.
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 10, 0> & dOut, char cSeparator);
ZQ_API void Tokenize(String_T<256> const & sText, Array_T<String_T<256>, 1024, 0> & dOut, char cSeparator);
