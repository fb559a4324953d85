// Counts its runs in a save, and keeps the two previous saves: save_and_load [FILE]
#include "zqcore/cfilesave.h"
#include "zqcore/cserialize.h"

#include <cstdio>
#include <string>

namespace
{
    constexpr std::uint32_t VERSION = 0x00010000;   // major version 1, minor version 0

    struct World_s
    {
        int nRuns = 0;
        String_T<32> sPlayer{ "Aldous" };

        void Serialize(Serializeable_c & Archive)   // both directions
        {
            Archive.Label("World");
            Archive.Serialize(nRuns);
            Archive.SerializeString(sPlayer);
        }
    };

    // Loads the world. Returns why that failed, or an empty text on success or without a save.
    std::string Load(FileSave_c & Save, World_s & World)
    {
        FileSave_c::State_e const eState = Save.Load(VERSION);
        if (eState != FileSave_c::WHOLE)
        {
            return eState == FileSave_c::ABSENT ? "" : Save.GetWhyNot();   // absent: the first run
        }
        Readable_c Archive(Save.OpenFile(), VERSION);
        if (Archive.Open())
        {
            World.Serialize(Archive);
        }
        return Archive.Close() && !Archive.IsFailed() ? "" : "it has no world";
    }

    // Stores the world and keeps two previous saves. Returns why that failed, or an empty text.
    std::string Store(FileSave_c & Save, World_s & World)
    {
        Save.SetPrevious(2);
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c Archive(Writer, VERSION);
        if (Archive.Open())
        {
            World.Serialize(Archive);
        }
        bool const bStored = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
        std::string const sWhyNot = Writer.GetWhyNot();
        return bStored ? "" : sWhyNot.empty() ? "the archive failed" : sWhyNot;
    }

    // Prints why the program fails. Returns its status.
    int Fail(std::string const & sWhyNot)
    {
        std::fprintf(stderr, "save_and_load: %s\n", sWhyNot.c_str());
        return 1;
    }
}

int main(int nArguments, char ** dArguments)
{
    FileSave_c Save(nArguments > 1 ? dArguments[1] : "game.sav");
    World_s World;
    if (!Save.IsLocked())
    {
        return Fail(Save.GetWhyNot());
    }
    if (std::string const sWhyNot = Load(Save, World); !sWhyNot.empty())
    {
        return Fail(sWhyNot);
    }
    ++World.nRuns;
    std::printf("run %i of %s\n", World.nRuns, World.sPlayer.CStr());
    if (std::string const sWhyNot = Store(Save, World); !sWhyNot.empty())
    {
        return Fail(sWhyNot);
    }
    return std::fflush(stdout) != 0 ? Fail("the output is lost") : 0;
}
