// The store: a key is a folder, a value a file in it.
//
// Names on disk are folded to ASCII lower case; a byte outside [a-z0-9_ .-], and a "." in front, is written as %XX. In
// the folder of a key stand the folders of its subkeys under their names, each value behind "=", the record "@key" with
// the key's own spelling, and behind "~" what a writer is busy with. None of the three marks is left unescaped in a
// name. A record is written under "~" and renamed, so a name never shows half of one. A writer keeps its file locked;
// an unlocked one was left by a writer that died, and the next writer to that key deletes it. The folder itself is
// locked, shared by whoever writes and makes subkeys, alone by whoever renames a value or deletes the key.

#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64

#include "platform/registry.h"

#include "platform/linux/descriptor.h"
#include "platform/linux/facts.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/folding.h"
#include "platform/linux/registryrecord.h"
#include "platform/linux/userfolder.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/file.h>

namespace plat
{
    struct RegistryKey_s
    {
        RegistryTree_e eTree;
        std::string sPath;   // from the tree
        Descriptor_c Folder;
    };

    namespace
    {
        constexpr int LOCK_TRIES = 5000;       // of a millisecond
        constexpr int DELETED_KEY_TRIES = 8;   // for a key that others delete while it is being written to

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

        // Holds the lock of a key's folder for a scope. A file system without such locks is used without.
        class KeyLock_c
        {
        public:
            KeyLock_c(int iFolder, int iKind)
                : m_iFolder(iFolder)
            {
                for (int iTry = 0; !m_bHeld && iTry < LOCK_TRIES; ++iTry)
                {
                    m_bHeld = flock(iFolder, iKind | LOCK_NB) == 0 || (errno != EWOULDBLOCK && errno != EINTR);
                    if (!m_bHeld)
                    {
                        timespec const Millisecond = { 0, 1000000 };
                        nanosleep(&Millisecond, nullptr);
                    }
                }
            }
            ~KeyLock_c()
            {
                int const iError = errno;
                flock(m_iFolder, LOCK_UN);
                errno = iError;
            }
            KeyLock_c(KeyLock_c const &) = delete;
            KeyLock_c & operator=(KeyLock_c const &) = delete;

            bool IsHeld() const { return m_bHeld; }

        private:
            int m_iFolder;
            bool m_bHeld = false;
        };

        // Makes the subkey's folder, which keeps the spelling that made it; -1 on failure.
        int MakeSubKey(int iParent, std::string_view sName, char const * szFile, mode_t iMode)
        {
            KeyLock_c const Lock(iParent, LOCK_SH);
            if (!Lock.IsHeld())
            {
                return -1;
            }
            bool const bMade = mkdirat(iParent, szFile, iMode) == 0;
            int const iKey = bMade || errno == EEXIST ? OpenFolder(iParent, szFile) : -1;
            if (bMade && iKey >= 0)
            {
                StoreRecord(iKey, KEY_RECORD, { RegistryType_e::None, sName, {} });
            }
            return iKey;
        }

