// filewrite.h: files written at positions.
//
// The handles are those of files.h, which also seeks and tells facts. Paths are found as there. Any thread; nothing
// here logs; a function that fails leaves the reason for LastErrorText (process.h).
//
// Whatever the library writes, here and through streams, follows one rule: a file that is not there is made exclusively;
// one that is there must be a regular file. A symbolic link as the last name is refused, not followed, wherever it
// leads; so are pipes, sockets, devices and folders, which are never waited for. So is, in a sticky folder that others
// may write to, a file that has a second name, or that neither this user nor the folder's owner owns.
#pragma once

#include "platform/files.h"

namespace plat
{
    /// Who may use a file that is made.
    enum class Rights_e
    {
        Shared,   // whom the process's mask lets
        Private   // its owner alone
    };

    /// Makes a regular file, or empties the one that is there in any spelling, and opens it for writing. Others may
    /// read it meanwhile; a second FileCreate of it, in any process, fails until this one's handle is closed. Null on
    /// failure.
    File_t FileCreate(char const * szPath);

    /// Makes a file and opens it for writing, as FileCreate does, but fails if anything is there by that name, in any
    /// spelling. Null on failure.
    File_t FileMake(char const * szPath, Rights_e eRights);

    /// Writes at the present position; false if not all of it went out.
    bool FileWrite(File_t hFile, void const * pData, std::size_t nBytes);

    /// Writes at an offset from the start and leaves the position alone; false if not all of it went out.
    bool FileWriteAt(File_t hFile, std::uint64_t nOffset, void const * pData, std::size_t nBytes);

    /// Cuts the file, or grows it with zeros, to nBytes; false on failure.
    bool FileSetSize(File_t hFile, std::uint64_t nBytes);

    /// Closes a file that was written; false if the system says only now that some of it is lost.
    bool FileFinish(File_t hFile);

    /// Makes the folders on the way to a file, the outermost first. Those that are there, and those that can't be made,
    /// are skipped. Synchronized: the name of each folder that was made is on the disk. False, with the folder removed,
    /// if one can't be synchronized.
    bool FoldersCreate(char const * szFilePath, Durability_e eDurability = Durability_e::Written);
}
