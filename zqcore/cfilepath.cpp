#include "zqcore/cfilepath.h"

#include "zqcore/ccallback.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"

#include "platform/process.h"
#include "platform/text.h"

#include <algorithm>
#include <climits>
#include <deque>
#include <utility>

constinit FileTable_t g_sFileObjects;
constinit PathTable_t g_sPaths;

namespace
{
    // Files that left the table while others held them open, and the folders' texts that these still point to.
    Array_T<File_c *, 64, 0> g_dOrphans;
    Array_T<String_T<256> *, 64, 0> g_dOrphanPaths;

    // Folders that scans could not see all of, for a fault of the system.
    Array_T<String_T<256>, 64, 0> g_dMissed;

    void NoteMissed(String_T<256> const & sFolder)
    {
        if (!g_dMissed.Find(sFolder))
        {
            g_dMissed.Add(sFolder);
        }
    }

    void ForgetMissed(char const * szPrefix)
    {
        for (int i = g_dMissed.GetLength() - 1; i >= 0; --i)
        {
            if (g_dMissed[i].Begins(szPrefix))
            {
                g_dMissed.Delete(i);
            }
        }
    }

    // A folder of which only the current configuration's subfolder is entered.
    constexpr char const * CONFIG_MARKER = "media\\_configdependeddata\\";

    bool g_bOverflowSaid = false;   // of the table of files; never again

    // Enters a copy; null if the table has it already or takes no more.
    String_T<256> const * AddPath(char const * szPath)
    {
        auto * const pPath = ZQ_NEW String_T<256>(szPath);
        if (g_sPaths.Add(pPath, pPath) != HASH_ADDED)
        {
            delete pPath;
            return nullptr;
        }
        return pPath;
    }

    // Destroys an object that never got its key into the table.
    void Discard(File_c * pFile)
    {
        pFile->sName = "";   // the key may be another object's
        delete pFile;
    }

    char const * FolderOf(File_c const & File)
    {
        return File.pPath ? static_cast<char const *>(*File.pPath) : "";
    }

    char const * KeyOf(File_c const & File)
    {
        return File.sName;
    }

    constexpr std::size_t KEY_LENGTH = File_c::Key_t::Capacity() - 1;

    // Makes a key of a bare name. One that does not fit is cut, with a log line.
    std::size_t MakeBareKey(char const * szName, std::size_t nName, char * szKey)
    {
        std::size_t const nKey = std::min(nName, KEY_LENGTH);
        CopyToLower(szKey, szName, nKey);
        szKey[nKey] = '\0';
        if (nKey < nName)
        {
            LogEscaped("filesystem: name of %zu characters is cut to %zu: \"%s\"", nName, KEY_LENGTH, szName);
        }
        return nKey;
    }

    /// One call of FileAddSearchPath.
    class FolderScan_c
    {
    public:
        FolderScan_c(bool bRecursive, bool bRelativeNames);

        /// Enters a folder in g_sPaths, registers its files, and goes down.
        void Scan(String_T<256> const & sPath);

    private:
        struct Folder_s
        {
            String_T<256> const & sPath;
            String_T<256> const * pPath;   // its entry in g_sPaths; null if that is full
            char const * szKeyFolder;      // the prefix of the names in keys; null for bare names
        };

        void AddEntry(Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached);
        std::size_t AddAlike(Folder_s const & Folder, plat::FolderListing_c const & Listing, std::size_t iFirst);
        void AddFolder(Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached);
        void EnterWaiting();
        void AddFile(Folder_s const & Folder, plat::FolderEntry_t const & Entry);
        std::size_t MakeKey(Folder_s const & Folder, plat::FolderEntry_t const & Entry, File_c::Key_t & sKey) const;
        char const * KeyFolder(String_T<256> const & sPath) const;
        void AddEntries(Folder_s const & Folder, plat::FolderListing_c const & Listing);
        bool WasEntered(char const * szPath);

