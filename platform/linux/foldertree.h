// foldertree.h: what a folder watch remembers of the folders and files below it.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace plat::watch
{
    constexpr int NO_FOLDER = -1;

    struct File_s
    {
        bool bFresh = false;     // made since the watch began, and not closed after writing yet
        bool bChanged = false;   // goes into the present batch
    };

    struct Folder_s
    {
        int iParent = NO_FOLDER;
        std::string sName;   // in the parent; of the watched folder the path
        std::unordered_map<std::string, File_s> dFiles;
        std::unordered_map<std::string, int> dFolders;
    };

    // How the contents of a folder came there.
    enum class Appeared_e
    {
        Before,   // not by writing them now
        Now
    };

    struct Change_s
    {
        int iFolder;
        std::string sName;
    };

    // A folder renamed away, until the other half of the rename comes.
    struct Detached_s
    {
        std::uint32_t iCookie;
        int iFolder;
    };

    // A folder whose name another one took, by an exchange to come whole, or because it was empty and is deleted.
    struct Displaced_s
    {
        int iParent;
        std::string sName;
        int iFolder;
    };
}
