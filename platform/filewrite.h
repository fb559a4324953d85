// filewrite.h: files written at positions.
//
// The handles are those of files.h, which also seeks and tells facts. Paths are found as there. Any thread; nothing
// here logs; a function that fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/files.h"

namespace plat
{
    /// Makes a regular file, or empties the one that is there in any spelling, and opens it for writing. Others may
    /// read it meanwhile; a second FileCreate of it, in any process, fails until this one's handle is closed. Null on
    /// failure, and for pipes, sockets, devices and folders.
    File_t FileCreate(char const * szPath);

    /// Writes at the present position; false if not all of it went out.
    bool FileWrite(File_t hFile, void const * pData, std::size_t nBytes);

    /// Writes at an offset from the start and leaves the position alone; false if not all of it went out.
    bool FileWriteAt(File_t hFile, std::uint64_t nOffset, void const * pData, std::size_t nBytes);

    /// Cuts the file, or grows it with zeros, to nBytes; false on failure.
    bool FileSetSize(File_t hFile, std::uint64_t nBytes);

    /// Closes a file that was written; false if the system says only now that some of it is lost.
    bool FileFinish(File_t hFile);

    /// Gives a finished file the name szTo, in the same folder, in place of the file that has it in any spelling, whose
    /// access rights it gets. In one step: at any moment, even after a power failure, that name has all of the old contents or all of the new. False,
    /// and nothing is changed, on failure, while anyone writes the new file, and if szTo is no regular file.
    bool FileReplace(char const * szFrom, char const * szTo);

    /// Makes the folders on the way to a file, the outermost first. Those that are there, and those that can't be made,
    /// are passed over.
    void FoldersCreate(char const * szFilePath);
}
