// inlined.h: the calls that the compiler replaced by the callee's code.
#pragma once

#include "tools/zqsymbols/modules.h"
#include "tools/zqsymbols/names.h"

#include <vector>

namespace zqsymbols
{
    /// A call whose callee's code is part of the caller's.
    struct InlinedCall_t
    {
        std::string sFunction;         // the callee; "?" if unknown
        std::optional<Line_t> Place;   // of the call; nothing if unknown
        std::size_t iScope;            // index of the callee's scope in dScopes
    };

    /// Returns the inlined calls among the scopes that ScopesAt (modules.h) returned for an address in Unit, outermost
    /// first.
    std::vector<InlinedCall_t> InlinedCalls(Unit_t & Unit, std::vector<Dwarf_Die> & dScopes);
}
