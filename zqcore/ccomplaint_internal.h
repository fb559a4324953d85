// ccomplaint_internal.h: the end of a process by a complaint, and complaints that a jump leaves.
#pragma once

#include "zqcore/ccallback_internal.h"

/// Exits the process because of a complaint. Ends all firings of the calling thread first, because an exit handler may
/// join a thread that waits to fire.
[[noreturn]] void ExitByComplaint(int iStatus);

/// Ends the process at once, with the status of the exit, if the calling thread is inside ExitByComplaint. An exit
/// handler has then faulted.
void EndIfExiting();

/// Mark of the calling thread's complaints, before a call that a jump may leave.
class ComplaintMark_c
{
public:
    ComplaintMark_c();

    /// Ends the complaints and the firings that began after the mark. Requires that the thread does not return to them.
    void EndLater() const;

private:
    FiringMark_c const m_Firings;
    bool const m_bInAssert;
};
