// Aligned blocks inside blocks of the debug heap.
//
// A header ends at the user pointer, rounded down to a multiple of a pointer's size. The header holds the block's
// address and one pointer's size of gap bytes.
#include "zqcore/cmemory_internal.h"

#include "platform/bytes.h"
#include "platform/debugger.h"
#include "platform/debugheap.h"
#include "platform/memory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace
{
    constexpr std::size_t WORD = sizeof(void *);
    constexpr std::uint8_t GAP_BYTE = 0xBD;   // differs from each fill of the debug heap

    // Gap of a live block's header, gap of a freed block's header, and the bytes before a plain block.
    constexpr auto GAP_FILL = static_cast<std::uintptr_t>(plat::EACH_BYTE * GAP_BYTE);
    constexpr auto FREED_FILL = static_cast<std::uintptr_t>(plat::EACH_BYTE * plat::HEAP_FREED);
    constexpr auto PLAIN_FILL = static_cast<std::uint32_t>(plat::EACH_BYTE * plat::HEAP_FENCE);

    struct Header_s
    {
        void * pBlock;
        std::uintptr_t Gap;
    };

    Header_s & HeaderOf(void * pUser)
    {
        auto const nAddress = reinterpret_cast<std::uintptr_t>(pUser) & ~std::uintptr_t{ WORD - 1 };
        return *reinterpret_cast<Header_s *>(nAddress - sizeof(Header_s));
    }

    bool IsPlainBlock(void * pUser)
    {
        std::uint32_t dwBefore;
        std::memcpy(&dwBefore, static_cast<std::uint8_t *>(pUser) - sizeof dwBefore, sizeof dwBefore);
        return dwBefore == PLAIN_FILL;
    }

    void * UserPointer(void * pBlock, std::size_t nAlignment, std::size_t nOffset)
    {
        return reinterpret_cast<void *>(MemoryPlaceIn(pBlock, sizeof(Header_s), WORD, nAlignment, nOffset));
    }

    std::size_t RaiseAlignment(std::size_t nAlignment)
    {
        return std::max(nAlignment, WORD);
    }

    // Reports a pointer without the header of a live block. Returns its live block if only the header is damaged,
    // otherwise null.
    ZQ_COLD void * FindDamagedBlock(void * pUser, char const * szPlainFunction)
    {
        if (IsPlainBlock(pUser))
        {
            plat::HeapReport("The block at 0x%08zX was not allocated by _aligned routines, use %s()",
                plat::HeapAddressOf(pUser), szPlainFunction);
            return nullptr;
        }
        if (HeaderOf(pUser).Gap == FREED_FILL)
        {
            plat::HeapReportFreed(pUser);
            return nullptr;
        }
        plat::HeapReport("Damage before 0x%08zX which was allocated by aligned routine\n", plat::HeapAddressOf(pUser));
        plat::HeapBlock_t Block;
        if (!plat::HeapFindBlock(pUser, Block))
        {
            plat::HeapReport(
                "No live block of this heap starts at 0x%08zX: freed already, or another heap's. It is left alone.\n",
                plat::HeapAddressOf(pUser));
            return nullptr;
        }
        return Block.pUser;
    }

    // Finds the live block of an aligned pointer and returns it, or null. Reports a damaged header and a pointer
    // without a block.
    void * FindBlock(void * pUser, char const * szPlainFunction)
    {
        Header_s const Header = HeaderOf(pUser);
        return Header.Gap == GAP_FILL ? Header.pBlock : FindDamagedBlock(pUser, szPlainFunction);
    }
}

void * aligned_offset_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, std::size_t nOffset, int iBlockType, char const * sFile, int iLine)
{
    if (!MemoryMayAlign(nSize, nAlignment, nOffset))
    {
        return nullptr;
    }
    nAlignment = RaiseAlignment(nAlignment);
    std::size_t const nExtra = nAlignment - 1 + MemoryGapOf(nOffset, WORD) + sizeof(Header_s);
    std::size_t const nBlock = nSize <= SIZE_MAX - nExtra ? nSize + nExtra : SIZE_MAX;   // the heap refuses SIZE_MAX
    void * const pBlock = plat::HeapAlloc(nBlock, static_cast<std::uint32_t>(iBlockType), sFile, iLine);
    if (!pBlock)
    {
        return nullptr;
    }
    void * const pUser = UserPointer(pBlock, nAlignment, nOffset);
    HeaderOf(pUser) = Header_s{ pBlock, GAP_FILL };
    if (nOffset != 0)
    {
        // The fill differs from the bytes before a plain block.
        std::memset(&HeaderOf(pUser) + 1, GAP_BYTE, MemoryGapOf(nOffset, WORD));
    }
    plat::HeapSetOwn(pBlock, pUser, nSize);
    return pUser;
}

bool MemoryIsOwnBlock(void const * pBlock)
{
    Header_s Header;   // memory of another heap has none
    auto const nHeader = reinterpret_cast<std::uintptr_t>(&HeaderOf(const_cast<void *>(pBlock)));
    return plat::MemoryReadObject(nHeader, Header) && Header.Gap == GAP_FILL;
}

bool MemoryGetOwnSize(void * pUser, std::size_t & nBytes)
{
    void * const pBlock = FindBlock(pUser, "realloc");
    if (pBlock)
    {
        nBytes = plat::HeapDescribe(pBlock).nOwn;
    }
    return pBlock != nullptr;
}

void aligned_free_dbg(void * p)
{
    if (!p)
    {
        return;
    }
    if (void * const pBlock = FindBlock(p, "free"))
    {
        HeaderOf(p).Gap = FREED_FILL;   // a second free notices it
        plat::HeapFree(pBlock);
    }
}

void * get_block_from_aligned(void * p)
{
    if (!p)
    {
        return nullptr;
    }
    Header_s const Header = HeaderOf(p);
    return Header.Gap == GAP_FILL ? Header.pBlock : nullptr;
}

void * get_aligned_from_block(void * pBlock, std::size_t nAlignment, std::size_t nOffset)
{
    if (!pBlock)
    {
        return nullptr;
    }
    void * const pUser = UserPointer(pBlock, RaiseAlignment(nAlignment), nOffset);
    if (HeaderOf(pUser).Gap != GAP_FILL)
    {
        plat::HeapReport("The Block at 0x%08zX was not allocated by aligned routines", plat::HeapAddressOf(pBlock));
        return nullptr;
    }
    return pUser;
}

namespace
{
    ZQ_COLD void ReportNoMemory(std::size_t nBytes, char const * szFile, int iLine)
    {
        char szText[512];
        std::snprintf(szText, sizeof szText, "Cannot allocate additional %zu bytes: file(%s)line(%d)\n", nBytes,
            szFile ? szFile : "unknown", iLine);
        plat::DebugOutput(szText);
    }

    // Allocates a block and returns it. On failure writes a line to the debugger and returns null.
    void * HeapNew(std::size_t nBytes, std::size_t nAlignment, int iBlockType, char const * szFile, int iLine)
    {
        auto const iWord = static_cast<int>(MemoryWordOf(iBlockType));
        void * const pUser = aligned_offset_malloc_dbg(nBytes, nAlignment, 0, iWord, szFile, iLine);
        if (!pUser)
        {
            ReportNoMemory(nBytes, szFile, iLine);
        }
        return pUser;
    }

    void HeapDelete(void * pUser)
    {
        aligned_free_dbg(pUser);
    }
}

#include "zqcore/cmemory_operators.inl"
