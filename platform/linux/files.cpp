#include "platform/files.h"

#include "platform/linux/descriptor.h"
#include "platform/linux/facts.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/openfile.h"
#include "platform/linux/spelling.h"
#include "platform/process.h"

#include <csignal>
#include <cstring>
#include <memory>
#include <stdio_ext.h>
#include <string>
#include <sys/file.h>
#include <vector>

namespace plat
{
    namespace
    {
        constexpr mode_t NEW_FOLDER_MODE = 0777;
        constexpr std::uint64_t HINT_FROM_BYTES = 128 * 1024;   // bytes read ahead unasked (Linux, VM_READAHEAD_PAGES)

        bool DeleteEntry(int iFolder, char const * szName);

        // Deletes all entries of a folder. Returns false, with the first error in errno, if the list is incomplete or
        // an entry is left.
        bool EmptyFolder(int iFolder)
        {
            std::vector<std::string> dNames;
            bool bAll = ReadNames(iFolder, dNames);
            int iError = errno;
            for (std::string const & sName : dNames)
            {
                bool const bDeleted = DeleteEntry(iFolder, sName.c_str());
                iError = bAll && !bDeleted ? errno : iError;
                bAll = bAll && bDeleted;
            }
            errno = iError;
            return bAll;
        }

        // Deletes one entry with all its contents. An entry that does not exist counts as deleted. Returns false on
        // failure.
        bool DeleteEntry(int iFolder, char const * szName)
        {
            if (unlinkat(iFolder, szName, 0) == 0 || errno == ENOENT)
            {
                return true;
            }
            if (errno != EISDIR && errno != EPERM)
            {
                return false;
            }
            int iOpenError = 0;
            {
                Descriptor_c const Folder(openat(iFolder, szName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
                iOpenError = Folder.IsOpen() ? 0 : errno;
                if (Folder.IsOpen() && !EmptyFolder(Folder.Get()))
                {
                    return false;
                }
            }
            bool const bDeleted = unlinkat(iFolder, szName, AT_REMOVEDIR) == 0 || errno == ENOENT;
            errno = iOpenError != 0 ? iOpenError : errno;   // why the folder still has contents
            return bDeleted;
        }

        // Returns the flags of open for a mode of fopen, or -1 if it does not begin with r, w or a.
        int FlagsOfMode(char const * szMode)
        {
            bool const bUpdate = std::strchr(szMode, '+') != nullptr;
            int const iExclusive = std::strchr(szMode, 'x') != nullptr ? O_EXCL : 0;
            int const iAccess = O_CLOEXEC | (bUpdate ? O_RDWR : (szMode[0] == 'r' ? O_RDONLY : O_WRONLY));
            switch (szMode[0])
            {
            case 'r':
                return iAccess;
            case 'w':
                return iAccess | O_CREAT | O_TRUNC | iExclusive;
            case 'a':
                return iAccess | O_CREAT | O_APPEND | iExclusive;
            default:
                return -1;
            }
        }

        // Acquires a shared lock on a log, so that no other process empties it. A process that empties it holds the
        // lock exclusively for a moment. If a foreign program does so for longer, returns without the lock after at
        // least a tenth of a second.
        void AcquireShared(int iFile)
        {
            constexpr int TRIES = 1000;
            constexpr timespec PAUSE = { 0, 100'000 };
            for (int i = 0; i < TRIES && flock(iFile, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++i)
            {
                nanosleep(&PAUSE, nullptr);
            }
        }

        // Empties a file on which no other stream holds a shared lock, and acquires such a lock. This deletes no lines
        // of a process that holds the lock. Also empties a file on a file system without locks, which deletes lines of
        // other processes.
        void EmptyUnlessShared(int iFile)
        {
            if (ClaimWriting(iFile))
            {
                [[maybe_unused]] int const iEmptied = ftruncate(iFile, 0);   // else the log is used as it is
            }
            AcquireShared(iFile);
        }

        // Name of a previous file: the path with ".1" and so on. An iPrevious of 0 means the present file.
        struct PreviousName_s
        {
            char szName[PATH_MAX + 16];   // room for a path and its number

            PreviousName_s(char const * szPath, int iPrevious)
            {
                std::snprintf(szName, sizeof szName, iPrevious > 0 ? "%s.%i" : "%s", szPath, iPrevious);
            }
        };

        // Renames a file to the name with ".1", the one with ".1" to ".2", and so on. Replaces the last one.
        void RenamePrevious(char const * szPath, int nPrevious)
        {
            for (int i = nPrevious; i > 0; --i)
            {
                rename(PreviousName_s(szPath, i - 1).szName, PreviousName_s(szPath, i).szName);
            }
        }

        // Returns whether an open file is deleted, or RenamePrevious has renamed it.
        bool IsPrevious(char const * szPath, int nPrevious, struct stat const & File)
        {
            bool bFound = File.st_nlink == 0;
            for (int i = 1; i <= nPrevious && !bFound; ++i)
            {
                struct stat Named;
                bFound = lstat(PreviousName_s(szPath, i).szName, &Named) == 0 && IsOneFile(Named, File);
            }
            return bFound;
        }

        // Copies the rest of one file to the other: inside the kernel as far as possible, then through a buffer.
        // Returns false on failure.
        bool CopyContents(int iFrom, int iTo)
        {
            constexpr std::size_t STEP = std::size_t(1) << 30;
            while (copy_file_range(iFrom, nullptr, iTo, nullptr, STEP, 0) > 0)
            {}
            constexpr std::size_t BUFFER = 64 * 1024;
            std::unique_ptr<char[]> const pBuffer(new char[BUFFER]);
            for (;;)
            {
                ssize_t const nRead = read(iFrom, pBuffer.get(), BUFFER);
                if (nRead == 0)
                {
                    return true;
                }
                if (nRead < 0 && errno == EINTR)
                {
                    continue;
                }
                if (nRead < 0 || !WriteFully(iTo, pBuffer.get(), static_cast<std::size_t>(nRead)))
                {
                    return false;
                }
            }
        }

        // Replaces the contents and the write time of iTo. Returns false on failure, and with EINVAL if both are one
        // file.
        bool CopyOver(int iFrom, int iTo)
        {
            struct stat From;
            struct stat To;
            if (fstat(iFrom, &From) != 0 || fstat(iTo, &To) != 0)
            {
                return false;
            }
            if (IsOneFile(From, To))
            {
                errno = EINVAL;
                return false;
            }
            timespec const dTimes[2] = { { 0, UTIME_OMIT }, From.st_mtim };
            return ftruncate(iTo, 0) == 0 && CopyContents(iFrom, iTo) && futimens(iTo, dTimes) == 0;
        }
    }

    Writers_e TestWriters(int iDescriptor)
    {
        fcntl(iDescriptor, F_SETSIG, SIGURG);   // a lease broken before its removal raises an ignored signal
        if (fcntl(iDescriptor, F_SETLEASE, F_RDLCK) != 0)
        {
            return errno == EAGAIN ? Writers_e::Some : Writers_e::Unknown;
        }
        fcntl(iDescriptor, F_SETLEASE, F_UNLCK);
        return Writers_e::None;
    }

    File_t FileOpenRead(char const * szPath, Share_e eShare, FileFacts_t * pFacts)
    {
        DiskPath_c Path(szPath);
        Descriptor_c File(Path.Try([](char const * szTry)
            { return MoveAboveStandard(open(szTry, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)); }));
        FileFacts_t Facts;
        if (!File.IsOpen() || !ReadFactsAt(File.Get(), "", AT_EMPTY_PATH, Facts))
        {
            return nullptr;
        }
        if (!Facts.bRegular)
        {
            errno = Facts.bFolder ? EISDIR : EINVAL;
            return nullptr;
        }
        if (eShare == Share_e::Read && TestWriters(File.Get()) == Writers_e::Some)
        {
            errno = EBUSY;
            return nullptr;
        }
        if (pFacts != nullptr)
        {
            *pFacts = Facts;
        }
        return HandleOf(File.Release());
    }

    bool FileLockTest_c::Try()
    {
        FileFacts_t Facts;
        File_t const hFile = FileOpenRead(m_szPath, Share_e::ReadWrite, &Facts);
        m_bAbsent = hFile == nullptr && LastErrorIsAbsence();
        if (hFile == nullptr)
        {
            return false;
        }
        Descriptor_c const File(DescriptorOf(hFile));
        bool const bUnchanged = m_bSeen && Facts.nSize == m_Seen.nSize && Facts.tLastWrite == m_Seen.tLastWrite;
        m_Seen = Facts;
        m_bSeen = true;
        Writers_e const eWriters = TestWriters(File.Get());
        return eWriters == Writers_e::None || (eWriters == Writers_e::Unknown && bUnchanged);
    }

    bool FileGetFacts(File_t hFile, FileFacts_t & Facts)
    {
        return ReadFactsAt(DescriptorOf(hFile), "", AT_EMPTY_PATH, Facts);
    }

    void FileHintSequential(File_t hFile, std::uint64_t nBytes)
    {
        if (nBytes > HINT_FROM_BYTES)
        {
            posix_fadvise(DescriptorOf(hFile), 0, 0, POSIX_FADV_SEQUENTIAL);
        }
    }

    std::size_t FileRead(File_t hFile, void * pBuffer, std::size_t nBytes)
    {
        return ReadFully(DescriptorOf(hFile), pBuffer, nBytes);
    }

    std::int64_t FileSeek(File_t hFile, std::int64_t iOffset, int iOrigin)
    {
        int const iWhence = iOrigin == 1 ? SEEK_CUR : (iOrigin == 2 ? SEEK_END : SEEK_SET);
        return lseek(DescriptorOf(hFile), iOffset, iWhence);
    }

    void FileClose(File_t hFile)
    {
        close(DescriptorOf(hFile));
    }

    bool PathGetFacts(char const * szPath, FileFacts_t & Facts)
    {
        DiskPath_c Path(szPath);
        return Path.Try([&Facts](char const * szTry) { return ReadFactsAt(AT_FDCWD, szTry, 0, Facts) ? 0 : -1; }) == 0;
    }

    std::FILE * StreamOpen(char const * szPath, char const * szMode)
    {
        int const iFlags = FlagsOfMode(szMode);
        if (iFlags < 0)
        {
            errno = EINVAL;
            return nullptr;
        }
        Descriptor_c File((iFlags & O_ACCMODE) == O_RDONLY ? DescriptorOf(FileOpenRead(szPath, Share_e::ReadWrite))
                                                           : OpenToWrite(szPath, iFlags, NEW_FILE_MODE));
        std::FILE * const pStream = File.IsOpen() ? fdopen(File.Get(), szMode) : nullptr;
        if (pStream != nullptr)
        {
            File.Release();
        }
        return pStream;
    }

    std::FILE * StreamOpenLog(char const * szPath)
    {
        std::FILE * const pStream = StreamOpen(szPath, "ab");
        if (pStream != nullptr)
        {
            std::setvbuf(pStream, nullptr, _IONBF, 0);
            EmptyUnlessShared(fileno(pStream));
        }
        return pStream;
    }

    std::uint64_t StreamLimitLog(std::FILE * pStream, char const * szPath, std::uint64_t nLimit, int nPrevious)
    {
        int const iFile = fileno(pStream);
        struct stat Own;
        if (fstat(iFile, &Own) != 0)
        {
            return 0;
        }
        auto nOwn = static_cast<std::uint64_t>(Own.st_size);
        DiskPath_c Path(szPath);
        if (nOwn <= nLimit && (IsNamed(Path, Own) || !IsPrevious(Path.Get(), nPrevious, Own)))
        {
            return nOwn;
        }
        FolderLock_c const Lock(szPath);   // another process may begin a new file too, or have begun it
        if (!Lock.IsHeld() || fstat(iFile, &Own) != 0)
        {
            return nOwn;
        }
        nOwn = static_cast<std::uint64_t>(Own.st_size);
        if (IsNamed(Path, Own))
        {
            if (nOwn <= nLimit)
            {
                return nOwn;
            }
            if (nPrevious == 0)
            {
                return ftruncate(iFile, 0) == 0 ? 0 : nOwn;
            }
            RenamePrevious(Path.Get(), nPrevious);
        }
        Descriptor_c New(OpenToWrite(szPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, NEW_FILE_MODE));
        struct stat Fresh;
        if (!New.IsOpen() || fstat(New.Get(), &Fresh) != 0)
        {
            return nOwn;
        }
        AcquireShared(New.Get());
        return dup3(New.Get(), iFile, O_CLOEXEC) >= 0 ? static_cast<std::uint64_t>(Fresh.st_size) : nOwn;
    }

    bool StreamIsUnbuffered(std::FILE * pStream)
    {
        return __fbufsize(pStream) == 1;   // the C library's own byte
    }

    FileIdentity_t StreamGetIdentity(std::FILE * pStream)
    {
        return IdentityOf(fileno(pStream));
    }

    std::size_t StreamWriteThrough(std::FILE * pStream, void const * pData, std::size_t nBytes)
    {
        return WriteSome(fileno(pStream), pData, nBytes);
    }

    bool FolderCreate(char const * szPath)
    {
        DiskPath_c Path(szPath);
        Path.TrimSeparators();
        if (IsThere(Path))
        {
            errno = EEXIST;
            return false;
        }
        if (errno != ENOENT)
        {
            return false;
        }
        Path.SpellFolder();
        return mkdir(Path.Get(), NEW_FOLDER_MODE) == 0;
    }

    bool FileCopy(char const * szFrom, char const * szTo, Durability_e eDurability)
    {
        return FileCopyTo(szFrom, szTo, 0, eDurability);
    }

    bool FileCopyTo(char const * szFrom, char const * szTo, int iFlags, Durability_e eDurability)
    {
        File_t const hFrom = FileOpenRead(szFrom, Share_e::ReadWrite);
        Descriptor_c const From(hFrom != nullptr ? DescriptorOf(hFrom) : -1);
        struct stat Stat;
        if (!From.IsOpen() || fstat(From.Get(), &Stat) != 0)
        {
            return false;
        }
        Descriptor_c To(OpenToWrite(szTo, O_WRONLY | O_CREAT | iFlags, Stat.st_mode & NEW_FILE_MODE));
        return To.IsOpen() && CopyOver(From.Get(), To.Get())
               && (eDurability == Durability_e::Written || SyncFully(To.Get())) && To.Close();
    }

    bool TreeDelete(char const * szPath)
    {
        DiskPath_c Path(szPath);
        Path.TrimSeparators();
        if (!IsThere(Path))
        {
            return false;
        }
        char const * const szSlash = std::strrchr(Path.Get(), '/');
        std::string_view const sLast = szSlash != nullptr ? szSlash + 1 : Path.Get();
        if (sLast.empty() || sLast == "." || sLast == "..")
        {
            errno = EINVAL;
            return false;
        }
        return DeleteEntry(AT_FDCWD, Path.Get());
    }
}
