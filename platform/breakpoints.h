// breakpoints.h: the debug registers of a thread, through which its own accesses to data and code are caught.
//
// The registers follow the IA-32 architecture: four addresses and a control word (DR7) with an enable bit, two bits for
// the kind of access and two for the length of each. A thread that hits one has a fault of FAULT_SINGLE_STEP (faults.h).
// They bind the thread that writes them, and go with it; a forked process starts with none. A write costs one
// call to the system for each register that changes, a read one in all.
#pragma once

#include <cstdint>

namespace plat
{
    inline constexpr int DEBUG_REGISTERS = 4;

    enum DebugAccess_e : std::uint32_t
    {
        DEBUG_EXECUTE = 0,   // with DEBUG_LENGTH_1 alone
        DEBUG_WRITE = 1,
        DEBUG_PORT = 2,   // of no use to a program: refused
        DEBUG_ACCESS = 3
    };

    enum DebugLength_e : std::uint32_t
    {
        DEBUG_LENGTH_1 = 0,
        DEBUG_LENGTH_2 = 1,
        DEBUG_LENGTH_8 = 2,
        DEBUG_LENGTH_4 = 3
    };

    struct DebugRegisters_t
    {
        std::uintptr_t dAddress[DEBUG_REGISTERS];   // aligned to the length
        std::uint32_t nControl;

        static constexpr std::uint32_t EnableBit(int i) { return 1U << (2 * i); }
        static constexpr int AccessShift(int i) { return 16 + 4 * i; }
        static constexpr int LengthShift(int i) { return 18 + 4 * i; }

        bool IsEnabled(int i) const { return (nControl & EnableBit(i)) != 0; }
        std::uint32_t GetAccess(int i) const { return nControl >> AccessShift(i) & 3; }
        std::uint32_t GetLength(int i) const { return nControl >> LengthShift(i) & 3; }
    };

    /// The calling thread's registers as this program wrote them; false if they can't be had.
    bool DebugRegistersRead(DebugRegisters_t & Registers);

    /// Writes the calling thread's registers. False if the system refuses one (none left because a debugger holds them,
    /// a bad address, length or kind, no right to) or grants it without effect, as some hypervisors do, which is tried out
    /// once: the registers are then what they were.
    bool DebugRegistersWrite(DebugRegisters_t const & Registers);
}
