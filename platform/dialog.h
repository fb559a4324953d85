// dialog.h: a text with buttons, and the answer.
//
// A host may install its own dialog. Without one, the library asks the user at the terminal on standard input and
// error. An empty line there, or the end of the input, counts as the answer that lets the program continue (Ignore, No,
// OK), which the prompt marks. Without a terminal, or in the background of one, the text goes to standard error. The
// answer is then that of an empty line.
//
// Threads: any thread.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    /// Sets of buttons of a dialog.
    enum class DialogButtons_e
    {
        Ok,
        OkCancel,
        AbortRetryIgnore,
        YesNoCancel
    };

    /// The answer. The numbers are those of the Windows message boxes.
    enum class DialogAnswer_e : int
    {
        Ok = 1,
        Cancel = 2,
        Abort = 3,
        Retry = 4,
        Ignore = 5,
        Yes = 6,
        No = 7
    };

    /// Icon for a host's dialog. The terminal shows none.
    enum class DialogIcon_e
    {
        Error,
        Warning,
        NoIcon
    };

    /// Reach of a host's dialog.
    enum class DialogModality_e
    {
        Plain,        // blocks its own thread only
        Task,         // blocks the windows of the task
        AlwaysOnTop   // blocks everything on the screen
    };

    /// A dialog to show. The terminal shows the texts and the buttons only. The texts and the window stay the caller's.
    struct Dialog_t
    {
        char const * szText = "";
        char const * szCaption = "";
        DialogButtons_e eButtons = DialogButtons_e::Ok;
        int iDefaultButton = 1;   // of a host's dialog; counted from 1
        DialogIcon_e eIcon = DialogIcon_e::Error;
        DialogModality_e eModality = DialogModality_e::Plain;
        void * pOwner = nullptr;   // a window of the host, or null
        bool bTopmost = false;     // whether a host's dialog is above all windows
    };

    /// Function that shows a dialog and returns the answer. It runs on the thread that calls DialogShow. Several
    /// threads may call it at a time.
    using DialogHandler_t = DialogAnswer_e (*)(Dialog_t const & Dialog);

    /// Shows the dialog, waits for the answer and returns it. In a fault filter, while the terminal prompts, SIGTERM
    /// and the keys that end or stop a process have their default effect, whatever handlers the host has set.
    ZQ_API DialogAnswer_e DialogShow(Dialog_t const & Dialog);

    /// Prints a caption and a text on standard error, as an unattended dialog does. Uses no heap and no lock, so a
    /// fault filter may call it.
    ZQ_API void DialogPrint(char const * szCaption, char const * szText);

    /// Prints a line on standard error. Uses no heap and no lock, so a fault filter may call it.
    void DialogPrintLine(char const * szLine);

    /// Returns whether a user can answer: at a host's dialog or at a terminal.
    ZQ_API bool DialogIsAttended();

    /// Replaces the dialog; null restores the default. Returns the previous one.
    ZQ_API DialogHandler_t DialogSetHandler(DialogHandler_t fnHandler);
}
