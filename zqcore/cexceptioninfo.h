// cexceptioninfo.h: dialogs that carry a stack trace.
#pragma once

#include "zqcore/cconfig.h"

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
    /// The instance, built at first use.
    ZQ_API static ExceptionInfo_c & Get();

    /// The same with the calling thread's stack behind the text: up to nFrames frames, without the first nSkip. One
    /// dialog at a time. Today the trace is empty.
    ZQ_API int MessageBoxWithTrace(
        void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle, int nFrames, int nSkip);

private:
    ExceptionInfo_c() = default;
};
