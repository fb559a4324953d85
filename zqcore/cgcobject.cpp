#include "zqcore/cgcobject.h"

#include "zqcore/cscope_internal.h"

namespace Tessel
{
    constinit int GcObj::s_iEpoch = 0;
    constinit bool GcObj::s_bCollecting = false;
    constinit GcObj * GcObj::s_pObjects = nullptr;
    constinit GcObj * GcObj::s_pCondemned = nullptr;

    namespace
    {
        GcObj g_Root;
    }

    GcRef_c::GcRef_c(GcObj * pSource, GcObj * pTarget)
        : m_pSource(pSource)
    {
        if (m_pSource)
        {
            m_pNextOutgoing = m_pSource->m_pOutgoing;
            if (m_pNextOutgoing)
            {
                m_pNextOutgoing->m_pPrevOutgoing = this;
            }
            m_pSource->m_pOutgoing = this;
        }
        Set(pTarget);
    }

    GcRef_c::~GcRef_c()
    {
        UnlinkTarget();
        UnlinkSource();
    }

    void GcRef_c::Set(GcObj * pTarget)
    {
        UnlinkTarget();
        m_pTarget = pTarget;
        if (pTarget)
        {
            m_pNextIncoming = pTarget->m_pIncoming;
            if (m_pNextIncoming)
            {
                m_pNextIncoming->m_pPrevIncoming = this;
            }
            pTarget->m_pIncoming = this;
        }
    }

    void GcRef_c::UnlinkTarget()
    {
        if (!m_pTarget)
        {
            return;
        }
        GcRef_c *& pLink = m_pPrevIncoming ? m_pPrevIncoming->m_pNextIncoming : m_pTarget->m_pIncoming;
        pLink = m_pNextIncoming;
        if (m_pNextIncoming)
        {
            m_pNextIncoming->m_pPrevIncoming = m_pPrevIncoming;
        }
        m_pNextIncoming = m_pPrevIncoming = nullptr;
        m_pTarget = nullptr;
    }

    void GcRef_c::UnlinkSource()
    {
        if (!m_pSource)
        {
            return;
        }
        GcRef_c *& pLink = m_pPrevOutgoing ? m_pPrevOutgoing->m_pNextOutgoing : m_pSource->m_pOutgoing;
        pLink = m_pNextOutgoing;
        if (m_pNextOutgoing)
        {
            m_pNextOutgoing->m_pPrevOutgoing = m_pPrevOutgoing;
        }
        m_pNextOutgoing = m_pPrevOutgoing = nullptr;
        m_pSource = nullptr;
    }

    GcObj::GcObj()
        : m_iEpoch(s_iEpoch)
    {
        AddTo(s_pObjects);
    }

    GcObj::~GcObj()
    {
        ClearIncoming();
        while (m_pOutgoing)
        {
            GcRef_c * const pReference = m_pOutgoing;
            pReference->UnlinkTarget();
            pReference->UnlinkSource();
        }
        RemoveFromList();
    }

    GcObj & GcObj::Root()
    {
        return g_Root;
    }

    void GcObj::Collect()
    {
        if (s_bCollecting)
        {
            return;
        }
        ValueScope_T const Collecting(s_bCollecting, true);
        // Epochs are compared for equality only, so they may wrap.
        s_iEpoch = static_cast<int>(static_cast<unsigned>(s_iEpoch) + 1);
        g_Root.MarkReachable();
        GcObj * pNext = s_pObjects;
        while (GcObj * const pObject = pNext)
        {
            pNext = pObject->m_pNext;
            if (pObject->m_iEpoch != s_iEpoch)
            {
                for (GcRef_c * pReference = pObject->m_pOutgoing; pReference; pReference = pReference->m_pNextOutgoing)
                {
                    pReference->UnlinkTarget();
                }
                pObject->ClearIncoming();
                pObject->RemoveFromList();
                pObject->AddTo(s_pCondemned);
            }
        }
        while (GcObj * const pObject = s_pCondemned)
        {
            pObject->RemoveFromList();
            pObject->AddTo(s_pObjects);   // s_pCondemned holds only objects whose destructors have not begun
            delete pObject;
        }
    }

    void GcObj::Delete(GcObj * pObject)
    {
        pObject->ClearIncoming();
        delete pObject;
    }

    // Marks all objects that this one reaches. The objects still to follow form a list through m_pMarkNext, so there is
    // no recursion.
    void GcObj::MarkReachable()
    {
        m_iEpoch = s_iEpoch;
        m_pMarkNext = nullptr;
        for (GcObj * pToFollow = this; pToFollow;)
        {
            GcObj * const pObject = pToFollow;
            pToFollow = pObject->m_pMarkNext;
            for (GcRef_c * pReference = pObject->m_pOutgoing; pReference; pReference = pReference->m_pNextOutgoing)
            {
                GcObj * const pTarget = pReference->m_pTarget;
                if (pTarget && pTarget->m_iEpoch != s_iEpoch)
                {
                    pTarget->m_iEpoch = s_iEpoch;
                    pTarget->m_pMarkNext = pToFollow;
                    pToFollow = pTarget;
                }
            }
        }
    }

    void GcObj::ClearIncoming()
    {
        while (m_pIncoming)
        {
            m_pIncoming->UnlinkTarget();
        }
    }

    void GcObj::AddTo(GcObj *& pList)
    {
        m_pPrev = nullptr;
        m_pNext = pList;
        if (pList)
        {
            pList->m_pPrev = this;
        }
        pList = this;
    }

    void GcObj::RemoveFromList()
    {
        GcObj *& pHead = s_pObjects == this ? s_pObjects : s_pCondemned;
        GcObj *& pLink = m_pPrev ? m_pPrev->m_pNext : pHead;
        pLink = m_pNext;
        if (m_pNext)
        {
            m_pNext->m_pPrev = m_pPrev;
        }
    }
}
