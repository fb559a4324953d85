// cgigaslab.h: the storage of the element pools: a slab of equal-sized elements in groups of 32.
//
// It serves cgigapool.h, whose pools hosts use. A slab has a record with two bit masks for each group, and two chains
// of records: the groups with a free element and the full ones. The group from which a pool allocates is open: the pool
// holds a copy of its masks, and those in the record are out of date until the group is closed. The copy saves time
// because each call reads what the previous call wrote, and a processor forwards such a value fastest at a fixed
// address.
//
// Ownership: a slab owns its elements and records, unless they lie in storage of the caller. An open group points into
// them.
// Threads: one at a time.
// Cost: 12 bytes for every 32 elements. Only Init and Reset loop or touch the heap.
// Failure: a slab that would exceed half of the address space asserts and has no storage. A lack of memory ends in
// Abort (cmemory.h). Misuse fails an assertion and changes nothing, with two exceptions: Init cuts a number of elements
// that is too large, and an element that was allocated with the other bArray is freed.
#pragma once

#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"

#include "platform/checker.h"

#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

/// The null value of a group's index.
inline constexpr int GIGA_GROUP_NULL = 0xFFFF;

/// Record of 32 neighbouring elements: which are allocated, and its place in a chain. An element is named by its index
/// in the slab or in the group: element i has bit i modulo 32.
class GigaGroup_c
{
public:
    static constexpr int ELEMENTS = 32;   // bits of a mask of the group

    /// Whether Free may free the last allocated element.
    enum class Last_e : std::uint32_t
    {
        Free = 0,
        Keep = 1
    };

    /// Make a record without allocated elements. The second constructor also sets its neighbours in the chain.
    GigaGroup_c() = default;
    GigaGroup_c(int iNextGroup, int iPrevGroup);

    /// Returns a record without a free element.
    static constexpr GigaGroup_c Full();

    /// Return whether no element is allocated, whether all are, and whether two or more are free.
    bool IsEmpty() const { return Lower(Masks()) == 0; }
    bool IsFull() const { return Lower(Masks()) == ALL; }
    bool HasTwoFree() const { return Lower(WithLowestFree(Masks())) != ALL; }

    /// Return whether the element is allocated, and whether it is allocated as an array.
    bool IsAllocated(unsigned iElement) const { return (m_iBits & Lower(BothBits(iElement))) != 0; }
    bool IsArray(unsigned iElement) const { return (m_iArray & Lower(BothBits(iElement))) != 0; }

    /// Returns whether a free element has the bit of an array. Only a write from outside the pool can cause that.
    bool HasFreeArray() const { return (m_iArray & ~m_iBits) != 0; }

    /// Allocates the lowest free element. Returns its index in the group. Requires a free element.
    unsigned Alloc(bool bArray);

    /// Frees an element. Requires a group that is not full: a full one has to change its chain. Returns false and
    /// changes nothing in these cases:
    /// - it is the last allocated one, and eLast is Keep.
    /// - it is not allocated, or not with this bArray.
    bool Free(unsigned iElement, bool bArray, Last_e eLast);

    /// Frees an element in any case.
    void FreeUnchecked(unsigned iElement) { SetMasks(Masks() & ~BothBits(iElement)); }

    /// Copies the masks but not the links.
    void CopyMasks(GigaGroup_c const & Other) { SetMasks(Other.Masks()); }

private:
    static constexpr std::uint32_t ALL = 0xFFFFFFFF;

    /// Returns both masks as one word, m_iBits in the lower half.
    std::uint64_t Masks() const;
    void SetMasks(std::uint64_t nMasks);
    static std::uint32_t Lower(std::uint64_t nMasks) { return static_cast<std::uint32_t>(nMasks); }
    static std::uint64_t WithLowestFree(std::uint64_t nMasks) { return nMasks | (nMasks + 1); }
    static std::uint64_t BothBits(unsigned iElement);

    std::uint32_t m_iBits = 0;    // allocated elements
    std::uint32_t m_iArray = 0;   // those that are arrays

public:
    std::uint16_t m_iNext = 0;   // index of the next group of the chain, or GIGA_GROUP_NULL
    std::uint16_t m_iPrev = 0;   // index of the previous one, or GIGA_GROUP_NULL
};

