// threads.h: locks, wake-ups and threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

namespace plat
{
    /// A lock that its owner may take again, and that spins before it sleeps. Usable from constant initialisation on.
    class Lock_c
    {
    public:
        constexpr explicit Lock_c(int nSpin = 0)
            : m_nSpin(nSpin)
        {}

        void Enter()
        {
            if (!m_Mutex.try_lock())
            {
                EnterSlowly();
            }
        }

        /// Enters a lock that is free or the caller's own; false if another thread holds it.
        bool TryEnter() { return m_Mutex.try_lock(); }

        void Leave() { m_Mutex.unlock(); }

        /// Frees the lock in the child of a fork, where the thread that held it is gone (see fork.h).
        void Renew() { new (&m_Mutex) std::recursive_mutex; }

    private:
        void EnterSlowly();

        std::recursive_mutex m_Mutex;
        int m_nSpin;   // tries before the thread sleeps
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

    /// A wake-up that can't be lost: a Signal with nobody waiting is kept for the next Wait; several kept are one.
    class WakeUp_c
    {
    public:
        void Signal()
        {
            m_bSignalled.store(1, std::memory_order_release);
            m_bSignalled.notify_one();
        }

        /// Sleeps until signalled, then takes the signal.
        void Wait()
        {
            while (m_bSignalled.exchange(0, std::memory_order_acquire) == 0)
            {
                m_bSignalled.wait(0, std::memory_order_relaxed);
            }
        }

    private:
        std::atomic<int> m_bSignalled{ 0 };
    };

    /// A wake-up that stays until it is taken back: every wait passes while it is set. Any thread, and a signal handler.
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
        std::atomic<std::uint32_t> m_nSet{ 0 };
    };

    /// Calls fnEnd on the calling thread when it ends, behind the destructors of its own variables. One function a
    /// thread: a later call replaces it, and one out of fnEnd counts again. Not at the end of the
    /// process, nor where the system has no room for it.
    void ThreadAtEnd(void (*fnEnd)());

    /// One thread that runs a plain function. Start and Join belong to one thread.
    class Thread_c
    {
    public:
        /// Starts fnRun(pContext); false if the system gives no thread.
        bool Start(void (*fnRun)(void *), void * pContext);

        /// Waits for the end. Does nothing if no thread was started.
        void Join();

        bool IsStarted() const { return m_hThread != 0; }

    private:
        std::uintptr_t m_hThread = 0;
    };

    /// Puts the calling thread into the class that runs only when nothing else wants the processor; false if refused.
    bool ThreadSetIdleClass();
}
