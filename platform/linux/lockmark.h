// lockmark.h: how a tracer finds out which thread holds a lock.
#pragma once

#include <cstdint>

namespace plat
{
    /// Returns the distance in bytes from a thread's thread pointer to the variable whose address is the owner of the
    /// locks that the thread holds. The distance is the same in every thread.
    std::intptr_t LockMarkOffset();
}
