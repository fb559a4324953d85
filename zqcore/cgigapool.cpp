#include "zqcore/cgigapool.h"

#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"

#include "platform/checker.h"

#include <algorithm>
#include <climits>
#include <new>

namespace
{
    constexpr int MAX_GROUP_INDEX = USHRT_MAX;   // largest in a record, GIGA_GROUP_NULL included
    constexpr std::int64_t MIN_CHUNK_BYTES = 0x40000;
    constexpr std::int64_t CHUNKS_EXPECTED = 16;   // chunks that hold the expected total

    int GroupsFor(int iElements)
    {
        constexpr int GROUP = GigaGroup_c::ELEMENTS;
        return iElements / GROUP + (iElements % GROUP != 0 ? 1 : 0);
    }

    // Returns the bytes from an address to the next multiple of nAlignment, 0 if it is one. Requires that nAlignment
    // is a power of 2.
    std::size_t AlignmentGap(void const * pAddress, std::size_t nAlignment)
    {
        auto const nAddress = reinterpret_cast<std::uintptr_t>(pAddress);
        return ((nAddress + nAlignment - 1) & ~(nAlignment - 1)) - nAddress;
    }

    template <typename CHUNK>
    void LinkChunk(CHUNK *& pList, CHUNK * pChunk)
    {
        pChunk->pPrev = nullptr;
        pChunk->pNext = pList;
        if (pList)
        {
            pList->pPrev = pChunk;
        }
        pList = pChunk;
    }

    template <typename CHUNK>
    void UnlinkChunk(CHUNK *& pList, CHUNK * pChunk)
    {
        CHUNK *& pLink = pChunk->pPrev ? pChunk->pPrev->pNext : pList;
        pLink = pChunk->pNext;
        if (pChunk->pNext)
        {
            pChunk->pNext->pPrev = pChunk->pPrev;
        }
    }
}

inline void GigaSlab_c::Chain(int & list, int link)
{
    ZQ_ASSERT_TEXT(link >= 0 && link <= MAX_GROUP_INDEX, "link>=0 && link<=USHRT_MAX");
    ZQ_ASSERT_TEXT(list >= 0 && list <= MAX_GROUP_INDEX, "list>=0 && list<=USHRT_MAX");
    if (list != GIGA_GROUP_NULL)
    {
        m_pGroups[list].m_iPrev = static_cast<std::uint16_t>(link);
    }
    m_pGroups[link].m_iNext = static_cast<std::uint16_t>(list);
    m_pGroups[link].m_iPrev = GIGA_GROUP_NULL;
    list = link;
}

inline void GigaSlab_c::Unchain(int & list, int link)
{
    GigaGroup_c const & Group = m_pGroups[link];
    if (Group.m_iPrev == GIGA_GROUP_NULL)
    {
        ZQ_ASSERT_TEXT(list == link, "list==link");
        list = Group.m_iNext;
    }
    else
    {
        m_pGroups[Group.m_iPrev].m_iNext = Group.m_iNext;
    }
    if (Group.m_iNext != GIGA_GROUP_NULL)
    {
        m_pGroups[Group.m_iNext].m_iPrev = Group.m_iPrev;
    }
}

inline void GigaSlab_c::OpenGroup(GigaOpenGroup_c & Open) const
{
    if (m_iFreeList != GIGA_GROUP_NULL && m_pData && m_pGroups)
    {
        GigaGroup_c & Group = m_pGroups[m_iFreeList];
        ZQ_ASSERT_TEXT(!Group.IsFull(), "iBitIndex>=0 && iBitIndex<32");
        ZQ_ASSERT_TEXT(!Group.HasFreeArray(), "!(pGroup->m_iArray & iBit)");
        Open.Open(Group, At(static_cast<unsigned>(m_iFreeList * GigaGroup_c::ELEMENTS)));
    }
}

inline void GigaSlab_c::CloseGroup(GigaOpenGroup_c & Open)
{
    if (!Open.IsOpen())
    {
        return;
    }
    Open.Close();
    int const iGroup = m_iFreeList;
    if (m_pGroups[iGroup].IsFull())
    {
        Unchain(m_iFreeList, iGroup);
        Chain(m_iFullList, iGroup);
    }
}

