// cmemoryreport.h: who holds what: a log of every allocation as it happens, a snapshot of all live blocks, and the
// count of a frame's allocations; and the check that ties the category counters to the totals.
//
// The call log is the named log "newcalls.csv" (clogf.h), one flushed line an allocation: turn it on around a suspect
// stretch. Its header comes once a process. What the writing itself allocates is counted but not logged. The snapshot
// is two files in the current folder, read by `zqtool memory`.
#pragma once

#include "zqcore/cconfig.h"

/// Turns the call log on or off; off at first. A record reads frame, file, line, category's index, bytes of the heap's
/// block; the file of a plain `new` is "unknown". Takes no lock: switch it while other threads are quiet.
ZQ_API void MemoryNewLogEnable(bool bEnable);

/// Turns the call log off if it is on, and on if it is off.
ZQ_API void MemoryNewLogToggle();

/// Writes "allocations.csv", a line for each live client block, newest first, and a tally by size; and
/// "uncategorized.csv" with the blocks of category UNDEFINED. Both are replaced. A file that can't be opened is a failed
/// assertion; the other one is written all the same. Without any block the percentages are 0. Takes no lock: other
/// threads must be quiet.
ZQ_API void MemoryLogAllocations();

/// Whether the categories' blocks and bytes add up to the totals. Runs on every heap event, under the lock.
ZQ_API bool MemoryCheckConsistency();

/// Allocations in the last finished frame. No lock.
ZQ_API unsigned MemoryGetFrameAllocCount();

/// Ends a frame; called once a frame, between MemoryInit and MemoryDone.
ZQ_API void MemoryResetFrameAllocCount();

/// Turns the leak check at exit off: on the way out of a fatal error.
ZQ_API void MemoryAbort();

/// Receives a report of the heap, a text, mostly with a line end: damage, a second free, a block that is lost at exit. Called on
/// the thread that found it; for lost blocks after the last destructor, so it may use constant data only.
using MemoryReport_t = void (*)(char const * szText);

/// Installs the receiver; null restores the default, which prints to standard error. Every report goes to the main log
/// as well; one at exit is appended to its file. Returns the previous receiver.
ZQ_API MemoryReport_t MemoryReportSet(MemoryReport_t fnReceiver);
