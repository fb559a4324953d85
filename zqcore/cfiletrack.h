// cfiletrack.h: which known files were just rewritten, and files that came into being since the scan.
//
// One folder tree is watched while the game runs. Each known file of it that a writer changed and let go of is told to
// g_FileTrackChangesCallbacker by its bare name, in the spelling of the disk. There is no thread: all of it happens in
// FileTrackDoWork, which ModuleFile_c calls in its idle heartbeat, on the main thread. While nothing changes a call
// costs one question to the system that does not wait.
//
// A change is what a user would call one: a file that was opened for writing and closed, or one that another file was
// renamed onto. So a rewrite, an append, a copy over it, an editor's save through a second file, a checkout are one
// each; a file made anew is one once something was written into it, since a checkout deletes and makes anew. A known
// file that was renamed away or deleted keeps its name here: a file that is renamed to that name, then or later, is a
// change of it. At most 65,536 such names are kept; files that go after that are forgotten. An exchange of two names is
// a change of each. Making an empty file, deleting, and renaming to a name that no known file had are none, nor is
// renaming a folder. A file that was written several times between two calls is reported once; one that was written
// and is gone by the time of the call is not reported.
//
// Folders that appear, are moved or go are followed, and so are links to folders that are there from the start. A link
// to a file is not: the change happens in another folder. Once the watched folder is deleted or renamed nothing more
// comes. What happens between two calls must fit 4,094 bytes, at 12 and twice the path below the watched folder each:
// if it does not, all of it is lost; a hundred paths of 14 characters fit. Of paths the characters up to U+00FF count
// and the others are dropped, so changes of files below such names are lost, those of known ones with a log line.
//
// The child of a fork tracks on its own from its first call on; what changed before that is reported in the parent alone.
#pragma once

#include "zqcore/cstring.h"

/// Starts to watch a folder with its subfolders; sPath has no separator at its end. A watch that is on ends first. If
/// the folder can't be opened, or has more subfolders than the system watches, log lines say so, FileOpenTracker
/// complains, and none is watched. The system limits watches: under Linux `fs.inotify.max_user_watches` is how many
/// folders a user may watch, and `fs.inotify.max_user_instances` how many watches a user may start.
ZQ_API void FileTrackChanges(char const * sPath);

/// Whether a folder is watched.
ZQ_API bool FileTrackIsOn();

/// What is not watched though FileTrackChanges was asked to, and why, with the system's setting to raise where that
/// helps: the folder, or subfolders that appeared since. Empty if there is nothing of the kind, and after
/// FileTrackShutdown.
ZQ_API String_T<1024> FileTrackGetProblem();

/// Replaces the extensions that are not told of: with their dots, in the case of the disk, separated by blanks.
/// 255 characters count.
ZQ_API void FileTrackSetIgnoreExtList(char const * sList);

/// Tells what changed since the last call. At a changed file it waits, up to 5 seconds, until nobody writes it; a file
/// that is not let go of is logged and lost, and so is, without a wait, one that is not at its path any more. A call
/// from within the callback does nothing.
ZQ_API void FileTrackDoWork();

/// Ends the watch, if there is one, and empties the ignore list.
ZQ_API void FileTrackShutdown();

/// Registers the files that the known folders got since they were scanned, by bare name; one whose name is taken is
/// left out. Exclusions do not apply, subfolders are not entered, vanished files stay. Until its first Open such a file
/// has no size and no times. Names that a scan passes over are passed over without a log line.
ZQ_API void FileRefresh();
