// lockmark.h: how a tracer finds out which thread holds a lock.
#pragma once

#include <cstdint>

namespace plat
{
    /// State of a thread's locks for a tracer. Its address is the owner of the locks that the thread holds.
    struct LockMark_s
    {
        void const * volatile pAwaited;   // the lock that the thread waits for, null for none
        void const * volatile pOwner;     // where that lock stores its owner; meaningless while pAwaited is null
    };

    /// Returns the distance in bytes from a thread's thread pointer to its LockMark_s. It is the same in every thread.
    std::intptr_t LockMarkOffset();
}
