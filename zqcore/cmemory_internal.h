// cmemory_internal.h: what the sources of the tracked allocator share.
#pragma once

#include "zqcore/ccrc.h"
#include "zqcore/cdebug.h"
#include "zqcore/chash.h"
#include "zqcore/cmemory.h"

#include "platform/debugheap.h"
#include "platform/operators.h"
#include "platform/vectors.h"

#include <atomic>
#include <cstdio>
#include <iterator>

inline constexpr std::uint32_t MEMORY_KIND_MASK = 0xFFFF;   // bits of the kind in a block's word

/// Number of allocations of a category, and of releases, after which a thread checks whether to publish its figures of
/// the heap of a shipped game.
inline constexpr std::ptrdiff_t MEMORY_PUBLISH_INTERVAL = 128;

/// Stack of the categories that one thread has selected. Only that thread changes it, but a forked child empties the
/// stacks of the threads that it lacks. Pushes of the same category in a row share an entry, so the depth counts
/// changes of category.
class MemCategoryStack_c
{
public:
    static constexpr int CATEGORY_STACK_DEPTH = 64;   // maximum number of entries

    /// A selected category.
    struct Entry_s
    {
        mem::Categories_e m_eCategory = mem::UNDEFINED;
        int m_iCallCount = 0;   // pushes that share the entry
    };

    /// Push and pop a category, as MemoryCategoryPush and MemoryCategoryPop do.
    void Add(mem::Categories_e category);
    void Remove(mem::Categories_e category);

    /// Returns the category on top, or UNDEFINED if the stack is empty. Asserts that `top` is in range.
    mem::Categories_e Top() const
    {
        ZQ_ASSERT_TEXT(top >= -1 && top < CATEGORY_STACK_DEPTH, "top >= -1 && top < CATEGORY_STACK_DEPTH");
        return top < 0 ? mem::UNDEFINED : m_dStack[top].m_eCategory;
    }

    Entry_s m_dStack[CATEGORY_STACK_DEPTH];   // the outermost entry first
    int top = -1;                             // index of the entry on top, -1 if the stack is empty
};

struct MemoryFigures_s;

/// Selection and figures of one thread.
struct MemoryStack_s
{
    MemCategoryStack_c * pStack = nullptr;   // null before the first push, without room, and after the thread's end
    MemoryFigures_s * pFigures = nullptr;    // of a shipped game's heap; null while the thread has none
    std::uint32_t iNumber = 0;               // of the stack, from 1 on; 0 without a stack
    bool bComplaining = false;               // whether a complaint of the allocator runs
    bool bMayFail = false;                   // whether a `new` with std::nothrow runs
};

/// State of the calling thread.
extern ZQ_THREAD_LOCAL constinit MemoryStack_s t_MemoryStack;

/// Hash of a thread's number: the CRC-32 of its four bytes, lowest first. The library assigns the numbers.
struct ThreadIdHash_c
{
    static std::uint32_t HashOf(std::uint32_t iThread) { return GetCrc32Polynomial4(iThread); }
};

/// Stacks of all threads, by the threads' numbers.
using CategoryStacks_t = IndexHash_T<MemCategoryStack_c, 128, 1, ThreadIdHash_c>;

/// Figures of all categories of the debug heap. Each kind of figure is one array, so a check reads two short runs of
/// memory.
struct MemoryCounters_s
{
    /// Entries of an array: the categories, and zeros up to whole vectors.
    static constexpr std::size_t COUNT =
        (mem::TOTAL + plat::VECTOR_NUMBERS - 1) / plat::VECTOR_NUMBERS * plat::VECTOR_NUMBERS;

    alignas(plat::VECTOR_NUMBERS * sizeof(std::ptrdiff_t)) std::ptrdiff_t dCount[COUNT];
    alignas(plat::VECTOR_NUMBERS * sizeof(std::ptrdiff_t)) std::ptrdiff_t dBytes[COUNT];
    std::ptrdiff_t dMaxCount[COUNT];
    std::ptrdiff_t dMaxBytes[COUNT];
    std::ptrdiff_t dFrameAllocs[COUNT];
    std::ptrdiff_t dLastFrameAllocs[COUNT];

