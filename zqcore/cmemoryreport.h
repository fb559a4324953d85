// cmemoryreport.h: the per-frame count of allocations, and the check that ties the category counters to the totals.
#pragma once

#include "zqcore/cconfig.h"

/// Whether the categories' blocks and bytes add up to the totals. Runs on every heap event, under the lock.
ZQ_API bool MemoryCheckConsistency();

/// Allocations in the last finished frame. No lock.
ZQ_API unsigned MemoryGetFrameAllocCount();

/// Ends a frame; called once a frame, between MemoryInit and MemoryDone.
ZQ_API void MemoryResetFrameAllocCount();

/// Turns the leak check at exit off: on the way out of a fatal error.
ZQ_API void MemoryAbort();
