// details.h: the frames of a thread as lines of text, with sources and variables.
//
// The lines have the form of docs/formats.md, "Details of a crash".
#pragma once

#include "tools/zqsymbols/frames.h"
#include "tools/zqsymbols/names.h"
#include "tools/zqsymbols/process.h"
#include "tools/zqsymbols/sourcetext.h"
#include "tools/zqsymbols/types.h"
#include "tools/zqsymbols/values.h"
#include "tools/zqsymbols/variables.h"
#include "zqcore/ccrashdetails_internal.h"

#include <string>

namespace zqsymbols
{
    /// Returns the line about a part that is missing, for a reason, without the line end.
    inline std::string CutMark(std::string const & sReason)
    {
        return CRASH_CUT + sReason + ')';
    }

    /// Writer of the lines of frames. It reads each source file once.
    class FrameLines_c
    {
    public:
        /// Makes a writer. Requires that all three outlive it.
        FrameLines_c(Process_c & Process, Types_c & Types, Variables_c & Variables)
            : m_Process(Process)
            , m_Types(Types)
            , m_Variables(Variables)
            , m_Values(Process, Types)
        {}

        /// Returns the object that shows values, for the printers of the host.
        Values_c & GetValues() { return m_Values; }

        /// Returns the lines of a frame and of the inlined calls in it. Numbers the calls and the frame from nNumber
        /// on, and moves nNumber after the last one. Without bWhole the lines have neither texts of sources nor
        /// variables.
        std::string FormatFrame(Frame_t const & Frame, std::size_t & nNumber, bool bWhole);

    private:
        std::string Variable(Variable_t const & Variable);
        std::string Source(Line_t const & Line, bool bAround);
        std::optional<Value_t> ValueOf(Variable_t const & Variable);

        Process_c & m_Process;
        Types_c & m_Types;
        Variables_c & m_Variables;
        Values_c m_Values;
        SourceText_c m_Sources;
    };

    /// The lines of the frames of the thread that crashed, one frame after another.
    class StackLines_c
    {
    public:
        /// Begins at the innermost frame. Requires that both outlive the object.
        StackLines_c(FrameLines_c & Lines, Frames_c & Frames)
            : m_Lines(Lines)
            , m_Frames(Frames)
        {}

        /// Returns the lines of the next frame, or an empty text at the end. If the stack has more than NEAR + FAR
        /// frames, the calls return the first NEAR, a line that reports what is left out, and the last FAR. If the far
        /// end is not reached in 10 seconds or MAX_FRAMES frames (frames.h), a further line reports that instead of the
        /// last FAR frames.
        std::string Next();

    private:
        static constexpr std::size_t NEAR = 192, FAR = 64;

        std::string Skip();

        FrameLines_c & m_Lines;
        Frames_c & m_Frames;
        std::size_t m_iFrame = 0;    // the next frame
        std::size_t m_nNumber = 0;   // of the next frame or inlined call in the lines
    };

    /// Returns an address's place in its module: "name+offset" in hexadecimal, "?" without a module that has a file.
    std::string ModulePlace(Process_c & Process, std::uint64_t nAddress);
}
