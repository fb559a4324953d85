// cmemory_internal.h: what the sources of the tracked allocator share.
#pragma once

#include "zqcore/ccrc.h"
#include "zqcore/chash.h"
#include "zqcore/cmemory.h"

#include "platform/debugheap.h"
#include "platform/operators.h"
#include "platform/vectors.h"

#include <atomic>
#include <cstdio>

/// Stack of the categories that one thread has selected. Only that thread changes it. Pushes of the same category in a
/// row share an entry, so the depth counts changes of category.
class MemCategoryStack_c
{
public:
    static constexpr int CATEGORY_STACK_DEPTH = 64;

    struct Entry_s
    {
        mem::Categories_e m_eCategory = mem::UNDEFINED;
        int m_iCallCount = 0;   // pushes that share the entry
    };

    /// Push and pop a category, as MemoryCategoryPush and MemoryCategoryPop do.
    void Add(mem::Categories_e category);
    void Remove(mem::Categories_e category);

    /// Returns the category on top, or UNDEFINED if the stack is empty.
    mem::Categories_e Top() const;

    Entry_s m_dStack[CATEGORY_STACK_DEPTH];
    int top = -1;   // -1 when empty
};

/// Hash of a thread's number: the CRC-32 of its four bytes, lowest first. The library assigns the numbers.
struct ThreadIdHash_s
{
    static std::uint32_t Of(std::uint32_t iThread) { return GetCrc32Polynomial4(iThread); }
};

using CategoryStacks_t = IndexHash_T<MemCategoryStack_c, 128, 1, ThreadIdHash_s>;

/// Figures of all categories. Each kind of figure is one array, so a check reads two short runs of memory.
struct MemoryCounters_s
{
    /// Padded with zeros to whole vectors.
    static constexpr std::size_t COUNT =
        (mem::TOTAL + plat::VECTOR_NUMBERS - 1) / plat::VECTOR_NUMBERS * plat::VECTOR_NUMBERS;

    alignas(64) std::ptrdiff_t dCount[COUNT];
    alignas(64) std::ptrdiff_t dBytes[COUNT];
    std::ptrdiff_t dMaxCount[COUNT];
    std::ptrdiff_t dMaxBytes[COUNT];
    std::ptrdiff_t dFrameAllocs[COUNT];
    std::ptrdiff_t dLastFrameAllocs[COUNT];

    // Also read without the lock.
    std::atomic<std::ptrdiff_t> iTotalCount;
    std::atomic<std::ptrdiff_t> iTotalBytes;
    std::atomic<std::ptrdiff_t> iMaxTotalBytes;
    std::atomic<unsigned> nLastFrameAllocs;

    unsigned nFrameAllocs;
    int iFrame;
    bool bNewLogEnabled;   // whether each allocation is written to the call log
};

/// The figures of this process. Guarded by g_CategoryLock.
extern MemoryCounters_s g_MemoryCounters;

/// The process's own operators, which replace the heap. Its pairs are null if the library's operators are bound. Set
/// once, when the library is loaded.
extern plat::Operators_t g_ForeignOperators;

/// Sets g_ForeignOperators and reports foreign operators in one line. Requires that the heap is not tracked yet.
void MemoryBindOperators();

/// Returns whether no counter is negative and the categories add up to the totals. False is not yet a fault: then
/// MemoryCheckConsistency decides.
bool MemoryCountersAddUp();

/// Writes an allocation to the call log, except the log's own. Requires g_CategoryLock.
ZQ_COLD void MemoryNewLogRecord(plat::HeapBlock_t const & Block, mem::Categories_e eCategory);

/// Number of blocks by size.
struct MemoryTally_s
{
    static constexpr std::size_t LIMITS[] = { 64, 128, 256, 512 };   // maximum bytes of a block of the class

    std::size_t dInClass[4];   // blocks above the last limit are in no class
    std::size_t nTotal;
};

/// Writes the totals that end a report of live blocks. Without blocks the percentages are 0.
void MemoryWriteTally(std::FILE * f, MemoryTally_s const & Tally);

/// Returns the category in a block's word, or UNDEFINED if it has no valid one.
inline mem::Categories_e MemoryCategoryInWord(std::uint32_t dwWord)
{
    std::uint32_t const iCategory = (dwWord >> MEMORY_CATEGORY_SHIFT) & MEMORY_CATEGORY_MASK;
    return iCategory < mem::TOTAL ? static_cast<mem::Categories_e>(iCategory) : mem::UNDEFINED;
}

/// Scope that holds g_CategoryLock, if the heap is tracked.
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
