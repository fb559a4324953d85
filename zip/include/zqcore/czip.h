// czip.h: zip archives as files of the table.
//
// The component zqcore::zip mounts an archive: each of its files gets an object in g_sFileObjects (cfilepath.h) and is
// opened, loaded, streamed and read asynchronously like a file of a folder. The object's pPath is null. GetFullPath
// returns the archive's path, `\` and the name in the archive, cut at 255 characters. Files may be stored or deflated.
//
// An archive is mounted over or under what the table holds at that moment. With Over, its file hides a present file of
// the same key until FileZipUnmount. With Under, the present file stays, and that of the archive is not added. Later
// scans see the archive's files as present. So a mount comes after the start of ModuleFile_c and after the scans.
// FileReset, and with it the end of ModuleFile_c, unmounts all archives.
//
// An archive may come from anywhere. Mounting skips these entries, logs a line for each and reports it to
// g_FileSkipCallbacker (cfilepath.h):
// - absolute names, and names whose first or last part begins with a drive.
// - names with a part `..`, `.` or empty, with a `\`, or with characters that TextForLog (ctexterror.h) escapes.
// - names of more than 255 characters, and keys of more than 127.
// - an entry that can't be read or lacks a size, a CRC or a method, and a file for which the table has no room.
// - a second file of the same key, unless a present file hides both. The first one opens without the complaint that a
//   scan's duplicate has.
// - files that are encrypted or compressed by another method, links, pipes, sockets and devices.
// - files of 2 GiB or more, sizes that can't be true, and files above 1 MiB that expand more than ZIP_MAX_EXPANSION
//   times.
//
// The contents are checked against their CRC-32 and size when a file is read whole or streamed from its start to its
// end. What does not fit fails with a reason (File_c::GetWhyNot). Such a read never returns the whole of a damaged
// file. A part of a deflated file is checked only if it reaches the end of the file. A part of a stored file that is
// loaded, or read after a seek, is not checked.
//
// The archive's file stays open while it is mounted. So a new file of that name has no effect until it is mounted
// again, and Refresh does nothing. Contents that someone writes into the open file fail their check. Change tracking
// (cfiletrack.h) reports names of files on the disk, which an archive may hide. A file system cache (cfilecache.h)
// lists no file of an archive, but does list the files that archives hide. FileRefresh adds no file whose name an
// archive has. FileCloneLoadedMedia does not copy files of archives.
//
// Ownership: the table owns the objects. A File_c * is valid until FileZipUnmount, FileReset or FileKill.
// Threads: the main thread mounts and unmounts. Opens, loads and streams work on any thread as cfile.h states. A lock
// of each archive guards its file for at most 256 KiB at a time. Files are decompressed outside of it. A forked child
// has the archives too. If the system can't raise the worker of cfileasync.h, the worker opens each archive a second
// time, so that no thread waits for it.
// Cost: mounting reads at most 8 MiB to find and read the archive's directory. It may have up to ZIP_MAX_ENTRIES
// entries. The archive keeps one handle open, and another one if the worker has opened it. An open allocates the file's
// size. A stream allocates about 16 KiB, and one of a deflated file another 40 KiB. It reaches a position in a deflated
// file by decompressing from its last position, or from the start for one before it. A load does so from the start.
// Failure: a mount or unmount logs a line and returns false. FileZipGetWhyNot returns the reason. An archive that the
// system does not open is an Achtung too (cfile.h).
//
//     if (FileZipMount("media\\patch1.zip", ZipOrder_e::Over))
//     {
//         if (File_c * const pFile = FileOpen("levels.csv"))
//         {
//             Log("%s has %i bytes", pFile->GetFullPath(), pFile->iLength);
//             FileClose(pFile);
//         }
//         FileZipUnmount("media\\patch1.zip");
//     }
#pragma once

#include "zqcore/cfile.h"

/// Choice of the file that is found if the table has a file of the same key when an archive is mounted.
enum class ZipOrder_e
{
    Over,   // the archive's
    Under   // the present one
};

/// Maximum number of entries of an archive.
inline constexpr int ZIP_MAX_ENTRIES = 32768;

/// Maximum ratio of size to compressed size of a file of more than 1 MiB.
inline constexpr int ZIP_MAX_EXPANSION = 250;

/// Mounts an archive and returns true. sArchive is a path on the disk with at most 255 characters, and at most 127 in
/// its last part. The keys are bare names in lower case, or with bRelativeNames whole names with `\`. Asserts that
/// sArchive is not null. Returns false, with the reason, in these cases:
/// - sArchive is null, or a longer path.
/// - the archive is mounted already.
/// - it can't be opened, or has 2 GiB or more.
/// - it is damaged or over the limits.
/// - none of its files is added.
bool FileZipMount(char const * sArchive, ZipOrder_e eOrder, bool bRelativeNames = false);

/// Removes an archive's files from the table, restores the files that they hid, and returns true. Requires that no
/// asynchronous request for its files is pending. Asserts that sArchive is not null. Returns false if the archive is
/// not mounted. If files of it have references or streams, logs a line for each, changes nothing and returns false.
/// Stayers and prefetched files have references.
bool FileZipUnmount(char const * sArchive);

/// Returns why the last FileZipMount or FileZipUnmount failed, or an empty text if it did not. Only the main thread may
/// call it.
File_c::Reason_t FileZipGetWhyNot();
