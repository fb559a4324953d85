#include "zqcore/cwincom.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"

#include "platform/com.h"

namespace
{
    constinit ModuleWinCom_c g_Module;

    // Starts COM. Returns false if that fails.
    bool Start()
    {
        switch (plat::ComInitialize())
        {
        case plat::COM_OK:
            return true;
        case plat::COM_ALREADY_INITIALIZED:
            Log("The COM library is already initialized on the calling thread");
            return true;
        case plat::COM_CHANGED_MODE:
            Log("A previous call to CoInitializeEx specified a different concurrency model");
            return true;
        default:
            return false;
        }
    }
}

ModuleWinCom_c::~ModuleWinCom_c() = default;

ModuleWinCom_c * ModuleWinCom_c::Get()
{
    return &g_Module;
}

bool ModuleWinCom_c::Initialize()
{
    ZQ_ASSERT(!IsInitialized());
    return Start() && Module_c::Initialize();
}

void ModuleWinCom_c::Shutdown()
{
    if (IsInitialized())
    {
        plat::ComUninitialize();
        Module_c::Shutdown();
    }
}