    /// Totals, which are also read without the lock.
    std::atomic<std::ptrdiff_t> nTotalCount;
    std::atomic<std::ptrdiff_t> nTotalBytes;
    std::atomic<std::ptrdiff_t> nMaxTotalBytes;
    std::atomic<unsigned> nLastFrameAllocs;

    unsigned nFrameAllocs;
    int iFrame;
    bool bNewLogEnabled;   // whether the call log is on; changed while no other thread allocates
};

/// Numbers of blocks by size. The heap of a shipped game counts only the total.
struct MemoryTally_s
{
    static constexpr std::size_t LIMITS[] = { 64, 128, 256, 512 };   // maximum bytes of a block of the class

    std::size_t dInClass[std::size(LIMITS)];   // blocks above the last limit are in no class
    std::size_t nTotal;
};

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

/// The debug heap's figures of this process. They are written under g_CategoryLock, except bNewLogEnabled.
extern MemoryCounters_s g_MemoryCounters;

/// The process's own operators, which replace the heap. If fnNew of a pair is null, the heap serves that form.
/// MemoryBindOperators sets the pairs when the library is loaded.
extern plat::Operators_t g_ForeignOperators;

/// Whether a foreign operator calls the library's in turn, for some blocks or for all.
extern bool g_bForeignPassesOn;

/// Sets g_ForeignOperators and g_bForeignPassesOn, and reports foreign operators in one line. Requires that the heap is
/// not tracked yet.
void MemoryBindOperators();

/// Returns whether no counter of the debug heap is negative and the categories add up to the totals. False is not yet a
/// fault: then MemoryCheckConsistency decides. Requires that the thread holds g_CategoryLock.
bool MemoryCountersAddUp();

/// Writes an allocation to the call log, except the log's own. Requires that the thread holds g_CategoryLock.
ZQ_COLD void MemoryNewLogRecord(plat::HeapBlock_t const & Block, mem::Categories_e eCategory);

// Each of the two heaps, the debug heap and the heap of a shipped game, has these in its own sources.

/// Start and stop what the heap does while it is tracked.
void MemoryHeapStart();
void MemoryHeapStop();

/// Ends what the heap keeps for the calling thread.
void MemoryHeapThreadEnd();

/// Returns whether a pointer to a block, or to memory of another heap, is a live block of this heap. It is safe
/// for any pointer. The heap of a shipped game may return true for a block that was freed.
bool MemoryIsOwnBlock(void const * pBlock);

/// Allocate a block of category NORMAL_BLOCK and return it, and release one.
void * MemoryAllocNormal(std::size_t nBytes, char const * szFile, int iLine);
void MemoryFreeNormal(void * pBlock);

/// Writes the size of a live aligned block to nBytes, as its caller requested it, and returns true. The heap of a
/// shipped game requires a live block. The debug heap reports any other pointer and returns false.
bool MemoryGetOwnSize(void * pUser, std::size_t & nBytes);

/// Returns the live bytes of a category. Acquires no lock, so a crash may call it.
std::ptrdiff_t MemoryBytesNow(mem::Categories_e eCategory);

/// Return and set whether each allocation is written to the call log.
bool MemoryNewLogIsOn();
void MemoryNewLogSet(bool bOn);

/// Returns the number of frames that have ended.
int MemoryFrame();

/// Writes what a snapshot lists, all to pAll and what has no category to pUndefined, and returns the tally. Each file
/// may be null. Requires that the debug heap does not change meanwhile.
MemoryTally_s MemoryWriteBlocks(std::FILE * pAll, std::FILE * pUndefined);

// Both heaps share these.

/// Ends what the allocator keeps for the calling thread. It is the one function that the allocator registers with
/// plat::ThreadCallAtEnd.
void MemoryThreadEnd();

/// Ends in Abort, which names the bytes that could not be allocated. Returns false in a `new` with std::nothrow.
bool MemoryOnExhausted(std::size_t nBytes);

