// cfilelog.h: development tools that tell which files a program opens.
//
// The tracker lists every file handle that the library has open, warns when there are many, and when an open fails. It
// runs from load time to the end and takes no memory. The response logs are plain lists of the locations that are
// opened on disk, with one write each; docs/formats.md tells the files. The rest reports or copies what was loaded, and
// belongs to the main thread; the tracker and the response logs may be used from any thread: each has a lock of its
// own, and the tracker holds none while it complains or dumps.
#pragma once

#include "zqcore/cconfig.h"

#include <cstdint>

/// Whether g_FileOpenCallbacker is told of each file that is opened on disk, found or not. Starts false;
/// FileOpenLogEnable and FileOpenLogDisable set it.
extern ZQ_API bool g_bCollectResource;

/// To be called after every attempt to open a file, with the handle, or null or -1 for a failure, and the name. Raises
/// Achtung with a dump of the list when more than 50 handles are open, and again for each further 10; and for a failed
/// open, unless the name is null or ends like a pack of the media template or in ".bin", in any case. Handles beyond
/// 256 fail an assertion and are counted, but not listed. During a dump the dumping thread's own calls are ignored.
ZQ_API void FileOpenTracker(void * hFile, char const * sName);

/// To be called when such a handle is closed, before the system can give its number to another thread. A handle that is
/// not listed is reported; null and -1 are ignored.
ZQ_API void FileCloseTracker(void * hFile);

/// The response logs: every open in order; each location once; every open, under a bit of its own.
inline constexpr std::uint32_t FILE_LOG_PLAIN = 1;      // <name>.rsp
inline constexpr std::uint32_t FILE_LOG_CLEAN = 2;      // <name>_clean.rsp
inline constexpr std::uint32_t FILE_LOG_PREFETCH = 4;   // <name>_prefetch.rsp

/// Opens the response logs of dwMask in the folder Logs of the media root, which must be there; "thegame" without a
/// name. Their old contents go, unless bAppend. One that is open already is closed first, and the clean one then starts
/// afresh; the others stay open. A log that can't be created stays silent. They are written once ModuleFile_c is up.
ZQ_API void FileOpenLogEnable(char const * sName, std::uint32_t dwMask, bool bAppend);

/// Closes all response logs and ends the collecting. ModuleFile_c's Shutdown does not: they stay open for another start.
ZQ_API void FileOpenLogDisable();

/// Chooses which of the open response logs are written, 3 (plain and clean) at first.
ZQ_API void FileOpenLogMode(std::uint32_t dwMode);

/// Writes a location as if it had been opened, in the mode dwMode for this once; only while resources are collected.
/// Other receivers of g_FileOpenCallbacker are not told.
ZQ_API void FileOpenToResponseLog(char const * sName, std::uint32_t dwMode);

/// Writes the files that were read from disk more than once and how often, most-read first, to fileopen_calls.log.
ZQ_API void FileDumpInfo();

/// Logs size and name of the files that were opened and are resident, in table order. Waits for a file that is being
/// read.
ZQ_API void FileLogLoadedMedia();

/// Copies every file that was opened or streamed into the folder LoadedMedia of the current folder, by its key. What was
/// there before is deleted, links not followed; if the folder can't be made anew nothing is copied. Files that can't be
/// copied, and keys that lead out of the folder, are left out without a message.
ZQ_API void FileCloneLoadedMedia();
