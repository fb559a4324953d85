// frames.h: walks a thread's stack by the modules' call frame information, or else by frame pointers.
#pragma once

#include "tools/zqsymbols/process.h"

#include <deque>

namespace zqsymbols
{
    /// A frame and its registers, as far as they are known.
    struct Frame_t
    {
        Registers_t Registers;
        std::uint64_t nAddress = 0;          // of its instruction, or the return address
        std::uint64_t nCfa = 0;              // the stack pointer's value before the call
        bool bCall = false;                  // whether the address is a return address
        Frame_t const * pCaller = nullptr;   // null at the end of the stack or the walk

        /// Returns an address inside the current instruction of the frame.
        std::uint64_t GetInside() const { return nAddress - (bCall ? 1 : 0); }
    };

    /// The frames of one thread. Get unwinds them up to the caller of the frame that it returns.
    class Frames_c
    {
    public:
        static constexpr std::size_t MAX_FRAMES = 200000;   // more than 8 MiB of stack hold at 42 bytes a frame

        /// Begins at a thread's registers. Requires that they and the process outlive the object.
        Frames_c(Process_c & Process, Registers_t const & Start)
            : m_Process(Process)
            , m_Start(Start)
        {}

        /// Returns a frame by number, 0 for the innermost. Returns null after the end, and from MAX_FRAMES on. The
        /// frame is valid as long as the object.
        Frame_t const * Get(std::size_t iFrame);

    private:
        bool Unwind(Frame_t & Frame, Frame_t & Caller);
        bool UnwindByInformation(Frame_t & Frame, Frame_t & Caller);
        bool UnwindByFramePointer(Frame_t & Frame, Frame_t & Caller);
        void Recover(Dwarf_Frame * pRules, unsigned iRegister, Frame_t const & Frame, Frame_t & Caller);

        Process_c & m_Process;
        Registers_t const & m_Start;
        std::deque<Frame_t> m_dFrames;   // a deque, because pCaller points into it
        Frame_t m_Caller;                // of the last frame
        bool m_bMore = true;             // whether a frame follows the last one
    };
}