        int OpenSubKey(int iParent, std::string_view sName, bool bCreate, mode_t iMode)
        {
            std::string sFile;
            if (!KeyNameOnDisk(sName, sFile))
            {
                return -1;
            }
            int const iKey = OpenFolder(iParent, sFile.c_str());
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

        RegistryKey_t NewKey(RegistryTree_e eTree, std::string sPath, int iFolder, std::uint32_t dwAccess)
        {
            Descriptor_c Folder(iFolder);
            bool const bWrite = (dwAccess & REGISTRY_WRITE_ACCESS) != 0;
            if (!Folder.IsOpen() || (bWrite && faccessat(iFolder, ".", W_OK, AT_EACCESS) != 0))
            {
                return nullptr;
            }
            return new RegistryKey_s{ eTree, std::move(sPath), Descriptor_c(Folder.Release()) };
        }

        bool ReadFrom(int iFolder, char const * szName, RegistryType_e & eType, void * pBuffer, std::size_t & nSize)
        {
            std::size_t const nRoom = nSize;
            nSize = 0;
            std::string sFile;
            RecordBytes_t aBytes;
            Record_t Record;
            if (iFolder < 0 || !ValueNameOnDisk(TextOf(szName), sFile)
                || !LoadRecord(iFolder, sFile.c_str(), aBytes, Record))
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
            KeyLock_c const Lock(iFolder, LOCK_SH);
            if (!Lock.IsHeld())
            {
                return false;
            }
            SweepBusyFiles(iFolder);
            return StoreRecord(iFolder, szFile, Record);
        }

        // What stands in the folder of a key.
        struct Contents_s
        {
            std::vector<std::string> dSubKeys;   // folded names
            std::vector<std::string> dValues;    // files
            std::vector<std::string> dOthers;    // files that go with the key: its record, and those of writers
            bool bForeign = false;               // something that is none of the store's
            bool bRead = false;
        };

        bool IsFolderEntry(int iFolder, dirent64 const & Entry)
        {
            struct stat Stat;
            return Entry.d_type == DT_DIR
                   || (Entry.d_type == DT_UNKNOWN && fstatat(iFolder, Entry.d_name, &Stat, AT_SYMLINK_NOFOLLOW) == 0
                       && S_ISDIR(Stat.st_mode));
        }

        Contents_s ReadContents(int iFolder)
        {
            Contents_s Contents;
            // A descriptor of its own has a reading position of its own.
            Descriptor_c const Folder(OpenFolder(iFolder, "."));
            FolderReader_c Reader(Folder.Get());
            std::string sName;
            while (dirent64 const * pEntry = Folder.IsOpen() ? Reader.Next() : nullptr)
            {
                if (IsFolderEntry(Folder.Get(), *pEntry))
                {
                    bool const bKey = KeyNameFromDisk(pEntry->d_name, sName);
                    bKey ? Contents.dSubKeys.push_back(sName) : void(Contents.bForeign = true);
                    continue;
                }
                switch (pEntry->d_name[0])
                {
                case VALUE_MARK:
                    Contents.dValues.push_back(pEntry->d_name);
                    break;
                case KEY_MARK:
                case BUSY_MARK:
                    Contents.dOthers.push_back(pEntry->d_name);
                    break;
                default:
                    Contents.bForeign = true;
                }
            }
            Contents.bRead = Folder.IsOpen() && !Reader.IsBroken();
            return Contents;
        }

        // The name of a subkey as it was spelled when it was made, if that is still known.
        std::string SpellingOf(int iFolder, std::string const & sFolded)
        {
            std::string sFile;
            KeyNameOnDisk(sFolded, sFile);
            Descriptor_c const SubKey(OpenFolder(iFolder, sFile.c_str()));
            RecordBytes_t aBytes;
            Record_t Record;
            bool const bKnown = SubKey.IsOpen() && LoadRecord(SubKey.Get(), KEY_RECORD, aBytes, Record)
                                && std::equal(Record.sName.begin(), Record.sName.end(), sFolded.begin(), sFolded.end(),
                                    [](char cSpelled, char cFolded) { return Folded(cSpelled) == cFolded; });
            return bKnown ? std::string(Record.sName) : sFolded;
        }

        // Empties the folder of a key that holds nothing but what is the store's, without subkeys.
        bool EmptyKey(int iFolder)
        {
            Contents_s const Contents = ReadContents(iFolder);
            errno = ENOTEMPTY;
            bool bEmpty = Contents.bRead && !Contents.bForeign && Contents.dSubKeys.empty();
            for (std::vector<std::string> const * pFiles : { &Contents.dValues, &Contents.dOthers })
            {
                for (std::size_t i = 0; bEmpty && i < pFiles->size(); ++i)
                {
                    bEmpty = unlinkat(iFolder, (*pFiles)[i].c_str(), 0) == 0;
                }
            }
            return bEmpty;
        }

        bool MayDeleteFrom(int iFolder)
        {
            return faccessat(iFolder, ".", W_OK | X_OK, AT_EACCESS) == 0;
        }

        bool IsSameFolder(int iFirst, int iSecond)
        {
            struct stat First, Second;
            return fstat(iFirst, &First) == 0 && fstat(iSecond, &Second) == 0 && First.st_ino == Second.st_ino
                   && First.st_dev == Second.st_dev;
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

    RegistryKey_t RegistryOpenKey(RegistryTree_e eTree, char const * szKey, std::uint32_t dwAccess, bool bCreate)
    {
        int iFolder = -1;
        errno = ENOENT;
        for (int iTry = 0; iFolder < 0 && errno == ENOENT && iTry < (bCreate ? DELETED_KEY_TRIES : 1); ++iTry)
        {
            iFolder = OpenKey(eTree, TextOf(szKey), bCreate);
        }
        return NewKey(eTree, std::string(TextOf(szKey)), iFolder, dwAccess);
    }

    RegistryKey_t RegistryOpenSubKey(RegistryKey_t hKey, char const * szKey, std::uint32_t dwAccess)
    {
        if (!hKey)
        {
            return nullptr;
        }
        int const iFolder = OpenFrom(OpenFolder(hKey->Folder.Get(), "."), TextOf(szKey), false, 0);
        return NewKey(hKey->eTree, hKey->sPath + '\\' + std::string(TextOf(szKey)), iFolder, dwAccess);
    }

    void RegistryCloseKey(RegistryKey_t hKey)
    {
        delete hKey;
    }

    bool RegistryRead(
        RegistryKey_t hKey, char const * szName, RegistryType_e & eType, void * pBuffer, std::size_t & nSize)
    {
        return ReadFrom(hKey ? hKey->Folder.Get() : -1, szName, eType, pBuffer, nSize);
    }

    bool RegistryWrite(
        RegistryKey_t hKey, char const * szName, RegistryType_e eType, void const * pData, std::size_t nSize)
    {
        std::string sFile;
        return hKey && IsStorable(szName, nSize, sFile)
               && WriteTo(hKey->Folder.Get(), sFile.c_str(),
                   { eType, TextOf(szName), { static_cast<char const *>(pData), nSize } });
    }

    bool RegistryQuery(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, std::size_t & nSize)
    {
        std::string sFile;
        RecordBytes_t aBytes;
        Record_t Record;
        if (!hKey || !ValueNameOnDisk(TextOf(szName), sFile)
            || !LoadRecord(hKey->Folder.Get(), sFile.c_str(), aBytes, Record))
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
        if (!hKey || !ValueNameOnDisk(TextOf(szName), sFile))
        {
            return false;
        }
        KeyLock_c const Lock(hKey->Folder.Get(), LOCK_SH);
        return Lock.IsHeld() && unlinkat(hKey->Folder.Get(), sFile.c_str(), 0) == 0;
    }

    bool RegistryRenameValue(RegistryKey_t hKey, char const * szOldName, char const * szNewName)
    {
        std::string sOld, sNew;
        if (!hKey || !ValueNameOnDisk(TextOf(szOldName), sOld) || !ValueNameOnDisk(TextOf(szNewName), sNew))
        {
            return false;
        }
        int const iFolder = hKey->Folder.Get();
        KeyLock_c const Lock(iFolder, LOCK_EX);
        RecordBytes_t aBytes, aOther;
        Record_t Record, Other;
        if (!Lock.IsHeld() || LoadRecord(iFolder, sNew.c_str(), aOther, Other)
            || !LoadRecord(iFolder, sOld.c_str(), aBytes, Record)
            || !StoreRecord(iFolder, sNew.c_str(), { Record.eType, TextOf(szNewName), Record.sData }))
        {
            return false;
        }
        bool const bGone = unlinkat(iFolder, sOld.c_str(), 0) == 0;
        if (!bGone)
        {
            unlinkat(iFolder, sNew.c_str(), 0);
        }
        return bGone;
    }

    bool RegistryEnumKey(RegistryKey_t hKey, std::size_t iIndex, char * szName, std::size_t nSize)
    {
        if (!hKey)
        {
            return false;
        }
        std::vector<std::string> dNames = ReadContents(hKey->Folder.Get()).dSubKeys;
        if (iIndex >= dNames.size())
        {
            return false;
        }
        auto const iName = dNames.begin() + static_cast<std::ptrdiff_t>(iIndex);
        std::nth_element(dNames.begin(), iName, dNames.end());
        if (iName->size() >= nSize)
        {
            return false;
        }
        std::string const sSpelling = SpellingOf(hKey->Folder.Get(), *iName);
        std::memcpy(szName, sSpelling.c_str(), sSpelling.size() + 1);
        return true;
    }

    bool RegistryDeleteKey(RegistryKey_t hKey, char const * szKey)
    {
        if (!hKey)
        {
            return false;
        }
        std::string_view sRest = TextOf(szKey);
        bool const bItself = TakeName(sRest).empty();
        std::string_view sParent, sLast;
        SplitLast(bItself ? std::string_view(hKey->sPath) : TextOf(szKey), sParent, sLast);
        std::string sFile;
        if (sLast.empty() || !KeyNameOnDisk(sLast, sFile))
        {
            return false;
        }
        Descriptor_c const Parent(bItself ? OpenKey(hKey->eTree, sParent, false)
                                          : OpenFrom(OpenFolder(hKey->Folder.Get(), "."), sParent, false, 0));
        Descriptor_c const Key(Parent.IsOpen() ? OpenFolder(Parent.Get(), sFile.c_str()) : -1);
        if (!Key.IsOpen() || (bItself && !IsSameFolder(Key.Get(), hKey->Folder.Get())))
        {
            return false;
        }
        KeyLock_c const Lock(Key.Get(), LOCK_EX);
        return Lock.IsHeld() && MayDeleteFrom(Parent.Get()) && EmptyKey(Key.Get())
               && unlinkat(Parent.Get(), sFile.c_str(), AT_REMOVEDIR) == 0;
    }

    bool RegistryGetKeyInfo(RegistryKey_t hKey, RegistryKeyInfo_t & Info)
    {
        Info = {};
        FileFacts_t Facts;
        if (!hKey || !FactsAt(hKey->Folder.Get(), "", AT_EMPTY_PATH, Facts))
        {
            return false;
        }
        Contents_s const Contents = ReadContents(hKey->Folder.Get());
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
            if (LoadRecord(hKey->Folder.Get(), sFile.c_str(), aBytes, Record))
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
