// cfilehash.h: a fingerprint of the game's table data, so that two machines can tell whether they run the same.
//
// It is the SHA-1 of the names and sizes of the CSV files that are registered, not of their contents, so it asks no
// disk, and it does not depend on the order of the tables or on whether they came from a scan or a cache. Main thread;
// the cost is a walk over the table of files.
#pragma once

#include "zqcore/cconfig.h"

/// Computes the fingerprint: of all CSV files if bAllCsv, else of those below a folder whose path has a name ending in
/// "declarations". ModuleFile_c does the latter when it starts. A file counts with the size that its object has.
ZQ_API void FileBuildMediaHash(bool bAllCsv);

/// The 20 bytes computed last, all 0 before. Valid, and the same address, for the life of the process.
ZQ_API unsigned char * FileGetMediaHash();
