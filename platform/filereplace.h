// filereplace.h: files that take the place of others, and locks on names.
//
// Paths are found as in files.h. Any thread; nothing here logs; a function that fails leaves the reason for
// LastErrorText (process.h).
#pragma once

#include "platform/filewrite.h"

namespace plat
{
    /// Waits until all that was written to the file is on the disk; false if some of it is lost.
    bool FileSync(File_t hFile);

    /// Gives an open file, which has the name szFrom and was synchronized, the name szTo in the same folder, in place of
    /// the file that has it in any spelling, or of a symbolic link. A shared file gets the access rights of the file
    /// that it replaces; if that is another user's, it gets none that it does not have. In one step: at any moment, even
    /// after a power failure, that name has all of the old contents or all of the new.
    /// False, with nothing changed, on failure, if szFrom is no longer that file, if szTo is a folder, a pipe or a device,
    /// and if the folder can't be opened for the synchronization. False too if that fails: then szTo has the new contents
    /// unless the power fails.
    bool FileReplace(File_t hFile, char const * szFrom, char const * szTo, Rights_e eRights = Rights_e::Shared);

    /// Gives a file another name in its folder; false on failure. A file that has the name already is replaced with
    /// bReplace, and is a failure without.
    bool FileRename(char const * szFrom, char const * szTo, bool bReplace);

    /// Gives a file, or a symbolic link, a second name, which nothing may have. Where the file system has no second names,
    /// makes a copy and synchronizes it. False on failure.
    bool FileKeepAs(char const * szFrom, char const * szTo);

    /// Whether a file, or anything else, has the name, a link that leads nowhere included. True too where the system
    /// can't say.
    bool PathIsTaken(char const * szPath);

    /// Whether two paths name one file.
    bool FileIsSame(char const * szPath, char const * szOther);

    /// A lock on a path, from Take to Drop. The system drops it with the process. While it is taken, a file of the
    /// owner alone has that name. A child of a fork neither holds its parent's lock nor keeps it. A file system that knows no locks
    /// excludes nobody.
    class NameLock_c
    {
    public:
        enum Result_e
        {
            TAKEN,
            HELD,    // by another NameLock_c, in this process or another
            FAILED   // the file can't be made
        };

        NameLock_c() = default;
        NameLock_c(NameLock_c const &) = delete;
        NameLock_c & operator=(NameLock_c const &) = delete;

        /// Requires that the lock isn't taken. Never waits.
        Result_e Take(char const * szPath);

        /// Deletes the file and drops the lock. Requires the path of Take. Does nothing if the lock isn't taken.
        void Drop(char const * szPath);

        bool IsTaken() const { return m_hFile != nullptr; }

        /// Whether Take met the file of a process that ended without Drop.
        bool WasLeft() const { return m_bLeft; }

    private:
        File_t m_hFile = nullptr;   // null in a child of a fork
        bool m_bLeft = false;
        alignas(void *) unsigned char m_dDrop[4 * sizeof(void *)] = {};   // what the system needs; zero without
    };
}
