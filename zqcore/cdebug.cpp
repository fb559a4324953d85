#include "zqcore/cdebug.h"

#include "zqcore/capp.h"
#include "zqcore/carray.h"
#include "zqcore/ccallback.h"
#include "zqcore/ccomplaint_internal.h"
#include "zqcore/cdebug_internal.h"
#include "zqcore/cdebug_spelling_internal.h"
#include "zqcore/cexceptioninfo.h"
#include "zqcore/clog.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cstring.h"

#include "platform/dialog.h"
#include "platform/faults.h"
#include "platform/fork.h"
#include "platform/threads.h"
#include "platform/window.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>

constinit bool g_silentMode = false;
constinit bool g_bEnableWarnings = false;
constinit bool g_isAborting = false;

namespace
{
    constexpr std::size_t COMPLAINT_SIZE = LOG_LINE_LENGTH + 1;   // bytes, the terminator included
    constexpr int ACHTUNGS_REMEMBERED = 16;
    constexpr std::size_t FUNCTION_NAME_SIZE = 256;   // bytes of a function's spelled name
    constexpr char ACHTUNG_CAPTION[] = "ACHTUNG!";
    constexpr char ERROR_CAPTION[] = "Error";
    constexpr char WARNING_CAPTION[] = "Warning";
    constexpr char YES_NO_TAIL[] = "\r\n\r\nUse Yes to break into Debugger, No to continue.\r\nand Cancel to Quit\r\n";
    constexpr char OK_TAIL[] = "\r\n\r\nUse Ok to break into Debugger, Cancel exits.\r\n\r\n";
    constexpr int STACK_FRAMES = 10;   // of a dialog's trace
    constexpr int STACK_SKIPPED = 4;   // the complaint's own frames

    static_assert(DebugMessages_c::TEXT_SIZE <= ESCAPED_SIZE);
    constexpr std::size_t LOCATED_SIZE = 2 * DebugMessages_c::TEXT_SIZE + 4096;   // of a located complaint's dialog

    constinit bool g_bAchtungs = true;
    constinit std::atomic<bool> g_bExitRequested = false;

    // Location of the calling thread's next located complaints.
    ZQ_THREAD_LOCAL char const * t_szFile = "";
    ZQ_THREAD_LOCAL int t_iLine = 0;

    constinit std::atomic<bool> g_bInAssert = false;   // whether any thread is in an assertion
    ZQ_THREAD_LOCAL bool t_bInAssert = false;          // whether the calling thread is the one in an assertion
    plat::ForkHandler_c const g_AssertForkHandler({ nullptr, nullptr, [] { g_bInAssert = t_bInAssert = false; } });
    ZQ_THREAD_LOCAL bool t_bExits = false;   // whether the calling thread is in ExitByComplaint
    ZQ_THREAD_LOCAL int t_iExitStatus = 0;
    constinit plat::Lock_c g_AchtungLock;   // lock of the remembered texts
    plat::ForkLock_c const g_AchtungForkLock(g_AchtungLock);

    using AchtungText_t = String_T<COMPLAINT_SIZE - 1>;
    using SeenAchtungs_t = SortedArray_T<AchtungText_t, StaticArrayLenTraits_T<AchtungText_t, ACHTUNGS_REMEMBERED>>;

    // Fires g_ExecutionCallbacker, unless bFires is false.
    void FireExecution(bool bFires, bool bGoesOn)
    {
        if (bFires)
        {
            Firing_c const Firing;   // always granted: it waits for the lock, or AskWhileStopped holds the lock
            g_ExecutionCallbacker.Fire(bGoesOn, false);
        }
    }

    // Calls the host's code in an abort, which no exception may prevent. Prints the exception.
    template <typename CALL>
    void CallInAbort(CALL fnCall)
    {
        constexpr char CAPTION[] = "Exception while the application aborts!";
        try
        {
            fnCall();
        }
        catch (std::exception const & Thrown)
        {
            plat::DialogPrint(CAPTION, Thrown.what());
        }
        catch (...)
        {
            plat::DialogPrint(CAPTION, "");
        }
    }

    void FireExecutionInAbort(bool bFires, bool bGoesOn)
    {
        CallInAbort([=] { FireExecution(bFires, bGoesOn); });
    }

