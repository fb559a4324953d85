// debugger.h: output to a debugger, and whether one is attached.
//
// Threads: any thread.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    /// Receiver of debugger output, called on the thread that sends it. A line of Debugf arrives in two calls: the
    /// text, then "\n".
    using DebugOutput_t = void (*)(char const * szText);

    /// Sends a text to the installed receiver. Without one the text goes to standard error if a debugger is attached,
    /// else nowhere.
    ZQ_API void DebugOutput(char const * szText);

    /// Installs a receiver; null restores the default. Returns the previous one. Calls of the previous receiver may
    /// still be running on other threads.
    ZQ_API DebugOutput_t DebugOutputSet(DebugOutput_t fnReceiver);

    /// Returns whether a debugger is attached to this process.
    ZQ_API bool DebuggerIsPresent();
}
