// cgigapool.h: pools of equal-sized elements.
//
// GigaPoolStatic_c is one slab of a fixed number of elements. GigaPoolResizeable_c is a chain of such slabs, its
// chunks, which grows on demand and keeps one empty chunk as a spare. Both return raw memory: constructors are the
// caller's. Elements lie back to back from an address that is a multiple of 16. A freed element keeps its contents.
// Under the address checker it is out of bounds until it is allocated again.
//
// Ownership: a pool owns its elements, which count under the category of the moment. Reset frees those in use too. A
// fixed pool may also lie in storage of the caller. cpoolallocator.h makes pools allocators of standard containers.
// Threads: no lock; one thread at a time.
// Cost: Alloc and Free take constant time, a few nanoseconds, unless they allocate or free a chunk. A pool adds 12
// bytes for every 32 elements. A chunk adds up to 64 KiB of address space, which is counted but not touched. It also
// adds 256 to 512 bytes for every 64 KiB, or up to 2 KiB if addresses collide. With 32 bits it adds half of that.
// Failure: Alloc returns null if a fixed pool is full, or if its storage or a chunk would exceed half of the address
// space. A lack of memory ends in Abort (cmemory.h). Free returns false for a foreign pointer. Misuse fails an
// assertion and changes nothing, unless a declaration says otherwise.
//
//     GigaPoolResizeable_c Pool(1000, 48);   // about 1000 elements of 48 bytes
//     void * const pElement = Pool.Alloc(false);
//     int const nUsed = Pool.WaterMark();    // 1
//     Pool.Free(pElement, false);
#pragma once

#include "zqcore/cgigaslab.h"
#include "zqcore/cpagemap.h"

/// Number of elements in use, and the most that were in use at once.
class GigaMarks_c
{
public:
    /// Return the two numbers.
    int Level() const { return m_iWaterMark; }
    int Peak() const { return m_iHighWaterMark; }

    /// Count an element that is allocated, and one that is freed.
    void Raise()
    {
        m_iWaterMark += 1;
        if (m_iHighWaterMark < m_iWaterMark)
        {
            m_iHighWaterMark = m_iWaterMark;
        }
    }
    void Lower() { m_iWaterMark -= 1; }

    /// Set one of the two numbers to 0.
    void ClearLevel() { m_iWaterMark = 0; }
    void ClearPeak() { m_iHighWaterMark = 0; }

private:
    int m_iWaterMark = 0;
    int m_iHighWaterMark = 0;
};

/// A pool of a fixed number of elements.
class ZQ_API GigaPoolStatic_c
{
public:
    static constexpr int GROUP_ELEMENTS = GigaGroup_c::ELEMENTS;    // elements of a group, which share two masks
    static constexpr int MAX_ELEMENTS = GigaSlab_c::MAX_ELEMENTS;   // 2,097,088

    /// Make a pool, without storage or as Init does.
    GigaPoolStatic_c() = default;
    GigaPoolStatic_c(int iElements, int iElementSize) { Init(iElements, iElementSize); }
    GigaPoolStatic_c(std::span<std::byte> Storage, int iElementSize) { Init(Storage, iElementSize); }

    /// Allocates storage for iElements, rounded up to a multiple of 32, of iElementSize bytes each. Negative values
    /// count as 0. Asserts in these cases:
    /// - the pool has storage. If the developer continues, it keeps that.
    /// - there are more than MAX_ELEMENTS. If the developer continues, their number is cut to that.
    /// - the storage would exceed half of the address space. If the developer continues, Alloc returns null.
    void Init(int iElements, int iElementSize);

    /// Use storage of the caller and nothing of the heap. It holds as many whole groups of 32 elements as fit, but no
    /// more than MAX_ELEMENTS elements. Storage that is too small for a group, or a size below 1, makes a pool without
    /// elements. Require that the storage stays until Reset or the end of the pool. Assert that the pool has no
    /// storage. If the developer continues, it keeps that.
    void Init(std::span<std::byte> Storage, int iElementSize) { Init(Storage.data(), Storage.size(), iElementSize); }
    void Init(std::byte * pStorage, std::size_t nBytes, int iElementSize);

