#include "zqcore/cmemory_internal.h"

#include "zqcore/ccallback_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/clog_internal.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cscope_internal.h"

#include "platform/debugger.h"
#include "platform/debugheap.h"
#include "platform/fork.h"
#include "platform/memory.h"
#include "platform/process.h"
#include "platform/threads.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <iterator>

constinit MemoryCounters_s g_MemoryCounters = {};
constinit std::atomic<bool> g_MemoryInit = false;
constinit plat::Lock_c & g_CategoryLock = plat::g_HeapLock;

namespace
{
#define ZQ_NAME(Name) #Name,
    constexpr char const * CATEGORY_NAMES[] = { ZQ_MEMORY_CATEGORIES(ZQ_NAME) "TOTAL" };
#undef ZQ_NAME
    static_assert(std::size(CATEGORY_NAMES) == mem::TOTAL + 1);

    constinit CategoryStacks_t g_Stacks;   // by the threads' numbers; under g_CategoryLock

    // A thread that pushes gets the lowest free number until it ends. The system's own thread numbers hardly ever
    // repeat, and stacks are never removed, so short threads would use them up.
    class ThreadNumbers_c
    {
    public:
        // Returns the lowest free number, or 0 if all are in use.
        std::uint32_t Allocate()
        {
            for (std::uint32_t i = 0; i < std::size(m_dFree); ++i)
            {
                if (m_dFree[i] != 0)
                {
                    auto const iBit = static_cast<std::uint32_t>(std::countr_zero(m_dFree[i]));
                    m_dFree[i] &= m_dFree[i] - 1;
                    return i * 64 + iBit + 1;
                }
            }
            return 0;
        }

        void Release(std::uint32_t nNumber) { m_dFree[(nNumber - 1) / 64] |= std::uint64_t{ 1 } << (nNumber - 1) % 64; }

        bool IsInUse(std::uint32_t nNumber) const
        {
            return (m_dFree[(nNumber - 1) / 64] >> (nNumber - 1) % 64 & 1) == 0;
        }

        static constexpr std::uint32_t COUNT = 128;

    private:
        std::uint64_t m_dFree[2] = { ~std::uint64_t{ 0 }, ~std::uint64_t{ 0 } };
    };
    constinit ThreadNumbers_c g_ThreadNumbers;   // under g_CategoryLock

    struct OwnStack_s
    {
        MemCategoryStack_c * pStack = nullptr;   // null if the thread never pushed
        std::uint32_t nNumber = 0;
        bool bComplaining = false;
    };
    ZQ_THREAD_LOCAL constinit OwnStack_s t_OwnStack;

    // At the end of a thread: empties its stack for the next thread that pushes.
    void LeaveOwnStack()
    {
        CategoryLockScope_c const Scope;
        *t_OwnStack.pStack = MemCategoryStack_c();
        g_ThreadNumbers.Release(t_OwnStack.nNumber);
        t_OwnStack = {};
    }

