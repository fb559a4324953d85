// The heap of a shipped game: the C library's memory, counted without a lock.
//
// A header of 16 bytes lies before each block. Each thread counts in figures of its own, which only it writes. A reader
// adds up those of all threads. Figures are never freed: a thread that starts continues those of one that has ended.
#include "zqcore/cmemory_internal.h"
#include "zqcore/cmemoryreport.h"

#include "platform/fork.h"
#include "platform/memory.h"
#include "platform/threads.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

// A number that any thread reads. In a thread's own figures only that thread writes it.
using Figure_t = std::atomic<std::ptrdiff_t>;

// Figures of one category. The size of the structure is a power of 2, so that an index costs a shift.
struct alignas(4 * sizeof(Figure_t)) CategoryFigures_s
{
    Figure_t nAllocs;
    Figure_t nFrees;
    Figure_t iBytes;
};

// Figures of one thread, in a list that only grows.
struct MemoryFigures_s
{
    CategoryFigures_s dCategories[mem::TOTAL];
    std::ptrdiff_t iPublished = 0;   // this thread's part of g_iPublished
    MemoryFigures_s * pNext;
    std::atomic<bool> bInUse;   // whether a thread counts here
};

namespace
{
    constexpr std::size_t UNIT = MEMORY_ALIGNMENT;   // bytes of a header, and the least alignment

    // Header of a block. It ends at the address of the caller's bytes, rounded down to a multiple of 16.
    struct alignas(UNIT) Header_s
    {
        std::size_t nBytes;   // the caller's bytes
        std::uint16_t iCategory;
        std::uint16_t iMark;     // HEADER_MARK
        std::uint32_t nBefore;   // bytes from the C library's block to the caller's
    };
    static_assert(sizeof(Header_s) == UNIT);
    constexpr std::uint16_t HEADER_MARK = 0x5A51;   // of the headers of this heap

    Header_s * HeaderOf(void const * pUser)
    {
        auto const nAddress = reinterpret_cast<std::uintptr_t>(pUser) & ~std::uintptr_t{ UNIT - 1 };
        return reinterpret_cast<Header_s *>(nAddress) - 1;
    }

    char * UserPointer(void * pBlock, std::size_t nAlignment, std::size_t nOffset)
    {
        return reinterpret_cast<char *>(MemoryPlaceIn(pBlock, UNIT, UNIT, nAlignment, nOffset));
    }

    // Changes a figure that no other thread writes.
    void Add(Figure_t & Figure, std::ptrdiff_t iChange)
    {
        Figure.store(Figure.load(std::memory_order_relaxed) + iChange, std::memory_order_relaxed);
    }

    // A thread publishes the bytes of a block above LARGE at once. It publishes other bytes if they have changed by
    // LARGE or more since it last did. The check runs:
    // - after every MEMORY_PUBLISH_INTERVAL allocations of a category, and after as many releases.
    // - at the thread's end.
    constexpr std::ptrdiff_t LARGE = 4096;   // bytes

    constinit MemoryFigures_s g_Shared = {};   // of threads that have ended their own figures, or have none
    constinit std::atomic<MemoryFigures_s *> g_pFigures = &g_Shared;
    alignas(ZQ_CACHE_LINE) constinit Figure_t g_iPublished = 0;   // apart from what each allocation reads
    constinit Figure_t g_iPeak = 0;
    alignas(ZQ_CACHE_LINE) constinit std::atomic<bool> g_bNewLog = false;

    // The figures at the ends of frames, and the peaks that readers have seen. g_CategoryLock guards them.
    struct Seen_s
    {
        std::ptrdiff_t nFrameStart;    // allocations before this frame
        std::ptrdiff_t nFrameBefore;   // allocations before the previous frame
        std::ptrdiff_t nMaxCount;
        std::ptrdiff_t nMaxBytes;
    };
    constinit Seen_s g_dSeen[mem::TOTAL] = {};
    constinit std::atomic<unsigned> g_nLastFrameAllocs = 0;
    constinit int g_iFrame = 0;

    ZQ_THREAD_LOCAL constinit bool t_bLeft = false;   // whether the thread has ended its figures

