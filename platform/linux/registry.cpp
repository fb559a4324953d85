// The store: a key is a folder, a value a file in it.
//
// Names on disk are folded to ASCII lower case; a byte outside [a-z0-9_ .-], and a "." in front, is written as %XX. In
// the folder of a key stand the folders of its subkeys under their names, each value behind "=", the record "@key" with
// the key's own spelling, and behind "~" what a writer is busy with. None of the three marks is left unescaped in a
// name. A record is written under "~" and renamed, so a name never shows half of one. A writer keeps its file locked;
// an unlocked one was left by a writer that died, and the next writer to that key deletes it.

#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64

#include "platform/registry.h"

#include "platform/linux/descriptor.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/folding.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pwd.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <vector>

namespace plat
{
    namespace
    {
        constexpr std::size_t VALUE_LIMIT = 16 * 1024 * 1024; // bytes of a value; more is refused
        constexpr char KEY_RECORD[] = "@key";
        constexpr char VALUE_MARK[] = "=";
        constexpr char BUSY_MARK = '~';

        // A record: "ZQRV", then as 32-bit words, lowest byte first, the type, the length of the name, the length of
        // the data and the check sum of everything but itself; then the name as the writer spelled it, and the data.
        constexpr char MAGIC[] = { 'Z', 'Q', 'R', 'V' };
        constexpr std::size_t TYPE_AT = 4;
        constexpr std::size_t NAME_SIZE_AT = 8;
        constexpr std::size_t DATA_SIZE_AT = 12;
        constexpr std::size_t CHECK_AT = 16;
        constexpr std::size_t HEADER_SIZE = 20;

        using Bytes_t = std::vector<char>;

        struct Record_t
        {
            RegistryType_e eType = RegistryType_e::None;
            std::string_view sName;
            std::string_view sData;
        };

        std::uint32_t GetWord(char const * pBytes)
        {
            std::uint32_t dwWord = 0;
            for (int iByte = 3; iByte >= 0; --iByte)
            {
                dwWord = (dwWord << 8) | static_cast<unsigned char>(pBytes[iByte]);
            }
            return dwWord;
        }

        void PutWord(char * pBytes, std::size_t nWord)
        {
            for (int iByte = 0; iByte < 4; ++iByte)
            {
                pBytes[iByte] = static_cast<char>(nWord >> (8 * iByte));
            }
        }

        // FNV-1a of 32 bits over all of a record but the check sum.
        std::uint32_t CheckSum(Bytes_t const & aBytes)
        {
            std::uint32_t dwSum = 0x811C9DC5u;
            for (std::size_t iByte = 0; iByte < aBytes.size(); ++iByte)
            {
                if (iByte < CHECK_AT || iByte >= HEADER_SIZE)
                {
                    dwSum = (dwSum ^ static_cast<unsigned char>(aBytes[iByte])) * 0x01000193u;
                }
            }
            return dwSum;
        }

        Bytes_t PackRecord(Record_t const & Record)
        {
            Bytes_t aBytes(HEADER_SIZE);
            std::memcpy(aBytes.data(), MAGIC, sizeof(MAGIC));
            PutWord(aBytes.data() + TYPE_AT, static_cast<std::uint32_t>(Record.eType));
            PutWord(aBytes.data() + NAME_SIZE_AT, Record.sName.size());
            PutWord(aBytes.data() + DATA_SIZE_AT, Record.sData.size());
            aBytes.insert(aBytes.end(), Record.sName.begin(), Record.sName.end());
            aBytes.insert(aBytes.end(), Record.sData.begin(), Record.sData.end());
            PutWord(aBytes.data() + CHECK_AT, CheckSum(aBytes));
            return aBytes;
        }

        // The record points into the bytes. False if they are damaged.
        bool UnpackRecord(Bytes_t const & aBytes, Record_t & Record)
        {
            if (aBytes.size() < HEADER_SIZE || std::memcmp(aBytes.data(), MAGIC, sizeof(MAGIC)) != 0)
            {
                return false;
            }
            std::uint64_t const nName = GetWord(aBytes.data() + NAME_SIZE_AT);
            std::uint64_t const nData = GetWord(aBytes.data() + DATA_SIZE_AT);
            if (nName + nData != aBytes.size() - HEADER_SIZE || GetWord(aBytes.data() + CHECK_AT) != CheckSum(aBytes))
            {
                return false;
            }
            std::string_view const sBody(aBytes.data() + HEADER_SIZE, aBytes.size() - HEADER_SIZE);
            Record.eType = static_cast<RegistryType_e>(GetWord(aBytes.data() + TYPE_AT));
            Record.sName = sBody.substr(0, static_cast<std::size_t>(nName));
            Record.sData = sBody.substr(static_cast<std::size_t>(nName));
            return true;
        }