    // Prints the complaint and ends a process in silent mode.
    [[noreturn]] void ExitSilently(char const * szWhat, char const * szText)
    {
        plat::DialogPrint(szWhat, szText);
        ExitByComplaint(1);
    }

    // Return and set a flag. The exported flags are plain variables, which hosts set and any thread reads.
    bool Load(bool & bFlag)
    {
        return std::atomic_ref(bFlag).load(std::memory_order_relaxed);
    }

    void Store(bool & bFlag, bool bValue)
    {
        std::atomic_ref(bFlag).store(bValue, std::memory_order_relaxed);
    }

    bool Is(int iAnswer, plat::DialogAnswer_e eAnswer)
    {
        return iAnswer == static_cast<int>(eAnswer);
    }

    // Crashes with the breakpoint's code, so that a report is written.
    [[noreturn]] void Crash()
    {
        MemoryAbort();
        ZQ_BREAK();
        ExitByComplaint(1);
    }

    // Remembers a text and returns whether it was new. A new one replaces the oldest if the list is full.
    bool RememberAchtung(char const * szText)
    {
        static constinit SeenAchtungs_t s_dSeen;
        AchtungText_t const sText(szText);
        plat::LockScope_c const Scope(g_AchtungLock);
        if (s_dSeen.Find(sText))
        {
            return false;
        }
        if (s_dSeen.GetLength() == ACHTUNGS_REMEMBERED)
        {
            s_dSeen.Delete(0);
        }
        s_dSeen.Add(sText);
        return true;
    }

    // Fires the stop, asks, and fires the continuation, also if a receiver or the dialog throws. Returns the answer.
    // If an event may be dropped, one firing covers both: a host that was stopped must be continued.
    template <typename ASK>
    int AskWhileStopped(ASK fnAsk, void (*fnFire)(bool bFires, bool bGoesOn) = FireExecution)
    {
        std::optional<Firing_c> Both;
        if (FiringNoWait_c::IsActive())
        {
            Both.emplace();
        }
        bool const bFires = !Both || Both->IsGranted();
        int iAnswer;
        try
        {
            fnFire(bFires, false);
            iAnswer = fnAsk();
        }
        catch (...)
        {
            fnFire(bFires, true);
            throw;
        }
        fnFire(bFires, true);
        return iAnswer;
    }

    // Begins the text of a located complaint's dialog, of LOCATED_SIZE bytes. Returns the place of the message.
    char * BeginLocated(char * szDialog, char const * szWhat)
    {
        return szDialog + std::sprintf(szDialog, "%s: \t", szWhat);
    }

    // Appends the tail and the kept location to the message.
    void EndLocated(char * szDialog, char const * szTail)
    {
        std::size_t const nText = std::strlen(szDialog);
        std::snprintf(
            szDialog + nText, LOCATED_SIZE - nText, "%s\r\nFile: \t%s\r\nLine:\t%d", szTail, t_szFile, t_iLine);
    }

    // Breaks into the debugger after the answer OK or Yes. Returns the answer.
    int BreakIfWanted(int iAnswer)
    {
        if (Is(iAnswer, plat::DialogAnswer_e::Ok) || Is(iAnswer, plat::DialogAnswer_e::Yes))
        {
            ZQ_BREAK();
        }
        return iAnswer;
    }

    // Shows the dialog of an assertion and returns its answer. Ends a process in silent mode.
    int AskAfterAssertion(char const * szText)
    {
        if (Load(g_silentMode))
        {
            ExitSilently("Assertion failed!", szText);
        }
        return MessageBoxPlain(nullptr, szText, "Assertion failed! Press ignore to continue or retry to debug.",
            MESSAGE_ABORT_RETRY_IGNORE | MESSAGE_DEFAULT_2 | MESSAGE_ICON_WARNING | MESSAGE_ALWAYS_ON_TOP);
    }

    // Marks the abort, minimises the window, shows the dialog and returns its answer. In silent mode prints the text
    // instead of the dialog and returns 0.
    int AskBeforeAbort(char const * szText)
    {
        Store(g_isAborting, true);
        if (g_pAppWindow)
        {
            CallInAbort([] { plat::WindowSystemGet().fnMinimise(g_pAppWindow); });
        }
        if (Load(g_silentMode))
        {
            plat::DialogPrint("Application aborted!", szText);
            return 0;
        }
        return MessageBoxPlain(nullptr, szText, "Application aborted! Cancel to debug.",
            MESSAGE_OK_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_ALWAYS_ON_TOP);
    }
}

