// cfilecache.h: the tables of files and folders, kept in one file from run to run, so that a start reads no folder.
//
// ModuleFile_c loads the cache in place of its scan if a name was given here, and writes it at shutdown if a file named
// filesystemcache.bin is known. Folders are stored relative to the media root, so a cache stays good when the tree
// moves. It is written from whole scans only, so a fault of the system costs one start and not all that follow. It is never
// compared with the disk: what was added to the tree since is not seen, what was deleted fails to open, and sizes and times
// hold until a file is opened. A damaged cache ends in Abort; deleting it brings back a scan.
// docs/formats.md tells its bytes.
//
// Main thread, while the modules start and end. A load costs one read of the cache and an allocation for each entry,
// about 0.2 us a file; a save the same, one write and a wait for the disk.
#pragma once

#include "zqcore/cstring.h"

/// Where the cache is read from, a location on disk; empty for none, and emptied by a load that finds nothing.
extern ZQ_API String_T<256> g_sFilesystemCacheName;

/// Sets that name, before the modules start. Null or an empty text: no cache.
ZQ_API void FilesystemCacheInit(char const * sName);

/// Fills the tables from the cache. False, with the name emptied, if it can't be read, at any moment of the
/// load, or if there is no media root; the
/// tables then hold what they held, and perhaps the cache's own folder. A damaged cache ends in Abort: another major
/// version, too few bytes, a text that does not fit its check sum, two entries of one name, a file without its folder.
/// Bytes after the last record are not read.
///
/// Files that were registered before stay, with their folders, but for the cache's own folder. One that the cache lists
/// too keeps its object; if the cache has its name in another folder, that is a duplicate, which ends in Abort. A
/// folder that g_sPaths does not take is logged and its files have no folder, as in a scan; one whose path has become
/// too long is logged and left out with its files.
ZQ_API bool FilesystemCacheLoad();

/// Has scans note size and time of each folder, and FilesystemCacheSave write them behind the records, for
/// FilesystemCacheIsCurrent. Off at first: nothing is noted, and a cache has its records alone. To be set ahead of the
/// scan. Costs one question to the system for each folder. ModuleFile_c::CheckCache does all of this.
ZQ_API void FilesystemCacheCheck(bool bCheck);

/// Whether the folders of the cache that FilesystemCacheInit named are as they were when they were scanned: none has
/// another size or time of change, which adding, deleting and renaming change and writing into a file does not. Of the
/// cache's own folder the names are compared, since each save changes its time. False, with a log line that names the
/// first other folder, also for a cache that can't be read, is damaged or was written without FilesystemCacheCheck.
/// Another major version ends in Abort. The tables stay as they are. Main thread; costs one read of the cache and one
/// question to the system for each folder.
ZQ_API bool FilesystemCacheIsCurrent();

/// Writes the folders and files below the media root, all but a file of the bare name of sFile. The new cache is made
/// beside the old one (FileReplacement_c) and then takes its place in one step: if anything fails the old one stays, with
/// a log line. No scan registers what a process that is killed meanwhile leaves beside it. No cache is written without a
/// media root, to a path of more than 255 characters, or when scans could not see all below the root (FileScanIsWhole). Left out is what no load could place: a file whose folder is not
/// in g_sPaths, or that another of its name hides.
ZQ_API void FilesystemCacheSave(char const * sFile);
