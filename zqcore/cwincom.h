// cwincom.h: a module that starts and ends COM.
//
// COM is started on the thread that initialises the modules, for calls from many threads, and for that thread only. It
// is ended at shutdown. On a system without COM nothing is started, and nothing can fail.
//
// Ownership: the application owns its instance of the module.
// Threads: the main thread.
// Cost: a system call at start and at shutdown.
// Failure: InitializeAllModules returns false if COM cannot be started.
//
//     static ModuleWinCom_c s_WinCom;
//     Module_c::Register(&s_WinCom);
//     bool const bUp = Module_c::InitializeAllModules();
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/cmodule.h"

/// Module of COM. It has no prerequisites.
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
    /// Returns false if COM cannot be started. If the thread has COM already, even in the other concurrency model, that
    /// is logged and is no failure.
    bool Initialize() override;

    /// Ends COM if the module is initialised, whichever of its results starting it had.
    void Shutdown() override;
};
