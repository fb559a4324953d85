// cgigapool.inl: the common paths of the pools.
#pragma once

#include "zqcore/cdebug.h"

#include "platform/checker.h"

#include <bit>
#include <cstring>

struct GigaChunk_s
{
    GigaChunk_s * pNext = nullptr;
    GigaChunk_s * pPrev = nullptr;
    GigaPoolStatic_c Pool;   // whose open group and marks are the owner's
    GigaPoolResizeable_c * pOwner = nullptr;
    int nGroupsInUse = 0;   // with elements out, an open one apart
};

inline bool GigaPoolStatic_c::Holds(void const * pPtr) const
{
    return reinterpret_cast<std::uintptr_t>(pPtr) - reinterpret_cast<std::uintptr_t>(m_pData) < m_nDataBytes;
}

/// The index of the element that holds the pointer, which the storage must.
inline unsigned GigaPoolStatic_c::ElementOf(void const * pPtr) const
{
    std::size_t const iOffset = reinterpret_cast<std::uintptr_t>(pPtr) - reinterpret_cast<std::uintptr_t>(m_pData);
    if (m_iReciprocal == 0) [[unlikely]]
    {
        return static_cast<unsigned>(iOffset / static_cast<std::size_t>(m_iElementSize));
    }
    return static_cast<unsigned>((iOffset * m_iReciprocal) >> RECIPROCAL_BITS);
}

inline std::uint8_t * GigaPoolStatic_c::ElementAt(unsigned iElement) const
{
    return m_pData + iElement * static_cast<std::size_t>(m_iElementSize);
}

/// The element's bit in both masks of its group.
inline std::uint64_t GigaPoolStatic_c::BothBits(unsigned iElement)
{
    return std::rotl(0x100000001ull, static_cast<int>(iElement));   // the same each GROUP_ELEMENTS
}

/// Both masks in one word, m_iBits in the lower half.
inline std::uint64_t GigaPoolStatic_c::Group_s::Masks() const
{
    std::uint64_t iMasks;
    std::memcpy(&iMasks, this, sizeof iMasks);
    return iMasks;
}

inline void GigaPoolStatic_c::Group_s::SetMasks(std::uint64_t iMasks)
{
    std::memcpy(this, &iMasks, sizeof iMasks);
}

/// Gives an element back, if that is all there is to do; else false, and nothing has happened. Without bMayEmpty there is
/// more to do for the last element of a group.
inline bool GigaPoolStatic_c::Group_s::GiveQuickly(std::uint64_t iBoth, bool bArray, bool bMayEmpty)
{
    std::uint64_t const iWas = Masks();
    std::uint64_t const iLeft = iWas ^ (bArray ? iBoth : Lower(iBoth));
    if (Lower(iWas) == GROUP_FULL || (iLeft & iBoth) || (!bMayEmpty && Lower(iLeft) == 0))
    {
        return false;
    }
    SetMasks(iLeft);
    return true;
}

/// Whether there is room for an element and another one.
inline bool GigaPoolStatic_c::Head_s::LeavesRoom() const
{
    return Lower(iMasks & (iMasks - 1)) != 0;
}

/// Takes the lowest free element. Requires one.
inline void * GigaPoolStatic_c::Head_s::Take(bool bArray)
{
    std::uint64_t const iWas = iMasks;
    std::uint64_t const iLeft = iWas & (iWas - 1);
    iMasks = bArray ? iLeft | (iWas ^ iLeft) << GROUP_ELEMENTS : iLeft;
    auto const iElement = ZQ_FIRST_BIT(Lower(iWas));
    void * const pElement = pElements + iElement * nElementSize;
    plat::CheckerAllow(pElement, nElementSize);
    return pElement;
}

/// As of a group; one that is open is never full.
inline bool GigaPoolStatic_c::Head_s::GiveQuickly(std::uint64_t iBoth, bool bArray)
{
    std::uint64_t const iLeft = bArray ? iMasks ^ (iBoth ^ Lower(iBoth)) : iMasks;
    std::uint64_t const iNew = iLeft | Lower(iBoth);
    if ((iLeft & iBoth) || Lower(iNew) == iEmptied)
    {
        return false;
    }
    iMasks = iNew;
    return true;
}

