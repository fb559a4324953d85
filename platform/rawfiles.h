// rawfiles.h: files for a process that has crashed.
//
// The functions use no heap and wait for no lock, so a fault filter may call them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace plat
{
    /// Handle of a file to write, or null.
    using RawFile_t = void *;

    /// Creates a file that only its owner may read, and opens it for writing. If the path leads to such a file of this
    /// user that has no other name, appends to that file. Each write has reached the disk when it returns. Both `\` and
    /// `/` separate names in the path. Folders are found without regard to case. Returns null on failure. Clears
    /// bTaken, but fails and sets it in these cases:
    /// - Anything else has the name.
    /// - That file is still being written.
    /// - That file can't be opened.
    RawFile_t RawMakePrivate(char const * szPath, bool & bTaken);

    /// Writes bytes. Returns false if not all of them were written, or if hFile is null.
    bool RawWrite(RawFile_t hFile, char const * pText, std::size_t nBytes);

    /// Closes a file. Null does nothing.
    void RawClose(RawFile_t hFile);

    /// Returns the size of a file in bytes, or 0 if it is unknown or hFile is null.
    std::uint64_t RawSize(RawFile_t hFile);

    /// Reads a regular file. Returns its contents, not terminated, in pages that the caller releases by PagesRelease,
    /// and sets *pBytes to their size. Requires a path in the system's own form. Returns null, with no meaning in
    /// *pBytes, in these cases:
    /// - The file can't be read, or is not a regular one.
    /// - The file is empty or has more than 256 MiB.
    /// - There is no memory.
    char const * RawReadAll(char const * szPath, std::size_t * pBytes);

    /// Copies the last bytes of the file that a C stream writes, at most nSize. Returns their number, or 0 if the
    /// file can't be read or is not a regular one.
    std::size_t RawReadTail(std::FILE * pStream, char * pBuffer, std::size_t nSize);

    /// Closes the file of a C stream, even if another thread holds the stream's lock. The stream stays valid and drops
    /// what is written to it from then on. Requires that the stream has no buffer.
    void RawCloseStream(std::FILE * pStream);
}
