#include "platform/com.h"

#include <utility>

namespace plat
{
    namespace
    {
        constinit ComSystem_t g_System{};
    }

    ComSystem_t ComSystemSet(ComSystem_t const & System)
    {
        return std::exchange(g_System, System);
    }

    std::uint32_t ComInitialize()
    {
        return g_System.fnInitialize ? g_System.fnInitialize() : COM_OK;
    }

    void ComUninitialize()
    {
        if (g_System.fnUninitialize)
        {
            g_System.fnUninitialize();
        }
    }
}
