// file_bench.cpp: finding, reading and scanning files, compared with other ways to do the same.
//
// The other ways are bare system calls, the C++ library, fts and PhysicsFS. All use one tree of 10,000 files in 500
// folders, and two files in its root. All reads come from the page cache.
#include "bench/bench_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <physfs.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{
    constexpr int FOLDERS = 500;
    constexpr int FILES_A_FOLDER = 20;
    constexpr int FOLDERS_A_GROUP = 25;
    constexpr int FILES = FOLDERS * FILES_A_FOLDER;
    constexpr int FILES_AND_BLOBS = FILES + 2;

    // The tree, below the system's temporary folder. Its destructor removes it.
    class Tree_c
    {
    public:
        Tree_c()
        {
            m_Root = fs::temp_directory_path() / ("zqcore_bench_" + std::to_string(getpid()));
            for (int iFolder = 0; iFolder < FOLDERS; ++iFolder)
            {
                fs::path const Folder = m_Root / FolderPath(iFolder);
                fs::create_directories(Folder);
                for (int iFile = 0; iFile < FILES_A_FOLDER; ++iFile)
                {
                    std::string const sName = FileName(iFolder * FILES_A_FOLDER + iFile);
                    std::ofstream(Folder / sName) << sName;
                }
            }
            WriteBlobs(m_Root);
            PHYSFS_init("file_bench");
            PHYSFS_mount(m_Root.c_str(), nullptr, 1);
        }

        ~Tree_c()
        {
            FileReset();
            PHYSFS_deinit();
            fs::remove_all(m_Root);
        }

        std::string Root() const { return m_Root.string(); }
        std::string BlobPath(std::int64_t nBytes) const { return (m_Root / BlobName(nBytes)).string(); }

        // Returns a file name as in a game.
        static std::string FileName(int iFile)
        {
            static constexpr char const * PLACES[] = { "harbour", "tower", "cellar", "forest", "mill", "bridge", "keep",
                "mine", "chapel", "market", "gate", "ruin", "quay", "barn", "crypt", "well" };
            static constexpr char const * THINGS[] = { "wall", "door", "lamp", "crate", "banner", "guard", "wolf",
                "roof", "stone", "barrel", "chair", "water", "grass", "smoke", "sword", "chest", "rope", "bell" };
            static constexpr char const * KINDS[] = { "_diffuse.dds", "_normal.dds", "_lod0.msh", "_lod1.msh",
                "_walk.anm", "_idle.anm", "_step.ogg", ".mat", ".lua" };
            auto const iPlace = static_cast<std::size_t>(iFile);
            std::size_t const iThing = iPlace / std::size(PLACES), iKind = iThing / std::size(THINGS);
            return std::string(PLACES[iPlace % std::size(PLACES)]) + '_' + THINGS[iThing % std::size(THINGS)]
                   + std::to_string(iKind / std::size(KINDS)) + KINDS[iKind % std::size(KINDS)];
        }

        // Returns a file's path below the root.
        static std::string Path(int iFile) { return FolderPath(iFile / FILES_A_FOLDER) + "/" + FileName(iFile); }

    private:
        static std::string FolderPath(int iFolder)
        {
            return "group" + std::to_string(iFolder / FOLDERS_A_GROUP) + "/folder" + std::to_string(iFolder);
        }

        fs::path m_Root;
    };

    // Makes the tree at the first call. Returns it.
    Tree_c const & MakeTree()
    {
        static Tree_c const s_Tree;
        return s_Tree;
    }

    // Registers all files of the tree, and no others.
    void FillTables()
    {
        FileReset();
        FileAddSearchPath(MakeTree().Root().c_str(), true, false);
    }

    // Looks for all files in turn, by sPrefix and their paths below the root.
    template <typename ASK>
    void Exists(benchmark::State & State, std::string const & sPrefix, ASK fnAsk)
    {
        FillTables();
        std::vector<std::string> dNames;
        for (int i = 0; i < FILES; ++i)
        {
            dNames.push_back(sPrefix + Tree_c::Path(i));
        }
        AskInTurn(State, dNames, fnAsk);
    }

    void ExistsOurs(benchmark::State & State)
    {
        // The library looks for the bare name: the folder Data, which the disk does not have, makes no difference.
        Exists(State, "Data/", [](char const * szName) { return FileExists(szName); });
    }
    void ExistsBareOurs(benchmark::State & State)
    {
        Exists(State, "", [](char const * szName) { return FileExists(std::strrchr(szName, '/') + 1); });
    }
    void ExistsFindByName(benchmark::State & State)
    {
        Exists(State, "",
            [](char const * szName) { return g_sFileObjects.FindByName(std::strrchr(szName, '/') + 1) != nullptr; });
    }
    void ExistsStat(benchmark::State & State)
    {
        Exists(State, MakeTree().Root() + "/",
            [](char const * szName)
            {
                struct stat Stat;
                return stat(szName, &Stat) == 0;
            });
    }
    void ExistsPhysfs(benchmark::State & State)
    {
        Exists(State, "", [](char const * szName) { return PHYSFS_exists(szName) != 0; });
    }

    // Reads a blob of State.range(0) bytes. fnRead(nBytes) returns the number of bytes read.
    template <typename READ>
    void ReadWhole(benchmark::State & State, READ fnRead)
    {
        FillTables();
        auto const nBytes = static_cast<std::size_t>(State.range(0));
        for (auto _ : State)
        {
            if (fnRead(nBytes) != nBytes)
            {
                State.SkipWithError("not read");
            }
        }
        State.SetBytesProcessed(State.iterations() * State.range(0));
    }

    void ReadWholeOurs(benchmark::State & State)
    {
        std::string const sName = BlobName(State.range(0));
        ReadWhole(State,
            [&sName](std::size_t)
            {
                File_c * const pFile = FileOpen(sName.c_str());
                benchmark::DoNotOptimize(pFile->pData);
                auto const nRead = static_cast<std::size_t>(pFile->iLength);
                FileClose(pFile);
                return nRead;
            });
    }
    void ReadWholeBare(benchmark::State & State)
    {
        std::string const sPath = MakeTree().BlobPath(State.range(0));
        ReadWhole(State,
            [&sPath](std::size_t)
            {
                int const iFile = open(sPath.c_str(), O_RDONLY | O_CLOEXEC);
                struct stat Stat;
                fstat(iFile, &Stat);
                auto const nBytes = static_cast<std::size_t>(Stat.st_size);
                void * const pData = std::malloc(nBytes);
                auto const nRead = static_cast<std::size_t>(read(iFile, pData, nBytes));
                benchmark::DoNotOptimize(pData);
                close(iFile);
                std::free(pData);
                return nRead;
            });
    }
    void ReadWholeIfstream(benchmark::State & State)
    {
        std::string const sPath = MakeTree().BlobPath(State.range(0));
        ReadWhole(State,
            [&sPath](std::size_t nBytes)
            {
                std::ifstream File(sPath, std::ios::binary);
                std::unique_ptr<char[]> const pData(new char[nBytes]);
                File.read(pData.get(), static_cast<std::streamsize>(nBytes));
                benchmark::DoNotOptimize(pData.get());
                return static_cast<std::size_t>(File.gcount());
            });
    }
    void ReadWholePhysfs(benchmark::State & State)
    {
        std::string const sName = BlobName(State.range(0));
        ReadWhole(State,
            [&sName](std::size_t)
            {
                PHYSFS_File * const pFile = PHYSFS_openRead(sName.c_str());
                auto const nBytes = static_cast<std::size_t>(PHYSFS_fileLength(pFile));
                void * const pData = std::malloc(nBytes);
                auto const nRead = static_cast<std::size_t>(PHYSFS_readBytes(pFile, pData, nBytes));
                benchmark::DoNotOptimize(pData);
                PHYSFS_close(pFile);
                std::free(pData);
                return nRead;
            });
    }

    // Reads size and times of all files. fnScan() returns the number of files. Every scan begins with the processor's
    // caches as filling and emptying the tables leave them. A game scans once, at its start, not in a loop that keeps
    // the system's tables hot.
    template <typename SCAN>
    void Scan(benchmark::State & State, SCAN fnScan)
    {
        FillTables();
        FileReset();
        for (auto _ : State)
        {
            int const nFiles = fnScan();
            State.PauseTiming();
            if (nFiles != FILES_AND_BLOBS)
            {
                State.SkipWithError("files were missed");
            }
            FillTables();
            FileReset();
            State.ResumeTiming();
        }
        State.SetItemsProcessed(State.iterations() * FILES_AND_BLOBS);
    }

    // Looks up one file, because counting the table of files would cost time.
    void ScanOurs(benchmark::State & State)
    {
        std::string const sRoot = MakeTree().Root();
        Scan(State,
            [&sRoot]
            {
                FileAddSearchPath(sRoot.c_str(), true, false);
                return FileExists(Tree_c::FileName(FILES - 1).c_str()) ? FILES_AND_BLOBS : 0;
            });
    }

    // Reads the size and times of the files in an open folder and below it, and closes the folder. Returns the number
    // of files.
    int ScanFolderBare(int iFolder)
    {
        int nFiles = 0;
        DIR * const pFolder = fdopendir(iFolder);
        while (dirent const * const pEntry = readdir(pFolder))
        {
            if (pEntry->d_type == DT_DIR)
            {
                if (pEntry->d_name[0] != '.')
                {
                    nFiles += ScanFolderBare(openat(iFolder, pEntry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
                }
                continue;
            }
            struct statx Stat;
            statx(iFolder, pEntry->d_name, AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_BTIME,
                &Stat);
            benchmark::DoNotOptimize(Stat);
            ++nFiles;
        }
        closedir(pFolder);
        return nFiles;
    }

    void ScanReaddirStatx(benchmark::State & State)
    {
        std::string const sRoot = MakeTree().Root();
        Scan(State, [&sRoot] { return ScanFolderBare(open(sRoot.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); });
    }

    void ScanFts(benchmark::State & State)
    {
        std::string sRoot = MakeTree().Root();
        Scan(State,
            [&sRoot]
            {
                char * dRoots[] = { sRoot.data(), nullptr };
                FTS * const pTree = fts_open(dRoots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr);
                int nFiles = 0;
                while (FTSENT const * const pEntry = fts_read(pTree))
                {
                    benchmark::DoNotOptimize(pEntry->fts_statp->st_size);
                    nFiles += pEntry->fts_info == FTS_F;
                }
                fts_close(pTree);
                return nFiles;
            });
    }

    void ScanFilesystem(benchmark::State & State)
    {
        std::string const sRoot = MakeTree().Root();
        Scan(State,
            [&sRoot]
            {
                int nFiles = 0;
                for (fs::directory_entry const & Entry : fs::recursive_directory_iterator(sRoot))
                {
                    if (Entry.is_regular_file())
                    {
                        benchmark::DoNotOptimize(Entry.file_size());
                        benchmark::DoNotOptimize(Entry.last_write_time());
                        ++nFiles;
                    }
                }
                return nFiles;
            });
    }

    int ScanFolderPhysfs(std::string const & sFolder)
    {
        int nFiles = 0;
        char ** const dNames = PHYSFS_enumerateFiles(sFolder.c_str());
        for (char ** ppName = dNames; *ppName; ++ppName)
        {
            std::string const sName = sFolder + *ppName;
            PHYSFS_Stat Stat;
            PHYSFS_stat(sName.c_str(), &Stat);
            benchmark::DoNotOptimize(Stat);
            nFiles += Stat.filetype == PHYSFS_FILETYPE_DIRECTORY ? ScanFolderPhysfs(sName + "/") : 1;
        }
        PHYSFS_freeList(dNames);
        return nFiles;
    }

    void ScanPhysfs(benchmark::State & State)
    {
        Scan(State, [] { return ScanFolderPhysfs(""); });
    }

    BENCHMARK(ExistsOurs)->Name("Exists/ours");
    BENCHMARK(ExistsBareOurs)->Name("Exists/ours_bare");
    BENCHMARK(ExistsFindByName)->Name("Exists/find_by_name");
    BENCHMARK(ExistsStat)->Name("Exists/stat");
    BENCHMARK(ExistsPhysfs)->Name("Exists/physfs");
    BENCHMARK(ReadWholeOurs)->Name("ReadWhole/ours")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(ReadWholeBare)->Name("ReadWhole/bare_malloc")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(ReadWholeIfstream)->Name("ReadWhole/ifstream")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(ReadWholePhysfs)->Name("ReadWhole/physfs")->Arg(SMALL_BLOB)->Arg(LARGE_BLOB);
    BENCHMARK(ScanOurs)->Name("Scan/ours")->Unit(benchmark::kMillisecond);
    BENCHMARK(ScanReaddirStatx)->Name("Scan/readdir_statx")->Unit(benchmark::kMillisecond);
    BENCHMARK(ScanFts)->Name("Scan/fts")->Unit(benchmark::kMillisecond);
    BENCHMARK(ScanFilesystem)->Name("Scan/std_filesystem")->Unit(benchmark::kMillisecond);
    BENCHMARK(ScanPhysfs)->Name("Scan/physfs")->Unit(benchmark::kMillisecond);
}
