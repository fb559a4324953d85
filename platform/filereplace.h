// filereplace.h: files that replace others, and locks on names.
//
// Paths are found as in files.h.
//
// Threads: any thread.
// Failure: nothing here logs. A function that fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/files.h"
#include "platform/filewrite.h"

namespace plat
{
    /// Waits until all that was written to the file is on the disk. Returns false if some of it may be lost.
    bool FileSync(File_t hFile);

    /// Writes the names of the folders of a file's path to the disk, so that a new file can't be lost with its folder.
    /// Skips folders that may not be read. Returns false on failure.
    bool FoldersSync(char const * szFilePath);

    /// Renames an open file from szFrom to szTo in the same folder. It replaces the file that has the name szTo in any
    /// spelling, or a symbolic link. The replacement is one step: at any moment, even after a power failure, the name
    /// has all of the old contents or all of the new ones. Requires that the file was synchronised.
    ///
    /// With Rights_e::Shared, the new file gets the access rights of the file that it replaces, or keeps its own if the
    /// system refuses. If that file belongs to another user, the new file gets no rights that it does not have already.
    ///
    /// Returns false, with both names unchanged, in these cases:
    /// - szFrom does not name that file.
    /// - szTo names anything but a regular file or a link.
    /// - the folder can't be opened for the synchronisation, unless only the right to read it is missing.
    /// - the rename fails for any other reason.
    ///
    /// Also returns false if the synchronisation itself fails. Then szTo has the new contents unless the power fails.
    bool FileReplace(File_t hFile, char const * szFrom, char const * szTo, Rights_e eRights = Rights_e::Shared);

    /// Renames a file in its folder and returns true. With bReplace, replaces the file that has the new name in any
    /// spelling. Returns false on failure, and without bReplace also if anything has the new name.
    bool FileRename(char const * szFrom, char const * szTo, bool bReplace);

    /// Adds a second name to a file or a symbolic link. Instead makes and synchronises a copy of the file, or of the
    /// link's target, in these cases:
    /// - The file system has no second names.
    /// - The file has too many.
    /// - The system protects it from them.
    ///
    /// Returns false on failure, for instance if anything has the name szTo. A failed copy may leave a part.
    bool FileKeepAs(char const * szFrom, char const * szTo);

    /// Returns whether anything has the name, including a link whose target is missing. Returns true too if the system
    /// does not report it.
    bool PathIsTaken(char const * szPath);

    /// Returns whether two paths name the same file. Does not follow a link as the last name. Returns false on failure.
    bool FileIsSame(char const * szPath, char const * szOther);

    /// A lock on a path, held from Take to Drop. The system releases it when the process ends. While the lock is
    /// held, a file has that name. Take makes a missing file, for the owner alone. A child of a fork neither holds its
    /// parent's lock nor keeps it alive. On a file system without locks the lock excludes nobody. Requires Drop before
    /// the end of an object that holds the lock.
    class NameLock_c
    {
    public:
        /// Result of Take.
        enum Result_e
        {
            TAKEN,
            HELD,    // by another NameLock_c, in this process or another
            FAILED   // the file can't be made or locked
        };

        NameLock_c() = default;
        NameLock_c(NameLock_c const &) = delete;
        NameLock_c & operator=(NameLock_c const &) = delete;

        /// Acquires the lock and returns the result. Never waits for a holder. Requires that this object does not hold
        /// it.
        Result_e Take(char const * szPath);

        /// Deletes the file and releases the lock. Does nothing if this object has no lock. Requires the path of Take.
        void Drop(char const * szPath);

        /// Returns whether this object holds the lock.
        bool IsTaken() const { return m_hFile != nullptr; }

        /// Returns whether the last Take that returned TAKEN found a file, as a process that ended without Drop leaves
        /// one. Returns false on a file system without locks.
        bool WasLeft() const { return m_bLeft; }

    private:
        File_t m_hFile = nullptr;   // null without the lock, as in a child of a fork
        bool m_bLeft = false;
        alignas(void *) unsigned char m_dDrop[4 * sizeof(void *)] = {};   // the system's own data, zero if unused
    };
}
