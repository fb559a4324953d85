// cgcobject.h: objects that are kept by being reachable.
//
// A GcObj lives until a collection finds no path of references from the root to it; cycles are no hindrance. References
// are GcRef_c members (or any GcRef_c with a source). Every object but the root comes from new; a collection deletes
// those that it doesn't reach, the oldest first, after all references from and to them read null. Not part of the
// exported interface. No lock: one thread. A collection takes time in proportion to objects and references, no memory,
// and no more stack for long paths than for short ones.
#pragma once

#include "zqcore/cconfig.h"

namespace Tessel
{
    class GcObj;

    /// A reference from a source to a target, or to null. Whoever makes it owns it; it may outlive both ends.
    class GcRef_c
    {
    public:
        /// A reference of the source, as a rule its member: `GcRef_c m_Next{ this };`.
        explicit GcRef_c(GcObj * pSource, GcObj * pTarget = nullptr);
        ~GcRef_c();
        GcRef_c(GcRef_c const &) = delete;
        GcRef_c & operator=(GcRef_c const &) = delete;

        /// The target; null after it was collected or deleted.
        GcObj * Get() const { return m_pTarget; }

        void Set(GcObj * pTarget);

    private:
        friend class GcObj;

        void LeaveTarget();
        void LeaveSource();

        GcObj * m_pTarget = nullptr;
        GcObj * m_pSource;                     // null once the source is gone
        GcRef_c * m_pNextIncoming = nullptr;   // in the target's list
        GcRef_c * m_pPrevIncoming = nullptr;
        GcRef_c * m_pNextOutgoing = nullptr;   // in the source's list
        GcRef_c * m_pPrevOutgoing = nullptr;
    };

    class GcObj
    {
    public:
        GcObj();
        virtual ~GcObj();
        GcObj(GcObj const &) = delete;
        GcObj & operator=(GcObj const &) = delete;

        /// The object from which all others must be reachable; there from load to unload.
        static GcObj & Root();

        /// Deletes every object that can't be reached from the root. A call from a destructor that a collection runs
        /// does nothing.
        static void Collect();

        /// Sets all references to the object to null and deletes it at once. Not for the root.
        static void Delete(GcObj * pObject);

    private:
        friend class GcRef_c;

        void MarkReachable();
        void ClearIncoming();
        void PutOn(GcObj *& pList);
        void TakeOff();

        GcObj * m_pNext = nullptr;   // in the list of all objects, the newest first
        GcObj * m_pPrev = nullptr;
        [[maybe_unused]] std::uint32_t m_dwReserved = 0;   // always 0
        int m_iEpoch;                                      // of the last marking
        GcRef_c * m_pOutgoing = nullptr;
        GcRef_c * m_pIncoming = nullptr;
        GcObj * m_pMarkNext = nullptr;   // while marking: the next object whose references are to be followed

        static int s_iEpoch;
        static bool s_bCollecting;
        static GcObj * s_pObjects;     // all of them
        static GcObj * s_pCondemned;   // but those that a collection is about to delete
    };
}
