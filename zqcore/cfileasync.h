// cfileasync.h: ways to load files other than FileOpen: stayers, prefetch and asynchronous open.
//
// A stayer is a file that stays in memory after its last reader closes it. The host registers extensions. Each read of
// a file with such an extension into its own block, a refresh too, adds a reference, which FileStayerResetAll releases.
// FileResetFiles releases one of them for each file that it removes, so a stayer that was refreshed stays in memory,
// out of the table, until FileStayerResetAll or FileReset. Prefetch reads all files of an extension at once. An
// asynchronous open passes a read to the worker, a thread in the idle class that ModuleFile_c starts and stops. The
// caller polls for the end.
//
// What a request leaves:
//
//   pBuffer | file was     | contents                            | reference added
//   null    | not resident | in pData                            | yes: the caller calls FileClose
//   null    | resident     | in pData                            | yes
//   set     | not resident | in the buffer; pData stays null     | no
//   set     | resident     | copied to the buffer                | yes
//
// "Was" means the time at which the worker serves the request. A caller with a buffer closes only if it knows that the
// file was resident. It knows if it held a reference of its own from before the request until after it. A caller
// that can't know does not close: the file may then stay in memory, but no reference of another caller is released.
//
// Ownership: the caller owns file and buffer. Requires that the buffer exists, and that the file is not closed,
// refreshed, killed or reset, until the poll that sees the request done.
// Threads: the main thread calls all functions. The worker holds the lock of the file that it reads. An open or a close
// of that file, or the shutdown of the module, waits for the read and raises the worker to the normal class meanwhile.
// On a system that can't raise a thread (plat::ThreadCanBeLifted), the worker reads a FileOnDisk_c without its lock. On
// such a system a FileOpen reads the file itself, and the shutdown cancels the read of the worker. Nothing else here
// waits for a read in progress. A forked child has the requests and files of the parent. It starts a worker at the
// first call that needs one. Requires that at the fork no other thread uses a file that is in no table and has no
// request.
// Cost: the worker sleeps while there is no request. FilePrefetch and FileUnfetch walk the table of files.
// Failure: a failed read is done too. It adds no reference. A buffer may then hold a part of the contents.
//
//     if (File_c * const pFile = g_sFileObjects.FindByName("level1.map"))
//     {
//         void * const hRequest = FileAsyncOpen(pFile, nullptr);
//         while (!FileAsyncIsLoaded(hRequest))
//         {}   // a game renders a frame here
//         if (pFile->pData)
//         {
//             FileClose(pFile);   // a failed read added no reference
//         }
//     }
#pragma once

#include "zqcore/cfile.h"

/// Number of registered extensions from which on FileStayerRegister asserts. A single call may register more.
inline constexpr int g_iMaxStayerTypes = 32;

/// Registers extensions. Their first 7 characters are compared exactly. A file that is in memory already becomes a
/// stayer at its next read. Requires that the list ends with a null pointer, and that the extensions are in lower case
/// and begin with the dot. Asserts that the list is not empty, and that fewer than g_iMaxStayerTypes extensions
/// are registered so far.
ZQ_API void FileStayerRegister(char const * szExtList, ...);

/// Removes the registered extensions. Stayers remain stayers.
ZQ_API void FileStayerResetMask();

/// Closes each stayer once for each reference that its reads added, in the order of the reads. Extensions stay
/// registered.
ZQ_API void FileStayerResetAll();

/// Opens all files of an extension. Each that can be read has one more reference until FileUnfetch. Logs their
/// number and bytes, including those that can't be read. Requires that szExt is in lower case and begins with the dot.
/// Asserts that it is not null.
ZQ_API void FilePrefetch(char const * szExt);

/// Closes all files of an extension once and logs their number. If FilePrefetch has not read a file, this releases
/// another caller's reference to it, if any. szExt is as in FilePrefetch. Asserts that it is not null.
ZQ_API void FileUnfetch(char const * szExt);

/// Scope in which all files of an extension that can be read are in memory: calls FilePrefetch, and FileUnfetch at the
/// end. szExt is as in FilePrefetch and is kept as a pointer. Requires that no such file is added or removed meanwhile.
class FilePrefetchScope_c
{
public:
    /// Calls FilePrefetch.
    explicit FilePrefetchScope_c(char const * szExt)
        : m_szExt(szExt)
    {
        FilePrefetch(szExt);
    }
    ~FilePrefetchScope_c() { FileUnfetch(m_szExt); }
    FilePrefetchScope_c(FilePrefetchScope_c const &) = delete;
    FilePrefetchScope_c & operator=(FilePrefetchScope_c const &) = delete;

private:
    char const * const m_szExt;
};

/// Queues a read of the file into its own block, or into a buffer, and returns a handle. Rules of the queue:
/// - Requests are served in order, one at a time.
/// - Requests from before the module's start wait for it. Its Shutdown drops those that are left.
/// - If the system has no thread for a worker, this call serves the request.
/// - If the file has grown when the request is served, it is not read into the buffer.
///
/// Requires that a buffer has room for the file's iLength bytes as of this call. Asserts that pFile is not null, and
/// otherwise adds no request. The handle is then unknown to FileAsyncIsLoaded.
///
/// A handle is a position: the poll that sees a request done removes it, and later requests move down by one. Requires
/// that a caller with more than one request polls the newest handle first, or polls by file.
ZQ_API void * FileAsyncOpen(File_c * pFile, void * pBuffer);

/// Removes the request if it is done, even if its read failed, and returns true. Returns false while it is not done.
/// Asserts that the handle is known, and returns false otherwise.
ZQ_API bool FileAsyncIsLoaded(void * file);

/// Removes the oldest request for this file if it is done, even if its read failed, and returns true. Walks the
/// requests. Returns false while the oldest one is not done, and if there is no request for the file.
ZQ_API bool FileAsyncIsLoadedSlow(File_c * pFile);
