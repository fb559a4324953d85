// forkdrop.h: what a forked child must not keep of its parent.
//
// A child has a copy of every descriptor. If a copy keeps the parent's resource alive or shares the parent's work in
// flight, the child closes it at once.
//
// An entry has an owner and is used once: the child removes it. A ForkHandler_c (fork.h) stays registered in the child.
// As a member of another thread's thread-local object it would dangle there, because no destructor of that thread runs.
//
// Threads: any thread.
#pragma once

namespace plat
{
    /// One entry, zero while it is not added. Requires that it stays at its address until it is removed or dropped.
    struct ForkDrop_s
    {
        void (*fnDrop)(void * pOwner);
        void * pOwner;
        ForkDrop_s * pPrevious;
        ForkDrop_s * pNext;
    };

    /// Makes a forked child remove the entry and call fnDrop(pOwner) before fork returns to it. The memory of the
    /// parent's other threads still exists then. Does nothing if the entry is added already.
    void ForkDropAdd(ForkDrop_s & Entry, void (*fnDrop)(void * pOwner), void * pOwner);

    /// Removes an entry. Does nothing if it is not added.
    void ForkDropRemove(ForkDrop_s & Entry);
}
