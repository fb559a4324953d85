// cwincom.h: a module that starts and ends COM.
//
// The module starts COM in the multithreaded model, on the thread that initialises the modules and for that thread
// only. It ends COM at shutdown. On a system without COM it does nothing and never fails.
//
// Ownership: the application owns its instance of the module.
// Threads: the main thread.
// Cost: a system call at start and at shutdown.
// Failure: InitializeAllModules returns false if COM can't be started.
//
//     static ModuleWinCom_c s_WinCom;
//     Module_c::Register(&s_WinCom);
//     bool const bUp = Module_c::InitializeAllModules();
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/cmodule.h"

/// Module of COM. It depends on no other module.
class ZQ_API ModuleWinCom_c : public Module_c
{
public:
    constexpr ModuleWinCom_c()
        : Module_c("ModuleWinCom_c")
    {}
    ~ModuleWinCom_c() override;

    /// Returns the library's own instance. It is not exported.
    ZQ_INTERNAL static ModuleWinCom_c * Get();

protected:
    /// Starts COM and returns true. If the thread has COM already, even in the other concurrency model, logs that.
    /// Asserts that the module is not initialised. Returns false if COM can't be started.
    bool Initialize() override;

    /// Ends COM if the module is initialised, also if the thread had COM before.
    void Shutdown() override;
};
