// cgigapool.h: pools of equal-sized elements.
//
// A GigaPoolStatic_c is one slab of a fixed number of elements; Alloc and Free take constant time whatever its size, by
// a bit mask for every 32 elements and chains of the masks with and without room. A GigaPoolResizeable_c is a chain of
// such slabs that grows on demand and keeps one empty slab as a spare. Both hand out raw memory: constructors are the
// caller's. Elements lie back to back from an address that is a multiple of 16. An element keeps its contents when it is
// freed; under the address checker it is out of bounds until it is taken again.
//
// The storage is owned and counts under the category of the moment. No lock: one thread at a time. A pool costs 12 bytes
// for every 32 elements. A slab of the growing one costs up to 64 KB more of address space, which counts and stays
// untouched, and 256 to 512 bytes for every 64 KB, or up to 2 KB where addresses are unlucky.
#pragma once

#include "zqcore/cpagemap.h"

/// The null value of a group's index.
inline constexpr int GIGA_GROUP_NULL = 0xFFFF;

/// A slab of elements.
class ZQ_API GigaPoolStatic_c
{
public:
    static constexpr int GROUP_ELEMENTS = 32;
    static constexpr int MAX_ELEMENTS = (GIGA_GROUP_NULL - 1) * GROUP_ELEMENTS;   // 2,097,088

    /// A pool without storage; Init gives it some.
    GigaPoolStatic_c() = default;
    GigaPoolStatic_c(int iElements, int iElementSize) { Init(iElements, iElementSize); }
    ~GigaPoolStatic_c() { Reset(); }
    GigaPoolStatic_c(GigaPoolStatic_c const &) = delete;
    GigaPoolStatic_c & operator=(GigaPoolStatic_c const &) = delete;

    /// Takes storage for iElements, rounded up to a multiple of 32, of iElementSize bytes each. Requires a pool without
    /// storage and at most MAX_ELEMENTS; more, if the developer goes on, are cut to that. Below 0 counts as 0.
    void Init(int iElements, int iElementSize);

    /// Frees the storage, with the elements that are out; the water marks stay. Init may follow.
    void Reset();

    /// An element, the one that was freed last if its group was full; null if the pool is full. An element taken as an
    /// array is freed as one.
    void * Alloc(bool bArray);

    /// Gives the element back that holds the pointer; false, and nothing happens, if the pointer is not in the pool.
    /// Requires an element that is out and was taken with the same bArray: one that is not out stays as it is.
    bool Free(void const * pPtr, bool bArray);

    /// Whether the pointer lies in the storage. Requires storage.
    bool IsValid(void const * pPtr) const;

    /// Whether the element was taken as an array. Requires IsValid(pPtr).
    bool IsArray(void const * pPtr) const;

    /// Bytes of an element, elements out now, and the most that were.
    int ElementSize() const { return m_iElementSize; }
    int WaterMark() const { return m_iWaterMark; }
    int HighWaterMark() const { return m_iHighWaterMark; }

    /// Sets the peak to 0, whatever is out.
    void ResetHighWaterMark() { m_iHighWaterMark = 0; }

private:
    friend class GigaPoolResizeable_c;
    friend class GigaChunkMap_c;

    struct Group_s
    {
        std::uint32_t m_iBits;    // elements that are out
        std::uint32_t m_iArray;   // those of them that were taken as arrays
        std::uint16_t iNext;
        std::uint16_t iPrev;

        std::uint64_t Masks() const;
        void SetMasks(std::uint64_t iMasks);
        bool GiveQuickly(std::uint64_t iBoth, bool bArray, bool bMayEmpty);
    };

    // The head of the free chain is open between calls: its masks are here, and those of its record are out of date.
    // They are read as soon as they were written, which processors do best at one and the same place.
    struct Head_s
    {
        std::uint64_t iMasks = 0;     // as of a group, but the lower half has the elements that are not out
        Group_s * pGroup = nullptr;   // null: none is open
        std::uint8_t * pElements = nullptr;
        std::size_t nElementSize = 0;
        std::uint32_t iEmptied = 0;   // in a chunk: the lower half that leaves it empty, which is no quick matter; or 0