/// Reports why an alignment is refused, sets errno to EINVAL and returns false.
ZQ_COLD bool MemoryRefuseAlignment(char const * szReason);

/// Checks the alignment and the offset of a block, and returns whether both are valid. If not, does what
/// MemoryRefuseAlignment does.
inline bool MemoryMayAlign(std::size_t nSize, std::size_t nAlignment, std::size_t nOffset)
{
    if (nAlignment == 0 || (nAlignment & (nAlignment - 1)) != 0)
    {
        return MemoryRefuseAlignment("alignment must be a power of 2");
    }
    return nOffset == 0 || nOffset < nSize || MemoryRefuseAlignment("offset must be within size");
}

/// Returns the number of bytes between a header, which ends at a multiple of nUnit, and the caller's bytes: the low
/// bits of the caller's pointer.
inline std::size_t MemoryGapOf(std::size_t nOffset, std::size_t nUnit)
{
    return (0 - nOffset) & (nUnit - 1);
}

/// Returns the address of the caller's bytes in a block. It is nOffset bytes before an aligned address. A header of
/// nHeader bytes and the gap fit before it.
inline std::uintptr_t MemoryPlaceIn(
    void const * pBlock, std::size_t nHeader, std::size_t nUnit, std::size_t nAlignment, std::size_t nOffset)
{
    auto const nFirst = reinterpret_cast<std::uintptr_t>(pBlock) + nHeader + MemoryGapOf(nOffset, nUnit) + nOffset;
    return ((nFirst + nAlignment - 1) & ~(nAlignment - 1)) - nOffset;
}

/// Writes the totals that end a report of live blocks. Without blocks the percentages are 0.
void MemoryWriteTally(std::FILE * pFile, MemoryTally_s const & Tally);

/// Returns the category in a block's word, or UNDEFINED if it has no valid one.
inline mem::Categories_e MemoryCategoryInWord(std::uint32_t dwWord)
{
    std::uint32_t const iCategory = (dwWord >> MEMORY_CATEGORY_SHIFT) & MEMORY_CATEGORY_MASK;
    return iCategory < mem::TOTAL ? static_cast<mem::Categories_e>(iCategory) : mem::UNDEFINED;
}

/// Returns the category under which a block of this word is counted. Blocks under mem::CRT are not counted.
inline mem::Categories_e MemoryCountedCategory(std::uint32_t dwWord)
{
    switch (dwWord & MEMORY_KIND_MASK)
    {
    case MEMORY_NORMAL_BLOCK:
        return mem::NORMAL_BLOCK;
    case MEMORY_CLIENT_BLOCK:
        return MemoryCategoryInWord(dwWord);
    default:
        return mem::CRT;
    }
}

/// Reports a kind above MEMORY_CLIENT_BLOCK, which no block has.
ZQ_COLD void MemoryReportKind(std::uint32_t iKind);

/// Returns the word of a new block, as MemoryBlockWord does.
inline std::uint32_t MemoryWordOf(int iBlockType)
{
    auto const dwWord = static_cast<std::uint32_t>(iBlockType);
    std::uint32_t const iKind = dwWord & MEMORY_KIND_MASK;
    if (iKind > MEMORY_CLIENT_BLOCK)
    {
        MemoryReportKind(iKind);
    }
    mem::Categories_e eCategory = iKind == MEMORY_NORMAL_BLOCK ? mem::UNDEFINED : MemoryCategoryInWord(dwWord);
    if (g_MemoryInit && eCategory == mem::UNDEFINED)
    {
        MemCategoryStack_c const * const pStack = t_MemoryStack.pStack;
        eCategory = pStack ? pStack->Top() : mem::UNDEFINED;
    }
    return (static_cast<std::uint32_t>(eCategory) & MEMORY_CATEGORY_MASK) << MEMORY_CATEGORY_SHIFT
           | (dwWord & MEMORY_OBJECT_FLAG) | static_cast<std::uint32_t>(MEMORY_CLIENT_BLOCK);
}
