// cversion.h: the version of these headers and of the loaded library.
//
// Below 1.0 each minor version may change the interface. From 1.0 on only a major version may. The file name that a
// program loads (the soname) holds the version up to that part, so a program never loads a library with a changed
// interface. From 1.0 on it may load a library of an earlier minor version, which lacks later additions.
//
// Ownership: nothing is owned.
// Threads: any thread.
// Cost: GetLibraryVersion returns a constant.
// Failure: no call fails.
//
//     if (GetLibraryVersion() != ZQCORE_VERSION)
//     {
//         Log("Built with %i, runs with %i.", ZQCORE_VERSION, GetLibraryVersion());
//     }
#pragma once

#include "zqcore/cconfig.h"

/// Parts of the version of these headers.
#define ZQCORE_VERSION_MAJOR 0
#define ZQCORE_VERSION_MINOR 2
#define ZQCORE_VERSION_PATCH 0

/// Version of these headers as one number: 10203 for 1.2.3. Minor and patch are below 100.
#define ZQCORE_VERSION (ZQCORE_VERSION_MAJOR * 10000 + ZQCORE_VERSION_MINOR * 100 + ZQCORE_VERSION_PATCH)

/// Returns the version of the loaded library, in the form of ZQCORE_VERSION.
ZQ_API int GetLibraryVersion();
