// checker.h: marks memory as out of bounds for the address checker. In other builds the functions do nothing.
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
    inline constexpr bool ADDRESS_CHECKER = ZQ_ADDRESS_CHECKER;

    /// Makes each access to these bytes an error that the checker reports. The checker works in units of 8 bytes, so an
    /// access to a remainder in the last unit may go unnoticed.
    inline void CheckerForbid([[maybe_unused]] void const * pMemory, [[maybe_unused]] std::size_t nBytes)
    {
#if ZQ_ADDRESS_CHECKER
        __asan_poison_memory_region(pMemory, nBytes);
#endif
    }

    /// Allows access to the bytes again.
    inline void CheckerAllow([[maybe_unused]] void const * pMemory, [[maybe_unused]] std::size_t nBytes)
    {
#if ZQ_ADDRESS_CHECKER
        __asan_unpoison_memory_region(pMemory, nBytes);
#endif
    }
}
