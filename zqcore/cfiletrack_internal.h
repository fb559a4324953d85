// cfiletrack_internal.h: the wait function of the lock test, for tests. No public header includes it.
#pragma once

/// Function that waits after each try of the lock test that finds the file.
extern void (*g_fnTrackSleep)(int nMilliseconds);
