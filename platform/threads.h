// threads.h: locks, wake-ups and threads.
//
// What they keep is the system's: its folder has the types in system/threads.h. All of them are usable from constant
// initialisation on.
#pragma once

#include "platform/compiler.h"
#include "system/threads.h"

#include <atomic>
#include <cstdint>

namespace plat
{
    /// A lock that its owner may enter again, and that spins before it sleeps.
    class Lock_c
    {
    public:
        constexpr explicit Lock_c(int nSpin = 0)
            : m_nSpin(nSpin)
        {}
        Lock_c(Lock_c const &) = delete;
        Lock_c & operator=(Lock_c const &) = delete;

        ZQ_API void Enter();

        /// Enters a lock that is free or the caller's own; false if another thread holds it.
        bool TryEnter();

        /// Whether nobody holds the lock at the moment.
        bool IsFree() const { return m_nState.load(std::memory_order_relaxed) == 0; }

        /// Ends one Enter of the calling thread. The last one frees the lock.
        ZQ_API void Leave();

        /// Frees the lock in the child of a fork, where the thread that held it is gone (see fork.h).
        void Renew();

    private:
        void EnterSlowly();

        WaitWord_t m_nState{ 0 };   // free, held, or held while threads may sleep
        int m_nSpin;                // tries before the thread sleeps
        std::atomic<LockOwner_t> m_Owner{};
        std::uint32_t m_nDepth = 0;   // further Enters of the owner
    };

    /// Holds a lock for a scope.
    class LockScope_c
    {
    public:
        explicit LockScope_c(Lock_c & Lock)
            : m_Lock(Lock)
        {
            m_Lock.Enter();
        }
        ~LockScope_c() { m_Lock.Leave(); }
        LockScope_c(LockScope_c const &) = delete;
        LockScope_c & operator=(LockScope_c const &) = delete;

    private:
        Lock_c & m_Lock;
    };

    /// The system's number of the calling thread. Numbers of ended threads come again.
    std::uint32_t ThreadId();

    /// A wake-up that can't be lost: a Signal with nobody waiting is kept for the next Wait; several kept are one. Any
    /// thread signals, one at a time waits.
    class WakeUp_c
    {
    public:
        void Signal();

        /// Sleeps until signalled, then takes the signal.
        void Wait();

    private:
        WaitWord_t m_nState{ 0 };   // clear, signalled, or clear with a thread that sleeps
    };

    /// A wake-up that stays until it is reset: every wait passes while it is set. Any thread, and a fault filter.
    class Event_c
    {
    public:
        void Set();
        void Reset() { m_nSet.store(0, std::memory_order_relaxed); }
        bool IsSet() const { return m_nSet.load(std::memory_order_acquire) != 0; }

        /// Sleeps until set. A waiter that wakes after a Reset sleeps on.
        void Wait();

        /// The same for at most nMilliseconds; false if they passed.
        bool WaitFor(std::uint32_t nMilliseconds);

    private:
        WaitWord_t m_nSet{ 0 };
    };

    /// Calls fnEnd on the calling thread when it ends, after the destructors of its own variables. One function a
    /// thread: a later call replaces it, and one out of fnEnd counts again. Not at the end of the
    /// process, nor where the system has no room for it.
    void ThreadAtEnd(void (*fnEnd)());

    /// One thread that runs a plain function. Start and Join belong to one thread.
    class Thread_c
    {
    public:
        /// Starts fnRun(pContext); false if the system refuses a thread.
        bool Start(void (*fnRun)(void *), void * pContext);

        /// Waits for the end. Does nothing if no thread was started.
        void Join();

        /// Forgets the thread. For the child of a fork, where it does not exist.
        void Forget() { m_hThread = {}; }

        bool IsStarted() const { return m_hThread != ThreadHandle_t{}; }

    private:
        ThreadHandle_t m_hThread{};
    };

    /// Puts the calling thread into the class that runs only when nothing else wants the processor; false if refused.
    /// One thread of the process at a time. A thread that sleeps for a Lock_c that this one holds, or joins it, lifts it
    /// to the normal class. It stays there until it calls this again.
    bool ThreadSetIdleClass();

    /// Whether the system lets the thread that called ThreadSetIdleClass be lifted. Many grant that to privileged users
    /// only. True without such a thread.
    bool ThreadCanBeLifted();
}
