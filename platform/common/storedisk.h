// storedisk.h: the folders and files of the stores of registry and clipboard. Each system implements these functions.
//
// A store is a folder that all processes of the user or of the machine share. It holds folders and files. Their names
// have at most FILE_NAME_LIMIT bytes. An entry is opened only if it is of the expected kind. Opening a symbolic link,
// a pipe or a device fails at once.
//
// Ownership: the caller closes each handle that a function opens and returns. StoreScope_c does so at the end of its
// scope.
// Threads: any thread. One thread at a time may list the folder of a handle.
// Failure: a function that fails leaves the reason in errno, except StoreIdentity. ENOENT means that the entry does not
// exist.
#pragma once

#include "platform/files.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plat
{
    /// Bytes of a store's path, and of a name of StoreMakeUniqueName, each with its terminator.
    inline constexpr std::size_t STORE_PATH_SIZE = 4096;
    inline constexpr std::size_t STORE_UNIQUE_NAME_SIZE = 64;

    /// The system's handle of an open folder or file.
    enum class StoreHandle_t : std::intptr_t
    {
    };
    inline constexpr StoreHandle_t STORE_NONE{ -1 };   // no handle

    /// Users who have rights on what is created.
    enum class StoreRights_e
    {
        Owner,     // the user only
        Readers,   // of a folder: others may read; a file is the user's
        AsFolder   // of a file: those who may read its folder; a folder is the user's
    };

    /// Function that StoreList calls with an entry of a folder and the caller's context.
    using StoreEntry_t = void (*)(char const * szName, bool bFolder, void * pContext);

    /// Result of StoreTryLock.
    enum class StoreLock_e
    {
        Locked,
        Held,        // by another handle; or a signal interrupted the attempt
        Impossible   // the system refuses, as on a file system without locks
    };

    /// Stamp of a folder. It changes if the folder's entries change, except perhaps within a tick of the disk's clock.
    struct StoreStamp_t
    {
        std::int64_t tChange = 0;     // nanoseconds of the disk's clock since 1970
        std::uint64_t nFolders = 0;   // changes with the number of its folders, if the disk counts them
        bool operator==(StoreStamp_t const &) const = default;
    };

    /// Closes a handle. STORE_NONE does nothing. Keeps errno.
    void StoreClose(StoreHandle_t hStore);

    /// A handle that is closed at the end of its scope.
    class StoreScope_c
    {
    public:
        /// Owns the handle.
        explicit StoreScope_c(StoreHandle_t hStore = STORE_NONE)
            : m_hStore(hStore)
        {}
        ~StoreScope_c() { StoreClose(m_hStore); }
        StoreScope_c(StoreScope_c const &) = delete;
        StoreScope_c & operator=(StoreScope_c const &) = delete;

        /// Return whether a handle is held, and the handle or STORE_NONE.
        bool IsOpen() const { return m_hStore != STORE_NONE; }
        StoreHandle_t Get() const { return m_hStore; }

        /// Closes the present handle and holds another, or none if it is STORE_NONE.
        void Reset(StoreHandle_t hStore)
        {
            StoreClose(m_hStore);
            m_hStore = hStore;
        }

        /// Releases the handle to the caller, who then owns it, and returns it. Returns STORE_NONE if there is none.
        StoreHandle_t Release()
        {
            StoreHandle_t const hStore = m_hStore;
            m_hStore = STORE_NONE;
            return hStore;
        }

    private:
        StoreHandle_t m_hStore;
    };

    /// Returns the identity of a handle's folder or file. Returns all zero if the handle is not open.
    FileIdentity_t StoreIdentity(StoreHandle_t hStore);

    /// A handle that is held for long. A host may close all of the process's handles, as a daemon does when it starts.
    /// The number may then belong to another file, which is neither used nor closed. Nothing is closed at the end of
    /// the scope.
    class StoreKept_c
    {
    public:
        /// Returns the handle. Returns STORE_NONE if none is held, or if the number does not belong to the file that
        /// Reset got. Makes at most one system call.
        StoreHandle_t Get() const
        {
            return m_hStore != STORE_NONE && StoreIdentity(m_hStore) == m_Identity ? m_hStore : STORE_NONE;
        }

        /// Closes the present handle and holds another, or none if it is STORE_NONE.
        void Reset(StoreHandle_t hStore)
        {
            StoreClose(Get());
            m_hStore = hStore;
            m_Identity = hStore != STORE_NONE ? StoreIdentity(hStore) : FileIdentity_t{};
        }

    private:
        StoreHandle_t m_hStore = STORE_NONE;
        FileIdentity_t m_Identity;
    };

    /// Copy the path of a store of this name, for the machine or for the user, and return true. Return false if the
    /// system does not report it or it does not fit.
    bool StoreGetMachinePath(char const * szName, char (&szPath)[STORE_PATH_SIZE]);
    bool StoreGetUserPath(char const * szName, char (&szPath)[STORE_PATH_SIZE]);

    /// Creates the missing folders of an absolute path. Changes the text of the path meanwhile. A failure shows only
    /// when the path is opened.
    void StoreMakePath(char * szPath, StoreRights_e eRights);

    /// Opens a folder by a path in the system's own form, following links, and returns it. Returns STORE_NONE on
    /// failure.
    StoreHandle_t StoreOpenPath(char const * szPath);

    /// Opens a folder in a folder by its name, or the parent by "..", and returns it. Returns STORE_NONE on failure.
    StoreHandle_t StoreOpenFolder(StoreHandle_t hParent, char const * szName);

    /// Opens a folder a second time, with locks and a reading position of its own, and returns it. A deleted folder may
    /// be opened too. Returns STORE_NONE on failure.
    StoreHandle_t StoreReopen(StoreHandle_t hFolder);

    /// Creates a folder in a folder and returns true. On failure returns false. errno is then EEXIST if anything has
    /// the name.
    bool StoreMakeFolder(StoreHandle_t hParent, char const * szName, StoreRights_e eRights);

    /// Delete an empty folder, or a file, and return true. On failure return false. An entry of the other kind is kept.
    bool StoreDeleteFolder(StoreHandle_t hParent, char const * szName);
    bool StoreDeleteFile(StoreHandle_t hFolder, char const * szName);

    /// Returns whether anything in a folder has the name.
    bool StoreIsThere(StoreHandle_t hFolder, char const * szName);

    /// Returns whether the rights of a folder let the user delete its entries.
    bool StoreMayDelete(StoreHandle_t hFolder);

    /// Calls fnEntry for each entry of a folder, in the disk's order. Moves the handle's reading position, which a
    /// child of a fork shares. Returns false if an error ends the walk.
    bool StoreList(StoreHandle_t hFolder, StoreEntry_t fnEntry, void * pContext);

    /// Reads a whole file of at most nMost bytes and returns true. On failure returns false. errno is EBADMSG in these
    /// cases:
    /// - what was opened is not a file, or has more than nMost bytes.
    /// - the file ends before the size that it had.
    bool StoreReadFile(StoreHandle_t hFolder, char const * szName, std::size_t nMost, std::vector<char> & dBytes);

    /// Replaces a file in one step and returns true. The new file has the name szBusy until it is complete. A file that
    /// has that name already is deleted first. On failure returns false, keeps the previous file and deletes the new
    /// one.
    bool StoreWriteFile(StoreHandle_t hFolder, char const * szBusy, char const * szName,
        std::vector<char> const & dBytes, StoreRights_e eRights);

    /// Tries to lock an open folder for this handle only and returns the result. A child of a fork has its parent's
    /// handles and so its locks: StoreUnlock ends the lock of both.
    StoreLock_e StoreTryLock(StoreHandle_t hFolder);

    /// Unlocks a folder. STORE_NONE does nothing. Keeps errno.
    void StoreUnlock(StoreHandle_t hFolder);

    /// Opens a file, creating it if necessary, locks it for the process and returns it. The lock ends when the process
    /// closes the file or ends. A child of a fork does not have it. Returns STORE_NONE on failure, for instance if
    /// another process has the lock.
    StoreHandle_t StoreOpenLock(StoreHandle_t hFolder, char const * szName);

    /// Returns the stamp of a folder. On failure returns all zero.
    StoreStamp_t StoreStamp(StoreHandle_t hFolder);

    /// Reads the time of a folder's last change. Returns false on failure.
    bool StoreReadLastWrite(StoreHandle_t hFolder, FileTime_t & tLastWrite);

    /// Makes a name from a mark and a text that no other call has used, in any process.
    void StoreMakeUniqueName(char cMark, char (&szName)[STORE_UNIQUE_NAME_SIZE]);
}
