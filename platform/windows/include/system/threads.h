// threads.h: the state of locks, wake-ups and threads on Windows.
#pragma once

#include <atomic>
#include <cstdint>

namespace plat
{
    /// A word that threads sleep on (WaitOnAddress).
    using WaitWord_t = std::atomic<std::uint32_t>;

    /// The owner of a lock: the thread's number. 0 means none.
    using LockOwner_t = std::uint32_t;

    /// A started thread, as a HANDLE. Null means none.
    using ThreadHandle_t = void *;
}
