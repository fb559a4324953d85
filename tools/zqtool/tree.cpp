// zqtool tree: what the library's scan makes of media folders and archives.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/mediascan.h"
#include "tools/zqtool/terminal.h"
#include "tools/zqtool/text.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace
{
    struct Options_s
    {
        std::vector<std::string> dPaths;
        MediaOptions_t Media;
        std::string sFind;
        bool bAll = false;
        bool bJson = false;
    };

    constexpr std::size_t MAX_COLUMN = 60;   // characters; longer paths do not widen the column

    // Returns whether bare names fit a tree. Fewer than three duplicates, or up to a tenth of the files, count as
    // accidents.
    bool FitsBareNames(MediaScan_t const & Scan)
    {
        int const nDuplicates = Scan.CountDuplicates();
        return nDuplicates < 3 || nDuplicates * 10 <= nDuplicates + Scan.nFiles;
    }

    std::string FindingText(MediaFinding_t const & Finding)
    {
        std::string sText = Finding.sWhy;
        if (!Finding.sOther.empty())
        {
            sText += ": " + Finding.sOther;
        }
        if (Finding.nFiles > 0)
        {
            sText += ": " + Counted(static_cast<std::uint64_t>(Finding.nFiles), "file") + ", "
                     + Counted(Finding.nBytes, "byte");
        }
        return Printable(sText);
    }

    using Findings_t = std::vector<MediaFinding_t>;

    // Prints the findings of one kind below its title. Without bAll, prints at most MAX_LINES of them and the number
    // of the others.
    void PrintKind(Findings_t::const_iterator itFirst, Findings_t::const_iterator itEnd, bool bAll)
    {
        std::size_t const nFindings = static_cast<std::size_t>(itEnd - itFirst);
        std::size_t const nShown = bAll ? nFindings : std::min(nFindings, MAX_LINES);
        Colour_e const eColour = itFirst->pKind->bFault ? Colour_e::Bad : Colour_e::Head;
        std::string const sTitle = std::string(itFirst->pKind->szTitle) + " (" + std::to_string(nFindings) + ")";
        std::printf("\n%s%s%s\n", Painted(sTitle, eColour).c_str(), itFirst->pKind->szNote[0] ? ": " : "",
            itFirst->pKind->szNote);
        std::vector<std::string> dPaths;
        std::size_t nColumn = 0;
        std::transform(itFirst, itFirst + static_cast<std::ptrdiff_t>(nShown), std::back_inserter(dPaths),
            [](MediaFinding_t const & Finding) { return Printable(Finding.sPath); });
        for (std::string const & sPath : dPaths)
        {
            std::size_t const nPath = WidthOf(sPath);
            nColumn = std::max(nColumn, nPath <= MAX_COLUMN ? nPath : 0);
        }
        for (std::string const & sPath : dPaths)
        {
            std::string const sBlanks(nColumn - std::min(nColumn, WidthOf(sPath)), ' ');
            std::printf("  %s%s  %s\n", sPath.c_str(), sBlanks.c_str(), FindingText(*itFirst++).c_str());
        }
        if (nShown < nFindings)
        {
            std::printf("  and %zu more, which --all shows\n", nFindings - nShown);
        }
    }

    void PrintTree(Options_s const & Options, MediaScan_t const & Scan)
    {
        std::string sPaths;
        for (std::string const & sPath : Scan.dPaths)
        {
            sPaths += (sPaths.empty() ? "" : ", ") + sPath;
        }
        std::printf("%s: %s in %s, %s, scanned in %.2f ms\n", Painted(sPaths, Colour_e::Title).c_str(),
            Counted(static_cast<std::uint64_t>(Scan.nFiles), "file").c_str(),
            Counted(static_cast<std::uint64_t>(Scan.nFolders), "folder").c_str(), Counted(Scan.nBytes, "byte").c_str(),
            Scan.tMilliseconds);
        auto const EndOf = [&](Findings_t::const_iterator itFirst)
        {
            return std::find_if(itFirst, Scan.dFindings.end(),
                [itFirst](MediaFinding_t const & Finding) { return Finding.pKind != itFirst->pKind; });
        };
        for (auto itKind = Scan.dFindings.begin(); itKind != Scan.dFindings.end(); itKind = EndOf(itKind))
        {
            PrintKind(itKind, EndOf(itKind), Options.bAll);
        }
        if (!FitsBareNames(Scan))
        {
            std::printf("\n%i of %i files have names that are taken: this tree was not made for bare names.%s\n",
                Scan.CountDuplicates(), Scan.CountDuplicates() + Scan.nFiles,
                Options.Media.bRelative ? ""
                                        : " With FileAddSearchPath(path, true, true) a file's name is its path below "
                                          "the media root; --relative shows that scan.");
        }
        int const nFaults = Scan.CountFaults();
        if (nFaults > 0)
        {
            std::printf("\n%i found\n", nFaults);
        }
    }

    Json_t JsonOf(MediaFinding_t const & Finding)
    {
        Json_t Json = { { "kind", Finding.pKind->szName }, { "path", Finding.sPath }, { "why", Finding.sWhy } };
        if (!Finding.sOther.empty())
        {
            Json["other"] = Finding.sOther;
        }
        if (!Finding.pKind->bFault)
        {
            Json["files"] = Finding.nFiles;
            Json["bytes"] = Finding.nBytes;
        }
        return Json;
    }

    void PrintTreeJson(Options_s const & Options, MediaScan_t const & Scan)
    {
        Json_t Found = Json_t::array(), LeftOut = Json_t::array();
        for (MediaFinding_t const & Finding : Scan.dFindings)
        {
            (Finding.pKind->bFault ? Found : LeftOut).push_back(JsonOf(Finding));
        }
        PrintJson({ { "paths", Scan.dPaths }, { "game", Options.Media.sGame }, { "config", Options.Media.sConfig },
            { "relative", Options.Media.bRelative }, { "files", Scan.nFiles }, { "folders", Scan.nFolders },
            { "bytes", Scan.nBytes }, { "scan_ms", Scan.tMilliseconds }, { "whole", Scan.bWhole },
            { "duplicates", Scan.CountDuplicates() }, { "fits_bare_names", FitsBareNames(Scan) },
            { "found", std::move(Found) }, { "left_out", std::move(LeftOut) } });
    }

    // A file that has the bare name of --find, and does not open by it.
    struct Other_t
    {
        std::string sPath, sWhy;
    };

    // Returns whether a folded path ends in a folded bare name.
    bool HasBareName(std::string const & sFolded, std::string const & sName)
    {
        return sFolded.ends_with(sName)
               && (sFolded.size() == sName.size() || sFolded[sFolded.size() - sName.size() - 1] == '\\');
    }

    // Returns why a file does not open by its bare name. The first of these that applies decides:
    // - a finding about the file
    // - a finding about a folder that it is in
    // - another name by which it opens
    std::string WhyNotOpened(MediaScan_t const & Scan, std::string const & sPath)
    {
        std::string sWhy = "it opens by another name";
        for (MediaFinding_t const & Finding : Scan.dFindings)
        {
            if (Finding.sPath == sPath)
            {
                return Finding.sWhy;
            }
            if (sPath.starts_with(Finding.sPath) && sPath[Finding.sPath.size()] == '/')
            {
                sWhy = "its folder is left out: " + Finding.sPath + ", " + Finding.sWhy;
            }
        }
        return sWhy;
    }

    // Returns the files that have a folded bare name, except the one that opens.
    std::vector<Other_t> OthersOf(MediaScan_t const & Scan, std::string const & sName, std::string const & sOpened)
    {
        std::vector<Other_t> dOthers;
        for (DiskEntry_t const & Entry : Scan.dDisk)
        {
            if (!Entry.bFolder && Entry.sPath != sOpened && HasBareName(Entry.sFolded, sName))
            {
                dOthers.push_back({ Entry.sPath, WhyNotOpened(Scan, Entry.sPath) });
            }
        }
        for (MediaFinding_t const & Finding : Scan.dFindings)   // entries of archives are not on the disk
        {
            bool const bListed = std::any_of(
                dOthers.begin(), dOthers.end(), [&](Other_t const & Other) { return Other.sPath == Finding.sPath; });
            bool const bFolder = std::any_of(Scan.dDisk.begin(), Scan.dDisk.end(),
                [&](DiskEntry_t const & Entry) { return Entry.bFolder && Entry.sPath == Finding.sPath; });
            if (!bListed && !bFolder && Finding.sPath != sOpened && HasBareName(FoldedText(Finding.sPath), sName))
            {
                dOthers.push_back({ Finding.sPath, Finding.sWhy });
            }
        }
        return dOthers;
    }

    // Prints what --find asks for. Returns EXIT_FOUND if no file opens, and without --relative also if others have the
    // name.
    int Find(Options_s const & Options, MediaScan_t const & Scan)
    {
        FoldedPath_c const sWhole(Options.sFind.c_str());
        File_c const * pFile = FileStream(Options.sFind.c_str());
        pFile = pFile ? pFile : g_sFileObjects.FindByName(sWhole);
        std::string sOpened = pFile ? PathOf(Scan, *pFile) : "";
        bool const bRefused =
            pFile
            && std::any_of(Scan.dFindings.begin(), Scan.dFindings.end(),
                [&](MediaFinding_t const & Finding) { return Finding.pKind->bRefused && Finding.sPath == sOpened; });
        if (bRefused)
        {
            pFile = nullptr;
            sOpened = "";
        }
        std::vector<Other_t> const dOthers = OthersOf(Scan, sWhole.GetBare(), sOpened);
        if (Options.bJson)
        {
            Json_t Others = Json_t::array();
            for (Other_t const & Other : dOthers)
            {
                Others.push_back({ { "path", Other.sPath }, { "why", Other.sWhy } });
            }
            PrintJson({ { "name", Options.sFind }, { "opens", pFile ? Json_t(sOpened) : Json_t() },
                { "bytes", pFile ? Json_t(static_cast<std::uint32_t>(pFile->iLength)) : Json_t() },
                { "others", std::move(Others) } });
        }
        else
        {
            std::string const sName = Printable(Options.sFind);
            if (pFile)
            {
                std::printf("%s opens %s, %s\n", sName.c_str(), Printable(sOpened).c_str(),
                    Counted(static_cast<std::uint32_t>(pFile->iLength), "byte").c_str());
            }
            else
            {
                std::printf("%s opens no file\n", sName.c_str());
            }
            for (Other_t const & Other : dOthers)
            {
                std::printf("  not %s: %s\n", Printable(Other.sPath).c_str(), Printable(Other.sWhy).c_str());
            }
        }
        return pFile && (dOthers.empty() || Options.Media.bRelative) ? EXIT_DONE : EXIT_FOUND;
    }

    int Run(Options_s const & Options)
    {
        MediaScan_t Scan;
        if (!ScanMedia(Options.dPaths, Options.Media, Scan))
        {
            return EXIT_FOUND;
        }
        if (!Options.sFind.empty())
        {
            return Find(Options, Scan);
        }
        if (Options.bJson)
        {
            PrintTreeJson(Options, Scan);
        }
        else
        {
            PrintTree(Options, Scan);
        }
        return Scan.CountFaults() == 0 ? EXIT_DONE : EXIT_FOUND;
    }
}

CommandRun_t PrepareTree(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments.AddTexts("PATH", "", pOptions->dPaths, "media folders, and zip archives that lie over those before them")
        .SetRequired();
    AddMediaOptions(Arguments, pOptions->Media);
    Arguments.AddText("--find", "NAME", pOptions->sFind, "show which file a name opens, and which others have it");
    Arguments.AddFlag("--all", pOptions->bAll, "show every line");
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool tree --game storm media patch1.zip");
    return [pOptions] { return Run(*pOptions); };
}
