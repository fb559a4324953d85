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
struct SaveResult_t
{
    std::string sWhyNot;     // why the save itself was not loaded or stored; empty if it was
    std::string sKept;       // the new path of a damaged save; empty for none, no meaning if bRefused is true
    std::string sPrevious;   // the previous save that was loaded instead of a damaged or absent one; empty for none
    bool bRefused = false;   // whether the load was refused: nothing may replace the save
    long long nBytes = 0;    // size of the save, or of the previous save that was loaded; 0 if there is no file
    double tTaken = 0.0;     // seconds
};

/// Loads the world of a game from a save and returns the result. If the save is damaged or absent, loads the newest of
/// Save.GetPrevious() previous saves that holds a sound world of this game. If there is none, the world starts new.
/// Puts a damaged save aside. Refuses the load in these cases, after which the world allows no call but Begin and its
/// shutdown:
/// - the save, or a previous one that it tries, can't be read or is of another version.
/// - the save is of another game.
/// - the save holds no sound world.
/// - a damaged save can't be put aside.
SaveResult_t SaveLoad(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);

/// Stores the world and returns the result.
SaveResult_t SaveStore(FileSave_c & Save, std::string const & sGame, ModuleWorld_c & World);
