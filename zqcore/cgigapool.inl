// cgigapool.inl: the common paths of the pools.
#pragma once

#include "zqcore/cdebug.h"

#include "platform/checker.h"

#include <bit>

struct GigaChunk_s
{
    GigaChunk_s * pNext = nullptr;
    GigaChunk_s * pPrev = nullptr;
    GigaPoolStatic_c Pool;
    GigaPoolResizeable_c * pOwner = nullptr;
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

/// Takes an element of the group at the head, if that is all there is to do; else null, and nothing has happened. The
/// water mark is the caller's.
inline void * GigaPoolStatic_c::TakeQuickly(bool bArray)
{
    Group_s & Group = *m_pHead;
    std::uint32_t const iBits = Group.m_iBits;
    std::uint32_t const iNewBits = iBits | (iBits + 1);   // with the lowest clear bit set
    std::uint32_t const iBit = iNewBits ^ iBits;
    if (iNewBits == GROUP_FULL || (Group.m_iArray & iBit))
    {
        return nullptr;
    }
    Group.m_iBits = iNewBits;
    if (bArray)
    {
        Group.m_iArray |= iBit;
    }
    auto const nSize = static_cast<std::size_t>(m_iElementSize);
    auto const iBitIndex = static_cast<unsigned>(std::countr_zero(iBit | 0x80000000u));   // iBit is not 0
    void * const pElement = m_pHeadData + iBitIndex * nSize;
    plat::CheckerAllow(pElement, nSize);
    return pElement;
}

/// Gives an element back, if that is all there is to do; else false, and nothing has happened. The water mark is the
/// caller's.
inline bool GigaPoolStatic_c::GiveQuickly(unsigned iElement, bool bArray)
{
    Group_s & Group = m_pGroups[iElement / GROUP_ELEMENTS];
    std::uint32_t const iBits = Group.m_iBits;
    std::uint32_t const iBit = 1u << (iElement % GROUP_ELEMENTS);
    std::uint32_t const iArrayWanted = bArray ? GROUP_FULL : 0;
    if (iBits == GROUP_FULL || !(iBits & iBit) || ((Group.m_iArray ^ iArrayWanted) & iBit))
    {
        return false;
    }
    Group.m_iBits = iBits & ~iBit;
    if (bArray)
    {
        Group.m_iArray &= ~iBit;
    }
    plat::CheckerForbid(ElementAt(iElement), static_cast<std::size_t>(m_iElementSize));
    return true;
}

inline void * GigaPoolStatic_c::Alloc(bool bArray)
{
    void * const pElement = TakeQuickly(bArray);
    if (!pElement)
    {
        return AllocRarely(bArray);
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
    if (!GiveQuickly(iElement, bArray))
    {
        return FreeRarely(iElement, bArray);
    }
    m_iWaterMark -= 1;
    return true;
}

inline bool GigaPoolStatic_c::IsValid(void const * pPtr) const
{
    ZQ_ASSERT(m_pData);
    ZQ_ASSERT(m_pGroups);
    return Holds(pPtr);
}

inline std::uint32_t GigaChunkMap_c::Home(std::uintptr_t iPage) const
{
    constexpr std::uint32_t GOLDEN = 2654435769u;   // 2 to the power of 32 by the golden ratio
    return (static_cast<std::uint32_t>(iPage) * GOLDEN) >> m_iHashShift;
}

// Both are read, so that no branch is left to be guessed.
inline GigaChunk_s * GigaChunkMap_c::Slot_s::At(std::uintptr_t iAddress) const
{
    GigaChunk_s * const pFirst = pBelow;
    GigaChunk_s * const pSecond = pAbove;
    return iAddress < iBoundary ? pFirst : pSecond;
}

inline GigaChunk_s * GigaChunkMap_c::Find(void const * pPtr) const
{
    if (m_pExpected->Pool.Holds(pPtr))
    {
        return m_pExpected;
    }
    auto const iAddress = reinterpret_cast<std::uintptr_t>(pPtr);
    GigaChunk_s * const pChunk = m_pSlots[Home(iAddress >> PAGE_BITS)].At(iAddress);
    return pChunk->Pool.Holds(pPtr) ? pChunk : FindInSlots(pPtr);
}

inline void * GigaPoolResizeable_c::Alloc(bool bArray)
{
    GigaChunk_s * const pChunk = m_pHalfList;
    void * const pElement = pChunk ? pChunk->Pool.TakeQuickly(bArray) : nullptr;
    if (!pElement)
    {
        return AllocRarely(bArray);
    }
    pChunk->Pool.m_iWaterMark += 1;
    m_iWaterMark += 1;
    if (m_iHighWaterMark < m_iWaterMark)
    {
        m_iHighWaterMark = m_iWaterMark;
    }
    return pElement;
}

inline bool GigaPoolResizeable_c::Free(void const * pPtr, bool bArray)
{
    GigaChunk_s * const pChunk = m_pMap->Find(pPtr);
    return pChunk && FreeIn(pChunk, pPtr, bArray);
}

/// Gives an element of a chunk back; false if the chunk is the spare.
inline bool GigaPoolResizeable_c::FreeIn(GigaChunk_s * pChunk, void const * pPtr, bool bArray)
{
    GigaPoolStatic_c & Pool = pChunk->Pool;
    unsigned const iElement = Pool.ElementOf(pPtr);
    if (Pool.m_iWaterMark <= 1 || !Pool.GiveQuickly(iElement, bArray))
    {
        return FreeRarely(pChunk, iElement, bArray);
    }
    Pool.m_iWaterMark -= 1;
    m_iWaterMark -= 1;
    return true;
}

inline bool GigaPoolResizeable_c::IsValid(void const * pPtr) const
{
    GigaChunk_s const * const pChunk = m_pMap->Find(pPtr);
    return pChunk && pChunk->Pool.m_iWaterMark > 0;
}
