// A host application of ZQCore: it starts the library, runs a main loop over a media tree, and stops.
//
// The order of the calls below is the order in which every application makes them.
#include "listeners.h"
#include "loop.h"
#include "options.h"
#include "report.h"
#include "services.h"
#include "survey.h"
#include "world.h"

#include "zqcore/capp.h"
#include "zqcore/ccryptrnd.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmodule.h"
#include "zqcore/ctimer.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace
{
    constexpr char const * DEFAULT_GAME = "pqx";
    constexpr wchar_t const * LOG_NAME = L"message.log";

    int Fail(Status_e eStatus, std::string const & sMessage)
    {
        std::fflush(stdout);
        std::fprintf(stderr, "zqhost: %s\n", sMessage.c_str());
        return eStatus;
    }

    // Says what is wrong with a media root; nothing if it can be read.
    std::string CheckMedia(std::string const & sMedia)
    {
        if (sMedia.empty())
        {
            return "no media: give --media FOLDER, or put media.zq beside the executable";
        }
        std::error_code Error;
        if (!DirectoryExists(sMedia.c_str()))
        {
            bool const bFile = std::filesystem::exists(sMedia, Error);
            return bFile ? "\"" + sMedia + "\" is a file; the media root is a folder" : "no folder \"" + sMedia + "\"";
        }
        if (sMedia.size() >= static_cast<std::size_t>(String_T<256>::Capacity()) - 1)
        {
            return "the path of the media root takes more than 254 characters: \"" + sMedia + "\"";
        }
        std::filesystem::directory_iterator const First(sMedia, Error);
        return Error ? "can't read \"" + sMedia + "\": " + Error.message() : "";
    }

    // Log, current folder, listeners: everything in front of the modules.
    void StartApplication(Options_s const & Options)
    {
        g_szApplicationName = "Harbour";
        g_silentMode = Options.bSilent;
        LogSetFile(std::filesystem::path(Options.sLogFolder + "/").wstring().c_str(), LOG_NAME);
        AppMiscStartup();
        if (!g_pMessageLogFile)
        {
            std::fprintf(stderr, "zqhost: can't write a log to \"%s\"\n", Options.sLogFolder.c_str());
        }
        DumpSystemInfo();
        Log("%s", GetBuildVersionString());
        ListenersAdd();
        SetAchtungs(false);   // media of all kinds come along: complaints are counted and reported at the end
    }

    // The settings that ModuleFile_c reads when it comes up.
    void SetMedia(Options_s const & Options, std::string const & sMedia)
    {
        SetPQXMediaPath(Options.sMedia.c_str());   // empty: discovered, which is where sMedia comes from then
        SetPQXCurrentConfig(Options.sConfig.c_str());
        FileSetMediaTemplate("media*.zq");
        // A tree without a folder for the game is no tree of several games, and is taken whole.
        std::string const sGame = Options.sGame.empty() ? DEFAULT_GAME : Options.sGame;
        FileSetSplit(DirectoryExists((sMedia + "/gamedata/" + sGame).c_str()) ? "\\gamedata\\" : nullptr);
        ModuleFile_c::Get()->ReadMedia(true);
    }

    bool IsScanned(std::string const & sFolder)
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

    // Says which of the folders that the command line names the scan did not find.
    std::string CheckChoice(Options_s const & Options)
    {
        if (!Options.sGame.empty() && !FileIsAddon())
        {
            return "the library reads the first 255 characters of the command line only: put --game first";
        }
        if (!Options.sGame.empty() && !IsScanned("\\gamedata\\" + Options.sGame + "\\"))
        {
            return "the media have no folder gamedata/" + Options.sGame;
        }
        if (!Options.sConfig.empty() && !IsScanned("media\\_configdependeddata\\" + Options.sConfig + "\\"))
        {
            return "the media have no folder media/_configdependeddata/" + Options.sConfig;
        }
        return "";
    }

    void PrintHead(Options_s const & Options, std::string const & sMedia)
    {
        std::printf("%s\n", GetBuildVersionString());
        std::printf("    media   %s\n", sMedia.c_str());
        std::printf("    game    %s\n", Options.sGame.empty() ? DEFAULT_GAME : Options.sGame.c_str());
        std::printf("    config  %s\n", Options.sConfig.empty() ? "none" : Options.sConfig.c_str());
        std::printf("    logs    %s\n", Options.sLogFolder.c_str());
    }

    // All that happens while the modules are up.
    int RunGame(Options_s const & Options, Services_c const & Services, std::string const & sMedia)
    {
        std::string const sMessage = CheckChoice(Options);
        if (!sMessage.empty())
        {
            return Fail(STATUS_MEDIA, sMessage);
        }
        PrintHead(Options, sMedia);
        ReportServices(Services);

        Survey_c Survey;
        Survey.List();
        Survey.ReadFiles();
        Survey.ReadTables();
        ReportFiles(Survey, ListenersGetNotes());
        ReportTables(Survey);

        FrameStats_s const Stats = LoopRun(Options.nFrames, Survey);
        ReportWorld(*ModuleWorld_c::Get());
        ReportFrames(Stats);
        ReportMemory();
        ReportComplaints(ListenersGetNotes());
        return STATUS_OK;
    }

    int RunModules(Options_s const & Options, std::string const & sMedia)
    {
        SetMedia(Options, sMedia);
        Services_c Services;
        Services.Add(ModuleTimer_c::Get());   // first, so that the others are timed by the good clock
        Services.Add(ModuleLog_c::Get());
        Services.Add(ModuleCryptRandom_c::Get());
        Services.Add(ModuleFile_c::Get());
        Services.Add(ModuleWorld_c::Get());
        int const iStatus = Services.Start() ? RunGame(Options, Services, sMedia)
                                             : Fail(STATUS_FAILED, "a service did not start; the log says which");
        Module_c::ShutdownAllModules();
        return iStatus;
    }
}

int main(int nArguments, char ** dArguments)
{
    Options_s Options;
    std::string sMessage;
    if (!OptionsRead(nArguments, dArguments, Options, sMessage))
    {
        return Fail(STATUS_USAGE, sMessage + "; try --help");
    }
    if (Options.bHelp)
    {
        std::fputs(OptionsHelp().c_str(), stdout);
        return STATUS_OK;
    }

    StartApplication(Options);
    std::string const sMedia =
        Options.sMedia.empty() ? static_cast<char const *>(GetPQXMediaPath(false)) : Options.sMedia;
    sMessage = CheckMedia(sMedia);
    int const iStatus = sMessage.empty() ? RunModules(Options, sMedia) : Fail(STATUS_MEDIA, sMessage);
    AppMiscShutdown();
    return iStatus;
}
