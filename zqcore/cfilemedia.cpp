#include "zqcore/cfilemedia.h"

#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilecache.h"
#include "zqcore/cfilecache_internal.h"
#include "zqcore/cfilehash.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cfiletrack.h"
#include "zqcore/clog_internal.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory.h"
#include "zqcore/ctokenize.h"

#include "platform/files.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace
{
    constexpr char const * DEFAULT_SPLIT = "\\gamedata\\";
}

constinit bool g_bAddon = false;
constinit String_T<256> g_sMediaPath;
constinit String_T<256> g_sCurrentConfig;
constinit String_T<256> g_sMediaTemplate("media*.zq");
constinit bool g_bSplit = false;
constinit String_T<256> g_sSplitLocation(DEFAULT_SPLIT);
constinit String_T<256> g_sGameFolder;
constinit String_T<256> g_sSplitGame(DEFAULT_SPLIT);

namespace
{
    constexpr char const * DEFAULT_GAME = "pqx";
    constexpr char const * CACHE_NAME = "filesystemcache.bin";

    // Folders of the media root that change while a game runs.
    constexpr char const * PROFILES = "\\profiles";
    constexpr char const * MAPS_CACHE = "\\mapscache";
    constexpr char const * AUTOSAVE = "\\$$$pqxautosave";
    constexpr char const * BACKUP = "\\$$$pqxbackup";

    enum class MediaSource_e
    {
        None,
        Setting,
        Registry,
        MainPack
    };

    bool PathExists(char const * szPath)
    {
        plat::FileFacts_t Facts;
        return szPath[0] && plat::PathGetFacts(szPath, Facts);
    }

    String_T<256> MainPackName()
    {
        String_T<256> sName(g_sMediaTemplate);
        int const iStar = sName.StrPos("*");
        return iStar < 0 ? sName : sName.SubStr(0, iStar) + sName.SubStr(iStar + 1);
    }

    String_T<256> RegistryKey()
    {
        return NewString("SOFTWARE\\Brindle Harbor\\%s\\Install", g_szApplicationName);
    }

    // Returns the text of the registry value, cut at 255 bytes, even if it names no folder. Returns an empty text if
    // there is no value, or if it has more than 256 bytes.
    String_T<256> RegistryPath()
    {
        char szText[String_T<256>::Capacity() + 1] = "";   // a value may lack its terminator
        std::size_t nSize = sizeof szText - 1;
        plat::RegistryType_e eType;
        bool const bRead =
            plat::RegistryRead(plat::RegistryTree_e::Machine, RegistryKey(), "InstallDir", eType, szText, nSize);
        return String_T<256>(bRead ? szText : "");
    }

    // Finds the media root and returns its source. If there is none, sPath becomes the text of the registry.
    MediaSource_e Discover(String_T<256> & sPath)
    {
        sPath = g_sMediaPath;
        if (!sPath.IsEmpty())
        {
            return MediaSource_e::Setting;
        }
        sPath = RegistryPath();
        if (PathExists(sPath))
        {
            return MediaSource_e::Registry;
        }
        if (PathExists(MainPackName()))
        {
            sPath = ".";
            return MediaSource_e::MainPack;
        }
        return MediaSource_e::None;
    }

    void LogMediaSource()
    {
        auto const LogSource = [](char const * szSource, char const * szText)
        { LogEscaped("Media path in %s - \"%s\"", szSource, szText); };
        String_T<256> sPath;
        switch (Discover(sPath))
        {
        case MediaSource_e::Setting:
            return LogSource("commandline", g_sMediaPath);
        case MediaSource_e::Registry:
            return LogSource("registry", RegistryKey());
        case MediaSource_e::MainPack:
            return LogSource("main pack", MainPackName());
        case MediaSource_e::None:
            return;
        }
    }

