#include "zqcore/cmemory_internal.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/cmemoryreport.h"

#include "platform/debugger.h"
#include "platform/debugheap.h"
#include "platform/fork.h"
#include "platform/threads.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <iterator>

constinit MemoryCounters_s g_MemoryCounters = {};
constinit bool g_MemoryInit = false;
constinit plat::Lock_c & g_CategoryLock = plat::g_HeapLock;

namespace
{
    constexpr std::size_t ALIGNMENT = 16;   // of every block of operator_new

    constexpr char const * CATEGORY_NAMES[] = { "UNDEFINED", "CRT", "NORMAL_BLOCK", "file", "logger", "GamePipes",
        "Rpg", "RpgText", "Net", "NetQueue", "Server", "ServerReplicatePool", "Client", "render", "rvb", "rtex",
        "Logic", "FMSound", "Particle", "rib", "kiln", "Frames", "Game", "rmesh", "rmeshinst", "rmesh_col", "animdata",
        "animinstance", "Building", "scene", "kilndebug", "Collision", "Noise", "GameData", "DataBase", "Sound", "calc",
        "rbMemObject", "ScaleForm", "FjordStudioRuntime", "WinMisc", "Core", "Input", "RenderFont", "DebugDraw",
        "SpotlitScene", "GameUI", "AI", "Lua", "Decals", "Application", "Localization", "DB", "GameServer", "GameLogic",
        "GameScripts", "GameWorld", "GameView", "Landscape", "GameRender", "Tools", "GameLogs", "Interface", "GFX",
        "Generator", "GameNetwork", "TOTAL" };
    static_assert(std::size(CATEGORY_NAMES) == mem::TOTAL + 1);

    constinit CategoryStacks_t g_Stacks;   // by the threads' numbers; under g_CategoryLock

    // A thread that pushes has the lowest number that is free, until it ends. The system's numbers hardly ever come
    // again, and stacks stay: short threads would use them up.
    class ThreadNumbers_c
    {
    public:
        /// 0 if all are taken.
        std::uint32_t Take()
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

        void Give(std::uint32_t nNumber) { m_dFree[(nNumber - 1) / 64] |= std::uint64_t{ 1 } << (nNumber - 1) % 64; }

        bool IsTaken(std::uint32_t nNumber) const
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

    // At the end of a thread: the next one to push finds an empty stack.
    void LeaveOwnStack()
    {
        CategoryLockScope_c const Scope;
        *t_OwnStack.pStack = MemCategoryStack_c();
        g_ThreadNumbers.Give(t_OwnStack.nNumber);
        t_OwnStack = {};
    }

    // The threads that a forked child lacks leave their stacks to it.
    void LeaveOtherStacks()
    {
        for (std::uint32_t nNumber = 1; nNumber <= ThreadNumbers_c::COUNT; ++nNumber)
        {
            if (nNumber != t_OwnStack.nNumber && g_ThreadNumbers.IsTaken(nNumber))
            {
                *g_Stacks.Find(nNumber) = MemCategoryStack_c();
                g_ThreadNumbers.Give(nNumber);
            }
        }
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, LeaveOtherStacks });

    // The stack of the lowest number that is free; a HashAdd_e.
    int TakeStack(OwnStack_s & Own)
    {
        CategoryLockScope_c const Scope;
        std::uint32_t const nNumber = g_ThreadNumbers.Take();
        int const iResult = nNumber != 0 ? g_Stacks.Add(MemCategoryStack_c(), nNumber) : HASH_FULL;
        if (iResult != HASH_FULL)
        {
            Own.pStack = g_Stacks.Find(nNumber);
            Own.nNumber = nNumber;
        }
        else if (nNumber != 0)
        {
            g_ThreadNumbers.Give(nNumber);
        }
        return iResult;
    }

    // What a complaint calls, a listener of the log say, may push and pop in turn.
    template <typename COMPLAIN>
    ZQ_COLD void ComplainOnce(COMPLAIN Complain)
    {
        if (!t_OwnStack.bComplaining)
        {
            t_OwnStack.bComplaining = true;
            Complain();
            t_OwnStack.bComplaining = false;
        }
    }

