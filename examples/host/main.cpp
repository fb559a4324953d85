// A host application of ZQCore: it starts the library, runs a main loop over a media tree, and stops.
//
// Every application makes those of the library's calls below that it needs, in this order.
#include "listeners.h"
#include "loop.h"
#include "media.h"
#include "options.h"
#include "paths.h"
#include "report.h"
#include "saves.h"
#include "services.h"
#include "settings.h"
#include "survey.h"
#include "watch.h"
#include "world.h"

#include "zqcore/capp.h"
#include "zqcore/ccryptrnd.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilesave.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cprofile.h"
#include "zqcore/cserializer.h"
#include "zqcore/ctexterror.h"
#include "zqcore/ctimer.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

namespace
{
    // Prints why the run fails and returns the status.
    int Fail(Status_e eStatus, std::string const & sMessage)
    {
        std::fflush(stdout);
        std::fprintf(stderr, "zqhost: %s\n", static_cast<char const *>(TextForLog(sMessage.c_str())));
        return eStatus;
    }

    // Flushes standard output. Returns the status, or prints a message and returns STATUS_OUTPUT instead of STATUS_OK
    // if standard output did not accept the whole report. A watch whose terminal was closed needs no output.
    int CheckOutput(int iStatus)
    {
        bool const bWhole = (std::fflush(stdout) == 0 && !std::ferror(stdout)) || Watch_c::IsHungUp();
        return bWhole || iStatus != STATUS_OK ? iStatus
                                              : Fail(STATUS_OUTPUT, "standard output did not accept the whole report");
    }

    // Prepares what comes before the modules: signals, complaints, log, current folder, listeners.
    void StartApplication(Options_s const & Options)
    {
#ifdef SIGPIPE
        std::signal(SIGPIPE, SIG_IGN);   // the reader of the report may end first, and the world must still be saved
#endif
#ifdef SIGXFSZ
        std::signal(SIGXFSZ, SIG_IGN);   // a write beyond the limit of a file fails instead, and is reported
#endif
        g_szApplicationName = "Harbour";
        g_silentMode = Options.bSilent;
        LogSetFile(WideFromPath(Options.sLogFolder + "/").c_str(), WideFromPath(LOG_NAME).c_str());
        AppMiscStartup();
        if (!g_pMessageLogFile)
        {
            std::fprintf(stderr, "zqhost: can't write a log to \"%s\"\n",
                static_cast<char const *>(TextForLog(Options.sLogFolder.c_str())));
        }
        DumpSystemInfo();
        Log("%s", GetBuildVersionString());
        ListenersAdd();
        SetTextErrorLog(true);   // logs the place of each error, for authors of tables
        SetAchtungs(false);      // media of all kinds occur: complaints are counted and reported at the end
    }

    // Writes the list of the live memory into a folder, which is the current one meanwhile. Returns the status.
    int ListAllocations(std::string const & sFolder)
    {
        std::error_code Error;
        std::filesystem::path const Current = std::filesystem::current_path(Error);
        if (!Error)
        {
            std::filesystem::current_path(sFolder, Error);
        }
        if (Error)
        {
            return Fail(STATUS_MEMORY, "can't list the live memory: " + Error.message());
        }
        MemoryLogAllocations();
        std::filesystem::current_path(Current, Error);
        return MemoryLogAllocationsFailed() ? Fail(STATUS_MEMORY, "can't list the live memory; the log says why")
                                            : STATUS_OK;
    }

    // Prints the version, and the files and folders that the run uses.
    void PrintHead(Options_s const & Options, std::string const & sMedia)
    {
        std::printf("%s\n", GetBuildVersionString());
        auto const Print = [](char const * szWhat, std::string const & sText)
        { std::printf("    %-7s %s\n", szWhat, static_cast<char const *>(TextForLog(sText.c_str()))); };
        Print("media", sMedia);
        Print("game", Options.sGame);
        Print("config", Options.sConfig.empty() ? "none" : Options.sConfig);
        Print("logs", Options.sLogFolder);
        Print("save", Options.sSave);
        Print("stats", Options.sStats.empty() ? "none" : Options.sStats);
    }

    // Reads the files and tables of the media. Reports them and the services.
    void RunSurvey(Survey_c & Survey, char const * szSource, Services_c const & Services)
    {
        Survey.List();
        Survey.ReadFiles();
        Survey.ReadTables();
        ReportServices(Services);
        ReportFiles(Survey, szSource, Services.GetStartTime(*ModuleFile_c::Get()), ListenersGetNotes());
        ReportTables(Survey);
    }

    // Runs the frames and sets Stats to their figures. Returns why nothing can be watched, or an empty text.
    std::string RunLoop(Options_s const & Options, Survey_c & Survey, FrameStats_t & Stats)
    {
        if (!Options.bWatch)
        {
            Stats = LoopRun(Options.nFrames, Survey);
            return "";
        }
        Watch_c const Watch(static_cast<char const *>(GetPQXMediaPath(false)), Survey);
        std::string sWhyNot = Watch_c::GetWhyNot();
        Stats = sWhyNot.empty() ? LoopRun(FRAMES_UNTIL_OVER, Survey) : FrameStats_t{};
        return sWhyNot;
    }

