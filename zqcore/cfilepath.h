// cfilepath.h: the table of files, and the folders that fill it.
//
// The file system is flat: a scan of a folder enters every file under its lower-case name in one table, so a lookup is
// one probe and asks no disk. Of two files with one name the first that was met stays, in the order of the scan, which
// is depth first and by name, the same on every machine; the other is dropped with a log line. Nothing overlays.
//
// Folders are kept in lower case with `\`, also at the end. Of names in one folder that differ in case only, a path in
// lower case leads to the one without capitals, else to the first by bytes. That one is entered; a file beside it is a
// duplicate, and what is not of its kind, or another folder, is skipped. A scan never opens a file and never runs in
// circles. It skips, with a log line:
// - names that are not UTF-8 or hold a `\`, and keys that begin like a drive, as `a:b` does;
// - pipes, sockets and devices;
// - folders that can't be read, or whose path takes more than 255 characters;
// - files of which the system gives no facts;
// - a folder in which the scan has been already, by a link or as the target of one.
// Links to nothing are not seen. A file that a save did not finish (FileReplacement_c::IsBeside) is never registered. A
// bare name of more than 127 characters is cut, so that it can't be opened, and a file of 2 GiB or more can't be opened
// either; both are logged. After a fault of the system the scan is not whole (FileScanIsWhole): what it missed is missing
// in the table alone.
//
// All of this belongs to the main thread.
#pragma once

#include "zqcore/cfile.h"
#include "zqcore/chash.h"

using FileTable_t = StringHash_T<File_c, 128, 16384, 117>;
using PathTable_t = StringHash_T<String_T<256>, 256, 4096, 117>;

/// All files by their key, and all folders that scans entered. The objects belong to the functions below. Table order,
/// that of First and Next, follows from the hash.
extern ZQ_API FileTable_t g_sFileObjects;
extern ZQ_API PathTable_t g_sPaths;

/// Scans a folder, with its subfolders if bRecursive. With bRelativeNames the key of a file is its path below the media
/// root, so a file directly in the root has its bare name as the key. A file whose key takes more than 127 characters
/// is then left out, and a folder outside of the media root gives bare names, each with a log line. False if there is no such folder, its path is too long, or one in lower case hides it. Fires
/// g_AddSubfolderCallbacker.
ZQ_API bool FileAddSearchPath(char const * sPath, bool bRecursive, bool bRelativeNames);

/// Whether scans saw all that lies below a path, which is any prefix that ends at a separator. False if a folder could
/// not be read, or the system failed at an entry of one, until that folder is scanned again or forgotten.
ZQ_API bool FileScanIsWhole(char const * sPath);

/// FileResetFiles; the flag means nothing.
ZQ_API void FileRemoveSearchPath(char const * sPath, bool bUnused);

/// Forgets all files and folders below a path, which is any prefix that ends at a separator, after closing each file
/// once. A file that others hold open can't be found any more, but lives, and knows its folder, until FileReset.
/// Whether anything was removed.
ZQ_API bool FileResetFiles(char const * sPath);

/// Destroys all files and forgets all folders. No file may be in use.
ZQ_API void FileReset();

/// Registers one file by its path, after reading it once. True if its bare name is known already, wherever that lies;
/// false, with log lines, if it can't be read or registered.
ZQ_API bool FileAddOneFile(char const * sFile);

/// Names a folder that scans never enter, or a file that they never register: a bare name, in any case.
ZQ_API void FileAlwaysExcludeFolder(char const * sName);
ZQ_API void FileAlwaysExcludeFile(char const * sName);

/// Fills dFiles with up to iMax files, at least 1, whose folder begins with sPath, subfolders included, in table order;
/// how many. Files without a folder are left out.
ZQ_API int FileGetDirectoryFiles(char const * sPath, File_c ** const dFiles, int iMax);
