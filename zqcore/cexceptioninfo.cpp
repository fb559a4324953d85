#include "zqcore/cexceptioninfo.h"

#include "platform/dialog.h"
#include "platform/threads.h"

#include <cstdio>

namespace
{
    constexpr std::size_t DIALOG_SIZE = 4 * 16384;   // a text and a trace

    plat::Lock_c g_Lock;
    char g_szDialog[DIALOG_SIZE];

    plat::DialogButtons_e ButtonsOf(unsigned long nStyle)
    {
        switch (nStyle & 0xF)
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
        if (nStyle & (MESSAGE_SYSTEM_MODAL | MESSAGE_TOPMOST))
        {
            return plat::DialogModality_e::AlwaysOnTop;
        }
        return nStyle & MESSAGE_TASK_MODAL ? plat::DialogModality_e::Task : plat::DialogModality_e::Plain;
    }
}

int MessageBoxPlain(void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle)
{
    plat::Dialog_t Dialog;
    Dialog.szText = sText;
    Dialog.szCaption = sCaption;
    Dialog.eButtons = ButtonsOf(nStyle);
    Dialog.iDefaultButton = nStyle & MESSAGE_DEFAULT_2 ? 2 : 1;
    Dialog.eIcon = (nStyle & 0xF0) == MESSAGE_ICON_WARNING ? plat::DialogIcon_e::Warning : plat::DialogIcon_e::Error;
    Dialog.eModality = ModalityOf(nStyle);
    Dialog.pOwner = hOwner;
    return static_cast<int>(plat::DialogShow(Dialog));
}

ExceptionInfo_c & ExceptionInfo_c::Get()
{
    static ExceptionInfo_c s_Instance;
    return s_Instance;
}

int ExceptionInfo_c::MessageBoxWithTrace(
    void * hOwner, char const * sText, char const * sCaption, unsigned long nStyle, int, int)
{
    plat::LockScope_c const Scope(g_Lock);
    std::snprintf(g_szDialog, DIALOG_SIZE, "%s\r\nStackTrace\r\n%s", sText, "");
    return MessageBoxPlain(hOwner, g_szDialog, sCaption, nStyle);
}