void SetWarnings(bool bEnable)
{
    Store(g_bEnableWarnings, bEnable);
}

void SetAchtungs(bool bEnable)
{
    Store(g_bAchtungs, bEnable);
}

void ExitByComplaint(int iStatus)
{
    Firing_c::EndAll();
    t_iExitStatus = iStatus;
    t_bExits = true;
    std::exit(iStatus);
}

void EndIfExiting()
{
    if (t_bExits)
    {
        plat::FaultExit(t_iExitStatus);
    }
}

ComplaintMark_c::ComplaintMark_c()
    : m_bInAssert(t_bInAssert)
{}

void ComplaintMark_c::EndLater() const
{
    m_Firings.EndLater();
    if (t_bInAssert && !m_bInAssert)
    {
        g_bInAssert = t_bInAssert = false;
    }
}

void AssertFailed(char const * fmt, ...)
{
    if (g_bInAssert.exchange(true))   // atomic: of two threads, one continues
    {
        return;
    }
    t_bInAssert = true;
    struct Leave_c
    {
        ~Leave_c() { g_bInAssert = t_bInAssert = false; }   // a dialog may throw
    } const Leave;
    plat::WindowSystemGet().fnShowCursor();

    char szText[COMPLAINT_SIZE];
    ZQ_FORMAT_LINE(szText, COMPLAINT_SIZE, fmt);
    LogText(szText);

    int const iAnswer = AskWhileStopped([&szText] { return AskAfterAssertion(szText); });
    if (Is(iAnswer, plat::DialogAnswer_e::Retry))
    {
        ZQ_BREAK();
    }
    else if (Is(iAnswer, plat::DialogAnswer_e::Abort))
    {
        Crash();
    }
}

void Warning(char const * fmt, ...)
{
    char szText[COMPLAINT_SIZE];
    ZQ_FORMAT_LINE(szText, COMPLAINT_SIZE, fmt);
    LogText(szText);

    FireIfGranted(g_WarningsCallbacker, szText);
    if (Load(g_bEnableWarnings) && !Load(g_silentMode))
    {
        MessageBoxPlain(nullptr, szText, "Warning!", MESSAGE_OK | MESSAGE_ICON_ERROR | MESSAGE_ALWAYS_ON_TOP);
    }
}

void Achtung(char const * fmt, ...)
{
    char szText[COMPLAINT_SIZE + sizeof YES_NO_TAIL];
    ZQ_FORMAT_LINE(szText, COMPLAINT_SIZE, fmt);
    if (!RememberAchtung(szText))
    {
        return;
    }
    LogText(szText);
    FireIfGranted(g_WarningsCallbacker, szText);
    if (!Load(g_bAchtungs))
    {
        return;
    }
    if (Load(g_silentMode))
    {
        ExitSilently(ACHTUNG_CAPTION, szText);
    }
    std::strcat(szText, YES_NO_TAIL);
    int const iAnswer = MessageBoxPlain(
        g_pAppWindow, szText, ACHTUNG_CAPTION, MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_TASK_MODAL);
    if (Is(iAnswer, plat::DialogAnswer_e::Yes))
    {
        ZQ_BREAK();
    }
    else if (Is(iAnswer, plat::DialogAnswer_e::Cancel))
    {
        ExitByComplaint(0);
    }
}

void Abort(char const * fmt, ...)
{
    char szText[COMPLAINT_SIZE];
    ZQ_FORMAT_LINE(szText, COMPLAINT_SIZE, fmt);
    CallInAbort([&szText] { LogText(szText); });

    if (Is(AskWhileStopped([&szText] { return AskBeforeAbort(szText); }, FireExecutionInAbort),
            plat::DialogAnswer_e::Cancel))
    {
        ZQ_BREAK();
    }
    Crash();
}

void AssertReport(char const * szCondition, char const * szFile, char const * szFunction, int iLine)
{
    char szName[FUNCTION_NAME_SIZE];
    SpellFunctionName(szFunction, szName, sizeof szName);
    Debugf("%s(%i) : Assert() failed", szFile, iLine);
    AssertFailed("Assert failed, %s, %s, %s, %i", szCondition, szFile, szName, iLine);
}

