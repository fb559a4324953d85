#include "platform/debugheap.h"

#include "platform/fork.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace plat
{
    constinit Lock_c g_HeapLock(4000);

    namespace
    {
        ForkLock_c const g_HeapForkLock(g_HeapLock);

        constexpr std::uint8_t FILL_NEW = 0xCD;
        constexpr std::uint8_t FILL_FREED = 0xDD;
        constexpr std::uint8_t FILL_GAP = 0xFD;
        constexpr std::size_t GAP = 4;
        constexpr int MAX_LEAKS_LISTED = 64;

        struct Link_s
        {
            Link_s * pPrev;
            Link_s * pNext;
        };

        // Stands in front of the user's bytes; its last bytes are the front gap.
        struct alignas(16) Header_s : Link_s
        {
            char const * szFile;
            std::size_t nBytes;
            std::uint32_t dwType;
            std::int32_t iLine;
            std::uint8_t dPadding[sizeof(void *) == 8 ? 20 : 4];
            std::uint8_t dGap[GAP];
        };
        static_assert(sizeof(Header_s) == (sizeof(void *) == 8 ? 64 : 32));

        constinit Link_s g_Live = { &g_Live, &g_Live };   // newest first
        constinit HeapHook_t g_fnHook = nullptr;
        constinit HeapFailure_t g_fnFailure = nullptr;
        constinit HeapDump_t g_fnDump = nullptr;
        constinit HeapReport_t g_fnReport = nullptr;
        constinit bool g_bLeakCheck = false;

        Header_s * HeaderOf(void const * pUser)
        {
            return static_cast<Header_s *>(const_cast<void *>(pUser)) - 1;
        }

        std::uint8_t * UserOf(Header_s * pHeader)
        {
            return reinterpret_cast<std::uint8_t *>(pHeader + 1);
        }

        void Fill(std::uint8_t * pBytes, std::uint8_t iValue, std::size_t nBytes)
        {
            if (nBytes <= HEAP_FILL_LIMIT)
            {
                std::memset(pBytes, iValue, nBytes);
                return;
            }
            std::memset(pBytes, iValue, HEAP_FILL_ENDS);
            std::memset(pBytes + nBytes - HEAP_FILL_ENDS, iValue, HEAP_FILL_ENDS);
        }

        bool IsGap(std::uint8_t const * pBytes)
        {
            constexpr std::uint32_t GAP_WORD = FILL_GAP * 0x01010101u;
            std::uint32_t iWord;
            static_assert(sizeof iWord == GAP);
            std::memcpy(&iWord, pBytes, sizeof iWord);
            return iWord == GAP_WORD;
        }

        HeapBlock_t Describe(Header_s * pHeader)
        {
            return { UserOf(pHeader), pHeader->nBytes, pHeader->dwType, pHeader->szFile, pHeader->iLine };
        }

        void LinkBlock(Header_s * pHeader)
        {
            pHeader->pPrev = &g_Live;
            pHeader->pNext = g_Live.pNext;
            g_Live.pNext->pPrev = pHeader;
            g_Live.pNext = pHeader;
        }

        void UnlinkBlock(Header_s * pHeader)
        {
            pHeader->pPrev->pNext = pHeader->pNext;
            pHeader->pNext->pPrev = pHeader->pPrev;
        }

        Header_s * TakeMemory(std::size_t nBytes)
        {
            constexpr std::size_t OVERHEAD = sizeof(Header_s) + GAP;
            for (;;)
            {
                void * const pMemory = nBytes <= SIZE_MAX - OVERHEAD ? std::malloc(nBytes + OVERHEAD) : nullptr;
                if (pMemory || !g_fnFailure || !g_fnFailure(nBytes))
                {
                    return static_cast<Header_s *>(pMemory);
                }
            }
        }

        // A block that is filled and described, but not yet known to the heap.
        Header_s * MakeBlock(std::size_t nBytes, std::uint32_t dwType, char const * szFile, int iLine)
        {
            Header_s * const pHeader = TakeMemory(nBytes);
            if (pHeader)
            {
                pHeader->szFile = szFile;
                pHeader->nBytes = nBytes;
                pHeader->dwType = dwType;
                pHeader->iLine = iLine;
                std::memset(pHeader->dGap, FILL_GAP, GAP);
                Fill(UserOf(pHeader), FILL_NEW, nBytes);
                std::memset(UserOf(pHeader) + nBytes, FILL_GAP, GAP);
            }
            return pHeader;
        }

        void GiveBack(Header_s * pHeader)
        {
            Fill(UserOf(pHeader), FILL_FREED, pHeader->nBytes);
            std::memset(pHeader->dGap, FILL_FREED, GAP);
            std::free(pHeader);
        }

        // False if the block must not be touched.
        bool CheckBlock(Header_s * pHeader)
        {
            if (!IsGap(pHeader->dGap))
            {
                HeapReport("The block at %p is damaged in front, or none of this heap's. It is not freed.\n",
                    static_cast<void *>(UserOf(pHeader)));
                return false;
            }
            if (!IsGap(UserOf(pHeader) + pHeader->nBytes))
            {
                HeapReport("Damage behind the block at %p of %zu bytes, taken at %s(%i).\n",
                    static_cast<void *>(UserOf(pHeader)), pHeader->nBytes,
                    pHeader->szFile ? pHeader->szFile : "unknown", pHeader->iLine);
            }
            return true;
        }

        // Runs behind the last destructor of the process. Blocks of a plain `new` have no place to name and are counted.
        __attribute__((destructor(101))) void ReportLeaks()
        {
            LockScope_c const Scope(g_HeapLock);   // threads that the exit does not stop still allocate
            if (!g_bLeakCheck || g_Live.pNext == &g_Live)
            {
                return;
            }
            int nBlocks = 0;
            int nKnown = 0;
            std::size_t nBytes = 0;
            for (Link_s * pLink = g_Live.pNext; pLink != &g_Live; pLink = pLink->pNext)
            {
                HeapBlock_t const Block = Describe(static_cast<Header_s *>(pLink));
                if (Block.szFile && nKnown++ < MAX_LEAKS_LISTED)
                {
                    HeapReport("Memory leak: %zu bytes at %p, word %08X, %s(%i)\n", Block.nBytes, Block.pUser,
                        Block.dwType, Block.szFile, Block.iLine);
                }
                if (g_fnDump)
                {
                    g_fnDump(Block);
                }
                ++nBlocks;
                nBytes += Block.nBytes;
            }
            HeapReport("Memory leaks: %i blocks, %zu bytes; %i of them of unknown source\n", nBlocks, nBytes,
                nBlocks - nKnown);
        }
    }

    void * HeapAlloc(std::size_t nBytes, std::uint32_t dwType, char const * szFile, int iLine)
    {
        Header_s * const pHeader = MakeBlock(nBytes, dwType, szFile, iLine);
        if (!pHeader)
        {
            return nullptr;
        }
        LockScope_c const Scope(g_HeapLock);
        if (g_fnHook)
        {
            g_fnHook(HeapEvent_e::Alloc, Describe(pHeader), nBytes);
        }
        LinkBlock(pHeader);
        return UserOf(pHeader);
    }

    void * HeapRealloc(void * pUser, std::size_t nBytes)
    {
        Header_s * const pOld = HeaderOf(pUser);
        if (!CheckBlock(pOld))
        {
            return nullptr;
        }
        Header_s * const pNew = MakeBlock(nBytes, pOld->dwType, pOld->szFile, pOld->iLine);
        if (!pNew)
        {
            return nullptr;
        }
        std::memcpy(UserOf(pNew), pUser, std::min(nBytes, pOld->nBytes));
        {
            LockScope_c const Scope(g_HeapLock);
            if (g_fnHook)
            {
                g_fnHook(HeapEvent_e::Realloc, Describe(pOld), nBytes);
            }
            UnlinkBlock(pOld);
            LinkBlock(pNew);
        }
        GiveBack(pOld);
        return UserOf(pNew);
    }

    void HeapFree(void * pUser)
    {
        if (!pUser)
        {
            return;
        }
        Header_s * const pHeader = HeaderOf(pUser);
        if (!CheckBlock(pHeader))
        {
            return;
        }
        {
            LockScope_c const Scope(g_HeapLock);
            if (g_fnHook)
            {
                g_fnHook(HeapEvent_e::Free, Describe(pHeader), pHeader->nBytes);
            }
            UnlinkBlock(pHeader);
        }
        GiveBack(pHeader);
    }

    std::size_t HeapBlockSize(void const * pUser)
    {
        return HeaderOf(pUser)->nBytes;
    }

    std::uint32_t HeapBlockType(void const * pUser)
    {
        return HeaderOf(pUser)->dwType;
    }

    bool HeapFindBlock(void const * pUser, HeapBlock_t & Block)
    {
        LockScope_c const Scope(g_HeapLock);
        for (Link_s * pLink = g_Live.pNext; pLink != &g_Live; pLink = pLink->pNext)
        {
            auto * const pHeader = static_cast<Header_s *>(pLink);
            if (UserOf(pHeader) == pUser)
            {
                Block = Describe(pHeader);
                return true;
            }
        }
        return false;
    }

    void HeapWalk(void (*fnVisit)(HeapBlock_t const & Block, void * pContext), void * pContext)
    {
        for (Link_s * pLink = g_Live.pNext; pLink != &g_Live;)
        {
            Link_s * const pNext = pLink->pNext;
            fnVisit(Describe(static_cast<Header_s *>(pLink)), pContext);
            pLink = pNext;
        }
    }

    void HeapSetHook(HeapHook_t fnHook)
    {
        g_fnHook = fnHook;
    }

    void HeapSetFailureHandler(HeapFailure_t fnFailure)
    {
        g_fnFailure = fnFailure;
    }

    void HeapSetDump(HeapDump_t fnDump)
    {
        g_fnDump = fnDump;
    }

    void HeapSetLeakCheck(bool bCheck)
    {
        g_bLeakCheck = bCheck;
    }

    void HeapReport(char const * szFormat, ...)
    {
        char szText[1024];
        std::va_list args;
        va_start(args, szFormat);
        std::vsnprintf(szText, sizeof szText, szFormat, args);
        va_end(args);
        if (g_fnReport)
        {
            g_fnReport(szText);
        }
        else
        {
            std::fputs(szText, stderr);
        }
    }

    HeapReport_t HeapReportSet(HeapReport_t fnReceiver)
    {
        HeapReport_t const fnFormer = g_fnReport;
        g_fnReport = fnReceiver;
        return fnFormer;
    }
}
