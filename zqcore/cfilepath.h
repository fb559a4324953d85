// cfilepath.h: the table of files, and the scans of folders that fill it.
//
// The file system is flat. A scan of a folder enters each file under its lower-case name in one table, so a lookup
// does not touch the disk. If two files share a name, the one found first stays. The scan drops the other with a log
// line. A later folder never hides a file of an earlier one. Scans are depth first and by name, the same on every
// machine. A scan never opens a file and always ends.
//
// Folders are stored in lower case with `\`, also at the end. If names in one folder differ in case only, a path in
// lower case leads to the one without capitals. If all have capitals, it leads to the first in byte order. The scan
// enters that one. A second file is a duplicate. A second folder, or an entry of another kind, is skipped. A scan also
// skips, with a log line:
// - names that are not UTF-8 or hold a `\`, and keys without a folder that begin with a drive, as `a:b` does.
// - pipes, sockets and devices.
// - folders that can't be read, or whose path has more than 255 characters.
// - entries of which the system reports no facts.
// - folders of another configuration (SetPQXCurrentConfig).
// - a folder that the scan has entered already, by a link or as the target of one.
//
// Without a log line it skips:
// - links whose target is missing, unless their names hold a `\`.
// - files of unfinished saves (FileReplacement_c::IsBeside).
// - excluded names, and the folders of other games (FileSetSplit).
// - files for which the table has no room, after the first one of the process, which is a Warning.
//
// A bare name of more than 127 characters is cut, so the file can't be opened. A file of 2 GiB or more can't be opened
// either. Both are logged. g_FileSkipCallbacker reports what a scan skips to a host, such as a tool for artists.
//
// Ownership: the tables own their objects. FileReset destroys all of them.
// Threads: main thread.
// Cost: a scan reads each folder once and allocates for each file and folder.
// Failure: what can't be registered is skipped, as described above. After a failure of the system FileScanIsWhole
// returns false. A null path or name asserts.
//
//     FileAlwaysExcludeFolder("sources");
//     if (FileAddSearchPath("media", true, false))
//     {
//         File_c * dLevels[64];
//         int const nLevels = FileGetDirectoryFiles("media\\levels\\", dLevels, 64);
//         Log("%i levels", nLevels);
//     }
#pragma once

#include "zqcore/ccallback.h"
#include "zqcore/cfile.h"
#include "zqcore/chash.h"
#include "zqcore/cstring.h"

inline constexpr int FILE_TABLE_STEP = 117;       // slots from one probe to the next, in both tables
inline constexpr int PATH_TABLE_FOLDERS = 4096;   // slots of the table of folders

/// Types of the two tables.
using FileTable_t = StringHash_T<File_c, 128, 16384, FILE_TABLE_STEP>;
using PathTable_t = StringHash_T<String_T<256>, 256, PATH_TABLE_FOLDERS, FILE_TABLE_STEP>;

/// Reasons why a scan skips an entry of a folder, or enters a file that can't be opened. Only FileZipMount (czip.h)
/// reports InArchive.
enum class FileSkip_e
{
    Duplicate,       // another file has its key
    NoRoom,          // the table of files is full
    CutName,         // entered, under the first 127 characters of its name
    TooLarge,        // entered, but can't be opened
    LongKey,         // its relative name has more than 127 characters
    LongPath,        // a folder whose path has more than 255 characters
    Case,            // it differs from another entry in case only, and one of the two is no regular file
    Drive,           // its name begins like a drive
    Separator,       // its name holds a `\`
    NotUtf8,         // its name is not UTF-8
    NoRegularFile,   // a pipe, socket or device
    Unreadable,      // a folder that can't be read
    Unknown,         // the system reports no facts of it
    LinkToEntered,   // a link to a folder that the scan has entered
    EnteredByLink,   // a folder that the scan has entered by a link
    Configuration,   // a folder of another configuration
    Split,           // a folder of another game
    Excluded,        // excluded by its name
    Unfinished,      // a file of an unfinished save
    InArchive        // an entry of an archive (czip.h)
};

/// Payload of g_FileSkipCallbacker. The texts are valid during the call.
struct FileSkip_t
{
    FileSkip_e eWhy;         // the rule that applied
    char const * szFolder;   // folder in the form of g_sPaths; may be empty if that is full; or the archive of an entry
    char const * szName;     // name as the disk spells it; empty for szFolder itself; of Duplicate and NoRoom: the key
    char const * szWhy;      // one statement in English
    File_c const * pFirst;   // file that has the key of a duplicate; otherwise null
};

