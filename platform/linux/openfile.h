// openfile.h: what the sources of files share: descriptors as handles, and the way to a file that may have to be made.
#pragma once

#include "platform/files.h"

#include <sys/types.h>

namespace plat
{
    inline constexpr mode_t NEW_FILE_MODE = 0666;   // less what the process masks

    inline int DescriptorOf(File_t hFile)
    {
        return static_cast<int>(reinterpret_cast<std::intptr_t>(hFile)) - 1;
    }

    // Descriptor 0 is a file too, so the handle is one more.
    inline File_t HandleOf(int iDescriptor)
    {
        return reinterpret_cast<File_t>(std::intptr_t(iDescriptor) + 1);
    }

    enum class Writers_e
    {
        None,
        Some,
        Unknown   // the system grants no lease on this file
    };

    // Whether anyone has an open file open for writing, asked by taking a read lease and giving it back at once, so
    // that a writer who comes meanwhile waits for no longer than that.
    Writers_e WritersOf(int iDescriptor);

    // Opens what is there in any spelling; else, with O_CREAT, makes it in the path's own. -1 on failure.
    int OpenOrCreate(char const * szPath, int iFlags, mode_t iMode);
}
