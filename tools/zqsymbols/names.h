// names.h: functions and source lines by address.
#pragma once

#include "tools/zqsymbols/modules.h"

#include <string>
#include <string_view>

namespace zqsymbols
{
    /// Returns a linker's name as the source spells it, without argument and return types. Other names are unchanged.
    std::string PlainName(char const * szLinkerName);

    struct Function_t
    {
        std::string sName;
        std::uint64_t nDisplacement;
    };
    std::optional<Function_t> FunctionAt(Modules_c & Modules, std::uint64_t nAddress);

    /// Returns the path of a source file of a unit. As stored it may be relative to the folder that the compiler ran
    /// in.
    std::string PathOf(Unit_t & Unit, char const * szFile);

    struct Line_t
    {
        std::string sFile;
        unsigned nLine;
    };
    std::optional<Line_t> LineAt(Modules_c & Modules, std::uint64_t nAddress);
}
