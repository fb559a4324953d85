// files.h: the library's access to files and folders.
//
// Paths are UTF-8. Both `\` and `/` separate names. A path whose letters differ from the disk's only in case leads to
// the file with the disk's spelling. Three spellings are tried in this order:
// 1. the path as it is.
// 2. the spelling that folder listings and earlier searches found.
// 3. the spelling found by reading the folders of the path.
//
// Threads: any thread may call any function.
// Failure: nothing here logs. A function that fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/compiler.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace plat
{
    /// An open file; null for none.
    using File_t = void *;

    inline constexpr std::size_t FILE_NAME_LIMIT = 255;   // bytes of the name of a file or folder: NAME_MAX (limits.h)

    /// Ticks of 100 nanoseconds since 1601-01-01 00:00 UTC; 0 if the file system keeps no such time.
    using FileTime_t = std::uint64_t;
    inline constexpr std::uint32_t FILE_TIME_TICKS = 10000000;               // in a second
    inline constexpr std::int64_t FILE_TIME_SECONDS_TO_1970 = 11644473600;   // from 1601

    /// Rights of others to the file while it is open. On a system without share modes this is advisory: an open that
    /// excludes writers fails while anyone has the file open for writing. It is checked at the open only. It is not
    /// checked if the system does not report writers (another user's file, some network file systems).
    enum class Share_e
    {
        ReadWrite,
        Read
    };

    /// Size, times and kind of a file or folder.
    struct FileFacts_t
    {
        std::uint64_t nSize = 0;   // bytes
        FileTime_t tCreation = 0;
        FileTime_t tLastWrite = 0;
        bool bFolder = false;
        bool bRegular = false;   // whether it is a plain file: not a folder, pipe, socket or device
    };

    /// State of the written data when a function returns.
    enum class Durability_e
    {
        Written,       // perhaps not on the disk yet
        Synchronized   // on the disk
    };

    /// One entry of a folder. "." and ".." are left out.
    struct FolderEntry_t
    {
        char const * szName = nullptr;   // the disk's spelling; valid until the next Read or the listing's end
        std::uint32_t nName = 0;         // bytes of it, without the terminator
        bool bLink = false;              // whether it is reached through a link; the facts are those of its target
        bool bAscii = false;             // whether all bytes of the name are ASCII
        bool bReachable = true;   // whether a path leads to it; if not (a `\` in the name), bLink and Facts are unset
        bool bFailed = false;     // whether the system could not report what it is; Facts are not valid then
        bool bFile = false;       // whether its folder says that it is a regular file; set only if bFailed
        FileFacts_t Facts;        // all facts of a regular file or of a link's target, otherwise at least the kind
    };

    /// Identity of a file or folder: equal for all paths that lead to it.
    struct FileIdentity_t
    {
        std::uint64_t iVolume = 0;
        std::uint64_t iFile = 0;
        bool operator==(FileIdentity_t const &) const = default;
    };

    /// Opens an existing regular file for reading and returns it. Also fills pFacts, unless it is null, which costs no
    /// further system call. Returns null on failure. Fails for folders, pipes, sockets and devices, and never waits for
    /// them.
    File_t FileOpenRead(char const * szPath, Share_e eShare, FileFacts_t * pFacts = nullptr);

    /// A repeated test whether a file can be opened with writers excluded.
    class FileLockTest_c
    {
    public:
        /// Makes a test of the file at a path. Requires that the path outlives the test.
        explicit FileLockTest_c(char const * szPath)
            : m_szPath(szPath)
        {}

        /// Opens the file for reading and closes it again. Returns false if that fails, or if anyone has it open for
        /// writing. If the system does not report writers, returns whether size and write time are unchanged since the
        /// previous call that opened the file. The first such call then returns false.
        bool Try();

        /// Returns whether the last Try found nothing at that path.
        bool IsAbsent() const { return m_bAbsent; }

    private:
        char const * m_szPath;
        FileFacts_t m_Seen;   // at the previous call that opened the file
        bool m_bSeen = false;
        bool m_bAbsent = false;
    };

    /// Reads the facts of an open file. Returns false on failure.
    bool FileGetFacts(File_t hFile, FileFacts_t & Facts);

    /// Hints to the system that nBytes will be read once from front to back. Does nothing for at most 128 KiB, which
    /// the system reads ahead unasked: the hint would cost a tenth of the whole read.
    void FileHintSequential(File_t hFile, std::uint64_t nBytes = UINT64_MAX);

    /// Reads nBytes from the current position. Returns the number of bytes read, which is smaller at the end of the
    /// file or after an error.
    std::size_t FileRead(File_t hFile, void * pBuffer, std::size_t nBytes);

    /// Moves the position by iOffset: from the current position if iOrigin is 1, from the end if it is 2, else from the
    /// start. Returns the new position, or -1 on failure.
    std::int64_t FileSeek(File_t hFile, std::int64_t iOffset, int iOrigin);

    /// Closes a file and ignores errors. FileFinish (filewrite.h) closes a file that was written, and reports a loss.
    void FileClose(File_t hFile);

    /// Reads the facts of what the path names, following links. Returns false on failure, for instance if it names
    /// nothing.
    bool PathGetFacts(char const * szPath, FileFacts_t & Facts);

    /// Opens a C stream of a regular file with fopen's modes and returns it. An existing file is found in any spelling.
    /// A new file gets the path's own spelling. A stream that writes is opened by the rule of filewrite.h. Programs
    /// that the process starts do not inherit it. Returns null on failure.
    std::FILE * StreamOpen(char const * szPath, char const * szMode);

    /// Opens a stream without a buffer by the rule of filewrite.h and returns it. All output goes to the end of the
    /// file, even if others write or cut it. Empties the file, unless it is locked: by a stream that this function
    /// opened, in this process or another, or by another program. Empties it too if the system has no locks for it.
    /// Returns null on failure.
    std::FILE * StreamOpenLog(char const * szPath);

    /// Starts a new log file if the present one has more than nLimit bytes. Returns the size of the stream's file in
    /// bytes, or 0 if the system can't report it. Others may write to the file meanwhile. Requires that StreamOpenLog
    /// opened pStream with szPath.
    /// - If the present file was deleted, or another process has renamed it as below, the stream continues in the file
    ///   that szPath names, or in a new one.
    /// - The full file gets ".1" at the end of its name, and previous ones ".2" up to the number nPrevious. The stream
    ///   continues in a new file szPath.
    /// - A file that another process has already renamed is not renamed again. While another process does so, the
    ///   stream continues in the old file, and the next call tries again.
    /// - On a file system without locks, or in a folder that may not be read, two processes that do so at once may
    ///   replace a full file.
    /// - If nPrevious is 0, the file is emptied instead.
    /// - On failure the stream continues in the old file.
    std::uint64_t StreamLimitLog(std::FILE * pStream, char const * szPath, std::uint64_t nLimit, int nPrevious);

    /// Returns whether a stream has no buffer, as those of StreamOpenLog. For one of those, false means that it was
    /// closed and another stream now has its address.
    bool StreamIsUnbuffered(std::FILE * pStream);

    /// Returns the identity of the file that a stream writes to. Returns all zero if it has no file.
    FileIdentity_t StreamGetIdentity(std::FILE * pStream);

    /// Writes to the stream's file without its buffer. Returns the number of bytes written. Uses as few system calls
    /// as possible: one, unless a signal interrupts it or the system writes only a part. Requires that the buffer is
    /// empty or absent.
    std::size_t StreamWriteThrough(std::FILE * pStream, void const * pData, std::size_t nBytes);

    /// Creates one folder. Returns false if it exists already or can't be created.
    bool FolderCreate(char const * szPath);

    /// Copies a regular file's contents and write time to szTo, which is opened by the rule of filewrite.h. A new file
    /// gets the rights to read and write too, as far as the process's mask allows. Does not synchronise the folder.
    /// Returns false on failure, which may leave a part of the contents there. Fails if both paths name one file.
    bool FileCopy(char const * szFrom, char const * szTo, Durability_e eDurability = Durability_e::Written);

    /// Deletes a file, or a folder with all its contents. Removes links without following them. Returns false if there
    /// was nothing, or if anything is left. Refuses the root, and a path whose last name is "." or "..".
    bool TreeDelete(char const * szPath);

    /// Removes the spellings that folder listings and searches found, and frees their memory.
    void SpellingsForget();

    /// Finds a folder's identity. With bAsWritten only the path's own spelling is tried. Returns false if there is no
    /// such folder.
    bool FolderGetIdentity(char const * szPath, FileIdentity_t & Identity, bool bAsWritten = false);

    /// The entries of a folder, read at once. Their order is the same on every machine: by name folded to lower case
    /// (ASCII), then by the raw bytes. Entries that vanish during the read, and links whose target is missing, are left
    /// out, unless no path leads to them.
    class FolderListing_c
    {
    public:
        FolderListing_c() = default;
        ~FolderListing_c();
        FolderListing_c(FolderListing_c const &) = delete;
        FolderListing_c & operator=(FolderListing_c const &) = delete;

        /// Reads the folder. Returns false, without entries, if it can't be opened or an error ends the read.
        bool Read(char const * szPath);

        /// Returns the number of entries, or 0 before the first Read and after one that failed.
        std::size_t GetCount() const;

        /// Returns whether any name holds an ASCII capital. Without one, no two names differ in case only.
        bool HasCapitals() const;

        /// Returns an entry. Requires iEntry < GetCount().
        FolderEntry_t const & GetEntry(std::size_t iEntry) const;

    private:
        struct Contents_s;
        Contents_s * m_pContents = nullptr;
    };
}