    void RaisePeak(std::ptrdiff_t iBytes)
    {
        std::ptrdiff_t iPeak = g_iPeak.load(std::memory_order_relaxed);
        while (iBytes > iPeak && !g_iPeak.compare_exchange_weak(iPeak, iBytes, std::memory_order_relaxed))
        {}
    }

    // Returns the bytes of all categories except mem::CRT.
    std::ptrdiff_t BytesOf(MemoryFigures_s const & Figures)
    {
        std::ptrdiff_t iBytes = -Figures.dCategories[mem::CRT].iBytes.load(std::memory_order_relaxed);
        for (CategoryFigures_s const & Category : Figures.dCategories)
        {
            iBytes += Category.iBytes.load(std::memory_order_relaxed);
        }
        return iBytes;
    }

    // Adds a change to the published bytes of all threads, and raises the peak to the sum.
    void AddPublished(std::ptrdiff_t iChange)
    {
        RaisePeak(g_iPublished.fetch_add(iChange, std::memory_order_relaxed) + iChange);
    }

    // Publishes the change of a block above LARGE, unless its category is mem::CRT.
    ZQ_COLD void PublishBlock(MemoryFigures_s & Figures, int iCategory, std::ptrdiff_t iChange)
    {
        if (iCategory != mem::CRT)
        {
            Figures.iPublished += iChange;
            AddPublished(iChange);
        }
    }

    // Publishes the change of a thread's bytes since it last did. A change below LARGE waits.
    ZQ_COLD void Publish(MemoryFigures_s & Figures)
    {
        std::ptrdiff_t const iChange = BytesOf(Figures) - Figures.iPublished;
        if (iChange > -LARGE && iChange < LARGE)
        {
            return;
        }
        Figures.iPublished += iChange;
        AddPublished(iChange);
    }

