// threads.h: the state of locks, wake-ups and threads on Linux.
#pragma once

#include <atomic>
#include <cstdint>

namespace plat
{
    /// A word that threads sleep on in the kernel (futex).
    using WaitWord_t = std::atomic<std::uint32_t>;

    /// The owner of a lock: the address of a variable of the thread, which is the same in a forked child. Null means
    /// that no thread holds the lock.
    using LockOwner_t = void const *;

    /// A started thread, as a pthread_t. 0 means none.
    using ThreadHandle_t = std::uintptr_t;
}
