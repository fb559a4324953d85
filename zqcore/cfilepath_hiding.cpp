// Objects of libraries above that hide objects of the same key.
#include "zqcore/cdebug.h"
#include "zqcore/cfilepath_internal.h"

HashAdd_e FileHiding_c::Add(File_c & File, bool bOver)
{
    if (File_c * const pHidden = bOver ? g_sFileObjects.FindByName(File.sName) : nullptr)
    {
        for (File_c const * pPresent = pHidden; pPresent; pPresent = pPresent->m_pHidden)
        {
            if (pPresent == &File)
            {
                return HASH_PRESENT;
            }
        }
        g_sFileObjects.DeleteByName(File.sName);
        File.m_pHidden = pHidden;
    }
    // Returns HASH_ADDED over a hidden object too, because its entry is deleted above.
    return static_cast<HashAdd_e>(g_sFileObjects.Add(&File, &File.sName));
}

File_c * FileHiding_c::FirstInFolder(File_c & Top)
{
    File_c * pFile = &Top;
    while (pFile && !pFile->pPath)
    {
        pFile = pFile->m_pHidden;
    }
    return pFile;
}

void FileHiding_c::Reveal(File_c & File)
{
    if (File_c * const pHidden = std::exchange(File.m_pHidden, nullptr))
    {
        g_sFileObjects.Add(pHidden, &pHidden->sName);
    }
}

bool FileHiding_c::Remove(File_c const & File)
{
    for (File_c * pOver = g_sFileObjects.FindByName(File.sName); pOver; pOver = pOver->m_pHidden)
    {
        if (pOver->m_pHidden == &File)
        {
            pOver->m_pHidden = File.m_pHidden;
            return true;
        }
    }
    return false;
}

void FileHiding_c::DestroyBelow(File_c & Top)
{
    while (File_c * const pHidden = Top.m_pHidden)
    {
        Top.m_pHidden = std::exchange(pHidden->m_pHidden, nullptr);
        FileDiscard(pHidden);
    }
}

HashAdd_e FileAddObject(File_c * pFile, bool bOver)
{
    ZQ_ASSERT(pFile && !pFile->sName.IsEmpty());
    if (!pFile)
    {
        return HASH_FULL;
    }
    ZQ_ASSERT(!bOver || !pFile->pPath);
    return FileHiding_c::Add(*pFile, bOver);
}
