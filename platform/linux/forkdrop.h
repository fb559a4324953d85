// forkdrop.h: what a forked child must not keep of its parent.
//
// A child has a copy of every descriptor. Where a copy keeps the parent's resource alive or shares the parent's work in
// flight, the child closes it at once. Any thread.
//
// An entry has an owner and counts once, since the child forgets it. A ForkHandler_c has neither: it runs at each fork,
// and one in a thread-local object would be left dangling in a child, where that thread does not end.
#pragma once

namespace plat
{
    /// One entry; zero while it is not added. It must stay where it is until it is removed or dropped.
    struct ForkDrop_s
    {
        void (*fnDrop)(void * pOwner);
        void * pOwner;
        ForkDrop_s * pPrevious;
        ForkDrop_s * pNext;
    };

    /// From now on a forked child calls fnDrop(pOwner), before fork returns to it, and forgets the entry. The memory of
    /// the parent's other threads is still there then. Does nothing if the entry is added already.
    void ForkDropAdd(ForkDrop_s & Entry, void (*fnDrop)(void * pOwner), void * pOwner);

    /// Does nothing if the entry is not added.
    void ForkDropRemove(ForkDrop_s & Entry);
}
