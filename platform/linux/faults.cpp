#include "platform/faults.h"

#include "platform/clock.h"
#include "platform/fork.h"
#include "platform/linux/callingthread.h"
#include "platform/linux/faultdecode.h"
#include "platform/linux/faultguard.h"
#include "platform/linux/faultstack.h"
#include "platform/linux/reserve.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <iterator>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        constexpr int SIGNALS[] = { SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGABRT };
        constexpr unsigned DYING_LIMIT = 10000;         // milliseconds that another fault waits for the end
        constexpr unsigned SLEEP = 2;                   // milliseconds between two checks
        constexpr unsigned DESCRIPTION_LIMIT = 1000;    // milliseconds for an exception's own message
        constexpr std::size_t DESCRIPTION_SIZE = 512;   // bytes of a description, its zero included

        std::atomic<FaultFilter_t> g_fnFilter{ nullptr };
        bool g_bHooked = false;
        struct sigaction g_dPreviousActions[std::size(SIGNALS)];
        std::terminate_handler g_fnPreviousTerminate = nullptr;

        std::atomic<int> g_iReporter{ 0 };        // the thread in the filter, or whose fault it passed on; 0 for none
        std::atomic<bool> g_bReported{ false };   // whether a filter has passed its fault on, or has faulted
        std::atomic<bool> g_bDying{ false };      // whether the process is about to end
        char g_szException[DESCRIPTION_SIZE];     // description of an uncaught exception

        bool g_bForkByReporter = false;   // whether the reporter forks; written under the fork's lock

        // Runs before a fork, on the thread that forks.
        void NoteReporter()
        {
            g_bForkByReporter = g_iReporter == CallingThread();
        }

        // Runs in a forked child, which has no other thread that could finish its filter or end the process. Its own
        // thread has a new number.
        void KeepOwnReporter()
        {
            g_iReporter = g_bForkByReporter ? CallingThread() : 0;
            g_bReported = false;
            g_bDying = false;
            ReserveAllow(g_bForkByReporter);
        }
        ForkHandler_c const g_ForkHandler({ NoteReporter, nullptr, KeepOwnReporter });

        void Sleep()
        {
            timespec const Moment = { 0, SLEEP * NANOSECONDS_OF_MILLISECOND };
            nanosleep(&Moment, nullptr);
        }

        // Fills the set of signals that are blocked during a filter: all but its own faults and the guard's timer.
        void FillFilterSet(sigset_t & Set)
        {
            sigfillset(&Set);
            sigdelset(&Set, FaultGuardSignal());
            for (int const iSignal : SIGNALS)
            {
                sigdelset(&Set, iSignal);
            }
        }

        // Removes signals that a filter's writing may have raised. They would end the process instead of the fault.
        void DropSignalsOfWriting()
        {
            sigset_t Set;
            sigemptyset(&Set);
            sigaddset(&Set, SIGXFSZ);
            sigaddset(&Set, SIGPIPE);
            timespec const Now = {};
            while (sigtimedwait(&Set, nullptr, &Now) > 0)
            {}
        }

        // Disables alignment checks, which the faulting code may have left enabled. A filter's own code might fail
        // them.
        void StopAlignmentChecks()
        {
#if defined(__x86_64__)
            __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() & ~std::uint64_t{ FLAG_ALIGNMENT_CHECK });
#else
            __builtin_ia32_writeeflags_u32(__builtin_ia32_readeflags_u32() & ~FLAG_ALIGNMENT_CHECK);
