// The store: a key is a folder, a value a file in it.
//
// Names on disk are folded to ASCII lower case; a byte outside [a-z0-9_ .-], and a "." in front, is written as %XX. In
// the folder of a key are the folders of its subkeys under their names, each value after "=", the record "@key" with
// the key's own spelling, and "~", what a writer is busy with. None of the three marks is left unescaped in front of a
// name. A record is written as "~" and renamed, so a name never shows half of one.
//
// Whoever changes a key locks its folder; whoever makes or deletes a key locks its parent first. A lock belongs to a
// descriptor opened for it, since children share the descriptor of an open key. All changes of a process go one at a
// time, so that a fork finds no lock held. docs/formats.md describes the files.

#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64

#include "platform/registry.h"

#include "platform/common/folding.h"
#include "platform/fork.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/facts.h"
#include "platform/linux/registryfolder.h"
#include "platform/linux/registryrecord.h"
#include "platform/linux/userfolder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

namespace plat
{
    struct RegistryKey_s
    {
        RegistryTree_e eTree;
        std::string sPath;   // from the tree
        KeptDescriptor_c Folder;
        KeyListing_c Listing;
    };

    namespace
    {
        constexpr std::chrono::seconds LOCK_LIMIT{ 5 };
        constexpr std::chrono::microseconds FIRST_PAUSE{ 20 }, LONGEST_PAUSE{ 250 };   // between tries to lock
        constexpr int DELETED_KEY_TRIES = 1000;   // for a key that others delete while it is being written to

        // The folders of the two trees; empty for the default.
        char g_szFolders[2][PATH_MAX];

        constinit std::atomic<std::uint32_t> g_dwPlatform = 0;

        bool TreeFolder(RegistryTree_e eTree, char (&szFolder)[PATH_MAX])
        {
            char const * const szSet = g_szFolders[static_cast<int>(eTree)];
            if (szSet[0] != 0 || eTree == RegistryTree_e::Machine)
            {
                std::strcpy(szFolder, szSet[0] != 0 ? szSet : "/etc/zqcore/registry");
                return true;
            }
            return UserFolder("registry", szFolder);
        }

        // What the user's keys hold is nobody else's business.
        mode_t FolderMode(RegistryTree_e eTree)
        {
            return eTree == RegistryTree_e::Machine ? 0755 : 0700;
        }

        int OpenTree(RegistryTree_e eTree, bool bCreate)
        {
            char szFolder[PATH_MAX];
            if (!TreeFolder(eTree, szFolder))
            {
                return -1;
            }
            int const iTree = OpenFolder(AT_FDCWD, szFolder);
            if (iTree >= 0 || errno != ENOENT || !bCreate)
            {
                return iTree;
            }
            MakeFolders(szFolder, FolderMode(eTree));
            return OpenFolder(AT_FDCWD, szFolder);
        }

        constinit Lock_c g_Changes;   // held by the thread that changes the store
        ForkLock_c const g_ChangesForkLock(g_Changes);

