// expression.h: evaluates the expressions by which debug information describes the place of a value.
#pragma once

#include "tools/zqsymbols/process.h"

#include <cstdint>
#include <elfutils/libdw.h>
#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace zqsymbols
{
    /// Kind of a Place_t.
    enum Place_e
    {
        PLACE_UNKNOWN,    // optimised out, or not computed (Evaluate)
        PLACE_REGISTER,   // nValue: DWARF's number of the register
        PLACE_ADDRESS,    // nValue: the address
        PLACE_VALUE,      // nValue: the value itself, which is stored nowhere
        PLACE_BYTES       // dBytes: the value itself, which may be stored in several places
    };

    /// Place of a value, or the value itself if it has no single place.
    struct Place_t
    {
        Place_e ePlace = PLACE_UNKNOWN;
        std::uint64_t nValue = 0;
        std::vector<std::uint8_t> dBytes{};
    };

    struct Frame_t;

    /// Values that registers held when the functions of frames were called, as far as they were asked for. One object
    /// serves the values of one frame.
    using EntryValues_t = std::map<std::pair<Frame_t const *, unsigned>, std::optional<std::uint64_t>>;

    /// Values that an expression may refer to.
    struct Surroundings_t
    {
        Registers_t Registers;
        std::uint64_t nBias = 0;                     // load bias of the module
        std::optional<std::uint64_t> nCfa{};         // canonical frame address; nothing if unknown
        std::optional<std::uint64_t> nFrameBase{};   // likewise
        Frame_t const * pFrame = nullptr;         // frame whose caller has the entry values; null if they are unknown
        EntryValues_t * pEntryValues = nullptr;   // not null with pFrame
        unsigned nCallers = 0;                    // number of calls from pFrame to the frame whose values are asked for
        Dwarf_Attribute * pAttribute = nullptr;   // attribute that has the expression, or null
    };

    /// Runs an expression (DWARF 5, sections 2.5 and 2.6) and returns the place that it computes. Returns PLACE_UNKNOWN
    /// in these cases:
    /// - It is empty or damaged, or has an unknown operation.
    /// - It needs a register, memory or another value that is unknown.
    /// - It has not ended after some 10,000 operations.
    /// - It divides by 0 or -1.
    /// - It divides or orders numbers after it pushed an unsigned one with as many bytes as an address.
    /// - It uses a type other than an integer, a truth value or an address, or one with more bytes than an address.
    /// - A value in pieces, or one that is in the expression, has more than 64 bytes.
    /// - A piece has more bytes than are known of its value.
    Place_t Evaluate(Process_c & Process, Surroundings_t const & Surroundings, std::span<Dwarf_Op const> dOperations);
}
