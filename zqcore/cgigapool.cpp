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

// Opens the head of the free chain, if there is one.
inline void GigaPoolStatic_c::OpenGroup(Head_s & Head) const
{
    if (m_iFreeList != GIGA_GROUP_NULL && m_pData && m_pGroups)
    {
        Group_s & Group = m_pGroups[m_iFreeList];
        ZQ_ASSERT_TEXT(Group.m_iBits != GROUP_FULL, "iBitIndex>=0 && iBitIndex<32");
        ZQ_ASSERT_TEXT(!(Group.m_iArray & ~Group.m_iBits), "!(pGroup->m_iArray & iBit)");
        Head = { Group.Masks() ^ GROUP_FULL, &Group, ElementAt(static_cast<unsigned>(m_iFreeList * GROUP_ELEMENTS)),
            static_cast<std::size_t>(m_iElementSize) };
    }
}

// Ahead of all work on the groups and chains.
inline void GigaPoolStatic_c::CloseGroup(Head_s & Head) const
{
    if (Head.pGroup)
    {
        Head.pGroup->SetMasks(Head.iMasks ^ GROUP_FULL);
        Head = {};
    }
}

// Moves the head of the free chain to the full one.
inline void GigaPoolStatic_c::MoveFull()
{
    int const iGroup = m_iFreeList;
    Unchain(m_iFreeList, iGroup);
    Chain(m_iFullList, iGroup);
}

void GigaPoolStatic_c::Init(int iElements, int iElementSize)
{
    InitAligned(iElements, iElementSize, BLOCK_ALIGNMENT);
    if (!m_Head.pGroup)
    {
        OpenGroup(m_Head);
    }
}

// Leaves the head as it is.
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
        m_pGroups[i] = { 0, 0, static_cast<std::uint16_t>(bLast ? GIGA_GROUP_NULL : i + 1),
            static_cast<std::uint16_t>(i == 0 ? GIGA_GROUP_NULL : i - 1) };
    }
    m_iWaterMark = m_iHighWaterMark = 0;
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
        m_pBlock = ZQ_NEW std::uint8_t[static_cast<std::size_t>(nBytes) + nSlack];
    }
    if (m_pBlock)
    {
        auto const iBlock = reinterpret_cast<std::uintptr_t>(m_pBlock);
        m_pData = m_pBlock + (((iBlock + nAlignment - 1) & ~(nAlignment - 1)) - iBlock);
        m_nDataBytes = static_cast<std::size_t>(nBytes);
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
    m_Head = {};
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
    return ((MasksOf(m_Head, iElement) >> GROUP_ELEMENTS) & BothBits(iElement)) != 0;
}

// Those of the element's group, as in its record, wherever they are now.
std::uint64_t GigaPoolStatic_c::MasksOf(Head_s const & Head, unsigned iElement) const
{
    Group_s const & Group = m_pGroups[iElement / GROUP_ELEMENTS];
    return &Group == Head.pGroup ? Head.iMasks ^ GROUP_FULL : Group.Masks();
}

// Whether the element is out; complains if not, and if it was taken otherwise.
bool GigaPoolStatic_c::RequireOut(Head_s const & Head, unsigned iElement, bool bArray) const
{
    std::uint64_t const iMasks = MasksOf(Head, iElement) & BothBits(iElement);
    ZQ_ASSERT_TEXT(Lower(iMasks) != 0, "pGroup->m_iBits & iBit");
    ZQ_ASSERT_TEXT((iMasks > GROUP_FULL) == bArray, "!( ( (pGroup->m_iArray & iBit) ? true : false ) ^ bArray )");
    return (Lower(MasksOf(Head, iElement)) & BothBits(iElement)) != 0;   // whatever a listener did
}

// Complains if there is none.
bool GigaPoolStatic_c::RequireStorage() const
{
    ZQ_ASSERT_EX(m_pData, "Trying to allocate %i bytes, watermark %i", m_iElementSize, m_iWaterMark);
    ZQ_ASSERT(m_pGroups);
    return m_pData && m_pGroups;
}

