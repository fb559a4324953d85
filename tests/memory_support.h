// memory_support.h: figures of the heap, for tests and for the programs that they run.
#pragma once

#include "zqcore/cmemory.h"

/// Bytes that the debug heap adds to a block of the alignment MEMORY_ALIGNMENT: padding and header.
inline constexpr std::size_t AROUND = MEMORY_ALIGNMENT - 1 + 2 * sizeof(void *);

/// Returns the word of a block from its category and its kind, such as MEMORY_CLIENT_BLOCK.
constexpr int WordOf(int iCategory, int iKind)
{
    return iCategory << MEMORY_CATEGORY_SHIFT | iKind;
}

/// Returns the figures of a category.
inline mem::CategoryInfo InfoOf(mem::Categories_e eCategory)
{
    mem::CategoryInfo dInfo[mem::TOTAL];
    std::ptrdiff_t nAllocs, nBytes, nMaxBytes;
    MemoryCategoriesGet(dInfo, nAllocs, nBytes, nMaxBytes);
    return dInfo[eCategory];
}
