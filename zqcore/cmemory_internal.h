// cmemory_internal.h: what the sources of the tracked allocator share.
#pragma once

#include "zqcore/ccrc.h"
#include "zqcore/chash.h"
#include "zqcore/cmemory.h"

#include "platform/vectors.h"

/// The categories that one thread has selected. Only that thread changes it. Pushes of the same category in a row share
/// an entry, so the depth counts changes of category.
class MemCategoryStack_c
{
public:
    static constexpr int CATEGORY_STACK_DEPTH = 64;

    struct Entry_s
    {
        mem::Categories_e m_eCategory = mem::UNDEFINED;
        int m_iCallCount = 0;   // pushes that share the entry
    };

    void Add(mem::Categories_e category);
    void Remove(mem::Categories_e category);

    /// The category on top; UNDEFINED on an empty stack.
    mem::Categories_e Top() const;

    Entry_s m_dStack[CATEGORY_STACK_DEPTH];
    int top = -1;   // -1 when empty
};

/// Hash of a thread's number: the CRC-32 of its four bytes, lowest first.
struct ThreadIdHash_s
{
    static std::uint32_t Of(std::uint32_t iThread) { return GetCrc32Polynomial4(iThread); }
};

using CategoryStacks_t = IndexHash_T<MemCategoryStack_c, 128, 1, ThreadIdHash_s>;

/// The figures of all categories, each kind side by side so that a check reads two short runs of memory.
struct MemoryCounters_s
{
    // Padded with zeros to whole vectors.
    static constexpr std::size_t COUNT = (mem::TOTAL + plat::VECTOR_NUMBERS - 1) / plat::VECTOR_NUMBERS * plat::VECTOR_NUMBERS;

    alignas(64) std::ptrdiff_t dCount[COUNT];
    alignas(64) std::ptrdiff_t dBytes[COUNT];
    std::ptrdiff_t dMaxCount[COUNT];
    std::ptrdiff_t dMaxBytes[COUNT];
    std::ptrdiff_t dFrameAllocs[COUNT];
    std::ptrdiff_t dLastFrameAllocs[COUNT];

    std::ptrdiff_t iTotalCount;
    std::ptrdiff_t iTotalBytes;
    std::ptrdiff_t iMaxTotalBytes;
    unsigned nFrameAllocs;
    unsigned nLastFrameAllocs;
    int iFrame;
};

/// Guarded by g_CategoryLock.
extern MemoryCounters_s g_MemoryCounters;

/// Whether no counter is negative and the categories add up to the totals. Where this is false, only
/// MemoryCheckConsistency tells what is wrong.
bool MemoryCountersAddUp();

/// The word that a block asked for with this one gets: a client block of the word's category, or of the thread's.
std::uint32_t MemoryBlockWord(int iBlockType);

/// Takes g_CategoryLock for a scope, if the heap is tracked.
class CategoryLockScope_c
{
public:
    CategoryLockScope_c();
    ~CategoryLockScope_c();
    CategoryLockScope_c(CategoryLockScope_c const &) = delete;
    CategoryLockScope_c & operator=(CategoryLockScope_c const &) = delete;

private:
    bool const m_bLocked;
};
