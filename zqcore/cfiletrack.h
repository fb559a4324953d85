// cfiletrack.h: reports known files that were rewritten, and registers files that are new since the scan.
//
// One folder is watched with its subfolders. g_FileTrackChangesCallbacker (ccallback.h) fires for each known file that
// a writer has changed and closed, with its bare name in the spelling of the disk. All of that happens in
// FileTrackDoWork, which ModuleFile_c calls in its idle heartbeat.
//
// These are changes, one each:
// - a file was opened for writing and closed: a rewrite, an append, a copy over it.
// - another file was renamed to its name, as editors save and version control checks out. The name of a known file that
//   was renamed away or deleted is kept for this, up to 65,536 names.
// - a new file was made, and something was written into it.
// - two files were exchanged: a change of each.
//
// These are no changes: an empty new file, a deletion, a renamed folder, and a new name that no known file had. A file
// that was written several times between two calls is reported once. One that was written and is gone at the time of
// the call is not reported.
//
// Limits of the watch:
// - Folders that appear, move or vanish are followed. Links to folders are followed if they exist when the watch of
//   their folder starts. Links to files are not followed.
// - When the watched folder is deleted or renamed, no more changes are reported. FileTrackGetProblem says so.
// - All changes between two calls are lost, with a log line, if the system has no room for them, or if they need more
//   than 4094 bytes: 12 each, and two for each UTF-16 unit of the path below the watched folder, each but the last
//   rounded up to a multiple of 4. 100 paths of 14 characters fit.
// - Characters above U+00FF are dropped from paths. So changes of files whose paths hold such characters are lost. A
//   line is logged if only the names of folders hold them and the file is known.
//
// Ownership: texts are copied.
// Threads: main thread. The watch has no thread of its own. A forked child reports only changes after its first call.
// Its parent reports the earlier ones.
// Cost: a call without changes is one system call that does not wait.
// Failure: log lines. A failed FileTrackChanges also raises an Achtung, unless FileOpenTracker excepts the name.
// FileTrackGetProblem returns the latest problem of the watch.
//
//     auto const OnChange = [](char const * szName) { FileStream(szName)->Refresh(); };
//     g_FileTrackChangesCallbacker.Add(OnChange, false);
//     FileTrackSetIgnoreExtList(".tmp .bak");
//     FileTrackChanges("media");
#pragma once

#include "zqcore/cstring.h"

/// Starts to watch a folder with its subfolders. Ends a previous watch. Skips subfolders that can't be read, without a
/// report. Asserts that sPath is not null. Requires that it has no separator at its end. On failure nothing is watched.
/// Log lines state the reason, and FileOpenTracker (cfilelog.h) raises an Achtung unless it excepts the name. It fails
/// in these cases:
/// - the folder can't be opened, or its path has more than 255 characters.
/// - a limit of the system is reached. Under Linux the limits are `fs.inotify.max_user_watches`, the folders that a
///   user may watch, `fs.inotify.max_user_instances`, the watches that a user may start, and the number of open files.
ZQ_API void FileTrackChanges(char const * sPath);

/// Returns whether a watch is on: the latest FileTrackChanges succeeded, and FileTrackShutdown was not called after it.
ZQ_API bool FileTrackIsOn();

/// Returns the latest problem of the watch: the folder of FileTrackChanges or subfolders that appeared later are not
/// watched, and why, or changes were lost. Names the system's setting to raise if that helps. Also reports that the
/// watch has ended, after the next FileTrackDoWork: the folder was moved or deleted, or the system refused to watch it
/// again. The text is empty in these cases:
/// - FileTrackChanges succeeded, and FileTrackDoWork has found none of these problems since. A subfolder that can't be
///   read does not count.
/// - FileTrackChanges was not called yet, or FileTrackShutdown was called after it.
ZQ_API String_T<1024> FileTrackGetProblem();

/// Replaces the extensions of files that are not reported. They have their dots, are in the case of the disk and are
/// separated by blanks. The list is cut at 255 characters. Null empties it.
ZQ_API void FileTrackSetIgnoreExtList(char const * sList);

/// Reports what has changed since the last call. Waits at each file to report until it can be opened and no process has
/// it open for writing: at least 10 ms, and at most 5 seconds. A wait of more than 100 ms is logged. After 5 seconds
/// the change is lost. If the file is not at its path, the change is logged and lost without a further wait. A call
/// from within a receiver does nothing.
ZQ_API void FileTrackDoWork();

/// Ends the watch, if there is one, and empties the list of extensions.
ZQ_API void FileTrackShutdown();

/// Registers the files of the known folders whose bare names are not in the table, under these names: files that were
/// added since the scan, and files that it excluded or added under a relative key. Their size and times are 0 until
/// they are opened. Subfolders are not entered, and deleted files stay in the table. Skips a file without a log line in
/// these cases:
/// - its name is known already.
/// - a scan would skip it by another rule than exclusions and the case of names.
/// - the table is full.
/// - its folder can't be read.
ZQ_API void FileRefresh();
