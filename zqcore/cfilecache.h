// cfilecache.h: a cache of the tables of files and folders, so that a start need not scan the media root.
//
// ModuleFile_c loads the cache instead of scanning if FilesystemCacheInit named one. At shutdown it writes the cache if
// SetCacheFile named one and a folder of the media root is known. Without SetCacheFile it does so if a file named
// filesystemcache.bin is known. Folders are stored relative to the media root, so a cache stays valid when the tree
// moves. A cache is written only after scans that read everything. So a fault of the system, or a missing media root,
// affects one start and not the following ones.
//
// A load does not compare the cache with the disk. FilesystemCacheIsCurrent compares its folders. Without that call:
// - a file that was added since is unknown.
// - a file that was deleted since fails to open.
// - sizes and times may be outdated until a file is opened.
//
// docs/formats.md describes the bytes.
//
// Ownership: loaded objects belong to the table of files.
// Threads: main thread, while the modules start and end.
// Cost: a load reads the cache at once and allocates each entry, about 0.2 us a file. A save takes as long, writes 4096
// bytes at a time and waits for the disk at its end.
// Failure: the load of a damaged cache ends in Abort. If the cache is deleted, the next start scans.
//
//     SetPQXMediaPath("media");
//     FilesystemCacheInit("filesystemcache.bin");
//     ModuleFile_c::Get()->SetCacheFile("filesystemcache.bin");   // where Shutdown writes it
//     ModuleFile_c::Get()->CheckCache(true);                      // a start scans if a folder has changed
#pragma once

#include "zqcore/cstring.h"

/// Path of the cache to load, or an empty text for none. A load that fails empties it, and so does ModuleFile_c if the
/// cache is not current.
extern ZQ_API String_T<256> g_sFilesystemCacheName;

/// Sets g_sFilesystemCacheName, cut at 255 characters. Null or an empty text names none. Requires a call before the
/// modules start.
ZQ_API void FilesystemCacheInit(char const * sName);

/// Fills the tables from the cache and returns true. Empties g_sFilesystemCacheName and returns false in these cases:
/// - no cache is named, or it can't be read.
/// - there is no media root.
///
/// The tables are then as before, except that they may hold the cache's own folder. A damaged cache ends in Abort:
/// - another major version, or too few bytes.
/// - a negative count, or a file without a name.
/// - a folder's text that does not fit its checksum, which asserts first.
/// - a folder's text that does not begin and end with `\`.
/// - two entries of one name, unless each is that of a file registered before.
/// - a file whose folder is not among the cache's folders.
/// - more folders than the table of one load has room for, or more files than g_sFileObjects has.
///
/// Bytes after the last record are not read. A load adds to what the tables hold already:
/// - Files that were registered before stay, with their folders, except for the cache's own folder.
/// - Such a file that the cache lists too keeps its object. If the cache has it in another folder, that is a duplicate
///   and ends in Abort.
/// - A folder for which g_sPaths has no room is logged. Its files then have no folder, as after a scan.
/// - A folder whose path has become too long is logged and skipped with its files.
/// - A file with the name of an unfinished save (FileReplacement_c::IsBeside) is skipped.
ZQ_API bool FilesystemCacheLoad();

/// Sets whether scans store the size and time of each folder, and FilesystemCacheSave writes them after the records,
/// for FilesystemCacheIsCurrent. At start they do not. ModuleFile_c sets it at its start after CheckCache(true). Costs
/// one system call for each folder. Requires a call before the scan.
ZQ_API void FilesystemCacheCheck(bool bCheck);

/// Compares the folders of the cache that FilesystemCacheInit named with the disk. Stores the size and time of each
/// folder before the first one that has changed, for FilesystemCacheSave. Returns true if none has changed since it was
/// scanned. Returns false, with a log line, in these cases:
/// - there is no media root, or no cache was named.
/// - a folder has changed, or its path has become too long. The line names the first one.
/// - the cache can't be read, or it ends too early.
/// - the cache lacks the media root.
/// - the cache was written without FilesystemCacheCheck.
/// - the cache lists a folder that neither a scan nor this function had read, so it has no size and time of it.
///
/// A folder has changed if its size or time of change has. Adding, deleting and renaming change them. Writing into a
/// file does not. In the cache's own folder the names are compared, because each save changes its time.
///
/// Another major version ends in Abort. The load reports other damage. The tables stay as they are. Costs one read of
/// the cache, one listing of the cache's own folder, and one system call for each folder. There are two system calls
/// for each if the cache does not list its own folder by the path in g_sFilesystemCacheName.
ZQ_API bool FilesystemCacheIsCurrent();

/// Writes the folders and files below the media root to the cache sFile, except for a file with the bare name of sFile.
/// The new cache replaces the old one in one step (FileReplacement_c). On failure logs a line, and the old one stays,
/// unless only the new name could not be synchronised. If no file can be made beside the cache, calls
/// FileOpenTracker (cfilelog.h). No cache is written in these cases:
/// - there is no media root.
/// - sFile is null, which asserts, or has more than 255 characters.
/// - scans could not see all below the root (FileScanIsWhole).
/// - the table of files is so full that a load could not add all files again.
///
/// A file that no load could place is left out: its folder is not in g_sPaths, or the table has two objects of its
/// key. A process that is killed during the call leaves a file beside the cache that no scan registers.
ZQ_API void FilesystemCacheSave(char const * sFile);