    ZQ_COLD MemCategoryStack_c * AddOwnStack()
    {
        int const iResult = TakeStack(t_OwnStack);
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

    // The category under which the hook counts a block.
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

    void CountIn(mem::Categories_e eCategory, std::size_t nBytes)
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        auto const iBytes = static_cast<std::ptrdiff_t>(nBytes);
        Counters.dCount[eCategory] += 1;
        Counters.dMaxCount[eCategory] = std::max(Counters.dMaxCount[eCategory], Counters.dCount[eCategory]);
        Counters.dBytes[eCategory] += iBytes;
        Counters.dMaxBytes[eCategory] = std::max(Counters.dMaxBytes[eCategory], Counters.dBytes[eCategory]);
        Counters.iTotalCount += 1;
        Counters.iTotalBytes += iBytes;
        Counters.iMaxTotalBytes = std::max(Counters.iMaxTotalBytes, Counters.iTotalBytes);
        Counters.nFrameAllocs += 1;
        Counters.dFrameAllocs[eCategory] += 1;
    }

    void CountOut(mem::Categories_e eCategory, std::size_t nBytes)
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        auto const iBytes = static_cast<std::ptrdiff_t>(nBytes);
        Counters.dCount[eCategory] -= 1;
        Counters.dBytes[eCategory] -= iBytes;
        Counters.iTotalCount -= 1;
        Counters.iTotalBytes -= iBytes;
    }

    // The hook on the debug heap, which holds g_CategoryLock meanwhile.
    void CoreAllocHook(plat::HeapEvent_e eEvent, plat::HeapBlock_t const & Block, std::size_t nNewBytes)
    {
        // Checked against memory that nobody wrote just now, which the processor reads at full speed. Both sides move
        // by the same amounts below, so only the counter that moves can break what held before.
        bool const bSoundBefore = MemoryCountersAddUp();
        mem::Categories_e const eCategory = CountedCategory(Block.dwType);
        if (eCategory != mem::CRT)
        {
            if (eEvent != plat::HeapEvent_e::Alloc)
            {
                CountOut(eCategory, Block.nBytes);
            }
            if (eEvent != plat::HeapEvent_e::Free)
            {
                CountIn(eCategory, nNewBytes);
                if (g_MemoryCounters.bNewLogEnabled)
                {
                    MemoryNewLogRecord(Block, eCategory, nNewBytes);
                }
            }
        }
        bool const bNegative = g_MemoryCounters.dCount[eCategory] < 0 || g_MemoryCounters.dBytes[eCategory] < 0;
        ZQ_ASSERT_TEXT((bSoundBefore && !bNegative) || MemoryCheckConsistency(), "MemoryCheckConsistency()");
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
                static_cast<mem::Object_i const *>(get_aligned_from_block(Block.pUser, ALIGNMENT, 0)))
        {
            char szDescription[256] = "";
            pObject->Describe(szDescription, sizeof szDescription);
            plat::HeapReport("Memory object dump:\n%s\n", szDescription);
        }
    }

    bool OnHeapExhausted(std::size_t nBytes)
    {
        Abort("Can't allocate additional %zu bytes", nBytes);
    }

    // Tracks the heap from the library's first constructor to its last destructor.
    struct MemoryLife_s
    {
        MemoryLife_s() { MemoryInit(); }
        ~MemoryLife_s() { MemoryDone(); }
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
    if (top == -1 || m_dStack[top].m_eCategory != category)
    {
        if (top >= CATEGORY_STACK_DEPTH - 1)
        {
            return;   // the developer went on; the deepest entry stays
        }
        m_dStack[++top] = Entry_s{ category, 0 };
    }
    ++m_dStack[top].m_iCallCount;
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
    plat::HeapSetDump(CoreDumpHook);
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
    return g_MemoryCounters.iTotalCount;
}

std::ptrdiff_t MemoryTotalBytesAllocated()
{
    return g_MemoryCounters.iTotalBytes;
}

std::ptrdiff_t MemoryMaxTotalBytesAllocated()
{
    return g_MemoryCounters.iMaxTotalBytes;
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

namespace CoreMemory
{
    void * operator_new(std::size_t nBytes, int iBlockType, char const * sFile, int iLine)
    {
        auto const iWord = static_cast<int>(MemoryBlockWord(iBlockType));
        void * const p = aligned_malloc_dbg(nBytes, ALIGNMENT, iWord, sFile, iLine);
        if (!p)
        {
            char szText[512];
            std::snprintf(szText, sizeof szText, "Cannot allocate additional %zu bytes: file(%s)line(%d)\n", nBytes,
                sFile ? sFile : "unknown", iLine);
            plat::DebugOutput(szText);
        }
        return p;
    }

    void * operator_new_array(std::size_t nBytes, int iBlockType, char const * sFile, int iLine)
    {
        return operator_new(nBytes, iBlockType, sFile, iLine);
    }

    void operator_delete(void * p)
    {
        aligned_free_dbg(p);
    }

    void operator_delete_array(void * p)
    {
        aligned_free_dbg(p);
    }
}