    // Releases the figures of the threads that a forked child lacks, for its new ones.
    void LeaveOtherFigures()
    {
        for (MemoryFigures_s * pFigures = g_pFigures; pFigures != &g_Shared; pFigures = pFigures->pNext)
        {
            if (pFigures != t_MemoryStack.pFigures)
            {
                pFigures->bInUse = false;
            }
        }
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, LeaveOtherFigures });

    // Claims figures that a thread has ended and returns them, or null if there are none.
    MemoryFigures_s * ReuseFigures()
    {
        for (MemoryFigures_s * pFree = g_pFigures.load(std::memory_order_acquire); pFree != &g_Shared;
             pFree = pFree->pNext)
        {
            if (!pFree->bInUse.load(std::memory_order_relaxed)
                && !pFree->bInUse.exchange(true, std::memory_order_acquire))
            {
                return pFree;
            }
        }
        return nullptr;
    }

    // Adds claimed figures to the list and returns them, or null if there is no memory.
    MemoryFigures_s * AddFigures()
    {
        auto * const pFigures = static_cast<MemoryFigures_s *>(std::calloc(1, sizeof(MemoryFigures_s)));
        if (pFigures)
        {
            pFigures->bInUse = true;
            pFigures->pNext = g_pFigures.load(std::memory_order_relaxed);
            while (!g_pFigures.compare_exchange_weak(pFigures->pNext, pFigures, std::memory_order_release))
            {}
        }
        return pFigures;
    }

    // Claims figures for the thread and returns them. Returns null if it has ended its own or there is no memory.
    ZQ_COLD MemoryFigures_s * ClaimFigures()
    {
        if (t_bLeft)
        {
            return nullptr;
        }
        MemoryFigures_s * const pFree = ReuseFigures();
        t_MemoryStack.pFigures = pFree ? pFree : AddFigures();
        if (t_MemoryStack.pFigures)
        {
            plat::ThreadCallAtEnd(MemoryThreadEnd);
        }
        return t_MemoryStack.pFigures;
    }

    // Counts for a thread without figures.
    ZQ_COLD void CountShared(int iCategory, Figure_t CategoryFigures_s::*pEvents, std::ptrdiff_t iBytes)
    {
        CategoryFigures_s & Category = g_Shared.dCategories[iCategory];
        (Category.*pEvents).fetch_add(1, std::memory_order_relaxed);
        Category.iBytes.fetch_add(iBytes, std::memory_order_relaxed);
        if (iCategory != mem::CRT)
        {
            AddPublished(iBytes);
        }
    }

    // Counts an event of a block of nBytes, and the change of the live bytes.
    ZQ_INLINE void Count(MemoryFigures_s & Figures, int iCategory, Figure_t CategoryFigures_s::*pEvents,
        std::size_t nBytes, std::ptrdiff_t iChange)
    {
        CategoryFigures_s & Category = Figures.dCategories[iCategory];
        std::ptrdiff_t const nEvents = (Category.*pEvents).load(std::memory_order_relaxed) + 1;
        (Category.*pEvents).store(nEvents, std::memory_order_relaxed);
        Add(Category.iBytes, iChange);
        if (nBytes > std::size_t{ LARGE }) [[unlikely]]
        {
            PublishBlock(Figures, iCategory, iChange);
        }
        if (nEvents % MEMORY_PUBLISH_INTERVAL == 0)
        {
            Publish(Figures);
        }
    }

    ZQ_INLINE void CountIn(MemoryFigures_s & Figures, int iCategory, std::size_t nBytes)
    {
        Count(Figures, iCategory, &CategoryFigures_s::nAllocs, nBytes, static_cast<std::ptrdiff_t>(nBytes));
    }

    ZQ_INLINE void CountOut(MemoryFigures_s & Figures, int iCategory, std::size_t nBytes)
    {
        Count(Figures, iCategory, &CategoryFigures_s::nFrees, nBytes, -static_cast<std::ptrdiff_t>(nBytes));
    }

    // Counts a release on a thread that may have no figures.
    ZQ_COLD void CountOutSlowly(int iCategory, std::size_t nBytes)
    {
        if (MemoryFigures_s * const pFigures = t_MemoryStack.pFigures ? t_MemoryStack.pFigures : ClaimFigures())
        {
            CountOut(*pFigures, iCategory, nBytes);
        }
        else
        {
            CountShared(iCategory, &CategoryFigures_s::nFrees, -static_cast<std::ptrdiff_t>(nBytes));
        }
    }

    // Sums of all threads. While other threads allocate, the figures are of slightly different moments.
    struct Sums_s
    {
        std::ptrdiff_t nAllocs = 0;
        std::ptrdiff_t nFrees = 0;
        std::ptrdiff_t iBytes = 0;
    };

    Sums_s SumOf(int iCategory)
    {
        Sums_s Sums;
        MemoryFigures_s const * pFigures = g_pFigures.load(std::memory_order_acquire);
        for (; pFigures; pFigures = pFigures->pNext)
        {
            CategoryFigures_s const & Category = pFigures->dCategories[iCategory];
            Sums.nFrees += Category.nFrees.load(std::memory_order_relaxed);
            Sums.nAllocs += Category.nAllocs.load(std::memory_order_relaxed);
            Sums.iBytes += Category.iBytes.load(std::memory_order_relaxed);
        }
        return Sums;
    }

    // Calls fnVisit(category, sums) for each category except mem::CRT.
    template <typename VISIT>
    void VisitCategories(VISIT fnVisit)
    {
        for (int i = 0; i < mem::TOTAL; ++i)
        {
            if (i != mem::CRT)
            {
                fnVisit(static_cast<mem::Categories_e>(i), SumOf(i));
            }
        }
    }

    // Returns the category of a new block, as MemoryBlockWord selects it while the heap is tracked.
    ZQ_INLINE int CategoryOf(int iBlockType)
    {
        auto const dwWord = static_cast<std::uint32_t>(iBlockType);
        if ((dwWord & MEMORY_KIND_MASK) != MEMORY_NORMAL_BLOCK && MemoryCategoryInWord(dwWord) != mem::UNDEFINED)
        {
            return MemoryCategoryInWord(dwWord);
        }
        MemCategoryStack_c const * const pStack = t_MemoryStack.pStack;
        int const iTop = pStack && pStack->top >= 0 ? pStack->m_dStack[pStack->top].m_eCategory : mem::UNDEFINED;
        return static_cast<unsigned>(iTop) < mem::TOTAL ? iTop : mem::UNDEFINED;
    }

    // Writes the header of a new block and returns the caller's bytes.
    ZQ_INLINE void * WriteHeader(void * pBlock, char * pUser, std::size_t nBytes, int iCategory)
    {
        *HeaderOf(pUser) = { nBytes, static_cast<std::uint16_t>(iCategory), HEADER_MARK,
            static_cast<std::uint32_t>(pUser - static_cast<char *>(pBlock)) };
        return pUser;
    }

    // Does what MemoryOnExhausted does if the heap is tracked, and returns null.
    void * ReportNoMemory(std::size_t nBytes)
    {
        if (g_MemoryInit)
        {
            MemoryOnExhausted(nBytes);
        }
        return nullptr;
    }

    // Counts an allocation on a thread that may have no figures.
    void CountInSlowly(int iCategory, std::size_t nBytes)
    {
        MemoryFigures_s * const pFigures = t_MemoryStack.pFigures ? t_MemoryStack.pFigures : ClaimFigures();
        if (!pFigures)
        {
            CountShared(iCategory, &CategoryFigures_s::nAllocs, static_cast<std::ptrdiff_t>(nBytes));
            return;
        }
        CountIn(*pFigures, iCategory, nBytes);
    }

    void RecordCall(void * pUser, std::size_t nBytes, int iCategory, char const * szFile, int iLine)
    {
        plat::HeapBlock_t Block;
        Block.pUser = pUser;
        Block.nBytes = nBytes;
        Block.szFile = szFile;
        Block.iLine = iLine;
        plat::LockScope_c const Scope(g_CategoryLock);
        MemoryNewLogRecord(Block, static_cast<mem::Categories_e>(iCategory));
    }

    // Allocates a block of any alignment and size, on any thread, and returns the caller's bytes. On failure does what
    // ReportNoMemory does.
    ZQ_COLD void * AllocateSlowly(
        std::size_t nBytes, std::size_t nAlignment, std::size_t nOffset, int iCategory, char const * szFile, int iLine)
    {
        nAlignment = std::max(nAlignment, UNIT);
        bool const bNatural = nAlignment == UNIT && nOffset == 0;   // malloc aligns so
        std::size_t const nExtra = bNatural ? UNIT : nAlignment - 1 + UNIT + MemoryGapOf(nOffset, UNIT);
        bool const bFits = nExtra <= std::numeric_limits<std::uint32_t>::max() && nBytes <= SIZE_MAX - nExtra;
        void * const pBlock = bFits ? std::malloc(nBytes + nExtra) : nullptr;
        if (!pBlock)
        {
            return ReportNoMemory(nBytes);
        }
        void * const pUser = WriteHeader(pBlock, UserPointer(pBlock, nAlignment, nOffset), nBytes, iCategory);
        CountInSlowly(iCategory, nBytes);
        if (g_bNewLog && iCategory != mem::CRT)
        {
            RecordCall(pUser, nBytes, iCategory, szFile, iLine);
        }
        return pUser;
    }

    static_assert(alignof(std::max_align_t) >= UNIT);

    // Allocates a block, usually on the fast path, and returns the caller's bytes. The fast path counts first, so that
    // few values must survive the call of malloc. On failure does what ReportNoMemory does.
    ZQ_INLINE void * HeapNew(std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * szFile, int iLine)
    {
        int const iCategory = CategoryOf(iBlockType);
        MemoryFigures_s * const pFigures = t_MemoryStack.pFigures;
        if (nAlignment != UNIT || nBytes > std::size_t{ LARGE } || !pFigures
            || g_bNewLog.load(std::memory_order_relaxed)) [[unlikely]]
        {
            return AllocateSlowly(nBytes, nAlignment, 0, iCategory, szFile, iLine);
        }
        CountIn(*pFigures, iCategory, nBytes);
        auto * const pHeader = static_cast<Header_s *>(std::malloc(nBytes + UNIT));
        if (!pHeader) [[unlikely]]
        {
            CountOutSlowly(iCategory, nBytes);
            return ReportNoMemory(nBytes);
        }
        *pHeader = { nBytes, static_cast<std::uint16_t>(iCategory), HEADER_MARK, UNIT };
        return pHeader + 1;
    }

    ZQ_COLD void FreeShifted(void * pUser, std::uint32_t nBefore)
    {
        std::free(static_cast<char *>(pUser) - nBefore);
    }

    ZQ_INLINE void HeapDelete(void * pUser)
    {
        if (!pUser)
        {
            return;
        }
        // Reads field by field: a wide read would wait until the narrow writes of a new block have reached the cache.
        Header_s const volatile & Header = *HeaderOf(pUser);
        std::size_t const nBytes = Header.nBytes;
        int const iCategory = Header.iCategory;
        std::uint32_t const nBefore = Header.nBefore;
        if (MemoryFigures_s * const pFigures = t_MemoryStack.pFigures) [[likely]]
        {
            CountOut(*pFigures, iCategory, nBytes);
        }
        else
        {
            CountOutSlowly(iCategory, nBytes);
        }
        if (nBefore == UNIT) [[likely]]   // predicted, so the call does not wait for the header
        {
            std::free(static_cast<char *>(pUser) - UNIT);
        }
        else
        {
            FreeShifted(pUser, nBefore);
        }
    }
}

