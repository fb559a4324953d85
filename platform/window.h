// window.h: the host's window system, as far as the library calls it.
//
// The library opens no window. A host that has windows installs its functions. Without them no window has the focus and
// no message waits.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    /// Handle of a window of the host; null for none.
    using Window_t = void *;

    /// The functions of a host. A null one does nothing.
    struct WindowSystem_t
    {
        Window_t (*fnGetFocus)() = nullptr;                    // the window with the keyboard, or null
        Window_t (*fnGetParent)(Window_t hWindow) = nullptr;   // null for a window without parent
        void (*fnMinimise)(Window_t hWindow) = nullptr;
        void (*fnShowCursor)() = nullptr;
        bool (*fnDispatchOne)(unsigned iFirst, unsigned iLast) = nullptr;   // delivers one pending message of the
                                                                            // range; false if none waits
    };

    /// Installs the host's functions. Returns the previous ones. Main thread.
    ZQ_API WindowSystem_t WindowSystemSet(WindowSystem_t const & System);

    /// Returns the installed functions. Null ones are replaced by functions that do nothing.
    WindowSystem_t const & WindowSystemGet();
}
