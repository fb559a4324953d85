// zqtool cache: shows a file system cache, compares it with its tree, and writes one.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/cachefile.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/mediascan.h"
#include "tools/zqtool/output.h"
#include "tools/zqtool/terminal.h"
#include "tools/zqtool/text.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilecache.h"
#include "zqcore/cfilecache_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"
#include "zqcore/clog.h"
#include "zqcore/cserialize_internal.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

namespace fs = std::filesystem;

namespace
{
    struct Options_s
    {
        std::string sFile, sRoot, sBuild;
        MediaOptions_t Media;
        bool bList = false;
        bool bCheck = false;
        bool bAll = false;
        bool bJson = false;
    };

    // Differences between a cache and its tree.
    struct Comparison_t
    {
        std::string sRoot;                  // of the tree
        std::string sNotCurrent;            // why a start that compares the folders would scan; empty if it would not,
                                            // or if the cache has no times
        std::vector<std::string> dUnread;   // what the scan could not see
        std::vector<std::string> dMissing, dNew;   // paths that only the cache has; that only the tree has
        struct Change_s
        {
            std::string sPath;
            std::uint32_t nCached, nNow;   // bytes
        };
        std::vector<Change_s> dChanged;
        struct Move_s
        {
            std::string sPath, sNow;
        };
        std::vector<Move_s> dMoved;
        int nOtherTimes = 0;   // files that were created at another time

        bool IsEqual() const
        {
            return sNotCurrent.empty() && dUnread.empty() && dMissing.empty() && dNew.empty() && dChanged.empty()
                   && dMoved.empty();
        }
    };

    // Returns a relative path of the library with `/` as the separator, and without one at the start.
    std::string PathFromRelative(std::string sRelative)
    {
        std::replace(sRelative.begin(), sRelative.end(), '\\', '/');
        return sRelative.substr(sRelative.starts_with('/') ? 1 : 0);
    }

    // Returns a time of the library in UTC, to the second. Returns "unknown" for 0, and "after 9999" for a later year.
    std::string TimeText(plat::FileTime_t tTime)
    {
        constexpr std::int64_t END_OF_9999 = 253402300800;   // seconds from 1970
        auto const nSeconds =
            static_cast<std::int64_t>(tTime / plat::FILE_TIME_TICKS) - plat::FILE_TIME_SECONDS_TO_1970;
        if (tTime == 0 || nSeconds >= END_OF_9999)
        {
            return tTime == 0 ? "unknown" : "after 9999";
        }
        std::chrono::sys_seconds const Time{ std::chrono::seconds(nSeconds) };
        auto const Day = std::chrono::floor<std::chrono::days>(Time);
        std::chrono::year_month_day const Date(Day);
        std::chrono::hh_mm_ss const Clock(Time - Day);
        char szText[64];
        std::snprintf(szText, sizeof szText, "%04i-%02u-%02u %02i:%02i:%02i", static_cast<int>(Date.year()),
            static_cast<unsigned>(Date.month()), static_cast<unsigned>(Date.day()),
            static_cast<int>(Clock.hours().count()), static_cast<int>(Clock.minutes().count()),
            static_cast<int>(Clock.seconds().count()));
        return szText;
    }

    // Returns the sum of the lengths of a cache's files.
    std::uint64_t BytesOf(CacheContents_t const & Contents)
    {
        std::uint64_t nBytes = 0;
        for (CacheFile_s const & File : Contents.dFiles)
        {
            nBytes += static_cast<std::uint32_t>(File.iLength);
        }
        return nBytes;
    }

    // Returns the files of a cache by their paths in the form of PathFromRelative.
    std::map<std::string, CacheFile_s const *> FilesByPath(CacheContents_t const & Contents)
    {
        std::map<std::string, CacheFile_s const *> dFiles;
        for (CacheFile_s const & File : Contents.dFiles)
        {
            dFiles[PathFromRelative(Contents.PathOf(File))] = &File;
        }
        return dFiles;
    }

