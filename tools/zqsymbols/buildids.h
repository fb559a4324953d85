// buildids.h: files with debug information, found by the build id that the linker gave their program.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>

namespace zqsymbols
{
    class BuildIds_c
    {
    public:
        /// Searches a folder at any depth. Of files with the same build id the one with the most information counts.
        /// Other files are skipped. Reports a folder that is not readable.
        void AddFolder(std::string const & sFolder, std::function<void(std::string const &)> const & fnFault);

        /// Returns the file of a build id in lower-case hexadecimal, empty if there is none.
        std::string Find(std::string const & sBuildId) const;

    private:
        enum Rank_e
        {
            RANK_NONE,
            RANK_SYMBOLS,
            RANK_DEBUG
        };

        struct File_s
        {
            std::string sPath;
            Rank_e eRank;
        };

        void AddFile(std::string const & sFile);

        std::unordered_map<std::string, File_s> m_dFiles;
    };
}
