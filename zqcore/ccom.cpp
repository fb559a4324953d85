#include "zqcore/ccom.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"

#include "platform/bytes.h"
#include "platform/memory.h"

#include <cinttypes>

namespace
{
    // The notes. A free note that was never used is all zeros. The next free one is its neighbour. So the list of
    // free notes is complete at load, and no page is touched. The list ends at the address after the last note.
    constinit ComDebug_t g_dNotes[COM_REFERENCES] = {};
    constexpr ComDebug_t * NOTES_END = g_dNotes + COM_REFERENCES;

    ComDebug_t * NextFree(ComDebug_t * pNote)
    {
        return pNote->pNext ? pNote->pNext : pNote + 1;
    }

    // Numbers of the references with a note, for each page on which objects begin. Such a page is readable, so Release
    // can test a pointer without a system call.
    class HeldPages_c
    {
    public:
        // Returns the slot of the object's page, or the empty slot where it belongs.
        std::uint32_t SlotOf(void const * pObject) const
        {
            std::uintptr_t const iPage = PageOf(pObject);
            std::uint32_t i = Home(iPage);
            while (m_dSlots[i].nReferences != 0 && m_dSlots[i].iPage != iPage)
            {
                i = (i + 1) % SLOTS;
            }
            return i;
        }

        bool IsHeld(std::uint32_t iSlot) const { return m_dSlots[iSlot].nReferences != 0; }

        void Add(void const * pObject)
        {
            Slot_s & Slot = m_dSlots[SlotOf(pObject)];
            Slot.iPage = PageOf(pObject);
            ++Slot.nReferences;
        }

        void Remove(std::uint32_t iSlot)
        {
            if (--m_dSlots[iSlot].nReferences == 0 && m_dSlots[(iSlot + 1) % SLOTS].nReferences != 0)
            {
                Close(iSlot);
            }
        }

    private:
        static constexpr int SLOT_BITS = 18;
        static constexpr std::uint32_t SLOTS = 1u << SLOT_BITS;   // above COM_REFERENCES, so a search ends
        static_assert(SLOTS > COM_REFERENCES);

        struct Slot_s
        {
            std::uintptr_t iPage;
            std::uint32_t nReferences;   // 0 if the slot is empty
        };

        static std::uintptr_t PageOf(void const * pObject)
        {
            return reinterpret_cast<std::uintptr_t>(pObject) / plat::MEMORY_PAGE;
        }

        static std::uint32_t Home(std::uintptr_t iPage)
        {
            constexpr auto GOLDEN = static_cast<std::uint32_t>(plat::GOLDEN_RATIO >> 32);
            return (static_cast<std::uint32_t>(iPage) * GOLDEN) >> (32 - SLOT_BITS);
        }

        // Closes the gap of an emptied slot: moves later entries into it, except those whose home slot lies after it
        // (Knuth, TAOCP 3, 6.4, algorithm R).
        ZQ_COLD void Close(std::uint32_t iGap)
        {
            for (std::uint32_t i = (iGap + 1) % SLOTS; m_dSlots[i].nReferences != 0; i = (i + 1) % SLOTS)
            {
                if ((i - Home(m_dSlots[i].iPage)) % SLOTS >= (i - iGap) % SLOTS)
                {
                    m_dSlots[iGap] = m_dSlots[i];
                    m_dSlots[i].nReferences = 0;
                    iGap = i;
                }
            }
        }

        Slot_s m_dSlots[SLOTS];
    };
    constinit HeldPages_c g_HeldPages = {};

    // Returns whether an object lies on one page that is held.
    bool IsHeld(std::uint32_t iSlot, void const * pObject, std::size_t nBytes)
    {
        std::uintptr_t const nInPage = reinterpret_cast<std::uintptr_t>(pObject) % plat::MEMORY_PAGE;
        return g_HeldPages.IsHeld(iSlot) && nInPage <= plat::MEMORY_PAGE - nBytes;
    }
}

constinit ComDebug_t * ComObject_c::m_pEmptyList = g_dNotes;

inline void ComObject_c::AddNote(void const * pOwner, char const * sFile, int iLine) const
{
    ComDebug_t * const pNote = m_pEmptyList;
    m_pEmptyList = NextFree(pNote);
    *pNote = { m_pDebugHead, nullptr, pOwner, sFile, iLine };
    if (m_pDebugHead)
    {
        m_pDebugHead->pPrev = pNote;
    }
    m_pDebugHead = pNote;
    g_HeldPages.Add(this);
}

inline ComDebug_t * ComObject_c::FindNote(void const * pOwner) const
{
    ComDebug_t * pNote = m_pDebugHead;
    while (pNote && pNote->pOwner != pOwner)
    {
        pNote = pNote->pNext;
    }
    return pNote;
}

// Moves a note from the object's list to the list of free notes.
inline void ComObject_c::FreeNote(ComDebug_t * pNote) const
{
    ComDebug_t *& pLink = pNote->pPrev ? pNote->pPrev->pNext : m_pDebugHead;
    pLink = pNote->pNext;
    if (pNote->pNext)
    {
        pNote->pNext->pPrev = pNote->pPrev;
    }
    pNote->pNext = m_pEmptyList;
    m_pEmptyList = pNote;
}

// Lowers the count by 1. At 0 disposes of the object and returns true. Otherwise returns false.
inline bool ComObject_c::LowerCount() const
{
    if (--iRefCount != 0)
    {
        return false;
    }
    Dispose();
    return true;
}