/// As of a group, to which the element's index leads.
inline bool GigaPoolStatic_c::GiveQuickly(
    Head_s & Head, Group_s * pGroups, unsigned iElement, bool bArray, bool bMayEmpty)
{
    Group_s * const pGroup = pGroups + iElement / GROUP_ELEMENTS;
    std::uint64_t const iBoth = BothBits(iElement);
    if (pGroup == Head.pGroup) [[likely]]
    {
        return Head.GiveQuickly(iBoth, bArray);
    }
    return pGroup->GiveQuickly(iBoth, bArray, bMayEmpty);
}

inline void * GigaPoolStatic_c::Alloc(bool bArray)
{
    void * pElement;
    if (m_Head.LeavesRoom()) [[likely]]
    {
        pElement = m_Head.Take(bArray);
    }
    else if (pElement = TakeRarely(bArray); !pElement)
    {
        return nullptr;
    }
    m_iWaterMark += 1;
    if (m_iHighWaterMark < m_iWaterMark)
    {
        m_iHighWaterMark = m_iWaterMark;
    }
    return pElement;
}

inline bool GigaPoolStatic_c::Free(void const * pPtr, bool bArray)
{
    if (!Holds(pPtr))
    {
        return IsValid(pPtr);   // false, with the complaints about a pool without storage
    }
    unsigned const iElement = ElementOf(pPtr);
    if (!GiveQuickly(m_Head, m_pGroups, iElement, bArray, true) && !GiveRarely(iElement, bArray)) [[unlikely]]
    {
        return true;   // it was not out
    }
    plat::CheckerForbid(ElementAt(iElement), static_cast<std::size_t>(m_iElementSize));
    m_iWaterMark -= 1;
    return true;
}

inline bool GigaPoolStatic_c::IsValid(void const * pPtr) const
{
    ZQ_ASSERT(m_pData);
    ZQ_ASSERT(m_pGroups);
    return Holds(pPtr);
}

inline bool GigaChunkMap_c::Free(void const * pPtr, bool bArray) const
{
    Entry_s const & Entry = m_Pages.AtHome(pPtr);
    std::size_t const iOffset = reinterpret_cast<std::uintptr_t>(pPtr) - reinterpret_cast<std::uintptr_t>(Entry.pData);
    if (iOffset >= Entry.nQuickBytes) [[unlikely]]
    {
        return FreeRarely(pPtr, bArray);
    }
    auto const iElement = static_cast<unsigned>((iOffset * Entry.iReciprocal) >> GigaPoolStatic_c::RECIPROCAL_BITS);
    return Entry.pOwner->FreeQuickly(*Entry.pChunk, Entry.pGroups, iElement, bArray) || FreeRarely(pPtr, bArray);
}

/// Gives an element back, if that is all there is to do; else false, and nothing has happened. The groups are the
/// chunk's, and spare a look at it.
inline bool GigaPoolResizeable_c::FreeQuickly(
    GigaChunk_s & Chunk, GigaPoolStatic_c::Group_s * pGroups, unsigned iElement, bool bArray)
{
    if (!GigaPoolStatic_c::GiveQuickly(m_Head, pGroups, iElement, bArray, false)) [[unlikely]]
    {
        return false;
    }
    plat::CheckerForbid(Chunk.Pool.ElementAt(iElement), static_cast<std::size_t>(m_iElementSize));
    m_iWaterMark -= 1;
    return true;
}

inline void * GigaPoolResizeable_c::Alloc(bool bArray)
{
    return LeavesRoom() ? TakeQuickly(bArray) : AllocRarely(bArray);
}

/// An element of the open group, which must have one, and stays open.
inline void * GigaPoolResizeable_c::TakeQuickly(bool bArray)
{
    void * const pElement = m_Head.Take(bArray);
    m_iWaterMark += 1;
    if (m_iHighWaterMark < m_iWaterMark)
    {
        m_iHighWaterMark = m_iWaterMark;
    }
    return pElement;
}

inline bool GigaPoolResizeable_c::Free(void const * pPtr, bool bArray)
{
    return m_pMap->Free(pPtr, bArray);
}

inline bool GigaPoolResizeable_c::IsValid(void const * pPtr) const
{
    return m_pMap->Find(pPtr) != nullptr;
}