/// The group from which a pool allocates: a copy of its masks.
class GigaOpenGroup_c
{
public:
    using Last_e = GigaGroup_c::Last_e;   // rule for the last element, as for a group

    /// Return whether a group is open, and what GigaGroup_c returns for it: false if none is open.
    bool IsOpen() const { return m_pRecord != nullptr; }
    bool IsEmpty() const { return m_Group.IsEmpty(); }
    bool HasTwoFree() const { return m_Group.HasTwoFree(); }

    /// Allocates the lowest free element. Returns its address. Requires a free element.
    void * Alloc(bool bArray, int iElementSize);

    /// Frees an element as GigaGroup_c::Free does, with eOpenLast if its group is open, else with eLast. Also returns
    /// false for a full group that is not open. dGroups are the records of the element's slab.
    bool Free(GigaGroup_c * dGroups, unsigned iElement, bool bArray, Last_e eLast, Last_e eOpenLast);

    /// Returns the up-to-date masks of a group: the copy if the group is open, else the record.
    GigaGroup_c const & UpToDate(GigaGroup_c const & Record) const { return &Record == m_pRecord ? m_Group : Record; }

    /// Copy the masks of a record here, and back to that record. pElements is the address of the group's first element.
    /// Close requires an open group.
    void Open(GigaGroup_c & Record, std::uint8_t * pElements);
    void Close();

private:
    GigaGroup_c m_Group = GigaGroup_c::Full();
    GigaGroup_c * m_pRecord = nullptr;   // record of the open group; null if none is open
    std::uint8_t * m_pElements = nullptr;
};

/// Storage of a pool's elements, and the records of their groups.
class ZQ_API GigaSlab_c
{
public:
    static constexpr std::size_t ALIGNMENT = MEMORY_ALIGNMENT;                           // bytes; of the first element
    static constexpr int MAX_ELEMENTS = (GIGA_GROUP_NULL - 1) * GigaGroup_c::ELEMENTS;   // 2,097,088

    GigaSlab_c() = default;
    ~GigaSlab_c() { Reset(); }
    GigaSlab_c(GigaSlab_c const &) = delete;
    GigaSlab_c & operator=(GigaSlab_c const &) = delete;

    /// Allocates storage as GigaPoolStatic_c::Init does. Its address is a multiple of nAlignment, a power of 2 of at
    /// least MEMORY_ALIGNMENT. Asserts that the slab has no storage, and returns false otherwise. Returns true even if
    /// the storage would exceed half of the address space: RequireStorage shows that.
    bool Init(int iElements, int iElementSize, std::size_t nAlignment);

    /// Place as many groups as fit, with their records, in storage of the caller, but no more than MAX_ELEMENTS
    /// elements. A size below 1 places none. Require that the storage stays until Reset or the end of the slab.
    /// Assert that the slab has no storage, and return false otherwise. Return true even if no group fits.
    bool Init(std::span<std::byte> Storage, int iElementSize)
    {
        return Init(Storage.data(), Storage.size(), iElementSize);
    }
    bool Init(std::byte * pStorage, std::size_t nBytes, int iElementSize);

    /// Returns the bytes of the caller's storage in which Init always places iElements, from 0 to MAX_ELEMENTS.
    /// Requires a size above 0, and in a 32-bit build a result below 4 GiB.
    static constexpr std::size_t StorageFor(int iElements, int iElementSize)
    {
        auto const nGroups = static_cast<std::size_t>((iElements + GigaGroup_c::ELEMENTS - 1) / GigaGroup_c::ELEMENTS);
        return nGroups * GroupBytes(iElementSize) + ALIGNMENT - 1;
    }

    /// Returns the number of elements, free or in use.
    int GetElements() const { return m_iNumElements; }

    /// Frees the storage, or releases that of the caller. The number of elements and their size stay.
    void Reset();

    /// Assert that there is storage, and return whether there is. The message of the second function names nWaterMark.
    bool RequireStorage() const;
    bool RequireStorageToAlloc(int nWaterMark) const;

