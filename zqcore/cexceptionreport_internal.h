// cexceptionreport_internal.h: the parts of the crash report's writer.
//
// Threads: any thread may use a Text_c, one thread at a time. Only the thread that writes the report uses the other
// parts. None of them waits for a lock.
// Cost: they allocate nothing from the heap.
#pragma once

#include "zqcore/ccomplaint_internal.h"
#include "zqcore/ccrashdetails_internal.h"
#include "zqcore/cwidepath_internal.h"

#include "platform/clock.h"
#include "platform/compiler.h"
#include "platform/faults.h"
#include "platform/rawfiles.h"
#include "platform/symbols.h"

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace exceptionreport
{
    inline constexpr std::size_t LINE_SIZE = 4096;     // bytes of a buffer for a line, or for the dialog's text
    inline constexpr std::size_t SYMBOL_SIZE = 2048;   // bytes of a variable's text
    inline constexpr std::size_t NAME_SIZE = 1024;     // bytes of the name of a function, a variable or a file
    inline constexpr std::size_t STACK_FRAMES = 256;   // further outer frames are left out

    /// Bytes of a piece of the listing of code, and bytes that the listing has before the piece of the address. The
    /// listing is read piece by piece if not all of its bytes are readable.
    inline constexpr std::size_t SPAN_PIECE = 32;
    inline constexpr std::uintptr_t SPAN_BEFORE = 128;

    /// Bytes of the path of a report: its folder and its name.
    inline constexpr std::size_t PATH_SIZE = WIDE_PATH_UTF8_SIZE + 64;

    /// A text of a fixed size that is cut when it is full.
    class Text_c
    {
    public:
        /// Begins an empty text in a buffer of nSize bytes. Requires that the buffer outlives the object.
        Text_c(char * szText, std::size_t nSize);

        /// Appends a formatted text, cut to what fits.
        void Add(char const * szFormat, ...) ZQ_PRINTF(2, 3);

        /// Appends a text from outside, such as a name, or its first nMost bytes, at most LINE_SIZE - 1. Escapes what
        /// TextEscape (platform/text.h) escapes, except tabs.
        void AddShown(char const * szShown, std::size_t nMost = SIZE_MAX);

        /// Appends an ending. Cuts the text to make it fit. Requires that an empty text has room for it.
        void AddEnd(char const * szEnd);

        bool IsFull() const { return m_nLength + 1 >= m_nSize; }
        std::size_t GetLength() const { return m_nLength; }
        char const * Get() const { return m_szText; }

        /// Returns whether something did not fit since the text was last empty. A cut for AddEnd does not count.
        bool IsCut() const { return m_bCut; }

        /// Cuts the text at a length that it had before.
        void CutAt(std::size_t nLength);

    private:
        char * m_szText;
        std::size_t m_nSize;
        std::size_t m_nLength = 0;
        bool m_bCut = false;
    };

    /// A whole source file in memory pages, until the object is destroyed. A CR ends a line, and the byte after it
    /// counts as its LF. An LF alone ends none.
    class SourceFile_c
    {
    public:
        /// Reads the file. It has no lines if it can't be read.
        explicit SourceFile_c(char const * szPath);
        ~SourceFile_c();
        SourceFile_c(SourceFile_c const &) = delete;
        SourceFile_c & operator=(SourceFile_c const &) = delete;

        /// Copies a line, counted from 1, without its end, cut at nSize - 1 bytes, and returns true. Returns
        /// false, with an empty text, if there is no such line.
        bool GetLine(unsigned iLine, char * szText, std::size_t nSize) const;

    private:
        std::size_t m_nBytes = 0;   // set together with m_pText
        char const * m_pText;
        mutable unsigned m_iNext = 1;   // number and start of the line after the one that was found last
        mutable char const * m_pNext;
        mutable bool m_bEnded = false;   // whether no line ends after m_pNext
    };

    /// Runs a part of the report and returns true. nLimit is in milliseconds; 0 sets no limit. Returns false if a
    /// fault, an exception or the limit ended it. No exception leaves the call: that would unwind the crashed thread.
    template <typename CALL>
    bool CallGuarded(unsigned nLimit, CALL fnCall)
    {
        ComplaintMark_c const Mark;
        bool const bEnded =
            plat::FaultCallGuarded([](void * pCall) noexcept { (*static_cast<CALL *>(pCall))(); }, &fnCall, nLimit);
        if (!bEnded)
        {
            Mark.EndLater();
        }
        return bEnded;
    }

    /// The file of details while it is written. Its buffer collects lines for one write.
    class Details_c
    {
    public:
        /// Makes the file beside the report with this path. IsOpen returns false if that fails or the path is empty.
        explicit Details_c(char const * szReport);
        ~Details_c() { plat::RawClose(m_hFile); }
        Details_c(Details_c const &) = delete;
        Details_c & operator=(Details_c const &) = delete;

        bool IsOpen() const { return m_hFile != nullptr; }

        /// Returns whether a write failed, or a section and its end were both broken off.
        bool HasLost() const { return m_bLost || m_bStuck; }

        /// Returns the line that is being made.
        Text_c & GetLine() { return m_Line; }

        /// Ends the line of GetLine and starts the next one. A line that was cut ends in "...".
        void EndLine();

        /// Adds whole lines. Escapes what TextEscape (platform/text.h) escapes, except tabs and line ends.
        void AddLines(char const * szLines);

        /// Writes a section: the lines that fnCall adds. If a fault or nLimit milliseconds end it early, its whole
        /// lines stay, and a last line says why. If that end is broken off too, writes no more sections.
        template <typename CALL>
        void WriteSection(CrashSection_e eSection, unsigned nLimit, CALL fnCall)
        {
            auto const fnWhole = [&]
            {
                Begin(eSection);
                fnCall(*this);
                Flush();
            };
            auto const fnEnd = [&]
            {
                Cut(nLimit);
                Flush();
            };
            m_bStuck = m_bStuck || (!CallGuarded(nLimit, fnWhole) && !CallGuarded(WRITE_LIMIT, fnEnd));
        }

    private:
        void Begin(CrashSection_e eSection);
        void Cut(unsigned nLimit);
        void Flush();
        void MakeRoomForCut();   // shortens the line until CUT fits, and splits no character of UTF-8

        static constexpr char CUT[] = "...\n";          // end of a line that was cut
        static constexpr unsigned WRITE_LIMIT = 5000;   // milliseconds for the end of a section that was cut

        static constexpr std::size_t BUFFER_SIZE = 2 * LINE_SIZE;

        plat::RawFile_t m_hFile = nullptr;
        char m_szBuffer[BUFFER_SIZE];
        std::size_t volatile m_nWhole = 0;      // bytes of whole lines in the buffer
        bool volatile m_bFlushing = false;      // whether a write of the buffer has begun
        std::uint64_t volatile m_nBefore = 0;   // bytes of the file before that write
        bool m_bLost = false;                   // whether a write failed
        bool m_bStuck = false;                  // whether a section and its end were both broken off
        char m_szLine[LINE_SIZE];
        Text_c m_Line{ m_szLine, sizeof m_szLine };
        std::uint32_t m_tBegin = 0;   // of the section, in milliseconds
    };

    /// Writes a text of any length to the report. Escapes what TextEscape (platform/text.h) escapes, except tabs and
    /// line ends. Each write waits for the disk, so callers pass a whole line or more.
    void WriteText(Text_c const & Text);

    /// Returns the name of a fault's code, or the system's text for a code without one. That text is valid until the
    /// next call.
    char const * FaultName(std::uint32_t nCode);

    /// Makes a private file and returns it, or null on failure. fnMakePath(szMore) writes the path to szPath. Appends
    /// to a finished file of this user that has the name. If anything else has the name, leaves it alone and tries an
    /// unpredictable szMore in the name, up to 15 times.
    template <typename MAKE_PATH>
    plat::RawFile_t MakeUnderFreeName(char const * szPath, MAKE_PATH const & fnMakePath)
    {
        constexpr int TRIES = 16;
        char szMore[16] = "";
        plat::RawFile_t hFile = nullptr;
        bool bTaken = true;
        for (int i = 0; i < TRIES && bTaken; ++i)
        {
            fnMakePath(szMore);
            hFile = plat::RawMakePrivate(szPath, bTaken);
            std::snprintf(szMore, sizeof szMore, "_%08" PRIx32, static_cast<std::uint32_t>(plat::GoodClockTicks()));
        }
        return hFile;
    }

    /// Writes the file of details beside a report with this path. Each part has a limit of its own, and a fault costs
    /// that part only. Returns false if not all of it could be written.
    bool WriteDetails(plat::Symbols_c & Symbols, plat::FaultPointers_t const & Fault, char const * szReport);

    /// Writes the call stack, with or without the variables of each frame. Adds its lines, without the addresses, to
    /// pDialogText as far as they fit, unless that is null.
    void WriteCallStack(plat::Symbols_c & Symbols, bool bVariables, Text_c * pDialogText);

    /// Writes the variables of the last frame of Symbols_c::NextFrame.
    void WriteVariables(plat::Symbols_c & Symbols);

    /// Writes the listing of the code around an address.
    void WriteCode(std::uintptr_t Address);

    /// Keeps the end of the main log for WriteProcess, without the lines that the report adds.
    void KeepLogTail();

    /// Writes what is known of the process: the time and its uptime, its command line, the host and the system, its
    /// memory, the end of the main log, and its timers.
    void WriteProcess(Details_c & Details);
}
