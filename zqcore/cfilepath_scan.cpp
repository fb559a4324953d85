#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

#include "platform/files.h"
#include "platform/folding.h"
#include "platform/text.h"

#include <climits>
#include <deque>

constinit Callbacker_T<FileSkip_t> g_FileSkipCallbacker;

namespace
{
    // Texts of FileSkip_e, without InArchive, which is not a reason of this scan.
    constexpr char const * WHY[] = { "another file has its name", FILE_NO_ROOM, "its name is cut to 127 characters",
        "it has 2 GiB or more and can't be opened", "its relative name takes more than 127 characters", FILE_LONG_PATH,
        "it differs from another entry in case only", "its name begins like a drive", "its name holds a '\\'",
        "its name is not UTF-8", "it is no regular file", FILE_UNREADABLE, "the system does not report what it is",
        "it is a link to a folder of this scan", "the scan was in it by a link already",
        "it is of another configuration", "it is of another game", "its name is excluded", FILE_UNFINISHED };
    static_assert(std::size(WHY) == static_cast<std::size_t>(FileSkip_e::InArchive) && FILE_KEY_LENGTH == 127);

    // Logs and reports an entry that the scan skips. Returns false.
    ZQ_COLD bool Skip(FileSkip_e eWhy, char const * szFolder, char const * szName)
    {
        FileLogSkipped(WHY[static_cast<std::size_t>(eWhy)], szFolder, szName);
        FileReportSkip(eWhy, szFolder, szName);
        return false;
    }

    // A folder of which a scan enters only the current configuration's subfolder.
    constexpr char const * CONFIG_MARKER = "media\\_configdependeddata\\";

    // Folders of which scans could not see all (FileScanIsWhole).
    Array_T<String_T<256>, 64, 0> g_dMissed;

    // One call of FileAddSearchPath.
    class FolderScan_c
    {
    public:
        FolderScan_c(bool bRecursive, bool bRelativeNames);

        // Adds a folder to g_sPaths, registers its files, and scans its subfolders if the scan is recursive.
        void Scan(String_T<256> const & sPath);

    private:
        struct Folder_s
        {
            String_T<256> const & sPath;
            String_T<256> const * pPath;   // its entry in g_sPaths; null if the table is full
            char const * szKeyFolder;      // prefix of each key; null for bare names
        };

        // A folder that this scan entered. Its identity is read when WasEntered first compares it: most trees hold no
        // link to a folder. If g_sPaths is full, pPath is null and the identity is read at once.
        struct Entered_s
        {
            String_T<256> const * pPath;
            bool bIdentified;   // whether the identity was read
            plat::FileIdentity_t Identity;
        };

        void AddEntry(Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached);
        std::size_t AddAlike(Folder_s const & Folder, plat::FolderListing_c const & Listing, std::size_t iFirst);
        void AddFolder(Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached);
        void AddFile(Folder_s const & Folder, plat::FolderEntry_t const & Entry);
        std::size_t MakeKey(Folder_s const & Folder, plat::FolderEntry_t const & Entry, File_c::Key_t & sKey) const;
        char const * FindKeyFolder(String_T<256> const & sPath) const;
        void AddEntries(Folder_s const & Folder, plat::FolderListing_c const & Listing);
        bool WasEntered(char const * szPath);

        bool m_bRecursive, m_bRelativeNames;
        bool m_bLinkEntered = false;
        String_T<256> m_sRoot;   // media root in the form of g_sPaths; empty without relative names or a usable root
        std::deque<plat::FolderListing_c> m_dListings;   // one for each level, reused for its folders in turn
        std::size_t m_iLevel = 0;
        Array_T<Entered_s, 64, 0> m_dEntered;

        FileTableQueue_c m_Queue;
    };

    FolderScan_c::FolderScan_c(bool bRecursive, bool bRelativeNames)
        : m_bRecursive(bRecursive)
        , m_bRelativeNames(bRelativeNames)
    {
        if (bRelativeNames)
        {
            FoldedPath_c sRoot(GetPQXMediaPath(false));
            if (!sRoot.IsEmpty() && sRoot.AppendSeparator())
            {
                m_sRoot = sRoot;
            }
        }
    }

