// cfilemedia.h: where the media are, which of them belong to this game, and the module that registers them.
//
// Requires that all settings are made before the modules start. The main pack only shows that the current folder is the
// media root (GetPQXMediaPath). Nothing here opens a pack.
//
// Ownership: texts are copied. Those of more than 255 characters are cut.
// Threads: main thread.
// Cost: GetPQXMediaPath may ask the registry and the disk at each call. A start scans the media root or loads a cache.
// Failure: a setting that fails an assertion is not used.
//
//     SetPQXMediaPath("media");
//     FileSetSplit("\\gamedata\\");   // scan only the folder in there that `--game` names
//     ModuleFile_c::Get()->ReadMedia(true);
//     Module_c::Register(ModuleFile_c::Get());
//     bool const bReady = Module_c::InitializeAllModules() && FileExists("levels.csv");
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

/// Set and return the name pattern of the packs, "media*.zq" at start. FileSetMediaTemplate asserts that it is not null
/// and holds one `*`, directly before a dot. Otherwise the previous pattern stays.
ZQ_API void FileSetMediaTemplate(char const * sTemplate);
ZQ_API String_T<256> FileGetMediaTemplate();

/// Sets the folder below which scans enter only the current game's subfolder. sLocation is a part of its path, such as
/// "\gamedata\". Null, as at start, means no such folder. Requires sLocation and the game's name in lower case. Asserts
/// that sLocation begins and ends with `\`. Otherwise the previous one stays.
ZQ_API void FileSetSplit(char const * sLocation);

/// Returns the media root. Removes one separator at its end. Each call tries these in turn:
/// - the path of SetPQXMediaPath, whether it exists or not
/// - the machine's registry value InstallDir of SOFTWARE\Brindle Harbor\<application>\Install, if that path exists
/// - ".", if the main pack, the pattern without its `*`, lies in the current folder
///
/// If all fail and bAbortIfMissing is set, calls Abort. If it is not set, returns the registry's text, or an empty one.
ZQ_API String_T<256> GetPQXMediaPath(bool bAbortIfMissing);

/// Sets the media root. If sPath is null or empty, as at start, GetPQXMediaPath searches for it.
ZQ_API void SetPQXMediaPath(char const * sPath);

/// Sets the configuration: the name, as the disk spells it, of the only folder directly in "media\_configdependeddata\"
/// that scans enter. It is empty at start: scans enter no folder there.
ZQ_API void SetPQXCurrentConfig(char const * sConfig);

/// Returns whether the first 255 bytes of the command line have `--game <name>`. Returns false until the module starts.
ZQ_API bool FileIsAddon();

/// Whether FileIsAddon returns true.
extern ZQ_API bool g_bAddon;

/// Module of the file system. It depends on ModuleLog_c.
///
/// Initialize reads the game's name from the command line ("pqx" without one). It excludes the folders _svn, CVS, .svn,
/// $$$pqxautosave and $$$pqxbackup and the files .cvsignore and message.log, and fills the tables. Then it starts the
/// worker of cfileasync.h and computes the fingerprint of cfilehash.h. The idle heartbeat looks for changed files
/// (cfiletrack.h).
///
/// The tables come from the cache that FilesystemCacheInit (cfilecache.h) named, if it can be read. Initialize then
/// scans only the folders profiles and mapscache of the media root, which change while a game runs. If none was named,
/// it scans the media root, unless ReadMedia(false) was called.
///
/// Shutdown stops the worker and writes the cache to the path of SetCacheFile. It leaves that file unchanged if
/// Initialize did not run or no folder of the media root is known. Without SetCacheFile it writes filesystemcache.bin
/// in the media root, if a file of that name is known. Then it empties the tables, the exclude lists, the types of
/// stayers and g_FileOpenCallbacker, and ends the watch of cfiletrack.h. The settings above stay.
///
/// The cache leaves out:
/// - the folders profiles, mapscache, $$$pqxautosave and $$$pqxbackup of the media root
/// - folders that were registered by a path that begins with `.\`, unless the media root is "." or such a path
class ZQ_API ModuleFile_c : public Module_c
{
public:
    constexpr ModuleFile_c()
        : Module_c("ModuleFile_c")
    {}

    /// Returns the only instance.
    static ModuleFile_c * Get();

    /// Sets whether Initialize scans the media root. At start it does. If a cache was named but can't be read,
    /// Initialize scans in any case.
    void ReadMedia(bool bRead) { m_bReadMedia = bRead; }

    /// Sets whether the cache is compared with the disk. At start it is not. If true, Shutdown writes a cache that can
    /// be compared. Initialize compares it (FilesystemCacheIsCurrent) and scans if a folder has changed. Initialize
    /// also calls FilesystemCacheCheck(true), which stays on. If false, that setting is left to the host.
    void CheckCache(bool bCheck) { m_bCheckCache = bCheck; }

    /// Sets the path of the cache that Shutdown writes, for a media root that is read-only. To load it, pass the
    /// same path to FilesystemCacheInit. Null or an empty text, as at start, means filesystemcache.bin in the media
    /// root.
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
