#include "platform/linux/openfile.h"

#include "platform/linux/facts.h"
#include "platform/linux/spelling.h"

#include <cerrno>
#include <cstring>
#include <sys/file.h>
#include <sys/stat.h>

namespace plat
{
    namespace
    {
        // Opens the folder of a path, with O_PATH or O_RDONLY, and returns the name in it. Requires that the path is
        // shorter than PATH_MAX. On failure Folder is not open.
        char const * OpenFolderOf(char const * szPath, Descriptor_c & Folder, int iAccess = O_PATH)
        {
            int const iFlags = iAccess | O_DIRECTORY | O_CLOEXEC;
            char const * const szSlash = std::strrchr(szPath, '/');
            if (szSlash == nullptr)
            {
                Folder.Reset(open(".", iFlags));
                return szPath;
            }
            char szFolder[PATH_MAX];
            auto const nFolder = static_cast<std::size_t>(szSlash + 1 - szPath);
            std::memcpy(szFolder, szPath, nFolder);
            szFolder[nFolder] = '\0';
            Folder.Reset(open(szFolder, iFlags));
            return szSlash + 1;
        }

        // Returns whether another user may have created the file, or a link to it, so that this user writes to it.
        // If so, errno has the reason. Returns false at once for this user's file with one name. Returns true for any
        // other whose folder can't be examined. The kernel's own check (fs.protected_regular) covers only opens that
        // may create a file.
        bool IsPlanted(char const * szPath, struct stat const & File)
        {
            if (File.st_uid == geteuid() && File.st_nlink == 1)
            {
                return false;
            }
            Descriptor_c Folder;
            struct stat Stat;
            OpenFolderOf(szPath, Folder);
            if (!Folder.IsOpen() || fstat(Folder.Get(), &Stat) != 0)
            {
                return true;
            }
            bool const bShared = (Stat.st_mode & S_ISVTX) != 0 && (Stat.st_mode & (S_IWGRP | S_IWOTH)) != 0;
            errno = EACCES;
            return bShared && (File.st_nlink > 1 || File.st_uid != Stat.st_uid);
        }

        // Opens an existing regular file and returns its descriptor. Returns -1 on failure, with ENOENT if there is no
        // file.
        int OpenPresent(DiskPath_c & Path, int iFlags)
        {
            int const iOpenFlags = (iFlags & ~(O_CREAT | O_EXCL | O_TRUNC)) | UNTRUSTED;
            Descriptor_c File(
                Path.Try([iOpenFlags](char const * szTry) { return MoveAboveStandard(open(szTry, iOpenFlags)); }));
            struct stat Stat;
            if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0)
            {
                errno = errno == ENXIO ? EINVAL : errno;   // a pipe without a reader, or a socket
                return -1;
            }
            if (!S_ISREG(Stat.st_mode))
            {
                errno = EINVAL;
                return -1;
            }
            bool const bGood =
                !IsPlanted(Path.Get(), Stat) && ((iFlags & O_TRUNC) == 0 || ftruncate(File.Get(), 0) == 0);
            return bGood ? File.Release() : -1;
        }

        // Creates a file in an open folder and returns its descriptor. Requires O_EXCL in iFlags. On failure returns -1
        // and leaves no new file.
        int MakeIn(int iFolder, char const * szName, int iFlags, mode_t iMode)
        {
            int const iLow = openat(iFolder, szName, iFlags, iMode);
            int const iFile = MoveAboveStandard(iLow);
            if (iFile < 0 && iLow >= 0)
            {
                int const iError = errno;
                unlinkat(iFolder, szName, 0);
                errno = iError;
            }
            return iFile;
        }

