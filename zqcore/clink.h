// clink.h: a node of a doubly linked list. A list is a pointer to its head; it grows at the head. No lock.
#pragma once

#include "zqcore/cconfig.h"

template <typename T>
struct Link_T
{
    T tData;
    Link_T * pNext = nullptr;
    Link_T * pPrev = nullptr;

    explicit Link_T(T const & Data)
        : tData(Data)
    {}

    T & Get() { return tData; }
    T const & Get() const { return tData; }

    /// Places this node ahead of the head, which may be null; the new head.
    Link_T * Link(Link_T * pHead)
    {
        if (pHead)
        {
            pHead->pPrev = this;
        }
        pNext = pHead;
        pPrev = nullptr;
        return this;
    }

    /// Takes this node out of the list that starts at pHead; the head of what remains.
    Link_T * Unlink(Link_T * pHead)
    {
        if (pNext)
        {
            pNext->pPrev = pPrev;
        }
        if (pPrev)
        {
            pPrev->pNext = pNext;
        }
        Link_T * const pRemaining = pHead == this ? pNext : pHead;
        pNext = pPrev = nullptr;
        return pRemaining;
    }
};

/// Frees all nodes of a list that were taken with ZQ_NEW.
template <typename T>
void LinkFreeAll(Link_T<T> * pHead)
{
    while (pHead)
    {
        Link_T<T> * const pNode = pHead;
        pHead = pNode->pNext;
        pNode->pNext = pNode->pPrev = nullptr;
        delete pNode;
    }
}
