#include "zqcore/cmemory_internal.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/clog_internal.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cscope_internal.h"

#include "platform/debugheap.h"
#include "platform/fork.h"
#include "platform/process.h"
#include "platform/threads.h"

#include <bit>
#include <cstdio>
#include <cstring>
#include <iterator>

constinit std::atomic<bool> g_MemoryInit = false;
ZQ_THREAD_LOCAL constinit MemoryStack_s t_MemoryStack;
constinit plat::Lock_c & g_CategoryLock = plat::g_HeapLock;

namespace
{
#define ZQ_NAME(Name) #Name,
    constexpr char const * CATEGORY_NAMES[] = { ZQ_MEMORY_CATEGORIES(ZQ_NAME) "TOTAL" };
#undef ZQ_NAME
    static_assert(std::size(CATEGORY_NAMES) == mem::TOTAL + 1);

    constinit CategoryStacks_t g_Stacks;   // by the threads' numbers; under g_CategoryLock

    // Numbers of the threads that push. Each gets the lowest free one at its first push and has it until it ends. The
    // system's own thread numbers hardly ever repeat, and stacks are never removed, so short threads would fill the
    // table.
    class ThreadNumbers_c
    {
    public:
        static constexpr std::uint32_t COUNT = CategoryStacks_t::iMask + 1;   // as many as g_Stacks has slots
        static constexpr std::uint32_t BITS = 64;                             // of a word of m_dFree

        // Marks the lowest free number as in use and returns it. Returns 0 if all are in use.
        std::uint32_t Allocate()
        {
            for (std::uint32_t i = 0; i < std::size(m_dFree); ++i)
            {
                if (m_dFree[i] != 0)
                {
                    auto const iBit = static_cast<std::uint32_t>(std::countr_zero(m_dFree[i]));
                    m_dFree[i] &= m_dFree[i] - 1;
                    return i * BITS + iBit + 1;
                }
            }
            return 0;
        }

        void Release(std::uint32_t iNumber)
        {
            m_dFree[(iNumber - 1) / BITS] |= std::uint64_t{ 1 } << (iNumber - 1) % BITS;
        }

        bool IsInUse(std::uint32_t iNumber) const
        {
            return (m_dFree[(iNumber - 1) / BITS] >> (iNumber - 1) % BITS & 1) == 0;
        }

    private:
        std::uint64_t m_dFree[COUNT / BITS] = { ~std::uint64_t{ 0 }, ~std::uint64_t{ 0 } };
    };
    constinit ThreadNumbers_c g_ThreadNumbers;   // under g_CategoryLock

    // Empties and releases the thread's stack, for the next thread that pushes.
    void LeaveOwnStack()
    {
        CategoryLockScope_c const Scope;
        *t_MemoryStack.pStack = MemCategoryStack_c();
        g_ThreadNumbers.Release(t_MemoryStack.iNumber);
        t_MemoryStack.pStack = nullptr;
        t_MemoryStack.iNumber = 0;
    }