    // Logs and reports an entry that can't be in the tables, and returns false. Returns true for any other entry.
    bool CanEnter(char const * szFolder, plat::FolderEntry_t const & Entry)
    {
        if (!Entry.bReachable)
        {
            return Skip(FileSkip_e::Separator, szFolder, Entry.szName);
        }
        if (!Entry.bAscii && !plat::IsUtf8(Entry.szName))
        {
            return Skip(FileSkip_e::NotUtf8, szFolder, Entry.szName);
        }
        return Entry.Facts.bFolder || Entry.Facts.bRegular || Skip(FileSkip_e::NoRegularFile, szFolder, Entry.szName);
    }

    // Logs and reports an entry that Reached hides: a path with the name in lower case leads to Reached.
    void LogHidden(char const * szFolder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached)
    {
        LogEscaped("filesystem: \"%s%s\" differs from another %s in case only, it is not entered", szFolder,
            Entry.szName, Entry.Facts.bFolder && Reached.Facts.bFolder ? "folder" : "entry");
        FileReportSkip(FileSkip_e::Case, szFolder, Entry.szName);
    }

    void FolderScan_c::Scan(String_T<256> const & sPath)
    {
        String_T<256> const * const pNewPath = FilePathAdd(sPath);
        g_AddSubfolderCallbacker.Fire(sPath, true);
        if (m_iLevel == m_dListings.size())
        {
            m_dListings.emplace_back();
        }
        plat::FolderListing_c & Listing = m_dListings[m_iLevel];
        FileCacheNoteFolder(sPath);
        if (String_T<256> const * const pMissed = g_dMissed.Find(sPath))
        {
            g_dMissed.Delete(static_cast<int>(pMissed - &g_dMissed[0]));
        }
        if (!Listing.Read(sPath))
        {
            FileScanNoteMissed(sPath);
            LogEscaped("filesystem: can't read folder \"%s\"", static_cast<char const *>(sPath));
            FileReportSkip(FileSkip_e::Unreadable, sPath, "");
            return;
        }
        ++m_iLevel;
        AddEntries({ sPath, pNewPath ? pNewPath : g_sPaths.FindByName(sPath), FindKeyFolder(sPath) }, Listing);
        --m_iLevel;
    }

    void FolderScan_c::AddEntries(Folder_s const & Folder, plat::FolderListing_c const & Listing)
    {
        Entered_s Entered{ Folder.pPath, false, {} };
        if (!Entered.pPath)
        {
            Entered.bIdentified = plat::FolderGetIdentity(Folder.sPath, Entered.Identity);
        }
        m_dEntered.Add(Entered);
        for (std::size_t i = 0; i < Listing.GetCount();)
        {
            if (Listing.HasCapitals())
            {
                i += AddAlike(Folder, Listing, i);
            }
            else
            {
                AddEntry(Folder, Listing.GetEntry(i), Listing.GetEntry(i));
                ++i;
            }
        }
        m_Queue.Flush();
    }

    // Logs and reports an entry of which the system reports no facts, and stores its folder as missed. Does nothing for
    // one that the scan skips whether it is a file or a folder.
    ZQ_COLD void MissEntry(String_T<256> const & sFolder, plat::FolderEntry_t const & Entry, bool bRecursive)
    {
        bool const bSkippedAsFile = g_sExcludedFiles.Has(Entry.szName) || FileReplacement_c::IsBeside(Entry.szName);
        bool const bSkippedAsFolder = Entry.bFile || !bRecursive || g_sExcludedFolders.Has(Entry.szName);
        if (!bSkippedAsFile || !bSkippedAsFolder)
        {
            Skip(FileSkip_e::Unknown, sFolder, Entry.szName);
            FileScanNoteMissed(sFolder);
        }
    }

    // Adds a file or a folder. Reached is the entry to which a path with the name in lower case leads.
    void FolderScan_c::AddEntry(
        Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached)
    {
        if (Entry.bFailed) [[unlikely]]
        {
            MissEntry(Folder.sPath, Entry, m_bRecursive);
        }
        else if (Entry.Facts.bFolder)
        {
            m_Queue.Flush();
            AddFolder(Folder, Entry, Reached);
        }
        else if (Reached.Facts.bRegular)
        {
            AddFile(Folder, Entry);   // a duplicate if Reached is in the table already
        }
        else if (!g_sExcludedFiles.Has(Entry.szName) && CanEnter(Folder.sPath, Entry))
        {
            LogHidden(Folder.sPath, Entry, Reached);
        }
    }

