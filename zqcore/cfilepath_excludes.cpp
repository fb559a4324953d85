#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

#include <algorithm>

FileExcludes_c g_sExcludedFolders;
FileExcludes_c g_sExcludedFiles;

void FileExcludes_c::Add(char const * szName)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(szName);
    if (!szName)
    {
        return;
    }
    String_T<256> const sName(szName);
    bool const bKnown = std::any_of(
        m_dNames.begin(), m_dNames.end(), [&sName](String_T<256> const * pName) { return *pName == sName; });
    if (!bKnown)
    {
        m_dNames.Add(ZQ_NEW String_T<256>(sName));
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
