// cgcobject.h: objects that live as long as they can be reached from a root.
//
// A collection deletes each GcObj to which no path of references leads from the root. Cycles are collected too.
// References are GcRef_c objects, as a rule members of their source. None of this is exported.
//
// Ownership: the collector owns all objects but the root. Requires that they come from new. A collection sets all
// references from and to the objects that it deletes to null, and then deletes the objects, the oldest first.
// Threads: one thread. Nothing is locked.
// Cost: a collection takes time in proportion to objects and references. It allocates nothing, and its stack does not
// grow with long paths.
// Failure: no call fails.
//
//     struct Node_c : Tessel::GcObj
//     {
//         Tessel::GcRef_c m_Next{ this };
//     };
//     auto * const pFirst = new Node_c;
//     Tessel::GcRef_c First(&Tessel::GcObj::Root(), pFirst);
//     pFirst->m_Next.Set(new Node_c);
//     First.Set(nullptr);
//     Tessel::GcObj::Collect();   // deletes both nodes
#pragma once

#include "zqcore/cconfig.h"

namespace Tessel
{
    class GcObj;

    /// A reference from a source to a target or to null. It may outlive both.
    class GcRef_c
    {
    public:
        /// Makes a reference from pSource to pTarget, which may be null. As a rule the reference is a member of the
        /// source: `GcRef_c m_Next{ this };`. Requires that pSource is not null.
        explicit GcRef_c(GcObj * pSource, GcObj * pTarget = nullptr);

        /// Removes the reference from its source and target.
        ~GcRef_c();
        GcRef_c(GcRef_c const &) = delete;
        GcRef_c & operator=(GcRef_c const &) = delete;

        /// Returns the target, or null if there is none. The reference becomes null when either end is deleted.
        GcObj * Get() const { return m_pTarget; }

        /// Replaces the target, which may be null. A reference whose source was deleted keeps no target alive.
        void Set(GcObj * pTarget);

    private:
        friend class GcObj;

        void UnlinkTarget();
        void UnlinkSource();

        GcObj * m_pTarget = nullptr;
        GcObj * m_pSource;                     // null after the source was deleted
        GcRef_c * m_pNextIncoming = nullptr;   // neighbours in the target's list
        GcRef_c * m_pPrevIncoming = nullptr;
        GcRef_c * m_pNextOutgoing = nullptr;   // neighbours in the source's list
        GcRef_c * m_pPrevOutgoing = nullptr;
    };

    /// Base of collected objects. Requires that all but the root come from new.
    class GcObj
    {
    public:
        /// Adds the object to those of the collector.
        GcObj();

        /// Sets all references from and to the object to null.
        virtual ~GcObj();
        GcObj(GcObj const &) = delete;
        GcObj & operator=(GcObj const &) = delete;

        /// Returns the root, which exists from load to unload.
        static GcObj & Root();

        /// Deletes each object that can't be reached from the root. Does nothing during a collection, as in a
        /// destructor that the collection calls.
        static void Collect();

        /// Sets all references to the object to null and deletes it at once. Requires that pObject is neither null nor
        /// the root.
        static void Delete(GcObj * pObject);

    private:
        friend class GcRef_c;

        void MarkReachable();
        void ClearIncoming();
        void AddTo(GcObj *& pList);
        void RemoveFromList();

        GcObj * m_pNext = nullptr;   // next object in one of the lists below
        GcObj * m_pPrev = nullptr;
        [[maybe_unused]] std::uint32_t m_dwReserved = 0;   // always 0
        int m_iEpoch;                                      // s_iEpoch when the object was made or last marked
        GcRef_c * m_pOutgoing = nullptr;                   // heads of the lists of references from and to the object
        GcRef_c * m_pIncoming = nullptr;
        GcObj * m_pMarkNext = nullptr;   // next object whose references are to be followed, while marking

        static int s_iEpoch;   // number of the current marking
        static bool s_bCollecting;
        static GcObj * s_pObjects;     // all objects but those of s_pCondemned, the newest first
        static GcObj * s_pCondemned;   // objects that a collection is about to delete, the oldest first
    };
}
