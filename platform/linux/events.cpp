#include "platform/clock.h"
#include "platform/fork.h"
#include "platform/linux/callingthread.h"
#include "platform/linux/idlethread.h"
#include "platform/linux/lockmark.h"
#include "platform/linux/threadchecker.h"
#include "platform/threads.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sched.h>
#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        static_assert(sizeof(WaitWord_t) == 4 && WaitWord_t::is_always_lock_free);

        constexpr std::uint32_t LIFT_AGAIN_MILLISECONDS = 10;   // an owner may not have stored its mark yet

        // States of a lock's word and of a wake-up's.
        constexpr std::uint32_t FREE = 0, HELD = 1, CONTENDED = 2;
        constexpr std::uint32_t CLEAR = 0, SIGNALLED = 1, AWAITED = 2;

        // A time as the kernel's call reads it. On i386 the seconds of the C library's type are longer.
        struct KernelTime_s
        {
            long nSeconds;
            long nNanoseconds;
        };

        // Sleeps while the word has the value, until a time of the monotonic clock at most. A null pUntil means for
        // ever. May return early. Returns false if that time has come.
        bool SleepWhile(WaitWord_t & Word, std::uint32_t nValue, KernelTime_s const * pUntil = nullptr)
        {
            constexpr int OPERATION = FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG;
            int const iErrorBefore = errno;
            bool const bTimeout =
                ::syscall(SYS_futex, &Word, OPERATION, nValue, pUntil, nullptr, FUTEX_BITSET_MATCH_ANY) != 0
                && errno == ETIMEDOUT;
            errno = iErrorBefore;
            return !bTimeout;
        }

        // Wakes at most nThreads threads that sleep on the word.
        ZQ_COLD void Wake(WaitWord_t & Word, int nThreads)
        {
            int const iErrorBefore = errno;
            ::syscall(SYS_futex, &Word, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, nThreads, nullptr, nullptr, 0);
            errno = iErrorBefore;
        }

        // Changes a lock's word from nFrom to nTo. Returns false, and changes nothing, if it has another value. A
        // process with one thread uses no locked memory cycle, because that is most of the cost.
        inline bool Change(WaitWord_t & Word, std::uint32_t nFrom, std::uint32_t nTo)
        {
            if (__libc_single_threaded)
            {
                if (Word.load(std::memory_order_relaxed) != nFrom)
                {
                    return false;
                }
                Word.store(nTo, std::memory_order_relaxed);
                return true;
            }
            return Word.compare_exchange_strong(nFrom, nTo, std::memory_order_acq_rel, std::memory_order_relaxed);
        }

        // The address of this variable names the thread. It stays the same in a child of fork, unlike the thread's
        // number.
        ZQ_THREAD_LOCAL LockMark_s t_Mark;

        // Returns the time of the monotonic clock after nMilliseconds.
        KernelTime_s TimeAfter(std::uint32_t nMilliseconds)
        {
            timespec Now;
            ::clock_gettime(CLOCK_MONOTONIC, &Now);
            long const nNanoseconds =
                Now.tv_nsec + static_cast<long>(nMilliseconds % MILLISECONDS_OF_SECOND) * NANOSECONDS_OF_MILLISECOND;
            return { static_cast<long>(Now.tv_sec) + static_cast<long>(nMilliseconds / MILLISECONDS_OF_SECOND)
                         + nNanoseconds / NANOSECONDS_OF_SECOND,
                nNanoseconds % NANOSECONDS_OF_SECOND };
        }

        // The one thread in the idle class.
        class IdleThread_c
        {
        public:
            bool Is(void const * pOwner) const { return m_pMark.load(std::memory_order_relaxed) == pOwner; }
            bool Is(pthread_t hThread) const
            {
                return Exists() && m_hThread.load(std::memory_order_relaxed) == hThread;
            }
            bool Exists() const { return m_pMark.load(std::memory_order_acquire) != nullptr; }
            bool CanBeLifted() const { return m_bCanBeLifted.load(std::memory_order_relaxed); }
            void Lift() const { SetClass(m_iThread.load(std::memory_order_relaxed), SCHED_OTHER); }

            // Makes the calling thread the one in the idle class. Returns false if the system refuses.
            bool Enter()
            {
                if (!Is(&t_Mark))
                {
                    if (!SetClass(0, SCHED_IDLE))
                    {
                        return false;
                    }
                    m_bCanBeLifted = SetClass(0, SCHED_OTHER);
                    m_hThread = ::pthread_self();
                    m_iThread = CallingThread();
                    m_pMark.store(&t_Mark, std::memory_order_release);
                }
                return ::sched_getscheduler(0) == SCHED_IDLE || SetClass(0, SCHED_IDLE);
            }

            void Forget()
            {
                m_pMark = nullptr;
                m_bCanBeLifted = true;
            }

        private:
            // Sets the class of a thread, 0 for the calling one. Returns false if the system refuses. Uses the system's
            // number: a call with that of an ended thread fails. A call with the handle of one is undefined.
            static bool SetClass(pid_t iThread, int iClass)
            {
                int const iErrorBefore = errno;
                sched_param const Parameters = {};
                bool const bSet = ::sched_setscheduler(iThread, iClass, &Parameters) == 0
                                  && ::sched_getscheduler(iThread) == iClass;   // some systems grant it without effect
                errno = iErrorBefore;
                return bSet;
            }

            std::atomic<void const *> m_pMark{ nullptr };   // its t_Mark, or null if there is no such thread
            std::atomic<pthread_t> m_hThread{ 0 };
            std::atomic<pid_t> m_iThread{ 0 };
            std::atomic<bool> m_bCanBeLifted{ true };
        };

        constinit IdleThread_c g_IdleThread;
        ForkHandler_c const g_ForkHandler({ nullptr, nullptr, [] { g_IdleThread.Forget(); } });
    }

    // A thread's own handle is its thread pointer.
    std::intptr_t LockMarkOffset()
    {
        return reinterpret_cast<std::intptr_t>(&t_Mark) - static_cast<std::intptr_t>(::pthread_self());
    }

    void IdleThreadLift(pthread_t hThread)
    {
        if (g_IdleThread.Is(hThread))
        {
            g_IdleThread.Lift();
        }
    }

    void IdleThreadForget(pthread_t hThread)
    {
        if (g_IdleThread.Is(hThread))
        {
            g_IdleThread.Forget();
        }
    }

    bool ThreadSetIdleClass()
    {
        return g_IdleThread.Enter();
    }

    bool ThreadCanBeLifted()
    {
        return g_IdleThread.CanBeLifted();
    }

    bool Lock_c::TryEnter()
    {
        // Only the thread itself stores its own mark, so stores by other threads make no difference.
        if (m_Owner.load(std::memory_order_relaxed) == &t_Mark)
        {
            ++m_nDepth;
            return true;
        }
        if (!Change(m_nState, FREE, HELD))
        {
            return false;
        }
        m_Owner.store(&t_Mark, std::memory_order_relaxed);
        ThreadCheckerAcquire(this);
        return true;
    }

    ZQ_FLATTEN void Lock_c::Enter()
    {
        if (!TryEnter())
        {
            EnterSlowly();
        }
    }

    void Lock_c::Renew()
    {
        m_nState = FREE;
        m_Owner = nullptr;
        m_nDepth = 0;
    }

    void Lock_c::RenewUnlessMine()
    {
        if (TryEnter())
        {
            Leave();
            return;
        }
        Renew();
    }

    ZQ_COLD void Lock_c::EnterSlowly()
    {
        for (int i = 0; i < m_nSpin; ++i)
        {
            __builtin_ia32_pause();
            if (m_nState.load(std::memory_order_relaxed) == FREE && TryEnter())
            {
                return;
            }
        }
        t_Mark.pOwner = &m_Owner;
        t_Mark.pAwaited = this;
        // Other threads may sleep, so a thread that gets the lock here leaves the word contended.
        while (m_nState.exchange(CONTENDED, std::memory_order_acquire) != FREE)
        {
            if (!g_IdleThread.Exists())
            {
                SleepWhile(m_nState, CONTENDED);
                continue;
            }
            if (g_IdleThread.Is(m_Owner.load(std::memory_order_relaxed)))
            {
                g_IdleThread.Lift();
            }
            KernelTime_s const Until = TimeAfter(LIFT_AGAIN_MILLISECONDS);
            SleepWhile(m_nState, CONTENDED, &Until);
        }
        t_Mark.pAwaited = nullptr;
        m_Owner.store(&t_Mark, std::memory_order_relaxed);
        ThreadCheckerAcquire(this);
    }

    void Lock_c::Leave()
    {
        if (m_nDepth > 0)
        {
            --m_nDepth;
            return;
        }
        ThreadCheckerRelease(this);
        m_Owner.store(nullptr, std::memory_order_relaxed);
        if (!Change(m_nState, HELD, FREE) && m_nState.exchange(FREE, std::memory_order_release) == CONTENDED)
        {
            Wake(m_nState, 1);
        }
    }

    void WakeUp_c::Signal()
    {
        ThreadCheckerRelease(this);
        if (m_nState.exchange(SIGNALLED, std::memory_order_release) == AWAITED)
        {
            Wake(m_nState, 1);
        }
    }

    void WakeUp_c::Wait()
    {
        while (m_nState.exchange(CLEAR, std::memory_order_acquire) != SIGNALLED)
        {
            std::uint32_t nClear = CLEAR;
            if (m_nState.compare_exchange_strong(nClear, AWAITED, std::memory_order_relaxed))
            {
                SleepWhile(m_nState, AWAITED);
            }
        }
        ThreadCheckerAcquire(this);
    }

    void Event_c::Set()
    {
        ThreadCheckerRelease(this);
        m_nSet.store(1, std::memory_order_release);
        Wake(m_nSet, INT_MAX);
    }

    void Event_c::Wait()
    {
        while (!IsSet())
        {
            SleepWhile(m_nSet, 0);
        }
        ThreadCheckerAcquire(this);
    }

    bool Event_c::WaitFor(std::uint32_t nMilliseconds)
    {
        KernelTime_s const Until = TimeAfter(nMilliseconds);
        while (!IsSet())
        {
            if (!SleepWhile(m_nSet, 0, &Until) && !IsSet())
            {
                return false;
            }
        }
        ThreadCheckerAcquire(this);
        return true;
    }
}
