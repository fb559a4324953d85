#include "zqcore/cbreakpoint.h"

#include "zqcore/cdebug_internal.h"

namespace
{
    // Returns the first register that is not enabled, or DEBUG_REGISTERS if all are.
    int FirstFree(plat::DebugRegisters_t const & Registers)
    {
        int iRegister = 0;
        while (iRegister < plat::DEBUG_REGISTERS && Registers.IsEnabled(iRegister))
        {
            ++iRegister;
        }
        return iRegister;
    }

    // Sets a two-bit code of the control word.
    void SetField(std::uint32_t & dwControl, int nShift, int nCode)
    {
        dwControl = (dwControl & ~(3U << nShift)) | (static_cast<std::uint32_t>(nCode) & 3U) << nShift;
    }

    // Enables a register. nLength and nAccess are codes of the control word.
    void Arm(plat::DebugRegisters_t & Registers, int iRegister, std::uintptr_t nAddress, int nLength, int nAccess)
    {
        Registers.dAddress[iRegister] = nAddress;
        SetField(Registers.dwControl, plat::DebugRegisters_t::AccessShift(iRegister), nAccess);
        SetField(Registers.dwControl, plat::DebugRegisters_t::LengthShift(iRegister), nLength);
        Registers.dwControl |= plat::DebugRegisters_t::EnableBit(iRegister);
    }
}

Breakpoint_c::~Breakpoint_c()
{
    Clear();
}

bool Breakpoint_c::Set(std::uintptr_t nAddress, int nLength, int nAccess)
{
    bool const bFree = m_nIndex == INVALID_INDEX;
    ZQ_ASSERT_BREAK(bFree, "m_nIndex == INVALID_INDEX");
    if (!bFree)
    {
        return false;
    }
    plat::DebugRegisters_t Registers;
    bool bDone = plat::DebugRegistersRead(Registers);
    ZQ_ASSERT_BREAK(bDone, DEVELOPER_BREAK);
    if (!bDone)
    {
        return false;
    }
    int const iRegister = FirstFree(Registers);
    ZQ_ASSERT_BREAK(iRegister < plat::DEBUG_REGISTERS, DEVELOPER_BREAK);
    if (iRegister == plat::DEBUG_REGISTERS)
    {
        return false;
    }
    Arm(Registers, iRegister, nAddress, nLength, nAccess);
    bDone = plat::DebugRegistersWrite(Registers);
    ZQ_ASSERT_BREAK(bDone, DEVELOPER_BREAK);
    if (!bDone)
    {
        return false;
    }
    m_nIndex = iRegister;
    return true;
}

void Breakpoint_c::Clear()
{
    if (m_nIndex == INVALID_INDEX)
    {
        return;
    }
    plat::DebugRegisters_t Registers;
    bool bDone = plat::DebugRegistersRead(Registers);
    if (bDone)
    {
        Registers.dwControl &= ~plat::DebugRegisters_t::EnableBit(m_nIndex);
        bDone = plat::DebugRegistersWrite(Registers);
    }
    ZQ_ASSERT_BREAK(bDone, DEVELOPER_BREAK);
    m_nIndex = INVALID_INDEX;
}