        // The identity is asked for when the first link to a folder is met: most trees hold none.
        struct Entered_s
        {
            String_T<256> const * pPath;
            bool bIdentified;
            plat::FolderIdentity_t Identity;
        };

        bool m_bRecursive, m_bRelativeNames;
        bool m_bLinkEntered = false;
        String_T<256> m_sRoot;                           // media root in the form of g_sPaths, for relative names
        std::deque<plat::FolderListing_c> m_dListings;   // one a level, for its folders in turn
        std::size_t m_iLevel = 0;
        Array_T<Entered_s, 64, 0> m_dEntered;

        // The file met last, on its way into the table; without an object there is none. So what is said of its key
        // comes behind what is said of the next file itself.
        FileTable_t::Entry_s m_Waiting = {};
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

    // Says no, with a log line, to what can't be entered.
    bool CanEnter(char const * szFolder, plat::FolderEntry_t const & Entry)
    {
        char const * const szWhy = !Entry.bReachable                               ? "its name holds a '\\'"
                                   : !Entry.bAscii && !plat::IsUtf8(Entry.szName)  ? "its name is not UTF-8"
                                   : !Entry.Facts.bFolder && !Entry.Facts.bRegular ? "it is no regular file"
                                                                                   : nullptr;
        if (szWhy)
        {
            LogEscaped("filesystem: skipping \"%s%s\", %s", szFolder, Entry.szName, szWhy);
        }
        return !szWhy;
    }

    void LogHidden(char const * szFolder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached)
    {
        LogEscaped("filesystem: \"%s%s\" differs from another %s in case only, it is not entered", szFolder,
            Entry.szName, Entry.Facts.bFolder && Reached.Facts.bFolder ? "folder" : "entry");
    }

    void FolderScan_c::Scan(String_T<256> const & sPath)
    {
        String_T<256> const * const pNewPath = AddPath(sPath);
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
            NoteMissed(sPath);
            LogEscaped("filesystem: can't read folder \"%s\"", static_cast<char const *>(sPath));
            return;
        }
        ++m_iLevel;
        AddEntries({ sPath, pNewPath ? pNewPath : g_sPaths.FindByName(sPath), KeyFolder(sPath) }, Listing);
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
        EnterWaiting();
    }

    // An entry that the system does not say anything of, unless it would be passed over in any case.
    ZQ_COLD void MissEntry(String_T<256> const & sFolder, plat::FolderEntry_t const & Entry)
    {
        if (!g_sExcludedFiles.Has(Entry.szName) && !g_sExcludedFolders.Has(Entry.szName)
            && !FileReplacement_c::IsBeside(Entry.szName))
        {
            LogEscaped("filesystem: skipping \"%s%s\", the system can't tell what it is",
                static_cast<char const *>(sFolder), Entry.szName);
            NoteMissed(sFolder);
        }
    }

    // Reached is the entry that the name in lower case leads to.
    void FolderScan_c::AddEntry(
        Folder_s const & Folder, plat::FolderEntry_t const & Entry, plat::FolderEntry_t const & Reached)
    {
        if (Entry.bFailed) [[unlikely]]
        {
            MissEntry(Folder.sPath, Entry);
        }
        else if (Entry.Facts.bFolder)
        {
            EnterWaiting();
            AddFolder(Folder, Entry, Reached);
        }
        else if (Reached.Facts.bRegular)
        {
            AddFile(Folder, Entry);   // with Reached in the table already it is a duplicate
        }
        else if (!g_sExcludedFiles.Has(Entry.szName) && CanEnter(Folder.sPath, Entry))
        {
            LogHidden(Folder.sPath, Entry, Reached);
        }
    }

    bool HasCapital(char const * szName)
    {
        while (*szName && *szName == CharToLower(*szName))
        {
            ++szName;
        }
        return *szName != '\0';
    }

