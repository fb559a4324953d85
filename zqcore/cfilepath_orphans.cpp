#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath_internal.h"

FileOrphans_c g_FileOrphans;

void FileOrphans_c::Remove(File_c const & File)
{
    for (int i = m_dFiles.GetLength() - 1; i >= 0; --i)
    {
        if (m_dFiles[i] == &File)
        {
            m_dFiles.Delete(i);
        }
    }
}

bool FileOrphans_c::HasFileIn(String_T<256> const & sFolder) const
{
    for (File_c const * pFile : m_dFiles)
    {
        if (pFile->pPath == &sFolder)
        {
            return true;
        }
    }
    return false;
}

void FileOrphans_c::DestroyFiles()
{
    while (!m_dFiles.IsEmpty())
    {
        delete m_dFiles[m_dFiles.GetLength() - 1];
    }
    m_dFiles.Reset();
}

void FileOrphans_c::DestroyFolders()
{
    for (String_T<256> * pFolder : m_dFolders)
    {
        delete pFolder;
    }
    m_dFolders.Reset();
}

void FileKeepFolder(String_T<256> * pFolder)
{
    g_FileOrphans.KeepFolder(pFolder);
}
