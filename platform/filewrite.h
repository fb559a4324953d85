// filewrite.h: files written at positions.
//
// The handles are those of files.h, which also has the calls for positions and facts and says how paths are found.
//
// The library opens all files that it writes, streams included, by one rule, except those of storedisk.h and
// rawfiles.h:
// - A file that does not exist is created exclusively. One that exists is opened only if it is a regular file.
// - A symbolic link as the last name is refused, not followed, wherever it leads.
// - Pipes, sockets, devices and folders are refused, and never waited for.
// - In a sticky folder that others may write to, a file is refused if it has a second name. It is also refused if it
//   belongs neither to this user nor to the folder's owner. If the folder can't be examined, a file with a second name
//   or of another user is refused.
//
// Threads: any thread.
// Failure: nothing here logs. A function that fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/files.h"

namespace plat
{
    /// Rights to a file that is created.
    enum class Rights_e
    {
        Shared,   // those that the process's mask allows
        Private   // the owner only
    };

    /// Creates a regular file, or empties an existing one of any spelling, opens it for writing and returns it. Others
    /// may read it meanwhile. A second FileCreate of it, in any process, fails until this handle is closed, unless the
    /// file system has no locks. Returns null on failure.
    File_t FileCreate(char const * szPath);

    /// Creates a file, opens it for writing as FileCreate does, and returns it. Fails if anything has that name in any
    /// spelling. Returns null on failure.
    File_t FileMake(char const * szPath, Rights_e eRights);

    /// Writes bytes at the current position and moves it after them. Returns false if not all bytes were written.
    bool FileWrite(File_t hFile, void const * pData, std::size_t nBytes);

    /// Writes bytes at an offset from the start and does not move the position. Returns false if not all bytes were
    /// written.
    bool FileWriteAt(File_t hFile, std::uint64_t nOffset, void const * pData, std::size_t nBytes);

    /// Cuts the file to nBytes, or extends it with zeros. Returns false on failure.
    bool FileSetSize(File_t hFile, std::uint64_t nBytes);

    /// Closes a file that was written. Returns false if the system reports at the close that some of it is lost. The
    /// handle is closed then too.
    bool FileFinish(File_t hFile);

    /// Creates the folders of a file's path, outermost first. Skips those that exist and those that can't be created.
    void FoldersCreate(char const * szFilePath);
}