    int FailSave(Options_s const & Options, std::string const & sWhyNot)
    {
        return Fail(STATUS_SAVE, "can't save to \"" + Options.sSave + "\": " + sWhyNot);
    }

    // Runs the frames, and reports them and the world. Returns the status of the process.
    int RunAndReport(Options_s const & Options, ModuleWorld_c const & World, Survey_c & Survey)
    {
        FrameStats_t Stats;
        std::string const sWhyNotWatched = RunLoop(Options, Survey, Stats);
        if (!sWhyNotWatched.empty())
        {
            return Fail(STATUS_WATCH, sWhyNotWatched);
        }
        ReportWorld(World);
        ReportFrames(Stats);
        return STATUS_OK;
    }

    // Loads the last save unless bNew is set, runs the world and saves it. Holds the lock of the save meanwhile.
    // Returns the status of the process.
    int Play(Options_s const & Options, ModuleWorld_c & World, Survey_c & Survey)
    {
        FileSave_c Save(Options.sSave.c_str());
        Save.SetPrevious(PREVIOUS_SAVES);
        if (!Save.IsLocked())
        {
            return FailSave(Options, Save.GetWhyNot());
        }
        if (Options.bNew)
        {
            ReportNotLoaded("a new world was asked for");
        }
        else
        {
            SaveResult_t const Loaded = SaveLoad(Save, Options.sGame, World);
            if (Loaded.bRefused)
            {
                return Fail(STATUS_SAVE, "can't load \"" + Options.sSave + "\": " + Loaded.sWhyNot
                                             + "; give another file with --save, or start a new world with --new");
            }
            ReportLoad(Loaded, World);
        }
        if (int const iStatus = RunAndReport(Options, World, Survey); iStatus != STATUS_OK)
        {
            return iStatus;
        }
        SaveResult_t const Saved = SaveStore(Save, Options.sGame, World);
        ReportSave(Saved, World);
        return Saved.sWhyNot.empty() ? STATUS_OK : FailSave(Options, Saved.sWhyNot);
    }

    // Runs over media without a world, so there is nothing to load or save. Returns the status of the process.
    int PlayEmpty(Options_s const & Options, ModuleWorld_c const & World, Survey_c & Survey)
    {
        ReportNotLoaded(World.GetWhyEmpty());
        return RunAndReport(Options, World, Survey);
    }

    int FailStats(Options_s const & Options)
    {
        return Fail(STATUS_STATS, "can't write the stats to \"" + Options.sStats + "\"; the log says why");
    }

    // Runs everything that needs the modules. Returns the status of the process.
    int RunGame(Options_s const & Options, Services_c const & Services, std::string const & sMedia)
    {
        std::string const sMessage = MediaCheckChoice(Options, sMedia);
        if (!sMessage.empty())
        {
            return Fail(STATUS_MEDIA, sMessage);
        }
        ProfilerInitSwapStats(Options.sStats.c_str());
        if (ProfilerSwapStatsFailed())
        {
            return FailStats(Options);
        }
        PrintHead(Options, sMedia);
        Survey_c Survey;
        RunSurvey(Survey, MediaDescribeSource(Options, sMedia).c_str(), Services);
        ModuleWorld_c & World = *ModuleWorld_c::Get();
        if (World.IsFaulty())
        {
            return Fail(STATUS_MEDIA, std::string("no world can begin: ") + World.GetWhyEmpty());
        }
        int const iStatus = World.IsEmpty() ? PlayEmpty(Options, World, Survey) : Play(Options, World, Survey);
        int const iListed = Options.bAllocations ? ListAllocations(Options.sLogFolder) : STATUS_OK;
        ReportMemory();
        ReportComplaints(ListenersGetNotes());
        return iStatus == STATUS_OK ? iListed : iStatus;
    }

    // Starts the modules, runs the game and stops the modules. Returns the status of the process.
    int RunModules(Options_s const & Options, std::string const & sMedia)
    {
        MediaSet(Options, sMedia);
        Services_c Services;
        Services.Add(ModuleTimer_c::Get());   // first, so that the good clock times the others
        Services.Add(ModuleLog_c::Get());
        Services.Add(ModuleProfiler_c::Get());
        Services.Add(ModuleCryptRandom_c::Get());
        Services.Add(ModuleFile_c::Get());
        Services.Add(ModuleSerialize_c::Get());
        Services.Add(ModuleSettings_c::Get());
        Services.Add(ModuleWorld_c::Get());
        int const iStatus = Services.Start() ? RunGame(Options, Services, sMedia)
                                             : Fail(STATUS_SERVICE, "a service did not start; the log says which");
        Module_c::ShutdownAllModules();
        return iStatus == STATUS_OK && ProfilerSwapStatsFailed() ? FailStats(Options) : iStatus;
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
        return CheckOutput(STATUS_OK);
    }

    StartApplication(Options);
    std::string const sMedia =
        Options.sMedia.empty() ? static_cast<char const *>(GetPQXMediaPath(false)) : Options.sMedia;
    sMessage = MediaCheck(Options, sMedia);
    int const iStatus = sMessage.empty() ? RunModules(Options, sMedia) : Fail(STATUS_MEDIA, sMessage);
    AppMiscShutdown();
    return CheckOutput(iStatus);
}
