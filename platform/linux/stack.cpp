#include "platform/stack.h"

#include "platform/checker.h"
#include "platform/compiler.h"
#include "platform/linux/stackcall.h"

#include <exception>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#if ZQ_ADDRESS_CHECKER
    #include <sanitizer/common_interface_defs.h>
#endif

// Calls fnCall(pArgument) on the stack that ends at pEnd. The frame pointer leads back, so that debuggers and
// walks of the stack find the caller. Calls and returns stay paired, as a processor with a shadow stack demands.
// Requires that pEnd is aligned to 16 bytes.
extern "C" __attribute__((visibility("hidden"))) void ZqStackCall(
    void * pEnd, void (*fnCall)(void * pArgument), void * pArgument);

#if defined(__x86_64__)
extern "C" __attribute__((naked)) void ZqStackCall(void *, void (*)(void *), void *)
{
    __asm__ volatile("pushq %rbp\n\t"
                     ".cfi_def_cfa_offset 16\n\t"
                     ".cfi_offset %rbp, -16\n\t"
                     "movq %rsp, %rbp\n\t"
                     ".cfi_def_cfa_register %rbp\n\t"
                     "movq %rdi, %rsp\n\t"
                     "movq %rdx, %rdi\n\t"
                     "callq *%rsi\n\t"
                     "movq %rbp, %rsp\n\t"
                     "popq %rbp\n\t"
                     ".cfi_def_cfa %rsp, 8\n\t"
                     "retq");
}
#else
extern "C" __attribute__((naked)) void ZqStackCall(void *, void (*)(void *), void *)
{
    __asm__ volatile("pushl %ebp\n\t"
                     ".cfi_def_cfa_offset 8\n\t"
                     ".cfi_offset %ebp, -8\n\t"
                     "movl %esp, %ebp\n\t"
                     ".cfi_def_cfa_register %ebp\n\t"
                     "movl 8(%ebp), %eax\n\t"
                     "movl 12(%ebp), %ecx\n\t"
                     "movl 16(%ebp), %edx\n\t"
                     "leal -16(%eax), %esp\n\t"
                     "movl %edx, (%esp)\n\t"
                     "calll *%ecx\n\t"
                     "movl %ebp, %esp\n\t"
                     "popl %ebp\n\t"
                     ".cfi_def_cfa %esp, 4\n\t"
                     "retl");
}
#endif

namespace plat
{
    namespace
    {
        ZQ_THREAD_LOCAL char const * t_pLow = nullptr;   // low end of the thread's present stack, null if unknown

        // Call on another stack.
        struct Call_s
        {
            void (*fnCall)(void *);
            void * pArgument;
            std::exception_ptr Thrown;
            void const * pCallerStack;   // as the address checker knows it
            std::size_t nCallerStack;
        };

        // Reports to the address checker that the thread is about to run on another stack. Does nothing without the
        // checker.
        void ReportLeaving(void ** ppFrames, void const * pStack, std::size_t nBytes)
        {
#if ZQ_ADDRESS_CHECKER
            __sanitizer_start_switch_fiber(ppFrames, pStack, nBytes);
#else
            static_cast<void>(ppFrames);
            static_cast<void>(pStack);
            static_cast<void>(nBytes);
#endif
        }

        // Reports to the address checker that the thread runs on the stack of the last ReportLeaving. Sets *ppFrom and
        // *pFromBytes, unless they are null, to the stack before it. Does nothing without the checker.
        void ReportArrival(void * pFrames, void const ** ppFrom, std::size_t * pFromBytes)
        {
#if ZQ_ADDRESS_CHECKER
            __sanitizer_finish_switch_fiber(pFrames, ppFrom, pFromBytes);
#else
            static_cast<void>(pFrames);
            static_cast<void>(ppFrom);
            static_cast<void>(pFromBytes);
#endif
        }

        // Runs a call on this stack and stores its exception. StackCallOn rethrows it on the caller's stack, after
        // ReportArrival.
        void Run(void * pCall)
        {
            Call_s & Call = *static_cast<Call_s *>(pCall);
            ReportArrival(nullptr, &Call.pCallerStack, &Call.nCallerStack);
            try
            {
                Call.fnCall(Call.pArgument);
            }
            catch (...)
            {
                Call.Thrown = std::current_exception();
            }
            ReportLeaving(nullptr, Call.pCallerStack, Call.nCallerStack);
        }

        // Returns the low end of the thread's first stack. Returns null if the system does not report it.
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
        return t_pLow != nullptr && pFrame > t_pLow ? static_cast<std::size_t>(pFrame - t_pLow) : 0;
    }

    void StackCallOn(void * pStack, std::size_t nBytes, void (*fnCall)(void * pArgument), void * pArgument)
    {
        char const * const pPreviousLow = t_pLow;
        t_pLow = static_cast<char const *>(pStack);
        Call_s Call{ fnCall, pArgument, {}, nullptr, 0 };
        void * pFrames = nullptr;
        ReportLeaving(&pFrames, pStack, nBytes);
        ZqStackCall(static_cast<char *>(pStack) + nBytes, Run, &Call);
        ReportArrival(pFrames, nullptr, nullptr);
        CheckerAllow(pStack, nBytes);   // removes the marks that frames left in it
        t_pLow = pPreviousLow;
        if (Call.Thrown)
        {
            std::rethrow_exception(Call.Thrown);
        }
    }

    bool StackCallOnFresh(std::size_t nBytes, void (*fnCall)(void * pArgument), void * pArgument)
    {
        constexpr int FLAGS = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK;
        auto const nGuard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        struct Memory_c
        {
            void * const m_pStart;
            std::size_t const m_nAll;
            ~Memory_c() { munmap(m_pStart, m_nAll); }
        };
        void * const pMemory = mmap(nullptr, nBytes + nGuard, PROT_READ | PROT_WRITE, FLAGS, -1, 0);
        if (pMemory == MAP_FAILED)
        {
            return false;
        }
        Memory_c const Memory = { pMemory, nBytes + nGuard };
        if (mprotect(pMemory, nGuard, PROT_NONE) != 0)
        {
            return false;   // the process has as many mappings as it may have
        }
        StackCallOn(static_cast<char *>(pMemory) + nGuard, nBytes, fnCall, pArgument);
        return true;
    }
}