    // A forked child lacks the other threads: their stacks become free.
    void LeaveOtherStacks()
    {
        for (std::uint32_t nNumber = 1; nNumber <= ThreadNumbers_c::COUNT; ++nNumber)
        {
            if (nNumber != t_OwnStack.nNumber && g_ThreadNumbers.IsInUse(nNumber))
            {
                *g_Stacks.Find(nNumber) = MemCategoryStack_c();
                g_ThreadNumbers.Release(nNumber);
            }
        }
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, LeaveOtherStacks });

    // Allocates the stack of the lowest free number. Returns a HashAdd_e.
    int AllocateStack(OwnStack_s & Own)
    {
        CategoryLockScope_c const Scope;
        std::uint32_t const nNumber = g_ThreadNumbers.Allocate();
        int const iResult = nNumber != 0 ? g_Stacks.Add(MemCategoryStack_c(), nNumber) : HASH_FULL;
        if (iResult != HASH_FULL)
        {
            Own.pStack = g_Stacks.Find(nNumber);
            Own.nNumber = nNumber;
        }
        else if (nNumber != 0)
        {
            g_ThreadNumbers.Release(nNumber);
        }
        return iResult;
    }

    // A complaint may call code that pushes and pops in turn, such as a listener of the log.
    template <typename COMPLAIN>
    ZQ_COLD void ComplainOnce(COMPLAIN Complain)
    {
        if (!t_OwnStack.bComplaining)
        {
            ValueScope_T const Complaining(t_OwnStack.bComplaining, true);
            Complain();
        }
    }

    ZQ_COLD MemCategoryStack_c * AddOwnStack()
    {
        int const iResult = AllocateStack(t_OwnStack);
        if (t_OwnStack.pStack)
        {
            plat::ThreadAtEnd(LeaveOwnStack);
        }
        else
        {
            ComplainOnce(
                [iResult]
                {
                    Log("Could not push memory category. Result=%i\n", iResult);
                    ZQ_ASSERT_EX_TEXT(false, "iResult == 0", "Could not push memory category. See log for details");
                });
        }
        return t_OwnStack.pStack;
    }

    // Returns the category under which the hook counts a block.
    mem::Categories_e CountedCategory(std::uint32_t dwWord)
    {
        switch (dwWord & 0xFFFF)
        {
        case MEMORY_NORMAL_BLOCK:
            return mem::NORMAL_BLOCK;
        case MEMORY_CLIENT_BLOCK:
            return MemoryCategoryInWord(dwWord);
        default:
            return mem::CRT;
        }
    }

    // For numbers that are written under the lock and read without it.
    template <typename NUMBER>
    void AddUnderLock(std::atomic<NUMBER> & Number, NUMBER iChange)
    {
        Number.store(Number.load(std::memory_order_relaxed) + iChange, std::memory_order_relaxed);
    }

    void CountIn(mem::Categories_e eCategory, std::size_t nBytes)
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        auto const iBytes = static_cast<std::ptrdiff_t>(nBytes);
        Counters.dCount[eCategory] += 1;
        Counters.dMaxCount[eCategory] = std::max(Counters.dMaxCount[eCategory], Counters.dCount[eCategory]);
        Counters.dBytes[eCategory] += iBytes;
        Counters.dMaxBytes[eCategory] = std::max(Counters.dMaxBytes[eCategory], Counters.dBytes[eCategory]);
        AddUnderLock<std::ptrdiff_t>(Counters.iTotalCount, 1);
        AddUnderLock(Counters.iTotalBytes, iBytes);
        Counters.iMaxTotalBytes.store(std::max(Counters.iMaxTotalBytes.load(std::memory_order_relaxed),
                                          Counters.iTotalBytes.load(std::memory_order_relaxed)),
            std::memory_order_relaxed);
        Counters.nFrameAllocs += 1;
        Counters.dFrameAllocs[eCategory] += 1;
    }

    void CountOut(mem::Categories_e eCategory, std::size_t nBytes)
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        auto const iBytes = static_cast<std::ptrdiff_t>(nBytes);
        Counters.dCount[eCategory] -= 1;
        Counters.dBytes[eCategory] -= iBytes;
        AddUnderLock<std::ptrdiff_t>(Counters.iTotalCount, -1);
        AddUnderLock(Counters.iTotalBytes, -iBytes);
    }

    // The hook on the debug heap, which holds g_CategoryLock meanwhile.
    void CoreAllocHook(plat::HeapEvent_e eEvent, void * pUser, std::size_t nBytes, std::uint32_t dwType)
    {
        // Checks the state before this event: that memory was not written just before, so the processor reads it at
        // full speed. Both sides change by the same amounts below, so only the counter that changes can break the
        // balance.
        bool const bSoundBefore = MemoryCountersAddUp();
        mem::Categories_e const eCategory = CountedCategory(dwType);
        if (eCategory != mem::CRT)
        {
            if (eEvent == plat::HeapEvent_e::Free)
            {
                CountOut(eCategory, nBytes);
            }
            else
            {
                CountIn(eCategory, nBytes);
                if (g_MemoryCounters.bNewLogEnabled)
                {
                    MemoryNewLogRecord(plat::HeapDescribe(pUser), eCategory);
                }
            }
        }
        bool const bNegative = g_MemoryCounters.dCount[eCategory] < 0 || g_MemoryCounters.dBytes[eCategory] < 0;
        if (!bSoundBefore || bNegative)
        {
            FiringNoWait_c const NoWait;   // a receiver of another thread may wait for the heap's lock
            ZQ_ASSERT_TEXT(MemoryCheckConsistency(), "MemoryCheckConsistency()");
        }
    }

    // Returns whether the module of an object's class is still loaded: the table of its virtual functions and the first
    // of them can be read.
    bool IsClassLoaded(mem::Object_i const * pObject)
    {
        std::uintptr_t iTable;
        std::memcpy(&iTable, static_cast<void const *>(pObject), sizeof iTable);
        void const * pOperation = nullptr;
        return plat::MemoryRead(iTable, &pOperation, sizeof pOperation) == sizeof pOperation
               && plat::MemoryIsReadable(pOperation, 1);
    }

    // The line of the leak report for a block that describes itself.
    void CoreDumpHook(plat::HeapBlock_t const & Block)
    {
        if (!(Block.dwType & MEMORY_OBJECT_FLAG))
        {
            return;
        }
        std::uint32_t const blocktype = Block.dwType & 0xFFFF;
        ZQ_ASSERT_TEXT(blocktype == MEMORY_CLIENT_BLOCK, "blocktype == _CLIENT_BLOCK");
        ZQ_ASSERT_TEXT(sizeof(mem::Object_i) <= Block.nBytes, "sizeof ( mem::Object_i ) <= nBytes");
        if (auto const * const pObject =
                static_cast<mem::Object_i const *>(get_aligned_from_block(Block.pUser, MEMORY_ALIGNMENT, 0)))
        {
            char szDescription[256] = "object of an unloaded module";
            if (IsClassLoaded(pObject))
            {
                szDescription[0] = '\0';
                pObject->Describe(szDescription, sizeof szDescription);
            }
            plat::HeapReport("Memory object dump:\n%s\n", szDescription);
        }
    }

    char const * NameOfWord(std::uint32_t dwWord)
    {
        return MemoryCategoryName(MemoryCategoryInWord(dwWord));
    }

    constinit std::atomic<MemoryReport_t> g_fnReport = nullptr;
    constinit std::atomic<bool> g_bLeaving = false;   // the library's objects are destroyed

    // The receiver of the heap's reports.
    void CoreReport(char const * szText)
    {
        if (MemoryReport_t const fnReport = g_fnReport)
        {
            fnReport(szText);
        }
        else
        {
            std::fputs(szText, stderr);
            if (!std::strchr(szText, '\n'))
            {
                std::fputc('\n', stderr);
            }
        }
        char szLine[1024];
        std::snprintf(szLine, sizeof szLine, "%.*s", static_cast<int>(std::strcspn(szText, "\n")), szText);
        if (g_bLeaving)
        {
            LogWriteLate(szText);
        }
        else
        {
            ComplainOnce([&szLine] { LogText(szLine); });
        }
    }

    bool OnHeapExhausted(std::size_t nBytes)
    {
        Abort("Can't allocate additional %zu bytes", nBytes);
    }

    // Tracks the heap from the library's first constructor to its last destructor.
    struct MemoryLife_s
    {
        MemoryLife_s()
        {
            MemoryBindOperators();
            MemoryInit();
        }

        ~MemoryLife_s()
        {
            if (plat::ProcessOtherThreads() == 0)   // otherwise their blocks and categories are still counted
            {
                MemoryDone();
            }
            g_bLeaving = true;
        }
    };
    MemoryLife_s g_MemoryLife ZQ_FIRST_GLOBAL;
}

