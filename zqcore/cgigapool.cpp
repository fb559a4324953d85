#include "zqcore/cgigapool.h"

#include "zqcore/cmemory.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace
{
    constexpr int MAX_GROUP_INDEX = USHRT_MAX;
    constexpr std::int64_t MIN_CHUNK_BYTES = 0x40000;
    constexpr std::int64_t CHUNKS_EXPECTED = 16;   // chunks that hold the expected total
    constexpr std::size_t BLOCK_ALIGNMENT = 16;    // of the heap's blocks

    int GroupsFor(int iElements)
    {
        constexpr int GROUP = GigaPoolStatic_c::GROUP_ELEMENTS;
        return iElements / GROUP + (iElements % GROUP != 0 ? 1 : 0);
    }

    void LinkChunk(GigaChunk_s *& pList, GigaChunk_s * pChunk)
    {
        pChunk->pPrev = nullptr;
        pChunk->pNext = pList;
        if (pList)
        {
            pList->pPrev = pChunk;
        }
        pList = pChunk;
    }

    void UnlinkChunk(GigaChunk_s *& pList, GigaChunk_s * pChunk)
    {
        (pChunk->pPrev ? pChunk->pPrev->pNext : pList) = pChunk->pNext;
        if (pChunk->pNext)
        {
            pChunk->pNext->pPrev = pChunk->pPrev;
        }
    }
}

inline void GigaPoolStatic_c::Chain(int & list, int link)
{
    ZQ_ASSERT_TEXT(link >= 0 && link <= MAX_GROUP_INDEX, "link>=0 && link<=USHRT_MAX");
    ZQ_ASSERT_TEXT(list >= 0 && list <= MAX_GROUP_INDEX, "list>=0 && list<=USHRT_MAX");
    if (list != GIGA_GROUP_NULL)
    {
        m_pGroups[list].iPrev = static_cast<std::uint16_t>(link);
    }
    m_pGroups[link].iNext = static_cast<std::uint16_t>(list);
    m_pGroups[link].iPrev = GIGA_GROUP_NULL;
    list = link;
}

inline void GigaPoolStatic_c::Unchain(int & list, int link)
{
    Group_s const & Group = m_pGroups[link];
    if (Group.iPrev == GIGA_GROUP_NULL)
    {
        ZQ_ASSERT_TEXT(list == link, "list==link");
        list = Group.iNext;
    }
    else
    {
        m_pGroups[Group.iPrev].iNext = Group.iNext;
    }
    if (Group.iNext != GIGA_GROUP_NULL)
    {
        m_pGroups[Group.iNext].iPrev = Group.iPrev;
    }
}

// Puts the head's masks back into its group, ahead of a change of m_iFreeList.
inline void GigaPoolStatic_c::CloseHead()
{
    if (m_iFreeList != GIGA_GROUP_NULL)
    {
        static_cast<Masks_s &>(m_pGroups[m_iFreeList]) = m_Head;
    }
}

// Requires storage.
inline void GigaPoolStatic_c::OpenHead()
{
    if (m_iFreeList != GIGA_GROUP_NULL)
    {
        m_Head = m_pGroups[m_iFreeList];
        m_pHeadData = ElementAt(static_cast<unsigned>(m_iFreeList * GROUP_ELEMENTS));
    }
    else
    {
        m_Head = NO_HEAD;
    }
}

void GigaPoolStatic_c::Init(int iElements, int iElementSize)
{
    InitAligned(iElements, iElementSize, BLOCK_ALIGNMENT);
}

