// chash.inl: bodies of the tables.
#pragma once

/// Returns whether two texts of nLength characters are equal. Compares words of eight bytes, unless the texts are
/// shorter: names have often just been copied by such words, and a store is forwarded fastest to a load of its width.
inline bool IsSameText(char const * pA, char const * pB, std::size_t nLength)
{
    constexpr std::size_t WORD = sizeof(std::uint64_t);
    if (nLength < WORD)
    {
        return std::memcmp(pA, pB, nLength) == 0;
    }
    std::uint64_t nDifferent = 0;
    auto const fnCompareAt = [&](std::size_t i)
    {
        std::uint64_t nA;
        std::uint64_t nB;
        std::memcpy(&nA, pA + i, WORD);
        std::memcpy(&nB, pB + i, WORD);
        nDifferent |= nA ^ nB;
    };
    for (std::size_t i = 0; i + WORD < nLength; i += WORD)
    {
        fnCompareAt(i);
    }
    fnCompareAt(nLength - WORD);
    return nDifferent == 0;
}

template <int ENTRIES>
void NameIndex_T<ENTRIES>::Insert(std::uint32_t iHash, int iSlot)
{
    std::uint32_t i = iHash & MASK;
    while (m_dEntries[i] & SLOT_MASK)
    {
        i = (i + 1) & MASK;
    }
    m_nUsed += m_dEntries[i] == FREE;
    m_dEntries[i] = Tag(iHash) | static_cast<std::uint32_t>(iSlot + 1);
}

template <int ENTRIES>
void NameIndex_T<ENTRIES>::Remove(std::uint32_t iHash, int iSlot)
{
    std::uint32_t const iWanted = Tag(iHash) | static_cast<std::uint32_t>(iSlot + 1);
    for (std::uint32_t i = iHash & MASK; m_dEntries[i] != FREE; i = (i + 1) & MASK)
    {
        if (m_dEntries[i] == iWanted)
        {
            m_dEntries[i] &= ~SLOT_MASK;
            return;
        }
    }
}

template <int ENTRIES>
template <typename MATCHES>
int NameIndex_T<ENTRIES>::Find(std::uint32_t iHash, MATCHES const & fnMatches) const
{
    std::uint32_t const iTag = Tag(iHash);
    for (std::uint32_t i = iHash & MASK; m_dEntries[i] != FREE; i = (i + 1) & MASK)
    {
        auto const iSlot = static_cast<int>(m_dEntries[i] & SLOT_MASK) - 1;
        if ((m_dEntries[i] & ~SLOT_MASK) == iTag && iSlot >= 0 && fnMatches(iSlot))
        {
            return iSlot;
        }
    }
    return -1;
}