CategoryLockScope_c::CategoryLockScope_c()
    : m_bLocked(g_MemoryInit)
{
    if (m_bLocked)
    {
        g_CategoryLock.Enter();
    }
}

CategoryLockScope_c::~CategoryLockScope_c()
{
    if (m_bLocked)
    {
        g_CategoryLock.Leave();
    }
}

void MemCategoryStack_c::Add(mem::Categories_e category)
{
    ZQ_ASSERT_TEXT(top >= -1 && top < CATEGORY_STACK_DEPTH - 1, "top >= -1 && top < CATEGORY_STACK_DEPTH-1");
    if (top >= 0 && m_dStack[top].m_eCategory == category)
    {
        ++m_dStack[top].m_iCallCount;
    }
    else if (top < CATEGORY_STACK_DEPTH - 1)   // otherwise the developer ignored it; the deepest entry stays
    {
        m_dStack[++top] = Entry_s{ category, 1 };
    }
}

void MemCategoryStack_c::Remove(mem::Categories_e category)
{
    ZQ_ASSERT_TEXT(top < CATEGORY_STACK_DEPTH && top >= 0, "top < CATEGORY_STACK_DEPTH && top >= 0");
    if (top < 0)
    {
        return;
    }
    ZQ_ASSERT_TEXT(m_dStack[top].m_eCategory == category, "m_dStack[top].m_eCategory==category");
    ZQ_ASSERT_TEXT(m_dStack[top].m_iCallCount > 0, "m_dStack[top].m_iCallCount>0");
    if (--m_dStack[top].m_iCallCount == 0)
    {
        m_dStack[top--] = Entry_s{};
    }
}

