// debugger.h: talking to a debugger.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    /// Receives debugger output.
    using DebugOutput_t = void (*)(char const * szText);

    /// Sends text to the debugger's output: to the installed receiver, else to standard error while a debugger is
    /// attached, else nowhere.
    void DebugOutput(char const * szText);

    /// Installs a receiver, or null for the default; returns the former one.
    ZQ_API DebugOutput_t DebugOutputSet(DebugOutput_t fnReceiver);

    bool DebuggerIsPresent();
}