/// All files by their keys, and the folders that scans, caches and FileAddOneFile have added. The order of First and
/// Next is the table order. It depends on the hashes.
extern ZQ_API FileTable_t g_sFileObjects;
extern ZQ_API PathTable_t g_sPaths;

/// Registers the files of a folder, with those of its subfolders if bRecursive is set, and returns true. Fires
/// g_AddSubfolderCallbacker for each folder. Returns true too if the folder can't be read. FileScanIsWhole then returns
/// false. Requires that no receiver removes folders from the tables. Returns false, with a log line, in these cases:
/// - there is no such folder.
/// - the system can't report it. FileScanIsWhole then returns false too.
/// - its path has more than 255 characters.
/// - a folder whose path differs in case only hides it.
///
/// With bRelativeNames the key of a file is its path below the media root, so a file directly in the root has its bare
/// name as the key. A file whose key exceeds 127 characters is then skipped with a log line. Files of a folder outside
/// of the media root keep bare names, with a log line for the folder. If g_sPaths has no room for a folder, its files
/// have no folder: their keys alone are their paths on disk.
ZQ_API bool FileAddSearchPath(char const * sPath, bool bRecursive, bool bRelativeNames);

/// Returns whether scans have seen all of a folder and its subfolders. An empty sPath means all scans. A folder that
/// could not be read, or whose entries the system could not report, makes it false until it is scanned again or
/// removed. A named media root that ModuleFile_c can't scan or find makes it false too. sPath is compared as text with
/// the paths of the scans, as in the functions below.
ZQ_API bool FileScanIsWhole(char const * sPath);

/// Event that fires, forced, for each entry that a scan or FileZipMount (czip.h) skips, and for each file that a scan
/// enters but that can't be opened. These are not reported:
/// - links whose target is missing, unless their names hold a `\`.
/// - excluded names and unfinished saves of which the system reports no facts, unless they may be of a kind for which
///   the name is not excluded.
/// - excluded names that hold a `\`, and those of pipes, sockets and devices that no regular file hides.
/// - excluded names of files that are hidden by a pipe, socket, device or folder whose name differs in case only.
/// - folders below the path of a scan that is not recursive.
///
/// Requires that no receiver changes the tables.
extern ZQ_API Callbacker_T<FileSkip_t> g_FileSkipCallbacker;

/// Calls FileResetFiles. The flag is not used.
ZQ_API void FileRemoveSearchPath(char const * sPath, bool bUnused);

/// Closes each file of a folder and its subfolders once, and removes the files and the folders. Returns whether
/// anything was removed. A file that has further references leaves the table, but stays valid, with its folder, until
/// FileReset. Requires that a caller with the only reference to a file does not use it afterwards.
ZQ_API bool FileResetFiles(char const * sPath);

/// Destroys all files and removes all folders. Requires that no file is in use.
ZQ_API void FileReset();

/// Reads a file once, registers it by its bare name and returns true. Returns true without touching the disk if the
/// bare name is known already, in any folder. On failure returns false, with log lines. g_sPaths may then have the
/// file's folder. A file that the system does not open is an Achtung too (cfile.h).
ZQ_API bool FileAddOneFile(char const * sFile);

/// Adds an object of a library above under its key, which is in lower case, and returns HASH_ADDED. With bOver,
/// hides another object that has the key already. Asserts that pFile has a key, and no pPath if bOver is set. Adds
/// nothing in these cases:
/// - an object that it does not hide has the key. The result is then HASH_PRESENT.
/// - the table has no room. The result is then HASH_FULL.
/// - pFile is null. The result is then HASH_FULL too.
///
/// The table owns an object that was added. A hidden object is in the table again when the object that hides it is
/// destroyed. Until then no lookup finds it. Pointers to it stay valid. These functions reach it too:
/// - FileResetFiles removes it with its folder.
/// - FileReset destroys it.
/// - FilesystemCacheSave (cfilecache.h) writes it.
ZQ_API HashAdd_e FileAddObject(File_c * pFile, bool bOver);

/// Exclude the folders, or the files, of a bare name from later scans, without regard to ASCII case. Copy the name, cut
/// at 255 characters. ModuleFile_c's Shutdown removes all of them.
ZQ_API void FileAlwaysExcludeFolder(char const * sName);
ZQ_API void FileAlwaysExcludeFile(char const * sName);

/// Fills dFiles with the files whose folder begins with sPath, subfolders included, in table order, and returns how
/// many. Skips files without a folder. Asserts that dFiles is not null and that iMax, the most that it holds, is at
/// least 1. Returns 0 if an assertion fails, or if sPath has more than 255 characters.
ZQ_API int FileGetDirectoryFiles(char const * sPath, File_c ** const dFiles, int iMax);
