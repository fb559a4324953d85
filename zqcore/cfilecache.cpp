#include "zqcore/cfilecache.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilecache_internal.h"
#include "zqcore/cfilelog.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserialize.h"
#include "zqcore/ctexterror.h"

#include "platform/files.h"

#include <algorithm>
#include <memory>

constinit String_T<256> g_sFilesystemCacheName;

namespace
{
    using Folder_t = String_T<256>;

    // The media root in the form of g_sPaths, without a separator at its end.
    class MediaRoot_c
    {
    public:
        MediaRoot_c()
            : m_sRoot(FoldedPath_c(GetPQXMediaPath(false)))
        {
            while (m_sRoot.Ends("\\"))
            {
                m_sRoot.Chop(1);
            }
            m_nLength = m_sRoot.Length();
        }

        bool IsUnknown() const { return m_nLength == 0; }

        char const * Get() const { return m_sRoot; }

        // Joins the root and a folder's text below it. Returns false, with sFolder cut, if the path is too long.
        bool MakeAbsolute(Folder_t const & sRelative, Folder_t & sFolder) const
        {
            sFolder = m_sRoot + sRelative;
            return m_nLength + sRelative.Length() < Folder_t::Capacity();
        }

        // Returns a folder's text after the root, from the separator on, or null for a folder outside the root.
        char const * TextBelowRoot(Folder_t const & sFolder) const
        {
            bool const bBelow = sFolder.Begins(m_sRoot) && sFolder[m_nLength] == '\\';
            return bBelow ? static_cast<char const *>(sFolder) + m_nLength : nullptr;
        }

    private:
        Folder_t m_sRoot;
        int m_nLength;
    };

    constexpr CacheStamp_s UNKNOWN{};   // the stamp of no folder

    struct NotedFolder_s
    {
        std::uint32_t dwPath;   // the checksum of its path
        CacheStamp_s Stamp;
    };
    constinit bool g_bCheck = false;            // whether scans and saves store stamps (FilesystemCacheCheck)
    Array_T<NotedFolder_s, 1024, 0> g_dNoted;   // folders as scans, comparisons and saves last saw them

    CacheStamp_s StampOf(Folder_t const & sFolder)
    {
        plat::FileFacts_t Facts;
        return plat::PathGetFacts(sFolder, Facts) ? CacheStamp_s{ Facts.nSize, Facts.tLastWrite } : UNKNOWN;
    }

    // Notes UNKNOWN for a folder that has no stamp. Returns the noted stamp of the folder, for reads and writes until
    // the next call.
    CacheStamp_s & FindOrNote(Folder_t const & sFolder)
    {
        std::uint32_t const dwPath = CacheIndexOf(sFolder);
        for (NotedFolder_s & Noted : g_dNoted)
        {
            if (Noted.dwPath == dwPath)
            {
                return Noted.Stamp;
            }
        }
        return g_dNoted[g_dNoted.Add({ dwPath, UNKNOWN })].Stamp;
    }

    // Folder and bare name of a cache, with the folder's identity after Identify.
    struct CachePlace_s
    {
        explicit CachePlace_s(char const * szFile)
        {
            FoldedPath_c const sFile(szFile);
            sBare = sFile.GetBare();
            sFolder = sFile.GetLength() == sBare.Length()
                          ? ".\\"
                          : Folder_t(sFile).SubStr(0, sFile.GetLength() - sBare.Length());
        }

        // Lets IsIn find the folder under another text than sFolder. IsIn then asks the system about each other folder.
        void Identify() { bIdentified = plat::FolderGetIdentity(sFolder, Identity); }

        // Returns whether a folder of the media is the cache's own.
        bool IsIn(Folder_t const & sOther) const
        {
            plat::FileIdentity_t Other;
            return sOther == sFolder || (bIdentified && plat::FolderGetIdentity(sOther, Other) && Other == Identity);
        }

        Folder_t sFolder;   // folder in the form of g_sPaths
        String_T<256> sBare;
        plat::FileIdentity_t Identity{};
        bool bIdentified = false;   // whether Identity is known
    };

    // Returns the stamp of the names in the cache's folder, without the cache and those of FileReplacement_c::IsBeside.
    // Returns UNKNOWN if the folder can't be read.
    CacheStamp_s StampOfNames(CachePlace_s const & Cache)
    {
        plat::FolderListing_c Listing;
        if (!Listing.Read(Cache.sFolder))
        {
            return UNKNOWN;
        }
        std::uint64_t nSum = 0;
        for (std::size_t i = 0; i < Listing.GetCount(); ++i)
        {
            char const * const szName = Listing.GetEntry(i).szName;
            if (StrCompareNoCase(szName, Cache.sBare) != 0 && !FileReplacement_c::IsBeside(szName))
            {
                nSum = nSum * 31 + CacheIndexOf(szName);
            }
        }
        return { CACHE_STAMP_OF_NAMES, nSum };
    }

