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
    std::string sKept;       // where a damaged save went
    std::string sFormer;     // the former save that was loaded in its place
    bool bRefused = false;   // the save may be good, though it can't be loaded: nothing may replace it
    long long nBytes = 0;
    double tTaken = 0.0;   // seconds
};

/// Loads the world of a game from a save. A damaged save is put aside, and the newest former one that is good is loaded.
/// If there is none, or no save yet, the world begins anew.
SaveResult_s SaveLoad(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);

/// Stores the world.
SaveResult_s SaveStore(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);
