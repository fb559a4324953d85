// checker.h: telling the address checker which memory is out of bounds for now. Nothing happens in other builds.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
    #define ZQ_ADDRESS_CHECKER 1
#elif defined(__has_feature)
    #if __has_feature(address_sanitizer)
        #define ZQ_ADDRESS_CHECKER 1
    #endif
#endif
#ifndef ZQ_ADDRESS_CHECKER
    #define ZQ_ADDRESS_CHECKER 0
#endif

#if ZQ_ADDRESS_CHECKER
    #include <sanitizer/asan_interface.h>
#endif

namespace plat
{
    /// Whether this build runs under the address checker.
    constexpr bool ADDRESS_CHECKER = ZQ_ADDRESS_CHECKER;

    /// From now on each access to these bytes is an error that the checker reports. The checker sees runs of 8 bytes: of
    /// a smaller remainder at an end it may let an access pass.
    inline void CheckerForbid([[maybe_unused]] void const * pMemory, [[maybe_unused]] std::size_t nBytes)
    {
#if ZQ_ADDRESS_CHECKER
        __asan_poison_memory_region(pMemory, nBytes);
#endif
    }

    /// The bytes may be used again.
    inline void CheckerAllow([[maybe_unused]] void const * pMemory, [[maybe_unused]] std::size_t nBytes)
    {
#if ZQ_ADDRESS_CHECKER
        __asan_unpoison_memory_region(pMemory, nBytes);
#endif
    }
}
