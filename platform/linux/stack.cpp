#include "platform/stack.h"

#include "platform/compiler.h"

#include <exception>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#ifdef __has_feature
    #if __has_feature(address_sanitizer)
        #define CHECKER_FOLLOWS_STACKS
    #endif
#elif defined(__SANITIZE_ADDRESS__)
    #define CHECKER_FOLLOWS_STACKS
#endif

#ifdef CHECKER_FOLLOWS_STACKS
    #include <sanitizer/asan_interface.h>
    #include <sanitizer/common_interface_defs.h>
#endif

namespace plat
{
    namespace
    {
        ZQ_THREAD_LOCAL char const * t_pLow = nullptr;   // end of the stack that the thread runs on

        struct Switch_s
        {
            void (*fnCall)(void *);
            void * pArgument;
            std::exception_ptr Thrown;
            ucontext_t Caller;
            ucontext_t Fresh;
            void const * pCallerStack;   // as the address checker knows it
            std::size_t nCallerStack;
        };
        ZQ_THREAD_LOCAL Switch_s * t_pSwitch = nullptr;   // the latest one

        // Reports to the address checker which stack is the present one.
        void ReportLeaving(void ** ppFrames, void const * pStack, std::size_t nBytes)
        {
#ifdef CHECKER_FOLLOWS_STACKS
            __sanitizer_start_switch_fiber(ppFrames, pStack, nBytes);
#else
            static_cast<void>(ppFrames), static_cast<void>(pStack), static_cast<void>(nBytes);
#endif
        }

        void ReportArrival(void * pFrames, void const ** ppFrom, std::size_t * pFromBytes)
        {
#ifdef CHECKER_FOLLOWS_STACKS
            __sanitizer_finish_switch_fiber(pFrames, ppFrom, pFromBytes);
#else
            static_cast<void>(pFrames), static_cast<void>(ppFrom), static_cast<void>(pFromBytes);
#endif
        }

        // Clears the checker's marks of Run's frame, which would stay because Run never returns.
        void ClearCheckerMarks(void const * pStack, std::size_t nBytes)
        {
#ifdef CHECKER_FOLLOWS_STACKS
            __asan_unpoison_memory_region(pStack, nBytes);
#else
            static_cast<void>(pStack), static_cast<void>(nBytes);
#endif
        }

        void Run()
        {
            Switch_s & Switch = *t_pSwitch;
            ReportArrival(nullptr, &Switch.pCallerStack, &Switch.nCallerStack);
            try
            {
                Switch.fnCall(Switch.pArgument);
            }
            catch (...)
            {
                Switch.Thrown = std::current_exception();
            }
            ReportLeaving(nullptr, Switch.pCallerStack, Switch.nCallerStack);
            setcontext(&Switch.Caller);
        }

        void SwitchTo(Switch_s & Switch, char * pStack, std::size_t nBytes)
        {
            char const * const pPreviousLow = t_pLow;
            Switch_s * const pPreviousSwitch = t_pSwitch;
            getcontext(&Switch.Fresh);
            Switch.Fresh.uc_stack.ss_sp = pStack;
            Switch.Fresh.uc_stack.ss_size = nBytes;
            Switch.Fresh.uc_link = nullptr;
            makecontext(&Switch.Fresh, Run, 0);

            t_pLow = pStack;
            t_pSwitch = &Switch;
            void * pFrames = nullptr;
            ReportLeaving(&pFrames, pStack, nBytes);
            swapcontext(&Switch.Caller, &Switch.Fresh);
            ReportArrival(pFrames, nullptr, nullptr);
            ClearCheckerMarks(pStack, nBytes);
            t_pSwitch = pPreviousSwitch;
            t_pLow = pPreviousLow;
        }

        ZQ_COLD char const * FindLow()
        {
            pthread_attr_t Attributes;
            void * pLow = nullptr;
            std::size_t nBytes = 0;
            if (pthread_getattr_np(pthread_self(), &Attributes) == 0)
            {
                pthread_attr_getstack(&Attributes, &pLow, &nBytes);
                pthread_attr_destroy(&Attributes);
            }
            return static_cast<char const *>(pLow);
        }
    }

    std::size_t StackLeft()
    {
        if (t_pLow == nullptr)
        {
            t_pLow = FindLow();
        }
        auto const * const pFrame = static_cast<char const *>(__builtin_frame_address(0));
        return pFrame > t_pLow ? static_cast<std::size_t>(pFrame - t_pLow) : 0;
    }

    bool StackCallOnFresh(std::size_t nBytes, void (*fnCall)(void * pArgument), void * pArgument)
    {
        constexpr int FLAGS = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK;
        auto const nGuard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void * const pMemory = mmap(nullptr, nBytes + nGuard, PROT_READ | PROT_WRITE, FLAGS, -1, 0);
        if (pMemory == MAP_FAILED)
        {
            return false;
        }
        mprotect(pMemory, nGuard, PROT_NONE);
        Switch_s Switch{};
        Switch.fnCall = fnCall;
        Switch.pArgument = pArgument;
        SwitchTo(Switch, static_cast<char *>(pMemory) + nGuard, nBytes);
        munmap(pMemory, nBytes + nGuard);
        if (Switch.Thrown)
        {
            std::rethrow_exception(Switch.Thrown);
        }
        return true;
    }
}
