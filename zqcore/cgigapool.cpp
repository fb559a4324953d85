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

    int GroupsFor(int iElements)
    {
        constexpr int GROUP = GigaPoolStatic_c::GROUP_ELEMENTS;
        return iElements / GROUP + (iElements % GROUP != 0 ? 1 : 0);
    }

    // Never destroyed: pools of objects that outlive every destructor may look at it.
    union NoChunk_u
    {
        constexpr NoChunk_u()
            : Chunk()
        {}
        ~NoChunk_u() {}

        GigaChunk_s Chunk;
    };
    constinit NoChunk_u g_NoChunk;

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

constinit GigaPoolStatic_c::Group_s GigaPoolStatic_c::s_NoGroup = { GROUP_FULL, 0, GIGA_GROUP_NULL, GIGA_GROUP_NULL };

void GigaPoolStatic_c::Init(int iElements, int iElementSize)
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
    std::uint64_t const nBytes =
        static_cast<std::uint64_t>(m_iNumElements) * static_cast<std::uint64_t>(m_iElementSize);
    if (nBytes > 0)
    {
        m_pData = nBytes <= PTRDIFF_MAX ? ZQ_NEW std::uint8_t[static_cast<std::size_t>(nBytes)] : nullptr;
        ZQ_ASSERT_EX(m_pData, "Cannot allocate more elements %i, element size - %i", m_iNumElements, m_iElementSize);
        m_nDataBytes = m_pData ? static_cast<std::size_t>(nBytes) : 0;
        plat::CheckerForbid(m_pData, m_nDataBytes);
    }
    m_pGroups = m_iNumGroups > 0 ? ZQ_NEW Group_s[static_cast<std::size_t>(m_iNumGroups)] : nullptr;
    m_iFullList = GIGA_GROUP_NULL;
    m_iFreeList = 0;
    for (int i = 0; i < m_iNumGroups; ++i)
    {
        bool const bLast = i + 1 == m_iNumGroups;
        m_pGroups[i] = { 0, 0, static_cast<std::uint16_t>(bLast ? GIGA_GROUP_NULL : i + 1),
            static_cast<std::uint16_t>(i == 0 ? GIGA_GROUP_NULL : i - 1) };
    }
    m_iWaterMark = m_iHighWaterMark = 0;
    SetHead();
}

void GigaPoolStatic_c::SetHead()
{
    bool const bHasHead = m_pData && m_pGroups && m_iFreeList != GIGA_GROUP_NULL;
    m_pHead = bHasHead ? m_pGroups + m_iFreeList : &s_NoGroup;
    m_pHeadData = bHasHead ? ElementAt(static_cast<unsigned>(m_iFreeList * GROUP_ELEMENTS)) : nullptr;
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
    delete[] m_pData;
    delete[] m_pGroups;
    m_pData = nullptr;
    m_pGroups = nullptr;
    m_nDataBytes = 0;
    SetHead();
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
    return ((m_pGroups[iElement / GROUP_ELEMENTS].m_iArray >> (iElement % GROUP_ELEMENTS)) & 1) != 0;
}

// All cases, those that leave the group without room among them.
void * GigaPoolStatic_c::AllocRarely(bool bArray)
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
    m_iWaterMark += 1;
    m_iHighWaterMark = std::max(m_iHighWaterMark, m_iWaterMark);
    Group_s * const pGroup = m_pGroups + iGroup;
    int const iBitIndex = std::countr_zero(~pGroup->m_iBits | 0x80000000u);
    ZQ_ASSERT_TEXT(iBitIndex >= 0 && iBitIndex < 32, "iBitIndex>=0 && iBitIndex<32");
    std::uint32_t const iBit = 1u << iBitIndex;
    ZQ_ASSERT(!(pGroup->m_iBits & iBit));
    ZQ_ASSERT(!(pGroup->m_iArray & iBit));
    pGroup->m_iBits |= iBit;
    pGroup->m_iArray |= bArray ? iBit : 0;
    if (pGroup->m_iBits == GROUP_FULL)
    {
        Unchain(m_iFreeList, iGroup);
        Chain(m_iFullList, iGroup);
        SetHead();
    }
    std::uint8_t * const pElement = ElementAt(static_cast<unsigned>(iGroup * GROUP_ELEMENTS + iBitIndex));
    plat::CheckerAllow(pElement, static_cast<std::size_t>(m_iElementSize));
    return pElement;
}

// All cases, those of a group without room and of misuse among them.
bool GigaPoolStatic_c::FreeRarely(unsigned iElement, bool bArray)
{
    auto const iGroup = static_cast<int>(iElement / GROUP_ELEMENTS);
    Group_s * const pGroup = m_pGroups + iGroup;
    std::uint32_t const iBit = 1u << (iElement % GROUP_ELEMENTS);
    bool const bOut = (pGroup->m_iBits & iBit) != 0;
    ZQ_ASSERT(pGroup->m_iBits & iBit);
    ZQ_ASSERT_TEXT(!(((pGroup->m_iArray & iBit) ? true : false) ^ bArray),
        "!( ( (pGroup->m_iArray & iBit) ? true : false ) ^ bArray )");
    if (!bOut)
    {
        return true;
    }
    m_iWaterMark -= 1;
    if (pGroup->m_iBits == GROUP_FULL)
    {
        Unchain(m_iFullList, iGroup);
        Chain(m_iFreeList, iGroup);
        SetHead();
    }
    pGroup->m_iBits &= ~iBit;
    pGroup->m_iArray &= ~iBit;
    plat::CheckerForbid(ElementAt(iElement), static_cast<std::size_t>(m_iElementSize));
    return true;
}

