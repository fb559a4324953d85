// debugheap.h: a heap that stores a word, the size, the source file and the line of each block.
//
// The heap allocates from the C library's malloc only. Terms:
// - word of a block: a 32-bit number of the caller, which the heap stores and returns but does not interpret. cmemory.h
//   keeps the block's category in it.
// - own bytes of a block: those that the user of the block sees. They are the whole block until HeapSetOwn narrows
//   them, for instance to the aligned part of a larger block.
// - fence: 4 bytes of HEAP_FENCE before each block, and at least 4 after its own bytes. Damage is reported when the
//   block is freed.
//
// The heap fills new memory with HEAP_NEW and freed memory with HEAP_FREED. It fills a block of more than
// HEAP_FILL_LIMIT bytes at its ends only. It holds its lock while it calls the hook, before each event takes
// effect.
//
// Threads: any thread. The heap can be used before the first constructor and after the last destructor.
#pragma once

#include "platform/compiler.h"
#include "platform/threads.h"

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Values of bytes, as in the Windows debug heap.
    inline constexpr std::uint8_t HEAP_NEW = 0xCD;
    inline constexpr std::uint8_t HEAP_FREED = 0xDD;
    inline constexpr std::uint8_t HEAP_FENCE = 0xFD;

    inline constexpr std::size_t HEAP_FILL_LIMIT = 512;   // bytes up to which a block is filled whole
    inline constexpr std::size_t HEAP_FILL_ENDS = 128;    // bytes filled at either end of a larger block
    inline constexpr std::size_t HEAP_FILE_SIZE = 256;    // bytes of a source file's name in a report, terminated

    /// Event of which a hook is informed, with the numbers of the Windows debug heap (_HOOK_ALLOC, _HOOK_FREE).
    enum class HeapEvent_e
    {
        Alloc = 1,
        Free = 3
    };

    /// Facts of a block of the heap.
    struct HeapBlock_t
    {
        void * pUser = nullptr;          // the block, as HeapAlloc returned it and other functions take it
        std::size_t nBytes = 0;          // as requested from HeapAlloc
        std::uint32_t dwWord = 0;        // as passed to HeapAlloc
        char const * szFile = nullptr;   // may be null
        int iLine = 0;
        void * pOwn = nullptr;   // first of the own bytes
        std::size_t nOwn = 0;    // number of the own bytes
    };

    /// Hook that is called with the heap's lock held, before a block enters or leaves the list of live blocks. Its
    /// arguments are the event, the block, its size and its word.
    using HeapHook_t = void (*)(HeapEvent_e eEvent, void * pUser, std::size_t nBytes, std::uint32_t dwWord);

    /// Function that is called with the requested size when no memory is available. The heap tries again if the
    /// function returns true.
    using HeapFailure_t = bool (*)(std::size_t nBytes);

    /// Function that returns the text that reports show for a block's word.
    using HeapWordName_t = char const * (*)(std::uint32_t dwWord);

    /// Function that the leak check calls for each block that it finds (HeapSetLeakCheck).
    using HeapDump_t = void (*)(HeapBlock_t const & Block);

    /// Function that receives the heap's reports.
    using HeapReport_t = void (*)(char const * szText);

    /// Allocates a block with the word dwWord, aligned for any type, and returns it. Keeps szFile, which may be
    /// null, as a pointer. Returns null if there is no memory and no failure handler returns true.
    void * HeapAlloc(std::size_t nBytes, std::uint32_t dwWord, char const * szFile, int iLine);

    /// Sets the own bytes of a live block. The fence then begins after them: its first 16 bytes and its last 4, which
    /// lie after the block, are checked. Reports of damage to it state the address and size of the own bytes. Requires
    /// that these lie within the block.
    void HeapSetOwn(void * pUser, void * pOwn, std::size_t nOwn);

    /// Releases a block. Null does nothing. Requires that the 64 bytes before the pointer can be read. Reports the
    /// pointer and releases nothing in these cases:
    /// - the block was released before, and its memory is not in use again.
    /// - its front fence is damaged.
    /// - it is not a block of this heap.
    void HeapFree(void * pUser);

    /// Return the size, the word, and all facts of a live block. Require a pointer that HeapAlloc returned.
    std::size_t HeapBlockSize(void const * pUser);
    std::uint32_t HeapBlockWord(void const * pUser);
    HeapBlock_t HeapDescribe(void const * pUser);

    /// Copies the facts of the live block that begins at a pointer, or whose own bytes begin there, and returns true.
    /// Walks the list of live blocks, so it is safe for any pointer. Returns false if there is no such block.
    bool HeapFindBlock(void const * pUser, HeapBlock_t & Block);

    /// Copies the name of a block's source file, cut to nSize - 1 bytes. Writes "unknown" if szFile is null, and
    /// "unloaded module" if the memory of the name is gone or holds no text of printable characters. Usually makes
    /// two system calls. Requires that nSize is not 0.
    void HeapFileName(HeapBlock_t const & Block, char * szBuffer, std::size_t nSize);

    /// Calls fnVisit for each live block, newest first. Requires that the heap does not change meanwhile.
    void HeapWalk(void (*fnVisit)(HeapBlock_t const & Block, void * pContext), void * pContext);

    /// Returns whether there is no live block.
    bool HeapIsEmpty();

    /// Install a hook, a failure handler, a function that names words, or a dump function. Null removes it.
    void HeapSetHook(HeapHook_t fnHook);
    void HeapSetFailureHandler(HeapFailure_t fnFailure);
    void HeapSetWordName(HeapWordName_t fnName);
    void HeapSetDump(HeapDump_t fnDump);

    /// Sets whether blocks that still live at the end of the process are reported, after the last destructor. At start
    /// they are not. The report has a line for each of the first 64 blocks whose source file is known.
    /// - If the C++ runtime is a library of its own, blocks that its globals reach are left out: it keeps them for as
    ///   long as the process runs.
    /// - If other threads still run, the report is one line, which says that nothing is listed: their blocks can't be
    ///   distinguished from lost ones.
    void HeapSetLeakCheck(bool bCheck);

    /// Returns the text for a word, as the function of HeapSetWordName does, or "unknown" without one.
    char const * HeapWordName(std::uint32_t dwWord);

    /// Formats a text, cut at 1023 bytes, and passes it to the receiver, or to standard error without one.
    void HeapReport(char const * szFormat, ...) ZQ_PRINTF(1, 2);

    /// Returns an address as reports show it.
    inline std::size_t HeapAddressOf(void const * pMemory)
    {
        return reinterpret_cast<std::size_t>(pMemory);
    }

    /// Reports that a block was freed before, and is not freed again.
    void HeapReportFreed(void const * pUser);

    /// Installs a receiver of reports; null restores the default. Returns the previous receiver.
    HeapReport_t HeapReportSet(HeapReport_t fnReceiver);

    /// The heap's lock, with a spin count of 4000. It is held during each hook.
    extern Lock_c g_HeapLock;
}