        // Creates a file whose path names nothing yet and returns its descriptor. Returns -1 on failure.
        int MakeFile(DiskPath_c & Path, int iFlags, mode_t iMode)
        {
            Path.SpellFolder();
            Descriptor_c Folder;
            char const * const szName = OpenFolderOf(Path.Get(), Folder);
            return Folder.IsOpen() ? MakeIn(Folder.Get(), szName, iFlags | O_EXCL | UNTRUSTED, iMode) : -1;
        }
    }

    bool ClaimWriting(int iDescriptor)
    {
        return flock(iDescriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    }

    bool IsRegular(int iDescriptor)
    {
        struct stat Stat;
        if (fstat(iDescriptor, &Stat) != 0)
        {
            return false;
        }
        errno = EINVAL;
        return S_ISREG(Stat.st_mode);
    }

    int ReadStat(DiskPath_c & Path, struct stat & Stat)
    {
        return Path.Try([&Stat](char const * szTry) { return lstat(szTry, &Stat); });
    }

    bool IsNamed(DiskPath_c & Path, struct stat const & File)
    {
        struct stat Named;
        if (ReadStat(Path, Named) != 0)
        {
            return false;
        }
        bool const bNamed = IsOneFile(Named, File);
        errno = bNamed ? errno : ESTALE;
        return bNamed;
    }

    bool IsThere(DiskPath_c & Path)
    {
        struct stat Stat;
        return ReadStat(Path, Stat) == 0;
    }

    bool SyncFully(int iFile)
    {
        int iResult;
        do
        {
            iResult = fsync(iFile);
        }
        while (iResult != 0 && errno == EINTR);
        return iResult == 0;
    }

    FolderSync_c::FolderSync_c(char const * szPath, int iNamed)
        : m_iNamed(iNamed)
    {
        OpenFolderOf(szPath, m_Folder, O_RDONLY);
        m_bUnreadable = !m_Folder.IsOpen() && errno == EACCES;
    }

    bool FolderSync_c::Sync() const
    {
        return m_Folder.IsOpen() ? SyncFully(m_Folder.Get()) || IsUnknownCall(errno) || errno == EROFS
                                 : m_iNamed == NOT_OPEN || SyncFully(m_iNamed);
    }

    FolderLock_c::FolderLock_c(char const * szPath)
    {
        DiskPath_c Path(szPath);
        Path.SpellFolder();
        OpenFolderOf(Path.Get(), m_Folder, O_RDONLY);
        m_bHeld = m_Folder.IsOpen() ? ClaimWriting(m_Folder.Get()) : errno == EACCES;
    }

    FolderLock_c::~FolderLock_c()
    {
        if (m_Folder.IsOpen())
        {
            flock(m_Folder.Get(), LOCK_UN);   // a process that was started meanwhile may have a copy
        }
    }

    int CreateOrReplace(int iFolder, char const * szName, mode_t iMode)
    {
        int const iFile = MakeIn(iFolder, szName, MAKE_NEW, iMode);
        bool const bUnlinked = iFile < 0 && errno == EEXIST && unlinkat(iFolder, szName, 0) == 0;
        return bUnlinked ? MakeIn(iFolder, szName, MAKE_NEW, iMode) : iFile;
    }

    int OpenToWrite(char const * szPath, int iFlags, mode_t iMode)
    {
        constexpr int TRIES = 8;   // for a file that others create and delete meanwhile
        for (int i = 0; i < TRIES; ++i)
        {
            DiskPath_c Path(szPath);
            if ((iFlags & O_EXCL) != 0)
            {
                bool const bThere = IsThere(Path);
                errno = bThere ? EEXIST : errno;
                return bThere || errno != ENOENT ? -1 : MakeFile(Path, iFlags, iMode);
            }
            int const iPresent = OpenPresent(Path, iFlags);
            if (iPresent >= 0 || errno != ENOENT || (iFlags & O_CREAT) == 0)
            {
                return iPresent;
            }
            int const iMade = MakeFile(Path, iFlags, iMode);
            if (iMade >= 0 || errno != EEXIST)
            {
                return iMade;
            }
        }
        return -1;
    }
}