void GigaPoolStatic_c::InitAligned(int iElements, int iElementSize, std::size_t nAlignment)
{
    ZQ_ASSERT(m_pData == nullptr);
    ZQ_ASSERT(m_pGroups == nullptr);
    if (m_pData || m_pGroups)
    {
        return;   // the elements that are out stay good
    }
    m_iNumGroups = GroupsFor(std::max(iElements, 0));
    ZQ_ASSERT_TEXT(m_iNumGroups < GIGA_GROUP_NULL, "m_iNumGroups<GIGA_GROUP_NULL");
    m_iNumGroups = std::min(m_iNumGroups, GIGA_GROUP_NULL - 1);
    m_iNumElements = m_iNumGroups * GROUP_ELEMENTS;
    SetElementSize(std::max(iElementSize, 0));
    TakeStorage(nAlignment);
    m_pGroups = m_iNumGroups > 0 ? ZQ_NEW Group_s[static_cast<std::size_t>(m_iNumGroups)] : nullptr;
    m_iFullList = GIGA_GROUP_NULL;
    m_iFreeList = 0;
    for (int i = 0; i < m_iNumGroups; ++i)
    {
        bool const bLast = i + 1 == m_iNumGroups;
        m_pGroups[i] = { { 0, 0 }, static_cast<std::uint16_t>(bLast ? GIGA_GROUP_NULL : i + 1),
            static_cast<std::uint16_t>(i == 0 ? GIGA_GROUP_NULL : i - 1) };
    }
    m_iWaterMark = m_iHighWaterMark = 0;
    if (m_pData && m_pGroups)
    {
        OpenHead();
    }
}

void GigaPoolStatic_c::TakeStorage(std::size_t nAlignment)
{
    std::uint64_t const nBytes =
        static_cast<std::uint64_t>(m_iNumElements) * static_cast<std::uint64_t>(m_iElementSize);
    if (nBytes == 0)
    {
        return;
    }
    std::size_t const nSlack = nAlignment - BLOCK_ALIGNMENT;
    if (nBytes <= PTRDIFF_MAX - nSlack)
    {
        m_nDataBytes = static_cast<std::size_t>(nBytes);
        m_pBlock = ZQ_NEW std::uint8_t[m_nDataBytes + nSlack];
        auto const iBlock = reinterpret_cast<std::uintptr_t>(m_pBlock);
        m_pData = m_pBlock + (((iBlock + nAlignment - 1) & ~(nAlignment - 1)) - iBlock);
    }
    ZQ_ASSERT_EX(m_pData, "Cannot allocate more elements %i, element size - %i", m_iNumElements, m_iElementSize);
    plat::CheckerForbid(m_pData, m_nDataBytes);
}

void GigaPoolStatic_c::SetElementSize(int iElementSize)
{
    static_assert(std::uint64_t{ RECIPROCAL_MAX_SIZE } * RECIPROCAL_MAX_SIZE * MAX_ELEMENTS < 1ull << RECIPROCAL_BITS);
    constexpr std::uint64_t ONE = 1ull << RECIPROCAL_BITS;
    auto const nSize = static_cast<std::uint64_t>(iElementSize);
    m_iElementSize = iElementSize;
    m_iReciprocal = nSize > 0 && nSize <= RECIPROCAL_MAX_SIZE ? (ONE + nSize - 1) / nSize : 0;
}

void GigaPoolStatic_c::Reset()
{
    plat::CheckerAllow(m_pData, m_nDataBytes);
    delete[] m_pBlock;
    delete[] m_pGroups;
    m_pBlock = m_pData = nullptr;
    m_pGroups = nullptr;
    m_nDataBytes = 0;
    m_Head = NO_HEAD;
}

bool GigaPoolStatic_c::IsArray(void const * pPtr) const
{
    bool const bValid = IsValid(pPtr);
    ZQ_ASSERT_TEXT(bValid, "IsValid(pPtr)");
    if (!bValid)
    {
        return false;
    }
    unsigned const iElement = ElementOf(pPtr);
    auto const iGroup = static_cast<int>(iElement / GROUP_ELEMENTS);
    Masks_s const & Masks = iGroup == m_iFreeList ? m_Head : m_pGroups[iGroup];
    return ((Masks.m_iArray >> (iElement % GROUP_ELEMENTS)) & 1) != 0;
}

