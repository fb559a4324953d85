// cexceptioninfo.h: dialogs that carry a stack trace, and the dialog of a developer whose program faulted.
//
// The message boxes of cdebug.h come through MessageBoxWithTrace. Start, Stop and OnUnhandledException are for a host
// that sets a fault filter: the faulting thread hands its fault to a thread of its own, the debug support thread, which
// shows it and asks how to go on. The library doesn't start that thread.
//
// One lock guards the object: one dialog at a time, whichever thread shows it. Nothing here takes memory from the heap
// or any other lock of the library, so that a complaint may come from under those locks; what the host's dialog and the
// receiver of the trace lines take is theirs. A trace starts the symbol helper and costs about a fifth of a second;
// names and lines come from where that helper finds them, and there is no search path of our own. Without the helper a
// trace has the addresses. It knows the modules of the process, up to 512 of them.
#pragma once

#include "zqcore/cconfig.h"

namespace plat
{
    struct FaultPointers_t;
}

/// The style of a dialog: buttons, icon, default button, modality.
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

/// Topmost, set to the foreground and modal for the whole system.
inline constexpr unsigned long MESSAGE_ALWAYS_ON_TOP = MESSAGE_TOPMOST | MESSAGE_FOREGROUND | MESSAGE_SYSTEM_MODAL;

/// Shows a text with a style and returns the answer's number (1 OK, 2 Cancel, 3 Abort, 4 Retry, 5 Ignore, 6 Yes, 7 No).
/// The owner is a window of the host, or null. Any thread.
ZQ_API int MessageBoxPlain(void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle);

class ExceptionInfo_c
{
public:
    /// Receives a line of the trace channel, without a line end but for those that belong to its text. Any thread.
    using TraceReceiver_t = void (*)(char const * szLine);

    /// The instance, there from load time to the end of the process.
    ZQ_API static ExceptionInfo_c & Get();

    /// Starts the debug support thread; false if the system gives none. Does nothing if it runs. Start and Stop belong
    /// to one thread. A forked process has no support thread until it calls Start.
    ZQ_API bool Start();

    /// Ends the thread and waits for it, half a second at most when it is idle; an open dialog is waited for. A thread
    /// whose fault is still waiting then goes on. Does nothing on the support thread itself, where handlers of exit may
    /// run, and inside this object's dialogs.
    ZQ_API void Stop();

    /// For a fault filter: hands the fault to the support thread, which traces and shows it, and waits without limit.
    /// Yes starts RemoteDebug\rdebug.cmd of the current folder, a program or script that can be executed, and holds the
    /// process still with a second dialog; No, and silent mode without a dialog, go on; Cancel ends the process by
    /// exit with the exception's code, of which Linux keeps 8 bits. A fault of the support thread on the way, say in
    /// the host's dialog, counts as No. Returns 0, so that the filters behind get the fault. Returns at once with a
    /// debugger attached, while the support thread does not run or is the one that faulted, and on a thread that is
    /// inside one of this object's dialogs. One fault at a time.
    ZQ_API long OnUnhandledException(plat::FaultPointers_t const * pPointers);

    /// Writes the stack of a fault as text, cut to nSize - 1 bytes: up to nFrames frames behind the first nSkip, a line
    /// each, numbered from nSkip: "[04]\tname\tfile (line)\t\n", "?" for an unknown name, "eip\t0x%p" for an unknown
    /// line. A stack that ends before has "Stack Trace Failed" as its last text. Empty while any other trace runs.
    /// Requires room and a fault: a "Developer break" assertion otherwise, and an empty text where there is room.
    ZQ_API void StackTrace(
        char * szBuffer, std::size_t nSize, int nFrames, int nSkip, plat::FaultPointers_t const * pPointers);

    /// MessageBoxPlain with the calling thread's stack behind the text, cut at 16383 bytes. The frames count from two
    /// of its own: 2 skipped start at the caller.
    ZQ_API int MessageBoxWithTrace(
        void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle, int nFrames, int nSkip);

    /// Sends 32-bit words to the trace channel, 12 a row; words of an unfinished row are left out, and those that can't
    /// be read show as "????????". szRegister names the register that pointed there, null for none.
    ZQ_API void DumpMemory(char const * szRegister, std::uintptr_t nValue, std::uintptr_t nStart, int nWords);

    /// Sends a line, cut at 2047 bytes, to the trace channel. Nothing by default.
    ZQ_API static void TraceLine(char const * fmt, ...) ZQ_PRINTF(1, 2);

    /// Routes the trace channel; null for nowhere. Returns the former receiver. A receiver that takes a lock or memory
    /// does so inside complaints.
    ZQ_API static TraceReceiver_t TraceReceiverSet(TraceReceiver_t fnReceiver);

private:
    constexpr ExceptionInfo_c() = default;
};
