// threads.h: locks, wake-ups and threads.
//
// The types of their state belong to the system and are in its folder, in system/threads.h. All classes are usable from
// constant initialisation on.
#pragma once

#include "platform/compiler.h"
#include "system/threads.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Bytes of a thread's name with its terminator, as PR_GET_NAME of Linux copies it (prctl(2)).
    inline constexpr std::size_t THREAD_NAME_SIZE = 16;

    /// A re-entrant lock. A thread that waits for it can spin before it sleeps.
    class Lock_c
    {
    public:
        /// Creates a free lock. Enter spins up to nSpin times before it sleeps.
        constexpr explicit Lock_c(int nSpin = 0)
            : m_nSpin(nSpin)
        {}
        Lock_c(Lock_c const &) = delete;
        Lock_c & operator=(Lock_c const &) = delete;

        /// Waits until no other thread holds the lock, and enters it.
        ZQ_API void Enter();

        /// Enters a lock that is free or the caller's own and returns true. Returns false if another thread holds it.
        bool TryEnter();

        /// Returns whether no thread holds the lock at the moment.
        bool IsFree() const { return m_nState.load(std::memory_order_relaxed) == 0; }

        /// Ends one Enter of the calling thread. The last Leave releases the lock. Requires that the thread holds it.
        ZQ_API void Leave();

        /// Returns the owner of the lock at the moment, or LockOwner_t{} if no thread holds it.
        LockOwner_t GetOwner() const { return m_Owner.load(std::memory_order_relaxed); }

        /// Releases the lock in the child of a fork, where the thread that held it does not exist (see fork.h).
        void Renew();

        /// Does what Renew does if another thread held the lock.
        void RenewUnlessMine();

    private:
        void EnterSlowly();

        WaitWord_t m_nState{ 0 };   // free, held, or held while threads may sleep
        int m_nSpin;                // most spins before the thread sleeps
        std::atomic<LockOwner_t> m_Owner{};
        std::uint32_t m_nDepth = 0;   // further Enters of the owner
    };

    /// Scope that holds a lock.
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

    /// A wake-up that can't be lost. A Signal without a waiting thread is kept for the next Wait. Several kept signals
    /// count as one. Any thread may signal. One thread at a time waits.
    class WakeUp_c
    {
    public:
        /// Wakes the thread that waits. If none waits, the next Wait returns at once.
        void Signal();

        /// Sleeps until signalled, then clears the signal.
        void Wait();

    private:
        WaitWord_t m_nState{ 0 };   // clear, signalled, or clear with a thread that sleeps
    };

    /// A wake-up that stays set until it is reset. While it is set, waits return at once. Any thread and a fault filter
    /// may use it.
    class Event_c
    {
    public:
        /// Sets the wake-up and wakes all threads that wait.
        void Set();

        /// Clears the wake-up. Does not order other memory.
        void Reset() { m_nSet.store(0, std::memory_order_relaxed); }

        /// Returns whether the wake-up is set. If it is, the caller sees what the thread that set it wrote before.
        bool IsSet() const { return m_nSet.load(std::memory_order_acquire) != 0; }

        /// Sleeps until set. A waiter that wakes after a Reset sleeps again.
        void Wait();

        /// Waits for at most nMilliseconds. Returns whether the wake-up was set.
        bool WaitFor(std::uint32_t nMilliseconds);

    private:
        WaitWord_t m_nSet{ 0 };
    };

    /// A thread that runs a plain function. The destructor does not wait for the thread's end. Requires that one
    /// thread calls Start and Join, and that the object lives until the function begins.
    class Thread_c
    {
    public:
        /// Starts fnRun(pContext) and returns true. Requires that IsStarted returns false. Returns false if the system
        /// refuses a thread.
        bool Start(void (*fnRun)(void *), void * pContext);

        /// Waits for the end of the thread. Does nothing if no thread was started.
        void Join();

        /// Forgets the thread. The child of a fork calls it, because the thread does not exist there.
        void Forget() { m_hThread = {}; }

        /// Returns whether a thread was started and neither joined nor forgotten.
        bool IsStarted() const { return m_hThread != ThreadHandle_t{}; }

    private:
        ThreadHandle_t m_hThread{};
        void (*m_fnRun)(void *) = nullptr;
        void * m_pContext = nullptr;
    };

    /// Returns the system's number of the calling thread. Numbers of ended threads are used again. A fault filter may
    /// call it.
    std::uint32_t ThreadId();

    /// Copies the system's name of the calling thread, always terminated. The name may hold any bytes. A fault filter
    /// may call it.
    void ThreadName(char (&szName)[THREAD_NAME_SIZE]);

    /// Calls fnEnd on the calling thread when the thread ends, after the destructors of its thread-local variables.
    /// Each thread has one function: a later call replaces it. A call from fnEnd registers again, as often as the
    /// system allows. fnEnd is not called at the end of the process, or if the system has no room for it.
    void ThreadCallAtEnd(void (*fnEnd)());

    /// Moves the calling thread to the idle scheduling class, which runs only when nothing else needs the processor. If
    /// another thread joins this thread, or sleeps for a Lock_c that this thread holds, this thread moves to the normal
    /// class until it calls ThreadSetIdleClass again. The system may refuse this move (ThreadCanBeLifted). Requires
    /// that no other thread of the process is in the idle class. Returns false if the system refuses the idle class.
    bool ThreadSetIdleClass();

    /// Returns whether the system allows raising the thread that called ThreadSetIdleClass to the normal class. Many
    /// systems allow that to privileged users only. Returns true without such a thread.
    bool ThreadCanBeLifted();
}
