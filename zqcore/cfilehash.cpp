#include "zqcore/cfilehash.h"

#include "zqcore/carray.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cmemory.h"
#include "zqcore/csha1.h"
#include "zqcore/cstring.h"

#include <cstring>

namespace
{
    unsigned char g_dMediaHash[SHA1_HASH_SIZE];

    // Returns whether the path of a file's folder has a folder whose name ends in "declarations".
    bool IsDeclaration(File_c const & File)
    {
        String_T<256> sPath(File.pPath ? static_cast<char const *>(*File.pPath) : "");
        sPath.ToUpper();
        return sPath.StrPos("DECLARATIONS\\") >= 0;
    }

    void AddToMessage(SHA1Context & Message, void const * pData, std::size_t nBytes)
    {
        ZQ_ASSERT(SHA1Input(&Message, static_cast<unsigned char const *>(pData), nBytes) == shaSuccess);
    }
}

void FileBuildMediaHash(bool bAllCsv)
{
    MemCategoryScope_c const Category(mem::file);
    Array_T<File_c *, 64, 0> dHashFiles;
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        File_c * const pFile = pSlot->pObject;
        if (StrCompareNoCase(pFile->GetExt(), "CSV") == 0 && (bAllCsv || IsDeclaration(*pFile)))
        {
            dHashFiles.Add(pFile);
        }
    }
    dHashFiles.Sort([](File_c const * pA, File_c const * pB) { return std::strcmp(pA->sName, pB->sName); }, 0, -1);

    SHA1Context Message;
    ZQ_ASSERT(SHA1Reset(&Message) == shaSuccess);
    for (File_c const * pFile : dHashFiles)
    {
        AddToMessage(Message, pFile->sName, static_cast<std::size_t>(pFile->sName.Length()));
        int const iLength = FileLength(*pFile);
        AddToMessage(Message, &iLength, sizeof iLength);
    }
    ZQ_ASSERT(SHA1Result(&Message, g_dMediaHash) == shaSuccess);
}

unsigned char * FileGetMediaHash()
{
    return g_dMediaHash;
}