    // Sets sRoot to the root of the tree and sFile to the cache's path. If the cache lies directly in the root, its
    // path begins with the root's text, because the library knows the folder of a cache by its text.
    void FindPaths(Options_s const & Options, std::string & sRoot, std::string & sFile)
    {
        fs::path const File(Options.sFile);
        fs::path const Folder = File.has_parent_path() ? File.parent_path() : ".";
        sRoot = Options.sBuild.empty() ? Options.sRoot : Options.sBuild;
        sRoot = sRoot.empty() ? Folder.native() : sRoot;
        while (sRoot.size() > 1 && sRoot.ends_with('/'))
        {
            sRoot.pop_back();
        }
        std::error_code Ignored;
        sFile = fs::equivalent(Folder, sRoot, Ignored) ? (fs::path(sRoot) / File.filename()).native() : Options.sFile;
    }

    // Scans the root of a tree as ScanMedia does. Returns false, and prints why, if it is a file.
    bool ScanRoot(std::string const & sRoot, MediaOptions_t const & Media, MediaScan_t & Scan)
    {
        std::error_code Ignored;
        if (fs::exists(sRoot, Ignored) && !fs::is_directory(sRoot, Ignored))
        {
            PrintProblem(sRoot, "it is no folder");
            return false;
        }
        return ScanMedia({ sRoot }, Media, Scan);
    }

    std::string g_sNotCurrent;   // what FilesystemCacheIsCurrent logged as the reason

    void NoteNotCurrent(char const * szLine)
    {
        constexpr std::string_view START(CACHE_NOT_CURRENT, sizeof CACHE_NOT_CURRENT - sizeof "%s");
        std::string_view const sLine(szLine);
        g_sNotCurrent = sLine.starts_with(START) ? sLine.substr(START.size()) : g_sNotCurrent;
    }

    // Contents of the tables below the media root.
    struct Table_s
    {
        std::map<std::string, File_c const *> dFiles;   // by key
        std::set<std::string> dFolders;                 // relative
    };

