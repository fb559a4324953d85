#include "tools/zqtool/mediascan.h"

#include "platform/files.h"
#include "platform/folding.h"
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/parse.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>

namespace fs = std::filesystem;

namespace
{
    constexpr MediaKind_t DUPLICATE = { "duplicate", "duplicates", "a bare name opens the file found first", true };
    constexpr MediaKind_t CASE = { "case", "names that differ in case only", "", true };
    constexpr MediaKind_t CUT_NAME = { "cut_name", "names that are cut", "such a file can't be opened", true };
    constexpr MediaKind_t TOO_LONG = { "too_long", "paths that are too long", "not entered", true };
    constexpr MediaKind_t BAD_NAME = { "bad_name", "names that no path leads to", "not entered", true };
    constexpr MediaKind_t EMPTY = { "empty", "empty files", "opening one fails an assertion", true };
    constexpr MediaKind_t TOO_LARGE = { "too_large", "files of 2 GiB or more", "they can't be opened", true, true };
    constexpr MediaKind_t NO_ROOM = { "no_room", "more than the tables hold", "not entered", true };
    constexpr MediaKind_t UNREADABLE = { "unreadable", "not readable", "", true };
    constexpr MediaKind_t MISSING = { "missing_target", "links to nothing", "not entered", true };
    constexpr MediaKind_t SPECIAL = { "special", "pipes, sockets and devices", "not entered", true };
    constexpr MediaKind_t ARCHIVE = { "archive", "entries of archives", "not entered", true };
    constexpr MediaKind_t ENTERED = { "link", "folders that the scan was in already", "", false };
    constexpr MediaKind_t CONFIGURATION = { "configuration", "hidden by the configuration", "", false };
    constexpr MediaKind_t SPLIT = { "split", "hidden by the split", "", false };
    constexpr MediaKind_t EXCLUDED = { "excluded", "excluded by name", "", false };
    constexpr MediaKind_t UNFINISHED = { "unfinished", "files of unfinished saves", "", false };
    constexpr MediaKind_t OVER = { "over", "hidden by an archive", "", false };

    // All kinds, in the order of the findings.
    constexpr MediaKind_t const * KINDS[] = { &DUPLICATE, &CASE, &CUT_NAME, &TOO_LONG, &BAD_NAME, &EMPTY, &TOO_LARGE,
        &NO_ROOM, &UNREADABLE, &MISSING, &SPECIAL, &ARCHIVE, &ENTERED, &CONFIGURATION, &SPLIT, &EXCLUDED, &UNFINISHED,
        &OVER };

    // Kinds of findings by FileSkip_e.
    constexpr MediaKind_t const * KIND_OF_SKIP[] = { &DUPLICATE, &NO_ROOM, &CUT_NAME, &TOO_LARGE, &TOO_LONG, &TOO_LONG,
        &CASE, &BAD_NAME, &BAD_NAME, &BAD_NAME, &SPECIAL, &UNREADABLE, &UNREADABLE, &ENTERED, &ENTERED, &CONFIGURATION,
        &SPLIT, &EXCLUDED, &UNFINISHED, &ARCHIVE };
    static_assert(std::size(KIND_OF_SKIP) == static_cast<std::size_t>(FileSkip_e::InArchive) + 1);

    // One report of a scan, with paths as the scan has them.
    struct Skip_s
    {
        FileSkip_e eWhy;
        std::string sFolder, sName, sWhy, sFirst;
    };
    std::vector<Skip_s> g_dSkips;

    // Returns the path of a file with a folder, otherwise its key. Both have the form of the tables. Returns what
    // GetFullPath returns if an archive holds the file.
    std::string LocationOf(File_c const & File)
    {
        return File.pPath ? static_cast<char const *>(FileLocation_c(File)) : File.GetFullPath().CStr();
    }

    void NoteSkip(FileSkip_t Skip)
    {
        g_dSkips.push_back(
            { Skip.eWhy, Skip.szFolder, Skip.szName, Skip.szWhy, Skip.pFirst ? LocationOf(*Skip.pFirst) : "" });
    }

    // Entries of the disk, in the order of the paths of the tables. The walk follows no links. It does not enter
    // folders whose path has more than MAX_FOLDER bytes: no scan could enter them.
    class Disk_c
    {
    public:
        explicit Disk_c(MediaScan_t & Scan)
            : m_Scan(Scan)
        {}

