// openfile.h: what the sources of files share: descriptors as handles, and how a file is opened for writing.
//
// Every file that the library writes is opened here, except those below a folder of the library's own and those of
// rawfiles.h. The exceptions keep the same rules by the flags below:
// - An existing name is opened only if it is a regular file. It is never opened through a symbolic link as the last
//   name, and never waited for.
// - A new name is created exclusively, except the lock of a store (storedisk.h).
// - The descriptor is not that of a standard stream, even if these are closed (MoveAboveStandard).
//
// Failure: a function that fails leaves the reason in errno.
#pragma once

#include "platform/files.h"
#include "platform/linux/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace plat
{
    class DiskPath_c;

    inline constexpr mode_t NEW_FILE_MODE = 0666;       // rights of a new file, before the process's mask
    inline constexpr mode_t PRIVATE_FILE_MODE = 0600;   // rights of a file for its owner only

    /// Flags that open a name that others may have created, without following a link and without waiting. Require a
    /// check that the opened file is regular, unless O_EXCL is among them.
    inline constexpr int UNTRUSTED = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

    /// Flags that create a file for writing. A name that exists in any form is refused.
    inline constexpr int MAKE_NEW = O_WRONLY | O_CREAT | O_EXCL | UNTRUSTED;

    /// Answer to whether anyone has an open file open for writing.
    enum class Writers_e
    {
        None,
        Some,
        Unknown   // the system grants no lease on this file
    };

    /// The folder of a path as the disk spells it. The constructor opens it before a name in it changes, so that
    /// nothing changes if it can't be opened. If the folder may not be read, Sync synchronises iNamed instead: the open
    /// file whose name in it changes. With NOT_OPEN, Sync does nothing in that case. Requires that iNamed stays open.
    class FolderSync_c
    {
    public:
        static constexpr int NOT_OPEN = -1;   // iNamed if the file is not open

        /// Opens the folder of szPath. Requires that szPath is shorter than PATH_MAX. On failure IsReady returns false,
        /// unless the folder may not be read.
        FolderSync_c(char const * szPath, int iNamed);

        /// Returns whether Sync can be called.
        bool IsReady() const { return m_Folder.IsOpen() || m_bUnreadable; }

        /// Writes the names in the folder to the disk. Returns false on failure. Returns true on a file system that is
        /// read-only or does not synchronise folders.
        bool Sync() const;

    private:
        Descriptor_c m_Folder;
        int m_iNamed;
        bool m_bUnreadable;
    };

    /// Scope in which no other process, and no other thread, has a FolderLock_c of the same folder. Excludes none on a
    /// file system without locks, and none in a folder that may not be read.
    class FolderLock_c
    {
    public:
        /// Locks the folder of a path without waiting.
        explicit FolderLock_c(char const * szPath);
        ~FolderLock_c();
        FolderLock_c(FolderLock_c const &) = delete;
        FolderLock_c & operator=(FolderLock_c const &) = delete;

        /// Returns false in these cases:
        /// - Another FolderLock_c, or another program, holds the lock.
        /// - The folder can't be opened, for another reason than a missing right to read it.
        bool IsHeld() const { return m_bHeld; }

    private:
        Descriptor_c m_Folder;
        bool m_bHeld;
    };

    /// Returns whether an error means that the file system lacks the call. A network file system without a lock daemon
    /// reports ENOLCK for a lock.
    inline bool IsUnknownCall(int iError)
    {
        return iError == EINVAL || iError == ENOSYS || iError == EOPNOTSUPP || iError == ENOLCK;
    }

    /// Returns the descriptor of a handle, or -1 for null.
    inline int DescriptorOf(File_t hFile)
    {
        return static_cast<int>(reinterpret_cast<std::intptr_t>(hFile)) - 1;
    }

    /// Returns the handle of a descriptor: the descriptor plus one, because descriptor 0 is a file too. Returns null
    /// for -1.
    inline File_t HandleOf(int iDescriptor)
    {
        return reinterpret_cast<File_t>(std::intptr_t(iDescriptor) + 1);
    }

    /// Tests whether anyone has an open file open for writing, and returns the result. Sets a read lease and removes it
    /// at once, so that a writer who opens the file meanwhile waits no longer than that. Requires a descriptor that is
    /// open for reading only.
    Writers_e TestWriters(int iDescriptor);

    /// Returns whether an open file is a regular one. If not, errno has the reason: EINVAL for another kind.
    bool IsRegular(int iDescriptor);

    /// Claims an open file for writing, by a lock. Returns false if another open file has locked it. Returns true
    /// without effect on any other failure, as on a file system without such locks.
    bool ClaimWriting(int iDescriptor);

    /// Reads the facts of the entry that a path names in any spelling, and sets the path to that spelling. Does not
    /// follow a link. Returns 0, or -1 on failure.
    int ReadStat(DiskPath_c & Path, struct stat & Stat);

    /// Sets a path to the spelling in which it names an entry, and returns whether that is the open file of these
    /// facts. If the path names another file, errno is ESTALE. If it names none, or the system does not report it,
    /// errno is that of the failed call.
    bool IsNamed(DiskPath_c & Path, struct stat const & File);

    /// Sets a path to the spelling in which it names anything, including a link whose target is missing, and returns
    /// true. Returns false if there is no such spelling, or if the system does not report it.
    bool IsThere(DiskPath_c & Path);

    /// Synchronises a file or an open folder. Returns false on failure.
    bool SyncFully(int iFile);

    /// Creates a file for writing in an open folder, and replaces any file of that name, as a dead writer leaves one.
    /// Returns the descriptor, which the caller closes. Returns -1 on failure, also if what is there can't be unlinked.
    int CreateOrReplace(int iFolder, char const * szName, mode_t iMode);

    /// Opens an existing regular file of any spelling for writing, with the flags and the mode of open(2). Returns the
    /// descriptor, which the caller closes.
    /// - With O_CREAT, creates a missing file exclusively, in the path's own spelling and in the folder that was found.
    /// - With O_EXCL as well, refuses an existing file of any spelling.
    /// - With O_TRUNC, empties a file that passed.
    ///
    /// Returns -1 on failure. errno is that of the system, or:
    /// - EEXIST for any existing name, with O_EXCL.
    /// - ELOOP for a link as the last name.
    /// - EISDIR for a folder.
    /// - EINVAL for what else is not a regular file.
    /// - EACCES in a sticky folder that others may write to, if the file has a second name, or if neither this user nor
    ///   the folder's owner owns it.
    int OpenToWrite(char const * szPath, int iFlags, mode_t iMode);

    /// Copies a file as FileCopy does. iFlags are further flags for OpenToWrite: O_EXCL refuses an existing szTo.
    bool FileCopyTo(char const * szFrom, char const * szTo, int iFlags, Durability_e eDurability);
}
