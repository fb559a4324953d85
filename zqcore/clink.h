// clink.h: a node of a doubly linked list.
//
// A list is a pointer to its head, null while it is empty. It grows at the head.
//
// Ownership: the caller owns the nodes. LinkFreeAll frees nodes that come from ZQ_NEW.
// Threads: a list belongs to one thread at a time.
// Cost: constant time, but LinkFreeAll is linear in the list. Nothing allocates.
// Failure: no call fails.
//
//     Link_T<int> * pScores = nullptr;
//     pScores = (ZQ_NEW Link_T<int>(10))->Link(pScores);
//     pScores = (ZQ_NEW Link_T<int>(20))->Link(pScores);
//     for (Link_T<int> const * pNode = pScores; pNode; pNode = pNode->pNext)
//     {
//         Log("%i", pNode->Get());   // 20, then 10
//     }
//     LinkFreeAll(pScores);
#pragma once

#include "zqcore/cconfig.h"

/// Node of a list, with its payload.
template <typename T>
struct Link_T
{
    T tData;                    // the payload
    Link_T * pNext = nullptr;   // null in the last node
    Link_T * pPrev = nullptr;   // null in the head

    /// Makes a node with a copy of Data. It is in no list.
    explicit Link_T(T const & Data)
        : tData(Data)
    {}

    /// Return the payload.
    T & Get() { return tData; }
    T const & Get() const { return tData; }

    /// Inserts this node before the head, which may be null. Returns the new head. Requires that this node is in no
    /// list.
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

    /// Removes this node from the list that starts at pHead. Returns the head of the rest, or null if none is left.
    /// Requires that the list holds this node.
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

/// Frees all nodes of a list. Requires that they come from ZQ_NEW.
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