    // Adds an entry and the following ones whose names differ from its name in case only. Returns their number. A path
    // in lower case leads to the entry without capitals, which is the last. If all have capitals, it leads to the
    // first. The entry to which the path leads is added before the others.
    std::size_t FolderScan_c::AddAlike(
        Folder_s const & Folder, plat::FolderListing_c const & Listing, std::size_t iFirst)
    {
        std::size_t iEnd = iFirst + 1;
        while (iEnd < Listing.GetCount()
               && StrCompareNoCase(Listing.GetEntry(iEnd).szName, Listing.GetEntry(iFirst).szName) == 0)
        {
            ++iEnd;
        }
        std::size_t const iReached = plat::IsFolded(Listing.GetEntry(iEnd - 1).szName) ? iEnd - 1 : iFirst;
        plat::FolderEntry_t const & Reached = Listing.GetEntry(iReached);
        AddEntry(Folder, Reached, Reached);
        for (std::size_t i = iFirst; i < iEnd; ++i)
        {
            if (i != iReached)
            {
                AddEntry(Folder, Listing.GetEntry(i), Reached);
            }
        }
        return iEnd - iFirst;
    }

    // Returns whether subfolder szName of sPath belongs to no configuration or to the current one.
    bool IsOfCurrentConfig(String_T<256> const & sPath, char const * szName)
    {
        return sPath.StrPos(CONFIG_MARKER) < 0
               || (!g_sCurrentConfig.IsEmpty() && (g_sCurrentConfig == szName || !sPath.Ends(CONFIG_MARKER)));
    }

    void FolderScan_c::AddFolder(
        Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached)
    {
        if (!m_bRecursive)
        {
            return;
        }
        if (static_cast<std::size_t>(Folder.sPath.Length()) + Entry.nName + 1
            >= static_cast<std::size_t>(Folder.sPath.Capacity()))
        {
            Skip(FileSkip_e::LongPath, Folder.sPath, Entry.szName);
            return;
        }
        String_T<256> sSub = Folder.sPath;
        sSub += Entry.szName;
        sSub += "\\";
        sSub.ToLower();
        if (!IsOfCurrentConfig(Folder.sPath, Entry.szName))
        {
            LogEscaped("filesystem: skipping \"%s\"", static_cast<char const *>(sSub));
            return FileReportSkip(FileSkip_e::Configuration, Folder.sPath, Entry.szName);
        }
        bool const bExcluded = g_sExcludedFolders.Has(Entry.szName);
        if (bExcluded || FileSplitExcludes(sSub))
        {
            return FileReportSkip(bExcluded ? FileSkip_e::Excluded : FileSkip_e::Split, Folder.sPath, Entry.szName);
        }
        if (!CanEnter(Folder.sPath, Entry))
        {
            return;
        }
        if (&Entry != &Reached)
        {
            return LogHidden(Folder.sPath, Entry, Reached);
        }
        if ((Entry.bLink || m_bLinkEntered) && WasEntered(sSub))
        {
            Skip(Entry.bLink ? FileSkip_e::LinkToEntered : FileSkip_e::EnteredByLink, Folder.sPath, Entry.szName);
            return;
        }
        m_bLinkEntered = m_bLinkEntered || Entry.bLink;
        Scan(sSub);
    }

    // Returns whether this scan has entered a folder, by any path. Returns false if its identity can't be read.
    bool FolderScan_c::WasEntered(char const * szPath)
    {
        plat::FileIdentity_t Identity;
        if (!plat::FolderGetIdentity(szPath, Identity))
        {
            return false;
        }
        for (Entered_s & Entered : m_dEntered)
        {
            if (!Entered.bIdentified && Entered.pPath)
            {
                Entered.bIdentified = plat::FolderGetIdentity(*Entered.pPath, Entered.Identity);
            }
            if (Entered.bIdentified && Entered.Identity == Identity)
            {
                return true;
            }
        }
        return false;
    }

    // Returns the part of a folder's path that the keys of its files begin with. Returns null for bare names, and with
    // a log line for a folder that is not below the media root.
    char const * FolderScan_c::FindKeyFolder(String_T<256> const & sPath) const
    {
        char const * const szPath = sPath;
        if (!m_bRelativeNames)
        {
            return nullptr;
        }
        if (m_sRoot.IsEmpty() || !sPath.Begins(m_sRoot))
        {
            LogEscaped("filesystem: \"%s\" is not below the media root, its files go by their bare names", szPath);
            return nullptr;
        }
        return szPath + m_sRoot.Length();
    }