    // Returns the stamp of the cache's own folder for saving. Returns UNKNOWN if the folder is not noted, or if it has
    // changed since it was noted, so that the tables may have other names.
    CacheStamp_s OwnStamp(CachePlace_s const & Cache)
    {
        CacheStamp_s const Now = StampOf(Cache.sFolder);
        return Now != UNKNOWN && Now == FindOrNote(Cache.sFolder) ? StampOfNames(Cache) : UNKNOWN;
    }

    // Notes the size and time of a folder that still has the stamp that a cache holds. Returns whether the folder has
    // that stamp.
    bool HasStamp(Folder_t const & sFolder, CacheStamp_s const & Stamp, CachePlace_s const & Cache)
    {
        CacheStamp_s const Now = StampOf(sFolder);
        bool const bSame = Stamp != UNKNOWN && Stamp == (Cache.IsIn(sFolder) ? StampOfNames(Cache) : Now);
        if (bSame)
        {
            FindOrNote(sFolder) = Now;
        }
        return bSame;
    }

    void SaveFolders(Serializeable_c & Archive, MediaRoot_c const & Root)
    {
        Array_T<char const *, 1024, 0> dRelatives;
        VisitAll(g_sPaths,
            [&](Folder_t const * pFolder)
            {
                if (char const * const szRelative = Root.TextBelowRoot(*pFolder))
                {
                    dRelatives.Add(szRelative);
                }
            });
        int nPaths = dRelatives.GetLength();
        Archive.Serialize(nPaths);
        for (char const * szRelative : dRelatives)
        {
            CacheFolder_s{ CacheIndexOf(szRelative), szRelative }.Serialize(Archive);
        }
    }

    // Returns the file of a folder that Top is or hides, if a load could place it: its folder is in the table, and a
    // search for its key finds Top, not another object of the same key. Otherwise returns null.
    File_c * PlaceableFileOf(File_c & Top)
    {
        File_c * const pFile = FileHiding_c::FirstInFolder(Top);
        bool const bPlaceable =
            pFile && g_sPaths.FindByName(*pFile->pPath) && g_sFileObjects.FindByName(Top.sName) == &Top;
        return bPlaceable ? pFile : nullptr;
    }

    using Files_t = Array_T<File_c *, 1024, 0>;

    // Adds the files that a cache stores to dFiles, in the order of the cache.
    void CollectFiles(MediaRoot_c const & Root, char const * szOwn, Files_t & dFiles)
    {
        VisitAll(g_sFileObjects,
            [&](File_c * pTop)
            {
                File_c * const pFile = PlaceableFileOf(*pTop);
                if (pFile && pFile->sName != szOwn && Root.TextBelowRoot(*pFile->pPath))
                {
                    dFiles.Add(pFile);
                }
            });
    }

    // Returns whether a load finds room in the table for the cache's own file and, after it, for the files of the
    // cache. A scan may have found room for all of them, because it adds them in another order.
    bool LoadFindsRoom(Files_t const & dFiles, File_c::Key_t const & sOwn)
    {
        if (dFiles.GetLength() < FileTable_t::iMaxProbes)
        {
            return true;
        }
        auto const pTable = std::make_unique<FileTable_t>();
        pTable->Add(dFiles[0], &sOwn);
        return std::ranges::all_of(
            dFiles, [&](File_c * pFile) { return pTable->Add(pFile, &pFile->sName) == HASH_ADDED; });
    }

    void SaveFiles(Serializeable_c & Archive, MediaRoot_c const & Root, Files_t const & dFiles)
    {
        int nFiles = dFiles.GetLength();
        Archive.Serialize(nFiles);
        for (File_c const * pFile : dFiles)
        {
            std::uint32_t const nIndex = CacheIndexOf(Root.TextBelowRoot(*pFile->pPath));
            CacheFile_s{ nIndex, pFile->ftCreationTime, FileLength(*pFile), pFile->sName }.Serialize(Archive);
        }
    }

