// indexfile.h: keeps the indices of big modules from one crash to the next, in a folder of the user's cache.
//
// A file is private to its user. Load does not trust it. ModuleIndex_c builds an index again if its file is damaged or
// made of other files than the module's. docs/formats.md has the layout of the file.
//
// Failure: it costs only time. There is no file in these cases:
// - The system's table of users has no home folder for the user.
// - The module has no build-id.
// - The disk has no room for it or is read-only.
// - It would have more than 32 MiB.
// - Another user owns the folder or may write to it.
// - The folder is a symbolic link.
#pragma once

#include "tools/zqsymbols/moduleindex.h"

#include <string>
#include <string_view>
#include <utility>

namespace zqsymbols
{
    /// Key of an index: what it was made of.
    struct IndexKey_t
    {
        std::string sBuildId;       // in hexadecimal
        std::uint64_t nSpan;        // bytes of the module in memory
        std::uint64_t nUnitBytes;   // of its section .debug_info, as stored
        std::uint64_t nSymbols;
    };

    /// Content of an index: the ranges of a module's units and of its symbols.
    struct IndexParts_t
    {
        std::vector<IndexRange_t> dUnits;     // sorted by IsBefore
        std::vector<IndexRange_t> dSymbols;   // likewise
    };

    /// Folder of the index files, one for each build-id.
    class IndexFolder_c
    {
    public:
        /// Uses a folder, or none if its path is empty. Does not use one that another user owns or may write to, nor a
        /// symbolic link.
        explicit IndexFolder_c(std::string sFolder)
            : m_sFolder(std::move(sFolder))
        {}

        /// Reads the file of a key, sets its time, by which Save finds unused files, and returns its parts. Returns
        /// nothing, and does not set the time, in these cases:
        /// - There is no such file in a folder that may be used, or it can't be read.
        /// - It is not a regular file.
        /// - Another user owns the file or may write to it.
        /// - ParseIndex does not accept it.
        std::optional<IndexParts_t> Load(IndexKey_t const & Key) const;

        /// Writes a file that replaces a previous one as a whole. Makes the folder and the one that it is in if they
        /// are missing. Removes the files that were unused for the longest time until all together have at most 64 MiB.
        /// Does nothing for an index of more than 32 MiB.
        void Save(IndexKey_t const & Key, IndexParts_t const & Parts) const;

    private:
        std::string m_sFolder;
    };

    /// Returns the bytes of an index file.
    std::string FormatIndex(IndexKey_t const & Key, IndexParts_t const & Parts);

    /// Returns the parts of an index file. Returns nothing in these cases:
    /// - It is damaged.
    /// - It is of another key.
    /// - It is larger than 32 MiB.
    std::optional<IndexParts_t> ParseIndex(std::string_view sFile, IndexKey_t const & Key);

    /// Returns the folder for the indices in the home folder that the system's table of users has. Reads no environment
    /// variable. Returns an empty text if that table has no absolute path for the user.
    std::string IndexFolderOfUser();
}
