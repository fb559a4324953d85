// mediascan.h: what the library's scan makes of media folders and archives, and what it leaves out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class File_c;
class Arguments_c;

/// Options of a scan.
struct MediaOptions_t
{
    std::string sGame;                     // the only game whose folder is entered; empty: no split
    std::string sSplit = "\\gamedata\\";   // folder of the games
    std::string sConfig;                   // name of the configuration, for SetPQXCurrentConfig
    bool bRelative = false;                // whether keys are relative paths
};

/// A kind of entry that a scan leaves out, or that does not open as its name says.
struct MediaKind_t
{
    char const * szName;     // in JSON
    char const * szTitle;    // for people
    char const * szNote;     // what follows from it; may be empty
    bool bFault;             // whether it is a fault; a scan leaves the others out on purpose
    bool bRefused = false;   // whether --find counts such a file of the table as one that does not open
};

/// An entry that a scan leaves out, or that does not open as its name says.
struct MediaFinding_t
{
    MediaKind_t const * pKind = nullptr;
    std::string sPath;          // as the disk spells it
    std::string sWhy;           // one statement
    std::string sOther;         // the file that opens instead, or the key that the file gets; may be empty
    int nFiles = 0;             // below a folder that is left out on purpose; otherwise 0
    std::uint64_t nBytes = 0;   // of these files
    bool bMissed = false;       // whether the next scan may find more: the system failed, or a table was full
};

/// An entry of the disk below the folders of a scan, whether the scan has entered it or not.
struct DiskEntry_t
{
    std::string sFolded;   // in the form of the tables
    std::string sPath;
    bool bFolder = false;
};

/// Result of a scan.
struct MediaScan_t
{
    std::vector<std::string> dPaths;   // the folders and archives
    int nFiles = 0;                    // in the table
    int nFolders = 0;
    std::uint64_t nBytes = 0;
    double tMilliseconds = 0;
    bool bWhole = true;                      // whether the scan could see all, and no finding is bMissed
    std::vector<MediaFinding_t> dFindings;   // by kind, then by path
    std::vector<DiskEntry_t> dDisk;          // by sFolded

    /// Return the number of findings that are faults, and the number of duplicates.
    int CountFaults() const;
    int CountDuplicates() const;
};

/// Declares `--game`, `--split`, `--config` and `--relative`. Requires that Options outlives the parse.
void AddMediaOptions(Arguments_c & Arguments, MediaOptions_t & Options);

/// Scans folders and mounts archives over them, in their order. The first folder is the media root. The library's
/// tables then hold the files. Requires an empty Scan, and that the process has not scanned before. Returns false, and
/// prints why, in these cases:
/// - A path can't be scanned or mounted.
/// - Two paths are the same.
/// - A folder is in another one.
bool ScanMedia(std::vector<std::string> const & dPaths, MediaOptions_t const & Options, MediaScan_t & Scan);

/// Returns where a file is, as the disk spells it. Returns a place that is not in dDisk, such as one in an archive, as
/// the library spells it, but with `/` as the separator.
std::string PathOf(MediaScan_t const & Scan, File_c const & File);

/// Returns a path in the form of the tables: in lower case, with `\` as the separator.
std::string FoldedText(std::string const & sPath);

/// Mounts an archive over the files of the table. Returns why that failed, or an empty text. bRelative is as in
/// MediaOptions_t.
std::string MountArchive(std::string const & sPath, bool bRelative);
