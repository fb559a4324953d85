// A small game. It reads a table of the media, first asynchronously, counts its runs in a save, and crashes on request.
// Each folder here builds it in another way.
//
//     game MEDIA LOGS [crash]
#include "zqcore/capp.h"
#include "zqcore/cfile.h"
#include "zqcore/cfileasync.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilesave.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserialize.h"
#include "zqcore/ctimer.h"
#include "zqcore/cwarehouse.h"

#ifdef GAME_ZIP   // the build has the component zip
    #include "zqcore/czip.h"
#endif

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

namespace
{
    struct World_s
    {
        int nRuns = 0;
        int iLowest = 0;
        int iHighest = 0;

        void Serialize(Serializeable_c & Archive) { Archive.Serialize(nRuns).Serialize(iLowest).Serialize(iHighest); }
    };

    bool Load(FileSave_c & Save, World_s & World)
    {
        FileSave_c::State_e const eState = Save.Load(ARCHIVE_SAVED_GAME_VERSION);
        if (eState != FileSave_c::WHOLE)
        {
            return eState == FileSave_c::ABSENT;   // the first run
        }
        Readable_c Archive(Save.OpenFile(), ARCHIVE_SAVED_GAME_VERSION);
        if (Archive.Open())
        {
            World.Serialize(Archive);
        }
        return Archive.Close() && !Archive.IsFailed();
    }

    bool Store(FileSave_c & Save, World_s & World)
    {
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c Archive(Writer, ARCHIVE_SAVED_GAME_VERSION);
        if (Archive.Open())
        {
            World.Serialize(Archive);
        }
        bool const bStored = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
        if (!bStored)
        {
            std::fprintf(stderr, "game: can't store the save: %s\n", Writer.GetWhyNot());
        }
        return bStored;
    }

    bool MountMods([[maybe_unused]] std::filesystem::path const & Mods)
    {
#ifdef GAME_ZIP
        return !std::filesystem::exists(Mods) || FileZipMount(Mods.c_str(), ZipOrder_e::Over);
#else
        return true;
#endif
    }

    // Reads a file on the library's worker thread and frees its contents. Returns whether the read succeeded.
    bool ReadAsync(char const * szFile)
    {
        File_c * const pFile = FileStream(szFile);
        if (!pFile)
        {
            return false;
        }
        void * const hRead = FileAsyncOpen(pFile, nullptr);
        while (!FileAsyncIsLoaded(hRead))
        {
            longTimeWait(0.001);   // a game would show frames
        }
        bool const bRead = pFile->pData != nullptr;
        if (bRead)   // a failed read added no reference
        {
            FileClose(pFile);
        }
        return bRead;
    }

    bool Play(char const * szSave)
    {
        FileSave_c Save(szSave);
        World_s World;
        Warehouse_c Goods;
        if (!Load(Save, World))
        {
            std::fprintf(stderr, "game: can't load the save: %s\n", Save.GetWhyNot());
            return false;
        }
        if (!ReadAsync("goods.csv"))
        {
            std::fprintf(stderr, "game: can't read goods.csv\n");
            return false;
        }
        if (!Goods.Open("goods.csv") || !Goods.FindIdent("herring")
            || !Goods.Get("price", World.iLowest, World.iHighest))
        {
            std::fprintf(stderr, "game: no price of herring: %s\n", Goods.GetLastError().sReason.CStr());
            return false;
        }
        ++World.nRuns;
        std::printf("run %i: herring costs %i to %i\n", World.nRuns, World.iLowest, World.iHighest);
        return Store(Save, World);
    }

    int const * volatile g_pHold = nullptr;

    int Sink()
    {
        return *g_pHold;   // the fault: g_pHold is null
    }

    bool IsPlainNewCounted()
    {
        std::ptrdiff_t const nBefore = MemoryTotalBytesAllocated();
        void * const pCargo = ::operator new(1000);   // a direct call, which compilers do not remove
        bool const bCounted = MemoryTotalBytesAllocated() > nBefore;
        ::operator delete(pCargo);
        return bCounted;
    }
}

int main(int nArguments, char ** dArguments)
{
    if (nArguments < 3)
    {
        std::fprintf(stderr, "usage: game MEDIA LOGS [crash]\n");
        return 2;
    }
    std::filesystem::path const Media = std::filesystem::absolute(dArguments[1]);
    std::filesystem::path const Logs = std::filesystem::absolute(dArguments[2]) / "";
    bool const bCrash = nArguments > 3 && std::string_view(dArguments[3]) == "crash";

    g_silentMode = true;                             // no dialog asks
    std::u32string const sLogs = Logs.u32string();   // libstdc++'s wstring() refuses names beyond ASCII
    LogSetFile(std::wstring(sLogs.begin(), sLogs.end()).c_str(), L"message.log");
    AppMiscStartup();
    SetPQXMediaPath(Media.c_str());
    Module_c::Register(ModuleFile_c::Get());
    std::thread([] { Log("The crew is aboard."); }).join();
    int iStatus = 1;
    if (Module_c::InitializeAllModules() && MountMods(Media / "mods.zip") && Play((Logs / "game.sav").c_str()))
    {
        std::printf("plain new is %s\n", IsPlainNewCounted() ? "counted" : "not counted");
        iStatus = bCrash ? Sink() : 0;
    }
    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return iStatus;
}
