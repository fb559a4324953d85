// buildids.h: programs, libraries and files of debug information, found by the build-id that the linker stored.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace zqsymbols
{
    /// Table of ELF files by their build-ids.
    class BuildIds_c
    {
    public:
        /// A file of the table.
        struct Found_t
        {
            std::string sPath;
            std::uint64_t nBytes;   // of the module in memory, from its first page on; 0 if it has no part to load
        };

        /// Adds the ELF files with a build-id in a folder, at any depth. If several share one, the first with the most
        /// information counts. Skips other files, also those that it can't open, and links to folders. If it can't read
        /// sFolder or a folder below, it ends and calls fnFault with a text that names sFolder and the reason.
        void AddFolder(std::string const & sFolder, std::function<void(std::string const &)> const & fnFault);

        /// Returns the file of a build-id in lower-case hexadecimal, or null. It is valid until the next addition.
        Found_t const * Find(std::string const & sBuildId) const;

    private:
        /// Information that a file has about its functions, the least first.
        enum Rank_e
        {
            RANK_NONE,
            RANK_SYMBOLS,
            RANK_DEBUG
        };

        struct File_s
        {
            Found_t Found;
            Rank_e eRank;
        };

        void AddFile(std::string const & sFile);

        std::unordered_map<std::string, File_s> m_dFiles;   // by build-id
    };
}
