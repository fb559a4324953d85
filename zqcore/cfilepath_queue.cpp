#include "zqcore/cdebug.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/clog.h"

namespace
{
    bool g_bOverflowReported = false;   // whether the process has reported the full table of files
    bool g_bOverflowed = false;         // whether a file found no room since FileReset

    char const * FolderOf(File_c const & File)
    {
        return File.pPath ? static_cast<char const *>(*File.pPath) : "";
    }

    void LogFile(char const * szFormat, File_c const & File)
    {
        LogEscaped(szFormat, FolderOf(File), static_cast<char const *>(File.sName));
    }
}

bool FileTableOverflowed()
{
    return g_bOverflowed;
}

void FileTableForgetOverflow()
{
    g_bOverflowed = false;
}

void FileTableQueue_c::DropDuplicate(File_c * pFile)
{
    LogFile("File duplication : %s%s", *pFile);
    File_c * const pFirst = g_sFileObjects.FindByName(pFile->sName);
    if (pFirst)
    {
        LogFile("                   %s%s", *pFirst);
        pFirst->bDuplicate = true;
    }
    FileReportSkip(FileSkip_e::Duplicate, FolderOf(*pFile), pFile->sName, pFirst);
    FileDiscard(pFile);
}

void FileTableQueue_c::DropOverflow(File_c * pFile)
{
    if (!g_bOverflowReported)
    {
        g_bOverflowReported = true;
        Warning("file hash overflow");
    }
    g_bOverflowed = true;
    FileReportSkip(FileSkip_e::NoRoom, FolderOf(*pFile), pFile->sName);
    FileDiscard(pFile);
}
