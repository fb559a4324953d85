// cdebug_internal.h: assertions that show texts from outside, the end of a process by an answer, and complaints that a
// jump leaves.
#pragma once

#include "zqcore/ccallback_internal.h"
#include "zqcore/cdebug.h"

/// Exits the process because an answer in a dialog or the silent mode requires that. Ends all firings of the calling
/// thread first, because an exit handler may join a thread that waits to fire.
[[noreturn]] void ExitByComplaint(int iStatus);

/// Ends the process at once if the calling thread is inside ExitByComplaint, which can't be called again. An exit
/// handler has then faulted. The status is that of the exit.
void EndIfExiting();

/// Mark of the calling thread's complaints, before a call that a jump may leave.
class ComplaintMark_c
{
public:
    ComplaintMark_c();

    /// Ends the complaints that began after the mark, and their firings. Requires that the thread does not return to
    /// them.
    void EndLater() const;

private:
    FiringMark_c const m_Firings;
    bool const m_bInAssert;
};

/// Does what AssertReportEx does, for texts from outside, such as names in a file. fmt and what it inserts are treated
/// as LogEscaped (clog.h) treats them.
ZQ_COLD void AssertReportEscaped(char const * szCondition, char const * szFile, char const * szFunction, int iLine,
    char const * fmt, ...) ZQ_PRINTF(5, 6);

/// ZQ_ASSERT_EX_TEXT for texts from outside.
#define ZQ_ASSERT_ESCAPED(condition, szCondition, ...)                                                                 \
    ((condition) ? static_cast<void>(0)                                                                                \
                 : AssertReportEscaped(szCondition, __FILE__, ZQ_FUNCTION, __LINE__, __VA_ARGS__))
