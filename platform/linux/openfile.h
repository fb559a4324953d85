// openfile.h: what the sources of files share: descriptors as handles, and how a file is opened that is to be written.
//
// Every file that the library writes is opened here, but for those below a folder of the library's own, which keep the
// same rules by the flags below: a name that is there is opened only if it is a regular file, never through a symbolic
// link as the last name, and never waited for; a name that is not there is made exclusively.
#pragma once

#include "platform/files.h"
#include "platform/linux/descriptor.h"

#include <fcntl.h>
#include <sys/types.h>

namespace plat
{
    class DiskPath_c;

    inline constexpr mode_t NEW_FILE_MODE = 0666;   // less what the process masks
    inline constexpr mode_t PRIVATE_FILE_MODE = 0600;

    /// Flags of every open of a name that others may have put there. What is opened must still pass IsRegular.
    inline constexpr int UNTRUSTED = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

    /// Flags that make a file for writing: a name that is there in any form is refused.
    inline constexpr int MAKE_NEW = O_WRONLY | O_CREAT | O_EXCL | UNTRUSTED;

    /// Whether an error says that the file system knows no such call. A network file system without a lock daemon says
    /// ENOLCK of a lock.
    inline bool IsUnknownCall(int iError)
    {
        return iError == EINVAL || iError == ENOSYS || iError == EOPNOTSUPP || iError == ENOLCK;
    }

    inline int DescriptorOf(File_t hFile)
    {
        return static_cast<int>(reinterpret_cast<std::intptr_t>(hFile)) - 1;
    }

    // Descriptor 0 is a file too, so the handle is one more.
    inline File_t HandleOf(int iDescriptor)
    {
        return reinterpret_cast<File_t>(std::intptr_t(iDescriptor) + 1);
    }

    enum class Writers_e
    {
        None,
        Some,
        Unknown   // the system grants no lease on this file
    };

    // Whether anyone has an open file open for writing, asked by taking a read lease and giving it back at once, so
    // that a writer who comes meanwhile waits for no longer than that.
    Writers_e WritersOf(int iDescriptor);

    /// Whether an open file is a regular one; sets errno to EINVAL if it is not.
    bool IsRegular(int iDescriptor);

    /// Whether a path names anything, a link that leads nowhere included.
    bool IsThere(DiskPath_c & Path);

    /// Synchronizes a file or an open folder; false on failure.
    bool SyncFully(int iFile);

    /// The folder of a path as the disk spells it, opened before a name in it changes: then nothing changes if it can't
    /// be opened. A folder that may not be read is left to the journal entry of the file or folder of that name, iNamed,
    /// which must stay open.
    class FolderSync_c
    {
    public:
        FolderSync_c(char const * szPath, int iNamed);

        /// Whether Sync can be called.
        bool IsReady() const { return m_Folder.IsOpen() || m_bUnreadable; }

        /// Writes the names in the folder to the disk; false on failure. True on a file system that synchronizes no
        /// folders.
        bool Sync() const;

    private:
        Descriptor_c m_Folder;
        int m_iNamed;
        bool m_bUnreadable;
    };

    /// Makes a file for writing in an open folder, in place of one that a dead writer left there. Returns -1 on failure,
    /// also if what is there can't be unlinked.
    int MakeAnew(int iFolder, char const * szName, mode_t iMode);

    /// Opens the regular file that is there in any spelling, for writing. With O_CREAT a file that is not there is made
    /// in the path's own spelling, exclusively and in the folder that was found; with O_EXCL too, one that is there in
    /// any spelling is refused. O_TRUNC empties a file that passed. Returns -1 on failure: ELOOP for a link as the last
    /// name, EINVAL for what is no regular file, EACCES for a file in a sticky folder that others may write to, if
    /// it has a second name, or neither this user nor the folder's owner owns it.
    int OpenToWrite(char const * szPath, int iFlags, mode_t iMode);
}