// All cases, those that leave the group without room among them. The water marks are the caller's.
void * GigaPoolStatic_c::TakeRarely(bool bArray)
{
    int const iGroup = m_iFreeList;
    if (iGroup == GIGA_GROUP_NULL)
    {
        return nullptr;
    }
    ZQ_ASSERT_EX(m_pData, "Trying to allocate %i bytes, watermark %i", m_iElementSize, m_iWaterMark);
    ZQ_ASSERT(m_pGroups);
    if (!m_pData || !m_pGroups)
    {
        return nullptr;
    }
    int const iBitIndex = std::countr_zero(~m_Head.m_iBits | 0x80000000u);
    ZQ_ASSERT_TEXT(iBitIndex >= 0 && iBitIndex < 32, "iBitIndex>=0 && iBitIndex<32");
    std::uint32_t const iBit = 1u << iBitIndex;
    ZQ_ASSERT_TEXT(!(m_Head.m_iBits & iBit), "!(pGroup->m_iBits & iBit)");
    ZQ_ASSERT_TEXT(!(m_Head.m_iArray & iBit), "!(pGroup->m_iArray & iBit)");
    auto const nSize = static_cast<std::size_t>(m_iElementSize);
    std::uint8_t * const pElement = m_pHeadData + static_cast<std::size_t>(iBitIndex) * nSize;
    m_Head.m_iBits |= iBit;
    m_Head.m_iArray |= bArray ? iBit : 0;
    if (m_Head.m_iBits == GROUP_FULL)
    {
        CloseHead();
        Unchain(m_iFreeList, iGroup);
        Chain(m_iFullList, iGroup);
        OpenHead();
    }
    plat::CheckerAllow(pElement, nSize);
    return pElement;
}

// All cases, those of a group without room and of misuse among them; false for an element that is not out. The water
// mark, and what the address checker sees, are the caller's.
bool GigaPoolStatic_c::GiveRarely(unsigned iElement, bool bArray)
{
    auto const iGroup = static_cast<int>(iElement / GROUP_ELEMENTS);
    Masks_s * const pGroup = iGroup == m_iFreeList ? &m_Head : m_pGroups + iGroup;
    std::uint32_t const iBit = 1u << (iElement % GROUP_ELEMENTS);
    bool const bOut = (pGroup->m_iBits & iBit) != 0;
    ZQ_ASSERT(pGroup->m_iBits & iBit);
    ZQ_ASSERT_TEXT(!(((pGroup->m_iArray & iBit) ? true : false) ^ bArray),
        "!( ( (pGroup->m_iArray & iBit) ? true : false ) ^ bArray )");
    if (!bOut)
    {
        return false;
    }
    bool const bWasFull = pGroup->m_iBits == GROUP_FULL;
    pGroup->m_iBits &= ~iBit;
    pGroup->m_iArray &= ~iBit;
    if (bWasFull)
    {
        CloseHead();
        Unchain(m_iFullList, iGroup);
        Chain(m_iFreeList, iGroup);
        OpenHead();
    }
    return true;
}

constinit GigaChunkMap_c::Slot_s GigaChunkMap_c::s_dNoSlots[NO_SLOTS];

void GigaChunkMap_c::Add(GigaChunk_s * pChunk)
{
    ForEachPage(*pChunk, [=, this](std::uintptr_t iPage) { AddPage(iPage, pChunk); });
}

void GigaChunkMap_c::Remove(GigaChunk_s * pChunk)
{
    ForEachPage(*pChunk, [this](std::uintptr_t iPage) { RemovePage(iPage); });
    if (m_nUsed == 0)
    {
        Reset();
    }
}

template <typename CALL>
void GigaChunkMap_c::ForEachPage(GigaChunk_s const & Chunk, CALL Call)
{
    auto const iFirst = reinterpret_cast<std::uintptr_t>(Chunk.Pool.m_pData);
    std::uintptr_t const iLastPage = (iFirst + Chunk.Pool.m_nDataBytes - 1) >> PAGE_BITS;
    for (std::uintptr_t iPage = iFirst >> PAGE_BITS; iPage <= iLastPage; ++iPage)
    {
        Call(iPage);
    }
}

void GigaChunkMap_c::Reset()
{
    if (m_pSlots != s_dNoSlots)
    {
        delete[] m_pSlots;
        m_pSlots = s_dNoSlots;
        m_nSlots = NO_SLOTS;
        m_iHashShift = 31;
    }
}