        // Reads a file of records; false if it is none, or damaged.
        bool LoadRecord(int iFolder, char const * szFile, Bytes_t & aBytes, Record_t & Record)
        {
            Descriptor_c const File(openat(iFolder, szFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
            struct stat Stat;
            if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0)
            {
                return false;
            }
            errno = EBADMSG;
            if (!S_ISREG(Stat.st_mode) || Stat.st_size > static_cast<off_t>(HEADER_SIZE + NAME_MAX + VALUE_LIMIT))
            {
                return false;
            }
            aBytes.resize(static_cast<std::size_t>(Stat.st_size));
            return ReadFully(File.Get(), aBytes.data(), aBytes.size()) == aBytes.size() && UnpackRecord(aBytes, Record);
        }

        // Deletes what dead writers left in the folder of a key.
        void SweepBusyFiles(int iFolder)
        {
            FolderReader_c Reader(iFolder);
            while (dirent64 const * pEntry = Reader.Next())
            {
                if (pEntry->d_name[0] == BUSY_MARK)
                {
                    Descriptor_c const File(
                        openat(iFolder, pEntry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
                    if (File.IsOpen() && flock(File.Get(), LOCK_EX | LOCK_NB) == 0)
                    {
                        unlinkat(iFolder, pEntry->d_name, 0);
                    }
                }
            }
        }

        // A name that no other writer, living or dead, has used.
        void MakeBusyName(char (&szName)[64])
        {
            static std::atomic<unsigned> s_nNames{ 0 };
            timespec Now;
            clock_gettime(CLOCK_REALTIME, &Now);
            std::snprintf(szName, sizeof(szName), "%c%d.%u.%llx", BUSY_MARK, static_cast<int>(getpid()), ++s_nNames,
                static_cast<unsigned long long>(Now.tv_sec) * 1000000000u + static_cast<unsigned long>(Now.tv_nsec));
        }

        // Puts a record in the place of szFile. Between making and locking the file another process may take it for
        // a dead writer's and delete it; it is then made anew.
        bool StoreRecord(int iFolder, char const * szFile, Record_t const & Record)
        {
            constexpr int TRIES = 8;
            Bytes_t const aBytes = PackRecord(Record);
            for (int iTry = 0; iTry < TRIES; ++iTry)
            {
                char szBusy[64];
                MakeBusyName(szBusy);
                Descriptor_c const File(openat(iFolder, szBusy, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
                if (!File.IsOpen())
                {
                    return false;
                }
                flock(File.Get(), LOCK_EX | LOCK_NB);
                if (WriteFully(File.Get(), aBytes.data(), aBytes.size())
                    && renameat(iFolder, szBusy, iFolder, szFile) == 0)
                {
                    return true;
                }
                int const iError = errno;
                unlinkat(iFolder, szBusy, 0);
                errno = iError;
                if (iError != ENOENT)
                {
                    return false;
                }
            }
            return false;
        }

        // The name of a key or value on disk, behind a mark. False if it is too long for a file's name.
        bool NameOnDisk(std::string_view sMark, std::string_view sName, std::string & sFile)
        {
            constexpr std::string_view PLAIN = "abcdefghijklmnopqrstuvwxyz0123456789_ .-";
            constexpr char DIGITS[] = "0123456789ABCDEF";
            sFile = sMark;
            for (std::size_t iByte = 0; iByte < sName.size(); ++iByte)
            {
                char const cByte = Folded(sName[iByte]);
                if (PLAIN.find(cByte) != std::string_view::npos && (cByte != '.' || iByte > 0))
                {
                    sFile += cByte;
                }
                else
                {
                    sFile += { '%', DIGITS[static_cast<unsigned char>(cByte) >> 4], DIGITS[cByte & 15] };
                }
            }
            errno = ENAMETOOLONG;
            return sFile.size() <= NAME_MAX;
        }

        // The folders of the two trees; empty for the default.
        char g_szFolders[2][PATH_MAX];

        bool TreeFolder(RegistryTree_e eTree, char (&szFolder)[PATH_MAX])
        {
            char const * const szSet = g_szFolders[static_cast<int>(eTree)];
            if (szSet[0] != 0 || eTree == RegistryTree_e::Machine)
            {
                std::strcpy(szFolder, szSet[0] != 0 ? szSet : "/etc/zqcore/registry");
                return true;
            }
            char szBuffer[4096];
            passwd Entry;
            passwd * pFound = nullptr;
            int const iError = getpwuid_r(geteuid(), &Entry, szBuffer, sizeof(szBuffer), &pFound);
            if (iError != 0 || pFound == nullptr)
            {
                errno = iError != 0 ? iError : ENOENT;
                return false;
            }
            int const nFolder = std::snprintf(szFolder, PATH_MAX, "%s/.config/zqcore/registry", pFound->pw_dir);
            errno = ENAMETOOLONG;
            return nFolder > 0 && nFolder < PATH_MAX;
        }

        int OpenFolder(int iParent, char const * szName)
        {
            return openat(iParent, szName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        }

        // Makes each folder of the path that is not there yet.
        void MakeFolders(char * szPath, mode_t iMode)
        {
            for (char * szEnd = szPath; szEnd != nullptr;)
            {
                szEnd = std::strchr(szEnd + 1, '/');
                if (szEnd != nullptr)
                {
                    *szEnd = 0;
                }
                mkdir(szPath, iMode);
                if (szEnd != nullptr)
                {
                    *szEnd = '/';
                }
            }
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

        // Opens the subkey of one name. A key made keeps the spelling that made it.
        int OpenSubKey(int iParent, std::string_view sName, bool bCreate, mode_t iMode)
        {
            std::string sFile;
            if (!NameOnDisk("", sName, sFile))
            {
                return -1;
            }
            int iKey = OpenFolder(iParent, sFile.c_str());
            if (iKey < 0 && errno == ENOENT && bCreate)
            {
                bool const bMade = mkdirat(iParent, sFile.c_str(), iMode) == 0;
                iKey = bMade || errno == EEXIST ? OpenFolder(iParent, sFile.c_str()) : -1;
                if (bMade && iKey >= 0)
                {
                    StoreRecord(iKey, KEY_RECORD, { RegistryType_e::None, sName, {} });
                }
            }
            return iKey;
        }

        // Opens a key's folder by its path; an empty path is the tree itself, empty names in it are passed over.
        int OpenKey(RegistryTree_e eTree, char const * szKey, bool bCreate)
        {
            Descriptor_c Key(OpenTree(eTree, bCreate));
            std::string_view sRest = szKey != nullptr ? szKey : "";
            while (Key.IsOpen() && !sRest.empty())
            {
                std::string_view const sName = sRest.substr(0, sRest.find('\\'));
                sRest.remove_prefix(sName.size() < sRest.size() ? sName.size() + 1 : sName.size());
                if (!sName.empty())
                {
                    Key.Reset(OpenSubKey(Key.Get(), sName, bCreate, FolderMode(eTree)));
                }
            }
            return Key.Release();
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
        std::size_t const nRoom = nSize;
        nSize = 0;
        Descriptor_c const Key(OpenKey(eTree, szKey, false));
        std::string sFile;
        Bytes_t aBytes;
        Record_t Record;
        if (!Key.IsOpen() || !NameOnDisk(VALUE_MARK, szName != nullptr ? szName : "", sFile)
            || !LoadRecord(Key.Get(), sFile.c_str(), aBytes, Record))
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

    bool RegistryWrite(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e eType,
        void const * pData, std::size_t nSize)
    {
        std::string_view const sName = szName != nullptr ? szName : "";
        std::string sFile;
        if (!NameOnDisk(VALUE_MARK, sName, sFile))
        {
            return false;
        }
        if (nSize > VALUE_LIMIT)
        {
            errno = EFBIG;
            return false;
        }
        Descriptor_c const Key(OpenKey(eTree, szKey, true));
        if (!Key.IsOpen())
        {
            return false;
        }
        SweepBusyFiles(Key.Get());
        return StoreRecord(Key.Get(), sFile.c_str(), { eType, sName, { static_cast<char const *>(pData), nSize } });
    }

    bool RegistryKeyExists(RegistryTree_e eTree, char const * szKey)
    {
        return Descriptor_c(OpenKey(eTree, szKey, false)).IsOpen();
    }
}