        void Walk(std::string const & sRoot)
        {
            std::error_code Error;
            fs::recursive_directory_iterator itEntry(sRoot, fs::directory_options::skip_permission_denied, Error);
            for (; !Error && itEntry != fs::recursive_directory_iterator(); itEntry.increment(Error))
            {
                std::error_code Ignored;
                fs::file_type const eType = itEntry->symlink_status(Ignored).type();
                std::string const & sPath = itEntry->path().native();
                m_Scan.dDisk.push_back({ FoldedText(sPath), sPath, eType == fs::file_type::directory });
                if (sPath.size() > MAX_FOLDER)
                {
                    itEntry.disable_recursion_pending();
                }
                if (eType == fs::file_type::symlink)
                {
                    NoteLink(sPath);
                }
            }
        }

        void Sort()
        {
            std::sort(m_Scan.dDisk.begin(), m_Scan.dDisk.end(),
                [](DiskEntry_t const & Left, DiskEntry_t const & Right)
                { return std::tie(Left.sFolded, Left.sPath) < std::tie(Right.sFolded, Right.sPath); });
        }

    private:
        static constexpr std::size_t MAX_FOLDER = 512;

        // Adds a finding for a link to nothing, if the scan was in its folder.
        void NoteLink(std::string const & sPath)
        {
            std::error_code Error;
            fs::file_type const eType = fs::status(sPath, Error).type();
            std::string const sFolded = FoldedText(sPath);
            std::string const sFolder = sFolded.substr(0, sFolded.size() - FileNameOf(sFolded).size());
            if ((eType == fs::file_type::not_found || Error == std::errc::too_many_symbolic_link_levels)
                && sFolder.size() <= FOLDED_LENGTH && g_sPaths.FindByName(sFolder.c_str()))
            {
                m_Scan.dFindings.push_back({ &MISSING, sPath, "it leads nowhere", "", 0, 0, false });
            }
        }

        MediaScan_t & m_Scan;
    };

    // Returns the first entry of the disk whose folded path is not before a text, or the end.
    std::vector<DiskEntry_t>::const_iterator FirstFrom(MediaScan_t const & Scan, std::string const & sFolded)
    {
        return std::lower_bound(Scan.dDisk.begin(), Scan.dDisk.end(), sFolded,
            [](DiskEntry_t const & Entry, std::string const & sWanted) { return Entry.sFolded < sWanted; });
    }

    // Returns the disk's spellings of a path of the tables: at most one, unless entries differ in case only.
    std::vector<std::string> SpellingsOf(MediaScan_t const & Scan, std::string const & sFolded)
    {
        auto itEntry = FirstFrom(Scan, sFolded);
        std::vector<std::string> dPaths;
        for (; itEntry != Scan.dDisk.end() && itEntry->sFolded == sFolded; ++itEntry)
        {
            dPaths.push_back(itEntry->sPath);
        }
        return dPaths;
    }

    // Returns those of the paths that are directly in a folder.
    std::vector<std::string> PathsInFolder(std::vector<std::string> const & dPaths, std::string const & sFolder)
    {
        std::vector<std::string> dInFolder;
        std::copy_if(dPaths.begin(), dPaths.end(), std::back_inserter(dInFolder),
            [&](std::string const & sPath) { return fs::path(sPath).parent_path().native() == sFolder; });
        return dInFolder;
    }

    // Returns the spelling of a path that the library reaches. A path that the walk has not seen keeps its letters, but
    // gets `/` as the separator.
    std::string Spell(MediaScan_t const & Scan, std::string const & sFolded)
    {
        std::vector<std::string> dPaths = SpellingsOf(Scan, sFolded);
        if (dPaths.size() > 1)
        {
            std::string const sParent = Spell(
                Scan, sFolded.substr(0, sFolded.size() - std::min(sFolded.size(), FileNameOf(sFolded).size() + 1)));
            std::vector<std::string> const dInParent = PathsInFolder(dPaths, sParent);
            dPaths = dInParent.empty() ? dPaths : dInParent;
            return plat::IsFolded(fs::path(dPaths.back()).filename().c_str()) ? dPaths.back() : dPaths.front();
        }
        std::string sPath = dPaths.empty() ? sFolded : dPaths[0];
        if (dPaths.empty())
        {
            std::replace(sPath.begin(), sPath.end(), '\\', '/');
        }
        return sPath;
    }

    // Returns the spelling of a folder. A root of the scan keeps the caller's spelling.
    std::string SpellFolder(MediaScan_t const & Scan, std::string sFolded)
    {
        for (std::string const & sRoot : Scan.dPaths)
        {
            std::string const sRootFolded = FoldedText(sRoot);
            if (sFolded == sRootFolded + '\\' || sFolded == sRootFolded)
            {
                return sRoot;
            }
        }
        sFolded.resize(sFolded.size() - (sFolded.ends_with('\\') ? 1 : 0));
        return Spell(Scan, sFolded);
    }

