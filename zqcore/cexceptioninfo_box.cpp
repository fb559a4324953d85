#include "zqcore/ccallback_internal.h"
#include "zqcore/cexceptioninfo_internal.h"

#include "platform/dialog.h"

#include <cstdio>

using namespace exceptioninfo;

constinit char exceptioninfo::g_szDialog[DIALOG_SIZE] = "";

namespace
{
    char g_szMessageTrace[MESSAGE_TRACE_SIZE];

    // Arguments of MessageBoxWithTrace.
    struct Message_t
    {
        void * hOwner;
        char const * szText;
        char const * szCaption;
        unsigned long nStyle;
        int nFrames, nSkip;
    };

    plat::DialogButtons_e ButtonsOf(unsigned long nStyle)
    {
        constexpr unsigned long BUTTONS = 0xF;   // bits of a style, as MB_TYPEMASK of Windows
        switch (nStyle & BUTTONS)
        {
        case MESSAGE_OK_CANCEL:
            return plat::DialogButtons_e::OkCancel;
        case MESSAGE_ABORT_RETRY_IGNORE:
            return plat::DialogButtons_e::AbortRetryIgnore;
        case MESSAGE_YES_NO_CANCEL:
            return plat::DialogButtons_e::YesNoCancel;
        default:
            return plat::DialogButtons_e::Ok;
        }
    }

    plat::DialogModality_e ModalityOf(unsigned long nStyle)
    {
        if (nStyle & MESSAGE_SYSTEM_MODAL)
        {
            return plat::DialogModality_e::AlwaysOnTop;
        }
        return nStyle & MESSAGE_TASK_MODAL ? plat::DialogModality_e::Task : plat::DialogModality_e::Plain;
    }

    plat::DialogIcon_e IconOf(unsigned long nStyle)
    {
        constexpr unsigned long ICON = 0xF0;   // bits of a style, as MB_ICONMASK of Windows
        switch (nStyle & ICON)
        {
        case MESSAGE_ICON_ERROR:
            return plat::DialogIcon_e::Error;
        case MESSAGE_ICON_WARNING:
            return plat::DialogIcon_e::Warning;
        default:
            return plat::DialogIcon_e::NoIcon;
        }
    }

    // Shows the message with the trace of the calling thread and returns the answer. The frame of this function exists
    // while the stack is walked, and is the first that nSkip counts.
    ZQ_COLD int ShowFromHere(Message_t const & Message)
    {
        plat::FaultContext_t Context;
        plat::FaultContextCapture(&Context);
        plat::FaultRecord_t const Record = { plat::FAULT_BREAKPOINT, Context.nIp, {} };
        plat::FaultPointers_t const Here = { &Record, &Context };

        SetUpSymbols(Context);
        LoadModules();
        ExceptionInfo_c::Get().StackTrace(g_szMessageTrace, MESSAGE_TRACE_SIZE, Message.nFrames, Message.nSkip, &Here);

        ExceptionInfo_c::TraceLine("MsgBox( %s )", Message.szCaption);
        TraceText(Message.szText);
        TraceText("StackTrace");
        TraceText(g_szMessageTrace);
        std::snprintf(g_szDialog, DIALOG_SIZE, "%s\r\nStackTrace\r\n%s", Message.szText, g_szMessageTrace);
        return MessageBoxPlain(Message.hOwner, g_szDialog, Message.szCaption, Message.nStyle);
    }
}

int MessageBoxPlain(void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle)
{
    plat::Dialog_t Dialog;
    Dialog.szText = sText;
    Dialog.szCaption = sCaption;
    Dialog.eButtons = ButtonsOf(nStyle);
    Dialog.iDefaultButton = nStyle & MESSAGE_DEFAULT_2 ? 2 : 1;
    Dialog.eIcon = IconOf(nStyle);
    Dialog.eModality = ModalityOf(nStyle);
    Dialog.bTopmost = (nStyle & MESSAGE_TOPMOST) != 0;
    Dialog.pOwner = hOwner;
    return static_cast<int>(plat::DialogShow(Dialog));
}

int ExceptionInfo_c::MessageBoxWithTrace(
    void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle, int nFrames, int nSkip)
{
    Scope_c const Scope;           // its destructor prevents a tail call, which would remove this frame
    FiringNoWait_c const NoWait;   // a receiver of another thread may wait for this dialog
    return ShowFromHere({ hOwner, sText, sCaption, nStyle, nFrames, nSkip });
}
