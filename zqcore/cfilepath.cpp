#include "zqcore/cfilepath.h"

#include "zqcore/cdebug.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include "platform/files.h"
#include "platform/process.h"

#include <cstring>

constinit FileTable_t g_sFileObjects;
constinit PathTable_t g_sPaths;

namespace
{
    // Returns whether the folded form of a folder's path leads to another folder.
    bool IsHidden(char const * szPath, char const * szFolded)
    {
        plat::FileIdentity_t Named;
        plat::FileIdentity_t Found;
        return plat::FolderGetIdentity(szPath, Named, true) && plat::FolderGetIdentity(szFolded, Found)
               && Named != Found;
    }

    // Adds the folder of FileAddOneFile to g_sPaths if it is not there, and returns it. Returns null, with a log line,
    // if the table is full.
    String_T<256> const * FindOrAddPath(char const * szPath)
    {
        String_T<256> const * pPath = g_sPaths.FindByName(szPath);
        pPath = pPath ? pPath : FilePathAdd(szPath);
        if (!pPath)
        {
            Log("FileAddOneFile - unknown path hash error [Ivo Renning]");
        }
        return pPath;
    }

    // Adds the file of FileAddOneFile to g_sFileObjects. Returns false, with a log line, if the table refuses it.
    bool AddToTable(File_c & File)
    {
        bool const bAdded = g_sFileObjects.Add(&File, &File.sName) == HASH_ADDED;
        if (!bAdded)
        {
            Log("FileAddOneFile - unknown file hash error [Ivo Renning]");
        }
        return bAdded;
    }

    // Closes each file whose folder begins with szPrefix once, and removes it from the table. Destroys it, or makes it
    // an orphan if it is still open. Returns whether there was one.
    bool ResetFilesBelow(char const * szPrefix)
    {
        bool bRemoved = false;
        FileTable_t::Slot_s * pNext;
        for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = pNext)
        {
            pNext = g_sFileObjects.Next(pSlot);
            File_c * const pTop = pSlot->pObject;
            File_c * const pFile = FileHiding_c::FirstInFolder(*pTop);
            if (!pFile || !pFile->pPath->Begins(szPrefix))
            {
                continue;
            }
            bRemoved = true;
            bool const bTop = pFile == pTop;
            FileClose(pFile);
            FileStayerForget(*pFile, false);   // FileClose released the reference of one entry
            if (pFile->GetOpensCount() == 0)
            {
                delete pFile;
            }
            else
            {
                FileHiding_c::Remove(*pFile);
                g_FileOrphans.Add(pFile);
            }
            if (bTop)
            {
                g_sFileObjects.Delete(pSlot);
            }
        }
        return bRemoved;
    }

    // Removes the folders that begin with szPrefix. Frees those without orphans. Returns whether there was one.
    bool ResetPathsBelow(char const * szPrefix)
    {
        bool bRemoved = false;
        PathTable_t::Slot_s * pNext;
        for (PathTable_t::Slot_s * pSlot = g_sPaths.First(); pSlot; pSlot = pNext)
        {
            pNext = g_sPaths.Next(pSlot);
            String_T<256> * const pPath = pSlot->pObject;
            if (!pPath->Begins(szPrefix))
            {
                continue;
            }
            bRemoved = true;
            g_sPaths.Delete(pSlot);
            if (g_FileOrphans.HasFileIn(*pPath))
            {
                g_FileOrphans.KeepFolder(pPath);
            }
            else
            {
                delete pPath;
            }
        }
        return bRemoved;
    }
}

String_T<256> const * FilePathAdd(char const * szPath)
{
    auto * const pPath = ZQ_NEW String_T<256>(szPath);
    if (g_sPaths.Add(pPath, pPath) != HASH_ADDED)
    {
        delete pPath;
        return nullptr;
    }
    return pPath;
}

void FileLogCutName(char const * szName, std::size_t nName)
{
    LogEscaped("filesystem: name of %zu characters is cut to %zu: \"%s\"", nName, FILE_KEY_LENGTH, szName);
}

bool FoldedPath_c::AppendSeparator()
{
    if (m_nLength > 0 && m_szText[m_nLength - 1] == '\\')
    {
        return true;
    }
    if (m_nLength == FOLDED_LENGTH)
    {
        return false;
    }
    m_szText[m_nLength++] = '\\';
    m_szText[m_nLength] = '\0';
    return true;
}

void FileNoteMissed(char const * szFolder)
{
    FoldedPath_c sFolder(szFolder);
    sFolder.AppendSeparator();
    FileScanNoteMissed(String_T<256>(sFolder));
}

void FileForget(File_c & File)
{
    if (File.sName.IsEmpty())
    {
        return;
    }
    if (g_sFileObjects.FindByName(File.sName) == &File)
    {
        g_sFileObjects.DeleteByName(File.sName);
        FileHiding_c::Reveal(File);
        return;
    }
    if (FileHiding_c::Remove(File))
    {
        return;
    }
    // The file is not found by its key: it left the table, its key was changed, or another object has the same key.
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        if (pSlot->pObject == &File)
        {
            g_sFileObjects.Delete(pSlot);
        }
    }
    g_FileOrphans.Remove(File);
}

