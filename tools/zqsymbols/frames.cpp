#include "tools/zqsymbols/frames.h"

#include "tools/zqsymbols/expression.h"

#include <cstdlib>
#include <memory>

namespace zqsymbols
{
    namespace
    {
        struct Free_c
        {
            void operator()(void * pMemory) const { std::free(pMemory); }
        };
        using Rules_t = std::unique_ptr<Dwarf_Frame, Free_c>;

        // Returns the rules that unwind from an address, or null if the module has none for it.
        Rules_t RulesAt(Dwfl_Module * pModule, std::uint64_t nAddress)
        {
            for (auto const fnTable : { dwfl_module_eh_cfi, dwfl_module_dwarf_cfi })
            {
                Dwarf_Addr nBias = 0;
                Dwarf_CFI * const pTable = fnTable(pModule, &nBias);
                Dwarf_Frame * pRules = nullptr;
                if (pTable != nullptr && dwarf_cfi_addrframe(pTable, nAddress - nBias, &pRules) == 0)
                {
                    return Rules_t(pRules);
                }
            }
            return nullptr;
        }
    }

    Frame_t const * Frames_c::Get(std::size_t iFrame)
    {
        bool const bBelowLimit = iFrame < MAX_FRAMES;                      // a stack filled with one address has no end
        while (bBelowLimit && m_dFrames.size() <= iFrame + 1 && m_bMore)   // unwinds its caller too
        {
            Frame_t Frame = m_Caller;
            if (m_dFrames.empty())
            {
                Frame.Registers = m_Start;
                Frame.nAddress = Frame.Registers.dValues[m_Process.GetInstruction()];
            }
            m_Caller = {};
            m_bMore = Unwind(Frame, m_Caller);
            m_dFrames.push_back(Frame);
            if (m_dFrames.size() > 1)
            {
                m_dFrames[m_dFrames.size() - 2].pCaller = &m_dFrames.back();
            }
        }
        return bBelowLimit && iFrame < m_dFrames.size() ? &m_dFrames[iFrame] : nullptr;
    }

    // Sets the CFA of the frame, and the caller. Returns false at the end of the stack. A caller's CFA is higher,
    // unless a signal handler with its own stack is in between.
    bool Frames_c::Unwind(Frame_t & Frame, Frame_t & Caller)
    {
        bool const bFound = UnwindByInformation(Frame, Caller) || UnwindByFramePointer(Frame, Caller);
        bool const bOnward = m_dFrames.empty() || !Caller.bCall || Frame.nCfa > m_dFrames.back().nCfa;
        Caller.nAddress = Caller.Registers.dValues[m_Process.GetInstruction()];
        return bFound && bOnward && Caller.nAddress != 0;
    }

    // Sets the CFA of the frame, and the caller, by the rules of the module. Returns false without usable rules.
    bool Frames_c::UnwindByInformation(Frame_t & Frame, Frame_t & Caller)
    {
        Dwfl_Module * const pModule = m_Process.ModuleAt(Frame.GetInside());
        Rules_t const pRules = pModule == nullptr ? nullptr : RulesAt(pModule, Frame.GetInside());
        Dwarf_Op * pOperations = nullptr;
        std::size_t nOperations = 0;
        if (pRules == nullptr || dwarf_frame_cfa(pRules.get(), &pOperations, &nOperations) != 0)
        {
            return false;
        }
        Place_t const Cfa = Evaluate(m_Process, { Frame.Registers }, { pOperations, nOperations });
        if (Cfa.ePlace != PLACE_ADDRESS)
        {
            return false;
        }
        Frame.nCfa = Cfa.nValue;
        bool bSignal = false;
        dwarf_frame_info(pRules.get(), nullptr, nullptr, &bSignal);
        Caller.bCall = !bSignal;
        Caller.Registers.Set(m_Process.GetStackPointer(), Frame.nCfa);
        for (unsigned i = 0; i <= m_Process.GetInstruction(); ++i)
        {
            Recover(pRules.get(), i, Frame, Caller);
        }
        return true;
    }