namespace
{
    void ReportExplained(
        char const * szCondition, char const * szText, char const * szFile, char const * szFunction, int iLine)
    {
        char szName[FUNCTION_NAME_SIZE];
        SpellFunctionName(szFunction, szName, sizeof szName);
        Debugf("%s(%i) : AssertEx() failed", szFile, iLine);
        AssertFailed("AssertEx failed, %s, %s, %s, %s, %i", szCondition, szText, szFile, szName, iLine);
    }
}

void AssertReportEx(
    char const * szCondition, char const * szFile, char const * szFunction, int iLine, char const * fmt, ...)
{
    char szText[COMPLAINT_SIZE];
    ZQ_FORMAT_LINE(szText, COMPLAINT_SIZE, fmt);
    ReportExplained(szCondition, szText, szFile, szFunction, iLine);
}

void AssertReportEscaped(
    char const * szCondition, char const * szFile, char const * szFunction, int iLine, char const * fmt, ...)
{
    char szText[COMPLAINT_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatEscaped(szText, COMPLAINT_SIZE, fmt, args);
    va_end(args);
    ReportExplained(szCondition, szText, szFile, szFunction, iLine);
}

DebugMessages_c & DebugMessages_c::Get()
{
    static constinit DebugMessages_c s_Messages;
    return s_Messages;
}

bool DebugMessages_c::DebugAssert(char const * sFile, int iLine, char const * sText)
{
    constexpr int LIMIT = TEXT_SIZE - 1;
    char szDialog[LOCATED_SIZE];
    std::snprintf(szDialog, sizeof szDialog, "Warning: \t%.*s\t%.*s\r\nFile: \t%s\r\nLine:\t%d", LIMIT, sText, LIMIT,
        sText, sFile, iLine);
    int const iAnswer = m_bQuiet ? static_cast<int>(plat::DialogAnswer_e::Ok)
                                 : DropMessageBox("Assertion failed", szDialog,
                                     MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_TASK_MODAL);
    return Is(iAnswer, plat::DialogAnswer_e::Yes);
}

DebugMessages_c::Internal_t DebugMessages_c::SetLocation(char const * sFile, int iLine)
{
    t_szFile = sFile;
    t_iLine = iLine;
    return &DebugMessages_c::DebugWarningInternal;
}

int DebugMessages_c::DebugErrorInternal(char const * fmt, ...)
{
    char szDialog[LOCATED_SIZE];
    ZQ_FORMAT_LINE(BeginLocated(szDialog, ERROR_CAPTION), TEXT_SIZE, fmt);
    EndLocated(szDialog, OK_TAIL);
    int const iAnswer =
        DropMessageBox(ERROR_CAPTION, szDialog, MESSAGE_OK_CANCEL | MESSAGE_ICON_ERROR | MESSAGE_TASK_MODAL);
    return BreakIfWanted(iAnswer);
}

int DebugMessages_c::DebugWarningInternal(char const * fmt, ...)
{
    char szDialog[LOCATED_SIZE];
    ZQ_FORMAT_LINE(BeginLocated(szDialog, WARNING_CAPTION), TEXT_SIZE, fmt);
    EndLocated(szDialog, YES_NO_TAIL);
    int const iAnswer =
        DropMessageBox(WARNING_CAPTION, szDialog, MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_TASK_MODAL);
    return BreakIfWanted(iAnswer);
}

int DebugMessages_c::DropMessageBox(char const * sCaption, char const * sText, unsigned long nStyle)
{
    if (g_bExitRequested)
    {
        return static_cast<int>(plat::DialogAnswer_e::No);
    }
    if (Load(g_silentMode))
    {
        LogText(sText);
        return static_cast<int>(plat::DialogAnswer_e::No);
    }
    int const iAnswer = ExceptionInfo_c::Get().MessageBoxWithTrace(
        m_hOwner, sText, sCaption, nStyle | MESSAGE_TOPMOST, STACK_FRAMES, STACK_SKIPPED);
    if (Is(iAnswer, plat::DialogAnswer_e::Cancel))
    {
        g_bExitRequested = true;
        ExitByComplaint(-1);
    }
    return iAnswer;
}
