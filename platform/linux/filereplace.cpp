#include "platform/filereplace.h"

#include "platform/files.h"
#include "platform/fork.h"
#include "platform/linux/facts.h"
#include "platform/linux/forkdrop.h"
#include "platform/linux/openfile.h"
#include "platform/linux/spelling.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/file.h>
#include <sys/stat.h>
#include <type_traits>
#include <utility>

namespace plat
{
    namespace
    {
        constexpr mode_t RIGHTS = 0777;   // bits of a mode that a replacement copies

        // Does for an open file what IsNamed does for its facts. Also returns false, with errno, if they can't be read.
        bool StillNames(DiskPath_c & Path, int iFile)
        {
            struct stat Open;
            return fstat(iFile, &Open) == 0 && IsNamed(Path, Open);
        }

        // Finds the spelling of a file's new name. Returns false if the name exists and bReplace is false, or on
        // failure.
        bool SpellNewName(DiskPath_c & Path, bool bReplace)
        {
            struct stat Stat;
            if (ReadStat(Path, Stat) == 0)
            {
                errno = EEXIST;
                return bReplace;
            }
            if (errno != ENOENT)
            {
                return false;
            }
            Path.SpellFolder();
            return true;
        }

        // Copies the rights of the old file to the new file, which replaces it. If the old file is another user's,
        // copies only rights that the new file has already. On failure the new file keeps its own.
        void CopyRights(int iDescriptor, struct stat const & Old)
        {
            struct stat New;
            if (fstat(iDescriptor, &New) == 0)
            {
                fchmod(iDescriptor, Old.st_mode & (Old.st_uid == New.st_uid ? RIGHTS : New.st_mode & RIGHTS));
            }
        }

        constinit Lock_c g_TakeLock;   // held from the open of a lock's file until ForkDropAdd knows the file
        ForkLock_c const g_TakeForkLock(g_TakeLock);

        // Returns the entry that lies in the bytes of a lock.
        template <std::size_t N>
        ForkDrop_s & DropIn(unsigned char (&dBytes)[N])
        {
            static_assert(sizeof(ForkDrop_s) == N && std::is_trivial_v<ForkDrop_s>);
            return *std::launder(reinterpret_cast<ForkDrop_s *>(dBytes));
        }

        // Closes the file in the child of a fork. The child's copy would keep the lock after the parent is killed.
        void CloseLock(void * pFile)
        {
            FileClose(std::exchange(*static_cast<File_t *>(pFile), nullptr));
        }
    }

    bool FileSync(File_t hFile)
    {
        return SyncFully(DescriptorOf(hFile));
    }

    bool FoldersSync(char const * szFilePath)
    {
        DiskPath_c Path(szFilePath);
        Path.SpellFolder();
        char szFolder[PATH_MAX];
        std::memcpy(szFolder, Path.Get(), std::strlen(Path.Get()) + 1);
        while (char * const pSlash = std::strrchr(szFolder, '/'))   // the innermost folder first
        {
            *pSlash = '\0';
            FolderSync_c const Parent(szFolder, FolderSync_c::NOT_OPEN);
            if (szFolder[0] != '\0' && !(Parent.IsReady() && Parent.Sync()))
            {
                return false;
            }
        }
        return true;
    }

    bool FileReplace(File_t hFile, char const * szFrom, char const * szTo, Rights_e eRights)
    {
        int const iFile = DescriptorOf(hFile);
        DiskPath_c From(szFrom);
        if (!StillNames(From, iFile))
        {
            return false;
        }
        DiskPath_c To(szTo);
        struct stat Stat;
        if (ReadStat(To, Stat) != 0)
        {
            if (errno != ENOENT)
            {
                return false;
            }
            To.SpellFolder();
        }
        else if (!S_ISREG(Stat.st_mode) && !S_ISLNK(Stat.st_mode))
        {
            errno = EINVAL;
            return false;
        }
        else if (S_ISREG(Stat.st_mode) && eRights == Rights_e::Shared)
        {
            CopyRights(iFile, Stat);
        }
        FolderSync_c const Folder(To.Get(), iFile);
        return Folder.IsReady() && rename(From.Get(), To.Get()) == 0 && Folder.Sync();
    }

