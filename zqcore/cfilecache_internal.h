// cfilecache_internal.h: the records of a cache file, and what writes one.
#pragma once

#include "zqcore/ccrc_internal.h"
#include "zqcore/cfile.h"
#include "zqcore/cserialize.h"
#include "zqcore/cstring.h"

#include "platform/files.h"

/// Size in the stamp of the cache's own folder.
inline constexpr std::uint64_t CACHE_STAMP_OF_NAMES = ~std::uint64_t{ 0 };

/// Word after the last record, if a stamp for each folder follows: the bytes "ZQFS" (docs/formats.md).
inline constexpr std::uint32_t CACHE_STAMPS_FOLLOW = 0x5346515A;

/// Format of the line that FilesystemCacheIsCurrent logs when it returns false. The reason is at the end of the line.
inline constexpr char CACHE_NOT_CURRENT[] = "filesystem: the cache is not current, %s";

/// Returns the CRC-32 of a text. That of a folder's path below the media root, from the separator on, is the folder's
/// index.
inline std::uint32_t CacheIndexOf(char const * szText)
{
    return Crc32OfText(szText);
}

/// Record of a folder of the media root.
struct CacheFolder_s
{
    std::uint32_t nIndex = 0;   // index of sRelative (CacheIndexOf)
    String_T<256> sRelative;    // path below the media root, from the separator on

    /// Return whether the index is that of sRelative, and whether sRelative also begins and ends with a separator.
    bool HasItsIndex() const { return nIndex == CacheIndexOf(sRelative); }
    bool IsSound() const { return HasItsIndex() && sRelative[0] == '\\' && sRelative.Ends("\\"); }

    void Serialize(Serializeable_c & Archive)
    {
        Archive.Serialize(nIndex);
        Archive.SerializeString(sRelative);
    }
};

/// Record of a file.
struct CacheFile_s
{
    std::uint32_t nIndex = 0;   // index of its folder
    plat::FileTime_t ftCreationTime = 0;
    int iLength = 0;   // bytes, as in File_c::iLength
    File_c::Key_t sName;

    void Serialize(Serializeable_c & Archive)
    {
        Archive.Serialize(nIndex).Serialize(ftCreationTime).Serialize(iLength);
        Archive.SerializeString(sName);
    }
};

/// Facts by which a change of a folder is seen: its size and time. In a cache, those of the cache's own folder are
/// CACHE_STAMP_OF_NAMES and a checksum of the names in it.
struct CacheStamp_s
{
    std::uint64_t nBytes = 0;   // size of the folder, or CACHE_STAMP_OF_NAMES
    std::uint64_t tWrite = 0;   // ticks as in plat::FileTime_t, or the checksum
    bool operator==(CacheStamp_s const &) const = default;

    void Serialize(Serializeable_c & Archive) { Archive.Serialize(nBytes).Serialize(tWrite); }
};

/// Returns whether g_sPaths has a folder of the media root, or without one any absolute folder.
bool FileCacheHasFolders();

/// Does what FilesystemCacheSave does, without its assertion. Returns whether the cache was written.
bool FileCacheTrySave(char const * szFile);

/// Removes from the tables the files and folders that do not belong in the cache of a media root.
void FileCacheDropOthers(String_T<256> const & sRoot);
