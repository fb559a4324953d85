#include "platform/rawfiles.h"

#include "platform/folding.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/openfile.h"
#include "platform/linux/reserve.h"
#include "platform/linux/spelling.h"
#include "platform/memory.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace plat
{
    namespace
    {
        constexpr std::size_t MAX_READ = 256u << 20;   // bytes

        // Replaces a name by the disk's spelling of it in a folder, if one exists that differs in case only.
        void ReplaceSpelling(char const * szFolder, char * szName)
        {
            constexpr std::size_t BLOCK_BYTES = 4096;   // the stack of a handler is small
            Descriptor_c const Folder(OpenToReadWithReserve(szFolder, O_DIRECTORY));
            FolderReader_T<BLOCK_BYTES> Reader(Folder.Get());   // without a folder, it has no entries
            while (dirent64 const * const pEntry = Reader.Next())
            {
                if (CompareFolded(pEntry->d_name, szName) == 0)
                {
                    std::memcpy(szName, pEntry->d_name, std::strlen(szName));   // both have the same length
                    return;
                }
            }
        }

        // Replaces each folder of the path by the disk's spelling of it, unless it exists as written.
        void ReplaceSpellings(char * szPath)
        {
            char szFolder[PATH_MAX];
            for (char * pName = szPath; char * const pEnd = std::strchr(pName, '/'); pName = pEnd + 1)
            {
                if (pEnd == pName)
                {
                    continue;
                }
                auto const nBefore = static_cast<std::size_t>(pName - szPath);
                std::memcpy(szFolder, nBefore == 0 ? "." : szPath, nBefore == 0 ? 1 : nBefore);
                szFolder[nBefore == 0 ? 1 : nBefore] = '\0';
                *pEnd = '\0';
                if (access(szPath, F_OK) != 0)
                {
                    ReplaceSpelling(szFolder, pName);
                }
                *pEnd = '/';
            }
        }

        int OpenToRead(char const * szPath)
        {
            return OpenToReadWithReserve(szPath, O_NONBLOCK | O_NOCTTY);
        }

        // Returns whether a file is as MakeOrContinue makes it: this user's private regular file with one name.
        bool IsOwn(struct stat const & File)
        {
            return S_ISREG(File.st_mode) && (File.st_mode & 07777) == PRIVATE_FILE_MODE && File.st_uid == geteuid()
                   && File.st_nlink == 1;
        }

        // Makes or continues a file as RawMakePrivate does, for a path in the system's own form. Returns the
        // descriptor. Requires that bTaken is false. On failure returns -1, and may set bTaken.
        int MakeOrContinue(char const * szPath, bool & bTaken)
        {
            constexpr int WRITE_ON = O_APPEND | O_DSYNC;
            Descriptor_c File(OpenWithReserve(
                [szPath] { return MoveAboveStandard(open(szPath, MAKE_NEW | WRITE_ON, PRIVATE_FILE_MODE)); }));
            if (!File.IsOpen() && errno == EEXIST)
            {
                struct stat Stat;
                bool const bOwn = lstat(szPath, &Stat) == 0 && IsOwn(Stat);
                auto const fnContinue = [szPath]
                { return MoveAboveStandard(open(szPath, O_WRONLY | WRITE_ON | UNTRUSTED)); };
                File.Reset(bOwn ? OpenWithReserve(fnContinue) : -1);
                bTaken = !File.IsOpen() || fstat(File.Get(), &Stat) != 0 || !IsOwn(Stat);
            }
            bTaken = bTaken || (File.IsOpen() && !ClaimWriting(File.Get()));
            return bTaken ? -1 : File.Release();
        }
    }

    RawFile_t RawMakePrivate(char const * szPath, bool & bTaken)
    {
        char szSystem[PATH_MAX];
        std::size_t const nPath = CopyWithSlashes(szPath, szSystem);
        bTaken = false;
        if (szPath[nPath] != '\0')   // longer than the system allows
        {
            return nullptr;
        }
        int iFile = MakeOrContinue(szSystem, bTaken);
        if (iFile < 0 && !bTaken && errno == ENOENT)
        {
            ReplaceSpellings(szSystem);
            iFile = MakeOrContinue(szSystem, bTaken);
        }
        return HandleOf(iFile);
    }

    bool RawWrite(RawFile_t hFile, char const * pText, std::size_t nBytes)
    {
        return hFile != nullptr && WriteFully(DescriptorOf(hFile), pText, nBytes);
    }

    void RawClose(RawFile_t hFile)
    {
        if (hFile != nullptr)
        {
            close(DescriptorOf(hFile));
        }
    }

    std::uint64_t RawSize(RawFile_t hFile)
    {
        struct stat Stat;
        bool const bKnown = hFile != nullptr && fstat(DescriptorOf(hFile), &Stat) == 0;
        return bKnown ? static_cast<std::uint64_t>(Stat.st_size) : 0;
    }

    char const * RawReadAll(char const * szPath, std::size_t * pBytes)
    {
        struct stat Stat;
        Descriptor_c const File(OpenToRead(szPath));
        if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0 || !S_ISREG(Stat.st_mode) || Stat.st_size <= 0
            || static_cast<std::uint64_t>(Stat.st_size) > MAX_READ)
        {
            return nullptr;
        }
        *pBytes = static_cast<std::size_t>(Stat.st_size);
        void * const pPages = PagesAllocate(*pBytes);
        if (pPages != nullptr && ReadFully(File.Get(), pPages, *pBytes) != *pBytes)
        {
            PagesRelease(pPages, *pBytes);
            return nullptr;
        }
        return static_cast<char const *>(pPages);
    }

    std::size_t RawReadTail(std::FILE * pStream, char * pBuffer, std::size_t nSize)
    {
        char szPath[32];
        std::snprintf(szPath, sizeof szPath, "/proc/self/fd/%d", fileno(pStream));
        struct stat Stat;
        Descriptor_c const File(OpenToRead(szPath));
        if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0 || !S_ISREG(Stat.st_mode))
        {
            return 0;
        }
        off_t const nTail = std::min(Stat.st_size, static_cast<off_t>(nSize));
        ssize_t const nRead = pread(File.Get(), pBuffer, static_cast<std::size_t>(nTail), Stat.st_size - nTail);
        return static_cast<std::size_t>(std::max<ssize_t>(nRead, 0));
    }

    // Another file gets the number at once, so that no later file of this process gets what others still write.
    void RawCloseStream(std::FILE * pStream)
    {
        int const iFile = fileno(pStream);
        Descriptor_c const Nothing(OpenWithReserve([] { return open("/dev/null", O_WRONLY | O_CLOEXEC); }));
        if (!Nothing.IsOpen() || dup3(Nothing.Get(), iFile, O_CLOEXEC) < 0)
        {
            close(iFile);
        }
    }
}