    /// Return the bytes of an element, whether no group has a free element, the storage, its bytes, the records, and
    /// the record of an element's group. An open group counts as one with a free element. IsFull returns false for a
    /// slab that never had a group, and keeps its result after Reset.
    int GetElementSize() const { return m_iElementSize; }
    bool IsFull() const { return m_iFreeList == GIGA_GROUP_NULL; }
    std::uint8_t * GetData() const { return m_pData; }
    std::size_t GetDataBytes() const { return m_nDataBytes; }
    GigaGroup_c * GetGroups() const { return m_pGroups; }
    GigaGroup_c & GroupOf(unsigned iElement) const { return m_pGroups[iElement / GigaGroup_c::ELEMENTS]; }

    /// Returns whether the address lies in the storage.
    bool Holds(void const * pPtr) const;

    /// Returns the index of the element that holds an address. Requires Holds(pPtr).
    unsigned IndexOf(void const * pPtr) const;

    /// Returns the index of the element at a distance in bytes from the first one. nReciprocal is GetReciprocal().
    /// Requires that it is not 0: with 0 the index needs a division.
    static unsigned IndexOf(std::size_t nDistance, std::uint64_t nReciprocal)
    {
        return static_cast<unsigned>((nDistance * nReciprocal) >> RECIPROCAL_BITS);
    }

    /// Returns the factor for IndexOf, or 0 if the index needs a division.
    std::uint64_t GetReciprocal() const { return m_nReciprocal; }

    /// Returns the address of an element.
    std::uint8_t * At(unsigned iElement) const;

    /// Opens the head of the chain of groups with a free element, if there is one.
    void OpenGroup(GigaOpenGroup_c & Open) const;

    /// Closes the open group, if there is one. A full group changes its chain.
    void CloseGroup(GigaOpenGroup_c & Open);

    /// Asserts that the element is allocated, and with this bArray. Returns whether it is allocated afterwards: a
    /// receiver of the assertion may have used the pool.
    bool RequireAllocated(GigaOpenGroup_c const & Open, unsigned iElement, bool bArray) const;

    /// Frees an element. A full group changes its chain. Requires that the element is allocated, and that no group of
    /// the slab is open.
    void Free(unsigned iElement);

private:
    /// Constants of the division by a multiplication (Granlund and Montgomery, Division by Invariant Integers using
    /// Multiplication, 1994). With these limits the rounding never reaches the next element, and no product leaves 64
    /// bits.
    static constexpr int RECIPROCAL_BITS = 42;
    static constexpr int RECIPROCAL_MAX_SIZE = 1448;   // its square times MAX_ELEMENTS is below 2 to RECIPROCAL_BITS

    static constexpr std::size_t GroupBytes(int iElementSize)
    {
        return GigaGroup_c::ELEMENTS * static_cast<std::size_t>(iElementSize) + sizeof(GigaGroup_c);
    }

    bool RequireNoStorage() const;
    void ChainGroups();
    void AllocData(std::size_t nAlignment);
    void SetElementSize(int iElementSize);
    void Chain(int & list, int link);
    void Unchain(int & list, int link);

    GigaGroup_c * m_pGroups = nullptr;
    std::uint8_t * m_pData = nullptr;
    int m_iNumGroups = 0;
    int m_iNumElements = 0;
    int m_iElementSize = 0;
    int m_iFreeList = 0;                 // head of the groups with a free element
    int m_iFullList = GIGA_GROUP_NULL;   // head of the groups without
    std::size_t m_nDataBytes = 0;        // bytes at m_pData
    std::uint64_t m_nReciprocal = 0;     // 2 to RECIPROCAL_BITS by the element size, rounded up; 0: IndexOf divides
    std::uint8_t * m_pBlock = nullptr;   // the heap's block that holds m_pData; null in storage of the caller
};

inline GigaGroup_c::GigaGroup_c(int iNextGroup, int iPrevGroup)
    : m_iNext(static_cast<std::uint16_t>(iNextGroup))
    , m_iPrev(static_cast<std::uint16_t>(iPrevGroup))
{}

