// frames.h: walks a thread's stack by the modules' call frame information.
#pragma once

#include "tools/zqsymbols/process.h"

#include <deque>

namespace zqsymbols
{
    struct Frame_t
    {
        Registers_t Registers;
        std::uint64_t nAddress = 0;
        std::uint64_t nCfa = 0;              // the stack pointer's value before the call
        bool bCall = false;                  // the address is a return address
        Frame_t const * pCaller = nullptr;   // null at the end of the stack

        /// Returns an address inside the current instruction of the frame.
        std::uint64_t GetInside() const { return nAddress - (bCall ? 1 : 0); }
    };

    class Frames_c
    {
    public:
        explicit Frames_c(Process_c & Process)
            : m_Process(Process)
        {}

        /// Returns a frame by number; 0 is the innermost. Null past the end. Valid as long as the object.
        Frame_t const * Get(std::size_t iFrame);

    private:
        bool Unwind(Frame_t & Frame, Frame_t & Caller);
        bool ByInformation(Frame_t & Frame, Frame_t & Caller);
        bool ByFramePointer(Frame_t & Frame, Frame_t & Caller);
        bool Recover(Dwarf_Frame * pRules, unsigned iRegister, Frame_t const & Frame, Frame_t & Caller);

        Process_c & m_Process;
        std::deque<Frame_t> m_dFrames;   // a caller's place is fixed
        Frame_t m_Caller;                // of the last one
        bool m_bMore = true;
    };
}
