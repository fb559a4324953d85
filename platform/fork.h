// fork.h: locks and shared work across a fork of the process.
//
// In the child only the thread that forks exists. A lock that another thread holds would stay held there for ever. Work
// that another thread does would never finish. Therefore a global lock has a ForkLock_c, or a ForkHandler_c renews
// it in the child. A service with a thread, an open file or work under way has a ForkHandler_c. Both are usually global
// objects. Creating or destroying one requires that the thread holds no registered lock. The thread that forks keeps
// the locks that it holds, in both processes.
#pragma once

#include "platform/threads.h"

namespace plat
{
    /// Registration of a lock. A fork enters all registered locks, so that the data that they guard are complete in the
    /// child. It leaves them in the parent and in the child. Their order does not matter: if another thread holds one,
    /// the fork leaves the others and waits for that one first. Requires that the lock outlives this object.
    class ForkLock_c
    {
    public:
        ZQ_API explicit ForkLock_c(Lock_c & Lock);
        ZQ_API ~ForkLock_c();
        ForkLock_c(ForkLock_c const &) = delete;
        ForkLock_c & operator=(ForkLock_c const &) = delete;

    private:
        friend class Fork_c;

        Lock_c & m_Lock;
        ForkLock_c * m_pNext;
    };

    /// State of a registered lock at one moment.
    struct LockState_t
    {
        std::uintptr_t Address;
        std::uintptr_t Owner;   // the value of its LockOwner_t, 0 if no thread holds it
    };

    /// Functions that a fork calls on the thread that forks. Each may be null. The first two may wait for other
    /// threads, but not for one that registers or ends a registration.
    struct ForkCalls_t
    {
        void (*fnBefore)();     // before the registered locks are entered
        void (*fnInParent)();   // after the registered locks are left
        void (*fnInChild)();    // after they are left in the child, which has no other thread to wait for
    };

    /// Registration of calls. fnBefore runs in the reverse order of registration, the other two in the order of
    /// registration.
    class ForkHandler_c
    {
    public:
        ZQ_API explicit ForkHandler_c(ForkCalls_t const & Calls);
        ZQ_API ~ForkHandler_c();
        ForkHandler_c(ForkHandler_c const &) = delete;
        ForkHandler_c & operator=(ForkHandler_c const &) = delete;

    private:
        friend class Fork_c;

        ForkCalls_t const m_Calls;
        ForkHandler_c * m_pNext = nullptr;
        ForkHandler_c * m_pPrev;
    };

    /// Calls fnVisit with the state of each registered lock and with pContext. Waits for no lock, so a fault filter may
    /// call it. If another thread registers a lock or ends a registration meanwhile, the visit may miss locks or fault.
    void ForkLocksVisit(void (*fnVisit)(LockState_t const & Lock, void * pContext), void * pContext);
}
