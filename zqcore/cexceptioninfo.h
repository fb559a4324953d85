// cexceptioninfo.h: dialogs with a stack trace, and the dialog for a developer whose program faulted.
//
// The dialogs of DebugMessages_c (cdebug.h) use MessageBoxWithTrace. Start, Stop and OnUnhandledException are for a
// host that sets a fault filter. In that filter the faulting thread passes its fault to a thread of this object, the
// debug support thread, which shows the fault and asks what to do. The library itself never calls Start.
//
// Ownership: the only instance exists from load to the end of the process.
// Threads: any thread. One lock guards the object, so it shows one dialog at a time. MessageBoxPlain acquires no lock.
// Start and Stop belong to one thread.
// Cost: a trace starts the symbol helper and takes about 0.2 s. A dialog with a trace also lists up to 512 modules of
// the process. Traces and dialogs allocate nothing from the heap and acquire no other lock of the library, so a thread
// that holds those locks may complain. The host's dialog and the receiver of the trace lines may do both.
// Failure: without the symbol helper a trace has addresses instead of names and lines.
//
//     auto const fnPrevious = ExceptionInfo_c::SetTraceReceiver([](char const * szLine) { std::puts(szLine); });
//     ExceptionInfo_c & Info = ExceptionInfo_c::Get();
//     bool const bStarted = Info.Start();   // from here on a fault filter may call OnUnhandledException
//     std::uint32_t const dWords[12] = { 1, 2, 3 };
//     Info.DumpMemory(nullptr, 0, reinterpret_cast<std::uintptr_t>(dWords), 12);
//     Info.Stop();
//     ExceptionInfo_c::SetTraceReceiver(fnPrevious);
#pragma once

#include "zqcore/cconfig.h"

namespace plat
{
    struct FaultPointers_t;
}

/// Parts of a dialog's style: one of each kind (buttons, icon, default button, modality), and the flags
/// MESSAGE_FOREGROUND and MESSAGE_TOPMOST. The values are those of Windows.
inline constexpr unsigned long MESSAGE_OK = 0x0;
inline constexpr unsigned long MESSAGE_OK_CANCEL = 0x1;
inline constexpr unsigned long MESSAGE_ABORT_RETRY_IGNORE = 0x2;
inline constexpr unsigned long MESSAGE_YES_NO_CANCEL = 0x3;
inline constexpr unsigned long MESSAGE_ICON_ERROR = 0x10;
inline constexpr unsigned long MESSAGE_ICON_WARNING = 0x30;
inline constexpr unsigned long MESSAGE_DEFAULT_2 = 0x100;
inline constexpr unsigned long MESSAGE_SYSTEM_MODAL = 0x1000;
inline constexpr unsigned long MESSAGE_TASK_MODAL = 0x2000;
inline constexpr unsigned long MESSAGE_FOREGROUND = 0x10000;
inline constexpr unsigned long MESSAGE_TOPMOST = 0x40000;

/// Style of a dialog that is topmost, in the foreground and modal for the whole system.
inline constexpr unsigned long MESSAGE_ALWAYS_ON_TOP = MESSAGE_TOPMOST | MESSAGE_FOREGROUND | MESSAGE_SYSTEM_MODAL;

/// Shows a text as a dialog without a trace. Returns the answer: 1 OK, 2 Cancel, 3 Abort, 4 Retry, 5 Ignore, 6 Yes, 7
/// No. hOwner is a window of the host, or null.
ZQ_API int MessageBoxPlain(void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle);

/// Traces, and the debug support thread.
class ExceptionInfo_c
{
public:
    /// Type of a function that receives the lines of the trace channel, on any thread. A line has no line end, unless
    /// its text holds one.
    using TraceReceiver_t = void (*)(char const * szLine);

    /// Returns the only instance.
    ZQ_API static ExceptionInfo_c & Get();

    /// Starts the debug support thread, unless it runs already, and returns true. Returns false if the system refuses a
    /// thread. A forked child has no support thread until it calls Start.
    ZQ_API bool Start();

    /// Ends the support thread. Waits for it up to half a second, or until this object's open dialog is answered. A
    /// thread whose fault still waits then continues. Does nothing inside this object's dialogs, and on the support
    /// thread itself, where exit handlers may run.
    ZQ_API void Stop();

    /// Passes a fault to the support thread, waits for the answer without limit, and returns 0, so that the filters
    /// after this one get the fault. The support thread traces and shows one fault at a time. Requires a call
    /// from a fault filter. Answers:
    /// - Yes starts RemoteDebug\rdebug.cmd in the current folder, an executable program or script, and holds the
    ///   process with a second dialog. If the system can't start it, a warning of DebugMessages_c shows the reason.
    /// - No continues. Silent mode continues without a dialog. A fault on the support thread, for example in the host's
    ///   dialog, continues too.
    /// - Cancel ends the process by exit with the exception's code as its status, of which Linux keeps 8 bits. If an
    ///   exit handler faults, the process ends at once with that status.
    ///
    /// Returns 0 at once in these cases:
    /// - a debugger is attached.
    /// - the support thread does not run, or is the thread that faulted.
    /// - the calling thread holds the object's lock, for example inside one of its dialogs or in StackTrace.
    ZQ_API long OnUnhandledException(plat::FaultPointers_t const * pPointers);

    /// Writes the stack of a fault to szBuffer, cut at nSize - 1 bytes, at most 65535. Skips the first nSkip frames and
    /// writes up to nFrames lines, numbered from nSkip: "[04]\tname\tfile (line)\t\n".
    /// - An unknown name is "?". An unknown line is "eip\t" and the address, such as "eip\t0x00401000\n".
    /// - If the stack has fewer than nSkip + nFrames frames, the text ends in "Stack Trace Failed". If it has a frame
    ///   at the address 0, the text ends there in "Stack Trace Failed:: zero eip".
    ///
    /// Asserts that szBuffer has room and that there is a fault. Without a fault, or while another trace runs, the text
    /// is empty.
    ZQ_API void StackTrace(
        char * szBuffer, std::size_t nSize, int nFrames, int nSkip, plat::FaultPointers_t const * pPointers);

    /// Shows a dialog as MessageBoxPlain does, with the calling thread's stack after the text, and returns the answer.
    /// Sends caption, text and trace to the trace channel too. The trace is cut at 16383 bytes, the dialog's whole text
    /// at 69631. The first two frames are this function's own: nSkip 2 starts at the caller.
    ZQ_API int MessageBoxWithTrace(
        void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle, int nFrames, int nSkip);

    /// Sends nWords 32-bit words from the address nStart to the trace channel, 12 in a row. Leaves out the words after
    /// the last full row. A word that can't be read is "????????". szRegister is the name of the register whose value
    /// nValue led to nStart, or null if there is none.
    ZQ_API void DumpMemory(char const * szRegister, std::uintptr_t nValue, std::uintptr_t nStart, int nWords);

    /// Sends a formatted line, cut at 2047 bytes, to the receiver of the trace channel. Does nothing without a
    /// receiver.
    ZQ_API static void TraceLine(char const * fmt, ...) ZQ_PRINTF(1, 2);

    /// Replaces the receiver of the trace channel and returns the previous one. Null means none, as at start.
    /// Complaints call the receiver. The complaining thread may hold the lock that the receiver acquires. The complaint
    /// may be about the heap that the receiver allocates from.
    ZQ_API static TraceReceiver_t SetTraceReceiver(TraceReceiver_t fnReceiver);

private:
    constexpr ExceptionInfo_c() = default;
};
