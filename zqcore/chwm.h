// chwm.h: a pool of blocks of different sizes, with an element pool for each size class.
//
// A class is a group of blocks of one size. AddGroup adds the classes, in ascending order, before the first request. A
// request goes to the class with the smallest size that fits. The pool records the high water mark of each class. Its
// destructor writes the marks, and what was never freed, to the debugger's output.
//
// Ownership: the pool owns all blocks. Its destructor frees those that are still allocated.
// Threads: one thread at a time. There is no lock.
// Cost: one table read finds the class of a request of up to 1024 bytes. Larger requests need a walk over the classes.
// Sizes next to a class size that is not a multiple of 4 need one too. The pools allocate whole chunks.
// Failure: a lack of memory, a request above the largest class and a refused class size (AddGroup) end in Abort. Free
// returns false for a pointer that lies in no chunk with allocated blocks. Other wrong use asserts.
//
//     StaticMemoryPool_c Pool("events");
//     Pool.AddGroup(16, 1000);
//     Pool.AddGroup(64, 100);
//     void * const pBlock = Pool.Alloc(20, false);   // 64 bytes
//     Pool.Free(pBlock, false);
//     Log("%i events of 64 bytes at most", Pool.GetHighWaterMark(1));
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cgigapool.h"
#include "zqcore/cstring.h"

/// A pool of blocks of several sizes.
class ZQ_API StaticMemoryPool_c
{
public:
    static constexpr int MAX_GROUPS = 12;   // classes of a pool

    /// Makes a pool without classes. Its messages hold the name, cut at 255 characters. Asserts that sName is not null.
    explicit StaticMemoryPool_c(char const * sName);

    /// Writes the high water mark and the leaks of each class to the debugger's output, and frees all storage.
    ~StaticMemoryPool_c();
    StaticMemoryPool_c(StaticMemoryPool_c const &) = delete;
    StaticMemoryPool_c & operator=(StaticMemoryPool_c const &) = delete;

    /// Adds a class of blocks of element_size bytes. elements_total is the expected number of blocks, which is no
    /// limit. Asserts that elements_total > 0, and that there are fewer than MAX_GROUPS classes: a further one is not
    /// added. A size that is not above the previous class's, or is above INT_MAX, ends in Abort. Alloc from a class of
    /// 0 blocks, or of 0 bytes, ends in Abort too.
    void AddGroup(unsigned int element_size, unsigned int elements_total);

    /// Allocates a block of the smallest class with nBytes or more and returns it, never null. Blocks of a class whose
    /// size is a multiple of 16 are aligned to 16 bytes. bArray marks an array. Free asserts that its bArray is the
    /// same. Ends in Abort if all classes are smaller, or if there is no memory for a chunk.
    void * Alloc(unsigned int nBytes, bool bArray);

    /// Frees a block and returns true. Asserts that the block is allocated, and with this bArray. A block is freed even
    /// with a wrong bArray. Returns false, without an assertion, if no chunk with allocated blocks holds the pointer.
    bool Free(void const * pPtr, bool bArray);

    /// Returns the block size, in bytes, of the class that holds the pointer in a chunk with allocated blocks, or 0.
    int IsValid(void const * pPtr);

    /// Fails an assertion and returns false for any pointer.
    bool IsArray(void const * pPtr);

    /// Sets the high water marks of all classes to 0.
    void ResetHighWaterMarks();

    /// Returns the most blocks of a class that were allocated at once. iGroup is 0 for the smallest class. Asserts that
    /// 0 <= iGroup < number of classes. Returns -1 otherwise.
    int GetHighWaterMark(int iGroup);

private:
    struct AllocGroup_s
    {
        unsigned int elements_total;
        unsigned int element_size;
        GigaPoolResizeable_c * pPool;   // owned
        bool bReserved;                 // whether the class is reserved: always false
    };

    GigaPoolResizeable_c * PoolFor(unsigned int nBytes) const;
    ZQ_COLD void * AllocSlow(unsigned int nBytes, bool bArray);
    void SetPools();

    static constexpr unsigned int STEP = 4;      // bytes of a step
    static constexpr unsigned int STEPS = 256;   // steps of the largest block that m_dPools covers

    /// Classes, smallest first.
    SortedArray_T<AllocGroup_s, StaticArrayLenTraits_T<AllocGroup_s, MAX_GROUPS>> m_dGroups;

    String_T<256> m_sName;
    GigaPoolResizeable_c * m_dPools[STEPS + 1] = {};   // by size in steps; null unless one class fits the whole step
    GigaPoolResizeable_c::ChunkMap_c m_Map;            // chunks of all classes
};

/// Returns the pool of the smallest class that fits, or null if that needs a walk over the classes.
inline GigaPoolResizeable_c * StaticMemoryPool_c::PoolFor(unsigned int nBytes) const
{
    return nBytes <= STEP * STEPS ? m_dPools[(nBytes + STEP - 1) / STEP] : nullptr;
}

inline void * StaticMemoryPool_c::Alloc(unsigned int nBytes, bool bArray)
{
    GigaPoolResizeable_c * const pPool = PoolFor(nBytes);
    if (pPool && pPool->IsAllocFast()) [[likely]]
    {
        return pPool->Alloc(bArray);   // never null
    }
    void * const pBlock = pPool ? pPool->Alloc(bArray) : nullptr;
    return pBlock ? pBlock : AllocSlow(nBytes, bArray);
}

inline bool StaticMemoryPool_c::Free(void const * pPtr, bool bArray)
{
    return m_Map.Free(pPtr, bArray);   // an address lies in one chunk at most
}