        bool IsEmpty() const { return Lower(iMasks) == GROUP_FULL; }
        bool LeavesRoom() const;
        void * Take(bool bArray);
        bool GiveQuickly(std::uint64_t iBoth, bool bArray);
    };

    void InitAligned(int iElements, int iElementSize, std::size_t nAlignment);
    void TakeStorage(std::size_t nAlignment);
    bool Holds(void const * pPtr) const;
    unsigned ElementOf(void const * pPtr) const;
    std::uint8_t * ElementAt(unsigned iElement) const;
    bool RequireStorage() const;
    void * TakeRarely(bool bArray);
    std::uint64_t MasksOf(Head_s const & Head, unsigned iElement) const;
    bool RequireOut(Head_s const & Head, unsigned iElement, bool bArray) const;
    bool GiveRarely(unsigned iElement, bool bArray);
    void GiveClosed(unsigned iElement);
    void OpenGroup(Head_s & Head) const;
    void CloseGroup(Head_s & Head) const;
    void MoveFull();
    void SetElementSize(int iElementSize);
    void Chain(int & list, int link);
    void Unchain(int & list, int link);

    static std::uint32_t Lower(std::uint64_t iMasks) { return static_cast<std::uint32_t>(iMasks); }
    static std::uint64_t BothBits(unsigned iElement);
    static bool GiveQuickly(Head_s & Head, Group_s * pGroups, unsigned iElement, bool bArray, bool bMayEmpty);

    static constexpr std::uint32_t GROUP_FULL = 0xFFFFFFFF;

    Group_s * m_pGroups = nullptr;
    std::uint8_t * m_pData = nullptr;
    int m_iNumGroups = 0;
    int m_iNumElements = 0;
    int m_iElementSize = 0;
    int m_iFreeList = 0;                 // head of the groups with room
    int m_iFullList = GIGA_GROUP_NULL;   // head of the groups without
    int m_iWaterMark = 0;
    int m_iHighWaterMark = 0;
    Head_s m_Head;
    std::size_t m_nDataBytes = 0;        // of m_pData
    std::uint64_t m_iReciprocal = 0;     // 2 to the power of RECIPROCAL_BITS by the element size, rounded up; 0 divides
    std::uint8_t * m_pBlock = nullptr;   // of the heap, with m_pData in it

    // With these limits the rounding never reaches the next element, and no product leaves 64 bits.
    static constexpr int RECIPROCAL_BITS = 42;
    static constexpr int RECIPROCAL_MAX_SIZE = 1448;   // its square times MAX_ELEMENTS is below 2 to that power
};

struct GigaChunk_s;
class GigaPoolResizeable_c;

/// Finds the chunk of an address in constant time.
class ZQ_API GigaChunkMap_c
{
public:
    /// Of the storage of chunks, in bytes: so that no two of them share a page.
    static constexpr std::size_t ALIGNMENT = std::size_t{ 1 } << PageMap_T<int>::PAGE_BITS;

    GigaChunkMap_c() = default;
    GigaChunkMap_c(GigaChunkMap_c const &) = delete;
    GigaChunkMap_c & operator=(GigaChunkMap_c const &) = delete;

    /// Enters a chunk, which is not owned. Its storage must have the ALIGNMENT.
    void Add(GigaChunk_s * pChunk);

    /// Takes a chunk out.
    void Remove(GigaChunk_s * pChunk);

    /// The chunk whose storage holds the address, unless it is its pool's spare; or null.
    GigaChunk_s * Find(void const * pPtr) const;

