// debugger.h: talking to a debugger.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    /// Receives debugger output, on the thread that sends it. A line arrives in two calls: the text, then "\n".
    using DebugOutput_t = void (*)(char const * szText);

    /// Sends text to the debugger's output: to the installed receiver, else to standard error while a debugger is
    /// attached, else nowhere.
    ZQ_API void DebugOutput(char const * szText);

    /// Installs a receiver; null restores the default. Returns the previous one. Any thread; calls of the previous
    /// receiver may still be running on others.
    ZQ_API DebugOutput_t DebugOutputSet(DebugOutput_t fnReceiver);

    /// Whether a debugger is attached to this process.
    ZQ_API bool DebuggerIsPresent();
}
