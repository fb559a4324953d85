// cachefile.h: what a file system cache holds, read without the library's tables.
#pragma once

#include "zqcore/cfilecache_internal.h"
#include "zqcore/cserialize_internal.h"

#include <string>
#include <unordered_map>
#include <vector>

/// Returns whether a load of a cache reads an archive of this version. It reads all minor versions.
inline bool IsCacheVersion(std::uint32_t dwVersion)
{
    return VersionMajor(dwVersion) == VersionMajor(FILESYSTEMCACHE_VERSION);
}

/// Contents of a cache, up to the first damage.
struct CacheContents_t
{
    std::uint32_t dwVersion = 0;
    std::uint64_t nSize = 0;   // bytes of the cache, those after its end included
    std::vector<CacheFolder_s> dFolders;
    std::vector<CacheFile_s> dFiles;
    std::unordered_map<std::uint32_t, std::size_t> dFolderOf;   // by nIndex: index in dFolders
    bool bTimes = false;                                        // whether the cache has the times of its folders
    int nLeft = 0;         // bytes after the last that was read, if the cache is sound
    int iDamage = -1;      // byte at which the cache is damaged; -1 if it is sound
    std::string sDamage;   // what is wrong there; empty if the cache is sound

    /// Returns whether no damage was found.
    bool IsSound() const { return sDamage.empty(); }

    /// Returns whether any file's name is a path with a folder, relative to the media root.
    bool IsRelative() const;

    /// Returns the path of a file below the media root, with `\` before each name. Requires a file of dFiles.
    std::string PathOf(CacheFile_s const & File) const;
};

/// Reads a cache up to the first damage. That is an error at which a load ends the program or asserts, or an incomplete
/// list of times. Leaves out the files of unfinished saves, as a load does. Requires empty Contents.
void ReadCache(std::string_view sBytes, CacheContents_t & Contents);

/// Reads a cache from a file of at most 64 MiB, as ReadCache does, and returns whether the file could be read. On
/// failure sWhyNot says why.
bool ReadCacheFile(std::string const & sFile, CacheContents_t & Contents, std::string & sWhyNot);
