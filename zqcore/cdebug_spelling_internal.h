// cdebug_spelling_internal.h: reads the compiler's spelling of functions and types, which ZQ_FUNCTION gives.
#pragma once

#include "zqcore/cconfig.h"

/// Returns the end of the name at p, or p if no name begins there. szText is the whole spelling. A name includes its
/// scopes: "ns::X_c", "(anonymous namespace)::Run", "main(int)::Local_c", "decltype (x)". Template arguments end it.
char const * SpelledNameEnd(char const * szText, char const * p);

/// Writes "class::function" out of "type class::function(arguments) const [with ...]", cut at nSize - 1 bytes.
void SpelledFunctionName(char const * szFunction, char * szBuffer, std::size_t nSize);
