#include "platform/linux/forkdrop.h"

#include "platform/fork.h"

#include <utility>

namespace plat
{
    namespace
    {
        constinit Lock_c g_Lock;   // lock of the list
        constinit ForkDrop_s * g_pFirst = nullptr;

        // Runs in a child, which has no other thread, so it needs no lock.
        void DropAll()
        {
            while (ForkDrop_s * const pEntry = g_pFirst)
            {
                g_pFirst = pEntry->pNext;
                ForkDrop_s const Entry = std::exchange(*pEntry, {});
                Entry.fnDrop(Entry.pOwner);
            }
        }

        ForkLock_c const g_ForkLock(g_Lock);
        ForkHandler_c const g_ForkHandler({ nullptr, nullptr, DropAll });
    }

    void ForkDropAdd(ForkDrop_s & Entry, void (*fnDrop)(void * pOwner), void * pOwner)
    {
        LockScope_c const Lock(g_Lock);
        if (Entry.fnDrop == nullptr)
        {
            Entry = { fnDrop, pOwner, nullptr, g_pFirst };
            if (g_pFirst != nullptr)
            {
                g_pFirst->pPrevious = &Entry;
            }
            g_pFirst = &Entry;
        }
    }

    void ForkDropRemove(ForkDrop_s & Entry)
    {
        LockScope_c const Lock(g_Lock);
        if (Entry.fnDrop != nullptr)
        {
            ForkDrop_s *& pLink = Entry.pPrevious != nullptr ? Entry.pPrevious->pNext : g_pFirst;
            pLink = Entry.pNext;
            if (Entry.pNext != nullptr)
            {
                Entry.pNext->pPrevious = Entry.pPrevious;
            }
            Entry = {};
        }
    }
}
