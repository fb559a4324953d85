#include "platform/common/storedisk.h"

#include "platform/clock.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/facts.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/openfile.h"
#include "platform/linux/userrecord.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/file.h>

namespace plat
{
    namespace
    {
        static_assert(FILE_NAME_LIMIT == NAME_MAX && STORE_PATH_SIZE == PATH_MAX);

        int NumberOf(StoreHandle_t hStore)
        {
            return static_cast<int>(hStore);
        }

        StoreHandle_t OpenFolderAt(int iParent, char const * szName, int iLinks)
        {
            return StoreHandle_t{ openat(iParent, szName, O_RDONLY | O_DIRECTORY | O_CLOEXEC | iLinks) };
        }

        mode_t FolderMode(StoreRights_e eRights)
        {
            return eRights == StoreRights_e::Readers ? 0755 : 0700;
        }

        mode_t FileMode(int iFolder, StoreRights_e eRights)
        {
            struct stat Stat;
            bool const bAsFolder = eRights == StoreRights_e::AsFolder && fstat(iFolder, &Stat) == 0;
            return PRIVATE_FILE_MODE | (bAsFolder ? Stat.st_mode & (S_IRGRP | S_IROTH) : 0);
        }

        bool IsFolderEntry(int iFolder, dirent64 const & Entry)
        {
            struct stat Stat;
            return Entry.d_type == DT_DIR
                   || (Entry.d_type == DT_UNKNOWN && fstatat(iFolder, Entry.d_name, &Stat, AT_SYMLINK_NOFOLLOW) == 0
                       && S_ISDIR(Stat.st_mode));
        }
    }

    void StoreClose(StoreHandle_t hStore)
    {
        Descriptor_c const Closed(NumberOf(hStore));
    }

    FileIdentity_t StoreIdentity(StoreHandle_t hStore)
    {
        return IdentityOf(NumberOf(hStore));
    }

    bool StoreGetMachinePath(char const * szName, char (&szPath)[STORE_PATH_SIZE])
    {
        int const nPath = std::snprintf(szPath, sizeof szPath, "/etc/zqcore/%s", szName);
        errno = ENAMETOOLONG;
        return nPath > 0 && nPath < static_cast<int>(sizeof szPath);
    }

    // Uses the home folder that the system has on record, because the user who starts the process controls the
    // environment.
    bool StoreGetUserPath(char const * szName, char (&szPath)[STORE_PATH_SIZE])
    {
        UserRecord_c const User;
        if (User.Get() == nullptr)
        {
            return false;
        }
        int const nPath = std::snprintf(szPath, sizeof szPath, "%s/.config/zqcore/%s", User.Get()->pw_dir, szName);
        errno = ENAMETOOLONG;
        return nPath > 0 && nPath < static_cast<int>(sizeof szPath);
    }

    void StoreMakePath(char * szPath, StoreRights_e eRights)
    {
        for (char * pEnd = szPath; pEnd != nullptr;)
        {
            pEnd = std::strchr(pEnd + 1, '/');
            if (pEnd != nullptr)
            {
                *pEnd = 0;
            }
            mkdir(szPath, FolderMode(eRights));
            if (pEnd != nullptr)
            {
                *pEnd = '/';
            }
        }
    }

    StoreHandle_t StoreOpenPath(char const * szPath)
    {
        return OpenFolderAt(AT_FDCWD, szPath, 0);
    }

    StoreHandle_t StoreOpenFolder(StoreHandle_t hParent, char const * szName)
    {
        return OpenFolderAt(NumberOf(hParent), szName, O_NOFOLLOW);
    }

    StoreHandle_t StoreReopen(StoreHandle_t hFolder)
    {
        return OpenFolderAt(NumberOf(hFolder), ".", O_NOFOLLOW);
    }

    bool StoreMakeFolder(StoreHandle_t hParent, char const * szName, StoreRights_e eRights)
    {
        return mkdirat(NumberOf(hParent), szName, FolderMode(eRights)) == 0;
    }

    bool StoreDeleteFolder(StoreHandle_t hParent, char const * szName)
    {
        return unlinkat(NumberOf(hParent), szName, AT_REMOVEDIR) == 0;
    }

    bool StoreDeleteFile(StoreHandle_t hFolder, char const * szName)
    {
        return unlinkat(NumberOf(hFolder), szName, 0) == 0;
    }

