#include "media.h"

#include "options.h"
#include "paths.h"

#include "zqcore/cfile.h"
#include "zqcore/cfilecache.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilepath.h"

#include <filesystem>
#include <system_error>

namespace
{
    constexpr char CACHE_NAME[] = "/filesystemcache.bin";   // below the media root

    // Whether the tree has a folder for the game. The library scans a tree without one as a whole.
    bool g_bSplit = false;

    std::string CacheOf(Options_s const & Options, std::string const & sMedia)
    {
        return Options.sCacheFile.empty() ? sMedia + CACHE_NAME : Options.sCacheFile;
    }

    bool IsFromCache()
    {
        return !g_sFilesystemCacheName.IsEmpty();   // empty unless the start loaded a cache
    }

    // Returns whether the library reads a folder whose path ends in sFolder.
    bool IsKnown(std::string const & sFolder)
    {
        for (auto * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
        {
            if (pSlot->pObject->Ends(sFolder.c_str()))
            {
                return true;
            }
        }
        return false;
    }

    // Returns why the library does not read a folder that the options name.
    std::string DescribeMissing(std::string const & sFolder, Options_s const & Options, std::string const & sMedia)
    {
        return IsFromCache()
                   ? "the cache was written without the folder " + sFolder + "; delete " + CacheOf(Options, sMedia)
               : DirectoryExists((sMedia + "/" + sFolder).c_str())
                   ? "the media have a folder " + sFolder + " that can't be read; the log says why"
                   : "the media have no folder " + sFolder;
    }

    // Returns the bare name of a path below the media root if the media have a file of that name, else an empty text.
    std::string FileOfMedia(std::string const & sPath, std::string const & sMedia)
    {
        std::string const sCompared = ComparedPath(sPath), sBare = PathFileName(sCompared.c_str());
        return sCompared.starts_with(ComparedPath(sMedia) + "/") && FileExists(sBare.c_str()) ? sBare : "";
    }

    // Returns the bare name of a cache if the media have another file of that name, else an empty text. A cache leaves
    // out the file of its name, wherever it is.
    std::string FileOfTheCachesName(std::string const & sCacheFile)
    {
        std::string const sBare = PathFileName(sCacheFile.c_str());
        File_c const * const pFile = FileExists(sBare.c_str()) ? FileStream(sBare.c_str()) : nullptr;
        bool const bOther = pFile && !IsSameFile(pFile->GetFullPath().CStr(), sCacheFile);
        return bOther ? sBare : "";
    }

    std::string DescribeTaken(std::string const & sBare, std::string const & sOption)
    {
        return "the media have a file " + sBare + ": give another one with " + sOption;
    }

    std::string DescribeUnreadable(std::string const & sFolder, std::error_code const & Error)
    {
        return "can't read \"" + sFolder + "\": " + Error.message();
    }

    // Sets g_bSplit for the game's folder. Returns a message if the system does not say whether there is one: a cache
    // of the whole tree would be wrong for the game.
    std::string FindGame(std::string const & sFolder)
    {
        std::error_code Error;
        bool const bFound = DirectoryExists(sFolder.c_str());   // in any spelling
        std::filesystem::file_status const Status = std::filesystem::status(sFolder, Error);
        g_bSplit = bFound || std::filesystem::is_directory(Status);
        return g_bSplit || std::filesystem::status_known(Status) ? "" : DescribeUnreadable(sFolder, Error);
    }
}

std::string MediaCheck(Options_s const & Options, std::string const & sMedia)
{
    if (sMedia.empty())
    {
        return "no media: give --media FOLDER, or put media.zq beside the executable";
    }
    std::error_code Error;
    std::filesystem::file_status const Status = std::filesystem::status(sMedia, Error);
    if (!DirectoryExists(sMedia.c_str()) && !std::filesystem::is_directory(Status))
    {
        return std::filesystem::exists(Status) ? "\"" + sMedia + "\" is a file; the media root is a folder"
               : Status.type() == std::filesystem::file_type::not_found ? "no folder \"" + sMedia + "\""
                                                                        : DescribeUnreadable(sMedia, Error);
    }
    if (sMedia.size() >= static_cast<std::size_t>(String_T<256>::Capacity()) - 1)
    {
        return "the path of the media root takes more than 254 characters: \"" + sMedia + "\"";
    }
    for (std::string const & sPath : { Options.sSave, Options.sStats })
    {
        if (!sPath.empty() && IsSameFile(sPath, sMedia + CACHE_NAME))
        {
            return "\"" + sPath + "\" is the place of the media's cache: give another file";
        }
    }
    std::filesystem::directory_iterator const First(sMedia, Error);
    return Error ? DescribeUnreadable(sMedia, Error) : FindGame(sMedia + "/gamedata/" + Options.sGame);
}

void MediaSet(Options_s const & Options, std::string const & sMedia)
{
    SetPQXMediaPath(Options.sMedia.c_str());   // if empty, the library discovers it, and sMedia is the result
    SetPQXCurrentConfig(Options.sConfig.c_str());
    FileSetMediaTemplate("media*.zq");
    FileSetSplit(g_bSplit ? "\\gamedata\\" : nullptr);
    FileAlwaysExcludeFolder(".git");   // for a tree under version control
    FileSetEmptyAllowed(true);         // editors empty a file before they rewrite it
    ModuleFile_c::Get()->ReadMedia(true);
    FilesystemCacheInit(Options.bCache ? CacheOf(Options, sMedia).c_str() : nullptr);
    ModuleFile_c::Get()->SetCacheFile(Options.bCache ? Options.sCacheFile.c_str() : nullptr);
    ModuleFile_c::Get()->CheckCache(Options.bCache);
}

std::string MediaCheckChoice(Options_s const & Options, std::string const & sMedia)
{
    std::string const sCache = FileOfTheCachesName(Options.sCacheFile);
    if (!sCache.empty())
    {
        ModuleFile_c::Get()->SetCacheFile(nullptr);   // otherwise the shutdown would write --cache-file
    }
    if (Options.bGameGiven && !FileIsAddon())
    {
        return "the library reads the first 255 characters of the command line only: put --game first";
    }
    bool const bGame = Options.bGameGiven || g_bSplit;
    if (bGame && !IsKnown("\\gamedata\\" + Options.sGame + "\\"))
    {
        return DescribeMissing("gamedata/" + Options.sGame, Options, sMedia);
    }
    if (!Options.sConfig.empty() && !IsKnown("media\\_configdependeddata\\" + Options.sConfig + "\\"))
    {
        return DescribeMissing("media/_configdependeddata/" + Options.sConfig, Options, sMedia);
    }
    std::string const sSave = PathFileName(Options.sSave.c_str());
    std::string const sStats = FileOfMedia(Options.sStats, sMedia);
    return FileExists(sSave.c_str()) ? DescribeTaken(sSave, "--save")
           : !sStats.empty()         ? DescribeTaken(sStats, "--stats")
           : !sCache.empty()         ? DescribeTaken(sCache, "--cache-file")
                                     : "";
}

std::string MediaDescribeSource(Options_s const & Options, std::string const & sMedia)
{
    if (IsFromCache())
    {
        return "the cache";
    }
    if (!Options.bCache)
    {
        return "a scan";
    }
    if (!FileScanIsWhole(sMedia.c_str()))
    {
        return "a scan that could not see all, as the log says; no cache is written";
    }
    // FilesystemCacheSave replaces the cache by a new file, so a write that failed leaves the old time.
    std::error_code Error;
    std::string const sCache = CacheOf(Options, sMedia);
    auto const tBefore = std::filesystem::last_write_time(sCache, Error);
    FilesystemCacheSave(sCache.c_str());
    bool const bWritten = std::filesystem::last_write_time(sCache, Error) != tBefore && !Error;
    return bWritten ? "a scan, and a cache for the next run" : "a scan; no cache could be written";
}
