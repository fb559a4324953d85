// names.h: functions and source lines by address.
#pragma once

#include "tools/zqsymbols/process.h"

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
    std::optional<Function_t> FunctionAt(Process_c const & Process, std::uint64_t nAddress);

    struct Line_t
    {
        std::string sFile;
        unsigned nLine;
    };
    std::optional<Line_t> LineAt(Process_c const & Process, std::uint64_t nAddress);
}
