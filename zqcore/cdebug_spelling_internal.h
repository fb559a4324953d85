// cdebug_spelling_internal.h: names in the compiler's spelling of functions and types (ZQ_FUNCTION).
#pragma once

#include "zqcore/cconfig.h"

/// Returns the end of the name at pPos, or pPos if no name begins there. szText is the whole spelling. A name includes
/// its scopes: "ns::X_c", "(anonymous namespace)::Run", "main(int)::Local_c", "decltype(x)". Template arguments end it.
char const * SpelledNameEnd(char const * szText, char const * pPos);

/// Writes the name in a spelling, cut at nSize - 1 bytes: "class::function" of
/// "type class::function(arguments) const [with ...]".
void SpellFunctionName(char const * szFunction, char * szBuffer, std::size_t nSize);