bool GigaSlab_c::RequireNoStorage() const
{
    ZQ_ASSERT(m_pData == nullptr);
    ZQ_ASSERT(m_pGroups == nullptr);
    return !m_pData && !m_pGroups;
}

bool GigaSlab_c::Init(std::byte * pStorage, std::size_t nBytes, int iElementSize)
{
    if (!RequireNoStorage())
    {
        return false;
    }
    std::size_t const nSkip = AlignmentGap(pStorage, ALIGNMENT);
    bool const bMayFit =
        iElementSize > 0 && nSkip < nBytes && static_cast<std::size_t>(iElementSize) <= nBytes / GigaGroup_c::ELEMENTS;
    std::size_t const nFit = bMayFit ? (nBytes - nSkip) / GroupBytes(iElementSize) : 0;
    m_iNumGroups = static_cast<int>(std::min<std::size_t>(nFit, GIGA_GROUP_NULL - 1));
    m_iNumElements = m_iNumGroups * GigaGroup_c::ELEMENTS;
    SetElementSize(std::max(iElementSize, 0));
    if (m_iNumGroups > 0)
    {
        m_nDataBytes = static_cast<std::size_t>(m_iNumElements) * static_cast<std::size_t>(iElementSize);
        m_pData = reinterpret_cast<std::uint8_t *>(pStorage) + nSkip;
        m_pGroups =
            ::new (static_cast<void *>(m_pData + m_nDataBytes)) GigaGroup_c[static_cast<std::size_t>(m_iNumGroups)];
        plat::CheckerForbid(m_pData, m_nDataBytes);
    }
    ChainGroups();
    return true;
}

bool GigaSlab_c::Init(int iElements, int iElementSize, std::size_t nAlignment)
{
    if (!RequireNoStorage())
    {
        return false;   // the elements in use stay valid
    }
    m_iNumGroups = GroupsFor(std::max(iElements, 0));
    ZQ_ASSERT_TEXT(m_iNumGroups < GIGA_GROUP_NULL, "m_iNumGroups<GIGA_GROUP_NULL");
    m_iNumGroups = std::min(m_iNumGroups, GIGA_GROUP_NULL - 1);
    m_iNumElements = m_iNumGroups * GigaGroup_c::ELEMENTS;
    SetElementSize(std::max(iElementSize, 0));
    AllocData(nAlignment);
    m_pGroups = m_iNumGroups > 0 ? ZQ_NEW GigaGroup_c[static_cast<std::size_t>(m_iNumGroups)] : nullptr;
    ChainGroups();
    return true;
}

void GigaSlab_c::ChainGroups()
{
    m_iFullList = GIGA_GROUP_NULL;
    m_iFreeList = 0;
    for (int i = 0; i < m_iNumGroups; ++i)
    {
        bool const bLast = i + 1 == m_iNumGroups;
        m_pGroups[i] = GigaGroup_c(bLast ? GIGA_GROUP_NULL : i + 1, i == 0 ? GIGA_GROUP_NULL : i - 1);
    }
}

void GigaSlab_c::AllocData(std::size_t nAlignment)
{
    std::uint64_t const nBytes =
        static_cast<std::uint64_t>(m_iNumElements) * static_cast<std::uint64_t>(m_iElementSize);
    if (nBytes == 0)
    {
        return;
    }
    std::size_t const nSlack = nAlignment - MEMORY_ALIGNMENT;
    if (nBytes <= PTRDIFF_MAX - nSlack)
    {
        m_pBlock = ZQ_NEW std::uint8_t[static_cast<std::size_t>(nBytes) + nSlack];
    }
    if (m_pBlock)
    {
        m_pData = m_pBlock + AlignmentGap(m_pBlock, nAlignment);
        m_nDataBytes = static_cast<std::size_t>(nBytes);
    }
    ZQ_ASSERT_EX(m_pData, "Cannot allocate more elements %i, element size - %i", m_iNumElements, m_iElementSize);
    plat::CheckerForbid(m_pData, m_nDataBytes);
}

