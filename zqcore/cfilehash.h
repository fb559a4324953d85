// cfilehash.h: a fingerprint of the game's table data, so that two machines can compare theirs.
//
// The fingerprint is the SHA-1 of the names and sizes of the registered CSV files, not of their contents. It does not
// depend on the order of the tables, nor on whether they came from a scan or from the cache.
//
// Ownership: the bytes belong to the library and live as long as the process.
// Threads: main thread.
// Cost: a walk over the table of files, without the disk. It allocates a list of the CSV files.
// Failure: no call fails.
//
//     FileBuildMediaHash(true);
//     unsigned char const dOther[SHA1_HASH_SIZE] = {};   // from the other machine
//     if (std::memcmp(FileGetMediaHash(), dOther, SHA1_HASH_SIZE) != 0)
//     {
//         Log("The machines run different tables.");
//     }
#pragma once

#include "zqcore/cconfig.h"

/// Computes the fingerprint of all CSV files if bAllCsv is set, else of those below a folder whose name ends in
/// "declarations", without regard to case. Files of archives (czip.h) have no such folder. ModuleFile_c passes false
/// when it starts. The size of a file is its object's iLength.
ZQ_API void FileBuildMediaHash(bool bAllCsv);

/// Returns the SHA1_HASH_SIZE bytes (csha1.h) of the last FileBuildMediaHash, or zeros before the first. The address
/// never changes.
ZQ_API unsigned char * FileGetMediaHash();
