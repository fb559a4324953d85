// variables.h: the variables in scope in a frame.
#pragma once

#include "platform/symbols.h"
#include "tools/zqsymbols/expression.h"
#include "tools/zqsymbols/frames.h"
#include "tools/zqsymbols/process.h"
#include "tools/zqsymbols/types.h"

namespace zqsymbols
{
    /// A variable in scope and its place in the frame.
    struct Variable_t
    {
        std::string sName;
        plat::SymbolKind_e eKind;
        plat::SymbolPlace_e ePlace;
        std::uint64_t nAddress;   // of plat::PLACE_MEMORY, else 0
        plat::SymbolType_t iType;
        Place_t Place;                            // in full
        std::optional<std::uint64_t> nRegister;   // what its register holds; nothing without one, or if that is unknown
        Dwarf_Die Die;
        std::size_t iScope;   // index of its scope in ScopesAt (modules.h)
    };

    /// Reader of the debug information about variables.
    class Variables_c
    {
    public:
        /// Makes a reader for a process. Requires that Process outlives it.
        explicit Variables_c(Process_c & Process)
            : m_Process(Process)
        {}

        /// Adds the types of a frame's variables to Types and returns the variables, from the parameters to the locals
        /// of the innermost open block, those of inlined calls included. Leaves out variables without a name, locals
        /// that are only declared, and locals that the compiler generated under a name of its own. The result is empty
        /// if the frame's function has no debug information.
        std::vector<Variable_t> ReadVariables(Frame_t const & Frame, Types_c & Types);

    private:
        Process_c & m_Process;
    };
}
