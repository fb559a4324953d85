// cfilelog.h: development tools that show which files a program opens.
//
// The tracker lists the file handles that the library has open, except those of logs, reports of memory and crashes,
// the registry, the clipboard, locks of saves, FileCloneLoadedMedia and the lock test of cfiletrack.h. It complains
// when there are many and when an open fails. The response logs list the paths that are opened on disk or in an
// archive (czip.h). docs/formats.md describes them. The other functions report or copy what was loaded.
//
// Ownership: all state is static. The library opens and closes the logs.
// Threads: the tracker and the response logs may be used on any thread. Each has a lock of its own. The tracker holds
// none while it complains or logs the list. FileDumpInfo, FileLogLoadedMedia and FileCloneLoadedMedia belong to the
// main thread.
// Cost: the tracker runs from load to the end of the process and allocates nothing. A response log costs a write a
// line. The clean log also allocates 256 bytes a path. Each open searches its paths one by one.
// Failure: the tracker complains by Achtung and assertions. A log that can't be created is not written.
//
//     FileOpenLogScope_c const Start("start", FILE_LOG_CLEAN);   // media root\Logs\start_clean.rsp
//     FileReference_c const Levels("levels.csv");                // its path is one line there
//     FileReference_c const Again("levels.csv");                 // and still is
#pragma once

#include "zqcore/cconfig.h"

#include <cstdint>

/// Bits of the response logs.
inline constexpr std::uint32_t FILE_LOG_PLAIN = 1;      // <name>.rsp: each open, in order
inline constexpr std::uint32_t FILE_LOG_CLEAN = 2;      // <name>_clean.rsp: each path once if below 256 characters
inline constexpr std::uint32_t FILE_LOG_PREFETCH = 4;   // <name>_prefetch.rsp: as the plain log

/// Whether g_FileOpenCallbacker fires for each File_c that is opened on disk or in an archive, found or not. It is
/// false at start. FileOpenLogEnable and FileOpenLogDisable set it.
extern ZQ_API bool g_bCollectResource;

/// Notes an attempt to open a file: the handle, or null or -1 for a failure, and the name. The list holds a copy of the
/// name, cut at 259 characters.
/// - Raises an Achtung, and logs the list, when more than 50 handles are open, and again at each further 10.
/// - Raises an Achtung for a failed open of a name, unless the name ends as the packs of the media template do or in
///   ".bin". Case does not matter.
/// - Asserts that fewer than 256 handles are listed. A further one is counted, but not listed.
///
/// While a thread logs the list, its own calls are ignored.
ZQ_API void FileOpenTracker(void * hFile, char const * sName);

/// Notes that a handle is about to be closed. Null and -1 are ignored. Requires that it is still open: after the close
/// another thread may get the same number. Asserts that the handle is listed, unless handles are open that found no
/// room in the list.
ZQ_API void FileCloseTracker(void * hFile);

/// Opens the response logs of dwMask in the media root's folder Logs. Their <name> is sName, or "thegame" if that is
/// null or empty. First closes those of them that are open. The clean log then writes each path again, also with
/// bAppend. Deletes old contents, unless bAppend is set. Logs outside of dwMask stay open. Without the folder no log is
/// created.
///
/// Sets g_bCollectResource to true. Opens are written while ModuleFile_c is initialised, as the paths that were opened.
/// A path with a control character would forge a line: it is skipped, with a line in the main log.
ZQ_API void FileOpenLogEnable(char const * sName, std::uint32_t dwMask, bool bAppend);

/// Closes all response logs and sets g_bCollectResource to false. ModuleFile_c's Shutdown does not: the logs stay open
/// for the next start.
ZQ_API void FileOpenLogDisable();

/// Scope in which response logs are open: calls FileOpenLogEnable, and FileOpenLogDisable at the end. Scopes do not
/// nest.
class FileOpenLogScope_c
{
public:
    FileOpenLogScope_c(char const * sName, std::uint32_t dwMask, bool bAppend = false)
    {
        FileOpenLogEnable(sName, dwMask, bAppend);
    }
    ~FileOpenLogScope_c() { FileOpenLogDisable(); }
    FileOpenLogScope_c(FileOpenLogScope_c const &) = delete;
    FileOpenLogScope_c & operator=(FileOpenLogScope_c const &) = delete;
};

/// Sets which of the open response logs are written, as FILE_LOG_ bits. At start these are plain and clean.
ZQ_API void FileOpenLogMode(std::uint32_t dwMode);

/// Fires g_FileOpenCallbacker with a path and writes it to the open response logs of dwMode, as if it had been opened.
/// Does nothing while g_bCollectResource is false. Otherwise asserts that sName is not null.
ZQ_API void FileOpenToResponseLog(char const * sName, std::uint32_t dwMode);

/// Writes the files whose File_c::iReads is above 1, and this number, to the named log fileopen_calls.log, the largest
/// number first. A file that was streamed once is one of them, with 2.
ZQ_API void FileDumpInfo();

/// Logs size in bytes and name of each resident file whose File_c::bOpened is set, in table order. Waits for a file
/// that is being read.
ZQ_API void FileLogLoadedMedia();

/// Copies the files whose File_c::bOpened is set, under their keys, into the folder LoadedMedia of the current folder.
/// Deletes the previous LoadedMedia first, without following links. What can't be deleted stays. If the folder can't be
/// created, and a listing of the current folder does not show it, nothing is copied. Files that can't be copied and
/// keys that lead out of the folder are skipped without a message.
ZQ_API void FileCloneLoadedMedia();
