// cbreakpoint.h: a hardware breakpoint that catches the code that touches a variable.
//
// A Breakpoint_c arms one of the four debug registers of the calling thread. Until Clear, each access of the chosen
// kind that the thread makes to the address traps into the debugger. Without a debugger the crash report has the code
// 80000004. It shows the instruction after a read or a write, or the executed instruction itself. Nothing in the
// library uses breakpoints.
//
// Ownership: each object holds one debug register from Set to Clear or its destructor.
// Threads: an object belongs to the thread that calls Set. Accesses of other threads and of a forked child do not trap.
// Cost: Set and Clear make a few system calls each. Only the first Set of a thread may allocate.
// Failure: Set asserts and returns false, for example if a hypervisor drops the traps. Clear asserts if the system
// refuses.
//
//     int iHealth = 100;
//     Breakpoint_c Watch;
//     Watch.Set(reinterpret_cast<std::uintptr_t>(&iHealth), Breakpoint_c::LENGTH_4, Breakpoint_c::ACCESS_WRITE);
//     Log("The next write to iHealth traps: %s", Watch.m_nIndex != Breakpoint_c::INVALID_INDEX ? "yes" : "no");
//     Watch.Clear();
#pragma once

#include "zqcore/cconfig.h"

#include "platform/breakpoints.h"

/// A breakpoint on an address of the calling thread.
class ZQ_API Breakpoint_c
{
public:
    static constexpr int INVALID_INDEX = 65535;   // m_nIndex while no register is held

    /// Codes of the control word (Intel SDM, volume 3B, debug registers). Lengths in bytes are LENGTH_1,
    /// LENGTH_2, LENGTH_4 and LENGTH_8. Kinds of access are ACCESS_WRITE, ACCESS_READ_WRITE and ACCESS_EXECUTE. Set
    /// refuses ACCESS_PORT, and ACCESS_EXECUTE with a length other than LENGTH_1.
    using Length_e = plat::DebugRegisters_t::Length_e;
    using Access_e = plat::DebugRegisters_t::Access_e;
    using enum plat::DebugRegisters_t::Length_e;
    using enum plat::DebugRegisters_t::Access_e;

    Breakpoint_c() = default;
    virtual ~Breakpoint_c();
    Breakpoint_c(Breakpoint_c const &) = delete;
    Breakpoint_c & operator=(Breakpoint_c const &) = delete;

    /// Arms the first free register and returns true. Only the low two bits of each code are used. Asserts that no
    /// register is held. If one is, it stays armed, and Set returns false. On failure asserts "Developer break", holds
    /// no register and returns false. It fails in these cases:
    /// - all four registers are in use. A debugger may hold some.
    /// - a code is refused, or the address is not aligned to the length.
    /// - the system refuses the register, or accepts it without effect.
    bool Set(std::uintptr_t nAddress, int nLength, int nAccess);

    /// Disarms and releases the register, if one is held. Requires the thread that called Set. If the system refuses,
    /// asserts "Developer break" and forgets the register.
    void Clear();

    int m_nIndex = INVALID_INDEX;   // register in use, 0 to 3
};
