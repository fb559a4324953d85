// window.h: the host's window system, as far as the library calls it.
//
// The library opens no window. A host that has windows installs its functions. Without them no window has the focus and
// no message waits.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    /// Handle of a window of the host. Null means none.
    using Window_t = void *;

    /// The functions of a host. A null one does nothing. fnMinimise and fnShowCursor run on the thread that complains,
    /// the others on the main thread. fnDispatchOne delivers one pending message whose number lies in the range, or
    /// returns false if none waits. AppPurgeMessageQueue (capp.h) delivers messages 0 to 0xFFFFFFFF, and
    /// AppPurgeKeyboardQueue 0x100 to 0x109.
    struct WindowSystem_t
    {
        Window_t (*fnGetFocus)() = nullptr;                    // the window with the keyboard, or null
        Window_t (*fnGetParent)(Window_t hWindow) = nullptr;   // null for a window without parent
        void (*fnMinimise)(Window_t hWindow) = nullptr;        // the main window, when Abort begins
        void (*fnShowCursor)() = nullptr;                      // when an assertion has failed
        bool (*fnDispatchOne)(unsigned iFirst, unsigned iLast) = nullptr;
    };

    /// Installs the host's functions. Returns the previous ones. Requires the main thread.
    ZQ_API WindowSystem_t WindowSystemSet(WindowSystem_t const & System);

    /// Returns the installed functions, with functions that do nothing instead of null ones.
    WindowSystem_t const & WindowSystemGet();
}