    // Adds the entry and those after it whose names differ in case only. Returns how many they are. A path in lower
    // case leads to the one without capitals, which is last, else to the first: that one is added first.
    std::size_t FolderScan_c::AddAlike(
        Folder_s const & Folder, plat::FolderListing_c const & Listing, std::size_t iFirst)
    {
        std::size_t iEnd = iFirst + 1;
        while (iEnd < Listing.GetCount()
               && StrCompareNoCase(Listing.GetEntry(iEnd).szName, Listing.GetEntry(iFirst).szName) == 0)
        {
            ++iEnd;
        }
        std::size_t const iReached = HasCapital(Listing.GetEntry(iEnd - 1).szName) ? iFirst : iEnd - 1;
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

    // Says no, with a log line, to the folders of other configurations.
    bool IsOfCurrentConfig(String_T<256> const & sPath, char const * szName, char const * szSub)
    {
        if (sPath.StrPos(CONFIG_MARKER) < 0
            || (!g_sCurrentConfig.IsEmpty() && (g_sCurrentConfig == szName || !sPath.Ends(CONFIG_MARKER))))
        {
            return true;
        }
        LogEscaped("filesystem: skipping \"%s\"", szSub);
        return false;
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
            LogEscaped("filesystem: skipping \"%s%s\", its path is too long", static_cast<char const *>(Folder.sPath),
                Entry.szName);
            return;
        }
        String_T<256> sSub = Folder.sPath;
        sSub += Entry.szName;
        sSub += "\\";
        sSub.ToLower();
        if (!IsOfCurrentConfig(Folder.sPath, Entry.szName, sSub) || g_sExcludedFolders.Has(Entry.szName)
            || FileSplitExcludes(sSub) || !CanEnter(Folder.sPath, Entry))
        {
            return;
        }
        if (&Entry != &Reached)
        {
            return LogHidden(Folder.sPath, Entry, Reached);
        }
        if ((Entry.bLink || m_bLinkEntered) && WasEntered(sSub))
        {
            LogEscaped(Entry.bLink ? "filesystem: skipping \"%s%s\", it is a link to a folder of this scan"
                                   : "filesystem: skipping \"%s%s\", the scan was in it by a link already",
                static_cast<char const *>(Folder.sPath), Entry.szName);
            return;
        }
        m_bLinkEntered = m_bLinkEntered || Entry.bLink;
        Scan(sSub);
    }

