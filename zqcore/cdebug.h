// cdebug.h: assertions, warnings and aborts.
//
// Four levels of complaint: an assertion names a broken precondition, Warning reports something odd, Achtung something
// that a developer must see once, Abort ends the process. Each logs its text first, so that the log holds every
// complaint even when no dialog appears. Texts are cut at 2048 characters. In silent mode no dialog appears; a complaint
// that ends the process prints its text on standard error first.
//
// Threads: any thread may complain, and a dialog blocks the thread that complains. The receivers of g_WarningsCallbacker
// and g_ExecutionCallbacker run on that thread, one thread at a time for each list: another thread that fires the list
// waits for them, and so does a fork. A complaint inside a receiver of the same list is logged and not fired. A receiver
// may log and take notes; it must not wait for another thread, nor open a file that another thread may be opening. The
// crash path fires without waiting.
#pragma once

#include "zqcore/cconfig.h"

#include <cstdarg>

/// States a precondition. When it does not hold the condition's text is logged and shown; the code goes on behind it if
/// the developer ignores the complaint.
#define ZQ_ASSERT(condition) ZQ_ASSERT_TEXT(condition, #condition)

/// The same with the condition worded for the reader.
#define ZQ_ASSERT_TEXT(condition, szCondition)                                                                         \
    ((condition) ? static_cast<void>(0) : AssertReport(szCondition, __FILE__, ZQ_FUNCTION, __LINE__))

/// A precondition with an explanation, which is a printf format with its arguments.
#define ZQ_ASSERT_EX(condition, ...) ZQ_ASSERT_EX_TEXT(condition, #condition, __VA_ARGS__)
#define ZQ_ASSERT_EX_TEXT(condition, szCondition, ...)                                                                 \
    ((condition) ? static_cast<void>(0) : AssertReportEx(szCondition, __FILE__, ZQ_FUNCTION, __LINE__, __VA_ARGS__))

/// A precondition whose failure offers to break into the debugger right here.
#define ZQ_ASSERT_BREAK(condition, szText)                                                                             \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition) && DebugMessages_c::Get().DebugAssert(__FILE__, __LINE__, szText))                            \
        {                                                                                                              \
            ZQ_BREAK();                                                                                                \
        }                                                                                                              \
    }                                                                                                                  \
    while (false)

/// Shows no dialog of any level; an assertion or a first Achtung then ends the process with status 1. Starts false.
extern ZQ_API bool g_silentMode;

/// Whether Warning may show a dialog. Starts false; written by SetWarnings.
extern ZQ_API bool g_bEnableWarnings;

/// Set once Abort has begun.
extern ZQ_API bool g_isAborting;

/// Logs the text and asks the developer: Abort ends the process with a crash, Retry breaks into the debugger, Ignore
/// goes on. In silent mode the process ends with status 1. An assertion that fails while another one is handled is
/// dropped.
ZQ_API void AssertFailed(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the text and fires g_WarningsCallbacker; shows a dialog only after SetWarnings(true).
ZQ_API void Warning(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the text, fires g_WarningsCallbacker and shows a dialog, unless one of the last 16 different texts was the
/// same. In silent mode the process ends with status 1. After SetAchtungs(false) it only logs and fires.
ZQ_API void Achtung(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs and shows the text and ends the process with a crash.
[[noreturn]] ZQ_API void Abort(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Whether Warning, and whether Achtung, goes past logging and firing.
ZQ_API void SetWarnings(bool bEnable);
ZQ_API void SetAchtungs(bool bEnable);

/// Complaints with a location, shown with a stack trace. One instance; a dialog's Cancel ends the process, and no
/// further dialog of this class appears while it does.
class DebugMessages_c
{
public:
    /// A warning with a location, as SetLocation returns it.
    using Internal_t = int (DebugMessages_c::*)(char const * fmt, ...);

    static constexpr std::size_t TEXT_SIZE = 16384;   // bytes of a message, which is cut to fit

    /// The instance, created at first use.
    ZQ_API static DebugMessages_c & Get();

    /// Shows a failed condition. True if the caller is to break; false without a dialog while m_bQuiet is set.
    ZQ_API bool DebugAssert(char const * sFile, int iLine, char const * sText);

    /// Keeps the location of the calling thread's next complaints and returns the operation that makes it:
    /// `(dm.*dm.SetLocation(__FILE__, __LINE__))("text %i", i)`. The file name is kept as a pointer.
    ZQ_API Internal_t SetLocation(char const * sFile, int iLine);

    /// Shows an error at the kept location; breaks into the debugger on OK. The dialog's answer (1 OK).
    ZQ_API int DebugErrorInternal(char const * fmt, ...) ZQ_PRINTF(2, 3);

    /// Shows a warning at the kept location; breaks into the debugger on Yes. The dialog's answer (6 Yes, 7 No).
    ZQ_API int DebugWarningInternal(char const * fmt, ...) ZQ_PRINTF(2, 3);

    /// Shows a dialog with a stack trace, above all other windows; nStyle is made of the MESSAGE_ words of
    /// cexceptioninfo.h. The answer's number; Cancel (2) ends the process with status -1. In silent mode logs the text
    /// and returns No (7).
    ZQ_API ZQ_COLD int DropMessageBox(char const * sCaption, char const * sText, unsigned long nStyle);

    bool m_bQuiet = false;       // DebugAssert shows nothing
    void * m_hOwner = nullptr;   // window that owns the dialogs
};

/// What the macros above call when a condition fails. szFunction is the compiler's spelling, cut to class and name.
ZQ_API ZQ_COLD void AssertReport(char const * szCondition, char const * szFile, char const * szFunction, int iLine);
ZQ_API ZQ_COLD void AssertReportEx(char const * szCondition, char const * szFile, char const * szFunction, int iLine,
    char const * fmt, ...) ZQ_PRINTF(5, 6);