constexpr GigaGroup_c GigaGroup_c::Full()
{
    GigaGroup_c Group;
    Group.m_iBits = ALL;
    return Group;
}

inline std::uint64_t GigaGroup_c::Masks() const
{
    std::uint64_t nMasks;
    std::memcpy(&nMasks, this, sizeof nMasks);
    return nMasks;
}

inline void GigaGroup_c::SetMasks(std::uint64_t nMasks)
{
    std::memcpy(static_cast<void *>(this), &nMasks, sizeof nMasks);
}

/// Returns the element's bit in both masks.
inline std::uint64_t GigaGroup_c::BothBits(unsigned iElement)
{
    return std::rotl(0x100000001ull, static_cast<int>(iElement));   // a rotation by ELEMENTS changes nothing
}

inline unsigned GigaGroup_c::Alloc(bool bArray)
{
    std::uint64_t const nWas = Masks();
    std::uint64_t const nNow = WithLowestFree(nWas);
    SetMasks(bArray ? nNow | (nNow ^ nWas) << ELEMENTS : nNow);
    return ZQ_FIRST_BIT(~Lower(nWas));
}

inline bool GigaGroup_c::Free(unsigned iElement, bool bArray, Last_e eLast)
{
    std::uint64_t const nBoth = BothBits(iElement);
    std::uint64_t const nWas = Masks();
    std::uint64_t const nNow = nWas ^ (bArray ? nBoth : Lower(nBoth));
    if ((nNow & nBoth) != 0 || Lower(nNow) < static_cast<std::uint32_t>(eLast))
    {
        return false;
    }
    SetMasks(nNow);
    return true;
}

inline void * GigaOpenGroup_c::Alloc(bool bArray, int iElementSize)
{
    auto const nElementSize = static_cast<std::size_t>(iElementSize);
    void * const pElement = m_pElements + m_Group.Alloc(bArray) * nElementSize;
    plat::CheckerAllow(pElement, nElementSize);
    return pElement;
}

inline bool GigaOpenGroup_c::Free(GigaGroup_c * dGroups, unsigned iElement, bool bArray, Last_e eLast, Last_e eOpenLast)
{
    GigaGroup_c * const pRecord = dGroups + iElement / GigaGroup_c::ELEMENTS;
    if (pRecord == m_pRecord) [[likely]]
    {
        return m_Group.Free(iElement, bArray, eOpenLast);   // a branch, so that the copy's address stays fixed
    }
    return !pRecord->IsFull() && pRecord->Free(iElement, bArray, eLast);
}

inline void GigaOpenGroup_c::Open(GigaGroup_c & Record, std::uint8_t * pElements)
{
    m_Group.CopyMasks(Record);
    m_pRecord = &Record;
    m_pElements = pElements;
}

inline void GigaOpenGroup_c::Close()
{
    m_pRecord->CopyMasks(m_Group);
    m_Group.CopyMasks(GigaGroup_c::Full());
    m_pRecord = nullptr;
}

inline bool GigaSlab_c::Holds(void const * pPtr) const
{
    return reinterpret_cast<std::uintptr_t>(pPtr) - reinterpret_cast<std::uintptr_t>(m_pData) < m_nDataBytes;
}

inline unsigned GigaSlab_c::IndexOf(void const * pPtr) const
{
    std::size_t const nDistance = reinterpret_cast<std::uintptr_t>(pPtr) - reinterpret_cast<std::uintptr_t>(m_pData);
    if (m_nReciprocal == 0) [[unlikely]]
    {
        return static_cast<unsigned>(nDistance / static_cast<std::size_t>(m_iElementSize));
    }
    return IndexOf(nDistance, m_nReciprocal);
}

inline std::uint8_t * GigaSlab_c::At(unsigned iElement) const
{
    return m_pData + iElement * static_cast<std::size_t>(m_iElementSize);
}

inline bool GigaSlab_c::RequireStorage() const
{
    ZQ_ASSERT(m_pData);
    ZQ_ASSERT(m_pGroups);
    return m_pData && m_pGroups;
}