template <int ENTRIES>
void NameIndex_T<ENTRIES>::Reset()
{
    std::memset(m_dEntries, 0, sizeof m_dEntries);
    m_nUsed = 0;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
auto StringHash_T<T, KEYLEN, SIZE, STEP>::Prepare(T * pObject, Key_t const * pName, std::size_t nLength) const
    -> Entry_s
{
    Entry_s const Entry{ pObject, pName, nLength, StringHashOf(*pName, nLength), NameIndexHash(*pName, nLength) };
    m_Index.Prefetch(Entry.iIndexHash);
    int const iStart = static_cast<int>(Entry.iHash) & iMask;
    ZQ_PREFETCH(&m_dSlots[(iStart + m_dSkip[iStart] * STEP) & iMask]);
    return Entry;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
int StringHash_T<T, KEYLEN, SIZE, STEP>::Add(Entry_s const & Entry)
{
    char const * const szName = *Entry.pName;
    Slot_s const * const pPresent =
        m_bTwins ? FindAlongChain(szName) : FindByHash(szName, Entry.nLength, Entry.iIndexHash);
    if (pPresent && m_nHoles == 0)
    {
        return HASH_PRESENT;   // all earlier slots of the chain are occupied
    }
    int const iStart = static_cast<int>(Entry.iHash) & iMask;
    int iSlot = iStart;
    int iProbe = 0;
    while (iProbe < iMaxProbes && IsTaken(iSlot))
    {
        if (pPresent == &m_dSlots[iSlot])
        {
            return HASH_PRESENT;
        }
        int const nSteps = m_nHoles > 0 || m_dSkip[iSlot] == 0 ? 1 : m_dSkip[iSlot];
        iSlot = (iSlot + nSteps * STEP) & iMask;
        iProbe += nSteps;
    }
    if (iProbe >= iMaxProbes)
    {
        return HASH_FULL;
    }
    m_bTwins = m_bTwins || pPresent;
    m_dSkip[iStart] = static_cast<std::uint16_t>(iProbe + 1);
    Store(m_dSlots[iSlot], Entry);
    return HASH_ADDED;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
void StringHash_T<T, KEYLEN, SIZE, STEP>::Store(Slot_s & Slot, Entry_s const & Entry)
{
    if (m_Index.IsCrowded())
    {
        RebuildIndex();
    }
    auto const iSlot = static_cast<int>(&Slot - m_dSlots);
    m_Index.Insert(Entry.iIndexHash, iSlot);
    m_dTaken[iSlot / 32] |= 1u << (iSlot % 32);
    m_bUsed = true;
    Slot.pObject = Entry.pObject;
    Slot.pName = Entry.pName;
    Slot.iHash = Entry.iHash;
    Slot.iIndexHash = Entry.iIndexHash;
    m_nHoles -= Slot.bDeleted ? 1 : 0;
    Slot.bDeleted = false;
    if (Entry.nLength < Slot_s::KEY_ROOM)
    {
        std::memcpy(Slot.szKey, *Entry.pName, Entry.nLength + 1);
    }
    else
    {
        std::memset(Slot.szKey, 1, sizeof Slot.szKey);   // no terminator, so that no short name equals it
    }
}

template <typename T, int KEYLEN, int SIZE, int STEP>
void StringHash_T<T, KEYLEN, SIZE, STEP>::RebuildIndex()
{
    m_Index.Reset();
    for (Slot_s * pSlot = First(); pSlot; pSlot = Next(pSlot))
    {
        m_Index.Insert(pSlot->iIndexHash, static_cast<int>(pSlot - m_dSlots));
    }
}

template <typename T, int KEYLEN, int SIZE, int STEP>
auto StringHash_T<T, KEYLEN, SIZE, STEP>::Find(char const * szName, std::size_t nLength) const -> Slot_s *
{
    if (m_bTwins)
    {
        return FindAlongChain(szName);
    }
    if (nLength >= KEYLEN)
    {
        return nullptr;
    }
    return FindByHash(szName, nLength, NameIndexHash(szName, nLength));
}

template <typename T, int KEYLEN, int SIZE, int STEP>
auto StringHash_T<T, KEYLEN, SIZE, STEP>::FindByHash(
    char const * szName, std::size_t nLength, std::uint32_t iIndexHash) const -> Slot_s *
{
    int const iSlot = m_Index.Find(iIndexHash,
        [&](int i) { return m_dSlots[i].iIndexHash == iIndexHash && HasKey(m_dSlots[i], szName, nLength); });
    return iSlot < 0 ? nullptr : const_cast<Slot_s *>(&m_dSlots[iSlot]);
}

template <typename T, int KEYLEN, int SIZE, int STEP>
bool StringHash_T<T, KEYLEN, SIZE, STEP>::HasKey(Slot_s const & Slot, char const * szName, std::size_t nLength)
{
    char const * const szKey = nLength < Slot_s::KEY_ROOM ? Slot.szKey : static_cast<char const *>(*Slot.pName);
    return IsSameText(szKey, szName, nLength) && szKey[nLength] == '\0';
}

template <typename T, int KEYLEN, int SIZE, int STEP>
auto StringHash_T<T, KEYLEN, SIZE, STEP>::FindAlongChain(char const * szName) const -> Slot_s *
{
    std::uint32_t const iHash = StringHashOf(szName);
    int i = static_cast<int>(iHash) & iMask;
    for (int iProbe = 0; iProbe < iMaxProbes; ++iProbe, i = (i + STEP) & iMask)
    {
        Slot_s const & Slot = m_dSlots[i];
        if (Slot.bDeleted)
        {
            continue;
        }
        if (!Slot.pObject)
        {
            return nullptr;
        }
        if (Slot.iHash == iHash && std::strcmp(*Slot.pName, szName) == 0)
        {
            return const_cast<Slot_s *>(&Slot);
        }
    }
    return nullptr;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
T * StringHash_T<T, KEYLEN, SIZE, STEP>::FindByName(char const * szName, std::size_t nLength) const
{
    Slot_s const * const pSlot = Find(szName, nLength);
    return pSlot ? pSlot->pObject : nullptr;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
bool StringHash_T<T, KEYLEN, SIZE, STEP>::DeleteByName(char const * szName)
{
    Slot_s * const pSlot = Find(szName, std::strlen(szName));
    if (pSlot)
    {
        Delete(pSlot);
    }
    return pSlot != nullptr;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
void StringHash_T<T, KEYLEN, SIZE, STEP>::Delete(Slot_s * pSlot)
{
    if (pSlot->pObject)
    {
        auto const iSlot = static_cast<int>(pSlot - m_dSlots);
        m_Index.Remove(pSlot->iIndexHash, iSlot);
        m_dTaken[iSlot / 32] &= ~(1u << (iSlot % 32));
        ++m_nHoles;
        pSlot->bDeleted = true;
        pSlot->pObject = nullptr;
    }
}

template <typename T, int KEYLEN, int SIZE, int STEP>
auto StringHash_T<T, KEYLEN, SIZE, STEP>::FirstFrom(Slot_s * pSlot) -> Slot_s *
{
    // Tries slots one by one first, which is faster in a table that is not sparse. The word after the last is 0.
    constexpr int NEAR = 8;
    auto iSlot = static_cast<int>(pSlot - m_dSlots);
    for (int const iEnd = iSlot + NEAR; iSlot < iEnd; ++iSlot)
    {
        if (IsTaken(iSlot))
        {
            return &m_dSlots[iSlot];
        }
    }
    int iWord = iSlot / 32;
    std::uint32_t dwTaken = m_dTaken[iWord] & (0xFFFFFFFFu << (iSlot % 32));
    while (dwTaken == 0 && iWord < SIZE / 32)
    {
        dwTaken = m_dTaken[++iWord];
    }
    return dwTaken != 0 ? &m_dSlots[iWord * 32 + std::countr_zero(dwTaken)] : nullptr;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
StringHash_T<T, KEYLEN, SIZE, STEP>::ObjectIterator_c::ObjectIterator_c(StringHash_T & Table, Slot_s * pSlot)
    : m_pTable(&Table)
    , m_pSlot(pSlot)
{
    FindNext();
}

template <typename T, int KEYLEN, int SIZE, int STEP>
auto StringHash_T<T, KEYLEN, SIZE, STEP>::ObjectIterator_c::operator++() -> ObjectIterator_c &
{
    m_pSlot = m_pNext;
    FindNext();
    return *this;
}

template <typename T, int KEYLEN, int SIZE, int STEP>
void StringHash_T<T, KEYLEN, SIZE, STEP>::ObjectIterator_c::FindNext()
{
    m_pNext = m_pSlot ? m_pTable->Next(m_pSlot) : nullptr;
    auto const * const pBytes = reinterpret_cast<unsigned char const *>(m_pNext ? m_pNext->pObject : nullptr);
    for (std::size_t i = 0; pBytes && i < sizeof(T); i += ZQ_CACHE_LINE)
    {
        ZQ_PREFETCH(pBytes + i);
    }
}

template <typename T, int KEYLEN, int SIZE, int STEP>
void StringHash_T<T, KEYLEN, SIZE, STEP>::Reset()
{
    if (!m_bUsed)
    {
        return;   // pages that were never written stay so
    }
    for (Slot_s & Slot : m_dSlots)
    {
        Slot = Slot_s{};
    }
    m_bUsed = false;
    std::memset(m_dTaken, 0, sizeof m_dTaken);
    std::memset(m_dSkip, 0, sizeof m_dSkip);
    m_nHoles = 0;
    m_Index.Reset();
    m_bTwins = false;
}

template <typename V, int SIZE, int STEP, typename HASH>
int IndexHash_T<V, SIZE, STEP, HASH>::Add(V const & Value, std::uint32_t iKey)
{
    int i = static_cast<int>(HASH::HashOf(iKey)) & iMask;
    for (int iProbe = 0; iProbe < iMaxProbes; ++iProbe, i = (i + STEP) & iMask)
    {
        Slot_s & Slot = m_dSlots[i];
        if (Slot.bDeleted || !Slot.bUsed)
        {
            Slot = Slot_s{ Value, iKey, false, true };
            ++m_nEntries;
            return HASH_ADDED;
        }
        if (Slot.iKey == iKey)
        {
            return HASH_PRESENT;
        }
    }
    return HASH_FULL;
}

template <typename V, int SIZE, int STEP, typename HASH>
V * IndexHash_T<V, SIZE, STEP, HASH>::Find(std::uint32_t iKey)
{
    int i = static_cast<int>(HASH::HashOf(iKey)) & iMask;
    for (int iProbe = 0; iProbe < iMaxProbes; ++iProbe, i = (i + STEP) & iMask)
    {
        Slot_s & Slot = m_dSlots[i];
        if (Slot.bDeleted)
        {
            continue;
        }
        if (!Slot.bUsed)
        {
            return nullptr;
        }
        if (Slot.iKey == iKey)
        {
            return &Slot.Value;
        }
    }
    return nullptr;
}

template <typename V, int SIZE, int STEP, typename HASH>
void IndexHash_T<V, SIZE, STEP, HASH>::Reset()
{
    if (m_nEntries == 0)
    {
        return;
    }
    for (Slot_s & Slot : m_dSlots)
    {
        Slot = Slot_s{};
    }
    m_nEntries = 0;
    m_nDeleted = 0;
}