    bool FolderScan_c::WasEntered(char const * szPath)
    {
        plat::FolderIdentity_t Identity;
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

    /// The part of a folder's text that its keys begin with; null for bare names.
    char const * FolderScan_c::KeyFolder(String_T<256> const & sPath) const
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

    /// The key's length; 0, with a log line, for a name that no lookup finds and for a relative key that does not fit.
    std::size_t FolderScan_c::MakeKey(
        Folder_s const & Folder, plat::FolderEntry_t const & Entry, File_c::Key_t & sKey) const
    {
        bool const bBare = !Folder.szKeyFolder || !Folder.szKeyFolder[0];
        if (bBare && Entry.nName > 1 && Entry.szName[1] == ':')   // a lookup would take it for a drive
        {
            LogEscaped("filesystem: skipping \"%s%s\", its name begins like a drive",
                static_cast<char const *>(Folder.sPath), Entry.szName);
            return 0;
        }
        if (!Folder.szKeyFolder)
        {
            return MakeBareKey(Entry.szName, Entry.nName, sKey.GetBuffer());
        }
        std::size_t const nFolder = std::strlen(Folder.szKeyFolder);
        if (nFolder + Entry.nName > KEY_LENGTH)
        {
            LogEscaped("filesystem: skipping \"%s%s\", its relative name takes more than %zu characters",
                static_cast<char const *>(Folder.sPath), Entry.szName, KEY_LENGTH);
            return 0;
        }
        std::memcpy(sKey.GetBuffer(), Folder.szKeyFolder, nFolder);
        return nFolder + MakeBareKey(Entry.szName, Entry.nName, sKey.GetBuffer() + nFolder);
    }

    ZQ_COLD void DropDuplicate(File_c * pFile)
    {
        LogEscaped("File duplication : %s%s", FolderOf(*pFile), KeyOf(*pFile));
        if (File_c * const pFirst = g_sFileObjects.FindByName(pFile->sName))
        {
            LogEscaped("                   %s%s", FolderOf(*pFirst), KeyOf(*pFirst));
            pFirst->bDuplicate = true;
        }
        Discard(pFile);
    }

    ZQ_COLD void DropOverflow(File_c * pFile)
    {
        if (!g_bOverflowSaid)
        {
            g_bOverflowSaid = true;
            Warning("file hash overflow");
        }
        Discard(pFile);
    }

    void FolderScan_c::AddFile(Folder_s const & Folder, plat::FolderEntry_t const & Entry)
    {
        if (g_sExcludedFiles.Has(Entry.szName) || FileReplacement_c::IsBeside(Entry.szName)
            || !CanEnter(Folder.sPath, Entry))
        {
            return;
        }
        File_c * const pFile = ZQ_NEW FileOnDisk_c;
        std::size_t const nKey = MakeKey(Folder, Entry, pFile->sName);
        if (nKey == 0)
        {
            return Discard(pFile);
        }
        if (Entry.Facts.nSize > INT_MAX)
        {
            LogEscaped("filesystem: \"%s%s\" is larger than 2 GiB and can't be opened",
                static_cast<char const *>(Folder.sPath), Entry.szName);
        }
        pFile->pPath = Folder.pPath;
        pFile->iLength = static_cast<int>(static_cast<std::uint32_t>(Entry.Facts.nSize));
        pFile->ftCreationTime = Entry.Facts.tCreation;
        pFile->ftLastWriteTime = Entry.Facts.tLastWrite;
        EnterWaiting();
        m_Waiting = g_sFileObjects.Prepare(pFile, &pFile->sName, nKey);
    }

    void FolderScan_c::EnterWaiting()
    {
        FileTable_t::Entry_s const Entry = std::exchange(m_Waiting, {});
        switch (Entry.pObject ? g_sFileObjects.Add(Entry) : HASH_ADDED)
        {
        case HASH_ADDED:
            return;
        case HASH_PRESENT:
            return DropDuplicate(Entry.pObject);
        default:
            return DropOverflow(Entry.pObject);
        }
    }

    // Whether a folder's path in lower case leads to another one.
    bool IsHidden(char const * szPath, char const * szFolded)
    {
        plat::FolderIdentity_t Named;
        plat::FolderIdentity_t Found;
        return plat::FolderGetIdentity(szPath, Named, true) && plat::FolderGetIdentity(szFolded, Found)
               && Named != Found;
    }

    // The folder of FileAddOneFile, entered if need be; null, with a log line, if it can't be.
    String_T<256> const * FindOrAddPath(char const * szPath)
    {
        String_T<256> const * pPath = g_sPaths.FindByName(szPath);
        pPath = pPath ? pPath : AddPath(szPath);
        if (!pPath)
        {
            Log("FileAddOneFile - unknown path hash error [Ivo Renning]");
        }
        return pPath;
    }

    bool AddToTable(File_c & File)
    {
        bool const bAdded = g_sFileObjects.Add(&File, &File.sName) == HASH_ADDED;
        if (!bAdded)
        {
            Log("FileAddOneFile - unknown file hash error [Ivo Renning]");
        }
        return bAdded;
    }

    bool IsOfOrphan(String_T<256> const & sPath)
    {
        for (File_c const * pOrphan : g_dOrphans)
        {
            if (pOrphan->pPath == &sPath)
            {
                return true;
            }
        }
        return false;
    }

    bool ResetFilesBelow(char const * szPrefix)
    {
        bool bRemoved = false;
        FileTable_t::Slot_s * pNext;
        for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = pNext)
        {
            pNext = g_sFileObjects.Next(pSlot);
            File_c * const pFile = pSlot->pObject;
            if (!pFile->pPath || !pFile->pPath->Begins(szPrefix))
            {
                continue;
            }
            bRemoved = true;
            FileClose(pFile);
            FileStayerForget(*pFile, false);   // whose reference that was
            if (pFile->GetOpensCount() == 0)
            {
                delete pFile;
            }
            else
            {
                g_dOrphans.Add(pFile);
            }
            g_sFileObjects.Delete(pSlot);
        }
        return bRemoved;
    }