void FileRenewLocks()
{
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        // pObject is null in a child if another thread of the parent was adding it.
        for (File_c * pFile = pSlot->pObject; pFile; pFile = pFile->m_pHidden)
        {
            pFile->RenewLock();
        }
    }
    for (File_c * pOrphan : g_FileOrphans.GetFiles())
    {
        pOrphan->RenewLock();
    }
}

bool FileAddSearchPath(char const * sPath, bool bRecursive, bool bRelativeNames)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sPath);
    plat::FileFacts_t Facts;
    bool const bFound = sPath && plat::PathGetFacts(sPath, Facts);
    bool const bFault = sPath && !bFound && !plat::LastErrorIsAbsence();
    if (bFault)
    {
        FileNoteMissed(sPath);
    }
    if (!bFound || !Facts.bFolder)
    {
        LogEscaped("Path not found %s", sPath ? sPath : "");
        return false;
    }
    FoldedPath_c sFolded(sPath);
    char const * const pLast = std::strrchr(sFolded, '\\');
    bool const bAppend = !pLast || (pLast[1] != '\0' && pLast[1] != ' ');
    if (sFolded.IsCut() || (bAppend && !sFolded.AppendSeparator()))
    {
        FileLogSkipped(FILE_LONG_PATH, sPath);
        return false;
    }
    String_T<256> const sFolder(sFolded);
    if (IsHidden(sPath, sFolder))
    {
        FileLogSkipped("it is hidden by a folder that differs in case only", sPath);
        return false;
    }
    FileScanFolder(sFolder, bRecursive, bRelativeNames);
    return true;
}

void FileRemoveSearchPath(char const * sPath, bool)
{
    FileResetFiles(sPath);
}

bool FileAddOneFile(char const * sFile)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sFile);
    FoldedPath_c const sFolded(sFile);
    char const * const szBare = sFolded.GetBare();
    if (g_sFileObjects.FindByName(szBare))
    {
        return true;
    }
    if (sFolded.IsCut())
    {
        FileLogSkipped(FILE_LONG_PATH, sFile);
        return FileNoteNotAdded(szBare, FILE_LONG_PATH);
    }
    if (FileReplacement_c::IsBeside(szBare))
    {
        FileLogSkipped(FILE_UNFINISHED, sFile);
        return FileNoteNotAdded(szBare, FILE_UNFINISHED);
    }
    FileName_c const sName{ static_cast<char const *>(sFolded) };
    String_T<256> const * const pPath = FindOrAddPath(sName.GetDrive() + sName.GetDir());
    if (!pPath)
    {
        return FileNoteNotAdded(szBare, FILE_NO_ROOM);
    }
    if (std::strlen(szBare) > FILE_KEY_LENGTH)
    {
        FileLogSkipped(FILE_LONG_PATH, sFile);   // the key would be another file's
        return FileNoteNotAdded(szBare, FILE_LONG_PATH);
    }
    File_c * const pFile = ZQ_NEW FileOnDisk_c;
    pFile->pPath = pPath;
    FileMakeBareKey(szBare, std::strlen(szBare), pFile->sName.GetBuffer());
    int const nOpens = pFile->RefOpen();
    pFile->RefClose();
    if (nOpens == 0 || !AddToTable(*pFile))   // nOpens is 2 for a stayer
    {
        FileNoteNotAdded(szBare, nOpens == 0 ? pFile->GetWhyNot() : File_c::Reason_t(FILE_NO_ROOM));
        FileDiscard(pFile);
        return false;
    }
    return true;
}

bool FileResetFiles(char const * sPath)
{
    MemCategoryScope_c const Category(mem::file);
    ZQ_ASSERT(sPath);
    FoldedPath_c sPrefix(sPath);
    if (!sPath || sPrefix.IsCut() || !sPrefix.AppendSeparator())
    {
        return false;   // null, or a path longer than any folder's
    }
    FileScanForgetMissed(sPrefix);
    bool const bFiles = ResetFilesBelow(sPrefix);
    bool const bPaths = ResetPathsBelow(sPrefix);
    return bFiles || bPaths;
}

void FileReset()
{
    MemCategoryScope_c const Category(mem::file);
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        FileHiding_c::DestroyBelow(*pSlot->pObject);
        delete pSlot->pObject;
    }
    g_FileOrphans.DestroyFiles();
    for (PathTable_t::Slot_s * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
    {
        delete pSlot->pObject;
    }
    g_FileOrphans.DestroyFolders();
    FileScanForgetMissed("");
    FileTableForgetOverflow();
    FileCacheForgetFolders();
    g_sFileObjects.Reset();
    g_sPaths.Reset();
    FilePoolTrim();
    plat::SpellingsForget();
}

int FileGetDirectoryFiles(char const * sPath, File_c ** const dFiles, int iMax)
{
    ZQ_ASSERT(sPath && dFiles);
    ZQ_ASSERT(iMax >= 1);
    FoldedPath_c const sPrefix(sPath);
    if (!sPath || !dFiles || sPrefix.IsCut())
    {
        return 0;
    }
    int nFiles = 0;
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot && nFiles < iMax;
         pSlot = g_sFileObjects.Next(pSlot))
    {
        File_c * const pFile = pSlot->pObject;
        if (pFile->pPath && pFile->pPath->Begins(sPrefix))
        {
            dFiles[nFiles++] = pFile;
        }
    }
    return nFiles;
}
