// foldertree.h: what a folder watch stores about the folders and files in its tree.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace plat::watch
{
    inline constexpr int NO_FOLDER = -1;   // number that no folder has

    /// A file of the tree.
    struct File_s
    {
        bool bFresh = false;     // whether it was created here since the watch began and not yet closed after writing
        bool bChanged = false;   // whether it belongs to the present batch
    };

    /// A folder of the tree. Folders refer to each other by number.
    struct Folder_s
    {
        int iParent = NO_FOLDER;
        std::string sName;   // name in the parent; path if this is the watched folder
        std::unordered_map<std::string, File_s> dFiles;
        std::unordered_map<std::string, int> dFolders;   // numbers by name
    };

    /// Time at which the contents of a folder that appears in the tree were written.
    enum class Appeared_e
    {
        Before,   // earlier: the folder existed at the start, or was renamed into the tree
        Now       // since the folder appeared: it was created in the tree
    };

    /// A changed file of the present batch, by its folder and its name there.
    struct Change_s
    {
        int iFolder;
        std::string sName;
    };

    /// A folder that was renamed, until the second event of the rename arrives.
    struct Detached_s
    {
        std::uint32_t iCookie;   // the kernel's number of the rename
        int iFolder;
    };

    /// A folder whose name another folder got by a rename. Either the second half of an exchange follows, or this
    /// folder was empty and the rename deleted it.
    struct Displaced_s
    {
        int iParent;
        std::string sName;
        int iFolder;
    };
}
