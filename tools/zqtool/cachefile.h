// cachefile.h: what a file system cache holds, read without the library's tables.
#pragma once

#include "zqcore/cfilecache_internal.h"

#include <string>
#include <unordered_map>
#include <vector>

struct CacheContents_t
{
    std::uint32_t dwVersion = 0;
    std::uint64_t nSize = 0;   // of the cache itself
    std::vector<CacheFolder_s> dFolders;
    std::vector<CacheFile_s> dFiles;
    std::unordered_map<std::uint32_t, std::size_t> dFolderOf;   // by nIndex: in dFolders
    bool bTimes = false;                                        // it has the times of its folders
    int nLeft = 0;                                              // bytes after its end
    int iDamage = -1;                                           // byte at which it is damaged
    std::string sDamage;                                        // empty if it is sound

    bool IsSound() const { return sDamage.empty(); }
    bool IsRelative() const;

    /// Returns where a file is below the media root, with `\` before each name.
    std::string PathOf(CacheFile_s const & File) const;
};

/// Reads a cache, up to the first damage: what a load would end the program with. Returns false, with a reason, if the
/// file can't be read.
bool ReadCacheFile(std::string const & sFile, CacheContents_t & Contents, std::string & sWhyNot);
