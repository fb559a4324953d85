// threadchecker.h: the thread checker, in a program that runs under it. The library need not be built with it.
//
// The checker does not see the atomics of code that is not built with it. So the locks report to it.
#pragma once

extern "C"
{
    /// Start the checker, and report an acquire and a release of an object to it. The addresses are null without the
    /// checker.
    __attribute__((weak)) void __tsan_init();
    __attribute__((weak)) void __tsan_acquire(void * pObject);
    __attribute__((weak)) void __tsan_release(void * pObject);
}

namespace plat
{
    /// Returns whether the checker's functions have addresses, as in a program that runs under it.
    inline bool HasThreadChecker()
    {
        return __tsan_init != nullptr;
    }

    /// Report to the checker that the calling thread has seen what others did before they released an object, and that
    /// it releases the object. Do nothing without the checker.
    inline void ThreadCheckerAcquire(void * pObject)
    {
        if (HasThreadChecker()) [[unlikely]]
        {
            __tsan_acquire(pObject);
        }
    }
    inline void ThreadCheckerRelease(void * pObject)
    {
        if (HasThreadChecker()) [[unlikely]]
        {
            __tsan_release(pObject);
        }
    }
}