void GigaSlab_c::SetElementSize(int iElementSize)
{
    static_assert(std::uint64_t{ RECIPROCAL_MAX_SIZE } * RECIPROCAL_MAX_SIZE * MAX_ELEMENTS < 1ull << RECIPROCAL_BITS);
    constexpr std::uint64_t ONE = 1ull << RECIPROCAL_BITS;
    auto const nSize = static_cast<std::uint64_t>(iElementSize);
    m_iElementSize = iElementSize;
    m_nReciprocal = nSize > 0 && nSize <= RECIPROCAL_MAX_SIZE ? (ONE + nSize - 1) / nSize : 0;
}

void GigaSlab_c::Reset()
{
    plat::CheckerAllow(m_pData, m_nDataBytes);
    bool const bOfCaller = m_pData && !m_pBlock;
    if (!bOfCaller)
    {
        delete[] m_pBlock;
        delete[] m_pGroups;
    }
    m_pBlock = m_pData = nullptr;
    m_pGroups = nullptr;
    m_nDataBytes = 0;
}

bool GigaSlab_c::RequireStorageToAlloc(int nWaterMark) const
{
    ZQ_ASSERT_EX(m_pData, "Trying to allocate %i bytes, watermark %i", m_iElementSize, nWaterMark);
    ZQ_ASSERT(m_pGroups);
    return m_pData && m_pGroups;
}

bool GigaSlab_c::RequireAllocated(GigaOpenGroup_c const & Open, unsigned iElement, bool bArray) const
{
    GigaGroup_c const Group = Open.UpToDate(GroupOf(iElement));
    ZQ_ASSERT_TEXT(Group.IsAllocated(iElement), "pGroup->m_iBits & iBit");
    ZQ_ASSERT_TEXT(Group.IsArray(iElement) == bArray, "!( ( (pGroup->m_iArray & iBit) ? true : false ) ^ bArray )");
    return Open.UpToDate(GroupOf(iElement)).IsAllocated(iElement);
}

inline void GigaSlab_c::Free(unsigned iElement)
{
    auto const iGroup = static_cast<int>(iElement / GigaGroup_c::ELEMENTS);
    if (m_pGroups[iGroup].IsFull())
    {
        Unchain(m_iFullList, iGroup);
        Chain(m_iFreeList, iGroup);
    }
    m_pGroups[iGroup].FreeUnchecked(iElement);
}

void GigaPoolStatic_c::Init(int iElements, int iElementSize)
{
    Start(m_Slab.Init(iElements, iElementSize, MEMORY_ALIGNMENT));
}

void GigaPoolStatic_c::Init(std::byte * pStorage, std::size_t nBytes, int iElementSize)
{
    Start(m_Slab.Init(pStorage, nBytes, iElementSize));
}

// Clears the marks and opens a group if the storage is new.
void GigaPoolStatic_c::Start(bool bNew)
{
    if (bNew)
    {
        m_Marks = {};
        m_Slab.OpenGroup(m_Open);
    }
}

void GigaPoolStatic_c::Reset()
{
    m_Slab.Reset();
    m_Open = {};
}

bool GigaPoolStatic_c::IsArray(void const * pPtr) const
{
    bool const bValid = IsValid(pPtr);
    ZQ_ASSERT_TEXT(bValid, "IsValid(pPtr)");
    if (!bValid)
    {
        return false;
    }
    unsigned const iElement = m_Slab.IndexOf(pPtr);
    return m_Open.UpToDate(m_Slab.GroupOf(iElement)).IsArray(iElement);
}

// Allocates the last free element of the open group and returns it. Returns null if the pool is full or, after an
// assertion, has no storage.
void * GigaPoolStatic_c::AllocSlow(bool bArray)
{
    if (m_Slab.IsFull() || !m_Slab.RequireStorageToAlloc(m_Marks.Level()))
    {
        return nullptr;
    }
    void * const pElement = m_Open.Alloc(bArray, m_Slab.GetElementSize());
    m_Slab.CloseGroup(m_Open);
    m_Slab.OpenGroup(m_Open);
    return pElement;
}

// Frees an element of a full group, or one with the other bArray. Reports misuse. Returns false for an element that is
// not in use.
bool GigaPoolStatic_c::FreeSlow(unsigned iElement, bool bArray)
{
    if (!m_Slab.RequireAllocated(m_Open, iElement, bArray))
    {
        return false;
    }
    m_Slab.CloseGroup(m_Open);
    m_Slab.Free(iElement);
    m_Slab.OpenGroup(m_Open);
    return true;
}

