// The alternate stack on which a thread's faults are handled, and the hook that sets one for each new thread.
#include "platform/checker.h"
#include "platform/faults.h"
#include "platform/linux/threadchecker.h"
#include "platform/memory.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

// The checkers hook the creation of threads themselves. Within one program the library's hook would replace theirs.
#if ZQ_ADDRESS_CHECKER || defined(__SANITIZE_THREAD__)
    #define FAULT_THREADS_HOOKED 0
#elif defined(__has_feature)
    #if __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
        #define FAULT_THREADS_HOOKED 0
    #endif
#endif
#ifndef FAULT_THREADS_HOOKED
    #define FAULT_THREADS_HOOKED 1
#endif

namespace plat
{
    namespace
    {
        constexpr std::size_t STACK_SIZE = 256 * 1024;   // bytes, enough for a handler of the host; allocated as used

        // Stacks of threads that have ended, for those that start. A thread costs less without a mapping of its own.
        std::atomic<void *> g_dSpare[8];

        // Removes a spare stack and returns it. Returns null if there is none.
        void * ReuseSpare()
        {
            for (std::atomic<void *> & pSpare : g_dSpare)
            {
                if (pSpare.load(std::memory_order_relaxed) == nullptr)
                {
                    continue;
                }
                if (void * const pMemory = pSpare.exchange(nullptr))
                {
                    return pMemory;
                }
            }
            return nullptr;
        }

        // Keeps the stack of a thread that ends and returns true. Returns false if all places are taken.
        bool KeepSpare(void * pMemory)
        {
            for (std::atomic<void *> & pSpare : g_dSpare)
            {
                void * pNone = nullptr;
                if (pSpare.compare_exchange_strong(pNone, pMemory))
                {
                    return true;
                }
            }
            return false;
        }

        // Alternate stack of one thread.
        class AlternateStack_c
        {
        public:
            // Sets the stack for the calling thread and returns true. Returns false on failure.
            bool Set()
            {
                m_pMemory = m_pMemory != nullptr ? m_pMemory : ReuseSpare();
                m_pMemory = m_pMemory != nullptr ? m_pMemory : PagesAllocate(STACK_SIZE);
                stack_t const Stack = { m_pMemory, 0, STACK_SIZE };
                return m_pMemory != nullptr && sigaltstack(&Stack, nullptr) == 0;
            }

            // Releases the stack, or keeps it as a spare. Leaves it if the thread ends on it: the end of the process
            // follows.
            ~AlternateStack_c()
            {
                stack_t const None = { nullptr, SS_DISABLE, 0 };
                if (m_pMemory != nullptr && sigaltstack(&None, nullptr) == 0 && !KeepSpare(m_pMemory))
                {
                    PagesRelease(m_pMemory, STACK_SIZE);
                }
            }

        private:
            void * m_pMemory = nullptr;
        };
    }

    // The address checker allocates such a stack for each thread, and later releases whatever replaced it.
    bool FaultThreadJoin()
    {
        static thread_local AlternateStack_c t_Stack;
        return ADDRESS_CHECKER || t_Stack.Set();
    }
}

#if FAULT_THREADS_HOOKED
namespace
{
    using Run_t = void * (*)(void *);
    using Create_t = int (*)(pthread_t *, pthread_attr_t const *, Run_t, void *);

    struct Start_s
    {
        Run_t fnRun;
        void * pArgument;
    };

    // Sets the thread's stack for faults. Keeps one that the thread has already, from another copy of the library or
    // from a checker.
    __attribute__((noinline)) void JoinIfStackless()
    {
        stack_t Present;
        if (sigaltstack(nullptr, &Present) == 0 && (Present.ss_flags & SS_DISABLE) != 0)
        {
            plat::FaultThreadJoin();
        }
    }

    // Runs the thread's function with a stack for faults and returns its result. If optimised, ends in a jump, so that
    // the thread's call stack has no frame of this function. Therefore nothing here uses the address of a local.
    void * RunJoined(void * pStart)
    {
        Run_t const fnRun = static_cast<Start_s *>(pStart)->fnRun;
        void * const pArgument = static_cast<Start_s *>(pStart)->pArgument;
        std::free(pStart);
        JoinIfStackless();
        return fnRun(pArgument);
    }

    // Returns the function that the process would call without this library, or null if there is none.
    Create_t NextCreate()
    {
        static constinit std::atomic<Create_t> s_fnNext{ nullptr };
        Create_t fnNext = s_fnNext.load(std::memory_order_relaxed);
        if (fnNext == nullptr)
        {
            fnNext = reinterpret_cast<Create_t>(dlsym(RTLD_NEXT, "pthread_create"));
            s_fnNext.store(fnNext, std::memory_order_relaxed);
        }
        return fnNext;
    }

    // Returns whether a function is the thread checker's. If it comes after the library's, it receives what the library
    // passes. Otherwise the checker calls the library's.
    bool IsOfThreadChecker(Create_t fnCreate)
    {
        Dl_info Function, Checker;
        return dladdr(reinterpret_cast<void *>(fnCreate), &Function) != 0
               && dladdr(reinterpret_cast<void *>(&__tsan_init), &Checker) != 0
               && Function.dli_fbase == Checker.dli_fbase;
    }
}

extern "C"
{
    // Creates a thread, which has a stack for faults, unless the thread checker calls this function or the system
    // refuses a stack. Replaces the C library's function in the process, calls it and returns its result. A program
    // that links the library's objects and a checker's function of this name uses the latter. Returns EAGAIN if there
    // is no memory or no function to call.
    ZQ_API __attribute__((weak)) int pthread_create(
        pthread_t * pThread, pthread_attr_t const * pAttributes, Run_t fnRun, void * pArgument) noexcept
    {
        Create_t const fnNext = NextCreate();
        if (fnNext != nullptr && plat::HasThreadChecker() && !IsOfThreadChecker(fnNext))
        {
            return fnNext(pThread, pAttributes, fnRun, pArgument);   // fnRun is the checker's and must run first
        }
        auto * const pStart = static_cast<Start_s *>(std::malloc(sizeof(Start_s)));
        if (fnNext == nullptr || pStart == nullptr)
        {
            std::free(pStart);
            return EAGAIN;
        }
        *pStart = { fnRun, pArgument };
        int const iError = fnNext(pThread, pAttributes, RunJoined, pStart);
        if (iError != 0)
        {
            std::free(pStart);
        }
        return iError;
    }
}
#endif
