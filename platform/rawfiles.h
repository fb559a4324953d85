// rawfiles.h: files for a process that has crashed. Uses no heap and no lock, so a fault filter may call it.
//
// Both `\` and `/` separate in a path. Folders are found in any case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace plat
{
    /// A file to write; null for none.
    using RawFile_t = void *;

    /// Creates a file for writing that only its owner may read. Each write has reached the disk when it returns. If a
    /// file that this user's processes created this way has the name, and none of them still writes it, appends to it.
    /// If anything else has the name, fails and sets bTaken. Returns null on failure.
    RawFile_t RawMakePrivate(char const * szPath, bool & bTaken);

    /// Returns false if not all bytes were written, or if there is no file.
    bool RawWrite(RawFile_t hFile, char const * pText, std::size_t nBytes);
    void RawClose(RawFile_t hFile);

    /// Returns the bytes of a file; 0 if there is none.
    std::uint64_t RawSize(RawFile_t hFile);

    /// Returns the contents of a regular file of at most 256 MiB, in pages. The caller releases them by PagesRelease with
    /// the file's size. Returns null if the file is empty or can't be read.
    char const * RawReadAll(char const * szPath, std::size_t * pBytes);

    /// Copies the last bytes of the file that a C stream writes, at most nSize. Returns their number; 0 if the file can't
    /// be read.
    std::size_t RawReadTail(std::FILE * pStream, char * pBuffer, std::size_t nSize);

    /// Closes the file of a C stream that has no buffer, even if another thread holds the stream's lock. The stream
    /// stays valid; what is written to it from now on is dropped.
    void RawCloseStream(std::FILE * pStream);
}
