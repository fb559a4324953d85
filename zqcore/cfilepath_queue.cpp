#include "zqcore/cfilepath_internal.h"
#include "zqcore/clog.h"

namespace
{
    bool g_bOverflowReported = false;   // of the table of files; reported once in a process

    void LogFile(char const * szFormat, File_c const & File)
    {
        char const * const szFolder = File.pPath ? static_cast<char const *>(*File.pPath) : "";
        LogEscaped(szFormat, szFolder, static_cast<char const *>(File.sName));
    }
}

void FileTableQueue_c::DropDuplicate(File_c * pFile)
{
    LogFile("File duplication : %s%s", *pFile);
    if (File_c * const pFirst = g_sFileObjects.FindByName(pFile->sName))
    {
        LogFile("                   %s%s", *pFirst);
        pFirst->bDuplicate = true;
    }
    FileDiscard(pFile);
}

void FileTableQueue_c::DropOverflow(File_c * pFile)
{
    if (!g_bOverflowReported)
    {
        g_bOverflowReported = true;
        Warning("file hash overflow");
    }
    FileDiscard(pFile);
}