#endif
        }

        // Claims the filter for a thread if it is free. Returns the thread that then has it.
        int ClaimFilter(int iThread)
        {
            int iReporter = 0;
            return g_iReporter.compare_exchange_strong(iReporter, iThread) ? iThread : iReporter;
        }

        // Claims the filter and prepares the calling thread for it. Waits while another thread runs the filter. If the
        // process is about to end, waits for that too, at most DYING_LIMIT. A fault in a guarded call ends that call
        // instead. Returns false in these cases:
        // - The filter has passed on an earlier fault, of this thread or another one.
        // - The filter has faulted outside a guarded call, on this thread or another one.
        bool BeginFilter()
        {
            FaultGuardEscape();
            int const iThread = CallingThread();
            if (g_iReporter == iThread)
            {
                g_bReported = true;
                return false;
            }
            while (ClaimFilter(iThread) != iThread && !g_bReported)
            {
                Sleep();
            }
            for (unsigned nWaited = 0; g_bDying && nWaited < DYING_LIMIT; nWaited += SLEEP)
            {
                Sleep();
            }
            if (g_bReported)
            {
                return false;
            }
            sigset_t Set;
            FillFilterSet(Set);
            pthread_sigmask(SIG_SETMASK, &Set, nullptr);
            ReserveAllow(true);
            return true;
        }

        // Calls the filter. Returns whether it has handled the fault. Fills the reserve again if it has.
        bool CallFilter(FaultRecord_t const & Record, FaultContext_t const & Context)
        {
            FaultPointers_t const Fault = { &Record, &Context };
            FaultFilter_t const fnFilter = g_fnFilter;
            bool const bDone = fnFilter != nullptr && fnFilter(&Fault) != 0;
            DropSignalsOfWriting();
            if (bDone)
            {
                ReserveAllow(false);
                ReserveFill();
            }
            return bDone;
        }

        std::size_t IndexOf(int iSignal)
        {
            std::size_t i = 0;
            while (SIGNALS[i] != iSignal)
            {
                ++i;
            }
            return i;
        }

        // Passes a fault on: the previous action gets the same signal when the handler returns, at the same place and
        // with the same registers.
        void PassOn(int iSignal, siginfo_t * pInfo)
        {
            sigset_t Set;
            sigemptyset(&Set);
            sigaddset(&Set, iSignal);
            pthread_sigmask(SIG_BLOCK, &Set, nullptr);
            sigaction(iSignal, &g_dPreviousActions[IndexOf(iSignal)], nullptr);
            if (::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), CallingThread(), iSignal, pInfo) != 0)
            {
                ::syscall(SYS_tgkill, ::getpid(), CallingThread(), iSignal);
            }
        }

        bool EndsProcess(struct sigaction const & Action)
        {
            return (Action.sa_flags & SA_SIGINFO) == 0
                   && (Action.sa_handler == SIG_DFL || Action.sa_handler == SIG_IGN);
        }

        // Argument of FilterSignal and its result.
        struct Signal_s
        {
            int iSignal;
            siginfo_t const & Info;
            ucontext_t const & Thread;
            bool bDone;
        };

        void FilterSignal(void * pSignal)
        {
            auto & Signal = *static_cast<Signal_s *>(pSignal);
            FaultContext_t Context;
            FaultRecord_t Record;
            FaultFromSignal(Signal.iSignal, Signal.Info, Signal.Thread, Context, Record);
            Signal.bDone = CallFilter(Record, Context);
        }

        // Runs on whatever stack the thread has left. Therefore it holds little. All else is on the filter's stack.
        void OnSignal(int iSignal, siginfo_t * pInfo, void * pThread)
        {
            StopAlignmentChecks();
            int const iError = errno;
            if (BeginFilter())
            {
                Signal_s Signal = { iSignal, *pInfo, *static_cast<ucontext_t const *>(pThread), false };
                FaultStackCall(FilterSignal, &Signal);
                if (Signal.bDone)
                {
                    g_iReporter = 0;
                    errno = iError;
                    return;
                }
                g_bDying = EndsProcess(g_dPreviousActions[IndexOf(iSignal)]);
                g_bReported = true;
            }
            PassOn(iSignal, pInfo);
            errno = iError;
        }

        void Describe(void *)
        {
            DescribeException(g_szException, sizeof g_szException);
        }

        void FilterException(void * pContext)
        {
            auto const & Context = *static_cast<FaultContext_t const *>(pContext);
            FaultCallGuarded(Describe, nullptr, DESCRIPTION_LIMIT);
            FaultRecord_t const Record = { FAULT_UNCAUGHT_EXCEPTION, Context.nIp, {} };
            CallFilter(Record, Context);
        }

        [[noreturn]] void OnTerminate()
        {
            if (abi::__cxa_current_exception_type() != nullptr && BeginFilter())
            {
                FaultContext_t Context;
                FaultContextCapture(&Context);
                FaultStackCall(FilterException, &Context);
                g_bDying = true;
                g_bReported = true;
            }
            if (g_fnPreviousTerminate != nullptr)
            {
                g_fnPreviousTerminate();
            }
            std::abort();
        }

        void Hook()
        {
            struct sigaction Action = {};
            Action.sa_sigaction = OnSignal;
            Action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
            FillFilterSet(Action.sa_mask);
            for (std::size_t i = 0; i < std::size(SIGNALS); ++i)
            {
                sigaction(SIGNALS[i], &Action, &g_dPreviousActions[i]);
            }
            g_fnPreviousTerminate = std::set_terminate(OnTerminate);
            FaultStackPrepare();
            ReserveFill();
            FaultThreadJoin();
        }

        // Restores the previous handlers, but keeps those that were set later. They may call the library's handler,
        // which then passes the fault on.
        void Unhook()
        {
            for (std::size_t i = 0; i < std::size(SIGNALS); ++i)
            {
                struct sigaction Present;
                sigaction(SIGNALS[i], nullptr, &Present);
                if ((Present.sa_flags & SA_SIGINFO) != 0 && Present.sa_sigaction == OnSignal)
                {
                    sigaction(SIGNALS[i], &g_dPreviousActions[i], nullptr);
                }
            }
            if (std::get_terminate() == OnTerminate)
            {
                std::set_terminate(g_fnPreviousTerminate);
            }
            ReserveDrop();
        }
    }

    FaultFilter_t FaultFilterSet(FaultFilter_t fnFilter)
    {
        FaultFilter_t const fnPrevious = g_fnFilter.exchange(fnFilter);
        if ((fnFilter != nullptr) != g_bHooked)
        {
            g_bHooked = fnFilter != nullptr;
            if (g_bHooked)
            {
                Hook();
            }
            else
            {
                Unhook();
            }
        }
        return fnPrevious;
    }

    bool FaultFilterIsMine()
    {
        return g_iReporter == CallingThread();
    }

    void FaultReserveDescriptors()
    {
        ReserveFill();
    }

    void FaultText(std::uint32_t nCode, char * szText, std::size_t nSize)
    {
        char const * const szKnown = nCode == FAULT_ABORT                ? "abort() was called"
                                     : nCode != FAULT_UNCAUGHT_EXCEPTION ? "Unknown fault"
                                     : g_szException[0] != '\0'          ? g_szException
                                                                         : FAULT_UNCAUGHT_TEXT;
        std::size_t const nText = strnlen(szKnown, nSize - 1);
        std::memcpy(szText, szKnown, nText);
        szText[nText] = '\0';
    }

    void FaultExit(int iStatus)
    {
        ::_exit(iStatus);
    }
}
