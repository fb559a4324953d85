// cmemoryreport.h: reports of memory, and the consistency check.
//
// There are four reports: a log of every allocation as it happens, a snapshot of all live blocks, the count of a
// frame's allocations, and a text for each fault of the heap. The call log is the named log "newcalls.csv" (clogf.h)
// with one flushed line for each allocation. Hosts turn it on around suspect code. The snapshot is two files in the
// current folder: "allocations.csv", which `zqtool memory` reads, and "uncategorized.csv".
//
// The heap of a shipped game (cmemory.h) has no list of blocks. Its snapshot has a line for each category with live
// blocks. Nothing checks the figures at each event. Lost blocks are not reported.
//
// Ownership: nothing is owned. A receiver is a plain function.
// Threads: turning the call log on or off and writing the snapshot acquire no lock of their own, so no other thread may
// allocate or free meanwhile. Other calls: any thread.
// Cost: while the call log is on, each allocation writes to disk. Blocks of the category CRT are not logged. What the
// writing itself allocates is counted but not logged.
// Failure: a snapshot file that can't be opened asserts. The other one is still written.
//
//     MemoryResetFrameAllocCount();   // a frame ends
//     Log("%u allocations in the last frame", MemoryGetFrameAllocCount());
//     MemoryLogAllocations();         // writes "allocations.csv" and "uncategorized.csv"
#pragma once

#include "zqcore/cconfig.h"

/// Function that receives one report of the heap as a text, which usually ends in a line feed: damage, a second free, a
/// lost block. It is called on the thread that found the fault. Lost blocks are reported after the last destructor, so
/// the function may use constant data only.
using MemoryReport_t = void (*)(char const * szText);

/// Sets whether the call log is on. It is off at start. The header is written once in a process. A line holds frame,
/// file, line, index of the category and bytes of the heap's block. With the heap of a shipped game the bytes
/// are those that the caller requested. The file of a plain `new` is "unknown".
ZQ_API void MemoryNewLogEnable(bool bEnable);

/// Turns the call log off if it is on, and on if it is off.
ZQ_API void MemoryNewLogToggle();

/// Writes and replaces the two files of the snapshot:
/// - "allocations.csv": a line for each live client block, newest first, then a tally by size. Without any block its
///   percentages are 0.
/// - "uncategorized.csv": a line for each client block of category UNDEFINED.
///
/// Asserts that both files open. If one can't be written whole, logs the reason, and the file stays as it is.
///
/// The name of a source file is written as "unloaded module" in these cases:
/// - it can't be read.
/// - it is empty.
/// - it has a control character.
ZQ_API void MemoryLogAllocations();

/// Returns whether a file of the last snapshot could not be opened or written whole.
ZQ_API bool MemoryLogAllocationsFailed();

/// Returns whether the categories' blocks and bytes add up to the totals. Every event of the debug heap checks the same
/// under g_CategoryLock. Requires that the caller holds that lock if other threads run. With the heap of a shipped
/// game, returns whether no category has negative figures, and requires that no other thread uses the heap meanwhile.
ZQ_API bool MemoryCheckConsistency();

/// Returns the number of allocations in the last finished frame. Acquires no lock.
ZQ_API unsigned MemoryGetFrameAllocCount();

/// Ends a frame. The application calls it once a frame. Requires a call between MemoryInit and MemoryDone.
ZQ_API void MemoryResetFrameAllocCount();

/// Turns the leak check at exit off. Abort, and an assertion that is answered with Abort, call it before they end the
/// process.
ZQ_API void MemoryAbort();

/// Sets the receiver and returns the previous one. Null restores the default, which prints to standard error. The first
/// line of every report also goes to the main log, unless the thread is logging another one or complains about its
/// stack of categories. A report at exit is appended to the log's file whole.
ZQ_API MemoryReport_t MemoryReportSet(MemoryReport_t fnReceiver);