void GigaPoolStatic_c::Chain(int & list, int link)
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

void GigaPoolStatic_c::Unchain(int & list, int link)
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

constinit GigaChunk_s & GigaChunkMap_c::s_NoChunk = g_NoChunk.Chunk;
constinit GigaChunkMap_c::Slot_s GigaChunkMap_c::s_dNoSlots[NO_SLOTS] = {
    { 0, NO_BOUNDARY, &s_NoChunk, &s_NoChunk },
    { 0, NO_BOUNDARY, &s_NoChunk, &s_NoChunk },
};

void GigaChunkMap_c::Add(GigaChunk_s * pChunk)
{
    ForEachPage(*pChunk, [=, this](std::uintptr_t iPage) { AddPage(iPage, pChunk); });
}

void GigaChunkMap_c::Remove(GigaChunk_s * pChunk)
{
    m_pExpected = m_pSample = &s_NoChunk;
    ForEachPage(*pChunk, [=, this](std::uintptr_t iPage) { RemovePage(iPage, pChunk); });
    if (m_nUsed == 0)
    {
        Reset();
    }
}

void GigaChunkMap_c::Sample(GigaChunk_s * pChunk)
{
    m_pExpected = pChunk == m_pSample ? pChunk : &s_NoChunk;
    m_pSample = pChunk;
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
    while (!m_pSlots[i].IsFree() && m_pSlots[i].iPage != iPage)
    {
        i = (i + 1) & (m_nSlots - 1);
    }
    return i;
}

GigaChunk_s * GigaChunkMap_c::FindInSlots(void const * pPtr) const
{
    auto const iAddress = reinterpret_cast<std::uintptr_t>(pPtr);
    GigaChunk_s * const pChunk = m_pSlots[SlotOf(iAddress >> PAGE_BITS)].At(iAddress);
    return pChunk->Pool.Holds(pPtr) ? pChunk : nullptr;
}

void GigaChunkMap_c::AddPage(std::uintptr_t iPage, GigaChunk_s * pChunk)
{
    if ((m_nUsed + 1) * 4 > m_nSlots)
    {
        Grow();
    }
    Slot_s & Slot = m_pSlots[SlotOf(iPage)];
    m_nUsed += Slot.IsFree();
    Slot.iPage = iPage;
    auto const iFirst = reinterpret_cast<std::uintptr_t>(pChunk->Pool.m_pData);
    if (iFirst >> PAGE_BITS == iPage)
    {
        Slot.iBoundary = iFirst;
        Slot.pAbove = pChunk;
    }
    else
    {
        Slot.pBelow = pChunk;
    }
}

void GigaChunkMap_c::RemovePage(std::uintptr_t iPage, GigaChunk_s * pChunk)
{
    std::uint32_t const iSlot = SlotOf(iPage);
    Slot_s & Slot = m_pSlots[iSlot];
    if (Slot.pAbove == pChunk)
    {
        Slot.iBoundary = NO_BOUNDARY;
        Slot.pAbove = &s_NoChunk;
    }
    else
    {
        Slot.pBelow = &s_NoChunk;
    }
    if (Slot.IsFree())
    {
        --m_nUsed;
        Close(iSlot);
    }
}

// Entries behind a slot that was freed move up into it, as long as that brings them no further ahead than their home.
void GigaChunkMap_c::Close(std::uint32_t iGap)
{
    std::uint32_t const nMask = m_nSlots - 1;
    for (std::uint32_t i = (iGap + 1) & nMask; !m_pSlots[i].IsFree(); i = (i + 1) & nMask)
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
    std::fill_n(m_pSlots, m_nSlots, s_dNoSlots[0]);
    for (std::uint32_t i = 0; i < nOld; ++i)
    {
        if (!pOld[i].IsFree())
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

void * GigaPoolResizeable_c::AllocRarely(bool bArray)
{
    GigaChunk_s * const pChunk = m_pHalfList ? m_pHalfList : TakeChunk();
    void * const pElement = pChunk->Pool.Alloc(bArray);
    if (!pElement)
    {
        Retire(pChunk);   // a chunk without storage, which has complained
        return nullptr;
    }
    m_iWaterMark += 1;
    m_iHighWaterMark = std::max(m_iHighWaterMark, m_iWaterMark);
    if (pChunk->Pool.WaterMark() == m_iElementsPerChunk)
    {
        UnlinkChunk(m_pHalfList, pChunk);
        LinkChunk(m_pFullList, pChunk);
    }
    return pElement;
}

bool GigaPoolResizeable_c::FreeRarely(GigaChunk_s * pChunk, unsigned iElement, bool bArray)
{
    int const nBefore = pChunk->Pool.WaterMark();
    if (nBefore == 0)
    {
        return false;   // the spare
    }
    m_pMap->Sample(pChunk);
    bool const bResult = pChunk->Pool.FreeRarely(iElement, bArray);
    int const nAfter = pChunk->Pool.WaterMark();
    m_iWaterMark -= nBefore - nAfter;
    if (nBefore == m_iElementsPerChunk)
    {
        UnlinkChunk(m_pFullList, pChunk);
        LinkChunk(m_pHalfList, pChunk);
    }
    else if (nAfter == 0)
    {
        Retire(pChunk);
    }
    return bResult;
}

GigaChunk_s * GigaPoolResizeable_c::TakeChunk()
{
    GigaChunk_s * pChunk = m_pEmpty;
    if (!pChunk)
    {
        pChunk = ZQ_NEW GigaChunk_s;
        pChunk->pOwner = this;
        pChunk->Pool.Init(m_iElementsPerChunk, m_iElementSize);
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
