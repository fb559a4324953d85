// cgigapool.inl: the fast paths of the pools.
#pragma once

/// A slab of a pool that grows, in one of the pool's lists or as its spare.
struct GigaPoolResizeable_c::Chunk_s
{
    Chunk_s * pNext = nullptr;
    Chunk_s * pPrev = nullptr;
    GigaSlab_c Slab;
    GigaPoolResizeable_c * pOwner = nullptr;
    int nGroupsInUse = 0;   // groups with elements in use; an open group does not count
};

inline void * GigaPoolStatic_c::Alloc(bool bArray)
{
    void * pElement;
    if (m_Open.HasTwoFree()) [[likely]]
    {
        pElement = m_Open.Alloc(bArray, m_Slab.GetElementSize());
    }
    else if (pElement = AllocSlow(bArray); !pElement)
    {
        return nullptr;
    }
    m_Marks.Raise();
    return pElement;
}

inline bool GigaPoolStatic_c::Free(void const * pPtr, bool bArray)
{
    if (!m_Slab.Holds(pPtr))
    {
        return IsValid(pPtr);   // false, and asserts that there is storage
    }
    unsigned const iElement = m_Slab.IndexOf(pPtr);
    constexpr auto LAST = GigaGroup_c::Last_e::Free;
    if (!m_Open.Free(m_Slab.GetGroups(), iElement, bArray, LAST, LAST) && !FreeSlow(iElement, bArray)) [[unlikely]]
    {
        return true;   // not in use
    }
    plat::CheckerForbid(m_Slab.At(iElement), static_cast<std::size_t>(m_Slab.GetElementSize()));
    m_Marks.Lower();
    return true;
}

inline bool GigaPoolStatic_c::IsValid(void const * pPtr) const
{
    m_Slab.RequireStorage();
    return m_Slab.Holds(pPtr);
}

inline void * GigaPoolResizeable_c::Alloc(bool bArray)
{
    if (!m_Open.HasTwoFree()) [[unlikely]]
    {
        return AllocSlow(bArray);
    }
    void * const pElement = m_Open.Alloc(bArray, m_iElementSize);
    m_Marks.Raise();
    return pElement;
}

inline bool GigaPoolResizeable_c::ChunkMap_c::Free(void const * pPtr, bool bArray) const
{
    Entry_s const & Entry = m_Pages.AtHome(pPtr);
    std::size_t const nDistance =
        reinterpret_cast<std::uintptr_t>(pPtr) - reinterpret_cast<std::uintptr_t>(Entry.pData);
    if (nDistance >= Entry.nQuickBytes) [[unlikely]]
    {
        return FreeSlow(pPtr, bArray);
    }
    unsigned const iElement = GigaSlab_c::IndexOf(nDistance, Entry.nReciprocal);
    return Entry.pOwner->Free(*Entry.pChunk, Entry.pGroups, iElement, bArray) || FreeSlow(pPtr, bArray);
}

/// Frees an element of a chunk and returns true if nothing else has to change. Otherwise changes nothing and returns
/// false. dGroups are the records of the chunk, passed because the caller has read them already.
inline bool GigaPoolResizeable_c::Free(Chunk_s & Chunk, GigaGroup_c * dGroups, unsigned iElement, bool bArray)
{
    if (!m_Open.Free(dGroups, iElement, bArray, GigaGroup_c::Last_e::Keep, m_eOpenLast)) [[unlikely]]
    {
        return false;
    }
    plat::CheckerForbid(Chunk.Slab.At(iElement), static_cast<std::size_t>(m_iElementSize));
    m_Marks.Lower();
    return true;
}
