#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

FileExcludes_c g_sExcludedFolders;
FileExcludes_c g_sExcludedFiles;

void FileExcludes_c::Add(char const * szName)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(szName);
    bool bNew = szName != nullptr;
    for (String_T<256> const * pName : m_dNames)
    {
        bNew = bNew && *pName != szName;
    }
    if (bNew)
    {
        m_dNames.Add(ZQ_NEW String_T<256>(szName));
    }
}

bool FileExcludes_c::Has(char const * szName) const
{
    for (String_T<256> const * pName : m_dNames)
    {
        if (StrCompareNoCase(*pName, szName) == 0)
        {
            return true;
        }
    }
    return false;
}

void FileExcludes_c::Reset()
{
    for (String_T<256> const * pName : m_dNames)
    {
        delete pName;
    }
    m_dNames.Reset();
}

void FileAlwaysExcludeFolder(char const * sName)
{
    g_sExcludedFolders.Add(sName);
}

void FileAlwaysExcludeFile(char const * sName)
{
    g_sExcludedFiles.Add(sName);
}