        // A change of the store, for a scope.
        class Change_c
        {
        public:
            // Waits for the lock of a descriptor; false when the time is up. Other threads, and a fork, are let through
            // meanwhile. bAlone: false on a file system without such locks, which is used without.
            bool Lock(int iDescriptor, bool & bAlone)
            {
                for (std::chrono::microseconds tPause = FIRST_PAUSE;; tPause = std::min(tPause * 2, LONGEST_PAUSE))
                {
                    bAlone = flock(iDescriptor, LOCK_EX | LOCK_NB) == 0;
                    if (bAlone || (errno != EWOULDBLOCK && errno != EINTR))
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

        // Holds the lock of a key's folder for a scope, with a descriptor of its own. A deleted folder can't be locked.
        class KeyLock_c
        {
        public:
            KeyLock_c(Change_c & Change, int iFolder)
                : m_Folder(iFolder >= 0 ? OpenFolder(iFolder, ".") : -1)
            {
                if (m_Folder.IsOpen() && !Change.Lock(m_Folder.Get(), m_bAlone))
                {
                    m_Folder.Reset(-1);
                }
            }
            ~KeyLock_c()
            {
                int const iError = errno;
                flock(m_Folder.Get(), LOCK_UN);   // a child may have the descriptor too
                errno = iError;
            }
            KeyLock_c(KeyLock_c const &) = delete;
            KeyLock_c & operator=(KeyLock_c const &) = delete;

            bool IsHeld() const { return m_Folder.IsOpen(); }
            int Get() const { return m_Folder.Get(); }

            bool Store(char const * szFile, Record_t const & Record) const
            {
                return IsHeld() && StoreRecord(Get(), szFile, Record, m_bAlone);
            }

        private:
            Descriptor_c m_Folder;
            bool m_bAlone = false;
        };

        bool StoreSpelling(Change_c & Change, int iKey, std::string_view sName)
        {
            return KeyLock_c(Change, iKey).Store(KEY_RECORD, { RegistryType_e::Untyped, sName, {} });
        }

        // Makes the subkey's folder, which keeps the spelling that made it; -1 on failure.
        int MakeSubKey(int iParent, std::string_view sName, char const * szFile, mode_t iMode)
        {
            Change_c Change;
            KeyLock_c const Parent(Change, iParent);
            if (!Parent.IsHeld())
            {
                return -1;
            }
            bool const bMade = mkdirat(Parent.Get(), szFile, iMode) == 0;
            Descriptor_c Key(bMade || errno == EEXIST ? OpenFolder(Parent.Get(), szFile) : -1);
            if (bMade && !(Key.IsOpen() && StoreSpelling(Change, Key.Get(), sName)))
            {
                int const iError = errno;
                Key.Reset(-1);
                unlinkat(Parent.Get(), szFile, AT_REMOVEDIR);
                errno = iError;
            }
            CountKeyChange();
            return Key.Release();
        }

        // Gives a key a spelling that lost it: its maker was killed.
        void RenewSpelling(int iKey, std::string_view sName)
        {
            if (faccessat(iKey, KEY_RECORD, F_OK, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT)
            {
                Change_c Change;
                StoreSpelling(Change, iKey, sName);
            }
        }

        int OpenSubKey(int iParent, std::string_view sName, bool bCreate, mode_t iMode)
        {
            std::string sFile;
            if (!KeyNameOnDisk(sName, sFile))
            {
                return -1;
            }
            int const iKey = OpenFolder(iParent, sFile.c_str());
            if (iKey >= 0 && bCreate)
            {
                RenewSpelling(iKey, sName);
            }
            return iKey < 0 && errno == ENOENT && bCreate ? MakeSubKey(iParent, sName, sFile.c_str(), iMode) : iKey;
        }

        // Takes the first name off a path; empty names are passed over, and an empty one is the end.
        std::string_view TakeName(std::string_view & sPath)
        {
            while (sPath.starts_with('\\'))
            {
                sPath.remove_prefix(1);
            }
            std::string_view const sName = sPath.substr(0, sPath.find('\\'));
            sPath.remove_prefix(sName.size());
            return sName;
        }

        // Opens the folder of a key by its path from an open folder, which it takes over.
        int OpenFrom(int iFolder, std::string_view sPath, bool bCreate, mode_t iMode)
        {
            Descriptor_c Key(iFolder);
            for (std::string_view sName = TakeName(sPath); Key.IsOpen() && !sName.empty(); sName = TakeName(sPath))
            {
                Key.Reset(OpenSubKey(Key.Get(), sName, bCreate, iMode));
            }
            return Key.Release();
        }

        int OpenKey(RegistryTree_e eTree, std::string_view sPath, bool bCreate)
        {
            return OpenFrom(OpenTree(eTree, bCreate), sPath, bCreate, FolderMode(eTree));
        }

        std::string_view TextOf(char const * szText)
        {
            return szText != nullptr ? szText : "";
        }

        RegistryKey_t NewKey(RegistryTree_e eTree, std::string sPath, int iFolder)
        {
            if (iFolder < 0)
            {
                return nullptr;
            }
            RegistryKey_t const hKey = new RegistryKey_s{ eTree, std::move(sPath), {}, {} };
            hKey->Folder.Reset(iFolder);
            return hKey;
        }

        // -1 for a key that is not open.
        int FolderOf(RegistryKey_t hKey)
        {
            return hKey ? hKey->Folder.Get() : -1;
        }

        bool Load(int iFolder, char const * szName, RecordBytes_t & aBytes, Record_t & Record)
        {
            std::string sFile;
            return iFolder >= 0 && ValueNameOnDisk(TextOf(szName), sFile)
                   && LoadRecord(iFolder, sFile.c_str(), aBytes, Record);
        }

        bool ReadFrom(int iFolder, char const * szName, RegistryType_e & eType, void * pBuffer, std::size_t & nSize)
        {
            std::size_t const nRoom = nSize;
            nSize = 0;
            RecordBytes_t aBytes;
            Record_t Record;
            if (!Load(iFolder, szName, aBytes, Record))
            {
                return false;
            }
            eType = Record.eType;
            nSize = Record.sData.size();
            if (nSize > nRoom)
            {
                errno = ERANGE;
                return false;
            }
            Record.sData.copy(static_cast<char *>(pBuffer), nSize);
            return true;
        }

        // Whether the store takes a value; gives the name of its file.
        bool IsStorable(char const * szName, std::size_t nSize, std::string & sFile)
        {
            errno = EFBIG;
            return nSize <= VALUE_LIMIT && ValueNameOnDisk(TextOf(szName), sFile);
        }

        bool WriteTo(int iFolder, char const * szFile, Record_t const & Record)
        {
            Change_c Change;
            return KeyLock_c(Change, iFolder).Store(szFile, Record);
        }

        bool MayDeleteFrom(int iFolder)
        {
            return faccessat(iFolder, ".", W_OK | X_OK, AT_EACCESS) == 0;
        }

        // Splits a path before its last name, which is empty if the path has none.
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
            Descriptor_c Parent, Key;
            std::string sFile;     // of the key, in its parent's folder
            std::string sListed;   // the key's name if the parent is the open key, else empty
        };

        // Finds a key by its path from an open one, which an empty path names. A tree itself is not found.
        bool Find(RegistryKey_t hKey, char const * szKey, Victim_s & Victim)
        {
            int const iFolder = FolderOf(hKey);
            std::string_view sRest = TextOf(szKey);
            bool const bItself = TakeName(sRest).empty();
            std::string_view sParent, sLast;
            if (iFolder < 0)
            {
                return false;
            }
            SplitLast(bItself ? std::string_view(hKey->sPath) : TextOf(szKey), sParent, sLast);
            if (sLast.empty() || !KeyNameOnDisk(sLast, Victim.sFile))
            {
                return false;
            }
            Victim.Parent.Reset(
                bItself ? OpenKey(hKey->eTree, sParent, false) : OpenFrom(OpenFolder(iFolder, "."), sParent, false, 0));
            Victim.Key.Reset(Victim.Parent.IsOpen() ? OpenFolder(Victim.Parent.Get(), Victim.sFile.c_str()) : -1);
            Victim.sListed = bItself || !TakeName(sParent).empty() ? std::string_view() : sLast;
            return Victim.Key.IsOpen() && (!bItself || IdentityOf(Victim.Key.Get()) == IdentityOf(iFolder));
        }

        // Deletes a key without subkeys on behalf of an open key, whose listing learns of it.
        bool DeleteFound(RegistryKey_t hKey, Victim_s const & Victim)
        {
            Change_c Change;
            KeyLock_c const Parent(Change, Victim.Parent.Get()), Key(Change, Victim.Key.Get());
            bool const bListed = !Victim.sListed.empty() && hKey->Listing.IsCurrent(Parent.Get());
            if (!Parent.IsHeld() || !Key.IsHeld() || !MayDeleteFrom(Parent.Get()) || !EmptyKey(Key.Get())
                || unlinkat(Parent.Get(), Victim.sFile.c_str(), AT_REMOVEDIR) != 0)
            {
                return false;
            }
            CountKeyChange();
            hKey->Listing.CountChange();
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
            DescriptorIdentity_t Identity;
            std::vector<std::string> dLeft;
        };

        bool PushLevel(std::vector<Level_s> & dLevels, std::string sFile, int iKey)
        {
            KeyContents_s Contents = ReadKeyContents(iKey);
            std::sort(Contents.dSubKeys.begin(), Contents.dSubKeys.end());
            dLevels.push_back({ std::move(sFile), IdentityOf(iKey), std::move(Contents.dSubKeys) });
            return Contents.bRead && MayDeleteFrom(iKey);
        }

        // Deletes the subkeys of a found key, each level from the last to the first, however deep.
        bool DeleteBelow(RegistryKey_t hKey, Victim_s const & Top)
        {
            std::vector<Level_s> dLevels;
            Victim_s Now;   // the key at hand; its parent is open only while it is deleted
            Now.Key.Reset(OpenFolder(Top.Key.Get(), "."));
            bool bGood = Now.Key.IsOpen() && PushLevel(dLevels, Top.sFile, Now.Key.Get());
            while (bGood && (dLevels.size() > 1 || !dLevels.back().dLeft.empty()))
            {
                Level_s & Level = dLevels.back();
                if (!Level.dLeft.empty())
                {
                    std::string sFile;
                    KeyNameOnDisk(Level.dLeft.back(), sFile);
                    Level.dLeft.pop_back();
                    Now.Key.Reset(OpenFolder(Now.Key.Get(), sFile.c_str()));
                    bGood = Now.Key.IsOpen() && PushLevel(dLevels, std::move(sFile), Now.Key.Get());
                    continue;
                }
                Now.sFile = std::move(Level.sFile);
                dLevels.pop_back();
                Now.Parent.Reset(OpenFolder(Now.Key.Get(), ".."));
                bGood = IdentityOf(Now.Parent.Get()) == dLevels.back().Identity && DeleteFound(hKey, Now);
                Now.Key.Reset(Now.Parent.Release());
            }
            return bGood;
        }
    }

    void RegistrySetFolder(RegistryTree_e eTree, char const * szFolder)
    {
        char(&szSet)[PATH_MAX] = g_szFolders[static_cast<int>(eTree)];
        std::snprintf(szSet, sizeof(szSet), "%s", szFolder != nullptr ? szFolder : "");
    }

    bool RegistryRead(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e & eType,
        void * pBuffer, std::size_t & nSize)
    {
        Descriptor_c const Key(OpenKey(eTree, TextOf(szKey), false));
        return ReadFrom(Key.Get(), szName, eType, pBuffer, nSize);
    }

    bool RegistryWrite(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e eType,
        void const * pData, std::size_t nSize)
    {
        std::string sFile;
        if (!IsStorable(szName, nSize, sFile))
        {
            return false;
        }
        Record_t const Record = { eType, TextOf(szName), { static_cast<char const *>(pData), nSize } };
        bool bWritten = false;
        errno = ENOENT;
        for (int iTry = 0; !bWritten && errno == ENOENT && iTry < DELETED_KEY_TRIES; ++iTry)
        {
            Descriptor_c const Key(OpenKey(eTree, TextOf(szKey), true));
            bWritten = Key.IsOpen() && WriteTo(Key.Get(), sFile.c_str(), Record);
        }
        return bWritten;
    }

    bool RegistryKeyExists(RegistryTree_e eTree, char const * szKey)
    {
        return Descriptor_c(OpenKey(eTree, TextOf(szKey), false)).IsOpen();
    }

    // The system checks the rights of each operation, so an opening needs none.
    RegistryKey_t RegistryOpenKey(RegistryTree_e eTree, char const * szKey, std::uint32_t, bool bCreate)
    {
        int iFolder = -1;
        errno = ENOENT;
        for (int iTry = 0; iFolder < 0 && errno == ENOENT && iTry < (bCreate ? DELETED_KEY_TRIES : 1); ++iTry)
        {
            iFolder = OpenKey(eTree, TextOf(szKey), bCreate);
        }
        return NewKey(eTree, std::string(TextOf(szKey)), iFolder);
    }

    void RegistryCloseKey(RegistryKey_t hKey)
    {
        if (hKey)
        {
            hKey->Folder.Reset(-1);
            delete hKey;
        }
    }

    bool RegistryRead(
        RegistryKey_t hKey, char const * szName, RegistryType_e & eType, void * pBuffer, std::size_t & nSize)
    {
        return ReadFrom(FolderOf(hKey), szName, eType, pBuffer, nSize);
    }

    bool RegistryWrite(
        RegistryKey_t hKey, char const * szName, RegistryType_e eType, void const * pData, std::size_t nSize)
    {
        std::string sFile;
        return IsStorable(szName, nSize, sFile)
               && WriteTo(FolderOf(hKey), sFile.c_str(),
                   { eType, TextOf(szName), { static_cast<char const *>(pData), nSize } });
    }

    bool RegistryQuery(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, std::size_t & nSize)
    {
        RecordBytes_t aBytes;
        Record_t Record;
        if (!Load(FolderOf(hKey), szName, aBytes, Record))
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
        if (!ValueNameOnDisk(TextOf(szName), sFile))
        {
            return false;
        }
        Change_c Change;
        KeyLock_c const Key(Change, FolderOf(hKey));
        return Key.IsHeld() && unlinkat(Key.Get(), sFile.c_str(), 0) == 0;
    }

    bool RegistryRenameValue(RegistryKey_t hKey, char const * szOldName, char const * szNewName)
    {
        std::string sOld, sNew;
        if (!ValueNameOnDisk(TextOf(szOldName), sOld) || !ValueNameOnDisk(TextOf(szNewName), sNew))
        {
            return false;
        }
        Change_c Change;
        KeyLock_c const Key(Change, FolderOf(hKey));
        RecordBytes_t aBytes, aOther;
        Record_t Record, Other;
        if (!Key.IsHeld() || LoadRecord(Key.Get(), sNew.c_str(), aOther, Other)
            || !LoadRecord(Key.Get(), sOld.c_str(), aBytes, Record)
            || !Key.Store(sNew.c_str(), { Record.eType, TextOf(szNewName), Record.sData }))
        {
            return false;
        }
        bool const bGone = unlinkat(Key.Get(), sOld.c_str(), 0) == 0;
        if (!bGone)
        {
            unlinkat(Key.Get(), sNew.c_str(), 0);
        }
        return bGone;
    }

    bool RegistryEnumKey(RegistryKey_t hKey, std::size_t iIndex, char * szName, std::size_t nSize)
    {
        int const iFolder = FolderOf(hKey);
        if (iFolder < 0)
        {
            return false;
        }
        auto const & dNames = hKey->Listing.Read(iFolder);
        if (iIndex >= dNames.size() || dNames[iIndex].size() >= nSize)
        {
            return false;
        }
        std::string const sSpelling = SpellingOf(iFolder, dNames[iIndex]);
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
        FileFacts_t Facts;
        int const iFolder = FolderOf(hKey);
        if (iFolder < 0 || !FactsAt(iFolder, "", AT_EMPTY_PATH, Facts))
        {
            return false;
        }
        KeyContents_s const Contents = ReadKeyContents(iFolder);
        Info.tLastWrite = Facts.tLastWrite;
        Info.nSubKeys = Contents.dSubKeys.size();
        for (std::string const & sName : Contents.dSubKeys)
        {
            Info.nMaxSubKeyLength = std::max(Info.nMaxSubKeyLength, sName.size());
        }
        for (std::string const & sFile : Contents.dValues)
        {
            RecordBytes_t aBytes;
            Record_t Record;
            if (LoadRecord(iFolder, sFile.c_str(), aBytes, Record))
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
