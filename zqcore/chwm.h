// chwm.h: blocks of varying size out of a few element pools, each for one size, with the peak use of each size.
//
// A request goes to the smallest class that fits. The classes are declared up front in ascending order of size; the
// pools grow, so only a request above the largest class fails, and that ends the process. The peaks, and what was never
// freed, go to the debugger's output when the pool is destroyed. No lock: one thread at a time.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cgigapool.h"
#include "zqcore/cstring.h"

class ZQ_API StaticMemoryPool_c
{
public:
    static constexpr int MAX_GROUPS = 12;   // classes; one more is a failed assertion and is left out

    /// A pool without classes; the name, cut at 255 characters, stands in its messages. Requires sName.
    explicit StaticMemoryPool_c(char const * sName);

    /// Reports each class's peak and leaks, and frees all storage with the blocks that are out.
    ~StaticMemoryPool_c();
    StaticMemoryPool_c(StaticMemoryPool_c const &) = delete;
    StaticMemoryPool_c & operator=(StaticMemoryPool_c const &) = delete;

    /// Declares the next class: its bytes, which must be more than the former class's and at most INT_MAX (else Abort),
    /// and the number of elements to expect, which only tunes the storage. Requires elements_total > 0.
    void AddGroup(unsigned int element_size, unsigned int elements_total);

    /// A block of the smallest class with nBytes or more; ends in Abort if there is none. Never null. Blocks of
    /// classes that are multiples of 16 bytes are aligned to 16.
    void * Alloc(unsigned int nBytes, bool bArray);

    /// Gives a block back as it was taken (see GigaPoolStatic_c::Free); false if no class holds the pointer.
    bool Free(void const * pPtr, bool bArray);

    /// The bytes of the class that holds the pointer, or 0.
    int IsValid(void const * pPtr);

    /// Not to be called: fails an assertion and gives false.
    bool IsArray(void const * pPtr);

    /// Sets the peaks of all classes to 0.
    void ResetHighWaterMarks();

    /// The peak of a class's blocks; -1 if it has no pool. Requires 0 <= iGroup < number of classes.
    int GetHighWaterMark(int iGroup);

private:
    struct AllocGroup_s
    {
        unsigned int elements_total;
        unsigned int element_size;
        GigaPoolResizeable_c * pPool;   // owned
        bool bReserved;                 // always false
    };

    GigaPoolResizeable_c * PoolFor(unsigned int nBytes) const;
    ZQ_COLD void * AllocRarely(unsigned int nBytes, bool bArray);
    void SetPools();

    static constexpr unsigned int STEP = 4;      // bytes
    static constexpr unsigned int STEPS = 256;   // blocks of up to STEP * STEPS bytes find their class in one look

    SortedArray_T<AllocGroup_s, StaticArrayLenTraits_T<AllocGroup_s, MAX_GROUPS>> m_dGroups;   // smallest first
    String_T<256> m_sName;
    GigaPoolResizeable_c * m_dPools[STEPS + 1] = {};   // by size in steps; null where two sizes take two classes
    GigaChunkMap_c m_Map;                              // the chunks of all classes
};

/// The pool of the smallest class that fits; null if that takes a walk.
inline GigaPoolResizeable_c * StaticMemoryPool_c::PoolFor(unsigned int nBytes) const
{
    return nBytes <= STEP * STEPS ? m_dPools[(nBytes + STEP - 1) / STEP] : nullptr;
}

inline void * StaticMemoryPool_c::Alloc(unsigned int nBytes, bool bArray)
{
    GigaPoolResizeable_c * const pPool = PoolFor(nBytes);
    if (pPool && pPool->LeavesRoom()) [[likely]]
    {
        return pPool->TakeQuickly(bArray);
    }
    void * const p = pPool ? pPool->AllocRarely(bArray) : nullptr;
    return p ? p : AllocRarely(nBytes, bArray);
}

inline bool StaticMemoryPool_c::Free(void const * pPtr, bool bArray)
{
    return m_Map.Free(pPtr, bArray);   // an address lies in one chunk at most: no class comes ahead of another
}
