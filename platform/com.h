// com.h: the start and end of the component system (COM) on a thread.
//
// A system without COM has nothing to start: both calls do nothing, and ComInitialize returns COM_OK. A host that has
// COM, or a test that needs a certain result, installs its functions.
#pragma once

#include "platform/compiler.h"

#include <cstdint>

namespace plat
{
    /// Results of ComInitialize, with the numbers of Windows (CoInitializeEx). All other values are failures.
    inline constexpr std::uint32_t COM_OK = 0;
    inline constexpr std::uint32_t COM_ALREADY_INITIALIZED = 1;     // on this thread, in the same concurrency model
    inline constexpr std::uint32_t COM_CHANGED_MODE = 0x80010106;   // on this thread, in the other model

    /// The functions of a host. A null function counts as a success that does nothing.
    struct ComSystem_t
    {
        std::uint32_t (*fnInitialize)() = nullptr;   // in the multithreaded model; returns a COM_ result
        void (*fnUninitialize)() = nullptr;
    };

    /// Installs functions. Returns the previous ones. Requires the main thread.
    ZQ_API ComSystem_t ComSystemSet(ComSystem_t const & System);

    /// Start and end COM on the calling thread. The start returns a COM_ result. COM_OK and COM_ALREADY_INITIALIZED
    /// each require one end on the same thread. ModuleWinCom_c (cwincom.h) also ends COM after COM_CHANGED_MODE.
    std::uint32_t ComInitialize();
    void ComUninitialize();
}
