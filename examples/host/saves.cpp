#include "saves.h"

#include "bay.h"
#include "world.h"

#include "zqcore/cfilesave.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserialize.h"
#include "zqcore/ctimer.h"

#include <filesystem>
#include <system_error>

namespace
{
    constexpr std::uint32_t SAVE_VERSION = 0x00010000;

    // Stores or loads the game's name and the world. Returns what is wrong with the data, and fails the archive then.
    // Returns an empty text otherwise, also if the archive itself fails.
    std::string Serialize(Serializeable_c & Archive, std::string const & sGame, ModuleWorld_c & World)
    {
        Name_t sOfGame = sGame.c_str();
        Archive.SerializeString(sOfGame);
        if (sOfGame != sGame.c_str())
        {
            Archive.Fail();
            return std::string("it is of the game ") + static_cast<char const *>(sOfGame);
        }
        MemCategoryScope_c const Scope(mem::GameWorld);
        return static_cast<char const *>(BaySerialize(Archive, World.GetBay()));
    }

    // Loads a save whose state is WHOLE. Returns why that fails, or an empty text.
    std::string LoadWhole(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World)
    {
        Readable_c Archive(Save.OpenFile(), SAVE_VERSION);
        Archive.Open();
        std::string const sWhyNot = Serialize(Archive, sGame, World);
        return sWhyNot.empty() && Archive.IsFailed() ? "its contents end too early" : sWhyNot;
    }

    // Loads the newest previous save that fits, and stores its path in Result. Stops at one that can't be read or is of
    // another version, and refuses the load.
    void LoadPrevious(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World, SaveResult_t & Result)
    {
        for (int i = 1; i <= Save.GetPrevious(); ++i)
        {
            FileSave_c::State_e const eState = Save.Load(SAVE_VERSION, i);
            std::string const sPath = static_cast<char const *>(Save.GetPath(i));
            if (eState != FileSave_c::WHOLE && eState != FileSave_c::ABSENT && eState != FileSave_c::DAMAGED)
            {
                Result.bRefused = true;
                Result.sWhyNot += "; of the saves before it, \"" + sPath + "\" can't be read: " + Save.GetWhyNot();
                return;
            }
            if (eState == FileSave_c::WHOLE)
            {
                if (LoadWhole(Save, sGame, World).empty())
                {
                    Result.sPrevious = sPath;
                    return;
                }
                World.Begin();
            }
        }
    }

    // Loads the save or a previous one, and fills in Result except its figures. Tries the previous saves before it sets
    // a damaged save aside. If one of them refuses the load, the damaged save stays.
    void Load(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World, SaveResult_t & Result)
    {
        FileSave_c::State_e const eState = Save.Load(SAVE_VERSION);
        switch (eState)
        {
        case FileSave_c::WHOLE:
            Result.sWhyNot = LoadWhole(Save, sGame, World);
            break;
        case FileSave_c::ABSENT:
            Result.sWhyNot = "there is no save yet";
            break;
        case FileSave_c::DAMAGED:
            Result.sWhyNot = std::string("it is damaged: ") + Save.GetWhyNot();
            break;
        default:
            Result.sWhyNot = Save.GetWhyNot();
            break;
        }
        if (eState != FileSave_c::ABSENT && eState != FileSave_c::DAMAGED)
        {
            Result.bRefused = !Result.sWhyNot.empty();
            return;
        }
        LoadPrevious(Save, sGame, World, Result);
        if (eState == FileSave_c::DAMAGED && !Result.bRefused)
        {
            String_T<256> sKept;
            Result.bRefused = !Save.PutAside(sKept);
            Result.sWhyNot += Result.bRefused ? std::string(", and can't be put aside: ") + Save.GetWhyNot() : "";
            Result.sKept = static_cast<char const *>(sKept);
        }
    }

    // Stores the world. Returns why that fails, or an empty text.
    std::string Store(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World)
    {
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c Archive(Writer, SAVE_VERSION);
        std::string const sWhyNot = Archive.Open() ? Serialize(Archive, sGame, World) : "";
        bool const bSaved = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
        std::string const sReason = sWhyNot.empty() ? Writer.GetWhyNot() : sWhyNot;
        return bSaved ? "" : sReason.empty() ? "the archive failed" : sReason;
    }

    // Returns the size of a file in bytes, or 0 if the system does not report it.
    long long FileSize(std::string const & sFile)
    {
        std::error_code Error;
        std::uintmax_t const nBytes = std::filesystem::file_size(sFile, Error);
        return Error ? 0 : static_cast<long long>(nBytes);
    }
}

SaveResult_t SaveLoad(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World)
{
    SaveResult_t Result;
    double const tStart = longTimeGet();
    Load(Save, sGame, World, Result);
    Result.tTaken = longTimeGet() - tStart;
    Result.nBytes = FileSize(Result.sPrevious.empty() ? static_cast<char const *>(Save.GetPath()) : Result.sPrevious);
    return Result;
}

SaveResult_t SaveStore(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World)
{
    SaveResult_t Result;
    double const tStart = longTimeGet();
    Result.sWhyNot = Store(Save, sGame, World);
    Result.tTaken = longTimeGet() - tStart;
    Result.nBytes = FileSize(static_cast<char const *>(Save.GetPath()));
    return Result;
}