    bool StoreIsThere(StoreHandle_t hFolder, char const * szName)
    {
        return faccessat(NumberOf(hFolder), szName, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    }

    bool StoreMayDelete(StoreHandle_t hFolder)
    {
        return faccessat(NumberOf(hFolder), ".", W_OK | X_OK, AT_EACCESS) == 0;
    }

    bool StoreList(StoreHandle_t hFolder, StoreEntry_t fnEntry, void * pContext)
    {
        int const iFolder = NumberOf(hFolder);
        lseek(iFolder, 0, SEEK_SET);
        FolderReader_c Reader(iFolder);
        while (dirent64 const * pEntry = Reader.Next())
        {
            fnEntry(pEntry->d_name, IsFolderEntry(iFolder, *pEntry), pContext);
        }
        return !Reader.IsBroken();
    }

    bool StoreReadFile(StoreHandle_t hFolder, char const * szName, std::size_t nMost, std::vector<char> & dBytes)
    {
        Descriptor_c const File(openat(NumberOf(hFolder), szName, O_RDONLY | UNTRUSTED));
        struct stat Stat;
        if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0)
        {
            return false;
        }
        errno = EBADMSG;
        if (!S_ISREG(Stat.st_mode) || Stat.st_size > static_cast<off_t>(nMost))
        {
            return false;
        }
        dBytes.resize(static_cast<std::size_t>(Stat.st_size));
        return ReadFully(File.Get(), dBytes.data(), dBytes.size()) == dBytes.size();
    }

    bool StoreWriteFile(StoreHandle_t hFolder, char const * szBusy, char const * szName,
        std::vector<char> const & dBytes, StoreRights_e eRights)
    {
        int const iFolder = NumberOf(hFolder);
        Descriptor_c File(CreateOrReplace(iFolder, szBusy, FileMode(iFolder, eRights)));
        if (!File.IsOpen())
        {
            return false;
        }
        bool const bStored = WriteFully(File.Get(), dBytes.data(), dBytes.size()) && File.Close()
                             && renameat(iFolder, szBusy, iFolder, szName) == 0;
        if (!bStored)
        {
            int const iError = errno;
            unlinkat(iFolder, szBusy, 0);   // what was written would keep a full disk full
            errno = iError;
        }
        return bStored;
    }

    StoreLock_e StoreTryLock(StoreHandle_t hFolder)
    {
        if (flock(NumberOf(hFolder), LOCK_EX | LOCK_NB) == 0)
        {
            return StoreLock_e::Locked;
        }
        return errno == EWOULDBLOCK || errno == EINTR ? StoreLock_e::Held : StoreLock_e::Impossible;
    }

    void StoreUnlock(StoreHandle_t hFolder)
    {
        int const iError = errno;
        flock(NumberOf(hFolder), LOCK_UN);
        errno = iError;
    }

    StoreHandle_t StoreOpenLock(StoreHandle_t hFolder, char const * szName)
    {
        Descriptor_c Lock(
            MoveAboveStandard(openat(NumberOf(hFolder), szName, O_RDWR | O_CREAT | UNTRUSTED, PRIVATE_FILE_MODE)));
        struct flock Whole = {};
        Whole.l_type = F_WRLCK;
        Whole.l_whence = SEEK_SET;
        bool const bLocked = Lock.IsOpen() && IsRegular(Lock.Get()) && fcntl(Lock.Get(), F_SETLK, &Whole) == 0;
        return bLocked ? StoreHandle_t{ Lock.Release() } : STORE_NONE;
    }

    StoreStamp_t StoreStamp(StoreHandle_t hFolder)
    {
        struct stat Stat;
        if (fstat(NumberOf(hFolder), &Stat) != 0)
        {
            return {};
        }
        return { static_cast<std::int64_t>(Stat.st_ctim.tv_sec) * NANOSECONDS_OF_SECOND + Stat.st_ctim.tv_nsec,
            Stat.st_nlink };
    }

    bool StoreReadLastWrite(StoreHandle_t hFolder, FileTime_t & tLastWrite)
    {
        FileFacts_t Facts;
        bool const bKnown = ReadFactsAt(NumberOf(hFolder), "", AT_EMPTY_PATH, Facts);
        tLastWrite = Facts.tLastWrite;
        return bKnown;
    }

    void StoreMakeUniqueName(char cMark, char (&szName)[STORE_UNIQUE_NAME_SIZE])
    {
        static constinit std::atomic<unsigned> s_nNames{ 0 };
        timespec Now;
        clock_gettime(CLOCK_REALTIME, &Now);
        std::snprintf(szName, sizeof szName, "%c%d.%u.%llx", cMark, static_cast<int>(getpid()), ++s_nNames,
            static_cast<unsigned long long>(Now.tv_sec) * NANOSECONDS_OF_SECOND
                + static_cast<unsigned long>(Now.tv_nsec));
    }
}