void * aligned_offset_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, std::size_t nOffset, int iBlockType, char const * sFile, int iLine)
{
    int const iCategory = MemoryCountedCategory(static_cast<std::uint32_t>(iBlockType));
    return MemoryMayAlign(nSize, nAlignment, nOffset)
               ? AllocateSlowly(nSize, nAlignment, nOffset, iCategory, sFile, iLine)
               : nullptr;
}

void aligned_free_dbg(void * p)
{
    HeapDelete(p);
}

void * get_block_from_aligned(void * p)
{
    return p ? static_cast<char *>(p) - HeaderOf(p)->nBefore : nullptr;
}

void * get_aligned_from_block(void * pBlock, std::size_t nAlignment, std::size_t nOffset)
{
    return pBlock ? UserPointer(pBlock, std::max(nAlignment, UNIT), nOffset) : nullptr;
}

bool MemoryGetOwnSize(void * pUser, std::size_t & nBytes)
{
    nBytes = HeaderOf(pUser)->nBytes;
    return true;
}

bool MemoryIsOwnBlock(void const * pBlock)
{
    Header_s Header;   // memory of another heap has none
    auto const nHeader = reinterpret_cast<std::uintptr_t>(HeaderOf(pBlock));
    return plat::MemoryReadObject(nHeader, Header) && Header.iMark == HEADER_MARK && Header.iCategory < mem::TOTAL
           && Header.nBefore >= UNIT;
}

