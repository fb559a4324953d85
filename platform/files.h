// files.h: files and folders as the library asks for them.
//
// Paths are UTF-8, and `\` and `/` both separate. A path whose letters differ from the disk's only in case finds the
// disk's spelling: the path is tried as it stands first, then in the spelling that a folder listing met, then by
// reading the folders on the way. All functions may be called from any thread; none of them logs. A function that
// fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/compiler.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace plat
{
    /// An open file; null is no file.
    using File_t = void *;

    /// 100-nanosecond ticks since 1601-01-01 00:00 UTC; 0 where the file system keeps no such time.
    using FileTime_t = std::uint64_t;

    /// What others may do with the file while it is open. Advisory where the system has no share modes: an open that
    /// excludes writers fails while anyone has the file open for writing. It is checked at the open alone, and not at
    /// all where the system can't say (another user's file, some network file systems).
    enum class Share_e
    {
        ReadWrite,
        Read
    };

    struct FileFacts_t
    {
        std::uint64_t nSize = 0;   // bytes
        FileTime_t tCreation = 0;
        FileTime_t tLastWrite = 0;
        bool bFolder = false;
        bool bRegular = false;   // a plain file: no folder, pipe, socket or device
    };

    /// Opens an existing regular file for reading; null on failure. Folders are refused, and so are pipes, sockets and
    /// devices, which are never waited for. Sizes and times are learnt on the way: pFacts, unless null, gets them for
    /// nothing, where FileGetFacts would ask the system a second time.
    File_t FileOpenRead(char const * szPath, Share_e eShare, FileFacts_t * pFacts = nullptr);

    /// Asks again and again whether a file can be had, with writers excluded.
    class FileLockTest_c
    {
    public:
        /// The path must outlive the test.
        explicit FileLockTest_c(char const * szPath)
            : m_szPath(szPath)
        {}

        /// Opens the file for reading and closes it again; false if that fails, or if anyone has it open for writing.
        /// Where the system does not tell of writers: true if size and write time stood still since the previous call.
        bool Try();

        /// Whether the last Try found nothing by that path.
        bool IsAbsent() const { return m_bAbsent; }

    private:
        char const * m_szPath;
        FileFacts_t m_Seen;   // at the previous call
        bool m_bSeen = false;
        bool m_bAbsent = false;
    };

    /// Size and times of an open file; false on failure.
    bool FileGetFacts(File_t hFile, FileFacts_t & Facts);

    /// Tells the system that nBytes will be read once from front to back. Nothing is told of a small file, which the
    /// system reads ahead unasked: the hint would cost a tenth of the whole read.
    void FileHintSequential(File_t hFile, std::uint64_t nBytes = UINT64_MAX);

    /// Reads from the present position until nBytes are there, the file ends or an error comes; the bytes read.
    std::size_t FileRead(File_t hFile, void * pBuffer, std::size_t nBytes);

    /// Moves the position: iOrigin 1 from the present position, 2 from the end, else from the start. The new position,
    /// or -1 on failure.
    std::int64_t FileSeek(File_t hFile, std::int64_t iOffset, int iOrigin);

    /// Closes an open file.
    void FileClose(File_t hFile);

    /// Facts of what the path names, links followed; false if it names nothing.
    bool PathGetFacts(char const * szPath, FileFacts_t & Facts);

    /// Opens a C stream of a regular file with fopen's modes; null on failure. A file that is there in another spelling
    /// is the one that is opened; one that is created gets the path's own. A stream that writes is opened by the rule of
    /// filewrite.h. Child processes do not inherit it.
    std::FILE * StreamOpen(char const * szPath, char const * szMode);

    /// Opens a stream without a buffer, by the rule of filewrite.h; null on failure. All that is written goes to the end of the file, whoever else
    /// writes or cuts it. The file is emptied unless a stream that this function opened, in this process or another, is
    /// open on it; where the system can't say so, it is emptied.
    std::FILE * StreamOpenLog(char const * szPath);

    /// Begins a log anew that holds more than nLimit bytes. Its file gets the name szPath with ".1" at its end, those of
    /// earlier calls ".2" to ".nFormer", and the stream goes on with a new file szPath; with nFormer 0 the file is
    /// emptied. A file that another process has begun anew already is left to its name. StreamOpenLog has opened
    /// pStream with szPath; others may write to it meanwhile. Returns the bytes of the stream's file, which after a
    /// failure is the old one; 0 if the system can't say.
    std::uint64_t StreamLimitLog(std::FILE * pStream, char const * szPath, std::uint64_t nLimit, int nFormer);

    /// Whether a stream is as StreamOpenLog opens it, and not another one at the same address.
    bool StreamIsUnbuffered(std::FILE * pStream);

    /// Writes past the stream's buffer, which must be empty or absent, in as few calls to the system as it takes (one,
    /// unless a disk is full); the bytes written.
    std::size_t StreamWriteThrough(std::FILE * pStream, void const * pData, std::size_t nBytes);

    /// Creates one folder; false if it is there already or can't be made.
    bool FolderCreate(char const * szPath);

    /// Whether what was written must be on the disk when a function returns.
    enum class Durability_e
    {
        Written,
        Synchronized
    };

    /// Copies a regular file's contents and write time over szTo, opened by the rule of filewrite.h; false on failure,
    /// which may leave a part of them there. A file is not copied onto itself. Synchronizes no folder.
    bool FileCopy(char const * szFrom, char const * szTo, Durability_e eDurability = Durability_e::Written);

    /// Deletes a file, or a folder with all it holds; links are removed, not followed. False if there was nothing, or
    /// if anything is left. A path that ends in "." or "..", or is the root, is refused.
    bool TreeDelete(char const * szPath);

    /// Forgets the spellings that folder listings and searches met and frees their memory.
    void SpellingsForget();

    /// One entry of a folder, "." and ".." left out.
    struct FolderEntry_t
    {
        char const * szName = nullptr;   // the disk's spelling; lives as long as the listing
        std::uint32_t nName = 0;         // characters of it
        bool bLink = false;              // reached through a link; the facts are those of its target
        bool bAscii = false;             // all bytes of the name are
        bool bReachable = true;          // false: the name holds a `\`, so that no path leads here; the rest is unset
        bool bFailed = false;            // true: the system could not say what it is; the rest is unset
        FileFacts_t Facts;               // of a folder or what is no file only the kind, unless reached through a link
    };

    /// Which folder this really is, whatever path led to it.
    struct FolderIdentity_t
    {
        std::uint64_t iVolume = 0;
        std::uint64_t iFolder = 0;
        bool operator==(FolderIdentity_t const &) const = default;
    };

    /// False if there is no such folder; with bAsWritten none of another spelling counts.
    bool FolderGetIdentity(char const * szPath, FolderIdentity_t & Identity, bool bAsWritten = false);

    /// A folder read whole. Entries come in one order on every machine: by name folded to lower case (ASCII), then by
    /// the raw bytes. Entries that vanish while the folder is read, and links to nothing, are left out.
    class FolderListing_c
    {
    public:
        FolderListing_c() = default;
        ~FolderListing_c();
        FolderListing_c(FolderListing_c const &) = delete;
        FolderListing_c & operator=(FolderListing_c const &) = delete;

        /// Reads the folder; false if it can't be opened, or breaks off while being read.
        bool Read(char const * szPath);

        /// Entries read.
        std::size_t GetCount() const;

        /// Whether a name holds an ASCII capital: only then may two differ in case alone.
        bool HasCapitals() const;

        /// Requires iEntry < GetCount().
        FolderEntry_t const & GetEntry(std::size_t iEntry) const;

    private:
        struct Contents_s;
        Contents_s * m_pContents = nullptr;
    };
}
