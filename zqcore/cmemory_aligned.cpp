// Aligned blocks inside blocks of the debug heap.
//
// In front of the user pointer, with its low bits cleared to a pointer's size, stands a header: the block's address and
// as many gap bytes as a pointer has.
#include "zqcore/cmemory.h"

#include "platform/debugheap.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace
{
    constexpr std::size_t WORD = sizeof(void *);
    constexpr std::uintptr_t GAP_FILL = static_cast<std::uintptr_t>(0xBDBDBDBDBDBDBDBD);
    constexpr std::uint32_t PLAIN_FILL = 0xFDFDFDFD;   // what the heap puts in front of a plain block

    struct Header_s
    {
        void * pBlock;
        std::uintptr_t dwGap;
    };

    Header_s & HeaderOf(void * p)
    {
        auto const iAddress = reinterpret_cast<std::uintptr_t>(p) & ~std::uintptr_t{ WORD - 1 };
        return *reinterpret_cast<Header_s *>(iAddress - sizeof(Header_s));
    }

    std::size_t AddressOf(void * p)
    {
        return reinterpret_cast<std::size_t>(p);
    }

    bool IsPlainBlock(void * p)
    {
        std::uint32_t dwBefore;
        std::memcpy(&dwBefore, static_cast<std::uint8_t *>(p) - sizeof dwBefore, sizeof dwBefore);
        return dwBefore == PLAIN_FILL;
    }

    // Bytes that make the user pointer end in the right low bits.
    std::size_t GapOf(std::size_t nOffset)
    {
        return (0 - nOffset) & (WORD - 1);
    }

    std::uint8_t * UserPointer(void * pBlock, std::size_t nAlignment, std::size_t nOffset)
    {
        auto const iBlock = reinterpret_cast<std::uintptr_t>(pBlock);
        std::uintptr_t const iAligned =
            (iBlock + nAlignment - 1 + GapOf(nOffset) + sizeof(Header_s) + nOffset) & ~(nAlignment - 1);
        return reinterpret_cast<std::uint8_t *>(iAligned - nOffset);
    }

    std::size_t RaiseAlignment(std::size_t nAlignment)
    {
        return std::max(nAlignment, WORD);
    }
}

void * aligned_malloc_dbg(std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
{
    return aligned_offset_malloc_dbg(nSize, nAlignment, 0, iBlockType, sFile, iLine);
}

void * aligned_offset_malloc_dbg(
    std::size_t nSize, std::size_t nAlignment, std::size_t nOffset, int iBlockType, char const * sFile, int iLine)
{
    if (nAlignment == 0 || (nAlignment & (nAlignment - 1)) != 0)
    {
        plat::HeapReport("alignment must be a power of 2");
        errno = EINVAL;
        return nullptr;
    }
    if (nOffset != 0 && nOffset >= nSize)
    {
        plat::HeapReport("offset must be within size");
        errno = EINVAL;
        return nullptr;
    }
    nAlignment = RaiseAlignment(nAlignment);
    std::size_t const nExtra = nAlignment - 1 + GapOf(nOffset) + sizeof(Header_s);
    std::size_t const nBlock = nSize <= SIZE_MAX - nExtra ? nSize + nExtra : SIZE_MAX;   // the heap refuses the latter
    void * const pBlock = plat::HeapAlloc(nBlock, static_cast<std::uint32_t>(iBlockType), sFile, iLine);
    if (!pBlock)
    {
        return nullptr;
    }
    void * const pUser = UserPointer(pBlock, nAlignment, nOffset);
    HeaderOf(pUser) = Header_s{ pBlock, GAP_FILL };
    if (nOffset != 0)
    {
        std::memset(&HeaderOf(pUser) + 1, 0xBD, GapOf(nOffset));   // never what stands in front of a plain block
    }
    return pUser;
}

void * aligned_realloc_dbg(
    void * p, std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
{
    return aligned_offset_realloc_dbg(p, nSize, nAlignment, 0, iBlockType, sFile, iLine);
}

void * aligned_offset_realloc_dbg(void * p, std::size_t nSize, std::size_t nAlignment, std::size_t nOffset,
    int iBlockType, char const * sFile, int iLine)
{
    if (!p)
    {
        return aligned_offset_malloc_dbg(nSize, nAlignment, nOffset, iBlockType, sFile, iLine);
    }
    if (nSize == 0)
    {
        aligned_free_dbg(p);
        return nullptr;
    }
    if (IsPlainBlock(p))
    {
        plat::HeapReport("The block at 0x%08zX was not allocated by _aligned routines, use realloc()", AddressOf(p));
        return nullptr;
    }
    void * const pBlock = HeaderOf(p).pBlock;
    auto const nBefore = static_cast<std::size_t>(static_cast<std::uint8_t *>(p) - static_cast<std::uint8_t *>(pBlock));
    std::size_t const nOldSize = plat::HeapBlockSize(pBlock) - nBefore;
    void * const pNew = aligned_offset_malloc_dbg(nSize, nAlignment, nOffset, iBlockType, sFile, iLine);
    if (pNew)
    {
        std::memcpy(pNew, p, std::min(nOldSize, nSize));
        aligned_free_dbg(p);
    }
    return pNew;
}

void aligned_free_dbg(void * p)
{
    if (!p)
    {
        return;
    }
    if (IsPlainBlock(p))
    {
        plat::HeapReport("The block at 0x%08zX was not allocated by _aligned routines, use free()", AddressOf(p));
        return;
    }
    Header_s const Header = HeaderOf(p);
    if (Header.dwGap != GAP_FILL)
    {
        plat::HeapReport("Damage before 0x%08zX which was allocated by aligned routine\n", AddressOf(p));
    }
    plat::HeapFree(Header.pBlock);
}

void * get_block_from_aligned(void * p)
{
    if (!p)
    {
        return nullptr;
    }
    Header_s const Header = HeaderOf(p);
    return Header.dwGap == GAP_FILL ? Header.pBlock : nullptr;
}

void * get_aligned_from_block(void * pBlock, std::size_t nAlignment, std::size_t nOffset)
{
    if (!pBlock)
    {
        return nullptr;
    }
    void * const pUser = UserPointer(pBlock, RaiseAlignment(nAlignment), nOffset);
    if (HeaderOf(pUser).dwGap != GAP_FILL)
    {
        plat::HeapReport("The Block at 0x%08zX was not allocated by aligned routines", AddressOf(pBlock));
        return nullptr;
    }
    return pUser;
}
