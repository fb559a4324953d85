// spelling.h: from a path as the library writes it to the path as the disk spells it.
//
// A path is tried as it is, then with the names that listings and earlier searches recorded, then with those found by
// reading the folders of the path. Folding never changes a length, so a name is respelled in place, on the stack. Only
// the record of spellings uses the heap.
//
// Threads: any thread. Only SpellingsReplace waits for a lock. A fault filter may use a DiskPath_c that records
// nothing.
#pragma once

#include "platform/compiler.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <string_view>
#include <vector>

namespace plat
{
    class FolderKey_c;

    /// Returns whether an error of a call that found no file says that the path leads nowhere: to a name that does not
    /// exist, through a file as if it were a folder, or into a circle of links.
    inline bool LeadsNowhere(int iError)
    {
        return iError == ENOENT || iError == ENOTDIR || iError == ELOOP;
    }

    /// Copies a path with `/` as the separator, cut at PATH_MAX - 1 bytes. Returns the length of the copy. The path was
    /// cut if szPath has no terminator at that index.
    std::size_t CopyWithSlashes(char const * szPath, char (&szCopy)[PATH_MAX]);

    /// One path to be passed to the system. Requires that the caller's text outlives the object.
    class DiskPath_c
    {
    public:
        /// Copies the path with `/` as the separator. Null counts as an empty path. If bRecord is false, what a search
        /// finds is not recorded, and nothing here uses the heap.
        explicit DiskPath_c(char const * szPath, bool bRecord = true);

        /// Calls fnTry(path) with one spelling after the other while it returns a negative number and errno is ENOENT,
        /// ELOOP, ENOTDIR or EACCES. Returns the result of the last call.
        /// - If the target of a link is missing, the link is the last choice after the path as written, because
        ///   listings leave it out.
        /// - If the path has PATH_MAX bytes or more, returns -1 with ENAMETOOLONG, without a call.
        /// - If an error of the system other than missing rights prevents the search of a folder of the path, errno is
        ///   that error and not ENOENT: the path may name something in another spelling.
        template <typename TRY>
        int Try(TRY fnTry)
        {
            if (m_bTooLong)
            {
                errno = ENAMETOOLONG;
                return -1;
            }
            int iResult = fnTry(static_cast<char const *>(m_szPath));
            while (iResult < 0 && (LeadsNowhere(errno) || errno == EACCES) && NextSpelling())
            {
                iResult = fnTry(static_cast<char const *>(m_szPath));
            }
            return iResult;
        }

        /// Spells the folder as on disk and keeps the caller's spelling of the last name: the path of something to be
        /// created. Calls TrimSeparators. On failure the names that were not found stay as written.
        void SpellFolder();

        /// Removes separators from the end, so that a link at the end means the link itself. Keeps that of the root.
        void TrimSeparators();

        /// Returns the path in its present spelling. After a Try that succeeded, that is the one of its last call.
        char const * Get() const { return m_szPath; }

    private:
        /// Sources of the spelling that was tried last.
        enum class Tried_e
        {
            AsWritten,
            Record,
            Folders
        };

        ZQ_COLD bool NextSpelling();
        bool SpellFromRecord();
        bool SpellFromFolders();
        bool SpellName(std::size_t iBegin, FolderKey_c const & Folder);
        void EndAsWritten(std::size_t iFrom, std::size_t iTo);
        bool NextName(std::size_t & iBegin, std::size_t & iEnd) const;

        char const * m_szOriginal;
        std::size_t m_nLength;
        Tried_e m_eTried = Tried_e::AsWritten;
        int m_iFault = 0;   // error from the search of the folders, or 0
        bool m_bTooLong;
        bool const m_bRecord;
        char m_szPath[PATH_MAX];
    };

    /// The name of a folder in the record of spellings: folded, with one separator after each name and without ".".
    class FolderKey_c
    {
    public:
        /// Starts at the root or at the current folder.
        explicit FolderKey_c(bool bRoot);

        /// Makes the key of a path of less than PATH_MAX bytes. Requires that `/` separates its names.
        explicit FolderKey_c(char const * szPath);

        /// Appends the name of a subfolder. "" and "." change nothing. Requires that the whole path has less than
        /// PATH_MAX bytes.
        void Append(std::string_view sName);

        /// Returns the key so far, which is valid as long as the object.
        std::string_view Get() const { return std::string_view(m_dKey, m_nLength); }

    private:
        std::size_t m_nLength = 0;
        char m_dKey[PATH_MAX + 2];
    };

    /// Replaces the record of how a folder's names are spelled. Requires that szFolder is a spelling that DiskPath_c
    /// found, and that dNames has all names in the order of listings, or none if all are folded.
    void SpellingsReplace(char const * szFolder, std::vector<char const *> const & dNames);
}
