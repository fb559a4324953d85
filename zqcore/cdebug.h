// cdebug.h: assertions, warnings and aborts.
//
// There are four levels of complaints:
// - an assertion (ZQ_ASSERT) names a broken precondition.
// - Warning reports something odd.
// - Achtung reports something that a developer must see once.
// - Abort ends the process.
//
// Each level logs its text, cut at 2048 characters, before it shows a dialog. These complaints are not logged:
// - an assertion that fails while another one is handled.
// - an Achtung whose text is one of the last 16 different ones.
// - those of DebugMessages_c, which ZQ_ASSERT_BREAK uses too. They are logged in silent mode only.
//
// In silent mode (g_silentMode) no dialog appears. A complaint that ends the process in silent mode prints its text on
// standard error first.
//
// Complaints also fire two event lists (ccallback.h): g_WarningsCallbacker with the text of a Warning or an Achtung,
// g_ExecutionCallbacker around the dialog of an assertion or an Abort. Rules for their receivers:
// - they run on the thread that complains.
// - only one thread at a time runs receivers of these two lists and of the lists of files (cfile.h). Another thread
//   that fires one of these lists waits, and so does a fork. The report of a crash fires without waiting. The debug
//   heap's assertion on its counters, and a complaint inside a dialog with a trace, do not wait either: while another
//   thread fires, their events are dropped.
// - a complaint inside a receiver of the same list is not fired. It is logged, unless it is one of those above.
// - a receiver may log, store data and complain. Requires that it does not wait for another thread, and opens no file
//   that another thread may be opening.
//
// Ownership: texts are copied, unless a function says otherwise.
// Threads: any thread may complain. A dialog blocks the thread that complains.
// Cost: an assertion that holds costs its condition. A complaint costs a line of the log. A dialog with a stack trace
// also costs the trace of cexceptioninfo.h.
// Failure: the dialog's answer, or silent mode, decides whether the process continues.
//
//     int const nLives = 3;
//     ZQ_ASSERT(nLives > 0);
//     ZQ_ASSERT_EX(nLives < 10, "a player has %i lives", nLives);
//     if (!FileExists("extra.csv"))
//     {
//         Warning("extra.csv is missing, the defaults hold.");   // logged; a dialog only after SetWarnings(true)
//     }
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cprintf.h"

#include <cstdarg>

/// States a precondition. If it does not hold, logs and shows its text as AssertFailed does. If the developer ignores
/// the complaint, the code continues after it.
#define ZQ_ASSERT(condition) ZQ_ASSERT_TEXT(condition, #condition)

/// ZQ_ASSERT that shows szCondition instead of the condition's own text.
#define ZQ_ASSERT_TEXT(condition, szCondition)                                                                         \
    ((condition) ? static_cast<void>(0) : AssertReport(szCondition, __FILE__, ZQ_FUNCTION, __LINE__))

/// ZQ_ASSERT and ZQ_ASSERT_TEXT with an explanation: a printf format with its arguments.
#define ZQ_ASSERT_EX(condition, ...) ZQ_ASSERT_EX_TEXT(condition, #condition, __VA_ARGS__)
#define ZQ_ASSERT_EX_TEXT(condition, szCondition, ...)                                                                 \
    ((condition) ? static_cast<void>(0) : AssertReportEx(szCondition, __FILE__, ZQ_FUNCTION, __LINE__, __VA_ARGS__))

/// States a precondition. If it does not hold, DebugMessages_c::DebugAssert shows szText. The answer Yes breaks into
/// the debugger here.
#define ZQ_ASSERT_BREAK(condition, szText)                                                                             \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition) && DebugMessages_c::Get().DebugAssert(__FILE__, __LINE__, szText))                            \
        {                                                                                                              \
            ZQ_BREAK();                                                                                                \
        }                                                                                                              \
    }                                                                                                                  \
    while (false)

/// Whether silent mode is on. It is false at start. The application sets it. In silent mode:
/// - No level shows a dialog.
/// - An assertion ends the process with status 1.
/// - A new Achtung does so too, unless SetAchtungs turned them off.
extern ZQ_API bool g_silentMode;

/// Whether Warning shows a dialog, unless silent mode is on. It is false at start. SetWarnings sets it.
extern ZQ_API bool g_bEnableWarnings;

/// Whether Abort has begun: true from the end of its first firing of g_ExecutionCallbacker on.
extern ZQ_API bool g_isAborting;

