// rawfiles.h: files for a process that has crashed. Uses no heap and no lock, so a fault filter may call it.
//
// Both `\` and `/` separate in a path, and folders are found whatever their case.
#pragma once

#include <cstddef>
#include <cstdio>

namespace plat
{
    /// A file to write; null for none.
    using RawFile_t = void *;

    /// Makes a file that its owner alone may read, for writing. Each write has reached the disk when it returns. Appends
    /// to a file that this user's processes made this way before and that none of them still writes. Opens nothing else
    /// that has the name, and then sets bTaken. Returns null on failure.
    RawFile_t RawMakePrivate(char const * szPath, bool & bTaken);

    /// False if not all was taken, and for no file.
    bool RawWrite(RawFile_t hFile, char const * pText, std::size_t nBytes);
    void RawClose(RawFile_t hFile);

    /// Returns all of a regular file of at most 256 MiB, in pages to be released by PagesGive with the file's size; null
    /// for a file that is empty or can't be read.
    char const * RawReadAll(char const * szPath, std::size_t * pBytes);

    /// Closes the file below a C stream that has no buffer, whoever holds the stream's lock. The stream stays; what is
    /// written to it from now on is dropped.
    void RawCloseStream(std::FILE * pStream);
}
