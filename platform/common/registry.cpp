// The store: a key is a folder, and a value is a file in it.
//
// Names on disk are folded to ASCII lower case. A byte outside [a-z0-9_ .-], and a leading ".", is written as %XX. The
// folder of a key holds:
// - the folders of its subkeys, under their names
// - each value, with its name after "="
// - the record "@key", with the key's own spelling
// - "~", the file that a writer is busy with
//
// A writer without a lock adds a text to "~" that no other writer uses.
//
// The three marks are always escaped at the start of a name. A record is written to the writer's file and then renamed,
// so no reader finds half a record.
//
// A change of a key locks its folder. The creation or deletion of a key locks its parent first. A lock belongs to a
// handle that was opened for it, because children share the handle of an open key. Changes of a process run one at a
// time, except while one waits for another process's lock. A fork in that wait copies the handles of locks that the
// change holds already. Their unlock releases the copies too. docs/formats.md describes the files.

#include "platform/registry.h"

#include "platform/common/registryfolder.h"
#include "platform/common/registryrecord.h"
#include "platform/common/storedisk.h"
#include "platform/folding.h"
#include "platform/fork.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace plat
{
    struct RegistryKey_s
    {
        RegistryTree_e eTree;
        std::string sPath;   // from the tree
        StoreKept_c Folder;
        KeyListing_c Listing;
    };

    namespace
    {
        constexpr std::chrono::seconds LOCK_LIMIT{ 5 };   // of a change, from its start until it has its locks
        constexpr std::chrono::microseconds FIRST_PAUSE{ 20 }, LONGEST_PAUSE{ 250 };   // between attempts to lock
        constexpr int DELETED_KEY_TRIES = 1000;   // for a key that others delete while it is opened or written

        // Folders of the two trees. An empty one means the default.
        char g_dFolders[2][STORE_PATH_SIZE];

        constinit std::atomic<std::uint32_t> g_dwPlatform = 0;

        bool GetTreeFolder(RegistryTree_e eTree, char (&szFolder)[STORE_PATH_SIZE])
        {
            char const * const szSet = g_dFolders[static_cast<int>(eTree)];
            if (szSet[0] != 0)
            {
                std::strcpy(szFolder, szSet);
                return true;
            }
            return eTree == RegistryTree_e::Machine ? StoreGetMachinePath("registry", szFolder)
                                                    : StoreGetUserPath("registry", szFolder);
        }

        // Returns the rights of a tree's keys: the user's are private.
        StoreRights_e FolderRights(RegistryTree_e eTree)
        {
            return eTree == RegistryTree_e::Machine ? StoreRights_e::Readers : StoreRights_e::Owner;
        }

        // Opens the folder of a tree. With bCreate creates the folder if it is missing. Returns its handle, or
        // STORE_NONE on failure.
        StoreHandle_t OpenTreeFolder(RegistryTree_e eTree, bool bCreate)
        {
            char szFolder[STORE_PATH_SIZE];
            if (!GetTreeFolder(eTree, szFolder))
            {
                return STORE_NONE;
            }
            StoreHandle_t const hTree = StoreOpenPath(szFolder);
            if (hTree != STORE_NONE || errno != ENOENT || !bCreate)
            {
                return hTree;
            }
            StoreMakePath(szFolder, FolderRights(eTree));
            return StoreOpenPath(szFolder);
        }

        // Opens a tree and returns its handle, or STORE_NONE on failure. With bCreate a failure never sets errno to
        // ENOENT, which means that others deleted a key.
        StoreHandle_t OpenTree(RegistryTree_e eTree, bool bCreate)
        {
            StoreHandle_t const hTree = OpenTreeFolder(eTree, bCreate);
            if (hTree == STORE_NONE && bCreate && errno == ENOENT)
            {
                errno = ENXIO;
            }
            return hTree;
        }

        constinit Lock_c g_Changes;   // held by the thread that changes the store
        ForkLock_c const g_ChangesForkLock(g_Changes);

        // A change of the store, which lasts for a scope.
        class Change_c
        {
        public:
            // Waits for the lock of a folder and sets bAlone to whether it is held. A file system without such locks is
            // used without them. Returns false when the time is up. Other threads and a fork may run meanwhile.
            bool Lock(StoreHandle_t hFolder, bool & bAlone)
            {
                for (std::chrono::microseconds tPause = FIRST_PAUSE;; tPause = std::min(tPause * 2, LONGEST_PAUSE))
                {
                    StoreLock_e const eLock = StoreTryLock(hFolder);
                    bAlone = eLock == StoreLock_e::Locked;
                    if (eLock != StoreLock_e::Held)
                    {
                        return true;
                    }
                    if (std::chrono::steady_clock::now() >= m_tLimit)
                    {
                        return false;
                    }
                    g_Changes.Leave();
                    std::this_thread::sleep_for(tPause);
                    g_Changes.Enter();
                }
            }

        private:
            LockScope_c const m_Scope{ g_Changes };
            std::chrono::steady_clock::time_point m_tLimit = std::chrono::steady_clock::now() + LOCK_LIMIT;
        };

        // Lock of a key's folder for a scope, with a handle of its own. The lock of a deleted folder may be held too.
        // Nothing can be created in such a folder.
        class KeyLock_c
        {
        public:
            KeyLock_c(Change_c & Change, StoreHandle_t hFolder)
                : m_Folder(hFolder != STORE_NONE ? StoreReopen(hFolder) : STORE_NONE)
            {
                if (m_Folder.IsOpen() && !Change.Lock(m_Folder.Get(), m_bAlone))
                {
                    m_Folder.Reset(STORE_NONE);
                }
            }
            ~KeyLock_c() { StoreUnlock(m_Folder.Get()); }   // a child may have the handle too
            KeyLock_c(KeyLock_c const &) = delete;
            KeyLock_c & operator=(KeyLock_c const &) = delete;

            // Returns whether the folder may be changed: its lock is held, or its file system has no locks.
            bool IsHeld() const { return m_Folder.IsOpen(); }
            StoreHandle_t Get() const { return m_Folder.Get(); }

            bool Store(char const * szFile, Record_t const & Record) const
            {
                return IsHeld() && StoreRecord(Get(), szFile, Record, m_bAlone);
            }

        private:
            StoreScope_c m_Folder;
            bool m_bAlone = false;
        };

        // Writes the record of a key, which holds the spelling of its name. Returns false on failure.
        bool StoreSpelling(Change_c & Change, StoreHandle_t hKey, std::string_view sName)
        {
            return KeyLock_c(Change, hKey).Store(KEY_RECORD, { RegistryType_e::Untyped, sName, {} });
        }

        // Creates the subkey's folder and stores the spelling sName in it, or opens the folder that others have
        // created. Returns its handle. On failure returns STORE_NONE, and deletes a folder that it created.
        StoreHandle_t MakeSubKey(
            StoreHandle_t hParent, std::string_view sName, char const * szFile, StoreRights_e eRights)
        {
            Change_c Change;
            KeyLock_c const Parent(Change, hParent);
            if (!Parent.IsHeld())
            {
                return STORE_NONE;
            }
            bool const bMade = StoreMakeFolder(Parent.Get(), szFile, eRights);
            StoreScope_c Key(bMade || errno == EEXIST ? StoreOpenFolder(Parent.Get(), szFile) : STORE_NONE);
            if (bMade && !(Key.IsOpen() && StoreSpelling(Change, Key.Get(), sName)))
            {
                int const iError = errno;
                Key.Reset(STORE_NONE);
                StoreDeleteFolder(Parent.Get(), szFile);
                errno = iError;
            }
            CountKeyChange();
            return Key.Release();
        }

        // Stores the spelling of a key that has none because its maker was killed.
        void RenewSpelling(StoreHandle_t hKey, std::string_view sName)
        {
            if (!StoreIsThere(hKey, KEY_RECORD) && errno == ENOENT)
            {
                Change_c Change;
                StoreSpelling(Change, hKey, sName);
            }
        }

        // Opens the folder of a subkey. With bCreate creates the subkey if it is missing. Returns its handle, or
        // STORE_NONE on failure.
        StoreHandle_t OpenSubKey(StoreHandle_t hParent, std::string_view sName, bool bCreate, StoreRights_e eRights)
        {
            std::string sFile;
            if (!KeyNameToDisk(sName, sFile))
            {
                return STORE_NONE;
            }
            StoreHandle_t const hKey = StoreOpenFolder(hParent, sFile.c_str());
            if (hKey != STORE_NONE && bCreate)
            {
                RenewSpelling(hKey, sName);
            }
            return hKey == STORE_NONE && errno == ENOENT && bCreate ? MakeSubKey(hParent, sName, sFile.c_str(), eRights)
                                                                    : hKey;
        }

        // Removes the first name from a path and returns it. Skips empty names. Returns an empty name at the end.
        std::string_view RemoveFirstName(std::string_view & sPath)
        {
            while (sPath.starts_with('\\'))
            {
                sPath.remove_prefix(1);
            }
            std::string_view const sName = sPath.substr(0, sPath.find('\\'));
            sPath.remove_prefix(sName.size());
            return sName;
        }

        // Opens the folder of a key by its path from an open folder. Returns its handle, or STORE_NONE on failure. Owns
        // the open folder, and closes it unless it returns it.
        StoreHandle_t OpenFrom(StoreHandle_t hFolder, std::string_view sPath, bool bCreate, StoreRights_e eRights)
        {
            StoreScope_c Key(hFolder);
            for (std::string_view sName = RemoveFirstName(sPath); Key.IsOpen() && !sName.empty();
                 sName = RemoveFirstName(sPath))
            {
                Key.Reset(OpenSubKey(Key.Get(), sName, bCreate, eRights));
            }
            return Key.Release();
        }

        StoreHandle_t OpenKey(RegistryTree_e eTree, std::string_view sPath, bool bCreate)
        {
            return OpenFrom(OpenTree(eTree, bCreate), sPath, bCreate, FolderRights(eTree));
        }

        std::string_view TextOf(char const * szText)
        {
            return szText != nullptr ? szText : "";
        }

        // Makes an open key that owns the handle of its folder, and returns it. Returns null for STORE_NONE.
        RegistryKey_t MakeOpenKey(RegistryTree_e eTree, std::string sPath, StoreHandle_t hFolder)
        {
            if (hFolder == STORE_NONE)
            {
                return nullptr;
            }
            RegistryKey_t const hKey = new RegistryKey_s{ eTree, std::move(sPath), {}, {} };
            hKey->Folder.Reset(hFolder);
            return hKey;
        }

        // Returns the handle of a key's folder. Returns STORE_NONE for a key that is not open, or whose handle was lost
        // (StoreKept_c).
        StoreHandle_t FolderOf(RegistryKey_t hKey)
        {
            return hKey ? hKey->Folder.Get() : STORE_NONE;
        }

        bool Load(StoreHandle_t hFolder, char const * szName, RecordBytes_t & dBytes, Record_t & Record)
        {
            std::string sFile;
            return hFolder != STORE_NONE && ValueNameToDisk(TextOf(szName), sFile)
                   && LoadRecord(hFolder, sFile.c_str(), dBytes, Record);
        }

        // Copies the data of a value, and sets eType and nSize to its type and size. Before the call nSize is the size
        // of the buffer. Returns false, with nSize 0, if the value can't be read. Returns false with errno ERANGE, and
        // copies nothing, if the data do not fit or have another type than the required one.
        bool ReadFrom(StoreHandle_t hFolder, char const * szName, RegistryType_e & eType, void * pBuffer,
            std::size_t & nSize, std::optional<RegistryType_e> eRequired = {})
        {
            std::size_t const nRoom = nSize;
            nSize = 0;
            RecordBytes_t dBytes;
            Record_t Record;
            if (!Load(hFolder, szName, dBytes, Record))
            {
                return false;
            }
            eType = Record.eType;
            nSize = Record.sData.size();
            if (nSize > nRoom || eType != eRequired.value_or(eType))
            {
                errno = ERANGE;
                return false;
            }
            Record.sData.copy(static_cast<char *>(pBuffer), nSize);
            return true;
        }

        // Makes the name of a value's file and returns true. Returns false with errno if the store refuses the value.
        bool MakeValueFileName(char const * szName, std::size_t nSize, std::string & sFile)
        {
            errno = EFBIG;
            return nSize <= VALUE_LIMIT && ValueNameToDisk(TextOf(szName), sFile);
        }

        bool WriteTo(StoreHandle_t hFolder, char const * szFile, Record_t const & Record)
        {
            Change_c Change;
            return KeyLock_c(Change, hFolder).Store(szFile, Record);
        }

        // Splits a path before its last name. If the path has none, the last name is empty.
        void SplitLast(std::string_view sPath, std::string_view & sParent, std::string_view & sLast)
        {
            while (sPath.ends_with('\\'))
            {
                sPath.remove_suffix(1);
            }
            std::size_t const iCut = sPath.rfind('\\');
            sParent = iCut == std::string_view::npos ? std::string_view() : sPath.substr(0, iCut);
            sLast = iCut == std::string_view::npos ? sPath : sPath.substr(iCut + 1);
        }

        // A key to delete, with its parent.
        struct Victim_s
        {
            StoreScope_c Parent, Key;
            std::string sFile;      // of the key, in its parent's folder
            std::string sListed;    // the key's name if the parent is the open key and stays, else empty
            bool bItself = false;   // whether the key is the open key, or lies in a tree that is deleted with it
        };

        // Finds a key by its path from an open key. An empty path leads to the open key itself. A path that consists of
        // separators leads to no key. Never finds a tree itself. Returns false on failure, for instance if there is no
        // such key.
        bool Find(RegistryKey_t hKey, char const * szKey, Victim_s & Victim)
        {
            StoreHandle_t const hFolder = FolderOf(hKey);
            bool const bItself = TextOf(szKey).empty();
            std::string_view sParent, sLast;
            if (hFolder == STORE_NONE)
            {
                return false;
            }
            SplitLast(bItself ? std::string_view(hKey->sPath) : TextOf(szKey), sParent, sLast);
            if (sLast.empty() || !KeyNameToDisk(sLast, Victim.sFile))
            {
                return false;
            }
            Victim.Parent.Reset(
                bItself ? OpenKey(hKey->eTree, sParent, false) : OpenFrom(StoreReopen(hFolder), sParent, false, {}));
            Victim.Key.Reset(
                Victim.Parent.IsOpen() ? StoreOpenFolder(Victim.Parent.Get(), Victim.sFile.c_str()) : STORE_NONE);
            Victim.bItself = bItself;
            Victim.sListed = bItself || !RemoveFirstName(sParent).empty() ? std::string_view() : sLast;
            return Victim.Key.IsOpen() && (!bItself || StoreIdentity(Victim.Key.Get()) == StoreIdentity(hFolder));
        }

        // Deletes a found key that has no subkeys. Updates the listing of the open key from which it was found, or lets
        // it be read again. Returns false on failure.
        bool DeleteFound(RegistryKey_t hKey, Victim_s const & Victim)
        {
            Change_c Change;
            KeyLock_c const Parent(Change, Victim.Parent.Get()), Key(Change, Victim.Key.Get());
            bool const bListed = !Victim.sListed.empty() && hKey->Listing.IsCurrent(Parent.Get());
            if (!Parent.IsHeld() || !Key.IsHeld() || !StoreMayDelete(Parent.Get()) || !EmptyKey(Key.Get())
                || !StoreDeleteFolder(Parent.Get(), Victim.sFile.c_str()))
            {
                return false;
            }
            CountKeyChange();
            if (!Victim.bItself)   // else the next use reads the listing again
            {
                hKey->Listing.CountChange();
            }
            if (bListed)
            {
                hKey->Listing.Drop(Parent.Get(), Victim.sListed);
            }
            return true;
        }

        // A key of a tree that is being deleted, and what is left to delete in it.
        struct Level_s
        {
            std::string sFile;
            FileIdentity_t Identity;
            std::vector<std::string> dLeft;
        };

        // Adds a level for a key. Returns false if the key can't be read or its subkeys may not be deleted.
        bool PushLevel(std::vector<Level_s> & dLevels, std::string sFile, StoreHandle_t hKey)
        {
            KeyContents_t Contents = ReadKeyContents(hKey);
            std::sort(Contents.dSubKeys.begin(), Contents.dSubKeys.end());
            dLevels.push_back({ std::move(sFile), StoreIdentity(hKey), std::move(Contents.dSubKeys) });
            return Contents.bRead && StoreMayDelete(hKey);
        }

        // Deletes the subkeys of a found key at any depth, in each key from the last name to the first. Returns false
        // on failure.
        bool DeleteBelow(RegistryKey_t hKey, Victim_s const & Top)
        {
            std::vector<Level_s> dLevels;
            Victim_s Now;   // the present key; its parent is open only while it is deleted
            Now.Key.Reset(StoreReopen(Top.Key.Get()));
            Now.bItself = Top.bItself;
            bool bGood = Now.Key.IsOpen() && PushLevel(dLevels, Top.sFile, Now.Key.Get());
            while (bGood && (dLevels.size() > 1 || !dLevels.back().dLeft.empty()))
            {
                Level_s & Level = dLevels.back();
                if (!Level.dLeft.empty())
                {
                    std::string sFile;
                    KeyNameToDisk(Level.dLeft.back(), sFile);
                    Level.dLeft.pop_back();
                    Now.Key.Reset(StoreOpenFolder(Now.Key.Get(), sFile.c_str()));
                    bGood = Now.Key.IsOpen() && PushLevel(dLevels, std::move(sFile), Now.Key.Get());
                    continue;
                }
                Now.sFile = std::move(Level.sFile);
                dLevels.pop_back();
                Now.Parent.Reset(StoreOpenFolder(Now.Key.Get(), ".."));
                bGood = StoreIdentity(Now.Parent.Get()) == dLevels.back().Identity && DeleteFound(hKey, Now);
                Now.Key.Reset(Now.Parent.Release());
            }
            return bGood;
        }
    }

    void RegistrySetFolder(RegistryTree_e eTree, char const * szFolder)
    {
        char(&szSet)[STORE_PATH_SIZE] = g_dFolders[static_cast<int>(eTree)];
        std::snprintf(szSet, sizeof(szSet), "%s", szFolder != nullptr ? szFolder : "");
    }

    bool RegistryRead(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e & eType,
        void * pBuffer, std::size_t & nSize)
    {
        StoreScope_c const Key(OpenKey(eTree, TextOf(szKey), false));
        return ReadFrom(Key.Get(), szName, eType, pBuffer, nSize);
    }

    bool RegistryWrite(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e eType,
        void const * pData, std::size_t nSize)
    {
        std::string sFile;
        if (!MakeValueFileName(szName, nSize, sFile))
        {
            return false;
        }
        Record_t const Record = { eType, TextOf(szName), { static_cast<char const *>(pData), nSize } };
        bool bWritten = false;
        errno = ENOENT;
        for (int iTry = 0; !bWritten && errno == ENOENT && iTry < DELETED_KEY_TRIES; ++iTry)
        {
            StoreScope_c const Key(OpenKey(eTree, TextOf(szKey), true));
            bWritten = Key.IsOpen() && WriteTo(Key.Get(), sFile.c_str(), Record);
        }
        return bWritten;
    }

    bool RegistryKeyExists(RegistryTree_e eTree, char const * szKey)
    {
        return StoreScope_c(OpenKey(eTree, TextOf(szKey), false)).IsOpen();
    }

    // The system checks the rights of each operation, so none are checked here.
    RegistryKey_t RegistryOpenKey(RegistryTree_e eTree, char const * szKey, std::uint32_t, bool bCreate)
    {
        int const nTries = bCreate ? DELETED_KEY_TRIES : 1;
        StoreHandle_t hFolder = STORE_NONE;
        errno = ENOENT;
        for (int iTry = 0; hFolder == STORE_NONE && errno == ENOENT && iTry < nTries; ++iTry)
        {
            hFolder = OpenKey(eTree, TextOf(szKey), bCreate);
        }
        return MakeOpenKey(eTree, std::string(TextOf(szKey)), hFolder);
    }

    void RegistryCloseKey(RegistryKey_t hKey)
    {
        if (hKey)
        {
            hKey->Folder.Reset(STORE_NONE);
            delete hKey;
        }
    }

    bool RegistryRead(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, void * pBuffer,
        std::size_t & nSize, std::optional<RegistryType_e> eRequired)
    {
        return ReadFrom(FolderOf(hKey), szName, eType, pBuffer, nSize, eRequired);
    }

    bool RegistryWrite(
        RegistryKey_t hKey, char const * szName, RegistryType_e eType, void const * pData, std::size_t nSize)
    {
        std::string sFile;
        return MakeValueFileName(szName, nSize, sFile)
               && WriteTo(FolderOf(hKey), sFile.c_str(),
                   { eType, TextOf(szName), { static_cast<char const *>(pData), nSize } });
    }

    bool RegistryQuery(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, std::size_t & nSize)
    {
        RecordBytes_t dBytes;
        Record_t Record;
        if (!Load(FolderOf(hKey), szName, dBytes, Record))
        {
            return false;
        }
        eType = Record.eType;
        nSize = Record.sData.size();
        return true;
    }

    bool RegistryDeleteValue(RegistryKey_t hKey, char const * szName)
    {
        std::string sFile;
        if (!ValueNameToDisk(TextOf(szName), sFile))
        {
            return false;
        }
        Change_c Change;
        KeyLock_c const Key(Change, FolderOf(hKey));
        return Key.IsHeld() && StoreDeleteFile(Key.Get(), sFile.c_str());
    }

    bool RegistryRenameValue(RegistryKey_t hKey, char const * szOldName, char const * szNewName)
    {
        std::string sOld, sNew;
        if (!ValueNameToDisk(TextOf(szOldName), sOld) || !ValueNameToDisk(TextOf(szNewName), sNew))
        {
            return false;
        }
        Change_c Change;
        KeyLock_c const Key(Change, FolderOf(hKey));
        RecordBytes_t dBytes, dOther;
        Record_t Record, Other;
        if (!Key.IsHeld() || LoadRecord(Key.Get(), sNew.c_str(), dOther, Other)
            || !LoadRecord(Key.Get(), sOld.c_str(), dBytes, Record)
            || !Key.Store(sNew.c_str(), { Record.eType, TextOf(szNewName), Record.sData }))
        {
            return false;
        }
        bool const bGone = StoreDeleteFile(Key.Get(), sOld.c_str());
        if (!bGone)
        {
            StoreDeleteFile(Key.Get(), sNew.c_str());
        }
        return bGone;
    }

    bool RegistryEnumKey(RegistryKey_t hKey, std::size_t iIndex, char * szName, std::size_t nSize)
    {
        StoreHandle_t const hFolder = FolderOf(hKey);
        if (hFolder == STORE_NONE)
        {
            return false;
        }
        auto const & dNames = hKey->Listing.Read(hFolder);
        if (iIndex >= dNames.size() || dNames[iIndex].size() >= nSize)
        {
            return false;
        }
        std::string const sSpelling = SpellingOf(hFolder, dNames[iIndex]);
        std::memcpy(szName, sSpelling.c_str(), sSpelling.size() + 1);
        return true;
    }

    bool RegistryDeleteKey(RegistryKey_t hKey, char const * szKey)
    {
        Victim_s Victim;
        return Find(hKey, szKey, Victim) && DeleteFound(hKey, Victim);
    }

    bool RegistryDeleteTree(RegistryKey_t hKey, char const * szKey)
    {
        Victim_s Victim;
        return Find(hKey, szKey, Victim) && DeleteBelow(hKey, Victim) && DeleteFound(hKey, Victim);
    }

    bool RegistryGetKeyInfo(RegistryKey_t hKey, RegistryKeyInfo_t & Info)
    {
        Info = {};
        StoreHandle_t const hFolder = FolderOf(hKey);
        if (hFolder == STORE_NONE || !StoreReadLastWrite(hFolder, Info.tLastWrite))
        {
            return false;
        }
        KeyContents_t const Contents = ReadKeyContents(hFolder);
        Info.nSubKeys = Contents.dSubKeys.size();
        for (std::string const & sName : Contents.dSubKeys)
        {
            Info.nMaxSubKeyLength = std::max(Info.nMaxSubKeyLength, sName.size());
        }
        for (std::string const & sFile : Contents.dValues)
        {
            RecordBytes_t dBytes;
            Record_t Record;
            if (LoadRecord(hFolder, sFile.c_str(), dBytes, Record))
            {
                ++Info.nValues;
                Info.nMaxValueNameLength = std::max(Info.nMaxValueNameLength, Record.sName.size());
                Info.nMaxValueLength = std::max(Info.nMaxValueLength, Record.sData.size());
            }
        }
        return Contents.bRead;
    }

    std::uint32_t RegistryGetPlatform()
    {
        return g_dwPlatform;
    }

    void RegistrySetPlatform(std::uint32_t dwPlatform)
    {
        g_dwPlatform = dwPlatform;
    }
}
