// folderwatch.h: reports which files of a folder tree were changed. The caller polls. No call waits for a change.
//
// The watch collects changes between two batches. It writes them to the caller's buffer as a batch of records.
// A change is one of these:
// - A file that was opened for writing is closed, unless it is new and empty.
// - A file is renamed to a name that exists, or to a kept name (Open).
// - In a folder that has just been created, a file is found that meets these conditions:
//   - It is no older than the folder.
//   - It has contents.
//   - It has no known writer.
// - A file with a kept name is found in a folder that has appeared, unless it is new, and empty or still open for
//   writing.
//
// At most 65,536 names are kept. The names of files that are deleted or renamed after that are not kept. A batch names
// each changed file that still exists once, in the order of the first changes. Names that hold a `\` are ignored. In
// the child of a fork a watch starts again at the first WriteBatch after a RequestBatch. Until then it holds none of
// the system's watches.
//
// Threads: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// The head before each name in a batch. Records begin at multiples of 4 bytes.
    struct FolderChange_t
    {
        std::uint32_t nNext;        // bytes from this record to the next one; 0 at the last
        std::uint32_t iAction;      // FOLDER_CHANGE_MODIFIED; 0 in a batch without records
        std::uint32_t nNameBytes;   // bytes of the name after this head: the path below the watched folder in UTF-16,
                                    // in the spelling of the disk, with `\`, not terminated
    };
    static_assert(sizeof(FolderChange_t) == 12);

    /// Action of every record, with the number of Windows (FILE_ACTION_MODIFIED).
    inline constexpr std::uint32_t FOLDER_CHANGE_MODIFIED = 3;

    /// A watch on a folder with all its subfolders, including later ones. A folder that several links lead to is
    /// watched once, so circular links are safe.
    class FolderWatch_c
    {
    public:
        constexpr FolderWatch_c() = default;
        ~FolderWatch_c() { Close(); }
        FolderWatch_c(FolderWatch_c const &) = delete;
        FolderWatch_c & operator=(FolderWatch_c const &) = delete;

        /// Ends the previous watch, watches a folder and returns true. Skips subfolders that can't be read. When a file
        /// is deleted or renamed, WriteBatch calls fnKeep with its bare name, as the disk spells it. It does so for all
        /// files when it reads the tree again, after a loss of changes or a fork. fnKeep returns whether the name is
        /// kept. Requires an fnKeep that is not null.
        ///
        /// On failure returns false, and no folder is watched. It fails if the folder can't be opened, or if the system
        /// has too few watches or descriptors left. FolderWatchReason then has the reason.
        bool Open(char const * szFolder, bool (*fnKeep)(char const * szName));

        /// Ends the watch and discards the changes that were not read. Does nothing while closed.
        void Close();

        /// Returns whether the watch is open, also after its folder is gone (IsGone).
        bool IsOpen() const { return m_pTree != nullptr; }

        /// Returns whether the watched folder was moved or deleted, or could not be watched again, as far as WriteBatch
        /// has seen. No further batch arrives then. Returns false while closed.
        bool IsGone() const;

        /// Returns what identifies the open watch in lists of open files. Returns null while closed.
        void * GetHandle() const;

        /// Requests the next batch. Does nothing while closed. Requires a zeroed buffer, aligned to 4 bytes. The buffer
        /// belongs to the watch until WriteBatch returns true or the watch is closed.
        void RequestBatch(void * pBuffer, std::size_t nBytes);

        /// Writes the changes since the previous batch to the buffer of RequestBatch and returns whether there are any.
        /// If they do not fit the buffer, or the system lost some, returns true and leaves the buffer as it was.
        /// Without changes this costs one system call that does not wait.
        ///
        /// Returns false if no request is pending, or while closed. If the host closes the watch's handle, no further
        /// batch arrives.
        bool WriteBatch();

        /// Sets the count of folders, and links to folders, that were left unwatched to 0, and returns what it was.
        /// They are left if the system has no watches or no memory left. What is below them does not count. If the
        /// number is not 0, FolderWatchReason has the reason. Returns 0 while closed.
        std::size_t ExtractUnwatched();

    private:
        class Tree_c;
        Tree_c * m_pTree = nullptr;
    };

    /// Writes why the calling thread's last FolderWatch_c::Open failed, or why ExtractUnwatched counted folders. The
    /// text is meant to follow a colon. It names the system's setting to raise if that is the reason. Requires that the
    /// thread has made no other system call since.
    void FolderWatchReason(char * szText, std::size_t nSize);
}