    // Saves the stamps of the folders, in the order of SaveFolders.
    void SaveStamps(
        Serializeable_c & Archive, MediaRoot_c const & Root, Folder_t const & sOwn, CacheStamp_s const & Own)
    {
        std::uint32_t dwFollow = CACHE_STAMPS_FOLLOW;
        Archive.Serialize(dwFollow);
        VisitAll(g_sPaths,
            [&](Folder_t const * pFolder)
            {
                if (Root.TextBelowRoot(*pFolder))
                {
                    CacheStamp_s Stamp = *pFolder == sOwn ? Own : FindOrNote(*pFolder);
                    Stamp.Serialize(Archive);
                }
            });
    }

    // Returns the location of a cache. With g_bCheck its folder has the text that it has in g_sPaths, if it is there.
    CachePlace_s PlaceInTable(char const * szFile, MediaRoot_c const & Root)
    {
        CachePlace_s Cache(szFile);
        if (!g_bCheck || g_sPaths.FindByName(Cache.sFolder))
        {
            return Cache;
        }
        Cache.Identify();
        Folder_t const * pSame = nullptr;
        VisitAll(g_sPaths, [&](Folder_t const * pFolder)
            { pSame = !pSame && Root.TextBelowRoot(*pFolder) && Cache.IsIn(*pFolder) ? pFolder : pSame; });
        Cache.sFolder = pSame ? *pSame : Cache.sFolder;
        return Cache;
    }

    // Writes a whole cache, which replaces an earlier one. Returns false on failure. The earlier one then stays, unless
    // only the last synchronisation of Commit failed.
    bool WriteCache(char const * szFile, MediaRoot_c const & Root, Files_t const & dFiles)
    {
        CachePlace_s const Cache = PlaceInTable(szFile, Root);
        CacheStamp_s const Own = g_bCheck ? OwnStamp(Cache) : UNKNOWN;   // before the save changes the folder
        FileReplacement_c Replacement(szFile);
        if (*Replacement.GetWhyNot())
        {
            FileOpenTracker(nullptr, szFile);
        }
        BufferedWriteable_c Archive(Replacement, FILESYSTEMCACHE_VERSION);
        Archive.Open();
        SaveFolders(Archive, Root);
        SaveFiles(Archive, Root, dFiles);
        if (g_bCheck)
        {
            SaveStamps(Archive, Root, Cache.sFolder, Own);
        }
        bool const bWritten = Archive.Close() && !Archive.IsFailed() && Replacement.Commit();
        if (bWritten && Own != UNKNOWN)
        {
            FindOrNote(Cache.sFolder) = StampOf(Cache.sFolder);
        }
        return bWritten;
    }

    // Adds a copy to g_sPaths and returns its entry. On failure logs a line, and returns the entry that the table has
    // already, or null if the table is full.
    Folder_t const * AddFolder(Folder_t const & sFolder)
    {
        if (Folder_t const * const pFolder = FilePathAdd(sFolder))
        {
            return pFolder;
        }
        LogEscaped("Global path hash addition error...\n%s\n", static_cast<char const *>(sFolder));
        return g_sPaths.FindByName(sFolder);
    }

    // Files that were registered before a load, except the cache. The constructor empties g_sPaths, but keeps the
    // folders' texts. The destructor makes the files point to entries of the new table with the same texts. The folder
    // of the cache itself is not media, so it is in the new table only if the cache lists it or other files lie in it.
    class EarlierFiles_c
    {
    public:
        explicit EarlierFiles_c(File_c * pCache)
            : m_pCache(pCache)
        {
            VisitAll(g_sFileObjects,
                [this](File_c * pTop)
                {
                    File_c * const pFile = FileHiding_c::FirstInFolder(*pTop);
                    if (pFile && pFile != m_pCache)
                    {
                        m_dFiles.Add(pFile);
                    }
                });
            VisitAll(g_sPaths, [this](Folder_t * pFolder) { m_dFolders.Add(pFolder); });
            g_sPaths.Reset();
        }

        ~EarlierFiles_c()
        {
            for (File_c * pFile : m_dFiles)
            {
                Folder_t const * const pFolder = g_sPaths.FindByName(*pFile->pPath);
                pFile->pPath = pFolder ? pFolder : AddFolder(*pFile->pPath);
            }
            if (Folder_t const * const pOld = m_pCache->pPath)
            {
                Folder_t const * const pFolder = g_sPaths.FindByName(*pOld);
                m_pCache->pPath = pFolder ? pFolder : pOld;
            }
            for (Folder_t * pFolder : m_dFolders)
            {
                if (pFolder == m_pCache->pPath)
                {
                    FileKeepFolder(pFolder);
                }
                else
                {
                    delete pFolder;
                }
            }
        }