    // Removes from the library's tables what a cache leaves out. Returns the rest without the cache itself and without
    // files that have no folder.
    Table_s ReadTables(std::string const & sRoot, std::string const & sFile)
    {
        Table_s Table;
        FileCacheDropOthers(String_T<256>(sRoot.c_str()));
        File_c::Key_t const sOwn(FoldedText(fs::path(sFile).filename().native()).c_str());
        for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
        {
            if (pSlot->pObject->sName != sOwn && pSlot->pObject->pPath)
            {
                Table.dFiles[std::string(pSlot->pObject->sName)] = pSlot->pObject;
            }
        }
        for (auto * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
        {
            Table.dFolders.insert(std::string(*pSlot->pName).substr(sRoot.size()));
        }
        return Table;
    }

    // Adds the folders that only the cache has, and those that only the tree has.
    void CompareFolders(CacheContents_t const & Contents, std::set<std::string> dFolders, Comparison_t & Comparison)
    {
        for (CacheFolder_s const & Folder : Contents.dFolders)
        {
            if (dFolders.erase(std::string(Folder.sRelative)) == 0)
            {
                Comparison.dMissing.push_back(PathFromRelative(std::string(Folder.sRelative)));
            }
        }
        std::transform(dFolders.begin(), dFolders.end(), std::back_inserter(Comparison.dNew), PathFromRelative);
    }

    // Adds the files that differ. The paths of the tables begin with the root, which has nRoot characters.
    void CompareFiles(CacheContents_t const & Contents, Table_s Table, std::size_t nRoot, Comparison_t & Comparison)
    {
        auto const PathNow = [nRoot](File_c const & File)
        { return PathFromRelative(std::string(static_cast<char const *>(FileLocation_c(File))).substr(nRoot)); };
        for (auto const & [sPath, pCached] : FilesByPath(Contents))
        {
            auto const itFile = Table.dFiles.find(std::string(pCached->sName));
            if (itFile == Table.dFiles.end())
            {
                Comparison.dMissing.push_back(sPath);
                continue;
            }
            File_c const & File = *itFile->second;
            if (PathNow(File) != sPath)
            {
                Comparison.dMoved.push_back({ sPath, PathNow(File) });
            }
            if (File.iLength != pCached->iLength)
            {
                Comparison.dChanged.push_back({ PathNow(File), static_cast<std::uint32_t>(pCached->iLength),
                    static_cast<std::uint32_t>(File.iLength) });
            }
            Comparison.nOtherTimes += File.ftCreationTime != pCached->ftCreationTime ? 1 : 0;
            Table.dFiles.erase(itFile);
        }
        for (auto const & [sKey, pFile] : Table.dFiles)
        {
            Comparison.dNew.push_back(PathNow(*pFile));
        }
    }

    // Returns what a scan could not see, which makes its result useless for a cache.
    std::vector<std::string> UnreadOf(MediaScan_t const & Scan)
    {
        std::vector<std::string> dUnread;
        for (MediaFinding_t const & Finding : Scan.dFindings)
        {
            if (!Scan.bWhole && Finding.bMissed)
            {
                dUnread.push_back(Finding.sPath + ": " + Finding.sWhy);
            }
        }
        return dUnread;
    }

    // Compares a cache with its tree. Returns false, with a message, if the tree can't be scanned.
    bool Compare(Options_s const & Options, CacheContents_t const & Contents, Comparison_t & Comparison)
    {
        std::string sRoot, sFile;
        FindPaths(Options, sRoot, sFile);
        Comparison.sRoot = sRoot;
        SetPQXMediaPath(sRoot.c_str());
        if (Contents.bTimes)
        {
            LogAddCallback(NoteNotCurrent);
            FilesystemCacheInit(sFile.c_str());
            FilesystemCacheIsCurrent();
            Comparison.sNotCurrent = g_sNotCurrent;
        }
        MediaOptions_t Media = Options.Media;
        Media.bRelative = Media.bRelative || Contents.IsRelative();
        MediaScan_t Scan;
        if (!ScanRoot(sRoot, Media, Scan))
        {
            return false;
        }
        Comparison.dUnread = UnreadOf(Scan);
        Table_s Table = ReadTables(sRoot, sFile);
        CompareFolders(Contents, std::move(Table.dFolders), Comparison);
        CompareFiles(Contents, std::move(Table), sRoot.size(), Comparison);
        std::sort(Comparison.dMissing.begin(), Comparison.dMissing.end());
        std::sort(Comparison.dNew.begin(), Comparison.dNew.end());
        return true;
    }

    void PrintFacts(Options_s const & Options, CacheContents_t const & Contents)
    {
        std::printf("%s: version %s, %s, %s of %s, %s%s\n", Painted(Options.sFile, Colour_e::Title).c_str(),
            ArchiveVersionText(Contents.dwVersion).c_str(), Counted(Contents.dFolders.size(), "folder").c_str(),
            Counted(Contents.dFiles.size(), "file").c_str(), Counted(BytesOf(Contents), "byte").c_str(),
            Contents.IsRelative() ? "relative names, " : "",
            Contents.bTimes ? "with the times of its folders" : "without the times of its folders");
        if (Contents.nLeft > 0)
        {
            std::printf("not read: the last %s\n", Counted(static_cast<std::uint64_t>(Contents.nLeft), "byte").c_str());
        }
    }

    void PrintList(CacheContents_t const & Contents)
    {
        std::printf("%12s  %-19s  file\n", "bytes", "created, UTC");
        for (auto const & [sPath, pFile] : FilesByPath(Contents))
        {
            std::printf("%12u  %-19s  %s\n", static_cast<unsigned>(pFile->iLength),
                TimeText(pFile->ftCreationTime).c_str(), Printable(sPath).c_str());
        }
    }

    // Prints the texts of one kind. Without bAll, prints at most MAX_LINES of them and the number of the others.
    void PrintRows(char const * szWhat, std::vector<std::string> const & dTexts, bool bAll)
    {
        std::size_t const nShown = bAll ? dTexts.size() : std::min(dTexts.size(), MAX_LINES);
        for (std::size_t i = 0; i < nShown; ++i)
        {
            std::printf("%-8s  %s\n", szWhat, Printable(dTexts[i]).c_str());
        }
        if (nShown < dTexts.size())
        {
            std::printf("%-8s  and %zu more, which --all shows\n", szWhat, dTexts.size() - nShown);
        }
    }

    void PrintComparison(Comparison_t const & Comparison, bool bAll)
    {
        std::vector<std::string> dChanged, dMoved;
        for (auto const & [sPath, nCached, nNow] : Comparison.dChanged)
        {
            dChanged.push_back(sPath + ": " + Counted(nCached, "byte") + ", now " + std::to_string(nNow));
        }
        for (auto const & [sPath, sNow] : Comparison.dMoved)
        {
            dMoved.push_back(std::string(sPath).append(": now ").append(sNow));
        }
        std::printf("compared with %s\n", Printable(Comparison.sRoot).c_str());
        PrintRows("unread", Comparison.dUnread, bAll);
        PrintRows("missing", Comparison.dMissing, bAll);
        PrintRows("new", Comparison.dNew, bAll);
        PrintRows("changed", dChanged, bAll);
        PrintRows("moved", dMoved, bAll);
        if (!Comparison.sNotCurrent.empty())
        {
            PrintRows("outdated", { "a start that compares the folders would scan: " + Comparison.sNotCurrent }, true);
        }
        if (Comparison.nOtherTimes > 0)
        {
            std::printf("%s created at another time: copied or replaced\n",
                Counted(static_cast<std::uint64_t>(Comparison.nOtherTimes), "file").c_str());
        }
        if (Comparison.IsEqual())
        {
            std::puts("it fits its tree");
        }
    }

    Json_t JsonOf(Comparison_t const & Comparison)
    {
        Json_t Changed = Json_t::array(), Moved = Json_t::array();
        for (auto const & [sPath, nCached, nNow] : Comparison.dChanged)
        {
            Changed.push_back({ { "path", sPath }, { "cached_bytes", nCached }, { "bytes", nNow } });
        }
        for (auto const & [sPath, sNow] : Comparison.dMoved)
        {
            Moved.push_back({ { "cached_path", sPath }, { "path", sNow } });
        }
        return { { "root", Comparison.sRoot }, { "fits", Comparison.IsEqual() }, { "unread", Comparison.dUnread },
            { "missing", Comparison.dMissing }, { "new", Comparison.dNew }, { "changed", std::move(Changed) },
            { "moved", std::move(Moved) }, { "other_times", Comparison.nOtherTimes },
            { "outdated", Comparison.sNotCurrent.empty() ? Json_t() : Json_t(Comparison.sNotCurrent) } };
    }

    void PrintCacheJson(Options_s const & Options, CacheContents_t const & Contents, Comparison_t const * pComparison)
    {
        Json_t Json = { { "file", Options.sFile }, { "size", Contents.nSize },
            { "version", ArchiveVersionText(Contents.dwVersion) }, { "folders", Contents.dFolders.size() },
            { "files", Contents.dFiles.size() }, { "bytes", BytesOf(Contents) }, { "relative", Contents.IsRelative() },
            { "folder_times", Contents.bTimes }, { "left_bytes", Contents.nLeft }, { "damage", nullptr } };
        if (!Contents.IsSound())
        {
            Json["damage"] = { { "byte", Contents.iDamage }, { "why", Contents.sDamage } };
        }
        if (pComparison)
        {
            Json["check"] = JsonOf(*pComparison);
        }
        if (Options.bList)
        {
            Json_t & List = Json["list"] = Json_t::array();
            for (auto const & [sPath, pFile] : FilesByPath(Contents))
            {
                List.push_back({ { "path", sPath }, { "name", std::string(pFile->sName) },
                    { "bytes", static_cast<std::uint32_t>(pFile->iLength) },
                    { "created", TimeText(pFile->ftCreationTime) } });
            }
        }
        PrintJson(Json);
    }

    int Fail(std::string const & sFile, std::string const & sWhy)
    {
        PrintProblem(sFile, sWhy);
        return EXIT_FOUND;
    }

    int Show(Options_s const & Options)
    {
        CacheContents_t Contents;
        std::string sWhyNot;
        if (!ReadCacheFile(Options.sFile, Contents, sWhyNot))
        {
            return Fail(Options.sFile, sWhyNot);
        }
        bool const bCompare = Options.bCheck && Contents.IsSound();
        Comparison_t Comparison;
        if (bCompare && !Compare(Options, Contents, Comparison))
        {
            return EXIT_FOUND;
        }
        if (Options.bJson)
        {
            PrintCacheJson(Options, Contents, bCompare ? &Comparison : nullptr);
        }
        else
        {
            if (Contents.dwVersion != 0)
            {
                PrintFacts(Options, Contents);
            }
            if (Options.bList)
            {
                PrintList(Contents);
            }
            if (bCompare)
            {
                PrintComparison(Comparison, Options.bAll);
            }
        }
        if (!Contents.IsSound())
        {
            return Fail(Options.sFile, "damaged at byte " + std::to_string(Contents.iDamage) + ": " + Contents.sDamage);
        }
        return Comparison.IsEqual() ? EXIT_DONE : EXIT_FOUND;
    }

    // Returns whether a cache may replace a file. It may replace these:
    // - a file that is absent
    // - a file that is empty
    // - a file that ReadCacheFile reads as a cache of this major version, damaged or not
    bool MayReplace(std::string const & sFile)
    {
        std::error_code Error;
        if (!fs::exists(sFile, Error) || (fs::is_regular_file(sFile, Error) && fs::file_size(sFile, Error) == 0))
        {
            return !Error;
        }
        CacheContents_t Contents;
        std::string sIgnored;
        return ReadCacheFile(sFile, Contents, sIgnored) && IsCacheVersion(Contents.dwVersion);
    }

    int Build(Options_s const & Options)
    {
        std::string sRoot, sFile;
        FindPaths(Options, sRoot, sFile);
        if (!MayReplace(sFile))
        {
            return Fail(Options.sFile, "it is no cache of this version that can be read, so it is not replaced");
        }
        FilesystemCacheCheck(true);
        MediaScan_t Scan;
        if (!ScanRoot(sRoot, Options.Media, Scan))
        {
            return EXIT_FOUND;
        }
        std::vector<std::string> const dUnread = UnreadOf(Scan);
        if (!Scan.bWhole)
        {
            for (std::size_t i = 0; i < std::min(dUnread.size(), MAX_LINES); ++i)
            {
                std::fprintf(stderr, "%s\n", Printable(dUnread[i]).c_str());
            }
            return Fail(Options.sFile, "no cache is written, since the scan missed " + std::to_string(dUnread.size())
                                           + (dUnread.size() == 1 ? " file or folder" : " files or folders")
                                           + ": zqtool tree lists them");
        }
        FileCacheDropOthers(String_T<256>(sRoot.c_str()));
        if (!FileCacheTrySave(sFile.c_str()))
        {
            return Fail(Options.sFile, OUTPUT_UNWRITABLE);
        }
        if (int const nDuplicates = Options.bJson ? 0 : Scan.CountDuplicates())
        {
            std::printf("left out: %s; see zqtool tree\n",
                Counted(static_cast<std::uint64_t>(nDuplicates), "duplicate").c_str());
        }
        return Show(Options);
    }
}

CommandRun_t PrepareCache(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments.AddText("FILE", "", pOptions->sFile, "cache, such as media/filesystemcache.bin").SetRequired();
    Arguments.AddFlag("--list", pOptions->bList, "list its files");
    Argument_c const Check = Arguments.AddFlag("--check", pOptions->bCheck, "compare it with its tree");
    Arguments.AddFlag("--all", pOptions->bAll, "show every line of the comparison").SetNeeds(Check);
    Arguments.AddText("--root", "FOLDER", pOptions->sRoot, "its tree; default: the folder that it lies in")
        .SetNeeds(Check);
    Arguments.AddText("--build", "FOLDER", pOptions->sBuild, "scan this folder and write the cache FILE")
        .SetExcludes(Check);
    AddMediaOptions(Arguments, pOptions->Media);
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool cache --build media media/filesystemcache.bin");
    return [pOptions] { return pOptions->sBuild.empty() ? Show(*pOptions) : Build(*pOptions); };
}
