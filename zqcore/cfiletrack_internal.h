// cfiletrack_internal.h: the clock of the lock test, for tests. Nothing public includes it.
#pragma once

/// Waits between two tries of the lock test.
extern void (*g_fnTrackSleep)(int nMilliseconds);