        EarlierFiles_c(EarlierFiles_c const &) = delete;
        EarlierFiles_c & operator=(EarlierFiles_c const &) = delete;

        // Returns whether an earlier file, which another object may hide, has this name and folder.
        bool Has(File_c const & File)
        {
            File_c * const pTop = g_sFileObjects.FindByName(File.sName);
            File_c * const pEarlier = pTop ? FileHiding_c::FirstInFolder(*pTop) : nullptr;
            return pEarlier && m_dFiles.Find(pEarlier) && File.pPath && *pEarlier->pPath == *File.pPath;
        }

    private:
        File_c * m_pCache;
        Array_T<File_c *, 64, 0> m_dFiles;
        Array_T<Folder_t *, 64, 0> m_dFolders;
    };

    // One load of an open cache.
    class CacheLoader_c
    {
    public:
        CacheLoader_c(File_c * pCache, MediaRoot_c const & Root)
            : m_Earlier(pCache)
            , m_Archive(pCache, FILESYSTEMCACHE_VERSION)
            , m_Root(Root)
        {}

        void Load();

    private:
        struct Folder_s
        {
            Folder_t const * pPath = nullptr;   // folder in g_sPaths; null if that is full, and with bTooLong
            bool bTooLong = false;              // whether the load skips the folder and its files
        };

        int LoadCount();
        void LoadFolder();
        void LoadFile();
        void Refuse(File_c * pFile, int iResult);
        void RequireIntact(bool bIntact, char const * szWhat) const;

        EarlierFiles_c m_Earlier;
        IndexHash_T<Folder_s, PATH_TABLE_FOLDERS, FILE_TABLE_STEP> m_Folders;
        Readable_c m_Archive;
        MediaRoot_c const & m_Root;
    };

    // Aborts if the archive has failed or a condition does not hold. szWhat is the fault.
    void CacheLoader_c::RequireIntact(bool bIntact, char const * szWhat) const
    {
        if (m_Archive.IsFailed() || !bIntact) [[unlikely]]
        {
            Abort("File system cache '%s' is damaged at byte %i: %s\nDelete it to have the media scanned.",
                TextForLog(g_sFilesystemCacheName).GetBuffer(), m_Archive.GetPosition(), szWhat);
        }
    }

    void CacheLoader_c::Load()
    {
        m_Archive.Open();
        for (int nPaths = LoadCount(); nPaths > 0; --nPaths)
        {
            LoadFolder();
        }
        for (int nFiles = LoadCount(); nFiles > 0; --nFiles)
        {
            LoadFile();
        }
        m_Archive.Close();   // the stamps may follow, and what a newer minor version adds
    }

    int CacheLoader_c::LoadCount()
    {
        int nRecords = 0;
        m_Archive.Serialize(nRecords);
        RequireIntact(nRecords >= 0, "no count of records");
        return nRecords;
    }

    void CacheLoader_c::LoadFolder()
    {
        CacheFolder_s Record;
        Record.Serialize(m_Archive);
        RequireIntact(true, "no whole folder record");
        ZQ_ASSERT_TEXT(Record.HasItsIndex(), "nIndex == GetCrc32Polynomial ( pPath->GetDataPtr (), pPath->Length () )");
        RequireIntact(Record.IsSound(), "not the text of a folder");

        Folder_t sFolder;
        bool const bTooLong = !m_Root.MakeAbsolute(Record.sRelative, sFolder);
        switch (int const iResult = m_Folders.Add(Folder_s{}, Record.nIndex))
        {
        case HASH_ADDED:
            break;
        case HASH_PRESENT:
            Abort("Path duplicated  '%s'\n", TextForLog(sFolder).GetBuffer());
        case HASH_FULL:
            Abort("Path hash is small");
        default:
            Abort("Unknown path hash error: %i", iResult);
        }
        if (bTooLong)
        {
            FileLogSkipped(FILE_LONG_PATH, sFolder);
        }
        *m_Folders.Find(Record.nIndex) = Folder_s{ bTooLong ? nullptr : AddFolder(sFolder), bTooLong };
    }

