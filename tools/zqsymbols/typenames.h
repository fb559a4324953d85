// typenames.h: types as the source spells them.
#pragma once

#include "tools/zqsymbols/types.h"

#include <string>
#include <string_view>

namespace zqsymbols
{
    /// Returns the type of a variable or a member as its source spells it, shortened by ShortName: "char const * [4]".
    /// Keeps aliases. Drops restrict, _Atomic and the qualifiers of functions. What is nested 16 levels deep becomes
    /// "?". Returns "void" without a type, and "(unnamed)" for one without a name.
    std::string SpellTypeOf(Types_c & Types, Dwarf_Die Owner);

    /// Returns a name without what the standard library adds to it: allocators, deleters, character traits and versions
    /// of namespaces. Spells std::basic_string<char> as std::string, and its view likewise. Removes a blank before ">".
    std::string ShortName(std::string_view sName);
}