    // Sets the game to that of `--game <name>` in the command line, or to DEFAULT_GAME without one.
    void ChooseGame()
    {
        String_T<256> sCommandLine;
        plat::ProcessCommandLine(sCommandLine.GetBuffer(), static_cast<std::size_t>(sCommandLine.Capacity()));
        Array_T<String_T<256>, 10, 0> dTokens;
        Tokenize(sCommandLine, dTokens, " \t");

        g_sGameFolder = DEFAULT_GAME;
        for (int i = 0; i + 1 < dTokens.GetLength(); ++i)
        {
            if (dTokens[i] == "--game")
            {
                g_sGameFolder = dTokens[i + 1];
                g_bAddon = true;
                break;
            }
        }
        g_sGameFolder += "\\";
        g_sSplitGame = g_sSplitLocation + g_sGameFolder;
    }

    // Returns whether the media root is "." or begins with `.\`, so that its media are registered by such paths.
    bool IsBelowCurrentFolder(char const * szRoot)
    {
        FoldedPath_c const sRoot(szRoot);
        return sRoot[0] == '.' && (sRoot[1] == '\0' || sRoot[1] == '\\');
    }

    // Removes the files that do not belong in the cache from the tables. Writes the cache to szFile, or into the media
    // root if szFile is empty.
    void SaveCache(char const * szFile)
    {
        String_T<256> const sRoot = GetPQXMediaPath(false);
        FileCacheDropOthers(sRoot);
        String_T<512> sCache(sRoot);
        sCache += "\\";
        sCache += CACHE_NAME;
        FilesystemCacheSave(szFile[0] ? szFile : static_cast<char const *>(sCache));
    }
}

void FileExcludeToolFiles()
{
    for (char const * szFolder : { "_svn", "CVS", ".svn", AUTOSAVE + 1, BACKUP + 1 })   // without the separator
    {
        FileAlwaysExcludeFolder(szFolder);
    }
    for (char const * szFile : { ".cvsignore", LOG_MAIN_FILE })
    {
        FileAlwaysExcludeFile(szFile);
    }
}

void FileCacheDropOthers(String_T<256> const & sRoot)
{
    if (!IsBelowCurrentFolder(sRoot))
    {
        FileResetFiles(".");
    }
    for (char const * szFolder : { PROFILES, MAPS_CACHE, AUTOSAVE, BACKUP })
    {
        FileResetFiles(sRoot + szFolder);
    }
}

void FileSetMediaTemplate(char const * sTemplate)
{
    ZQ_ASSERT(sTemplate);
    char const * const pStar = sTemplate ? std::strchr(sTemplate, '*') : nullptr;
    ZQ_ASSERT_EX(pStar, "media template '%s' has no '*'", sTemplate ? sTemplate : "");
    if (!pStar)
    {
        return;
    }
    ZQ_ASSERT_EX(!std::strchr(pStar + 1, '*'), "media template '%s' has more than one '*'", sTemplate);
    ZQ_ASSERT_EX(pStar[1] == '.', "media template '%s' has no dot after its '*'", sTemplate);
    if (pStar[1] == '.' && !std::strchr(pStar + 1, '*'))
    {
        g_sMediaTemplate = sTemplate;
    }
}

String_T<256> FileGetMediaTemplate()
{
    return g_sMediaTemplate;
}

char const * FileMediaTemplateTail()
{
    char const * const szTemplate = g_sMediaTemplate;
    char const * const pStar = std::strchr(szTemplate, '*');
    return pStar ? pStar + 1 : szTemplate;
}

void FileSetSplit(char const * sLocation)
{
    if (!sLocation)
    {
        g_bSplit = false;
        return;
    }
    std::size_t const nLength = std::strlen(sLocation);
    bool const bBounded = nLength > 0 && sLocation[0] == '\\' && sLocation[nLength - 1] == '\\';
    ZQ_ASSERT_EX(bBounded, "split location '%s' does not begin and end with '\\'", sLocation);
    if (bBounded)
    {
        g_sSplitLocation = sLocation;
        g_sSplitGame = g_sSplitLocation + g_sGameFolder;
        g_bSplit = true;
    }
}

