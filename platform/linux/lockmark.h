// lockmark.h: how a tracer finds out which thread holds a lock.
#pragma once

#include <cstdint>

namespace plat
{
    /// Returns the distance from a thread's thread pointer to the variable of which the address is the owner of its
    /// locks. It is the same in every thread.
    std::intptr_t LockMarkOffset();
}
