#include "platform/fork.h"

#include <pthread.h>

namespace plat
{
    // The registered locks and calls.
    class Fork_c
    {
    public:
        void Add(ForkLock_c & Lock)
        {
            LockScope_c const Scope(m_ListLock);
            Hook();
            Lock.m_pNext = m_pLocks;
            m_pLocks = &Lock;
        }

        void Remove(ForkLock_c const & Lock)
        {
            LockScope_c const Scope(m_ListLock);
            ForkLock_c ** ppLock = &m_pLocks;
            while (*ppLock != &Lock)
            {
                ppLock = &(*ppLock)->m_pNext;
            }
            *ppLock = Lock.m_pNext;
        }

        void Add(ForkHandler_c & Handler)
        {
            LockScope_c const Scope(m_ListLock);
            Hook();
            Handler.m_pPrev = m_pNewest;
            (m_pNewest ? m_pNewest->m_pNext : m_pOldest) = &Handler;
            m_pNewest = &Handler;
        }

        void Remove(ForkHandler_c const & Handler)
        {
            LockScope_c const Scope(m_ListLock);
            (Handler.m_pPrev ? Handler.m_pPrev->m_pNext : m_pOldest) = Handler.m_pNext;
            (Handler.m_pNext ? Handler.m_pNext->m_pPrev : m_pNewest) = Handler.m_pPrev;
        }

        void RunBefore()
        {
            m_ListLock.Enter();
            for (ForkHandler_c const * pHandler = m_pNewest; pHandler; pHandler = pHandler->m_pPrev)
            {
                Call(pHandler->m_Calls.fnBefore);
            }
            ForkLock_c const * pFirst = m_pLocks;
            while (pFirst)
            {
                pFirst = EnterAll(pFirst);
            }
        }

        void RunInParent()
        {
            LeaveAll();
            for (ForkHandler_c const * pHandler = m_pOldest; pHandler; pHandler = pHandler->m_pNext)
            {
                Call(pHandler->m_Calls.fnInParent);
            }
            m_ListLock.Leave();
        }

        void RunInChild()
        {
            LeaveAll();
            m_ListLock.Leave();
            for (ForkHandler_c const * pHandler = m_pOldest; pHandler; pHandler = pHandler->m_pNext)
            {
                Call(pHandler->m_Calls.fnInChild);
            }
        }

        void Visit(void (*fnVisit)(LockState_t const & Lock, void * pContext), void * pContext) const
        {
            for (ForkLock_c const * pLock = m_pLocks; pLock; pLock = pLock->m_pNext)
            {
                fnVisit({ reinterpret_cast<std::uintptr_t>(&pLock->m_Lock),
                            reinterpret_cast<std::uintptr_t>(pLock->m_Lock.GetOwner()) },
                    pContext);
            }
        }

    private:
        static void Call(void (*fnCall)())
        {
            if (fnCall)
            {
                fnCall();
            }
        }

        void LeaveAll() const
        {
            for (ForkLock_c const * pLock = m_pLocks; pLock; pLock = pLock->m_pNext)
            {
                pLock->m_Lock.Leave();
            }
        }

        // Waits for pFirst, enters all other locks, and returns null. If another thread holds one of those, leaves all
        // again and returns that one.
        ForkLock_c const * EnterAll(ForkLock_c const * pFirst) const
        {
            pFirst->m_Lock.Enter();
            for (ForkLock_c const * pLock = m_pLocks; pLock; pLock = pLock->m_pNext)
            {
                if (pLock == pFirst || pLock->m_Lock.TryEnter())
                {
                    continue;
                }
                for (ForkLock_c const * pEntered = m_pLocks; pEntered != pLock; pEntered = pEntered->m_pNext)
                {
                    if (pEntered != pFirst)
                    {
                        pEntered->m_Lock.Leave();
                    }
                }
                pFirst->m_Lock.Leave();
                return pLock;
            }
            return nullptr;
        }

        void Hook();

        Lock_c m_ListLock;   // held during a fork
        ForkLock_c * m_pLocks = nullptr;
        ForkHandler_c * m_pOldest = nullptr;
        ForkHandler_c * m_pNewest = nullptr;
        bool m_bHooked = false;
    };

    namespace
    {
        constinit Fork_c g_Fork;
    }

    // Makes each fork call this object, unless that is done. If the system refuses, the next registration tries again.
    void Fork_c::Hook()
    {
        if (!m_bHooked)
        {
            m_bHooked =
                ::pthread_atfork([] { g_Fork.RunBefore(); }, [] { g_Fork.RunInParent(); }, [] { g_Fork.RunInChild(); })
                == 0;
        }
    }

    void ForkLocksVisit(void (*fnVisit)(LockState_t const & Lock, void * pContext), void * pContext)
    {
        g_Fork.Visit(fnVisit, pContext);
    }

    ForkLock_c::ForkLock_c(Lock_c & Lock)
        : m_Lock(Lock)
    {
        g_Fork.Add(*this);
    }

    ForkLock_c::~ForkLock_c()
    {
        g_Fork.Remove(*this);
    }

    ForkHandler_c::ForkHandler_c(ForkCalls_t const & Calls)
        : m_Calls(Calls)
    {
        g_Fork.Add(*this);
    }

    ForkHandler_c::~ForkHandler_c()
    {
        g_Fork.Remove(*this);
    }
}
