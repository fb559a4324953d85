// cfilemedia.h: where the media are, which of them are this game's, and the module that reads them in.
//
// The settings come before the modules start; all of this belongs to the main thread. A pack is a file whose presence
// marks a folder as the media root; nothing here opens one.
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

/// Name pattern of the packs, "media*.zq" at first. It must hold one `*`, with a dot behind it; a text that does not is
/// reported and not taken over.
ZQ_API void FileSetMediaTemplate(char const * sTemplate);
ZQ_API String_T<256> FileGetMediaTemplate();

/// Lets scans enter, of the folders directly in sLocation, the current game's only. Both are to be lower case. A
/// location that does not begin and end with `\` is reported and not taken over. Null ends the split.
ZQ_API void FileSetSplit(char const * sLocation);

/// The media root, of which one separator at the end is cut: the one that was set, whether it exists or not; else the machine's registry value InstallDir of SOFTWARE\Brindle Harbor\<application>\Install, if it exists;
/// else ".", if the main pack lies in the current folder. Without any of them Abort, or an empty text (or the
/// registry's). Asks anew at each call.
ZQ_API String_T<256> GetPQXMediaPath(bool bAbortIfMissing);

/// Sets the media root. Null or an empty text: to be discovered.
ZQ_API void SetPQXMediaPath(char const * sPath);

/// Names the configuration: the one folder directly in "media\_configdependeddata\" that scans enter.
ZQ_API void SetPQXCurrentConfig(char const * sConfig);

/// Whether the command line had `--game <name>`, from the module's start on.
ZQ_API bool FileIsAddon();
extern ZQ_API bool g_bAddon;

/// Brings the file system up and down. Initialize takes the game from the command line, fills the tables from the cache
/// (cfilecache.h), and by scan the folders profiles and mapscache of the media root, which change while a game runs;
/// without a cache it scans the media root. Then it starts the worker of cfileasync.h and computes the media hash
/// (cfilehash.h). The idle heartbeat looks for changed files (cfiletrack.h). Shutdown stops the worker, writes the cache,
/// `filesystemcache.bin` in the media root if a file of that name is known, or the one of SetCacheFile in any case,
/// without those folders and without what was registered by a path in the current folder, unless the media root is such a
/// path itself. It empties the tables, the
/// exclude lists, the types of stayers and g_FileOpenCallbacker. The settings above stay. Needs ModuleLog_c.
class ZQ_API ModuleFile_c : public Module_c
{
public:
    ModuleFile_c()
        : Module_c("ModuleFile_c")
    {}

    /// The instance.
    static ModuleFile_c * Get();

    /// Whether Initialize scans the media root; it does if nothing is said. A cache that can't be read makes it scan.
    void ReadMedia(bool bRead) { m_bReadMedia = bRead; }

    /// Whether Initialize compares a cache with the folders on the disk first (FilesystemCacheIsCurrent) and scans if one
    /// has changed, and Shutdown writes a cache that can be compared; neither if nothing is said.
    void CheckCache(bool bCheck) { m_bCheckCache = bCheck; }

    /// Where Shutdown writes the cache, a location on disk, for a media root that may not be written. FilesystemCacheInit
    /// with the same name reads it from there. Null or an empty text: in the media root, as at first.
    void SetCacheFile(char const * sFile) { m_sCacheFile = sFile; }

protected:
    bool Initialize() override;
    void Shutdown() override;
    void HeartbeatIdle() override;
    Module_c ** GetPrerequisites() const override;

private:
    void FillTables();

    bool m_bReadMedia = true;
    bool m_bCheckCache = false;
    String_T<256> m_sCacheFile;
};