    // Makes the key of a file and returns the key's length. Returns 0, with a log line, for a name that no lookup finds
    // and for a relative key that does not fit.
    std::size_t FolderScan_c::MakeKey(
        Folder_s const & Folder, plat::FolderEntry_t const & Entry, File_c::Key_t & sKey) const
    {
        bool const bBare = !Folder.szKeyFolder || !Folder.szKeyFolder[0];
        if (bBare && Entry.nName > 1 && Entry.szName[1] == ':')   // a lookup would read it as a drive
        {
            Skip(FileSkip_e::Drive, Folder.sPath, Entry.szName);
            return 0;
        }
        if (!Folder.szKeyFolder)
        {
            if (Entry.nName > FILE_KEY_LENGTH) [[unlikely]]
            {
                FileReportSkip(FileSkip_e::CutName, Folder.sPath, Entry.szName);
            }
            return FileMakeBareKey(Entry.szName, Entry.nName, sKey.GetBuffer());
        }
        std::size_t const nFolder = std::strlen(Folder.szKeyFolder);
        if (nFolder + Entry.nName > FILE_KEY_LENGTH)
        {
            Skip(FileSkip_e::LongKey, Folder.sPath, Entry.szName);
            return 0;
        }
        std::memcpy(sKey.GetBuffer(), Folder.szKeyFolder, nFolder);
        return nFolder + FileMakeBareKey(Entry.szName, Entry.nName, sKey.GetBuffer() + nFolder);
    }

    void FolderScan_c::AddFile(Folder_s const & Folder, plat::FolderEntry_t const & Entry)
    {
        bool const bExcluded = g_sExcludedFiles.Has(Entry.szName);
        if (bExcluded || FileReplacement_c::IsBeside(Entry.szName)) [[unlikely]]
        {
            return FileReportSkip(
                bExcluded ? FileSkip_e::Excluded : FileSkip_e::Unfinished, Folder.sPath, Entry.szName);
        }
        if (!CanEnter(Folder.sPath, Entry))
        {
            return;
        }
        File_c * const pFile = ZQ_NEW FileOnDisk_c;
        std::size_t const nKey = MakeKey(Folder, Entry, pFile->sName);
        if (nKey == 0)
        {
            return FileDiscard(pFile);
        }
        if (Entry.Facts.nSize > INT_MAX)
        {
            LogEscaped("filesystem: \"%s%s\" has 2 GiB or more and can't be opened",
                static_cast<char const *>(Folder.sPath), Entry.szName);
            FileReportSkip(FileSkip_e::TooLarge, Folder.sPath, Entry.szName);
        }
        pFile->pPath = Folder.pPath;
        pFile->iLength = static_cast<int>(static_cast<std::uint32_t>(Entry.Facts.nSize));   // the low 32 bits
        pFile->ftCreationTime = Entry.Facts.tCreation;
        pFile->ftLastWriteTime = Entry.Facts.tLastWrite;
        m_Queue.Push(pFile, nKey);
    }
}

void FileReportSkip(FileSkip_e eWhy, char const * szFolder, char const * szName, File_c const * pFirst)
{
    g_FileSkipCallbacker.Fire({ eWhy, szFolder, szName, WHY[static_cast<std::size_t>(eWhy)], pFirst }, true);
}

void FileLogSkipped(char const * szWhy, char const * szFolder, char const * szName)
{
    LogEscaped("filesystem: skipping \"%s%s\", %s", szFolder, szName, szWhy);
}

void FileScanFolder(String_T<256> const & sFolder, bool bRecursive, bool bRelativeNames)
{
    FolderScan_c(bRecursive, bRelativeNames).Scan(sFolder);
}

void FileScanNoteMissed(String_T<256> const & sFolder)
{
    if (!g_dMissed.Find(sFolder))
    {
        g_dMissed.Add(sFolder);
    }
}

void FileScanForgetMissed(char const * szPrefix)
{
    for (int i = g_dMissed.GetLength() - 1; i >= 0; --i)
    {
        if (g_dMissed[i].Begins(szPrefix))
        {
            g_dMissed.Delete(i);
        }
    }
    if (g_dMissed.IsEmpty())
    {
        g_dMissed.Reset();
    }
}

bool FileScanIsWhole(char const * sPath)
{
    ZQ_ASSERT(sPath);
    FoldedPath_c sPrefix(sPath ? sPath : "");
    if (sPrefix.GetLength() > 0)
    {
        sPrefix.AppendSeparator();
    }
    for (String_T<256> const & sMissed : g_dMissed)
    {
        if (sMissed.Begins(sPrefix))
        {
            return false;
        }
    }
    return true;
}
