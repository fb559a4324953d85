// cbreakpoint.h: catch whoever touches a variable.
//
// A Breakpoint_c arms one of the four debug registers of the calling thread: the thread's next access to the address
// traps, into the debugger or, without one, into the crash report, which then has the code 80000004 and marks the
// instruction behind the access. Other threads aren't watched. Each object belongs to the thread that set it; it holds
// its register until Clear or its end. A developer's tool: nothing in the library uses it, and a system that lends no
// debug registers, or a hypervisor that swallows them, fails every Set. Set and Clear cost a few calls to the system each.
#pragma once

#include "zqcore/cconfig.h"

class ZQ_API Breakpoint_c
{
public:
    static constexpr int INVALID_INDEX = 65535;   // no register is held

    /// The two-bit codes of the IA-32 control register.
    enum Length_e : int
    {
        LENGTH_1 = 0,
        LENGTH_2 = 1,
        LENGTH_8 = 2,
        LENGTH_4 = 3
    };
    enum Access_e : int
    {
        ACCESS_EXECUTE = 0,   // with LENGTH_1 alone
        ACCESS_WRITE = 1,
        ACCESS_READ_WRITE = 3
    };

    Breakpoint_c() = default;
    virtual ~Breakpoint_c();
    Breakpoint_c(Breakpoint_c const &) = delete;
    Breakpoint_c & operator=(Breakpoint_c const &) = delete;

    /// Arms the first register that is free, for an address aligned to its length; of each code the low two bits count.
    /// Requires m_nIndex == INVALID_INDEX, and otherwise keeps what is armed. False, with a "Developer break"
    /// assertion and no register held, if all four are taken (a debugger may hold some) or the system refuses.
    bool Set(std::uintptr_t nAddress, int nLength, int nAccess);

    /// Disarms; does nothing if no register is held. Must run on the thread that called Set.
    void Clear();

    int m_nIndex = INVALID_INDEX;   // the register in use, 0 to 3
};