/// Shows the mouse cursor (platform/window.h), logs the text, fires g_ExecutionCallbacker, shows a dialog and fires
/// g_ExecutionCallbacker again. Does nothing while any thread handles another assertion.
/// - Abort ends the process with a crash.
/// - Retry breaks into the debugger.
/// - Ignore continues.
/// - In silent mode the process ends with status 1 instead of the dialog.
ZQ_API void AssertFailed(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the text and fires g_WarningsCallbacker. Shows a dialog only after SetWarnings(true).
ZQ_API void Warning(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the text, fires g_WarningsCallbacker and shows a dialog. Does nothing if the text is one of the last 16
/// different ones. Texts are compared by their first 2047 characters.
/// - Yes breaks into the debugger.
/// - No continues.
/// - Cancel ends the process with status 0.
/// - In silent mode the process ends with status 1 instead of the dialog.
/// - After SetAchtungs(false) it only logs and fires, in silent mode too.
ZQ_API void Achtung(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the text, minimises g_pAppWindow, shows the text and ends the process with a crash. Cancel breaks into the
/// debugger first. Fires g_ExecutionCallbacker before and after the dialog. Prints what a listener of the log or a
/// receiver throws, and continues. Only an exception of the host's dialog leaves this function.
[[noreturn]] ZQ_API void Abort(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Set whether Warning, and whether Achtung, does more than log and fire. At start Warning does not and Achtung does.
ZQ_API void SetWarnings(bool bEnable);
ZQ_API void SetAchtungs(bool bEnable);

/// Complaints with a location, shown with a stack trace. Cancel in a dialog ends the process with status -1. No further
/// dialog of this class appears while the process ends.
class DebugMessages_c
{
public:
    /// Type of what SetLocation returns.
    using Internal_t = int (DebugMessages_c::*)(char const * fmt, ...);

    static constexpr std::size_t TEXT_SIZE = 16384;   // bytes to which a message is cut, with its terminator

    /// Returns the only instance.
    ZQ_API static DebugMessages_c & Get();

    /// Shows the text of a failed condition. Returns true for the answer Yes: the caller then breaks into the debugger.
    /// Returns false, without a dialog, while m_bQuiet is set.
    ZQ_API bool DebugAssert(char const * sFile, int iLine, char const * sText);

    /// Sets the location of the calling thread's next complaints. Returns DebugWarningInternal, to call at once:
    /// `(dm.*dm.SetLocation(__FILE__, __LINE__))("text %i", i)`. Keeps sFile as a pointer. Each thread has a file and a
    /// line of its own. The object has none.
    ZQ_API Internal_t SetLocation(char const * sFile, int iLine);

    /// Shows an error at the location that was set. Breaks into the debugger on OK. Returns the answer: 1 for OK, or 7
    /// if DropMessageBox shows no dialog.
    ZQ_API int DebugErrorInternal(char const * fmt, ...) ZQ_PRINTF(2, 3);

    /// Shows a warning at the location that was set. Breaks into the debugger on Yes. Returns the answer: 6 for Yes,
    /// 7 for No or if DropMessageBox shows no dialog.
    ZQ_API int DebugWarningInternal(char const * fmt, ...) ZQ_PRINTF(2, 3);

    /// Shows a dialog with a stack trace, above all other windows, and returns the answer, with the numbers of
    /// MessageBoxPlain. nStyle combines MESSAGE_ values of cexceptioninfo.h. Cancel (2) ends the process with status
    /// -1. In silent mode logs the text and returns 7. Returns 7 without a dialog while the process ends after Cancel.
    ZQ_API ZQ_COLD int DropMessageBox(char const * sCaption, char const * sText, unsigned long nStyle);

    bool m_bQuiet = false;       // whether DebugAssert shows nothing
    void * m_hOwner = nullptr;   // host's window that owns the dialogs, or null
};

/// Report a condition that failed. The assertion macros call them. szFunction is the compiler's spelling of a function.
/// The text shows its class and name.
ZQ_API ZQ_COLD void AssertReport(char const * szCondition, char const * szFile, char const * szFunction, int iLine);
ZQ_API ZQ_COLD void AssertReportEx(char const * szCondition, char const * szFile, char const * szFunction, int iLine,
    char const * fmt, ...) ZQ_PRINTF(5, 6);

/// Do what the functions of the same name do, with arguments of text classes (cprintf.h).
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , AssertFailed)
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , Warning)
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , Achtung)
ZQ_PRINTF_TEXTS([[noreturn]] ZQ_INLINE void, , Abort)
ZQ_PRINTF_TEXTS_AFTER(ZQ_INLINE void, , AssertReportEx,
    (char const * szCondition, char const * szFile, char const * szFunction, int iLine),
    (szCondition, szFile, szFunction, iLine))
