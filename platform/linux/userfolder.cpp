#include "platform/linux/userfolder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace plat
{
    bool UserFolder(char const * szName, char (&szFolder)[PATH_MAX])
    {
        char szBuffer[4096];
        passwd Entry;
        passwd * pFound = nullptr;
        int const iError = getpwuid_r(geteuid(), &Entry, szBuffer, sizeof(szBuffer), &pFound);
        if (iError != 0 || pFound == nullptr)
        {
            errno = iError != 0 ? iError : ENOENT;
            return false;
        }
        int const nFolder = std::snprintf(szFolder, PATH_MAX, "%s/.config/zqcore/%s", pFound->pw_dir, szName);
        errno = ENAMETOOLONG;
        return nFolder > 0 && nFolder < PATH_MAX;
    }

    void MakeFolders(char * szPath, mode_t iMode)
    {
        for (char * szEnd = szPath; szEnd != nullptr;)
        {
            szEnd = std::strchr(szEnd + 1, '/');
            if (szEnd != nullptr)
            {
                *szEnd = 0;
            }
            mkdir(szPath, iMode);
            if (szEnd != nullptr)
            {
                *szEnd = '/';
            }
        }
    }

    int OpenFolder(int iParent, char const * szName)
    {
        int const iLinks = iParent == AT_FDCWD ? 0 : O_NOFOLLOW;
        return openat(iParent, szName, O_RDONLY | O_DIRECTORY | O_CLOEXEC | iLinks);
    }
}