void * MemoryAllocNormal(std::size_t nBytes, char const * szFile, int iLine)
{
    return aligned_malloc_dbg(nBytes, UNIT, MEMORY_NORMAL_BLOCK, szFile, iLine);
}

void MemoryFreeNormal(void * pBlock)
{
    aligned_free_dbg(pBlock);
}

void MemoryHeapStart() {}

void MemoryHeapStop() {}

void MemoryHeapThreadEnd()
{
    if (MemoryFigures_s * const pFigures = std::exchange(t_MemoryStack.pFigures, nullptr))
    {
        t_bLeft = true;
        Publish(*pFigures);
        pFigures->bInUse.store(false, std::memory_order_release);
    }
}

std::ptrdiff_t MemoryBytesNow(mem::Categories_e eCategory)
{
    return eCategory == mem::CRT ? 0 : SumOf(eCategory).iBytes;
}

void MemoryCategoriesGet(
    mem::CategoryInfo * pInfo, std::ptrdiff_t & iAllocs, std::ptrdiff_t & iBytes, std::ptrdiff_t & iMaxBytes)
{
    CategoryLockScope_c const Scope;
    std::fill_n(pInfo, +mem::TOTAL, mem::CategoryInfo{});
    iAllocs = 0;
    iBytes = 0;
    VisitCategories(
        [&](mem::Categories_e eCategory, Sums_s const & Sums)
        {
            std::ptrdiff_t const nLive = Sums.nAllocs - Sums.nFrees;
            Seen_s & Seen = g_dSeen[eCategory];
            Seen.nMaxCount = std::max(Seen.nMaxCount, nLive);
            Seen.nMaxBytes = std::max(Seen.nMaxBytes, Sums.iBytes);
            pInfo[eCategory] = { nLive, Seen.nMaxCount, Sums.iBytes, Seen.nMaxBytes,
                Seen.nFrameStart - Seen.nFrameBefore, Sums.nAllocs - Seen.nFrameStart };
            iAllocs += nLive;
            iBytes += Sums.iBytes;
        });
    RaisePeak(iBytes);
    iMaxBytes = g_iPeak.load(std::memory_order_relaxed);
}