    bool FileRename(char const * szFrom, char const * szTo, bool bReplace)
    {
        DiskPath_c From(szFrom), To(szTo);
        struct stat Stat;
        if (ReadStat(From, Stat) != 0 || !SpellNewName(To, bReplace))
        {
            return false;
        }
        if (!bReplace && renameat2(AT_FDCWD, From.Get(), AT_FDCWD, To.Get(), RENAME_NOREPLACE) == 0)
        {
            return true;
        }
        // The plain rename serves bReplace, and file systems that can't exclude others who create the name meanwhile.
        return (bReplace || IsUnknownCall(errno)) && rename(From.Get(), To.Get()) == 0;
    }

    bool FileKeepAs(char const * szFrom, char const * szTo)
    {
        DiskPath_c From(szFrom), To(szTo);
        struct stat Stat;
        if (ReadStat(From, Stat) != 0 || !SpellNewName(To, false))
        {
            return false;
        }
        if (!S_ISREG(Stat.st_mode) && !S_ISLNK(Stat.st_mode))
        {
            errno = EINVAL;
            return false;
        }
        bool const bRefused = link(From.Get(), To.Get()) != 0;
        bool const bNoLinks = errno == EPERM || errno == EMLINK || IsUnknownCall(errno);
        return !bRefused || (bNoLinks && FileCopyTo(szFrom, szTo, O_EXCL, Durability_e::Synchronized));
    }

    bool PathIsTaken(char const * szPath)
    {
        DiskPath_c Path(szPath);
        struct stat Stat;
        return ReadStat(Path, Stat) == 0 || errno != ENOENT;
    }

    bool FileIsSame(char const * szPath, char const * szOther)
    {
        DiskPath_c Path(szPath), Other(szOther);
        struct stat First, Second;
        return ReadStat(Path, First) == 0 && ReadStat(Other, Second) == 0 && IsOneFile(First, Second);
    }

    // Between the open and the lock, the holder may delete the file. Then the loop opens or creates another one.
    NameLock_c::Result_e NameLock_c::Take(char const * szPath)
    {
        constexpr int TRIES = 100;
        LockScope_c const Scope(g_TakeLock);
        bool bMade = false;   // whether a pass has made the file
        for (int i = 0; i < TRIES; ++i)
        {
            Descriptor_c File(OpenToWrite(szPath, O_RDWR | O_CREAT | O_EXCL, PRIVATE_FILE_MODE));
            bMade = bMade || File.IsOpen();
            if (!File.IsOpen() && errno == EEXIST)
            {
                File.Reset(OpenToWrite(szPath, O_RDWR, 0));
                if (!File.IsOpen() && errno == ENOENT)
                {
                    continue;
                }
            }
            if (!File.IsOpen())
            {
                return FAILED;
            }
            bool const bLocked = flock(File.Get(), LOCK_EX | LOCK_NB) == 0;
            if (!bLocked && !IsUnknownCall(errno))
            {
                if (errno == EINTR)
                {
                    continue;
                }
                return errno == EWOULDBLOCK ? HELD : FAILED;
            }
            DiskPath_c Path(szPath);
            if (StillNames(Path, File.Get()))
            {
                m_hFile = HandleOf(File.Release());
                m_bLeft = !bMade && bLocked;   // without locks the holder may live
                ForkDropAdd(DropIn(m_dDrop), CloseLock, &m_hFile);
                return TAKEN;
            }
            bMade = false;   // the name is no longer that file's
        }
        return HELD;
    }

    void NameLock_c::Drop(char const * szPath)
    {
        if (!m_hFile)
        {
            return;
        }
        int const iFile = DescriptorOf(m_hFile);
        DiskPath_c Path(szPath);
        if (StillNames(Path, iFile))
        {
            unlinkat(AT_FDCWD, Path.Get(), 0);
        }
        ForkDropRemove(DropIn(m_dDrop));
        flock(iFile, LOCK_UN);   // a process that was started without fork handlers may have the file open
        close(iFile);
        m_hFile = nullptr;
    }
}
