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

        // Sleeps while the word is 0, at most until the time of the monotonic clock, null for ever. False at that time.
        bool SleepWhileClear(Word_t & Word, timespec const * pUntil)
        {
            constexpr int OPERATION = FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG;
            int const iErrorBefore = errno;
            bool const bTimeout =
                ::syscall(SYS_futex, &Word, OPERATION, 0, pUntil, nullptr, FUTEX_BITSET_MATCH_ANY) != 0
                && errno == ETIMEDOUT;
            errno = iErrorBefore;
            return !bTimeout;
        }
    }

    void Event_c::Set()
    {
        m_nSet.store(1, std::memory_order_release);
        int const iErrorBefore = errno;
        ::syscall(SYS_futex, &m_nSet, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, INT_MAX, nullptr, nullptr, 0);
        errno = iErrorBefore;
    }

    void Event_c::Wait()
    {
        while (!IsSet())
        {
            SleepWhileClear(m_nSet, nullptr);
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
            if (!SleepWhileClear(m_nSet, &Until))
            {
                return IsSet();
            }
        }
        return true;
    }
}