template <typename CALL>
void GigaPoolResizeable_c::ChunkMap_c::VisitPages(Chunk_s const & Chunk, CALL fnCall)
{
    GigaSlab_c const & Slab = Chunk.Slab;
    std::uintptr_t const iLast = PageMap_T<Entry_s>::PageOf(Slab.GetData() + Slab.GetDataBytes() - 1);
    for (std::uintptr_t iPage = PageMap_T<Entry_s>::PageOf(Slab.GetData()); iPage <= iLast; ++iPage)
    {
        fnCall(iPage);
    }
}

void GigaPoolResizeable_c::ChunkMap_c::Add(Chunk_s & Chunk)
{
    GigaSlab_c const & Slab = Chunk.Slab;
    Entry_s const Entry = { Slab.GetData(), Slab.GetReciprocal() != 0 ? Slab.GetDataBytes() : 0, Slab.GetReciprocal(),
        Slab.GetGroups(), Chunk.pOwner, &Chunk };
    VisitPages(Chunk, [&, this](std::uintptr_t iPage) { m_Pages.Add(iPage, Entry); });
}

void GigaPoolResizeable_c::ChunkMap_c::Remove(Chunk_s const & Chunk)
{
    VisitPages(Chunk, [this](std::uintptr_t iPage) { m_Pages.Remove(iPage); });
}

auto GigaPoolResizeable_c::ChunkMap_c::Find(void const * pPtr) const -> Chunk_s *
{
    Chunk_s * const pChunk = m_Pages.Find(PageMap_T<Entry_s>::PageOf(pPtr)).pChunk;
    return pChunk && pChunk->Slab.Holds(pPtr) && pChunk != pChunk->pOwner->m_pEmpty ? pChunk : nullptr;
}

GigaPoolResizeable_c * GigaPoolResizeable_c::ChunkMap_c::FindPool(void const * pPtr) const
{
    Chunk_s const * const pChunk = Find(pPtr);
    return pChunk ? pChunk->pOwner : nullptr;
}

// Handles foreign addresses, pages that are not in their home slot, elements whose index needs a division, and what the
// fast path of the pool refuses. Returns what Free returns.
bool GigaPoolResizeable_c::ChunkMap_c::FreeSlow(void const * pPtr, bool bArray) const
{
    Chunk_s * const pChunk = Find(pPtr);
    if (!pChunk)
    {
        return false;
    }
    unsigned const iElement = pChunk->Slab.IndexOf(pPtr);
    GigaPoolResizeable_c & Owner = *pChunk->pOwner;
    if (!Owner.Free(*pChunk, pChunk->Slab.GetGroups(), iElement, bArray))
    {
        Owner.FreeSlow(*pChunk, iElement, bArray);
    }
    return true;
}

GigaPoolResizeable_c::GigaPoolResizeable_c(ChunkMap_c & Map, int iElements, int iElementSize)
    : m_pMap(&Map)
{
    Init(iElements, iElementSize);
}

void GigaPoolResizeable_c::Init(int iElements, int iElementSize)
{
    ZQ_ASSERT(!m_pFullList);
    ZQ_ASSERT(!m_pHalfList);
    ZQ_ASSERT(!m_pEmpty);
    if (m_pFullList || m_pHalfList || m_pEmpty)
    {
        return;   // the elements in use stay valid
    }
    if (iElements > 0 && iElementSize > 0)
    {
        constexpr std::int64_t GROUP = GigaGroup_c::ELEMENTS;
        std::int64_t const nTotal = static_cast<std::int64_t>(iElements) * iElementSize;
        std::int64_t const nElements = std::max(nTotal / CHUNKS_EXPECTED, MIN_CHUNK_BYTES) / iElementSize;
        std::int64_t const nRounded = (nElements + GROUP - 1) / GROUP * GROUP;
        m_iElementSize = iElementSize;
        m_iElementsPerChunk = static_cast<int>(std::clamp<std::int64_t>(nRounded, GROUP, GigaSlab_c::MAX_ELEMENTS));
    }
    m_Marks.ClearLevel();
}

void GigaPoolResizeable_c::Reset()
{
    DestroyList(m_pHalfList);
    DestroyList(m_pFullList);
    DestroyList(m_pEmpty);
    m_Open = {};
    m_Marks.ClearLevel();
}

