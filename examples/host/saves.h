// saves.h: the world in a file, from one run to the next.
//
// The file is a save of the library (zqcore/cfilesave.h): sealed, locked while the host plays, replaced in one step,
// with former ones beside it.
#pragma once

#include <string>

class FileSave_c;
class ModuleWorld_c;

/// Former saves that are kept.
inline constexpr int FORMER_SAVES = 3;

/// What became of a load or a save.
struct SaveResult_s
{
    std::string sWhyNot;     // empty: it worked
    std::string sKept;       // the new path of a damaged save
    std::string sFormer;     // the former save that was loaded in place of a damaged or absent one
    bool bRefused = false;   // a save may be good though it can't be loaded: nothing may replace it
    long long nBytes = 0;
    double tTaken = 0.0;   // seconds
};

/// Loads the world of a game from a save. If the save is damaged or absent, loads the newest former one of this game
/// that is whole; if there is none, a new world begins. A damaged save is put aside. A save or a former one that cannot be
/// read, or is of another version, is refused.
SaveResult_s SaveLoad(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);

/// Stores the world.
SaveResult_s SaveStore(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);
