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

/// Takes the lowest free element, if that is all there is to do: its bit; else 0, and nothing has happened.
inline std::uint32_t GigaPoolStatic_c::Masks_s::TakeQuickly(bool bArray)
{
    std::uint32_t const iBits = m_iBits;
    std::uint32_t const iNewBits = iBits | (iBits + 1);   // with the lowest clear bit set
    std::uint32_t const iBit = iNewBits ^ iBits;
    if (iNewBits == GROUP_FULL || (m_iArray & iBit))
    {
        return 0;
    }
    m_iBits = iNewBits;
    if (bArray)
    {
        m_iArray |= iBit;
    }
    return iBit;
}

/// Gives an element back, if that is all there is to do; else false, and nothing has happened.
inline bool GigaPoolStatic_c::Masks_s::GiveQuickly(std::uint32_t iBit, bool bArray)
{
    std::uint32_t const iBits = m_iBits;
    std::uint32_t const iArrayWanted = bArray ? GROUP_FULL : 0;
    if (iBits == GROUP_FULL || !(iBits & iBit) || ((m_iArray ^ iArrayWanted) & iBit))
    {
        return false;
    }
    m_iBits = iBits & ~iBit;
    if (bArray)
    {
        m_iArray &= ~iBit;
    }
    return true;
}

/// An element of the group at the head, if that leaves room there; else null. The water marks are the caller's.
inline void * GigaPoolStatic_c::TakeQuickly(bool bArray)
{
    std::uint32_t const iBit = m_Head.TakeQuickly(bArray);
    if (iBit == 0)
    {
        return nullptr;
    }
    auto const nSize = static_cast<std::size_t>(m_iElementSize);
    auto const iBitIndex = static_cast<unsigned>(std::countr_zero(iBit | 0x80000000u));   // iBit is not 0
    void * const pElement = m_pHeadData + iBitIndex * nSize;
    plat::CheckerAllow(pElement, nSize);
    return pElement;
}

/// Gives an element back, if that is all there is to do; else false, and nothing has happened. The water mark, and what
/// the address checker sees, are the caller's.
inline bool GigaPoolStatic_c::GiveQuickly(Group_s * pGroups, unsigned iElement, bool bArray)
{
    auto const iGroup = static_cast<int>(iElement / GROUP_ELEMENTS);
    std::uint32_t const iBit = 1u << (iElement % GROUP_ELEMENTS);
    return iGroup == m_iFreeList ? m_Head.GiveQuickly(iBit, bArray) : pGroups[iGroup].GiveQuickly(iBit, bArray);
}

inline void * GigaPoolStatic_c::Alloc(bool bArray)
{
    void * pElement = TakeQuickly(bArray);
    if (!pElement) [[unlikely]]
    {
        pElement = TakeRarely(bArray);
        if (!pElement)
        {
            return nullptr;
        }
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
    if (!GiveQuickly(m_pGroups, iElement, bArray) && !GiveRarely(iElement, bArray))
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

inline std::uint32_t GigaChunkMap_c::Home(std::uintptr_t iPage) const
{
    constexpr std::uint32_t GOLDEN = 2654435769u;   // 2 to the power of 32 by the golden ratio
    return (static_cast<std::uint32_t>(iPage) * GOLDEN) >> m_iHashShift;
}

inline bool GigaChunkMap_c::Free(void const * pPtr, bool bArray) const
{
    auto const iAddress = reinterpret_cast<std::uintptr_t>(pPtr);
    Slot_s const & Slot = m_pSlots[Home(iAddress >> PAGE_BITS)];
    std::size_t const iOffset = iAddress - reinterpret_cast<std::uintptr_t>(Slot.pData);
    if (iOffset >= Slot.nQuickBytes) [[unlikely]]
    {
        return FreeRarely(pPtr, bArray);
    }
    auto const iElement = static_cast<unsigned>((iOffset * Slot.iReciprocal) >> GigaPoolStatic_c::RECIPROCAL_BITS);
    if (!Slot.pChunk->Pool.GiveQuickly(Slot.pGroups, iElement, bArray)) [[unlikely]]
    {
        return Slot.pOwner->FreeRarely(*Slot.pChunk, iElement, bArray);
    }
    plat::CheckerForbid(
        Slot.pChunk->Pool.ElementAt(iElement), static_cast<std::size_t>(Slot.pChunk->Pool.ElementSize()));
    Slot.pOwner->m_iWaterMark -= 1;
    if (--Slot.pChunk->Pool.m_iWaterMark == 0) [[unlikely]]
    {
        Slot.pOwner->Retire(Slot.pChunk);
    }
    return true;
}

inline void * GigaPoolResizeable_c::Alloc(bool bArray)
{
    GigaChunk_s * const pChunk = m_pHalfList;
    void * const pElement = pChunk ? pChunk->Pool.TakeQuickly(bArray) : nullptr;
    if (!pElement) [[unlikely]]
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
    return m_pMap->Free(pPtr, bArray);
}

inline bool GigaPoolResizeable_c::IsValid(void const * pPtr) const
{
    return m_pMap->Find(pPtr) != nullptr;
}