// Returns whether pThis is pObject and a live object with references. pThis may be no object at all, so no member
// function is called on it, and no checker sees the reads.
ZQ_UNCHECKED inline bool ComObject_c::IsSound(ComObject_c const * pThis, void const * pObject)
{
    return pObject == pThis && pThis->m_dwComSignature == COM_SIGNATURE && pThis->iRefCount > 0;
}

std::uint32_t ComObject_c::AddRef(void const * pOwner, char const * sFile, int iLine, void const * pObject) const
{
    if (pObject != this || !pOwner || m_pEmptyList == NOTES_END)
    {
        return AddRefSlow(pOwner, sFile, iLine, pObject);
    }
    AddNote(pOwner, sFile, iLine);
    return iRefCount++;
}

// Handles all cases, including misuse. Returns what AddRef returns.
std::uint32_t ComObject_c::AddRefSlow(void const * pOwner, char const * sFile, int iLine, void const * pObject) const
{
    ZQ_ASSERT_TEXT(pObject == this, "pObject==this");
    ZQ_ASSERT(pOwner);
    ZQ_ASSERT_TEXT(m_pEmptyList != NOTES_END, "m_pEmptyList");
    if (pOwner && m_pEmptyList != NOTES_END)
    {
        AddNote(pOwner, sFile, iLine);
    }
    return iRefCount++;
}

bool ComObject_c::Release(void const * pOwner, char const *, int, void const * pObject) const
{
    std::uint32_t const iSlot = g_HeldPages.SlotOf(this);
    if (!pOwner || !IsHeld(iSlot, this, sizeof(ComObject_c)) || !IsSound(this, pObject))
    {
        return ReleaseSlow(this, pOwner, pObject);
    }
    ComDebug_t * const pNote = FindNote(pOwner);
    if (!pNote)
    {
        return ReleaseSlow(this, pOwner, pObject);
    }
    FreeNote(pNote);
    g_HeldPages.Remove(iSlot);
    return LowerCount();
}

// Handles all cases, including misuse. Returns what Release returns.
bool ComObject_c::ReleaseSlow(ComObject_c const * pThis, void const * pOwner, void const * pObject)
{
    if (!CanRelease(pThis, pObject))
    {
        return false;
    }
    if (pOwner)
    {
        ComDebug_t * const pList = pThis->FindNote(pOwner);
        ZQ_ASSERT(pList && "ComDebug: release failed");
        if (pList)
        {
            pThis->ReturnNote(pList);
        }
    }
    return pThis->LowerCount();
}

// Returns whether an address is readable and IsSound returns true for it. Asserts both.
ZQ_UNCHECKED bool ComObject_c::CanRelease(ComObject_c const * pThis, void const * pObject)
{
    constexpr std::size_t BYTES = sizeof(ComObject_c);
    bool const bReadable = IsHeld(g_HeldPages.SlotOf(pThis), pThis, BYTES) || plat::MemoryIsReadable(pThis, BYTES);
    ZQ_ASSERT_TEXT(bReadable, "_CrtIsValidPointer( this, sizeof ( ComObject_c ), false )");
    ZQ_ASSERT_TEXT(pObject == pThis, "pObject == this");
    if (!bReadable || pObject != pThis)
    {
        return false;
    }
    bool const bSigned = pThis->m_dwComSignature == COM_SIGNATURE;
    bool const bReferenced = pThis->iRefCount > 0;
    ZQ_ASSERT_TEXT(bSigned, "m_dwComSignature == COM_SIGNATURE");
    ZQ_ASSERT_TEXT(bReferenced, "iRefCount > 0");
    return bSigned && bReferenced;
}

void ComObject_c::ReturnNote(ComDebug_t * pNote) const
{
    FreeNote(pNote);
    g_HeldPages.Remove(g_HeldPages.SlotOf(this));
}

void ComObject_c::ComDebug()
{
    if (!m_pDebugHead)
    {
        Log("WARNING: There is nothing to dump!\n\tm_pDebugHead == nullptr");
        return;
    }
    Log("Dumping objects:");
    for (ComDebug_t const * pNote = m_pDebugHead; pNote; pNote = pNote->pNext)
    {
        Log("%s(%i): probably COM Object=0x%" PRIxPTR " Owner=0x%" PRIxPTR, pNote->sFile ? pNote->sFile : "unknown",
            pNote->iLine, reinterpret_cast<std::uintptr_t>(this), reinterpret_cast<std::uintptr_t>(pNote->pOwner));
    }
}

int ComObject_c::GetOwners(ComDebug_t * const pOut, int iMax)
{
    int nCopied = 0;
    for (ComDebug_t const * pNote = m_pDebugHead; pNote; pNote = pNote->pNext)
    {
        if (nCopied >= iMax)
        {
            Debugf("Array size is too small to contain all owners ");
            break;
        }
        pOut[nCopied++] = *pNote;
    }
    return nCopied;
}

int ComObject_c::GetFreeReferences()
{
    int nFree = 0;
    ComDebug_t const * pNote = m_pEmptyList;
    for (; pNote != NOTES_END && pNote->pNext; pNote = pNote->pNext)
    {
        ++nFree;
    }
    return nFree + static_cast<int>(NOTES_END - pNote);   // all notes from the first unused one on are free
}

ComObject_c::~ComObject_c()
{
    if (iRefCount != 0)
    {
        ComDebug();
        AssertFailed("iRefCount > 0, see message.log");
    }
    while (m_pDebugHead)
    {
        ReturnNote(m_pDebugHead);
    }
    const_cast<std::uint32_t volatile &>(iRefCount) = 0;   // a Release of the dead object sees it
}

void ComObject_c::Dispose() const
{
    delete this;
}