mem::Categories_e MemCategoryStack_c::Top() const
{
    ZQ_ASSERT_TEXT(top >= -1 && top < CATEGORY_STACK_DEPTH, "top >= -1 && top < CATEGORY_STACK_DEPTH");
    return top < 0 ? mem::UNDEFINED : m_dStack[top].m_eCategory;
}

void MemoryInit()
{
    ZQ_ASSERT_TEXT(g_MemoryInit == false, "g_MemoryInit == false && \"ModuleDone expected\"");
    plat::HeapSetLeakCheck(true);
    plat::HeapSetFailureHandler(OnHeapExhausted);
    plat::HeapSetWordName(NameOfWord);
    plat::HeapSetDump(CoreDumpHook);
    plat::HeapReportSet(CoreReport);
    plat::HeapSetHook(CoreAllocHook);
    g_MemoryInit = true;
}

void MemoryDone()
{
    ZQ_ASSERT_TEXT(g_MemoryInit == true, "g_MemoryInit == true && \"ModuleInit expected\"");
    plat::HeapSetHook(nullptr);
    plat::HeapSetFailureHandler(nullptr);
    g_MemoryInit = false;
}

void MemoryCategoryPush(mem::Categories_e eCategory)
{
    ZQ_ASSERT(g_MemoryInit);
    MemCategoryStack_c * pStack = t_OwnStack.pStack;
    if (!pStack)
    {
        pStack = AddOwnStack();
    }
    if (pStack)
    {
        pStack->Add(eCategory);
    }
}

void MemoryCategoryPop(mem::Categories_e eCategory)
{
    MemCategoryStack_c * const pStack = t_OwnStack.pStack;
    if (pStack)
    {
        pStack->Remove(eCategory);
    }
    else
    {
        ComplainOnce([pStack] { ZQ_ASSERT(pStack); });
    }
}

char const * MemoryCategoryName(mem::Categories_e eCategory)
{
    return CATEGORY_NAMES[eCategory];
}

void MemoryCategoriesGet(
    mem::CategoryInfo * pInfo, std::ptrdiff_t & iAllocs, std::ptrdiff_t & iBytes, std::ptrdiff_t & iMaxBytes)
{
    CategoryLockScope_c const Scope;
    MemoryCounters_s const & Counters = g_MemoryCounters;
    for (int i = 0; i < mem::TOTAL; ++i)
    {
        pInfo[i] = { Counters.dCount[i], Counters.dMaxCount[i], Counters.dBytes[i], Counters.dMaxBytes[i],
            Counters.dLastFrameAllocs[i], Counters.dFrameAllocs[i] };
    }
    iAllocs = Counters.iTotalCount;
    iBytes = Counters.iTotalBytes;
    iMaxBytes = Counters.iMaxTotalBytes;
}

std::ptrdiff_t MemoryTotalAllocations()
{
    return g_MemoryCounters.iTotalCount.load(std::memory_order_relaxed);
}

std::ptrdiff_t MemoryTotalBytesAllocated()
{
    return g_MemoryCounters.iTotalBytes.load(std::memory_order_relaxed);
}

std::ptrdiff_t MemoryMaxTotalBytesAllocated()
{
    return g_MemoryCounters.iMaxTotalBytes.load(std::memory_order_relaxed);
}

std::uint32_t MemoryBlockWord(int iBlockType)
{
    auto const dwWord = static_cast<std::uint32_t>(iBlockType);
    std::uint32_t const iKind = dwWord & 0xFFFF;
    if (iKind > MEMORY_CLIENT_BLOCK)
    {
        plat::HeapReport("operator_new: %u is no kind of block\n", iKind);
    }
    mem::Categories_e eCategory = iKind == MEMORY_NORMAL_BLOCK ? mem::UNDEFINED : MemoryCategoryInWord(dwWord);
    if (g_MemoryInit && eCategory == mem::UNDEFINED)
    {
        MemCategoryStack_c const * const pStack = t_OwnStack.pStack;
        eCategory = pStack ? pStack->Top() : mem::UNDEFINED;
    }
    return (static_cast<std::uint32_t>(eCategory) << MEMORY_CATEGORY_SHIFT) | (dwWord & MEMORY_OBJECT_FLAG)
           | static_cast<std::uint32_t>(MEMORY_CLIENT_BLOCK);
}

