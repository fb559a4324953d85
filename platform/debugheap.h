// debugheap.h: a heap that knows of each block its word, size, source file and line.
//
// Sits on the C library's malloc and on nothing else. Every event passes a hook before it takes effect, under the
// heap's lock. New memory is filled with 0xCD, freed memory with 0xDD, and a fence of at least 4 bytes of 0xFD lies
// before and after each block; damage to a fence is reported when the block is freed. A block of more than
// HEAP_FILL_LIMIT bytes is filled at its ends only. Any thread; usable before the first constructor runs and after the
// last destructor has.
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
        void * pOwn = nullptr;   // the bytes that the caller sees: all of the block until HeapSetOwn narrows them
        std::size_t nOwn = 0;
    };

    /// Called with the heap's lock held, before a block is listed or taken off the list: the block, its size and word.
    using HeapHook_t = void (*)(HeapEvent_e eEvent, void * pUser, std::size_t nBytes, std::uint32_t dwType);

    /// Called when no memory is to be had; the heap tries again if it returns true.
    using HeapFailure_t = bool (*)(std::size_t nBytes);

    /// The text that reports show for a block's word.
    using HeapWordName_t = char const * (*)(std::uint32_t dwType);

    /// Called for each block that still lives when the process ends.
    using HeapDump_t = void (*)(HeapBlock_t const & Block);

    /// Receives the heap's reports.
    using HeapReport_t = void (*)(char const * szText);

    /// Allocates a block; null if there is no memory and the failure handler gives up. The start is aligned for any type.
    void * HeapAlloc(std::size_t nBytes, std::uint32_t dwType, char const * szFile, int iLine);

    /// Narrows a live block to the bytes that its caller sees. What follows them becomes part of the fence, and
    /// reports state this address and size.
    void HeapSetOwn(void * pUser, void * pOwn, std::size_t nOwn);

    /// Releases a block. Null does nothing. A block that was freed already, is damaged in front or is none of this
    /// heap's is reported and left alone.
    void HeapFree(void * pUser);

    /// Size and word of a live block, and all that is known of it. The pointer must be one that HeapAlloc returned.
    std::size_t HeapBlockSize(void const * pUser);
    std::uint32_t HeapBlockType(void const * pUser);
    HeapBlock_t HeapDescribe(void const * pUser);

    /// Looks up a pointer to a live block, or to the bytes that its caller sees; false if it is neither. Costs a walk;
    /// safe for any pointer.
    bool HeapFindBlock(void const * pUser, HeapBlock_t & Block);

    /// Copies the name of a block's source file, cut to nSize - 1 bytes: "unknown" where none was given, "unloaded
    /// module" where the memory of the name is gone. Costs a system call.
    void HeapFileName(HeapBlock_t const & Block, char * szBuffer, std::size_t nSize);

    /// Calls fnVisit for each live block, newest first. The heap must stand still meanwhile.
    void HeapWalk(void (*fnVisit)(HeapBlock_t const & Block, void * pContext), void * pContext);

    /// Whether no block lives.
    bool HeapIsEmpty();

    /// Install a hook, a failure handler, names of words, a dump function, or null for none.
    void HeapSetHook(HeapHook_t fnHook);
    void HeapSetFailureHandler(HeapFailure_t fnFailure);
    void HeapSetWordName(HeapWordName_t fnName);
    void HeapSetDump(HeapDump_t fnDump);

    /// Whether the blocks that still live when the process ends are reported, after the last destructor. Those that the
    /// C++ runtime's own globals reach are none of them: it keeps them for as long as the process runs. While other
    /// threads run, what they hold can't be distinguished from what is lost: one line then says that nothing is listed.
    void HeapSetLeakCheck(bool bCheck);

    /// The name of a word.
    char const * HeapWordName(std::uint32_t dwType);

    /// Formats a report of up to 1023 characters and hands it to the receiver, else to standard error.
    void HeapReport(char const * szFormat, ...) ZQ_PRINTF(1, 2);

    /// Installs a receiver of reports, or null for the default; returns the previous one.
    HeapReport_t HeapReportSet(HeapReport_t fnReceiver);

    /// The heap's lock, spin count 4000. Held during each hook.
    extern Lock_c g_HeapLock;
}