    void CacheLoader_c::LoadFile()
    {
        CacheFile_s Record;
        Record.Serialize(m_Archive);
        RequireIntact(!Record.sName.IsEmpty(), "no whole file record");
        Folder_s const * const pFolder = m_Folders.Find(Record.nIndex);
        if (!pFolder)
        {
            Abort("Can't assotiate index 0x%X of %s with any path\n", Record.nIndex,
                TextForLog(Record.sName).GetBuffer());
        }
        if (pFolder->bTooLong || FileReplacement_c::IsBeside(Record.sName))
        {
            return;
        }
        File_c * const pFile = ZQ_NEW FileOnDisk_c;
        pFile->pPath = pFolder->pPath;
        pFile->sName = Record.sName;
        pFile->iLength = Record.iLength;
        pFile->ftCreationTime = Record.ftCreationTime;
        if (int const iResult = g_sFileObjects.Add(pFile, &pFile->sName)) [[unlikely]]
        {
            Refuse(pFile, iResult);
        }
    }

    // Destroys a file that the table did not accept. Aborts, unless the same file was registered before the load.
    ZQ_COLD void CacheLoader_c::Refuse(File_c * pFile, int iResult)
    {
        bool const bKnown = iResult == HASH_PRESENT && m_Earlier.Has(*pFile);
        File_c::Key_t const sName = pFile->sName;
        FileDiscard(pFile);   // the key is another object's
        if (bKnown)
        {
            return;
        }
        switch (iResult)
        {
        case HASH_PRESENT:
            Abort("File duplicated: %s", TextForLog(sName).GetBuffer());
        case HASH_FULL:
            Abort("File hash is small");
        default:
            Abort("Unknown file hash error: %i", iResult);
        }
    }

    bool IsEmptyFile(char const * szPath)
    {
        plat::FileFacts_t Facts;
        return plat::PathGetFacts(szPath, Facts) && Facts.bRegular && Facts.nSize == 0;
    }

    // A cache that is read without a change of the tables: by its file object, or by one of the reader if the cache is
    // not registered.
    class CacheReader_c
    {
    public:
        explicit CacheReader_c(MediaRoot_c const & Root)
            : m_Root(Root)
            , m_Place(g_sFilesystemCacheName)
            , m_pFile(FileStream(g_sFilesystemCacheName))
            , m_bOwn(!m_pFile)
        {
            if (m_bOwn)
            {
                m_pFile = ZQ_NEW FileOnDisk_c;
                m_pFile->pPath = &m_Place.sFolder;
                m_pFile->sName = m_Place.sBare;
            }
        }
        ~CacheReader_c()
        {
            if (m_bOwn)
            {
                FileDiscard(m_pFile);
            }
        }
        CacheReader_c(CacheReader_c const &) = delete;
        CacheReader_c & operator=(CacheReader_c const &) = delete;

        // Notes the size and time of each folder before the first one that lacks its stamp. Returns why the cache can't
        // be used, as the end of a log line. Returns an empty text if all folders have their stamps.
        String_T<256> GetWhyNot();

    private:
        // Reads all records, and adds the texts of the folders to dRelatives. Returns whether stamps follow.
        static bool ReadRecords(Readable_c & Archive, Array_T<Folder_t, 64, 0> & dRelatives);

        MediaRoot_c const & m_Root;
        CachePlace_s m_Place;
        File_c * m_pFile;
        bool m_bOwn;   // whether the reader owns m_pFile
    };

    bool CacheReader_c::ReadRecords(Readable_c & Archive, Array_T<Folder_t, 64, 0> & dRelatives)
    {
        int nRecords = 0;
        Archive.Serialize(nRecords);
        for (CacheFolder_s Record; nRecords > 0 && !Archive.IsFailed(); --nRecords)
        {
            Record.Serialize(Archive);
            dRelatives.Add(Record.sRelative);
        }
        Archive.Serialize(nRecords);
        for (CacheFile_s Record; nRecords > 0 && !Archive.IsFailed(); --nRecords)
        {
            Record.Serialize(Archive);
        }
        std::uint32_t dwFollow = 0;
        Archive.Serialize(dwFollow);
        return !Archive.IsFailed() && dwFollow == CACHE_STAMPS_FOLLOW;
    }