bool FileSplitExcludes(String_T<256> const & sSub)
{
    return g_bSplit && sSub.StrPos(g_sSplitLocation) >= 0 && !sSub.Ends(g_sSplitGame) && sSub.StrPos(g_sSplitGame) < 0
           && !sSub.Ends(g_sSplitLocation);
}

String_T<256> GetPQXMediaPath(bool bAbortIfMissing)
{
    String_T<256> sPath;
    if (Discover(sPath) == MediaSource_e::None && bAbortIfMissing)
    {
        Abort("Error: no MEDIA.ZQ file, no PQXMEDIA environment variable, no registry key.\nPlease check your "
              "installation.");
    }
    if (sPath.Ends("\\") || sPath.Ends("/"))
    {
        sPath.Chop(1);
    }
    return sPath;
}

void SetPQXMediaPath(char const * sPath)
{
    g_sMediaPath = sPath;
}

void SetPQXCurrentConfig(char const * sConfig)
{
    g_sCurrentConfig = sConfig;
}

bool FileIsAddon()
{
    return g_bAddon;
}

namespace
{
    constinit ModuleFile_c g_ModuleFile;
}

ModuleFile_c * ModuleFile_c::Get()
{
    return &g_ModuleFile;
}

Module_c ** ModuleFile_c::GetPrerequisites() const
{
    static constinit Module_c * s_dPrerequisites[2] = {};
    s_dPrerequisites[0] = ModuleLog_c::Get();   // at each call: a global constructor of a host may make the first one
    return s_dPrerequisites;
}

bool ModuleFile_c::Initialize()
{
    MemCategoryScope_c const Category(mem::file);
    ChooseGame();
    Log("FS game mode: %s", g_bAddon ? "addon" : "normal");
    LogMediaSource();
    FileExcludeToolFiles();
    FillTables();
    FileCleanNamesReset();
    g_FileOpenCallbacker.Add(ResourceLoadCallback, false);
    FileAsyncStart();
    FileBuildMediaHash(false);
    return Module_c::Initialize();
}

void ModuleFile_c::FillTables()
{
    bool bScan = m_bReadMedia;
    if (m_bCheckCache)
    {
        FilesystemCacheCheck(true);
    }
    if (!g_sFilesystemCacheName.IsEmpty())
    {
        if (m_bCheckCache && !FilesystemCacheIsCurrent())
        {
            g_sFilesystemCacheName = "";   // the load finds nothing
        }
        bScan = !FilesystemCacheLoad();
        if (!bScan)
        {
            FileAddSearchPath(GetPQXMediaPath(false) + PROFILES, true, false);
            FileAddSearchPath(GetPQXMediaPath(false) + MAPS_CACHE, true, false);
        }
    }
    String_T<256> const sRoot = GetPQXMediaPath(false);
    if (bScan && !FileAddSearchPath(sRoot, true, false) && !sRoot.IsEmpty())
    {
        FileNoteMissed(sRoot);   // it may be there at the next start
    }
}

void ModuleFile_c::Shutdown()
{
    MemCategoryScope_c const Category(mem::file);
    FileAsyncStop();
    // After a failed start the tables say nothing about the media. The host's cache then stays.
    bool const bSave = m_sCacheFile.IsEmpty() ? FileExists(CACHE_NAME) : IsInitialized() && FileCacheHasFolders();
    if (bSave)
    {
        SaveCache(m_sCacheFile);
    }
    FileReset();
    g_sExcludedFolders.Reset();
    g_sExcludedFiles.Reset();
    FileTrackShutdown();
    FileStayerResetMask();
    g_FileOpenCallbacker.Reset();
    Module_c::Shutdown();
}

void ModuleFile_c::HeartbeatIdle()
{
    FileTrackDoWork();
}