    // Counts the files, and their bytes, below a folder that the scan has skipped.
    void CountBelow(MediaScan_t const & Scan, std::string const & sFolded, MediaFinding_t & Finding)
    {
        std::string const sPrefix = sFolded + '\\';
        auto itEntry = FirstFrom(Scan, sPrefix);
        for (; itEntry != Scan.dDisk.end() && itEntry->sFolded.starts_with(sPrefix); ++itEntry)
        {
            std::error_code Error;
            std::uint64_t const nBytes = itEntry->bFolder ? 0 : fs::file_size(itEntry->sPath, Error);
            Finding.nFiles += itEntry->bFolder || Error ? 0 : 1;
            Finding.nBytes += Error ? 0 : nBytes;
        }
    }

    // Converter of the reports of a scan to findings.
    class SkipReader_c
    {
    public:
        explicit SkipReader_c(MediaScan_t & Scan)
            : m_Scan(Scan)
        {}

        void Read(Skip_s const & Skip)
        {
            if (Skip.eWhy == FileSkip_e::Duplicate || Skip.eWhy == FileSkip_e::NoRoom)
            {
                return ReadByKey(Skip);
            }
            MediaFinding_t Finding{ KIND_OF_SKIP[static_cast<std::size_t>(Skip.eWhy)], "", Skip.sWhy, "", 0, 0, false };
            std::string const sFolded = FoldedText(Skip.sFolder + Skip.sName);
            bool const bArchive = Skip.eWhy == FileSkip_e::InArchive;
            std::string const sFolder = bArchive ? Skip.sFolder : SpellFolder(m_Scan, Skip.sFolder);
            Finding.sPath = sFolder + (Skip.sName.empty() || sFolder.ends_with('/') ? "" : "/") + Skip.sName;
            Finding.bMissed = Skip.eWhy == FileSkip_e::Unreadable || Skip.eWhy == FileSkip_e::Unknown;
            if (Skip.eWhy == FileSkip_e::CutName)
            {
                Finding.sOther = FileNameOf(sFolded).substr(0, FILE_KEY_LENGTH);
            }
            else if (Skip.eWhy == FileSkip_e::Case)
            {
                Finding.sOther = Spell(m_Scan, sFolded);
            }
            else if (!Finding.pKind->bFault)
            {
                CountBelow(m_Scan, sFolded, Finding);
            }
            m_Scan.dFindings.push_back(std::move(Finding));
        }

    private:
        // Reads the report of a file that is known by its key: another file, or the size of the table, has kept it out.
        void ReadByKey(Skip_s const & Skip)
        {
            std::string const sFolded = Skip.sFolder + std::string(FileNameOf(Skip.sName));
            MediaFinding_t Finding{ KIND_OF_SKIP[static_cast<std::size_t>(Skip.eWhy)], Spell(m_Scan, sFolded),
                Skip.sWhy, Skip.sFirst.empty() ? "" : Spell(m_Scan, Skip.sFirst), 0, 0,
                Skip.eWhy == FileSkip_e::NoRoom };
            std::vector<std::string> dTwins;
            if (sFolded == Skip.sFirst)
            {
                // The twins are the other names that differ in case only. Each report of one of them is for the next.
                dTwins = PathsInFolder(SpellingsOf(m_Scan, sFolded), fs::path(Finding.sOther).parent_path().native());
                std::erase(dTwins, Finding.sOther);
            }
            if (!dTwins.empty())
            {
                Finding.sPath = dTwins[std::min(m_dTwinsSeen[sFolded]++, dTwins.size() - 1)];
                Finding.pKind = &CASE;
                Finding.sWhy = "it differs from another file in case only";
            }
            m_Scan.dFindings.push_back(std::move(Finding));
        }

        MediaScan_t & m_Scan;
        std::map<std::string, std::size_t> m_dTwinsSeen;   // by folded path: reports of its twins so far
    };

    // Returns whether a file's key is only the start of its name, so that its path leads nowhere. Requires the findings
    // of the scan's reports.
    bool IsCut(MediaScan_t const & Scan, File_c const & File)
    {
        std::string_view const sBare = FileNameOf(File.sName.CStr());
        return sBare.size() == FILE_KEY_LENGTH && SpellingsOf(Scan, LocationOf(File)).empty()
               && std::any_of(Scan.dFindings.begin(), Scan.dFindings.end(),
                   [sBare](MediaFinding_t const & Finding)
                   { return Finding.pKind == &CUT_NAME && Finding.sOther == sBare; });
    }

