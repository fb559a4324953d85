#include "platform/window.h"

namespace plat
{
    namespace
    {
        constexpr WindowSystem_t NOTHING = { []() -> Window_t { return nullptr; },
            [](Window_t) -> Window_t { return nullptr; }, [](Window_t) {}, []() {},
            [](unsigned, unsigned) { return false; } };

        WindowSystem_t g_System = NOTHING;

        template <typename FN>
        void SetOrDefault(FN & fnTarget, FN fnGiven, FN fnHarmless)
        {
            fnTarget = fnGiven != nullptr ? fnGiven : fnHarmless;
        }
    }

    WindowSystem_t WindowSystemSet(WindowSystem_t const & System)
    {
        WindowSystem_t const Previous = g_System;
        SetOrDefault(g_System.fnGetFocus, System.fnGetFocus, NOTHING.fnGetFocus);
        SetOrDefault(g_System.fnGetParent, System.fnGetParent, NOTHING.fnGetParent);
        SetOrDefault(g_System.fnMinimise, System.fnMinimise, NOTHING.fnMinimise);
        SetOrDefault(g_System.fnShowCursor, System.fnShowCursor, NOTHING.fnShowCursor);
        SetOrDefault(g_System.fnDispatchOne, System.fnDispatchOne, NOTHING.fnDispatchOne);
        return Previous;
    }

    WindowSystem_t const & WindowSystemGet()
    {
        return g_System;
    }
}
