#include "platform/debugheap.h"

#include "platform/bytes.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace plat
{
    namespace
    {
        constexpr std::size_t GAP = 4;      // bytes of the fence before a block, and the fewest of the one after it
        constexpr std::size_t FENCE = 16;   // most bytes right after the own bytes that are written and checked

        struct Link_s
        {
            Link_s * pPrev;
            Link_s * pNext;
        };

        // Facts of a block, stored before it. The last bytes are the front fence.
        struct alignas(16) Header_s : Link_s
        {
            char const * szFile;
            std::size_t nBytes;
            std::size_t nBefore;   // from the start of the block to the own bytes
            std::size_t nOwn;      // number of the own bytes
            std::uint32_t dwWord;
            std::int32_t iLine;
            std::uint8_t dPadding[sizeof(void *) == 8 ? 4 : 12];
            std::uint8_t dGap[GAP];
        };
        static_assert(sizeof(Header_s) == (sizeof(void *) == 8 ? 64 : 48));

        constinit Link_s g_Live = { &g_Live, &g_Live };   // newest first
        constinit std::atomic<HeapHook_t> g_fnHook = nullptr;
        constinit std::atomic<HeapFailure_t> g_fnFailure = nullptr;

        Header_s * HeaderOf(void const * pUser)
        {
            return static_cast<Header_s *>(const_cast<void *>(pUser)) - 1;
        }

        std::uint8_t * UserOf(Header_s * pHeader)
        {
            return reinterpret_cast<std::uint8_t *>(pHeader + 1);
        }

        std::uint8_t * OwnOf(Header_s * pHeader)
        {
            return UserOf(pHeader) + pHeader->nBefore;
        }

        // Returns the number of bytes from the end of the own bytes to the end of the block's memory.
        std::size_t FenceSize(Header_s const * pHeader)
        {
            return pHeader->nBytes - pHeader->nBefore - pHeader->nOwn + GAP;
        }

        void Fill(std::uint8_t * pBytes, std::uint8_t cValue, std::size_t nBytes)
        {
            if (nBytes <= HEAP_FILL_LIMIT)
            {
                std::memset(pBytes, cValue, nBytes);
                return;
            }
            std::memset(pBytes, cValue, HEAP_FILL_ENDS);
            std::memset(pBytes + nBytes - HEAP_FILL_ENDS, cValue, HEAP_FILL_ENDS);
        }

        // Returns whether all bytes of a word have this value.
        template <typename WORD>
        bool IsFilled(std::uint8_t const * pBytes, std::uint8_t cValue)
        {
            WORD Word;
            std::memcpy(&Word, pBytes, sizeof Word);
            return Word == static_cast<WORD>(EACH_BYTE * cValue);
        }

        bool IsGap(std::uint8_t const * pBytes)
        {
            static_assert(sizeof(std::uint32_t) == GAP);
            return IsFilled<std::uint32_t>(pBytes, HEAP_FENCE);
        }

        // Returns whether the fence after the own bytes is undamaged. Checks only the first FENCE bytes and the last
        // GAP bytes of a long one.
        bool IsFenceWhole(Header_s * pHeader)
        {
            std::uint8_t const * pByte = OwnOf(pHeader) + pHeader->nOwn;
            std::uint8_t const * const pEnd = UserOf(pHeader) + pHeader->nBytes;
            if (FenceSize(pHeader) >= FENCE)
            {
                static_assert(2 * sizeof(std::uint64_t) == FENCE);
                return IsFilled<std::uint64_t>(pByte, HEAP_FENCE)
                       && IsFilled<std::uint64_t>(pByte + FENCE / 2, HEAP_FENCE) && IsGap(pEnd);
            }
            while (pByte != pEnd && *pByte == HEAP_FENCE)
            {
                ++pByte;
            }
            return pByte == pEnd && IsGap(pEnd);
        }

        HeapBlock_t Describe(Header_s * pHeader)
        {
            return { UserOf(pHeader), pHeader->nBytes, pHeader->dwWord, pHeader->szFile, pHeader->iLine, OwnOf(pHeader),
                pHeader->nOwn };
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

        Header_s * AllocateMemory(std::size_t nBytes)
        {
            constexpr std::size_t OVERHEAD = sizeof(Header_s) + GAP;
            for (;;)
            {
                void * const pMemory = nBytes <= SIZE_MAX - OVERHEAD ? std::malloc(nBytes + OVERHEAD) : nullptr;
                if (pMemory)
                {
                    return static_cast<Header_s *>(pMemory);
                }
                HeapFailure_t const fnFailure = g_fnFailure;
                if (!fnFailure || !fnFailure(nBytes))
                {
                    return nullptr;
                }
            }
        }

        // Allocates a block, fills and describes it, and returns it. Does not list it. Returns null if there is no
        // memory.
        Header_s * MakeBlock(std::size_t nBytes, std::uint32_t dwWord, char const * szFile, int iLine)
        {
            Header_s * const pHeader = AllocateMemory(nBytes);
            if (!pHeader)
            {
                return nullptr;
            }
            pHeader->szFile = szFile;
            pHeader->nBytes = nBytes;
            pHeader->nBefore = 0;
            pHeader->nOwn = nBytes;
            pHeader->dwWord = dwWord;
            pHeader->iLine = iLine;
            std::memset(pHeader->dGap, HEAP_FENCE, GAP);
            Fill(UserOf(pHeader), HEAP_NEW, nBytes);
            std::memset(UserOf(pHeader) + nBytes, HEAP_FENCE, GAP);
            return pHeader;
        }

        void ReleaseMemory(Header_s * pHeader)
        {
            Fill(UserOf(pHeader), HEAP_FREED, pHeader->nBytes);
            std::memset(pHeader->dGap, HEAP_FREED, GAP);
            ZQ_KEEP_WRITES(pHeader);
            std::free(pHeader);
        }

        // Reports a block that was freed before, or whose front fence is damaged. Returns false, because the block must
        // not be touched.
        ZQ_COLD bool ReportFront(Header_s * pHeader)
        {
            if (IsFilled<std::uint32_t>(pHeader->dGap, HEAP_FREED))
            {
                HeapReportFreed(UserOf(pHeader));
                return false;
            }
            HeapReport("The block at 0x%08zX is damaged in front, or none of this heap's. It is not freed.\n",
                HeapAddressOf(UserOf(pHeader)));
            return false;
        }

        ZQ_COLD void ReportFence(HeapBlock_t const & Block)
        {
            char szFile[HEAP_FILE_SIZE];
            HeapFileName(Block, szFile, sizeof szFile);
            HeapReport("Damage after the block at 0x%08zX of %zu bytes, category %s, allocated at %s(%i).\n",
                HeapAddressOf(Block.pOwn), Block.nOwn, HeapWordName(Block.dwWord), szFile, Block.iLine);
        }

        // Reports damage of a block. Returns false if the block must not be touched.
        bool CheckBlock(Header_s * pHeader)
        {
            if (!IsGap(pHeader->dGap))
            {
                return ReportFront(pHeader);
            }
            if (!IsFenceWhole(pHeader))
            {
                ReportFence(Describe(pHeader));
            }
            return true;
        }

        void CallHook(HeapEvent_e eEvent, Header_s * pHeader)
        {
            if (HeapHook_t const fnHook = g_fnHook.load(std::memory_order_acquire))
            {
                fnHook(eEvent, UserOf(pHeader), pHeader->nBytes, pHeader->dwWord);
            }
        }
    }

    void * HeapAlloc(std::size_t nBytes, std::uint32_t dwWord, char const * szFile, int iLine)
    {
        Header_s * const pHeader = MakeBlock(nBytes, dwWord, szFile, iLine);
        if (!pHeader)
        {
            return nullptr;
        }
        LockScope_c const Scope(g_HeapLock);
        CallHook(HeapEvent_e::Alloc, pHeader);
        LinkBlock(pHeader);
        return UserOf(pHeader);
    }

    void HeapSetOwn(void * pUser, void * pOwn, std::size_t nOwn)
    {
        Header_s * const pHeader = HeaderOf(pUser);
        LockScope_c const Scope(g_HeapLock);   // another thread may be walking the blocks
        pHeader->nBefore = static_cast<std::size_t>(static_cast<std::uint8_t *>(pOwn) - UserOf(pHeader));
        pHeader->nOwn = nOwn;
        std::uint8_t * const pFence = OwnOf(pHeader) + nOwn;
        if (FenceSize(pHeader) >= FENCE)
        {
            std::memset(pFence, HEAP_FENCE, FENCE);   // a constant size needs no call
        }
        else
        {
            std::memset(pFence, HEAP_FENCE, FenceSize(pHeader));
        }
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
            CallHook(HeapEvent_e::Free, pHeader);
            UnlinkBlock(pHeader);
        }
        ReleaseMemory(pHeader);
    }

    std::size_t HeapBlockSize(void const * pUser)
    {
        return HeaderOf(pUser)->nBytes;
    }

    std::uint32_t HeapBlockWord(void const * pUser)
    {
        return HeaderOf(pUser)->dwWord;
    }

    HeapBlock_t HeapDescribe(void const * pUser)
    {
        return Describe(HeaderOf(pUser));
    }

    bool HeapFindBlock(void const * pUser, HeapBlock_t & Block)
    {
        LockScope_c const Scope(g_HeapLock);
        for (Link_s * pLink = g_Live.pNext; pLink != &g_Live; pLink = pLink->pNext)
        {
            auto * const pHeader = static_cast<Header_s *>(pLink);
            if (UserOf(pHeader) == pUser || OwnOf(pHeader) == pUser)
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

    bool HeapIsEmpty()
    {
        LockScope_c const Scope(g_HeapLock);
        return g_Live.pNext == &g_Live;
    }

    void HeapSetHook(HeapHook_t fnHook)
    {
        g_fnHook = fnHook;
    }

    void HeapSetFailureHandler(HeapFailure_t fnFailure)
    {
        g_fnFailure = fnFailure;
    }
}