    String_T<256> CacheReader_c::GetWhyNot()
    {
        if (IsEmptyFile(g_sFilesystemCacheName) || !FileOpen(m_pFile))
        {
            return FILE_UNREADABLE;
        }
        Readable_c Archive(m_pFile, FILESYSTEMCACHE_VERSION);   // its destructor closes the file
        Archive.Open();
        Array_T<Folder_t, 64, 0> dRelatives;
        if (!ReadRecords(Archive, dRelatives))
        {
            return "it has no whole list of times";
        }
        if (!dRelatives.Find("\\"))
        {
            return "it lacks the media root";
        }
        char const * const szOwn = m_Root.TextBelowRoot(m_Place.sFolder);
        if (!szOwn || !dRelatives.Find(szOwn))
        {
            m_Place.Identify();
        }
        for (Folder_t const & sRelative : dRelatives)
        {
            Folder_t sFolder;
            CacheStamp_s Stamp;
            Stamp.Serialize(Archive);
            if (Archive.IsFailed() || !m_Root.MakeAbsolute(sRelative, sFolder) || !HasStamp(sFolder, Stamp, m_Place))
            {
                return NewString("\"%s\" has changed", static_cast<char const *>(sRelative));
            }
        }
        return "";
    }

    // Registers and opens the cache, and returns its file. Returns null if it can't be read.
    File_c * OpenCache()
    {
        char const * const szCache = g_sFilesystemCacheName;
        bool const bKnown = FileExists(szCache);
        if (!FileAddOneFile(szCache))
        {
            return nullptr;
        }
        File_c * const pFile = FileOpen(szCache);
        if (!pFile)
        {
            LogEscaped("filesystem: can't read the cache \"%s\" a second time", szCache);
            if (!bKnown)
            {
                FileKill(FileStream(szCache));   // the scan that follows registers it
            }
        }
        return pFile;
    }
}

void FilesystemCacheInit(char const * sName)
{
    g_sFilesystemCacheName = sName;
}

void FilesystemCacheCheck(bool bCheck)
{
    g_bCheck = bCheck;
}

bool FilesystemCacheIsCurrent()
{
    MemCategoryScope_c const Category(mem::file);
    MediaRoot_c const Root;
    String_T<256> const sWhyNot = Root.IsUnknown()                   ? "there is no media root"
                                  : g_sFilesystemCacheName.IsEmpty() ? "there is none"
                                                                     : CacheReader_c(Root).GetWhyNot();
    if (!sWhyNot.IsEmpty())
    {
        LogEscaped(CACHE_NOT_CURRENT, static_cast<char const *>(sWhyNot));
    }
    return sWhyNot.IsEmpty();
}

void FileCacheNoteFolder(String_T<256> const & sFolder)
{
    if (g_bCheck)
    {
        FindOrNote(sFolder) = StampOf(sFolder);
    }
}

void FileCacheForgetFolders()
{
    g_dNoted.Reset();
}

bool FilesystemCacheLoad()
{
    MemCategoryScope_c const Category(mem::file);
    if (g_sFilesystemCacheName.IsEmpty())
    {
        return false;
    }
    MediaRoot_c const Root;
    if (Root.IsUnknown())
    {
        LogEscaped("filesystem: no media root for the cache \"%s\"", static_cast<char const *>(g_sFilesystemCacheName));
    }
    File_c * const pFile = Root.IsUnknown() ? nullptr : OpenCache();
    if (!pFile)
    {
        g_sFilesystemCacheName = "";
        return false;
    }
    CacheLoader_c(pFile, Root).Load();
    return true;
}

void FilesystemCacheSave(char const * sFile)
{
    ZQ_ASSERT(sFile);
    FileCacheTrySave(sFile);
}

bool FileCacheHasFolders()
{
    MediaRoot_c const Root;
    bool bFound = false;
    VisitAll(g_sPaths, [&](Folder_t const * pFolder) { bFound |= Root.TextBelowRoot(*pFolder) != nullptr; });
    return bFound;
}

bool FileCacheTrySave(char const * szFile)
{
    MemCategoryScope_c const Category(mem::file);
    MediaRoot_c const Root;
    if (!Root.IsUnknown() && !FileScanIsWhole(Root.Get()))
    {
        Log("filesystem: no cache is written, since a scan could not see all of the media");
        return false;
    }
    FoldedPath_c const sFile(szFile ? szFile : "");
    bool const bPlaced = szFile && !Root.IsUnknown() && !sFile.IsCut();
    Files_t dFiles;
    if (bPlaced)
    {
        File_c::Key_t const sOwn(sFile.GetBare());
        CollectFiles(Root, sOwn, dFiles);
        if (!LoadFindsRoom(dFiles, sOwn))
        {
            Log("filesystem: no cache is written, since a load would not find room for all files in the table");
            return false;
        }
    }
    bool const bWritten = bPlaced && WriteCache(szFile, Root, dFiles);
    if (!bWritten)
    {
        LogEscaped("filesystem: can't write the cache \"%s\"", szFile ? szFile : "");
    }
    return bWritten;
}