    // Sets the caller's value of a register by its rule, as known or as assumed. Leaves an unknown value out.
    void Frames_c::Recover(Dwarf_Frame * pRules, unsigned iRegister, Frame_t const & Frame, Frame_t & Caller)
    {
        Dwarf_Op dOwn[3];
        Dwarf_Op * pOperations = nullptr;
        std::size_t nOperations = 0;
        if (dwarf_frame_register(pRules, static_cast<int>(iRegister), dOwn, &pOperations, &nOperations) != 0)
        {
            return;
        }
        std::optional<std::uint64_t> nValue;
        if (nOperations == 0)
        {
            // libdw's defaults for such registers are not those of the ABI: they preserve AX, and not BX.
            std::uint32_t const dwBit = 1u << iRegister;
            bool const bGeneral = iRegister != m_Process.GetInstruction() && iRegister != m_Process.GetStackPointer();
            if (bGeneral && m_Process.IsKept(iRegister) && Frame.Registers.IsKnown(iRegister))
            {
                nValue = Frame.Registers.dValues[iRegister];
            }
            else if (bGeneral && ((Frame.Registers.nKnown | Frame.Registers.dwAssumed) & dwBit) != 0)
            {
                Caller.Registers.dValues[iRegister] = Frame.Registers.dValues[iRegister];
                Caller.Registers.dwAssumed |= dwBit;
            }
        }
        else
        {
            Surroundings_t const Surroundings = { Frame.Registers, 0, Frame.nCfa };
            Place_t const Place = Evaluate(m_Process, Surroundings, { pOperations, nOperations });
            bool const bRegister = Place.ePlace == PLACE_REGISTER && Place.nValue < Frame.Registers.dValues.size()
                                   && Frame.Registers.IsKnown(static_cast<unsigned>(Place.nValue));
            nValue = Place.ePlace == PLACE_ADDRESS ? m_Process.ReadNumber(Place.nValue, m_Process.GetWord())
                     : Place.ePlace == PLACE_VALUE ? std::optional(Place.nValue)
                     : bRegister                   ? std::optional(Frame.Registers.dValues[Place.nValue])
                                                   : std::nullopt;
        }
        if (nValue)
        {
            Caller.Registers.Set(iRegister, *nValue);
        }
    }

    // Sets the CFA of a frame without usable rules, and the caller. Returns false if there is no caller. A call of an
    // address without code has pushed its return address and nothing else.
    bool Frames_c::UnwindByFramePointer(Frame_t & Frame, Frame_t & Caller)
    {
        std::uint64_t const nWord = m_Process.GetWord();
        std::uint64_t const nStack = Frame.Registers.dValues[m_Process.GetStackPointer()];
        std::uint64_t const nBase = Frame.Registers.dValues[m_Process.GetFramePointer()];
        bool const bNoCode = m_dFrames.empty() && !m_Process.ReadNumber(Frame.nAddress, 1);
        std::optional<std::uint64_t> const nReturn = m_Process.ReadNumber(bNoCode ? nStack : nBase + nWord, nWord);
        std::optional<std::uint64_t> const nCallerBase =
            bNoCode ? std::optional(nBase) : m_Process.ReadNumber(nBase, nWord);
        Frame.nCfa = bNoCode ? nStack + nWord : nBase + 2 * nWord;
        if (!nReturn || !nCallerBase || (!bNoCode && (nBase < nStack || nBase % nWord != 0)))
        {
            Frame.nCfa = nStack + 2 * nWord;   // as if nBase were nStack
            return false;
        }
        Caller.bCall = true;
        Caller.Registers = bNoCode ? Frame.Registers : Registers_t{};
        Caller.Registers.Set(m_Process.GetStackPointer(), Frame.nCfa);
        Caller.Registers.Set(m_Process.GetFramePointer(), *nCallerBase);
        Caller.Registers.Set(m_Process.GetInstruction(), *nReturn);
        return m_Process.ReadNumber(*nReturn, 1).has_value();
    }
}