std::ptrdiff_t MemoryTotalAllocations()
{
    std::ptrdiff_t nLive = 0;
    VisitCategories([&nLive](mem::Categories_e, Sums_s const & Sums) { nLive += Sums.nAllocs - Sums.nFrees; });
    return nLive;
}

std::ptrdiff_t MemoryTotalBytesAllocated()
{
    std::ptrdiff_t iBytes = 0;
    MemoryFigures_s const * pFigures = g_pFigures.load(std::memory_order_acquire);
    for (; pFigures; pFigures = pFigures->pNext)
    {
        iBytes += BytesOf(*pFigures);
    }
    return iBytes;
}

std::ptrdiff_t MemoryMaxTotalBytesAllocated()
{
    RaisePeak(MemoryTotalBytesAllocated());
    return g_iPeak.load(std::memory_order_relaxed);
}

bool MemoryNewLogIsOn()
{
    return g_bNewLog;
}

void MemoryNewLogSet(bool bOn)
{
    g_bNewLog = bOn;
}

int MemoryFrame()
{
    return g_iFrame;
}

// This heap has no list of blocks, so the lines are those of categories.
MemoryTally_s MemoryWriteBlocks(std::FILE * pAll, std::FILE * pUndefined)
{
    MemoryTally_s Tally = {};
    VisitCategories(
        [pAll, pUndefined, &Tally](mem::Categories_e eCategory, Sums_s const & Sums)
        {
            auto const nLive = static_cast<int>(Sums.nAllocs - Sums.nFrees);
            if (nLive <= 0)
            {
                return;
            }
            if (pAll)
            {
                std::fprintf(pAll, "%td; %s; blocks(%i)\n", Sums.iBytes, MemoryCategoryName(eCategory), nLive);
            }
            if (pUndefined && eCategory == mem::UNDEFINED)
            {
                std::fprintf(pUndefined, "%td; blocks(%i)\n", Sums.iBytes, nLive);
            }
            Tally.nTotal += static_cast<std::size_t>(nLive);
        });
    return Tally;
}

bool MemoryCheckConsistency()
{
    bool bSound = true;
    VisitCategories([&bSound](mem::Categories_e, Sums_s const & Sums)
        { bSound = bSound && Sums.nAllocs >= Sums.nFrees && Sums.iBytes >= 0; });
    return bSound;
}

unsigned MemoryGetFrameAllocCount()
{
    return g_nLastFrameAllocs.load(std::memory_order_relaxed);
}

void MemoryResetFrameAllocCount()
{
    plat::LockScope_c const Scope(g_CategoryLock);
    std::ptrdiff_t nAllocs = 0;
    VisitCategories(
        [&nAllocs](mem::Categories_e eCategory, Sums_s const & Sums)
        {
            Seen_s & Seen = g_dSeen[eCategory];
            Seen.nFrameBefore = Seen.nFrameStart;
            Seen.nFrameStart = Sums.nAllocs;
            nAllocs += Sums.nAllocs - Seen.nFrameBefore;
        });
    g_nLastFrameAllocs.store(static_cast<unsigned>(nAllocs), std::memory_order_relaxed);
    ++g_iFrame;
}

void MemoryAbort() {}

#include "zqcore/cmemory_operators.inl"
