#include "platform/threads.h"

#include "platform/faults.h"
#include "platform/fork.h"
#include "platform/linux/callingthread.h"
#include "platform/linux/idlethread.h"
#include "platform/linux/threadchecker.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        ZQ_THREAD_LOCAL std::uint32_t t_iThread = 0;   // 0 until it is first needed
        ForkHandler_c const g_ForkHandler(
            { nullptr, nullptr, [] { t_iThread = 0; } });   // the child has its own number

        // Returns the function that creates a thread. If the process has the thread checker, which must know each
        // thread, returns the one that comes first in the process.
        decltype(&::pthread_create) ThreadCreator()
        {
            void * const pFirst = HasThreadChecker() ? ::dlsym(RTLD_DEFAULT, "pthread_create") : nullptr;
            return pFirst != nullptr ? reinterpret_cast<decltype(&::pthread_create)>(pFirst) : ::pthread_create;
        }
    }

    std::uint32_t ThreadId()
    {
        if (t_iThread == 0)
        {
            t_iThread = static_cast<std::uint32_t>(CallingThread());
        }
        return t_iThread;
    }

    void ThreadName(char (&szName)[THREAD_NAME_SIZE])
    {
        szName[0] = '\0';
        ::prctl(PR_GET_NAME, szName);
    }

    void ThreadCallAtEnd(void (*fnEnd)())
    {
        static constinit pthread_key_t s_Key{};
        static constinit bool s_bKey = false;
        static constinit pthread_once_t s_Once = PTHREAD_ONCE_INIT;   // unlike a static's guard, safe across a fork
        auto const Create = []
        { s_bKey = ::pthread_key_create(&s_Key, [](void * pEnd) { reinterpret_cast<void (*)()>(pEnd)(); }) == 0; };
        ::pthread_once(&s_Once, Create);
        if (s_bKey)
        {
            ::pthread_setspecific(s_Key, reinterpret_cast<void *>(fnEnd));
        }
    }

    bool Thread_c::Start(void (*fnRun)(void *), void * pContext)
    {
        // Allocates nothing itself: a thread that faults may hold the heap's lock and wait for this one.
        auto const fnThread = [](void * pThread) -> void *
        {
            FaultThreadJoin();
            auto const * const pThis = static_cast<Thread_c const *>(pThread);
            pThis->m_fnRun(pThis->m_pContext);
            IdleThreadForget(::pthread_self());
            return nullptr;
        };
        m_fnRun = fnRun;
        m_pContext = pContext;
        pthread_t hThread;
        if (ThreadCreator()(&hThread, nullptr, fnThread, this) != 0)
        {
            return false;
        }
        static_assert(sizeof hThread <= sizeof m_hThread);
        m_hThread = static_cast<std::uintptr_t>(hThread);
        return true;
    }

    void Thread_c::Join()
    {
        if (m_hThread != 0)
        {
            IdleThreadLift(static_cast<pthread_t>(m_hThread));
            ::pthread_join(static_cast<pthread_t>(m_hThread), nullptr);
            m_hThread = 0;
        }
    }
}
