// debugheap.h: a heap that knows of each block its word, size, source file and line.
//
// Sits on the C library's malloc and on nothing else. Every event passes a hook before it takes effect, under the
// heap's lock. New memory is filled with 0xCD, freed memory with 0xDD, and 4 bytes of 0xFD stand before and behind
// each block; damage to them is reported when the block is freed. A block of more than HEAP_FILL_LIMIT bytes is filled
// at its ends only. Any thread; usable before the first constructor runs and after the last destructor has.
#pragma once

#include "platform/compiler.h"
#include "platform/threads.h"

#include <cstddef>
#include <cstdint>

namespace plat
{
    constexpr std::size_t HEAP_FILL_LIMIT = 512;   // bytes up to which a block is filled whole
    constexpr std::size_t HEAP_FILL_ENDS = 128;    // bytes filled at either end of a larger block

    enum class HeapEvent_e
    {
        Alloc = 1,
        Realloc = 2,
        Free = 3
    };

    /// What the heap knows of a block.
    struct HeapBlock_t
    {
        void * pUser = nullptr;
        std::size_t nBytes = 0;          // as asked for
        std::uint32_t dwType = 0;        // the word given at allocation
        char const * szFile = nullptr;   // may be null
        int iLine = 0;
    };

    /// Called with the heap's lock held: for Alloc with the new block, for Realloc and Free with the block as it is.
    /// For Realloc nNewBytes is the size asked for; else it equals Block.nBytes.
    using HeapHook_t = void (*)(HeapEvent_e eEvent, HeapBlock_t const & Block, std::size_t nNewBytes);

    /// Called when no memory is to be had; the heap tries again if it returns true.
    using HeapFailure_t = bool (*)(std::size_t nBytes);

    /// Called for each block that still lives when the process ends.
    using HeapDump_t = void (*)(HeapBlock_t const & Block);

    /// Receives the heap's reports.
    using HeapReport_t = void (*)(char const * szText);

    /// Takes a block; null if there is no memory and the failure handler gives up. The start is aligned for any type.
    void * HeapAlloc(std::size_t nBytes, std::uint32_t dwType, char const * szFile, int iLine);

    /// Moves a block's contents to a block of another size, with a Realloc event; null leaves the old block as it is.
    void * HeapRealloc(void * pUser, std::size_t nBytes);

    /// Gives a block back. Null does nothing. A block that is damaged in front, or none of this heap's, is reported and
    /// left alone.
    void HeapFree(void * pUser);

    /// Size and word of a live block. The pointer must be one that HeapAlloc gave.
    std::size_t HeapBlockSize(void const * pUser);
    std::uint32_t HeapBlockType(void const * pUser);

    /// Looks a pointer up among the live blocks; false if it is none. Costs a walk; safe for any pointer.
    bool HeapFindBlock(void const * pUser, HeapBlock_t & Block);

    /// Calls fnVisit for each live block, newest first. The heap must stand still meanwhile.
    void HeapWalk(void (*fnVisit)(HeapBlock_t const & Block, void * pContext), void * pContext);

    /// Install a hook, a failure handler, a dump function, or null for none.
    void HeapSetHook(HeapHook_t fnHook);
    void HeapSetFailureHandler(HeapFailure_t fnFailure);
    void HeapSetDump(HeapDump_t fnDump);

    /// Whether the blocks that still live when the process ends are reported, after the last destructor.
    void HeapSetLeakCheck(bool bCheck);

    /// Formats a report of up to 1023 characters and hands it to the receiver, else to standard error.
    void HeapReport(char const * szFormat, ...) ZQ_PRINTF(1, 2);

    /// Installs a receiver of reports, or null for the default; returns the former one.
    HeapReport_t HeapReportSet(HeapReport_t fnReceiver);

    /// The heap's lock, spin count 4000. Held during each hook.
    extern Lock_c g_HeapLock;
}