// The last element of the head. The water marks are the caller's.
void * GigaPoolStatic_c::TakeRarely(bool bArray)
{
    if (m_iFreeList == GIGA_GROUP_NULL || !RequireStorage())
    {
        return nullptr;
    }
    void * const pElement = m_Head.Take(bArray);
    CloseGroup(m_Head);
    MoveFull();
    OpenGroup(m_Head);
    return pElement;
}

// All cases, those of a group without room and of misuse among them; false for an element that is not out. The water
// mark, and what the address checker sees, are the caller's.
bool GigaPoolStatic_c::GiveRarely(unsigned iElement, bool bArray)
{
    if (!RequireOut(m_Head, iElement, bArray))
    {
        return false;
    }
    CloseGroup(m_Head);
    GiveClosed(iElement);
    OpenGroup(m_Head);
    return true;
}

// Requires an element that is out, and that no group is open.
void GigaPoolStatic_c::GiveClosed(unsigned iElement)
{
    auto const iGroup = static_cast<int>(iElement / GROUP_ELEMENTS);
    Group_s * const pGroup = m_pGroups + iGroup;
    if (pGroup->m_iBits == GROUP_FULL)
    {
        Unchain(m_iFullList, iGroup);
        Chain(m_iFreeList, iGroup);
    }
    pGroup->SetMasks(pGroup->Masks() & ~BothBits(iElement));
}

template <typename CALL>
void GigaChunkMap_c::ForEachPage(GigaChunk_s const & Chunk, CALL Call)
{
    GigaPoolStatic_c const & Pool = Chunk.Pool;
    std::uintptr_t const iLast = PageMap_T<Entry_s>::PageOf(Pool.m_pData + Pool.m_nDataBytes - 1);
    for (std::uintptr_t iPage = PageMap_T<Entry_s>::PageOf(Pool.m_pData); iPage <= iLast; ++iPage)
    {
        Call(iPage);
    }
}

void GigaChunkMap_c::Add(GigaChunk_s * pChunk)
{
    GigaPoolStatic_c const & Pool = pChunk->Pool;
    Entry_s const Entry = { Pool.m_pData, Pool.m_iReciprocal != 0 ? Pool.m_nDataBytes : 0, Pool.m_iReciprocal,
        Pool.m_pGroups, pChunk->pOwner, pChunk };
    ForEachPage(*pChunk, [&, this](std::uintptr_t iPage) { m_Pages.Add(iPage, Entry); });
}

void GigaChunkMap_c::Remove(GigaChunk_s * pChunk)
{
    ForEachPage(*pChunk, [this](std::uintptr_t iPage) { m_Pages.Remove(iPage); });
}

GigaChunk_s * GigaChunkMap_c::Find(void const * pPtr) const
{
    GigaChunk_s * const pChunk = m_Pages.Find(PageMap_T<Entry_s>::PageOf(pPtr)).pChunk;
    return pChunk && pChunk->Pool.Holds(pPtr) && pChunk != pChunk->pOwner->m_pEmpty ? pChunk : nullptr;
}

// All cases, foreign addresses and pages that are not at home among them.
bool GigaChunkMap_c::FreeRarely(void const * pPtr, bool bArray) const
{
    GigaChunk_s * const pChunk = Find(pPtr);
    if (!pChunk)
    {
        return false;
    }
    unsigned const iElement = pChunk->Pool.ElementOf(pPtr);
    GigaPoolResizeable_c & Owner = *pChunk->pOwner;
    return Owner.FreeQuickly(*pChunk, pChunk->Pool.m_pGroups, iElement, bArray)
           || Owner.FreeRarely(*pChunk, iElement, bArray);
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
    DestroyList(m_pHalfList);
    DestroyList(m_pFullList);
    DestroyList(m_pEmpty);
    m_Head = {};
    m_iWaterMark = 0;
}

bool GigaPoolResizeable_c::IsArray(void const *) const
{
    ZQ_ASSERT_TEXT(false, "0 && \"why would you care?\"");
    return false;
}

