#include "platform/threads.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        using Word_t = std::atomic<std::uint32_t>;
        static_assert(sizeof(Word_t) == 4 && Word_t::is_always_lock_free);

        constexpr long SECOND = 1'000'000'000;   // nanoseconds

        // Of a lock's word, and of a wake-up's.
        constexpr std::uint32_t FREE = 0, HELD = 1, CONTENDED = 2;
        constexpr std::uint32_t CLEAR = 0, SIGNALLED = 1, AWAITED = 2;

        // Sleeps while the word has the value, at most until the time of the monotonic clock, null for ever. False at
        // that time.
        bool SleepWhile(Word_t & Word, std::uint32_t nValue, timespec const * pUntil = nullptr)
        {
            constexpr int OPERATION = FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG;
            int const iErrorBefore = errno;
            bool const bTimeout =
                ::syscall(SYS_futex, &Word, OPERATION, nValue, pUntil, nullptr, FUTEX_BITSET_MATCH_ANY) != 0
                && errno == ETIMEDOUT;
            errno = iErrorBefore;
            return !bTimeout;
        }

        void Wake(Word_t & Word, int nThreads)
        {
            int const iErrorBefore = errno;
            ::syscall(SYS_futex, &Word, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, nThreads, nullptr, nullptr, 0);
            errno = iErrorBefore;
        }

        // Its address names the thread. It stays the same in a child of fork, where the thread's number does not.
        ZQ_THREAD_LOCAL char t_cSelf;
    }

    bool Lock_c::TryEnter()
    {
        // Only the thread itself stores its own mark, so what others store meanwhile makes no difference.
        if (m_pOwner.load(std::memory_order_relaxed) == &t_cSelf)
        {
            ++m_nDepth;
            return true;
        }
        std::uint32_t nFree = FREE;
        if (!m_nState.compare_exchange_strong(nFree, HELD, std::memory_order_acquire, std::memory_order_relaxed))
        {
            return false;
        }
        m_pOwner.store(&t_cSelf, std::memory_order_relaxed);
        return true;
    }

    void Lock_c::Enter()
    {
        if (!TryEnter())
        {
            EnterSlowly();
        }
    }

    void Lock_c::Renew()
    {
        m_nState = FREE;
        m_pOwner = nullptr;
        m_nDepth = 0;
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
        // Others may sleep too, so whoever has slept leaves the word contended.
        while (m_nState.exchange(CONTENDED, std::memory_order_acquire) != FREE)
        {
            SleepWhile(m_nState, CONTENDED);
        }
        m_pOwner.store(&t_cSelf, std::memory_order_relaxed);
    }

    void Lock_c::Leave()
    {
        if (m_nDepth > 0)
        {
            --m_nDepth;
            return;
        }
        m_pOwner.store(nullptr, std::memory_order_relaxed);
        if (m_nState.exchange(FREE, std::memory_order_release) == CONTENDED)
        {
            Wake(m_nState, 1);
        }
    }

    void WakeUp_c::Signal()
    {
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
    }

    void Event_c::Set()
    {
        m_nSet.store(1, std::memory_order_release);
        Wake(m_nSet, INT_MAX);
    }

    void Event_c::Wait()
    {
        while (!IsSet())
        {
            SleepWhile(m_nSet, 0);
        }
    }

    bool Event_c::WaitFor(std::uint32_t nMilliseconds)
    {
        timespec Until;
        ::clock_gettime(CLOCK_MONOTONIC, &Until);
        Until.tv_sec += static_cast<std::time_t>(nMilliseconds / 1000);
        Until.tv_nsec += static_cast<long>(nMilliseconds % 1000) * (SECOND / 1000);
        Until.tv_sec += Until.tv_nsec / SECOND;
        Until.tv_nsec %= SECOND;
        while (!IsSet())
        {
            if (!SleepWhile(m_nSet, 0, &Until))
            {
                return IsSet();
            }
        }
        return true;
    }
}
