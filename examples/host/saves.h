// saves.h: the world in a file, from one run to the next.
//
// The file is a save of the library (zqcore/cfilesave.h): sealed, locked while the host plays, and replaced in one
// step. Previous saves stay next to it.
#pragma once

#include <string>

class FileSave_c;
class ModuleWorld_c;

/// Number of previous saves that are kept.
inline constexpr int PREVIOUS_SAVES = 3;

/// The result of a load or a save.
struct SaveResult_s
{
    std::string sWhyNot;     // why the save itself was not loaded or stored; empty if it was
    std::string sKept;       // the new path of a damaged save
    std::string sPrevious;   // the previous save that was loaded instead of a damaged or absent one
    bool bRefused = false;   // a save may be good, but can't be loaded: nothing may replace it
    long long nBytes = 0;
    double tTaken = 0.0;   // seconds
};

/// Loads the world of a game from a save and returns the result:
/// - If the save is damaged or absent, loads the newest previous save that is whole and of this game. If there is none,
///   the world starts new. Sets a damaged save aside.
/// - If the save can't be read, is of another version or game, or holds no sound world, refuses it.
/// - If a previous save can't be read or is of another version, refuses that one too.
SaveResult_s SaveLoad(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);

/// Stores the world and returns the result.
SaveResult_s SaveStore(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);
