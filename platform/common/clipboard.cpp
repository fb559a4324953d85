// The clipboard is a folder:
// - a file for each format, with a name that starts with "=" and is escaped as in the registry
// - the file "lock", which the opener locks
// - the file "busy", which the opener writes and then renames
//
// The lock belongs to the process. A child does not inherit it, so it ends with the opener itself. docs/formats.md
// describes the files.

#include "platform/clipboard.h"

#include "platform/common/registryrecord.h"
#include "platform/common/storedisk.h"
#include "platform/fork.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
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
        constexpr unsigned int FIRST_FORMAT = 0xC000;   // as on Windows (RegisterClipboardFormat)
        constexpr std::size_t MAX_FORMATS = 0x1000;     // of a process
        constexpr char LOCK_FILE[] = "lock";
        constexpr char BUSY_FILE[] = "busy";

        struct Format_s
        {
            std::string sFile;                          // name of the format's file
            std::unique_ptr<ClipboardBlock_s> pBlock;   // read or set while the clipboard is open
        };

        struct Clipboard_s
        {
            char szFolder[STORE_PATH_SIZE] = "";   // empty for the default
            std::vector<Format_s> dFormats;
            StoreKept_c Folder;
            StoreKept_c Lock;
            bool bEmptied = false;              // whether the data on the disk count as removed (ClipboardEmpty)
            ClipboardWait_t fnWait = nullptr;   // null for the default

            bool IsOpen() const { return Lock.Get() != STORE_NONE; }
        };

        constinit Clipboard_s g_Clipboard;

        // Opens the folder szSet, or the user's own if szSet is empty, and returns it. Creates a missing one. Returns
        // STORE_NONE on failure.
        StoreHandle_t OpenClipboardFolder(char const * szSet)
        {
            char szFolder[STORE_PATH_SIZE];
            if (szSet[0] != 0)
            {
                std::snprintf(szFolder, sizeof(szFolder), "%s", szSet);
            }
            else if (!StoreGetUserPath("clipboard", szFolder))
            {
                return STORE_NONE;
            }
            StoreMakePath(szFolder, StoreRights_e::Owner);
            return StoreOpenPath(szFolder);
        }

        // Returns the format of a number. Returns null if there is none, or if the clipboard is not open.
        Format_s * FormatOf(unsigned int iFormat)
        {
            std::size_t const iIndex = iFormat - FIRST_FORMAT;
            return g_Clipboard.IsOpen() && iIndex < g_Clipboard.dFormats.size() ? &g_Clipboard.dFormats[iIndex]
                                                                                : nullptr;
        }

        // Frees the blocks that belong to the clipboard.
        void DropBlocks()
        {
            for (Format_s & Format : g_Clipboard.dFormats)
            {
                Format.pBlock.reset();
            }
        }

        // Frees the blocks and closes the clipboard. Its files stay as they are.
        void Forget()
        {
            DropBlocks();
            g_Clipboard.Lock.Reset(STORE_NONE);
            g_Clipboard.Folder.Reset(STORE_NONE);
        }

        // A child has not opened what its parent has open.
        ForkHandler_c const g_ForkHandler({ nullptr, nullptr, Forget });

        // Deletes the files of all formats but the file sKeep. An empty sKeep keeps none.
        void DeleteFiles(StoreHandle_t hFolder, std::string const & sKeep)
        {
            std::vector<std::string> dFiles;
            StoreList(
                hFolder,
                [](char const * szName, bool, void * pFiles)
                { static_cast<std::vector<std::string> *>(pFiles)->push_back(szName); },
                &dFiles);
            for (std::string const & sFile : dFiles)
            {
                if (sFile[0] == VALUE_MARK && sFile != sKeep)
                {
                    StoreDeleteFile(hFolder, sFile.c_str());
                }
            }
        }

        // Reads a file into a new block, which the caller owns, and returns it. Returns null if StoreReadFile fails.
        ClipboardBlock_t LoadBlock(StoreHandle_t hFolder, char const * szFile)
        {
            std::vector<char> dBytes;
            return StoreReadFile(hFolder, szFile, CLIPBOARD_LIMIT, dBytes) ? new ClipboardBlock_s{ std::move(dBytes) }
                                                                           : nullptr;
        }
    }

    void ClipboardSetFolder(char const * szFolder)
    {
        char(&szSet)[STORE_PATH_SIZE] = g_Clipboard.szFolder;
        std::snprintf(szSet, sizeof(szSet), "%s", szFolder != nullptr ? szFolder : "");
    }

    unsigned int ClipboardRegisterFormat(char const * szName)
    {
        std::vector<Format_s> & dFormats = g_Clipboard.dFormats;
        Format_s Format;
        if (!szName || !ValueNameToDisk(szName, Format.sFile))
        {
            return 0;
        }
        auto const itFound = std::find_if(
            dFormats.begin(), dFormats.end(), [&](Format_s const & Known) { return Known.sFile == Format.sFile; });
        std::size_t const iFormat = static_cast<std::size_t>(itFound - dFormats.begin());
        if (iFormat == MAX_FORMATS)
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
        StoreHandle_t const hFolder = g_Clipboard.Folder.Get();
        g_Clipboard.Lock.Reset(hFolder != STORE_NONE ? StoreOpenLock(hFolder, LOCK_FILE) : STORE_NONE);
        g_Clipboard.bEmptied = false;
        if (!g_Clipboard.IsOpen())
        {
            return false;
        }
        StoreDeleteFile(hFolder, BUSY_FILE);   // of an opener that was killed
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

    ClipboardBlock_t ClipboardBlockAllocate(std::size_t nBytes)
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
        if (!StoreWriteFile(
                g_Clipboard.Folder.Get(), BUSY_FILE, pFormat->sFile.c_str(), hBlock->dBytes, StoreRights_e::Owner))
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
        std::this_thread::sleep_for(std::chrono::milliseconds(nMilliseconds));
    }

    ClipboardWait_t ClipboardSetWait(ClipboardWait_t fnWait)
    {
        return std::exchange(g_Clipboard.fnWait, fnWait);
    }
}
