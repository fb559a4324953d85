// What both heaps share of aligned blocks: allocation without an offset, changes of size, refusal of an alignment.
#include "zqcore/cmemory_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

bool MemoryRefuseAlignment(char const * szReason)
{
    plat::HeapReport("%s", szReason);
    errno = EINVAL;
    return false;
}

void * aligned_malloc_dbg(std::size_t nSize, std::size_t nAlignment, int iBlockType, char const * sFile, int iLine)
{
    return aligned_offset_malloc_dbg(nSize, nAlignment, 0, iBlockType, sFile, iLine);
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
    std::size_t nOld = 0;
    if (!MemoryGetOwnSize(p, nOld))
    {
        return nullptr;
    }
    void * const pNew = aligned_offset_malloc_dbg(nSize, nAlignment, nOffset, iBlockType, sFile, iLine);
    if (pNew)
    {
        std::memcpy(pNew, p, std::min(nOld, nSize));
        aligned_free_dbg(p);
    }
    return pNew;
}
