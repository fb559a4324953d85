// cache_fuzz.cpp: file system caches of any bytes, compared with the disk, and loaded over an earlier file.
//
// Each file then has a folder of the table, or none. The reader of zqtool finds damage if a load ends the program or
// the list of times, which a load does not read, is incomplete, and only then.
#include "fuzz/fuzz_support.h"
#include "tests/archive_support.h"
#include "tools/zqtool/cachefile.h"

#include "zqcore/cfilecache.h"
#include "zqcore/cfilemedia.h"

namespace
{
    void RegisterEarlierFile()
    {
        auto * const pFolder = ZQ_NEW String_T<256>("c:\\media\\earlier\\");
        g_sPaths.Add(pFolder, pFolder);
        File_c * const pFile = ZQ_NEW FileOnDisk_c;
        pFile->sName = "earlier.txt";
        pFile->pPath = pFolder;
        g_sFileObjects.Add(pFile, &pFile->sName);
    }

    void RequireSoundTables()
    {
        for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
        {
            String_T<256> const * const pPath = pSlot->pObject->pPath;
            Require(!pPath || g_sPaths.FindByName(*pPath) == pPath);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::string_view const sBytes(reinterpret_cast<char const *>(pData), nSize);
    File_c * const pCache = ZQ_NEW MemoryFile_c(sBytes);
    g_sFileObjects.Add(pCache, &pCache->sName);
    RegisterEarlierFile();
    SetPQXMediaPath("c:\\media");
    FilesystemCacheInit(pCache->sName);
    SurvivesWithoutAbort([] { FilesystemCacheIsCurrent(); });
    CacheContents_t Contents;
    ReadCache(sBytes, Contents);
    bool const bLoads = Contents.IsSound() || Contents.sDamage.starts_with("no whole list of times");
    Require(SurvivesWithoutAbort([] { FilesystemCacheLoad(); }) == bLoads);
    RequireSoundTables();
    FileReset();
    return 0;
}
