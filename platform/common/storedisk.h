// storedisk.h: folders and files as the stores of registry and clipboard use them. A system's folder implements it.
//
// A store is a folder with folders and files in it, which all processes of the user share. Entries have names of at most
// STORE_NAME_LIMIT bytes, and are opened only if they are what is expected: a symbolic link, a pipe or a device counts as
// none and is never waited for. A function that fails leaves the reason in errno, and ENOENT for what is not there.
#pragma once

#include "platform/files.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plat
{
    inline constexpr std::size_t STORE_NAME_LIMIT = 255;
    inline constexpr std::size_t STORE_PATH_SIZE = 4096;   // bytes of a store's path with its terminator

    /// What the system has of an open folder or file.
    enum class StoreHandle_t : std::intptr_t
    {
    };
    inline constexpr StoreHandle_t STORE_NONE{ -1 };

    /// Who may use what is made.
    enum class StoreRights_e
    {
        Owner,     // the user alone
        Readers,   // others may read
        AsFolder   // of a file: whoever may read its folder may read it
    };

    /// Closes a handle. STORE_NONE does nothing. Keeps errno.
    void StoreClose(StoreHandle_t hStore);

    /// A handle that is closed at the end of its scope.
    class StoreScope_c
    {
    public:
        explicit StoreScope_c(StoreHandle_t hStore = STORE_NONE)
            : m_hStore(hStore)
        {}
        ~StoreScope_c() { StoreClose(m_hStore); }
        StoreScope_c(StoreScope_c const &) = delete;
        StoreScope_c & operator=(StoreScope_c const &) = delete;

        bool IsOpen() const { return m_hStore != STORE_NONE; }
        StoreHandle_t Get() const { return m_hStore; }

        /// Closes what is held and holds another.
        void Reset(StoreHandle_t hStore)
        {
            StoreClose(m_hStore);
            m_hStore = hStore;
        }

        /// Hands the handle over to the caller.
        StoreHandle_t Release()
        {
            StoreHandle_t const hStore = m_hStore;
            m_hStore = STORE_NONE;
            return hStore;
        }

    private:
        StoreHandle_t m_hStore;
    };

    /// Which folder or file a handle is; all zero for none.
    FolderIdentity_t StoreIdentity(StoreHandle_t hStore);

    /// A handle held for long. A host may close all of the process's handles, as a daemon does at its start; the number may
    /// then be another file's, which is neither used nor closed. Nothing is closed at the end of its scope.
    class StoreKept_c
    {
    public:
        /// The handle; STORE_NONE if none is held or it is another file's by now. One system call.
        StoreHandle_t Get() const
        {
            return m_hStore != STORE_NONE && StoreIdentity(m_hStore) == m_Identity ? m_hStore : STORE_NONE;
        }

        /// Closes what is held and holds another. Keeps errno.
        void Reset(StoreHandle_t hStore)
        {
            StoreClose(Get());
            m_hStore = hStore;
            m_Identity = hStore != STORE_NONE ? StoreIdentity(hStore) : FolderIdentity_t{};
        }

    private:
        StoreHandle_t m_hStore = STORE_NONE;
        FolderIdentity_t m_Identity;
    };

    /// Where a store of this name is kept for the machine, or for the user; false if the system can't say.
    bool StoreMachinePath(char const * szName, char (&szPath)[STORE_PATH_SIZE]);
    bool StoreUserPath(char const * szName, char (&szPath)[STORE_PATH_SIZE]);

    /// Makes each folder of an absolute path that is not there yet. Writes into the path meanwhile.
    void StoreMakePath(char * szPath, StoreRights_e eRights);

    /// Opens a folder by a path in the system's own form, links followed. Returns STORE_NONE on failure.
    StoreHandle_t StoreOpenPath(char const * szPath);

    /// Opens a folder in a folder by its name, ".." for the one above. Returns STORE_NONE on failure.
    StoreHandle_t StoreOpenFolder(StoreHandle_t hParent, char const * szName);

    /// Opens an open folder anew, with locks and a reading position of its own. Returns STORE_NONE on failure, as for a
    /// deleted folder.
    StoreHandle_t StoreOpenAnew(StoreHandle_t hFolder);

    /// Makes a folder in a folder. On failure errno is EEXIST if anything has the name.
    bool StoreMakeFolder(StoreHandle_t hParent, char const * szName, StoreRights_e eRights);

    /// Deletes an empty folder, or a file. Keeps what it is not.
    bool StoreDeleteFolder(StoreHandle_t hParent, char const * szName);
    bool StoreDeleteFile(StoreHandle_t hFolder, char const * szName);

    /// Whether anything in a folder has the name.
    bool StoreIsThere(StoreHandle_t hFolder, char const * szName);

    /// Whether the user may delete what is in a folder.
    bool StoreMayDelete(StoreHandle_t hFolder);

    /// Calls fnEntry for each entry of a folder, in the disk's order. False if it breaks off. Moves the handle's reading
    /// position, which a child of a fork shares.
    using StoreEntry_t = void (*)(char const * szName, bool bFolder, void * pContext);
    bool StoreList(StoreHandle_t hFolder, StoreEntry_t fnEntry, void * pContext);

    /// Reads a whole file of at most nMost bytes. False on failure; errno is EBADMSG for what is larger or no file.
    bool StoreReadFile(StoreHandle_t hFolder, char const * szName, std::size_t nMost, std::vector<char> & dBytes);

    /// Replaces a file in one step: what is written has the name szBusy until it is whole, and a file that has that name is
    /// deleted first. On failure the previous file stays, and none has the name szBusy.
    bool StoreWriteFile(StoreHandle_t hFolder, char const * szBusy, char const * szName,
        std::vector<char> const & dBytes, StoreRights_e eRights);

    /// Tries to lock an open folder for this handle alone. A child of a fork has its parent's handles and so its locks:
    /// StoreUnlock ends the lock of both.
    enum class StoreLock_e
    {
        Locked,
        Held,        // by another handle
        Impossible   // the file system has no locks
    };
    StoreLock_e StoreTryLock(StoreHandle_t hFolder);
    void StoreUnlock(StoreHandle_t hFolder);   // keeps errno

    /// Opens a file, made if it is not there, that the process locks until it closes it or ends. A child of a fork does not
    /// have the lock. Returns STORE_NONE if another process has it.
    StoreHandle_t StoreOpenLock(StoreHandle_t hFolder, char const * szName);

    /// What changes with a folder's entries.
    struct StoreStamp_s
    {
        std::int64_t tChange = 0;     // nanoseconds of the disk's clock since 1970
        std::uint64_t nFolders = 0;   // changes with the number of folders in it, where the disk counts them
        bool operator==(StoreStamp_s const &) const = default;
    };
    StoreStamp_s StoreStamp(StoreHandle_t hFolder);   // all zero on failure

    /// The time of a folder's last change; false on failure.
    bool StoreLastWrite(StoreHandle_t hFolder, FileTime_t & tLastWrite);

    /// Makes a name of a mark and of what no other call has given, in any process.
    void StoreUniqueName(char cMark, char (&szName)[64]);
}
