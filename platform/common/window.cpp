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
        void SetIfGiven(FN & fnTarget, FN fnGiven, FN fnHarmless)
        {
            fnTarget = fnGiven != nullptr ? fnGiven : fnHarmless;
        }
    }

    WindowSystem_t WindowSystemSet(WindowSystem_t const & System)
    {
        WindowSystem_t const Former = g_System;
        SetIfGiven(g_System.fnGetFocus, System.fnGetFocus, NOTHING.fnGetFocus);
        SetIfGiven(g_System.fnGetParent, System.fnGetParent, NOTHING.fnGetParent);
        SetIfGiven(g_System.fnMinimise, System.fnMinimise, NOTHING.fnMinimise);
        SetIfGiven(g_System.fnShowCursor, System.fnShowCursor, NOTHING.fnShowCursor);
        SetIfGiven(g_System.fnDispatchOne, System.fnDispatchOne, NOTHING.fnDispatchOne);
        return Former;
    }

    WindowSystem_t const & WindowSystemGet()
    {
        return g_System;
    }
}
