// cwincom.h: brackets the process's use of COM with the life of a module.
//
// COM is started, for calls from many threads, on the thread that initialises the modules, for that thread only, and
// ended there at shutdown. On a system without COM nothing is started and nothing can fail.
#pragma once

#include "zqcore/cmodule.h"

class ZQ_API ModuleWinCom_c : public Module_c
{
public:
    constexpr ModuleWinCom_c()
        : Module_c("ModuleWinCom_c")
    {}
    ~ModuleWinCom_c() override;

    /// The instance; not exported.
    ZQ_INTERNAL static ModuleWinCom_c * Get();

protected:
    /// False if COM can't be started. That the thread has it already, even in the other concurrency model, is logged and
    /// no failure.
    bool Initialize() override;

    /// Ends COM if the module is initialised, whatever starting it said.
    void Shutdown() override;
};