bool GigaPoolResizeable_c::IsArray(void const *) const
{
    ZQ_ASSERT_TEXT(false, "0 && \"why would you care?\"");
    return false;
}

// Opens a group of the chunk from which Alloc allocates, if there is one.
inline void GigaPoolResizeable_c::OpenGroup()
{
    if (m_pHalfList)
    {
        m_pHalfList->Slab.OpenGroup(m_Open);
        m_pHalfList->nGroupsInUse -= m_Open.IsEmpty() ? 0 : 1;
        bool const bLastGroup = m_pHalfList->nGroupsInUse == 0;
        m_eOpenLast = bLastGroup ? GigaGroup_c::Last_e::Keep : GigaGroup_c::Last_e::Free;
    }
}

// Closes the open group, if there is one. Each change of a chunk, except by the fast paths, requires this first.
inline void GigaPoolResizeable_c::CloseGroup()
{
    if (m_Open.IsOpen())
    {
        m_pHalfList->nGroupsInUse += m_Open.IsEmpty() ? 0 : 1;
        m_pHalfList->Slab.CloseGroup(m_Open);
    }
}

// Allocates the last free element of the open group, or the first one of a chunk, and returns it. Returns null, after
// an assertion, if there is no storage for a chunk.
void * GigaPoolResizeable_c::AllocSlow(bool bArray)
{
    if (!m_pHalfList && !AddChunk())
    {
        return nullptr;
    }
    bool const bLast = !m_Open.HasTwoFree();
    void * const pElement = m_Open.Alloc(bArray, m_iElementSize);
    m_Marks.Raise();
    if (bLast)
    {
        Chunk_s * const pChunk = m_pHalfList;
        CloseGroup();
        if (pChunk->Slab.IsFull())
        {
            UnlinkChunk(m_pHalfList, pChunk);
            LinkChunk(m_pFullList, pChunk);
        }
        OpenGroup();
    }
    return pElement;
}

// Frees an element of a full group, the last one in use of a closed group or of the chunk, or one with the other
// bArray. Reports misuse.
void GigaPoolResizeable_c::FreeSlow(Chunk_s & Chunk, unsigned iElement, bool bArray)
{
    GigaSlab_c & Slab = Chunk.Slab;
    if (!Slab.RequireAllocated(m_Open, iElement, bArray))
    {
        return;
    }
    bool const bWasFull = Slab.IsFull();
    CloseGroup();
    Slab.Free(iElement);
    plat::CheckerForbid(Slab.At(iElement), static_cast<std::size_t>(m_iElementSize));
    m_Marks.Lower();
    Chunk.nGroupsInUse -= Slab.GroupOf(iElement).IsEmpty() ? 1 : 0;
    if (bWasFull)
    {
        UnlinkChunk(m_pFullList, &Chunk);
        LinkChunk(m_pHalfList, &Chunk);
    }
    else if (Chunk.nGroupsInUse == 0)
    {
        Retire(&Chunk);
    }
    OpenGroup();
}

// Puts the spare or a new chunk into use. Returns false, after an assertion, if there is no storage for it.
bool GigaPoolResizeable_c::AddChunk()
{
    Chunk_s * pChunk = m_pEmpty;
    if (!pChunk)
    {
        pChunk = ZQ_NEW Chunk_s;
        pChunk->pOwner = this;
        pChunk->Slab.Init(m_iElementsPerChunk, m_iElementSize, ChunkMap_c::ALIGNMENT);
        if (!pChunk->Slab.RequireStorageToAlloc(0))
        {
            delete pChunk;
            return false;
        }
        m_pMap->Add(*pChunk);
    }
    m_pEmpty = nullptr;
    LinkChunk(m_pHalfList, pChunk);
    OpenGroup();
    return true;
}

// Makes a chunk of the half list the spare, or frees it.
void GigaPoolResizeable_c::Retire(Chunk_s * pChunk)
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

void GigaPoolResizeable_c::Destroy(Chunk_s * pChunk)
{
    m_pMap->Remove(*pChunk);
    delete pChunk;
}

void GigaPoolResizeable_c::DestroyList(Chunk_s *& pList)
{
    while (Chunk_s * const pChunk = pList)
    {
        pList = pChunk->pNext;
        Destroy(pChunk);
    }
}
