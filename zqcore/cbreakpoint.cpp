#include "zqcore/cbreakpoint.h"

#include "zqcore/cdebug.h"

namespace
{
    constexpr char DEVELOPER_BREAK[] = "Developer break";

    int FirstFree(plat::DebugRegisters_t const & Registers)
    {
        int i = 0;
        while (i < plat::DEBUG_REGISTERS && Registers.IsEnabled(i))
        {
            ++i;
        }
        return i;
    }

    void SetField(std::uint32_t & dwControl, int nShift, int iCode)
    {
        dwControl = (dwControl & ~(3U << nShift)) | (static_cast<std::uint32_t>(iCode) & 3U) << nShift;
    }

    void Arm(plat::DebugRegisters_t & Registers, int i, std::uintptr_t nAddress, int nLength, int nAccess)
    {
        Registers.dAddress[i] = nAddress;
        SetField(Registers.nControl, plat::DebugRegisters_t::AccessShift(i), nAccess);
        SetField(Registers.nControl, plat::DebugRegisters_t::LengthShift(i), nLength);
        Registers.nControl |= plat::DebugRegisters_t::EnableBit(i);
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
    int const i = FirstFree(Registers);
    ZQ_ASSERT_BREAK(i < plat::DEBUG_REGISTERS, DEVELOPER_BREAK);
    if (i == plat::DEBUG_REGISTERS)
    {
        return false;
    }
    Arm(Registers, i, nAddress, nLength, nAccess);
    bDone = plat::DebugRegistersWrite(Registers);
    ZQ_ASSERT_BREAK(bDone, DEVELOPER_BREAK);
    if (!bDone)
    {
        return false;
    }
    m_nIndex = i;
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
        Registers.nControl &= ~plat::DebugRegisters_t::EnableBit(m_nIndex);
        bDone = plat::DebugRegistersWrite(Registers);
    }
    ZQ_ASSERT_BREAK(bDone, DEVELOPER_BREAK);
    m_nIndex = INVALID_INDEX;
}