// The page's slot, or the free one where it would go.
std::uint32_t GigaChunkMap_c::SlotOf(std::uintptr_t iPage) const
{
    std::uint32_t i = Home(iPage);
    while (m_pSlots[i].pChunk && m_pSlots[i].iPage != iPage)
    {
        i = (i + 1) & (m_nSlots - 1);
    }
    return i;
}

GigaChunk_s * GigaChunkMap_c::Find(void const * pPtr) const
{
    GigaChunk_s * const pChunk = m_pSlots[SlotOf(reinterpret_cast<std::uintptr_t>(pPtr) >> PAGE_BITS)].pChunk;
    return pChunk && pChunk->Pool.Holds(pPtr) && pChunk != pChunk->pOwner->m_pEmpty ? pChunk : nullptr;
}

// All cases, foreign addresses and pages that are not at home among them.
bool GigaChunkMap_c::FreeRarely(void const * pPtr, bool bArray) const
{
    GigaChunk_s * const pChunk = Find(pPtr);
    return pChunk && pChunk->pOwner->FreeRarely(*pChunk, pChunk->Pool.ElementOf(pPtr), bArray);
}

void GigaChunkMap_c::AddPage(std::uintptr_t iPage, GigaChunk_s * pChunk)
{
    if ((m_nUsed + 1) * 4 > m_nSlots)
    {
        Grow();
    }
    GigaPoolStatic_c const & Pool = pChunk->Pool;
    std::size_t const nQuickBytes = Pool.m_iReciprocal != 0 ? Pool.m_nDataBytes : 0;
    m_pSlots[SlotOf(iPage)] = { Pool.m_pData, nQuickBytes, Pool.m_iReciprocal, Pool.m_pGroups, pChunk->pOwner, pChunk,
        iPage };
    ++m_nUsed;
}

// Entries behind the slot move up into it, as long as that brings them no further ahead than their home.
void GigaChunkMap_c::RemovePage(std::uintptr_t iPage)
{
    std::uint32_t const nMask = m_nSlots - 1;
    std::uint32_t iGap = SlotOf(iPage);
    m_pSlots[iGap] = {};
    --m_nUsed;
    for (std::uint32_t i = (iGap + 1) & nMask; m_pSlots[i].pChunk; i = (i + 1) & nMask)
    {
        if (((i - Home(m_pSlots[i].iPage)) & nMask) >= ((i - iGap) & nMask))
        {
            std::swap(m_pSlots[iGap], m_pSlots[i]);
            iGap = i;
        }
    }
}

void GigaChunkMap_c::Grow()
{
    constexpr std::uint32_t FIRST_SLOTS = 16;
    Slot_s * const pOld = m_pSlots;
    std::uint32_t const nOld = m_nSlots;
    m_nSlots = std::max(nOld * 2, FIRST_SLOTS);
    m_iHashShift = 33 - static_cast<int>(std::bit_width(m_nSlots));
    m_pSlots = ZQ_NEW Slot_s[m_nSlots];
    for (std::uint32_t i = 0; i < nOld; ++i)
    {
        if (pOld[i].pChunk)
        {
            m_pSlots[SlotOf(pOld[i].iPage)] = pOld[i];
        }
    }
    if (pOld != s_dNoSlots)
    {
        delete[] pOld;
    }
}

void GigaPoolResizeable_c::Init(int iElements, int iElementSize)
{
    ZQ_ASSERT(!m_pFullList);
    ZQ_ASSERT(!m_pHalfList);
    ZQ_ASSERT(!m_pEmpty);
    if (m_pFullList || m_pHalfList || m_pEmpty)
    {
        return;   // the elements that are out stay good
    }
    if (iElements > 0 && iElementSize > 0)
    {
        constexpr std::int64_t GROUP = GigaPoolStatic_c::GROUP_ELEMENTS;
        std::int64_t const nTotal = static_cast<std::int64_t>(iElements) * iElementSize;
        std::int64_t const nElements = std::max(nTotal / CHUNKS_EXPECTED, MIN_CHUNK_BYTES) / iElementSize;
        std::int64_t const nRounded = (nElements + GROUP - 1) / GROUP * GROUP;
        m_iElementSize = iElementSize;
        m_iElementsPerChunk =
            static_cast<int>(std::clamp<std::int64_t>(nRounded, GROUP, GigaPoolStatic_c::MAX_ELEMENTS));
    }
    m_iWaterMark = 0;
}