// Opens the head of the chunk that serves Alloc, if there is one.
inline void GigaPoolResizeable_c::OpenHead()
{
    if (m_pHalfList)
    {
        m_pHalfList->Pool.OpenGroup(m_Head);
        m_pHalfList->nGroupsInUse -= m_Head.IsEmpty() ? 0 : 1;
        m_Head.iEmptied = m_pHalfList->nGroupsInUse == 0 ? GigaPoolStatic_c::GROUP_FULL : 0;
    }
}

// Ahead of all work on the chunks.
inline void GigaPoolResizeable_c::CloseHead()
{
    if (m_Head.pGroup)
    {
        m_pHalfList->nGroupsInUse += m_Head.IsEmpty() ? 0 : 1;
        m_pHalfList->Pool.CloseGroup(m_Head);
    }
}

// All cases, those that need another group or chunk among them.
void * GigaPoolResizeable_c::AllocRarely(bool bArray)
{
    if (!m_pHalfList && !TakeChunk())
    {
        return nullptr;
    }
    bool const bLast = !m_Head.LeavesRoom();
    void * const pElement = TakeQuickly(bArray);
    if (bLast)
    {
        GigaChunk_s * const pChunk = m_pHalfList;
        CloseHead();
        pChunk->Pool.MoveFull();
        if (pChunk->Pool.m_iFreeList == GIGA_GROUP_NULL)
        {
            UnlinkChunk(m_pHalfList, pChunk);
            LinkChunk(m_pFullList, pChunk);
        }
        OpenHead();
    }
    return pElement;
}

// All cases, those of a full group or chunk, of the last element of a chunk and of misuse among them.
bool GigaPoolResizeable_c::FreeRarely(GigaChunk_s & Chunk, unsigned iElement, bool bArray)
{
    GigaPoolStatic_c & Pool = Chunk.Pool;
    if (!Pool.RequireOut(m_Head, iElement, bArray))
    {
        return true;
    }
    bool const bWasFull = Pool.m_iFreeList == GIGA_GROUP_NULL;
    CloseHead();
    Pool.GiveClosed(iElement);
    plat::CheckerForbid(Pool.ElementAt(iElement), static_cast<std::size_t>(m_iElementSize));
    m_iWaterMark -= 1;
    Chunk.nGroupsInUse -= Pool.m_pGroups[iElement / GigaPoolStatic_c::GROUP_ELEMENTS].m_iBits == 0 ? 1 : 0;
    if (bWasFull)
    {
        UnlinkChunk(m_pFullList, &Chunk);
        LinkChunk(m_pHalfList, &Chunk);
    }
    else if (Chunk.nGroupsInUse == 0)
    {
        Retire(&Chunk);
    }
    OpenHead();
    return true;
}

// Takes the spare or a new chunk into use; false, with a complaint, if there is no storage for it.
bool GigaPoolResizeable_c::TakeChunk()
{
    GigaChunk_s * pChunk = m_pEmpty;
    if (!pChunk)
    {
        pChunk = ZQ_NEW GigaChunk_s;
        pChunk->pOwner = this;
        pChunk->Pool.InitAligned(m_iElementsPerChunk, m_iElementSize, GigaChunkMap_c::ALIGNMENT);
        if (!pChunk->Pool.RequireStorage())
        {
            delete pChunk;
            return false;
        }
        m_pMap->Add(pChunk);
    }
    m_pEmpty = nullptr;
    LinkChunk(m_pHalfList, pChunk);
    OpenHead();
    return true;
}

// Takes a chunk of the half list out of use.
void GigaPoolResizeable_c::Retire(GigaChunk_s * pChunk)
{
    UnlinkChunk(m_pHalfList, pChunk);
    if (m_pEmpty)
    {
        Destroy(pChunk);
        return;
    }
    pChunk->pNext = pChunk->pPrev = nullptr;
    m_pEmpty = pChunk;
}

void GigaPoolResizeable_c::Destroy(GigaChunk_s * pChunk)
{
    m_pMap->Remove(pChunk);
    delete pChunk;
}

void GigaPoolResizeable_c::DestroyList(GigaChunk_s *& pList)
{
    while (GigaChunk_s * const pChunk = pList)
    {
        pList = pChunk->pNext;
        Destroy(pChunk);
    }
}
