// typenames.h: types as the source spells them.
#pragma once

#include "tools/zqsymbols/types.h"

#include <string>
#include <string_view>

namespace zqsymbols
{
    /// Returns the type of a variable or a member as its source spells it: "char const * [4]". Aliases stay.
    std::string SpellTypeOf(Types_c & Types, Dwarf_Die Owner);

    /// Removes from a name what the standard library adds to it: allocators, character traits and versions of
    /// namespaces.
    std::string ShortName(std::string_view sName);
}
