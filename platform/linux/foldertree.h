// foldertree.h: what a folder watch stores about the folders and files below it.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace plat::watch
{
    constexpr int NO_FOLDER = -1;

    struct File_s
    {
        bool bFresh = false;     // created since the watch began, and not yet closed after writing
        bool bChanged = false;   // belongs to the present batch
    };

    struct Folder_s
    {
        int iParent = NO_FOLDER;
        std::string sName;   // in the parent; for the watched folder its path
        std::unordered_map<std::string, File_s> dFiles;
        std::unordered_map<std::string, int> dFolders;
    };

    // Origin of a folder's contents.
    enum class Appeared_e
    {
        Before,   // not by being written now
        Now
    };

    struct Change_s
    {
        int iFolder;
        std::string sName;
    };

    // A folder that was renamed away, until the other half of the rename arrives.
    struct Detached_s
    {
        std::uint32_t iCookie;
        int iFolder;
    };

    // A folder whose name another one took: the rest of an exchange is still to come, or it was empty and is deleted.
    struct Displaced_s
    {
        int iParent;
        std::string sName;
        int iFolder;
    };
}
