// saves.h: the world in a file, from one run to the next.
//
// A save is an archive with a seal behind it: the CRC-32 of all before, as a word. So a damaged save is known for it
// before anything of it is believed. A new save takes the place of the old one only when it is whole.
#pragma once

#include <string>

class ModuleWorld_c;

/// What became of a load or a save.
struct SaveResult_s
{
    std::string sWhyNot;      // empty: it worked
    std::string sKept;        // where a save went that could not be loaded
    bool bInTheWay = false;   // one that could not be loaded is still there: a new one would replace it
    long long nBytes = 0;
    double tTaken = 0.0;   // seconds
};

/// Loads the world of a game from a save. If that can't be done the world begins anew, and the file, if there is one,
/// is put aside.
SaveResult_s SaveLoad(std::string const & sFile, std::string const & sGame, ModuleWorld_c & World);

/// Stores the world, for which it makes the folders on the way.
SaveResult_s SaveStore(std::string const & sFile, std::string const & sGame, ModuleWorld_c & World);
