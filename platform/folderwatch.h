// folderwatch.h: which files of a folder tree were changed, asked for and never waited for.
//
// The watch collects changes between two reads and hands them over in the caller's buffer, as records one after the
// other. A change is: a file that was opened for writing is closed, unless it is new and empty; a file is renamed onto
// one that exists, or that existed and whose name is kept; a file is found written in a folder that was made just now,
// and is no older than that. At most 65,536 names are kept; files that go after that are forgotten. One file is in a batch once, in the order of the first changes. One thread at a time. In the
// child of a fork a watch begins anew at the first IsComplete; until then it holds none of the system's watches.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// The head before each name in a batch. Records begin at multiples of 4 bytes.
    struct FolderChange_t
    {
        std::uint32_t nNext;        // from this record to the next one; 0 at the last
        std::uint32_t iAction;      // FOLDER_CHANGE_MODIFIED; 0 in a batch without a record
        std::uint32_t nNameBytes;   // UTF-16 units after this head, not terminated: the path below the watched folder,
                                    // in the spelling of the disk, with `\`
    };
    static_assert(sizeof(FolderChange_t) == 12);

    inline constexpr std::uint32_t FOLDER_CHANGE_MODIFIED = 3;

    /// Why the calling thread's last FolderWatch_c::Open failed, or why a folder is not watched after TakeUnwatched, as
    /// a text to follow a colon. Names the system's setting to raise where that is the reason.
    void FolderWatchReason(char * szText, std::size_t nSize);

    /// A watch on a folder with all its subfolders, those that come later included. A folder that several links lead
    /// to is watched once, so links in a circle end.
    class FolderWatch_c
    {
    public:
        constexpr FolderWatch_c() = default;
        ~FolderWatch_c() { Close(); }
        FolderWatch_c(FolderWatch_c const &) = delete;
        FolderWatch_c & operator=(FolderWatch_c const &) = delete;

        /// Watches a folder instead of the previous one. Skips subfolders that can't be read. When a file goes, fnKeep
        /// says by its bare name, as the disk spells it, whether its name is kept; IsComplete calls it. False, with a
        /// FolderWatchReason, if the folder can't be opened or the system has too few watches for its subfolders.
        bool Open(char const * szFolder, bool (*fnKeep)(char const * szName));

        void Close();

        bool IsOpen() const { return m_pTree != nullptr; }

        /// Identifies the open watch in lists of open files; null while closed.
        void * GetHandle() const;

        /// Asks for the next batch. The buffer, aligned to 4 bytes and zeroed, belongs to the watch until IsComplete
        /// says yes.
        void Read(void * pBuffer, std::size_t nBytes);

        /// Whether a batch has arrived since Read. Without changes it costs one call to the system that does not wait.
        /// A batch that does not fit the buffer, or that the system lost, leaves the buffer as it was. No batch arrives
        /// any more once others have closed the watch's handle.
        bool IsComplete();

        /// Subfolders that appeared and could not be watched since the last call, for want of the system's watches,
        /// which FolderWatchReason then says.
        std::size_t TakeUnwatched();

    private:
        class Tree_c;
        Tree_c * m_pTree = nullptr;
    };
}
