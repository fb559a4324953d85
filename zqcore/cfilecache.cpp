#include "zqcore/cfilecache.h"

#include "zqcore/ccrc.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"
#include "zqcore/cserialize.h"

String_T<256> g_sFilesystemCacheName;

namespace
{
    using Folder_t = String_T<256>;

    /// The media root in the form of g_sPaths, without a separator at its end.
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

        /// The folder of a relative text. False if it is too long; it is cut then.
        bool Absolute(Folder_t const & sRelative, Folder_t & sFolder) const
        {
            sFolder = m_sRoot + sRelative;
            return m_nLength + sRelative.Length() < Folder_t::Capacity();
        }

        /// What a folder's text has behind the root, from the separator on; null for a folder elsewhere.
        char const * Relative(Folder_t const & sFolder) const
        {
            bool const bBelow = sFolder.Begins(m_sRoot) && sFolder[m_nLength] == '\\';
            return bBelow ? static_cast<char const *>(sFolder) + m_nLength : nullptr;
        }

    private:
        Folder_t m_sRoot;
        int m_nLength;
    };

    std::uint32_t IndexOf(char const * szRelative)
    {
        return GetCrc32Polynomial(szRelative, static_cast<int>(std::strlen(szRelative)));
    }

    struct FolderRecord_s
    {
        std::uint32_t nIndex = 0;
        Folder_t sRelative;

        void Serialize(Serializeable_c & Archive)
        {
            Archive.Serialize(nIndex);
            Archive.SerializeString(sRelative);
        }
    };

    struct FileRecord_s
    {
        std::uint32_t nIndex = 0;
        plat::FileTime_t ftCreationTime = 0;
        int iLength = 0;
        File_c::Key_t sName;

        void Serialize(Serializeable_c & Archive)
        {
            Archive.Serialize(nIndex).Serialize(ftCreationTime).Serialize(iLength);
            Archive.SerializeString(sName);
        }
    };

    /// Calls Do with each object of a table, in table order. Do must not change the table.
    template <typename TABLE, typename DO>
    void ForEach(TABLE & Table, DO Do)
    {
        for (auto * pSlot = Table.First(); pSlot; pSlot = Table.Next(pSlot))
        {
            Do(pSlot->pObject);
        }
    }

    void SaveFolders(Serializeable_c & Archive, MediaRoot_c const & Root)
    {
        Array_T<char const *, 1024, 0> dRelatives;
        ForEach(g_sPaths,
            [&](Folder_t const * pFolder)
            {
                if (char const * const szRelative = Root.Relative(*pFolder))
                {
                    dRelatives.Add(szRelative);
                }
            });
        int nPaths = dRelatives.GetLength();
        Archive.Serialize(nPaths);
        for (char const * szRelative : dRelatives)
        {
            FolderRecord_s{ IndexOf(szRelative), szRelative }.Serialize(Archive);
        }
    }

    /// Whether a load could place the file: its folder is in the table, and no other object hides it there.
    bool CanBePlaced(File_c const & File)
    {
        return g_sPaths.FindByName(*File.pPath) && g_sFileObjects.FindByName(File.sName) == &File;
    }

    void SaveFiles(Serializeable_c & Archive, MediaRoot_c const & Root, char const * szOwn)
    {
        Array_T<File_c const *, 1024, 0> dFiles;
        ForEach(g_sFileObjects,
            [&](File_c const * pFile)
            {
                if (pFile->pPath && pFile->sName != szOwn && Root.Relative(*pFile->pPath) && CanBePlaced(*pFile))
                {
                    dFiles.Add(pFile);
                }
            });
        int nFiles = dFiles.GetLength();
        Archive.Serialize(nFiles);
        for (File_c const * pFile : dFiles)
        {
            std::uint32_t const nIndex = IndexOf(Root.Relative(*pFile->pPath));
            FileRecord_s{ nIndex, pFile->ftCreationTime, FileLength(*pFile), pFile->sName }.Serialize(Archive);
        }
    }

    /// Writes a whole cache or nothing; false on failure.
    bool WriteCache(char const * szFile, MediaRoot_c const & Root)
    {
        FileReplacement_c Replacement(szFile);
        BufferedWriteable_c Archive(Replacement.GetBeside(), FILESYSTEMCACHE_VERSION);
        Archive.Open();
        SaveFolders(Archive, Root);
        SaveFiles(Archive, Root, File_c::Key_t(FoldedPath_c(szFile).GetBare()));
        return Archive.Close() && !Archive.IsFailed() && Replacement.Commit();
    }

    /// Enters a copy in g_sPaths; its entry there. Null, with a log line, if the table is full.
    Folder_t const * AddFolder(Folder_t const & sFolder)
    {
        auto * const pFolder = ZQ_NEW Folder_t(sFolder);
        if (g_sPaths.Add(pFolder, pFolder) == HASH_ADDED)
        {
            return pFolder;
        }
        Log("Global path hash addition error...\n%s\n", static_cast<char const *>(sFolder));
        delete pFolder;
        return g_sPaths.FindByName(sFolder);
    }

    /// The files of before a load. Empties g_sPaths, but keeps the folders' texts as long as it lives; at its end the
    /// files get entries of the new table with the same texts. The folder of the cache itself is no folder of media: it
    /// comes back into the table only with other files.
    class EarlierFiles_c
    {
    public:
        explicit EarlierFiles_c(File_c * pCache)
            : m_pCache(pCache)
        {
            ForEach(g_sFileObjects,
                [this](File_c * pFile)
                {
                    if (pFile->pPath && pFile != m_pCache)
                    {
                        m_dFiles.Add(pFile);
                    }
                });
            ForEach(g_sPaths, [this](Folder_t * pFolder) { m_dFolders.Add(pFolder); });
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
                pFolder == m_pCache->pPath ? FileKeepFolder(pFolder) : delete pFolder;
            }
        }

        EarlierFiles_c(EarlierFiles_c const &) = delete;
        EarlierFiles_c & operator=(EarlierFiles_c const &) = delete;

        /// Whether a file of this name and folder is among them.
        bool Has(File_c const & File)
        {
            File_c * const pEarlier = g_sFileObjects.FindByName(File.sName);
            return pEarlier && m_dFiles.Find(pEarlier) && File.pPath && *pEarlier->pPath == *File.pPath;
        }

    private:
        File_c * m_pCache;
        Array_T<File_c *, 64, 0> m_dFiles;
        Array_T<Folder_t *, 64, 0> m_dFolders;
    };

    /// One load of an open cache.
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
            Folder_t const * pPath = nullptr;   // null if g_sPaths has no room for it
            bool bTooLong = false;
        };

        int LoadCount();
        void LoadFolder();
        void LoadFile();
        void Refuse(File_c * pFile, int iResult);
        void RequireIntact(bool bIntact, char const * szWhat) const;

        EarlierFiles_c m_Earlier;
        IndexHash_T<Folder_s, 4096, 117> m_Folders;
        Readable_c m_Archive;
        MediaRoot_c const & m_Root;
    };

    void CacheLoader_c::RequireIntact(bool bIntact, char const * szWhat) const
    {
        if (m_Archive.IsFailed() || !bIntact) [[unlikely]]
        {
            Abort("File system cache '%s' is damaged at byte %i: %s\nDelete it to have the media scanned.",
                static_cast<char const *>(g_sFilesystemCacheName), m_Archive.GetPosition(), szWhat);
        }
    }

    void CacheLoader_c::Load()
    {
        m_Archive.Open();   // a newer minor version may have more to say after the records
        for (int nPaths = LoadCount(); nPaths > 0; --nPaths)
        {
            LoadFolder();
        }
        for (int nFiles = LoadCount(); nFiles > 0; --nFiles)
        {
            LoadFile();
        }
        m_Archive.Close();
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
        FolderRecord_s Record;
        Record.Serialize(m_Archive);
        RequireIntact(true, "no whole folder record");
        bool const bSound = Record.nIndex == IndexOf(Record.sRelative);
        ZQ_ASSERT_TEXT(bSound, "nIndex == GetCrc32Polynomial ( pPath->GetDataPtr (), pPath->Length () )");
        RequireIntact(bSound && Record.sRelative[0] == '\\' && Record.sRelative.Ends("\\"), "not the text of a folder");

        Folder_t sFolder;
        bool const bTooLong = !m_Root.Absolute(Record.sRelative, sFolder);
        switch (int const iResult = m_Folders.Add(Folder_s{}, Record.nIndex))
        {
        case HASH_ADDED:
            break;
        case HASH_PRESENT:
            Abort("Path duplicated  '%s'\n", static_cast<char const *>(sFolder));
        case HASH_FULL:
            Abort("Path hash is small");
        default:
            Abort("Unknown path hash error: %i", iResult);
        }
        if (bTooLong)
        {
            Log("filesystem: skipping \"%s\", its path is too long", static_cast<char const *>(sFolder));
        }
        *m_Folders.Find(Record.nIndex) = Folder_s{ bTooLong ? nullptr : AddFolder(sFolder), bTooLong };
    }

    void CacheLoader_c::LoadFile()
    {
        FileRecord_s Record;
        Record.Serialize(m_Archive);
        RequireIntact(!Record.sName.IsEmpty(), "no whole file record");
        Folder_s const * const pFolder = m_Folders.Find(Record.nIndex);
        if (!pFolder)
        {
            Abort("Can't assotiate index 0x%X of %s with any path\n", Record.nIndex,
                static_cast<char const *>(Record.sName));
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

    /// Destroys a file that the table did not take. Returns if that is because the very same one is there from before.
    ZQ_COLD void CacheLoader_c::Refuse(File_c * pFile, int iResult)
    {
        bool const bKnown = iResult == HASH_PRESENT && m_Earlier.Has(*pFile);
        File_c::Key_t const sName = pFile->sName;
        pFile->sName = "";   // the key is another object's
        delete pFile;
        if (bKnown)
        {
            return;
        }
        switch (iResult)
        {
        case HASH_PRESENT:
            Abort("File duplicated: %s", static_cast<char const *>(sName));
        case HASH_FULL:
            Abort("File hash is small");
        default:
            Abort("Unknown file hash error: %i", iResult);
        }
    }

    /// Registers and opens the cache; null if it can't be read.
    File_c * OpenCache()
    {
        if (!FileAddOneFile(g_sFilesystemCacheName))
        {
            return nullptr;
        }
        File_c * const pFile = FileOpen(g_sFilesystemCacheName);
        ZQ_ASSERT(pFile);
        return pFile;
    }
}

void FilesystemCacheInit(char const * sName)
{
    g_sFilesystemCacheName = sName;
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
        Log("filesystem: no media root for the cache \"%s\"", static_cast<char const *>(g_sFilesystemCacheName));
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
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sFile);
    MediaRoot_c const Root;
    bool const bPlaced = sFile && !Root.IsUnknown() && !FoldedPath_c(sFile).IsCut();
    if (!bPlaced || !WriteCache(sFile, Root))
    {
        Log("filesystem: can't write the cache \"%s\"", sFile ? sFile : "");
    }
}
