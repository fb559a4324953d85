// own_operators.cpp: operators new and delete of a program, of the kind that GAME_OPERATORS names.
#include "zqcore/cmemory.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>

namespace
{
    constexpr std::size_t HEAD = 16;          // alignment, and bytes of the head that some kinds add before a block
    constexpr std::size_t SMALL = 2 * HEAD;   // bytes of the largest small block

    // Call the operators that come after the program's, by their names in the Itanium C++ ABI (section 5.1). NewOfNext
    // returns the block.
    void * NewOfNext(std::size_t nBytes)
    {
        char const * const szNew = sizeof(std::size_t) == 8 ? "_Znwm" : "_Znwj";
        return reinterpret_cast<void * (*)(std::size_t)>(dlsym(RTLD_NEXT, szNew))(nBytes);
    }
    void DeleteOfNext(void * pBlock)
    {
        reinterpret_cast<void (*)(void *)>(dlsym(RTLD_NEXT, "_ZdlPv"))(pBlock);
    }

    // Move a pointer over a block's head, zero the head, and return the pointer.
    void * SkipHead(void * pMemory)
    {
        return static_cast<char *>(std::memset(pMemory, 0, HEAD)) + HEAD;
    }
    void * RemoveHead(void * pBlock)
    {
        return std::memset(static_cast<char *>(pBlock) - HEAD, 0, HEAD);
    }

    // Operators that forward to the next ones and count blocks.
    [[maybe_unused]] struct
    {
        std::size_t nBlocks = 0;

        void * New(std::size_t nBytes)
        {
            ++nBlocks;
            return NewOfNext(nBytes);
        }
        void Delete(void * pBlock)
        {
            if (pBlock)
            {
                --nBlocks;
                DeleteOfNext(pBlock);
            }
        }
    } g_Forwards;

    // A heap, whose delete expects no null.
    [[maybe_unused]] struct
    {
        void * New(std::size_t nBytes) { return SkipHead(std::malloc(HEAD + nBytes)); }
        void Delete(void * pBlock) { std::free(RemoveHead(pBlock)); }
    } g_HasHeap;

    // Operators that add a head to each block of the next ones.
    [[maybe_unused]] struct
    {
        void * New(std::size_t nBytes) { return SkipHead(NewOfNext(HEAD + nBytes)); }
        void Delete(void * pBlock)
        {
            if (pBlock)
            {
                DeleteOfNext(RemoveHead(pBlock));
            }
        }
    } g_AddsHead;

    // Operators that serve small blocks from their room, none of it twice, and forward all others.
    [[maybe_unused]] struct
    {
        alignas(HEAD) char dRoom[65536];
        std::size_t nUsed = 0;

        void * New(std::size_t nBytes)
        {
            if (nBytes > SMALL || nUsed == sizeof dRoom)
            {
                return NewOfNext(nBytes);
            }
            nUsed += SMALL;
            return dRoom + nUsed - SMALL;
        }
        void Delete(void * pBlock)
        {
            if (pBlock < dRoom || pBlock >= dRoom + sizeof dRoom)   // also null
            {
                DeleteOfNext(pBlock);
            }
        }
    } g_ServesSmall;

    // Operators that call the library's heap instead of its operators.
    [[maybe_unused]] struct
    {
        void * New(std::size_t nBytes)
        {
            return aligned_malloc_dbg(nBytes, HEAD, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__);
        }
        void Delete(void * pBlock) { aligned_free_dbg(pBlock); }
    } g_CallsHeap;
}

__attribute__((visibility("default"))) void * operator new(std::size_t nBytes)
{
    return GAME_OPERATORS.New(nBytes);
}
__attribute__((visibility("default"))) void operator delete(void * pBlock) noexcept
{
    GAME_OPERATORS.Delete(pBlock);
}
__attribute__((visibility("default"))) void operator delete(void * pBlock, std::size_t) noexcept
{
    operator delete(pBlock);
}