    // Empties and releases the stacks of the other threads, which a forked child lacks.
    void LeaveOtherStacks()
    {
        for (std::uint32_t iNumber = 1; iNumber <= ThreadNumbers_c::COUNT; ++iNumber)
        {
            if (iNumber != t_MemoryStack.iNumber && g_ThreadNumbers.IsInUse(iNumber))
            {
                *g_Stacks.Find(iNumber) = MemCategoryStack_c();
                g_ThreadNumbers.Release(iNumber);
            }
        }
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, LeaveOtherStacks });

    // Allocates the stack of the lowest free number and returns a HashAdd_e.
    int AllocateStack(MemoryStack_s & Own)
    {
        CategoryLockScope_c const Scope;
        std::uint32_t const iNumber = g_ThreadNumbers.Allocate();
        int const iResult = iNumber != 0 ? g_Stacks.Add(MemCategoryStack_c(), iNumber) : HASH_FULL;
        if (iResult != HASH_FULL)
        {
            Own.pStack = g_Stacks.Find(iNumber);
            Own.iNumber = iNumber;
        }
        else if (iNumber != 0)
        {
            g_ThreadNumbers.Release(iNumber);
        }
        return iResult;
    }

    // Complains, unless a complaint of this thread runs: it may call code that pushes and pops in turn, such as a
    // listener of the log.
    template <typename COMPLAIN>
    ZQ_COLD void ComplainOnce(COMPLAIN fnComplain)
    {
        if (!t_MemoryStack.bComplaining)
        {
            ValueScope_T const Complaining(t_MemoryStack.bComplaining, true);
            fnComplain();
        }
    }

    // Allocates the thread's stack and returns it. Complains and returns null if there is no room.
    ZQ_COLD MemCategoryStack_c * AddOwnStack()
    {
        int const iResult = AllocateStack(t_MemoryStack);
        if (t_MemoryStack.pStack)
        {
            plat::ThreadCallAtEnd(MemoryThreadEnd);
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
        return t_MemoryStack.pStack;
    }

    char const * NameOfWord(std::uint32_t dwWord)
    {
        return MemoryCategoryName(MemoryCountedCategory(dwWord));
    }

    constinit std::atomic<MemoryReport_t> g_fnReport = nullptr;
    constinit std::atomic<bool> g_bLeaving = false;   // whether the library's global objects are destroyed

    // Passes a report of the heap to the receiver, or to standard error without one. Logs its first line, unless a
    // complaint of this thread runs. After the library's last destructor, logs all lines.
    void OnHeapReport(char const * szText)
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
        char szLine[LOG_LINE_SIZE];
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

    // Scope of the heap's tracking, from the library's first constructor to its last destructor.
    class MemoryLife_c
    {
    public:
        MemoryLife_c()
        {
            MemoryBindOperators();
            MemoryInit();
        }

        ~MemoryLife_c()
        {
            if (plat::ProcessOtherThreads() == 0)   // otherwise their blocks and categories are still counted
            {
                MemoryDone();
            }
            g_bLeaving = true;
        }
    };
    MemoryLife_c g_MemoryLife ZQ_FIRST_GLOBAL;
}

void MemoryThreadEnd()
{
    if (t_MemoryStack.pStack)
    {
        LeaveOwnStack();
    }
    MemoryHeapThreadEnd();
}

bool MemoryOnExhausted(std::size_t nBytes)
{
    if (!t_MemoryStack.bMayFail)
    {
        Abort("Can't allocate additional %zu bytes", nBytes);
    }
    return false;
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
    else if (top < CATEGORY_STACK_DEPTH - 1)   // otherwise the developer continues, and the top entry stays
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

void MemoryInit()
{
    ZQ_ASSERT_TEXT(g_MemoryInit == false, "g_MemoryInit == false && \"ModuleDone expected\"");
    plat::HeapSetWordName(NameOfWord);
    plat::HeapReportSet(OnHeapReport);
    MemoryHeapStart();
    g_MemoryInit = true;
}

void MemoryDone()
{
    ZQ_ASSERT_TEXT(g_MemoryInit == true, "g_MemoryInit == true && \"ModuleInit expected\"");
    MemoryHeapStop();
    g_MemoryInit = false;
}

void MemoryCategoryPush(mem::Categories_e eCategory)
{
    ZQ_ASSERT(g_MemoryInit);
    MemCategoryStack_c * pStack = t_MemoryStack.pStack;
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
    MemCategoryStack_c * const pStack = t_MemoryStack.pStack;
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

void MemoryReportKind(std::uint32_t iKind)
{
    plat::HeapReport("operator_new: %u is no kind of block\n", iKind);
}

std::uint32_t MemoryBlockWord(int iBlockType)
{
    return MemoryWordOf(iBlockType);
}

MemoryReport_t MemoryReportSet(MemoryReport_t fnReceiver)
{
    return g_fnReport.exchange(fnReceiver);
}
