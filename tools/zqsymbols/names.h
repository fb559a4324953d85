// names.h: functions and source lines by address.
#pragma once

#include "tools/zqsymbols/modules.h"

#include <cstdint>
#include <optional>
#include <string>

namespace zqsymbols
{
    /// A function that holds an address.
    struct Function_t
    {
        std::string sName;
        std::uint64_t nDisplacement;   // bytes from its start to the address
    };

    /// A line of a source file.
    struct Line_t
    {
        std::string sFile;
        unsigned nLine;   // from 1
    };

    /// Returns a linker's name as the source spells it, without the function's own argument types, return type and
    /// qualifiers, and without a clone suffix. A name that is not mangled, or can't be demangled, loses what begins
    /// with a '.' or '@' after its first character.
    std::string PlainName(char const * szLinkerName);

    /// Returns the function that holds an address, or nothing if it is unknown.
    std::optional<Function_t> FunctionAt(Modules_c & Modules, std::uint64_t nAddress);

    /// Returns the path of a source file of a unit. szFile may be relative to the folder that the compiler ran in. If
    /// the unit does not have that folder's absolute path, returns szFile.
    std::string PathOf(Unit_t & Unit, char const * szFile);

    /// Returns the line of the code at an address, or nothing if it is unknown.
    std::optional<Line_t> LineAt(Modules_c & Modules, std::uint64_t nAddress);
}