    /// Gives the element back that holds the address; false if there is none.
    bool Free(void const * pPtr, bool bArray) const;

private:
    // A chunk as Free wants it.
    struct Entry_s
    {
        std::uint8_t * pData = nullptr;
        std::size_t nQuickBytes = 0;     // of the data; 0 if elements are found by division
        std::uint64_t iReciprocal = 0;   // as the pool's
        GigaPoolStatic_c::Group_s * pGroups = nullptr;
        GigaPoolResizeable_c * pOwner = nullptr;
        GigaChunk_s * pChunk = nullptr;
    };

    bool FreeRarely(void const * pPtr, bool bArray) const;
    template <typename CALL>
    static void ForEachPage(GigaChunk_s const & Chunk, CALL Call);

    PageMap_T<Entry_s> m_Pages;
};

/// A chain of slabs that grows.
class ZQ_API GigaPoolResizeable_c
{
public:
    /// A pool that Init must set up.
    GigaPoolResizeable_c() = default;
    GigaPoolResizeable_c(int iElements, int iElementSize) { Init(iElements, iElementSize); }
    ~GigaPoolResizeable_c() { Reset(); }
    GigaPoolResizeable_c(GigaPoolResizeable_c const &) = delete;
    GigaPoolResizeable_c & operator=(GigaPoolResizeable_c const &) = delete;

    /// Works out the size of a chunk: a sixteenth of the total that the caller expects, at least 256 KB, in whole groups
    /// of 32 elements, at least one of them and at most GigaPoolStatic_c::MAX_ELEMENTS. Takes no storage. Requires a
    /// pool without chunks.
    void Init(int iElements, int iElementSize);

    /// Frees the chunks, with the elements that are out; sizes and peak stay, and Alloc may follow.
    void Reset();

    /// An element; takes a chunk if need be. Null only without an Init for elements of 1 byte or more, or if no chunk fits
    /// into the address space.
    void * Alloc(bool bArray);

    /// As GigaPoolStatic_c::Free. False for a pointer of no chunk, which leaves the water mark as it is. A chunk without
    /// elements becomes the spare, or goes back to the heap if there is one.
    bool Free(void const * pPtr, bool bArray);

    /// Whether a chunk with elements out holds the pointer; the spare does not count. Constant time.
    bool IsValid(void const * pPtr) const;

    /// Not to be called: fails an assertion and gives false.
    bool IsArray(void const * pPtr) const;

    /// Bytes of an element, elements out now, and the most that were.
    int ElementSize() const { return m_iElementSize; }
    int WaterMark() const { return m_iWaterMark; }
    int HighWaterMark() const { return m_iHighWaterMark; }

    /// Sets the peak to 0, whatever is out.
    void ResetHighWaterMark() { m_iHighWaterMark = 0; }

private:
    friend class GigaChunkMap_c;
    friend class StaticMemoryPool_c;

    bool LeavesRoom() const { return m_Head.LeavesRoom(); }
    void * TakeQuickly(bool bArray);
    void * AllocRarely(bool bArray);
    bool FreeQuickly(GigaChunk_s & Chunk, GigaPoolStatic_c::Group_s * pGroups, unsigned iElement, bool bArray);
    bool FreeRarely(GigaChunk_s & Chunk, unsigned iElement, bool bArray);
    void OpenHead();
    void CloseHead();
    bool TakeChunk();
    void Retire(GigaChunk_s * pChunk);
    void Destroy(GigaChunk_s * pChunk);
    void DestroyList(GigaChunk_s *& pList);

    int m_iWaterMark = 0;
    int m_iHighWaterMark = 0;
    GigaChunk_s * m_pFullList = nullptr;   // no element left
    GigaChunk_s * m_pHalfList = nullptr;   // with elements left
    GigaChunk_s * m_pEmpty = nullptr;      // the spare
    int m_iElementsPerChunk = 0;
    int m_iElementSize = 0;
    GigaPoolStatic_c::Head_s m_Head;   // of the first chunk of m_pHalfList
    GigaChunkMap_c m_OwnMap;
    GigaChunkMap_c * m_pMap = &m_OwnMap;   // all chunks, the spare included; pools that share a map free for each other
};

#include "zqcore/cgigapool.inl"
