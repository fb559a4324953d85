// places.h: the places of a frame's variables, and what its registers held at the call of its function.
#pragma once

#include "tools/zqsymbols/expression.h"
#include "tools/zqsymbols/frames.h"
#include "tools/zqsymbols/modules.h"
#include "tools/zqsymbols/process.h"

namespace zqsymbols
{
    /// Returns what the expressions of a frame's function may refer to. nCallers is the number of calls from this frame
    /// to the one whose values are asked for. Requires that the frame and the entry values outlive the result.
    Surroundings_t SurroundingsOf(Process_c & Process, Frame_t const & Frame, Unit_t const & Unit,
        Dwarf_Die * pFunction, EntryValues_t & EntryValues, unsigned nCallers = 0);

    /// Returns what a place's register holds, or the address or the value that the place is. Returns nothing for
    /// PLACE_BYTES, or if it is unknown.
    std::optional<std::uint64_t> ValueOf(Place_t const & Place, Registers_t const & Registers);

    /// Returns the place that an attribute of a DIE describes at an address. The address is without the unit's bias.
    /// Returns PLACE_UNKNOWN if the attribute describes none there, or if Evaluate returns it.
    Place_t Locate(
        Process_c & Process, Surroundings_t Surroundings, Dwarf_Die * pDie, unsigned nAttribute, Dwarf_Addr nAddress);

    /// Returns what a register held when the function of the surroundings' frame was called, or nothing if the caller's
    /// debug information does not say it or needs the values of more than 32 callers. Requires that the surroundings
    /// have a frame.
    std::optional<std::uint64_t> EntryValue(
        Process_c & Process, Surroundings_t const & Surroundings, unsigned iRegister);
}