    // Counts the files and folders of the tables. Adds findings for these files, unless their names are cut:
    // - those that are empty.
    // - those on disk without a folder in the tables.
    // - those that the system does not open.
    // - those that an archive hides.
    void ReadTable(MediaScan_t & Scan)
    {
        auto const Add = [&](MediaKind_t const & Kind, File_c const & File, char const * szWhy, std::string sOther = "")
        {
            Scan.dFindings.push_back({ &Kind, PathOf(Scan, File), szWhy, std::move(sOther), 0, 0, &Kind == &NO_ROOM });
        };
        VisitAll(g_sFileObjects,
            [&](File_c * pTop)
            {
                File_c & Top = *pTop;
                bool const bCut = Top.pPath && IsCut(Scan, Top);
                bool const bOnDisk = Top.pPath && !bCut;
                plat::FileFacts_t Facts;
                plat::File_t const hFile =
                    bOnDisk ? plat::FileOpenRead(FileLocation_c(Top), plat::Share_e::ReadWrite, &Facts) : nullptr;
                if (hFile)
                {
                    plat::FileClose(hFile);
                }
                else
                {
                    Facts.nSize = static_cast<std::uint32_t>(Top.iLength);   // its low 32 bits
                }
                ++Scan.nFiles;
                Scan.nBytes += Facts.nSize;
                if (Facts.nSize == 0 && !bCut)
                {
                    Add(EMPTY, Top, "it has no bytes");
                }
                if (dynamic_cast<FileOnDisk_c *>(&Top) && !Top.pPath)
                {
                    Add(NO_ROOM, Top, "its folder has no place in the table of folders");
                }
                else if (bOnDisk && !hFile)
                {
                    Add(UNREADABLE, Top, "it can't be opened");
                }
                else if (File_c * const pHidden = Top.pPath ? nullptr : FileHiding_c::FirstInFolder(Top))
                {
                    Add(OVER, *pHidden, "a file of an archive has its name", PathOf(Scan, Top));
                }
            });
        for (auto * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
        {
            ++Scan.nFolders;
        }
    }

    // Scans a folder or mounts an archive. Returns false, and prints why, if that fails.
    bool AddPath(std::string const & sPath, MediaOptions_t const & Options)
    {
        std::error_code Ignored;
        std::string sWhyNot;
        if (fs::is_directory(sPath, Ignored))
        {
            sWhyNot = FileAddSearchPath(sPath.c_str(), true, Options.bRelative)
                          ? ""
                          : "the scan does not take this folder: its path is too long, or another one hides it";
        }
        else
        {
            sWhyNot = fs::exists(sPath, Ignored) ? MountArchive(sPath, Options.bRelative) : "there is no such folder";
        }
        if (!sWhyNot.empty())
        {
            PrintProblem(sPath, sWhyNot);
        }
        return sWhyNot.empty();
    }

    // Returns false, and prints why, if two of the paths are the same or a folder is in another one: a scan would see
    // its files twice.
    bool AreApart(std::vector<std::string> const & dPaths)
    {
        auto const IsIn = [](std::string const & sFolder, std::string const & sOuter)
        { return sFolder.ends_with('/') && sOuter.ends_with('/') && sFolder.starts_with(sOuter); };
        std::vector<std::string> dWhole;
        for (std::string const & sPath : dPaths)
        {
            std::error_code Ignored;
            fs::path const Whole = fs::canonical(sPath, Ignored);
            // Only folders get a separator: an archive may be in one.
            dWhole.push_back(fs::is_directory(Whole, Ignored) ? (Whole / "").native() : Whole.native());
            for (std::size_t i = 0; i + 1 < dWhole.size() && !Whole.empty(); ++i)
            {
                std::string const sRelation = dWhole[i] == dWhole.back()       ? "it is the same as "
                                              : IsIn(dWhole.back(), dWhole[i]) ? "it is in "
                                              : IsIn(dWhole[i], dWhole.back()) ? "it holds "
                                                                               : "";
                if (!sRelation.empty())
                {
                    PrintProblem(sPath, sRelation + dPaths[i]);
                    return false;
                }
            }
        }
        return true;
    }

    // Makes the library's settings for the scan.
    void ApplyOptions(MediaOptions_t const & Options)
    {
        g_silentMode = true;
        SetAchtungs(false);   // they would end the process
        FileExcludeToolFiles();
        SetPQXCurrentConfig(Options.sConfig.c_str());
        if (!Options.sGame.empty())
        {
            g_sGameFolder = (Options.sGame + '\\').c_str();
            FileSetSplit(Options.sSplit.c_str());
        }
    }
}

void AddMediaOptions(Arguments_c & Arguments, MediaOptions_t & Options)
{
    constexpr std::size_t MAX_BYTES = 99;   // of a name or location
    Argument_c const Game =
        Arguments.AddText("--game", "NAME", Options.sGame, "enter only this game's folder of the split, in lower case")
            .SetReader(
                [](std::string const & sName) -> std::string
                {
                    bool const bBare =
                        sName.find_first_of("/\\") == std::string::npos && !sName.empty() && sName.size() <= MAX_BYTES;
                    return bBare && plat::IsFolded(sName.c_str()) ? std::string()
                                                                  : "a game is a bare name in lower case, of at most "
                                                                        + std::to_string(MAX_BYTES) + " bytes";
                });
    Arguments.AddText("--split", "LOCATION", Options.sSplit, "folder of the games; default \\gamedata\\")
        .SetNeeds(Game)
        .SetReader(
            [](std::string const & sLocation) -> std::string
            {
                bool const bBounded = sLocation.size() > 1 && sLocation.size() <= MAX_BYTES
                                      && sLocation.starts_with('\\') && sLocation.ends_with('\\');
                return bBounded && plat::IsFolded(sLocation.c_str())
                           ? std::string()
                           : "a location is in lower case, begins and ends with \\, and has at most "
                                 + std::to_string(MAX_BYTES) + " bytes";
            });
    Arguments.AddText("--config", "NAME", Options.sConfig, "folder of media\\_configdependeddata\\ to enter");
    Arguments.AddFlag("--relative", Options.bRelative, "names are paths below the first folder");
}

int MediaScan_t::CountFaults() const
{
    return static_cast<int>(std::count_if(
        dFindings.begin(), dFindings.end(), [](MediaFinding_t const & Finding) { return Finding.pKind->bFault; }));
}

int MediaScan_t::CountDuplicates() const
{
    return static_cast<int>(std::count_if(dFindings.begin(), dFindings.end(),
        [](MediaFinding_t const & Finding) { return Finding.pKind == &DUPLICATE; }));
}

std::string FoldedText(std::string const & sPath)
{
    std::string sFolded(sPath.size(), '\0');
    FoldText(sFolded.data(), sPath.c_str(), static_cast<int>(sPath.size()));
    return sFolded;
}

std::string PathOf(MediaScan_t const & Scan, File_c const & File)
{
    return Spell(Scan, LocationOf(File));
}

bool ScanMedia(std::vector<std::string> const & dPaths, MediaOptions_t const & Options, MediaScan_t & Scan)
{
    ApplyOptions(Options);
    for (std::string sPath : dPaths)
    {
        while (sPath.size() > 1 && sPath.ends_with('/'))
        {
            sPath.pop_back();
        }
        Scan.dPaths.push_back(sPath);
    }
    if (!AreApart(Scan.dPaths))
    {
        return false;
    }
    auto const itRoot = std::find_if(Scan.dPaths.begin(), Scan.dPaths.end(),
        [](std::string const & sPath) { return DirectoryExists(sPath.c_str()); });
    SetPQXMediaPath(itRoot != Scan.dPaths.end() ? itRoot->c_str() : "");
    CallbackScope_T const Skips(g_FileSkipCallbacker, NoteSkip);
    auto const tStart = std::chrono::steady_clock::now();
    bool const bAdded = std::all_of(
        Scan.dPaths.begin(), Scan.dPaths.end(), [&](std::string const & sPath) { return AddPath(sPath, Options); });
    Scan.tMilliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - tStart).count();
    if (!bAdded)
    {
        return false;
    }
    Disk_c Disk(Scan);
    for (std::string const & sPath : Scan.dPaths)
    {
        Disk.Walk(sPath);
    }
    Disk.Sort();
    SkipReader_c Reader(Scan);
    std::for_each(g_dSkips.begin(), g_dSkips.end(), [&](Skip_s const & Skip) { Reader.Read(Skip); });
    ReadTable(Scan);
    Scan.bWhole = FileScanIsWhole("")
                  && std::none_of(Scan.dFindings.begin(), Scan.dFindings.end(),
                      [](MediaFinding_t const & Finding) { return Finding.bMissed; });
    auto const Rank = [](MediaFinding_t const & Finding)
    { return std::find(std::begin(KINDS), std::end(KINDS), Finding.pKind) - std::begin(KINDS); };
    std::sort(Scan.dFindings.begin(), Scan.dFindings.end(),
        [&](MediaFinding_t const & Left, MediaFinding_t const & Right)
        { return std::pair(Rank(Left), Left.sPath) < std::pair(Rank(Right), Right.sPath); });
    return true;
}