MemoryReport_t MemoryReportSet(MemoryReport_t fnReceiver)
{
    return g_fnReport.exchange(fnReceiver);
}

namespace CoreMemory
{
    namespace
    {
        void * Allocate(std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
        {
            auto const iWord = static_cast<int>(MemoryBlockWord(iBlockType));
            void * const p = aligned_malloc_dbg(nBytes, nAlignment, iWord, sFile, iLine);
            if (!p)
            {
                char szText[512];
                std::snprintf(szText, sizeof szText, "Cannot allocate additional %zu bytes: file(%s)line(%d)\n", nBytes,
                    sFile ? sFile : "unknown", iLine);
                plat::DebugOutput(szText);
            }
            return p;
        }

        // Allocates from the process's own operator.
        template <typename... ALIGNMENT>
        ZQ_COLD void * AllocateForeign(
            plat::OperatorPair_T<ALIGNMENT...> const & Pair, std::size_t nBytes, ALIGNMENT... iAlignment)
        {
            try
            {
                return Pair.fnNew(nBytes, iAlignment...);
            }
            catch (std::bad_alloc const &)
            {
                if (g_MemoryInit)
                {
                    OnHeapExhausted(nBytes);
                }
                return nullptr;
            }
        }
    }

    void * operator_new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine)
    {
        plat::OperatorPair_T<> const & Foreign = g_ForeignOperators.Plain;
        return Foreign.fnNew ? AllocateForeign(Foreign, nBytes)
                             : Allocate(nBytes, MEMORY_ALIGNMENT, iBlockType, sFile, iLine);
    }

    void * operator_new_array(std::size_t nBytes, int iBlockType, char const * sFile, int iLine)
    {
        plat::OperatorPair_T<> const & Foreign = g_ForeignOperators.Array;
        return Foreign.fnNew ? AllocateForeign(Foreign, nBytes)
                             : Allocate(nBytes, MEMORY_ALIGNMENT, iBlockType, sFile, iLine);
    }

    void operator_delete(void * p)
    {
        plat::OperatorPair_T<> const & Foreign = g_ForeignOperators.Plain;
        if (Foreign.fnNew)
        {
            Foreign.fnDelete(p);
        }
        else
        {
            aligned_free_dbg(p);
        }
    }

    void operator_delete_array(void * p)
    {
        plat::OperatorPair_T<> const & Foreign = g_ForeignOperators.Array;
        if (Foreign.fnNew)
        {
            Foreign.fnDelete(p);
        }
        else
        {
            aligned_free_dbg(p);
        }
    }

    void * operator_new_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
    {
        auto const & Foreign = g_ForeignOperators.Aligned;
        return Foreign.fnNew ? AllocateForeign(Foreign, nBytes, std::align_val_t{ nAlignment })
                             : Allocate(nBytes, std::max(nAlignment, MEMORY_ALIGNMENT), iBlockType, sFile, iLine);
    }

    void * operator_new_array_aligned(
        std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
    {
        auto const & Foreign = g_ForeignOperators.AlignedArray;
        return Foreign.fnNew ? AllocateForeign(Foreign, nBytes, std::align_val_t{ nAlignment })
                             : Allocate(nBytes, std::max(nAlignment, MEMORY_ALIGNMENT), iBlockType, sFile, iLine);
    }

    void operator_delete_aligned(void * p, std::size_t nAlignment)
    {
        auto const & Foreign = g_ForeignOperators.Aligned;
        if (Foreign.fnNew)
        {
            Foreign.fnDelete(p, std::align_val_t{ nAlignment });
        }
        else
        {
            aligned_free_dbg(p);
        }
    }

    void operator_delete_array_aligned(void * p, std::size_t nAlignment)
    {
        auto const & Foreign = g_ForeignOperators.AlignedArray;
        if (Foreign.fnNew)
        {
            Foreign.fnDelete(p, std::align_val_t{ nAlignment });
        }
        else
        {
            aligned_free_dbg(p);
        }
    }
}
