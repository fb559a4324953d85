#include "platform/linux/faultstack.h"

#include "platform/linux/stackcall.h"
#include "platform/memory.h"

#include <csignal>
#include <sys/mman.h>

namespace plat
{
    namespace
    {
        // Sizes in bytes. The system allocates pages as they are used. From the low end these follow each other: a
        // guard page, the stack of signals that interrupt the filter, a guard page, the filter's stack, which has room
        // for a host's dialog.
        constexpr std::size_t GUARD = MEMORY_PAGE;
        constexpr std::size_t SIGNALS_SIZE = 64 * 1024;
        constexpr std::size_t FILTER_SIZE = 512 * 1024;
        constexpr std::size_t FILTER_START = GUARD + SIGNALS_SIZE + GUARD;

        // Memory of both stacks. It is not a static array, because a checker of leaks reads all static memory, guard
        // pages too. It is never released, because a thread may be on it when the process ends.
        char * g_pMemory = nullptr;

        // Argument of Run: a function with its own argument.
        struct Call_s
        {
            void (*fnCall)(void *);
            void * pArgument;
        };

        // Scope with an alternate stack for signals. The stack can be changed only while the thread is not on it.
        class SignalStackScope_c
        {
        public:
            SignalStackScope_c()
            {
                stack_t const Stack = { g_pMemory + GUARD, 0, SIGNALS_SIZE };
                m_bSet = sigaltstack(&Stack, &m_Previous) == 0;
            }
            ~SignalStackScope_c()
            {
                if (m_bSet)
                {
                    sigaltstack(&m_Previous, nullptr);
                }
            }
            SignalStackScope_c(SignalStackScope_c const &) = delete;
            SignalStackScope_c & operator=(SignalStackScope_c const &) = delete;

        private:
            stack_t m_Previous = {};
            bool m_bSet;
        };

        // Runs the function of a Call_s with the alternate stack for signals.
        void Run(void * pCall)
        {
            auto const & Call = *static_cast<Call_s const *>(pCall);
            SignalStackScope_c const Scope;
            Call.fnCall(Call.pArgument);
        }
    }

    void FaultStackPrepare()
    {
        if (g_pMemory == nullptr)
        {
            g_pMemory = static_cast<char *>(PagesAllocate(FILTER_START + FILTER_SIZE));
        }
        if (g_pMemory != nullptr)
        {
            mprotect(g_pMemory, GUARD, PROT_NONE);
            mprotect(g_pMemory + GUARD + SIGNALS_SIZE, GUARD, PROT_NONE);
        }
    }

    void FaultStackCall(void (*fnCall)(void * pArgument), void * pArgument)
    {
        if (g_pMemory == nullptr)
        {
            fnCall(pArgument);
            return;
        }
        Call_s Call = { fnCall, pArgument };
        StackCallOn(g_pMemory + FILTER_START, FILTER_SIZE, Run, &Call);
    }
}