    bool ResetPathsBelow(char const * szPrefix)
    {
        bool bRemoved = false;
        PathTable_t::Slot_s * pNext;
        for (PathTable_t::Slot_s * pSlot = g_sPaths.First(); pSlot; pSlot = pNext)
        {
            pNext = g_sPaths.Next(pSlot);
            String_T<256> * const pPath = pSlot->pObject;
            if (!pPath->Begins(szPrefix))
            {
                continue;
            }
            bRemoved = true;
            g_sPaths.Delete(pSlot);
            if (IsOfOrphan(*pPath))
            {
                g_dOrphanPaths.Add(pPath);
            }
            else
            {
                delete pPath;
            }
        }
        return bRemoved;
    }
}

bool FoldedPath_c::AppendSeparator()
{
    if (m_nLength > 0 && m_szText[m_nLength - 1] == '\\')
    {
        return true;
    }
    if (m_nLength == FOLDED_LENGTH)
    {
        return false;
    }
    m_szText[m_nLength++] = '\\';
    m_szText[m_nLength] = '\0';
    return true;
}

void FileNoteMissed(char const * szFolder)
{
    FoldedPath_c sFolder(szFolder);
    sFolder.AppendSeparator();
    NoteMissed(String_T<256>(sFolder));
}

void FileKeepFolder(String_T<256> * pFolder)
{
    g_dOrphanPaths.Add(pFolder);
}

void FileForget(File_c & File)
{
    if (File.sName.IsEmpty())
    {
        return;
    }
    if (g_sFileObjects.FindByName(File.sName) == &File)
    {
        g_sFileObjects.DeleteByName(File.sName);
        return;
    }
    // Not under its own key: out of the table, or hidden behind another object of this key.
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        if (pSlot->pObject == &File)
        {
            g_sFileObjects.Delete(pSlot);
        }
    }
    for (int i = g_dOrphans.GetLength() - 1; i >= 0; --i)
    {
        if (g_dOrphans[i] == &File)
        {
            g_dOrphans.Delete(i);
        }
    }
}

void FileRenewLocks()
{
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        if (pSlot->pObject)   // null in a child if another thread of the parent was just adding it
        {
            pSlot->pObject->RenewLock();
        }
    }
    for (File_c * pOrphan : g_dOrphans)
    {
        pOrphan->RenewLock();
    }
}

bool FileAddSearchPath(char const * sPath, bool bRecursive, bool bRelativeNames)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sPath);
    plat::FileFacts_t Facts;
    bool const bFound = sPath && plat::PathGetFacts(sPath, Facts);
    bool const bFault = sPath && !bFound && !plat::LastErrorIsAbsence();
    if (bFault)
    {
        FileNoteMissed(sPath);
    }
    if (!bFound || !Facts.bFolder)
    {
        LogEscaped("Path not found %s", sPath ? sPath : "");
        return false;
    }
    FoldedPath_c sFolded(sPath);
    char const * const pLast = std::strrchr(sFolded, '\\');
    bool const bAppend = !pLast || (pLast[1] != '\0' && pLast[1] != ' ');
    if (sFolded.IsCut() || (bAppend && !sFolded.AppendSeparator()))
    {
        LogEscaped("filesystem: skipping \"%s\", its path is too long", sPath);
        return false;
    }
    String_T<256> const sFolder(sFolded);
    if (IsHidden(sPath, sFolder))
    {
        LogEscaped("filesystem: skipping \"%s\", it is hidden by a folder that differs in case only", sPath);
        return false;
    }
    FolderScan_c(bRecursive, bRelativeNames).Scan(sFolder);
    return true;
}

