#include "platform/filewrite.h"

#include "platform/compiler.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/openfile.h"
#include "platform/linux/spelling.h"

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace plat
{
    namespace
    {
        // Deletes a new file that another program has locked, because nobody needs it. Keeps errno.
        ZQ_COLD void DeleteUnclaimed(char const * szPath)
        {
            int const iError = errno;
            DiskPath_c Path(szPath);
            Path.SpellFolder();
            unlinkat(AT_FDCWD, Path.Get(), 0);
            errno = iError;
        }
    }

    File_t FileCreate(char const * szPath)
    {
        Descriptor_c File(OpenToWrite(szPath, O_WRONLY | O_CREAT, NEW_FILE_MODE));
        bool const bMine = File.IsOpen() && ClaimWriting(File.Get());
        return bMine && ftruncate(File.Get(), 0) == 0 ? HandleOf(File.Release()) : nullptr;
    }

    File_t FileMake(char const * szPath, Rights_e eRights)
    {
        mode_t const iMode = eRights == Rights_e::Private ? PRIVATE_FILE_MODE : NEW_FILE_MODE;
        Descriptor_c File(OpenToWrite(szPath, O_WRONLY | O_CREAT | O_EXCL, iMode));
        if (File.IsOpen() && !ClaimWriting(File.Get()))
        {
            DeleteUnclaimed(szPath);
            return nullptr;
        }
        return HandleOf(File.Release());
    }

    bool FileWrite(File_t hFile, void const * pData, std::size_t nBytes)
    {
        return WriteFully(DescriptorOf(hFile), pData, nBytes);
    }

    bool FileWriteAt(File_t hFile, std::uint64_t nOffset, void const * pData, std::size_t nBytes)
    {
        auto const * pNext = static_cast<char const *>(pData);
        while (nBytes > 0)
        {
            ssize_t const nResult = pwrite(DescriptorOf(hFile), pNext, nBytes, static_cast<off_t>(nOffset));
            if (nResult <= 0 && !(nResult < 0 && errno == EINTR))
            {
                return false;
            }
            std::size_t const nWritten = nResult > 0 ? static_cast<std::size_t>(nResult) : 0;
            pNext += nWritten;
            nOffset += nWritten;
            nBytes -= nWritten;
        }
        return true;
    }

    bool FileSetSize(File_t hFile, std::uint64_t nBytes)
    {
        return ftruncate(DescriptorOf(hFile), static_cast<off_t>(nBytes)) == 0;
    }

    // The claim ends even if a forked child still has a copy of the handle.
    bool FileFinish(File_t hFile)
    {
        flock(DescriptorOf(hFile), LOCK_UN);
        return Descriptor_c(DescriptorOf(hFile)).Close();
    }

    void FoldersCreate(char const * szFilePath)
    {
        char szLevel[PATH_MAX];
        for (char const * pByte = szFilePath; *pByte && pByte - szFilePath < PATH_MAX - 1; ++pByte)
        {
            if ((*pByte == '/' || *pByte == '\\') && pByte != szFilePath)
            {
                auto const nLength = static_cast<std::size_t>(pByte - szFilePath);
                std::memcpy(szLevel, szFilePath, nLength);
                szLevel[nLength] = '\0';
                FolderCreate(szLevel);
            }
        }
    }
}
