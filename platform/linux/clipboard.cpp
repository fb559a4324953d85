// The clipboard: a folder with a file for each format, behind "=" and escaped as in the registry, the file "lock" that
// the opener locks, and "busy", what it writes before it renames it. The lock is one of the process, which a child does
// not inherit: so it ends with the opener itself. docs/formats.md describes the files.

#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64

#include "platform/clipboard.h"

#include "platform/fork.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/folderreader.h"
#include "platform/linux/openfile.h"
#include "platform/linux/registryrecord.h"
#include "platform/linux/userfolder.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace plat
{
    struct ClipboardBlock_s
    {
        std::vector<char> dBytes;
    };

    namespace
    {
        constexpr unsigned int FIRST_FORMAT = 0xC000;
        constexpr std::size_t FORMAT_LIMIT = 0x1000;
        constexpr char LOCK_FILE[] = "lock";
        constexpr char BUSY_FILE[] = "busy";

        struct Format_s
        {
            std::string sFile;
            std::unique_ptr<ClipboardBlock_s> pBlock;   // read or set while the clipboard is open
        };

        struct Clipboard_s
        {
            char szFolder[PATH_MAX] = "";   // empty for the default
            std::vector<Format_s> dFormats;
            KeptDescriptor_c Folder;
            KeptDescriptor_c Lock;
            bool bEmptied = false;   // what is on disk is not there any more
            ClipboardWait_t fnWait = nullptr;

            bool IsOpen() const { return Lock.Get() >= 0; }
        };

        constinit Clipboard_s g_Clipboard;

        int OpenClipboardFolder(char const * szSet)
        {
            char szFolder[PATH_MAX];
            if (szSet[0] != 0)
            {
                std::snprintf(szFolder, sizeof(szFolder), "%s", szSet);
            }
            else if (!UserFolder("clipboard", szFolder))
            {
                return -1;
            }
            MakeFolders(szFolder, 0700);
            return OpenFolder(AT_FDCWD, szFolder);
        }

        // A locked file; -1 if another process has the lock.
        int OpenLock(int iFolder)
        {
            Descriptor_c Lock(openat(iFolder, LOCK_FILE, O_RDWR | O_CREAT | UNTRUSTED, PRIVATE_FILE_MODE));
            struct flock Whole = {};
            Whole.l_type = F_WRLCK;
            Whole.l_whence = SEEK_SET;
            return Lock.IsOpen() && IsRegular(Lock.Get()) && fcntl(Lock.Get(), F_SETLK, &Whole) == 0 ? Lock.Release()
                                                                                                     : -1;
        }

        // The format of a number, in an open clipboard; null if there is none.
        Format_s * FormatOf(unsigned int iFormat)
        {
            std::size_t const iIndex = iFormat - FIRST_FORMAT;
            return g_Clipboard.IsOpen() && iIndex < g_Clipboard.dFormats.size() ? &g_Clipboard.dFormats[iIndex]
                                                                                : nullptr;
        }

        void DropBlocks()
        {
            for (Format_s & Format : g_Clipboard.dFormats)
            {
                Format.pBlock.reset();
            }
        }

        void Forget()
        {
            DropBlocks();
            g_Clipboard.Lock.Reset(-1);
            g_Clipboard.Folder.Reset(-1);
        }

        // A child has not opened what its parent has open.
        ForkHandler_c const g_ForkHandler({ nullptr, nullptr, Forget });

        // Deletes the files of all formats but one.
        void DeleteFiles(int iFolder, std::string const & sKeep)
        {
            std::vector<std::string> dFiles;
            FolderReader_c Reader(iFolder);
            lseek(iFolder, 0, SEEK_SET);
            while (dirent64 const * pEntry = Reader.Next())
            {
                if (pEntry->d_name[0] == VALUE_MARK && sKeep != pEntry->d_name)
                {
                    dFiles.push_back(pEntry->d_name);
                }
            }
            for (std::string const & sFile : dFiles)
            {
                unlinkat(iFolder, sFile.c_str(), 0);
            }
        }

        // The contents of a file; null if there is none, or it is no block.
        ClipboardBlock_t LoadBlock(int iFolder, char const * szFile)
        {
            Descriptor_c const File(openat(iFolder, szFile, O_RDONLY | UNTRUSTED));
            struct stat Stat;
            if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0 || !S_ISREG(Stat.st_mode)
                || Stat.st_size > static_cast<off_t>(CLIPBOARD_LIMIT))
            {
                return nullptr;
            }
            ClipboardBlock_t const hBlock = ClipboardBlockNew(static_cast<std::size_t>(Stat.st_size));
            hBlock->dBytes.resize(ReadFully(File.Get(), hBlock->dBytes.data(), hBlock->dBytes.size()));
            return hBlock;
        }

        bool StoreBlock(int iFolder, char const * szFile, ClipboardBlock_s const & Block)
        {
            Descriptor_c const File(MakeAnew(iFolder, BUSY_FILE, PRIVATE_FILE_MODE));
            bool const bStored = File.IsOpen() && WriteFully(File.Get(), Block.dBytes.data(), Block.dBytes.size())
                                 && renameat(iFolder, BUSY_FILE, iFolder, szFile) == 0;
            if (!bStored)
            {
                int const iError = errno;
                unlinkat(iFolder, BUSY_FILE, 0);   // it would keep a full disk full
                errno = iError;
            }
            return bStored;
        }
    }

    void ClipboardSetFolder(char const * szFolder)
    {
        char(&szSet)[PATH_MAX] = g_Clipboard.szFolder;
        std::snprintf(szSet, sizeof(szSet), "%s", szFolder != nullptr ? szFolder : "");
    }

    unsigned int ClipboardRegisterFormat(char const * szName)
    {
        std::vector<Format_s> & dFormats = g_Clipboard.dFormats;
        Format_s Format;
        if (!szName || !ValueNameOnDisk(szName, Format.sFile))
        {
            return 0;
        }
        auto const iFound = std::find_if(
            dFormats.begin(), dFormats.end(), [&](Format_s const & Known) { return Known.sFile == Format.sFile; });
        std::size_t const iFormat = static_cast<std::size_t>(iFound - dFormats.begin());
        if (iFormat == FORMAT_LIMIT)
        {
            return 0;
        }
        if (iFormat == dFormats.size())
        {
            dFormats.push_back(std::move(Format));
        }
        return FIRST_FORMAT + static_cast<unsigned int>(iFormat);
    }

    bool ClipboardTryOpen()
    {
        if (g_Clipboard.IsOpen())
        {
            return false;
        }
        DropBlocks();
        g_Clipboard.Folder.Reset(OpenClipboardFolder(g_Clipboard.szFolder));
        int const iFolder = g_Clipboard.Folder.Get();
        g_Clipboard.Lock.Reset(iFolder >= 0 ? OpenLock(iFolder) : -1);
        g_Clipboard.bEmptied = false;
        if (!g_Clipboard.IsOpen())
        {
            return false;
        }
        unlinkat(iFolder, BUSY_FILE, 0);   // of an owner that was killed
        return true;
    }

    bool ClipboardClose()
    {
        if (!g_Clipboard.IsOpen())
        {
            return false;
        }
        if (g_Clipboard.bEmptied)
        {
            DeleteFiles(g_Clipboard.Folder.Get(), "");
        }
        Forget();
        return true;
    }

    bool ClipboardEmpty()
    {
        if (!g_Clipboard.IsOpen())
        {
            return false;
        }
        DropBlocks();
        g_Clipboard.bEmptied = true;
        return true;
    }

    ClipboardBlock_t ClipboardBlockNew(std::size_t nBytes)
    {
        return nBytes <= CLIPBOARD_LIMIT ? new ClipboardBlock_s{ std::vector<char>(nBytes) } : nullptr;
    }

    void ClipboardBlockFree(ClipboardBlock_t hBlock)
    {
        delete hBlock;
    }

    std::size_t ClipboardBlockSize(ClipboardBlock_t hBlock)
    {
        return hBlock ? hBlock->dBytes.size() : 0;
    }

    char * ClipboardBlockLock(ClipboardBlock_t hBlock)
    {
        return hBlock ? hBlock->dBytes.data() : nullptr;
    }

    void ClipboardBlockUnlock(ClipboardBlock_t) {}

    ClipboardBlock_t ClipboardGet(unsigned int iFormat)
    {
        Format_s * const pFormat = FormatOf(iFormat);
        if (pFormat && !pFormat->pBlock && !g_Clipboard.bEmptied)
        {
            pFormat->pBlock.reset(LoadBlock(g_Clipboard.Folder.Get(), pFormat->sFile.c_str()));
        }
        return pFormat ? pFormat->pBlock.get() : nullptr;
    }

    ClipboardBlock_t ClipboardSet(unsigned int iFormat, ClipboardBlock_t hBlock)
    {
        Format_s * const pFormat = FormatOf(iFormat);
        if (!pFormat || !hBlock)
        {
            return nullptr;
        }
        bool const bEmptied = std::exchange(g_Clipboard.bEmptied, false);
        if (!StoreBlock(g_Clipboard.Folder.Get(), pFormat->sFile.c_str(), *hBlock))
        {
            return nullptr;
        }
        if (bEmptied)
        {
            DeleteFiles(g_Clipboard.Folder.Get(), pFormat->sFile);
        }
        if (pFormat->pBlock.get() != hBlock)
        {
            pFormat->pBlock.reset(hBlock);
        }
        return hBlock;
    }

    void ClipboardWait(unsigned int nMilliseconds)
    {
        if (ClipboardWait_t const fnWait = g_Clipboard.fnWait)
        {
            fnWait(nMilliseconds);
            return;
        }
        timespec Rest = { static_cast<time_t>(nMilliseconds / 1000),
            static_cast<long>(nMilliseconds % 1000) * 1000000 };
        while (nanosleep(&Rest, &Rest) != 0 && errno == EINTR)
        {}
    }

    ClipboardWait_t ClipboardSetWait(ClipboardWait_t fnWait)
    {
        return std::exchange(g_Clipboard.fnWait, fnWait);
    }
}