bool FileScanIsWhole(char const * sPath)
{
    ZQ_ASSERT(sPath);
    FoldedPath_c sPrefix(sPath ? sPath : "");
    if (sPrefix.GetLength() > 0)
    {
        sPrefix.AppendSeparator();
    }
    for (String_T<256> & sMissed : g_dMissed)
    {
        if (sMissed.Begins(sPrefix))
        {
            return false;
        }
    }
    return true;
}

void FileRemoveSearchPath(char const * sPath, bool)
{
    FileResetFiles(sPath);
}

bool FileAddOneFile(char const * sFile)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sFile);
    FoldedPath_c const sFolded(sFile);
    char const * const szBare = sFolded.GetBare();
    if (g_sFileObjects.FindByName(szBare))
    {
        return true;
    }
    if (sFolded.IsCut())
    {
        LogEscaped("filesystem: skipping \"%s\", its path is too long", sFile);
        return false;
    }
    if (FileReplacement_c::IsBeside(szBare))
    {
        LogEscaped("filesystem: skipping \"%s\", by its name it was never finished", sFile);
        return false;
    }
    FileName_c const sName{ static_cast<char const *>(sFolded) };
    String_T<256> const * const pPath = FindOrAddPath(sName.GetDrive() + sName.GetDir());
    if (!pPath)
    {
        return false;
    }
    File_c * const pFile = ZQ_NEW FileOnDisk_c;
    pFile->pPath = pPath;
    MakeBareKey(szBare, std::strlen(szBare), pFile->sName.GetBuffer());
    int const iCount = pFile->RefOpen();
    pFile->RefClose();
    if (iCount == 0 || !AddToTable(*pFile))   // 2 for a file that stays resident
    {
        Discard(pFile);
        return false;
    }
    return true;
}

bool FileResetFiles(char const * sPath)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sPath);
    FoldedPath_c sPrefix(sPath);
    if (!sPath || sPrefix.IsCut() || !sPrefix.AppendSeparator())
    {
        return false;   // no folder is that long
    }
    ForgetMissed(sPrefix);
    bool const bFiles = ResetFilesBelow(sPrefix);
    bool const bPaths = ResetPathsBelow(sPrefix);
    return bFiles || bPaths;
}

void FileReset()
{
    MemCategoryScope_c const Category(mem::file);
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        delete pSlot->pObject;
    }
    while (!g_dOrphans.IsEmpty())
    {
        delete g_dOrphans[g_dOrphans.GetLength() - 1];   // which leaves the list
    }
    for (PathTable_t::Slot_s * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
    {
        delete pSlot->pObject;
    }
    for (String_T<256> * pPath : g_dOrphanPaths)
    {
        delete pPath;
    }
    g_dOrphans.Reset();
    g_dOrphanPaths.Reset();
    g_dMissed.Reset();
    FileCacheForgetFolders();
    g_sFileObjects.Reset();
    g_sPaths.Reset();
    FilePoolTrim();
    plat::SpellingsForget();
}

int FileGetDirectoryFiles(char const * sPath, File_c ** const dFiles, int iMax)
{
    ZQ_ASSERT(sPath && dFiles);
    ZQ_ASSERT(iMax >= 1);
    FoldedPath_c const sPrefix(sPath);
    if (!sPath || !dFiles || sPrefix.IsCut())
    {
        return 0;
    }
    int nFiles = 0;
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot && nFiles < iMax;
         pSlot = g_sFileObjects.Next(pSlot))
    {
        File_c * const pFile = pSlot->pObject;
        if (pFile->pPath && pFile->pPath->Begins(sPrefix))
        {
            dFiles[nFiles++] = pFile;
        }
    }
    return nFiles;
}