    /// Returns the bytes of the caller's storage that always hold iElements, from 0 to MAX_ELEMENTS. Requires a size
    /// above 0, and in a 32-bit build a result below 4 GiB.
    static constexpr std::size_t StorageFor(int iElements, int iElementSize)
    {
        return GigaSlab_c::StorageFor(iElements, iElementSize);
    }

    /// Returns the number of elements, free or in use. It stays after Reset.
    int GetElements() const { return m_Slab.GetElements(); }

    /// Frees the storage, or releases that of the caller, with all elements in use. The water marks stay. Init may
    /// follow, and sets them to 0.
    void Reset();

    /// Allocates and returns an element, or null if the pool is full. Uses the lowest free element of the group that
    /// was full last. Groups that were never full follow in their order. Free asserts that it gets the same bArray.
    /// Asserts that there is storage, and returns null otherwise. A pool that was full at Reset returns null without
    /// the assertion.
    void * Alloc(bool bArray);

    /// Frees the element that holds the pointer. Returns false and changes nothing if the pointer is not in the pool,
    /// otherwise true. An element in use is freed even with a wrong bArray. Asserts in these cases:
    /// - the pool has no storage.
    /// - the element is not in use.
    /// - the element was allocated with the other bArray.
    bool Free(void const * pPtr, bool bArray);

    /// Returns whether the pointer lies in the storage. Asserts that there is storage.
    bool IsValid(void const * pPtr) const;

    /// Returns whether the element was allocated as an array. Asserts that IsValid(pPtr), and returns false otherwise.
    bool IsArray(void const * pPtr) const;

    /// Return the bytes of an element, the number of elements in use, and the most that were in use at once.
    int ElementSize() const { return m_Slab.GetElementSize(); }
    int WaterMark() const { return m_Marks.Level(); }
    int HighWaterMark() const { return m_Marks.Peak(); }

    /// Sets the high water mark to 0, even if elements are in use.
    void ResetHighWaterMark() { m_Marks.ClearPeak(); }

private:
    void Start(bool bNew);
    void * AllocSlow(bool bArray);
    bool FreeSlow(unsigned iElement, bool bArray);

    GigaSlab_c m_Slab;
    GigaMarks_c m_Marks;
    GigaOpenGroup_c m_Open;
};

/// A pool that grows.
class ZQ_API GigaPoolResizeable_c
{
    struct Chunk_s;

public:
    /// Map that finds the chunk of an address in constant time, for one pool or for several that share the map.
    class ZQ_API ChunkMap_c
    {
    public:
        /// Alignment of a chunk's storage in bytes, so that no two chunks share a page.
        static constexpr std::size_t ALIGNMENT = std::size_t{ 1 } << PageMap_T<int>::PAGE_BITS;

        ChunkMap_c() = default;
        ChunkMap_c(ChunkMap_c const &) = delete;
        ChunkMap_c & operator=(ChunkMap_c const &) = delete;

        /// Returns the pool that holds the address in a chunk other than its spare, or null.
        GigaPoolResizeable_c * FindPool(void const * pPtr) const;

        /// Frees the element that holds the address, as GigaPoolStatic_c::Free does. Returns false if no chunk, or only
        /// a spare, holds the address.
        bool Free(void const * pPtr, bool bArray) const;

        /// Add a chunk, remove it, and return the chunk of an address, or null for none or a spare. Only pools and maps
        /// call these functions.
        void Add(Chunk_s & Chunk);
        void Remove(Chunk_s const & Chunk);
        Chunk_s * Find(void const * pPtr) const;

    private:
        /// A chunk as Free needs it.
        struct Entry_s
        {
            std::uint8_t * pData = nullptr;
            std::size_t nQuickBytes = 0;   // bytes of the data; 0 if IndexOf divides
            std::uint64_t nReciprocal = 0;
            GigaGroup_c * pGroups = nullptr;
            GigaPoolResizeable_c * pOwner = nullptr;
            Chunk_s * pChunk = nullptr;
        };

        bool FreeSlow(void const * pPtr, bool bArray) const;
        template <typename CALL>
        static void VisitPages(Chunk_s const & Chunk, CALL fnCall);

