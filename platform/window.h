// window.h: the host's window system, as far as the library calls it.
//
// The library opens no window. A host that has windows installs its functions; without them there is nothing to act
// on: no window has the focus, and no message waits.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    using Window_t = void *;

    /// Each may be null, which is the same as doing nothing.
    struct WindowSystem_t
    {
        Window_t (*fnGetFocus)() = nullptr;                    // the window with the keyboard, or null
        Window_t (*fnGetParent)(Window_t hWindow) = nullptr;   // null for a window without parent
        void (*fnMinimise)(Window_t hWindow) = nullptr;
        void (*fnShowCursor)() = nullptr;
        bool (*fnDispatchOne)(unsigned iFirst, unsigned iLast) = nullptr;   // takes one waiting message of the range
                                                                            // and delivers it; false if none waits
    };

    /// Installs the host's functions; returns the previous ones. Main thread.
    ZQ_API WindowSystem_t WindowSystemSet(WindowSystem_t const & System);

    /// The functions installed, with harmless ones in place of null.
    WindowSystem_t const & WindowSystemGet();
}
