// userfolder.h: where the user's data stands that all of the user's processes share.
#pragma once

#include <climits>
#include <sys/types.h>

namespace plat
{
    /// ".config/zqcore/NAME" in the home folder that the system has on record for the user; false if it can't be told.
    bool UserFolder(char const * szName, char (&szFolder)[PATH_MAX]);

    /// Makes each folder of an absolute path that is not there yet.
    void MakeFolders(char * szPath, mode_t iMode);

    /// Opens a folder by a path, or with a parent by its name there, where a link is none. -1 on failure.
    int OpenFolder(int iParent, char const * szName);
}