void GigaPoolResizeable_c::Reset()
{
    DestroyAll(m_pHalfList);
    DestroyAll(m_pFullList);
    DestroyAll(m_pEmpty);
    m_iWaterMark = 0;
}

bool GigaPoolResizeable_c::IsArray(void const *) const
{
    ZQ_ASSERT_TEXT(false, "0 && \"why would you care?\"");
    return false;
}

// All cases, those that need another group or chunk among them.
void * GigaPoolResizeable_c::AllocRarely(bool bArray)
{
    GigaChunk_s * const pChunk = m_pHalfList ? m_pHalfList : TakeChunk();
    void * const pElement = pChunk->Pool.TakeRarely(bArray);
    if (!pElement)
    {
        Retire(pChunk);   // a chunk without storage, which has complained
        return nullptr;
    }
    pChunk->Pool.m_iWaterMark += 1;
    m_iWaterMark += 1;
    m_iHighWaterMark = std::max(m_iHighWaterMark, m_iWaterMark);
    if (pChunk->Pool.m_iWaterMark == m_iElementsPerChunk)
    {
        UnlinkChunk(m_pHalfList, pChunk);
        LinkChunk(m_pFullList, pChunk);
    }
    return pElement;
}

// All cases, those of a full group or chunk, the spare and misuse among them.
bool GigaPoolResizeable_c::FreeRarely(GigaChunk_s & Chunk, unsigned iElement, bool bArray)
{
    if (&Chunk == m_pEmpty)
    {
        return false;
    }
    GigaPoolStatic_c & Pool = Chunk.Pool;
    if (!Pool.GiveRarely(iElement, bArray))
    {
        return true;   // it was not out
    }
    plat::CheckerForbid(Pool.ElementAt(iElement), static_cast<std::size_t>(m_iElementSize));
    m_iWaterMark -= 1;
    Pool.m_iWaterMark -= 1;
    if (Pool.m_iWaterMark == m_iElementsPerChunk - 1)
    {
        UnlinkChunk(m_pFullList, &Chunk);
        LinkChunk(m_pHalfList, &Chunk);
    }
    else if (Pool.m_iWaterMark == 0)
    {
        Retire(&Chunk);
    }
    return true;
}

GigaChunk_s * GigaPoolResizeable_c::TakeChunk()
{
    GigaChunk_s * pChunk = m_pEmpty;
    if (!pChunk)
    {
        pChunk = ZQ_NEW GigaChunk_s;
        pChunk->pOwner = this;
        pChunk->Pool.InitAligned(m_iElementsPerChunk, m_iElementSize, std::size_t{ 1 } << GigaChunkMap_c::PAGE_BITS);
        if (pChunk->Pool.m_pData)
        {
            m_pMap->Add(pChunk);
        }
    }
    m_pEmpty = nullptr;
    LinkChunk(m_pHalfList, pChunk);
    return pChunk;
}

// Takes a chunk of the half list out of use.
void GigaPoolResizeable_c::Retire(GigaChunk_s * pChunk)
{
    UnlinkChunk(m_pHalfList, pChunk);
    if (m_pEmpty || !pChunk->Pool.m_pData)
    {
        Destroy(pChunk);
        return;
    }
    pChunk->pNext = pChunk->pPrev = nullptr;
    m_pEmpty = pChunk;
}

void GigaPoolResizeable_c::Destroy(GigaChunk_s * pChunk)
{
    if (pChunk->Pool.m_pData)
    {
        m_pMap->Remove(pChunk);
    }
    delete pChunk;
}

void GigaPoolResizeable_c::DestroyAll(GigaChunk_s *& pList)
{
    while (GigaChunk_s * const pChunk = pList)
    {
        pList = pChunk->pNext;
        Destroy(pChunk);
    }
}