        PageMap_T<Entry_s> m_Pages;
    };

    /// Make a pool. The first one leaves Init to the caller.
    GigaPoolResizeable_c() = default;
    GigaPoolResizeable_c(int iElements, int iElementSize) { Init(iElements, iElementSize); }

    /// Makes a pool that shares a map with others: each of them frees elements of all. Requires that the map outlives
    /// the pool.
    GigaPoolResizeable_c(ChunkMap_c & Map, int iElements, int iElementSize);
    ~GigaPoolResizeable_c() { Reset(); }
    GigaPoolResizeable_c(GigaPoolResizeable_c const &) = delete;
    GigaPoolResizeable_c & operator=(GigaPoolResizeable_c const &) = delete;

    /// Computes the size of a chunk: as many elements as fit in a sixteenth of the bytes that iElements take, or in
    /// 256 KiB if that is more, rounded up to whole groups of 32, at least one group and at most
    /// GigaPoolStatic_c::MAX_ELEMENTS. iElements is the number that the caller expects, not a limit. Allocates nothing.
    /// Leaves the sizes unchanged if a value is below 1. Asserts that the pool has no chunks.
    void Init(int iElements, int iElementSize);

    /// Frees all chunks, with the elements in use. Sizes and high water mark stay. Alloc may follow.
    void Reset();

    /// Allocates an element, and a chunk if necessary, and returns the element. Asserts and returns null only in these
    /// cases:
    /// - a chunk would exceed half of the address space.
    /// - Init has not been called with at least one element of at least one byte.
    void * Alloc(bool bArray);

    /// Returns whether the next Alloc takes the fast path, which does not fail.
    bool IsAllocFast() const { return m_Open.HasTwoFree(); }

    /// Frees an element and returns true, as GigaPoolStatic_c::Free does. A chunk without elements in use becomes the
    /// spare, or is freed if the pool has a spare already. Returns false and changes nothing if no chunk, or only a
    /// spare, holds the pointer.
    bool Free(void const * pPtr, bool bArray) { return m_pMap->Free(pPtr, bArray); }

    /// Returns whether a chunk with elements in use holds the pointer. The spare does not count. With a shared map the
    /// chunks of all its pools count.
    bool IsValid(void const * pPtr) const { return m_pMap->FindPool(pPtr) != nullptr; }

    /// Fails an assertion and returns false for any pointer.
    bool IsArray(void const * pPtr) const;

    /// Return the bytes of an element, the number of elements in use, and the most that were in use at once.
    int ElementSize() const { return m_iElementSize; }
    int WaterMark() const { return m_Marks.Level(); }
    int HighWaterMark() const { return m_Marks.Peak(); }

    /// Sets the high water mark to 0, even if elements are in use.
    void ResetHighWaterMark() { m_Marks.ClearPeak(); }

private:
    void * AllocSlow(bool bArray);
    bool Free(Chunk_s & Chunk, GigaGroup_c * dGroups, unsigned iElement, bool bArray);
    void FreeSlow(Chunk_s & Chunk, unsigned iElement, bool bArray);
    void OpenGroup();
    void CloseGroup();
    bool AddChunk();
    void Retire(Chunk_s * pChunk);
    void Destroy(Chunk_s * pChunk);
    void DestroyList(Chunk_s *& pList);

    GigaMarks_c m_Marks;
    Chunk_s * m_pFullList = nullptr;   // chunks without a free element
    Chunk_s * m_pHalfList = nullptr;   // chunks with free elements
    Chunk_s * m_pEmpty = nullptr;      // the spare
    int m_iElementsPerChunk = 0;
    int m_iElementSize = 0;
    GigaOpenGroup_c m_Open;                                        // open group of the first chunk of m_pHalfList
    GigaGroup_c::Last_e m_eOpenLast = GigaGroup_c::Last_e::Free;   // Keep if the rest of the chunk is not in use
    ChunkMap_c m_OwnMap;
    ChunkMap_c * m_pMap = &m_OwnMap;   // map of all chunks, the spare too
};

#include "zqcore/cgigapool.inl"
