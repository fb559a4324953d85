#include "platform/linux/faultguard.h"

#include "platform/checker.h"
#include "platform/clock.h"
#include "platform/faults.h"
#include "platform/fork.h"
#include "platform/linux/callingthread.h"
#include "platform/stack.h"

#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        constexpr std::int64_t NEVER = INT64_MAX;

        struct Guard_s
        {
            sigjmp_buf Jump;
            Guard_s * pOuter;
            std::int64_t tEnd;   // nanoseconds of the good clock, or NEVER
        };

        // State of the guarded calls. Only the guarded thread, its signal handlers and a forked child change it.
        std::atomic<Guard_s *> g_pInnermost{ nullptr };
        std::atomic<int> g_iThread{ 0 };     // the guarded thread; 0 without a guarded call
        std::atomic<int> g_hTimer{ -1 };     // the kernel's timer; -1 without one
        struct sigaction g_PreviousAction;   // for FaultGuardSignal, before the outermost call

        // Returns the earliest end of the guarded calls, or NEVER.
        std::int64_t FirstEnd()
        {
            std::int64_t tEnd = NEVER;
            for (Guard_s const * pGuard = g_pInnermost; pGuard != nullptr; pGuard = pGuard->pOuter)
            {
                tEnd = pGuard->tEnd < tEnd ? pGuard->tEnd : tEnd;
            }
            return tEnd;
        }

        // Sets the timer to the earliest end of the guarded calls, or to 1 ns from now if that end has passed. Stops
        // the timer if no call has an end. Uses the system call, because the C library allocates memory for a timer.
        void SetTimer()
        {
            std::int64_t const tEnd = FirstEnd();
            if (g_hTimer < 0)
            {
                return;
            }
            std::int64_t const tLeft = tEnd == NEVER ? 0 : tEnd - GoodClockTicks();
            std::int64_t const tWait = tEnd != NEVER && tLeft < 1 ? 1 : tLeft;
            long const dTimes[4] = { 0, 0, static_cast<long>(tWait / GoodClockFrequency()),
                static_cast<long>(tWait % GoodClockFrequency()) };   // no interval; 0 stops it
            ::syscall(SYS_timer_settime, g_hTimer.load(), 0, dTimes, nullptr);
        }

        // Jumps out of a guarded call, and out of those inside it.
        [[noreturn]] void EndCall(Guard_s * pGuard)
        {
            g_pInnermost = pGuard->pOuter;
            siglongjmp(pGuard->Jump, 1);
        }

        // Clears the address checker's marks of the frames that a jump has left. They are below the caller's frame.
        void ForgetFrames()
        {
            if (ADDRESS_CHECKER)
            {
                auto const * const pFrame = static_cast<char const *>(__builtin_frame_address(0));
                std::size_t const nBytes = StackLeft();
                CheckerAllow(pFrame - nBytes, nBytes);
            }
        }

        // Ends the outermost call whose time is up.
        void OnTimer(int, siginfo_t *, void *)
        {
            int const iError = errno;
            Guard_s * pLate = nullptr;
            std::int64_t const tNow = GoodClockTicks();
            if (CallingThread() == g_iThread)
            {
                for (Guard_s * pGuard = g_pInnermost; pGuard != nullptr; pGuard = pGuard->pOuter)
                {
                    pLate = pGuard->tEnd <= tNow ? pGuard : pLate;
                }
            }
            if (pLate != nullptr)
            {
                EndCall(pLate);
            }
            errno = iError;
        }

        // Installs the signal's handler and makes the timer. If the system has none, the calls have no limit.
        void MakeTimer()
        {
            struct sigaction Action = {};
            Action.sa_sigaction = OnTimer;
            Action.sa_flags = SA_SIGINFO | SA_ONSTACK;
            sigaction(FaultGuardSignal(), &Action, &g_PreviousAction);
            sigevent Event = {};
            Event.sigev_notify = SIGEV_THREAD_ID;
            Event.sigev_signo = FaultGuardSignal();
            Event._sigev_un._tid = g_iThread;
            int hTimer = -1;
            if (::syscall(SYS_timer_create, CLOCK_MONOTONIC, &Event, &hTimer) == 0)
            {
                g_hTimer = hTimer;
            }
        }

        // Deletes the timer and restores the signal's previous handler. Then no thread is the guarded one.
        void DeleteTimer()
        {
            if (g_hTimer >= 0)
            {
                ::syscall(SYS_timer_delete, g_hTimer.load());
                g_hTimer = -1;
            }
            sigaction(FaultGuardSignal(), &g_PreviousAction, nullptr);
            g_iThread = 0;
        }

        bool g_bForkByGuarded = false;   // whether the guarded thread forks; written under the fork's lock

        void NoteGuarded()
        {
            g_bForkByGuarded = g_iThread == CallingThread();
        }

        // Keeps the guarded calls of the thread that forked, without a limit. Drops those of another thread, and
        // restores the signal's previous handler. Runs in the child of a fork, which has neither timers nor other
        // threads.
        void KeepOwnGuards()
        {
            g_hTimer = -1;
            if (g_iThread != 0 && !g_bForkByGuarded)
            {
                sigaction(FaultGuardSignal(), &g_PreviousAction, nullptr);
            }
            g_iThread = g_bForkByGuarded ? CallingThread() : 0;
            g_pInnermost = g_bForkByGuarded ? g_pInnermost.load() : nullptr;
        }
        ForkHandler_c const g_ForkHandler({ NoteGuarded, nullptr, KeepOwnGuards });
    }

    int FaultGuardSignal()
    {
        return SIGRTMAX;
    }

    void FaultGuardEscape()
    {
        if (CallingThread() == g_iThread && g_pInnermost != nullptr)
        {
            EndCall(g_pInnermost);
        }
    }

    bool FaultCallGuarded(void (*fnCall)(void * pArgument), void * pArgument, unsigned nMilliseconds)
    {
        Guard_s Guard;
        Guard.pOuter = g_pInnermost;
        Guard.tEnd =
            nMilliseconds == 0 ? NEVER : GoodClockTicks() + std::int64_t{ nMilliseconds } * NANOSECONDS_OF_MILLISECOND;
        Guard_s * const pOuter = Guard.pOuter;
        bool volatile bEnded = false;
        if (pOuter == nullptr)
        {
            g_iThread = CallingThread();
            MakeTimer();
        }
        if (sigsetjmp(Guard.Jump, 1) == 0)
        {
            g_pInnermost = &Guard;
            if (nMilliseconds != 0)
            {
                SetTimer();
            }
            fnCall(pArgument);
            bEnded = true;
        }
        else
        {
            ForgetFrames();
        }
        g_pInnermost = pOuter;
        if (pOuter == nullptr)
        {
            DeleteTimer();
        }
        else if (nMilliseconds != 0)
        {
            SetTimer();
        }
        return bEnded;
    }
}
