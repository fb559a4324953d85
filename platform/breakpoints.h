// breakpoints.h: the debug registers of a thread, which catch the thread's own accesses to data and code.
//
// The registers follow the IA-32 architecture: four addresses and a control word (DR7). The control word has an enable
// bit, two bits for the kind of access and two bits for the length of each address. A thread that hits a breakpoint has
// a fault of FAULT_SINGLE_STEP (faults.h).
//
// Threads: the registers apply to the thread that writes them, and end with it. A forked process starts with none.
// Cost: a write makes a few system calls for each register that changes, and one for each that is enabled. A read makes
// no system call.
#pragma once

#include <cstdint>

namespace plat
{
    inline constexpr int DEBUG_REGISTERS = 4;   // number of addresses that a thread can watch

    /// Contents of the debug registers.
    struct DebugRegisters_t
    {
        /// Two-bit codes of the control word for the length in bytes.
        enum Length_e : int
        {
            LENGTH_1 = 0,
            LENGTH_2 = 1,
            LENGTH_8 = 2,
            LENGTH_4 = 3
        };

        /// Two-bit codes of the control word for the kind of access.
        enum Access_e : int
        {
            ACCESS_EXECUTE = 0,   // requires LENGTH_1
            ACCESS_WRITE = 1,
            ACCESS_PORT = 2,   // only for the kernel: refused
            ACCESS_READ_WRITE = 3
        };

        std::uintptr_t dAddress[DEBUG_REGISTERS];   // of the data or code, aligned to the length
        std::uint32_t dwControl;                    // DR7

        /// Return the enable bit of a register in the control word, and the positions of its two-bit codes.
        /// Registers are counted from 0.
        static constexpr std::uint32_t EnableBit(int iRegister) { return 1U << (2 * iRegister); }
        static constexpr int AccessShift(int iRegister) { return 16 + 4 * iRegister; }
        static constexpr int LengthShift(int iRegister) { return 18 + 4 * iRegister; }

        /// Return whether a register is enabled, its Access_e and its Length_e.
        bool IsEnabled(int iRegister) const { return (dwControl & EnableBit(iRegister)) != 0; }
        std::uint32_t GetAccess(int iRegister) const { return dwControl >> AccessShift(iRegister) & 3; }
        std::uint32_t GetLength(int iRegister) const { return dwControl >> LengthShift(iRegister) & 3; }
    };

    /// Reads the calling thread's registers as this program wrote them. Returns false if they are not available.
    bool DebugRegistersRead(DebugRegisters_t & Registers);

    /// Writes the calling thread's registers. On failure returns false and restores the previous ones as far as the
    /// system allows. It fails in these cases:
    /// - The address, the length or the kind of an enabled register is bad.
    /// - The system refuses a register, for instance because a debugger holds them all or the process lacks the right.
    /// - The system accepts a register without effect, as some hypervisors do. A test finds this. It is not repeated
    ///   once a register has had an effect.
    bool DebugRegistersWrite(DebugRegisters_t const & Registers);
}
