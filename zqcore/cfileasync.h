// cfileasync.h: when the contents of files come into memory, apart from a plain FileOpen.
//
// A stayer is a file that stays resident after its last reader closed it: the game registers types, and the first read
// of such a file takes a reference that FileStayerResetAll gives back. So does FileResetFiles for the files that it
// forgets. Prefetch reads all files of a type now. An asynchronous open hands a read to the worker, one thread at idle
// class that ModuleFile_c starts and stops and that sleeps while nothing waits; the caller polls for the end.
//
// What a request leaves; a failed read is done too, leaves nothing and takes no reference:
//
//   pBuffer | file was     | contents                            | reference taken
//   null    | not resident | in pData                            | yes: the caller must FileClose
//   null    | resident     | in pData                            | yes
//   set     | not resident | in the buffer; pData stays null     | no
//   set     | resident     | copied to the buffer                | yes
//
// "Was" speaks of the moment when the worker comes to the request. A caller with a buffer closes only if it knows that
// the file was resident, for instance because it held a reference of its own from before the request to after it; one
// that can't know does not close: then the file may stay in memory, but nobody's reference is taken away.
//
// All of this is called from the main thread. The worker holds the lock of the file that it reads, so a FileOpen of
// that file waits for it and lifts it to the normal class meanwhile, as the module's shutdown does. Where the system lets
// no thread be lifted (ThreadCanBeLifted in threads.h), the worker reads a FileOnDisk_c without its lock: a FileOpen then
// reads the file itself, and the shutdown breaks the worker's read off. Nothing else here waits for a read in progress.
// Up to the poll that saw a request done, its file must not be closed, refreshed, killed or reset.
//
// The child of a fork has the requests and files of the parent and starts a worker at the first call that needs one. A
// file that is in no table and has no request must not be in use by another thread at the fork.
#pragma once

#include "zqcore/cfile.h"

/// Types that may be registered when FileStayerRegister is called; what one call adds is not limited.
inline constexpr int g_iMaxStayerTypes = 32;

/// Registers the extensions of a list that a null pointer ends. Names are compared exactly, so they are to be in lower
/// case and with their dot; 7 characters count. Files that are resident already do not stay for that.
ZQ_API void FileStayerRegister(char const * szExtList, ...);

/// Forgets the registered extensions. Files that stay go on staying.
ZQ_API void FileStayerResetMask();

/// Closes each file that stays once for each time it was read, in the order of the reads. The extensions stay.
ZQ_API void FileStayerResetAll();

/// Opens all files of an extension, given in lower case with its dot; each holds a reference until FileUnfetch. A file
/// that can't be read counts in the log line all the same.
ZQ_API void FilePrefetch(char const * szExt);

/// Closes all files of an extension once. Without a prefetch that takes the reference of somebody else.
ZQ_API void FileUnfetch(char const * szExt);

/// Queues a read of the file, into its own block or into a buffer of iLength bytes as of this call, which must stay
/// until the request is done; the handle. A file that is larger by then is not read. Requests are served in order, one at a time; those made while the module is not up wait for its
/// start, those left at its Shutdown are dropped. If the system gives no thread they are served here, at once.
///
/// A handle is a position: the poll that sees a request done removes it, and those behind it move down by one. With
/// more than one request under way poll the newest handle first, or poll by file.
ZQ_API void * FileAsyncOpen(File_c * pFile, void * pBuffer);

/// Whether the request is done, well or not; then it is removed, so this is said once. An unknown handle fails an
/// assertion.
ZQ_API bool FileAsyncIsLoaded(void * file);

/// The same for the oldest request for this file; false also if there is none. Walks the requests.
ZQ_API bool FileAsyncIsLoadedSlow(File_c * pFile);
