// cfiletrack_internal.h: the pause of the wait for the writers of a changed file, which tests replace.
#pragma once

/// Function that sleeps after each try of plat::FileLockTest_c that finds the file. FileTrackDoWork calls it.
extern void (*g_fnTrackSleep)(int nMilliseconds);
