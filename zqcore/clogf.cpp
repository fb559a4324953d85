#include "zqcore/clogf.h"

#include "zqcore/cformat_internal.h"
#include "zqcore/chash.h"
#include "zqcore/clog.h"

#include "platform/files.h"
#include "platform/process.h"
#include "platform/text.h"

#include <cwchar>

namespace
{
    constexpr std::size_t PATH_SIZE = 1024;
    constexpr std::size_t CURRENT_FOLDER_SIZE = 1015;   // leaves room for the default folder's name
    constexpr std::size_t LINE_SIZE = LOG_LINE_LENGTH + 1;

    struct LogFile_t
    {
        String_T<64> sName;
        std::FILE * pFile;
    };

    wchar_t g_wszLogPath[PATH_SIZE];
    constinit StringHash_T<LogFile_t, 64, 64, 1> g_sLogFiles;
    constinit ModuleLog_c g_ModuleLog;

    void CopyPath(wchar_t * wszTo, wchar_t const * wszFrom)
    {
        std::wcsncpy(wszTo, wszFrom, PATH_SIZE - 1);
        wszTo[PATH_SIZE - 1] = L'\0';
    }

    std::FILE * OpenInLogPath(char const * szName)
    {
        char szPath[PATH_SIZE * 4 + 64 + 1];
        std::size_t const nFolder = plat::Utf8FromWide(szPath, PATH_SIZE * 4, g_wszLogPath);
        char * const pName = szPath + nFolder + (nFolder ? 1 : 0);
        if (nFolder)
        {
            szPath[nFolder] = '\\';
        }
        StrCopy(pName, szName, 64 + 1);
        return plat::StreamOpen(szPath, "wb");
    }

    void Write(std::FILE * pFile, char const * fmt, std::va_list args)
    {
        char szLine[LINE_SIZE + 1];
        FormatText(szLine, LINE_SIZE, fmt, args);
        std::size_t nLength = std::strlen(szLine);   // a NUL that %c made ends the line
        szLine[nLength++] = '\n';
        std::fwrite(szLine, 1, nLength, pFile);
        std::fflush(pFile);
    }
}

ModuleLog_c * ModuleLog_c::Get()
{
    return &g_ModuleLog;
}

void ModuleLog_c::SetLogPath(wchar_t const * sPath)
{
    CopyPath(g_wszLogPath, sPath);
}

wchar_t const * ModuleLog_c::GetLogPath() const
{
    return g_wszLogPath;
}

std::FILE * ModuleLog_c::GetLogFile(char const * sName)
{
    MemCategoryScope_c const Scope(mem::logger);
    if (!sName)
    {
        return nullptr;
    }
    String_T<64> const sKey(sName);
    if (LogFile_t const * const pOpen = g_sLogFiles.FindByName(sKey))
    {
        return pOpen->pFile;
    }
    auto * const pEntry = ZQ_NEW LogFile_t{ sKey, nullptr };
    std::FILE * const pFile = pEntry->pFile = OpenInLogPath(pEntry->sName);
    if (!pFile || g_sLogFiles.Add(pEntry, &pEntry->sName) != HASH_ADDED)
    {
        delete pEntry;
    }
    return pFile;
}

bool ModuleLog_c::Initialize()
{
    MemCategoryScope_c const Scope(mem::logger);
    if (!g_wszLogPath[0])
    {
        plat::ProcessCurrentFolder(g_wszLogPath, CURRENT_FOLDER_SIZE);
        std::wcscat(g_wszLogPath, L"\\GameLogs");
    }
    if (LogGetFolder()[0])
    {
        CopyPath(g_wszLogPath, LogGetFolder());
        LogCreateFolders(g_wszLogPath);
    }
    char szFolder[PATH_SIZE * 4];
    plat::Utf8FromWide(szFolder, sizeof szFolder, g_wszLogPath);
    plat::FolderCreate(szFolder);
    return Module_c::Initialize();
}

void ModuleLog_c::Shutdown()
{
    MemCategoryScope_c const Scope(mem::logger);
    for (auto * pSlot = g_sLogFiles.First(); pSlot; pSlot = g_sLogFiles.Next(pSlot))
    {
        std::fclose(pSlot->pObject->pFile);
        delete pSlot->pObject;
    }
    g_sLogFiles.Reset();
    Module_c::Shutdown();
}

void Logf(char const * sFile, char const * fmt, ...)
{
    if (sFile && fmt)
    {
        std::va_list args;
        va_start(args, fmt);
        LogfArg(sFile, fmt, args);
        va_end(args);
    }
}

void Logcf(bool bCondition, char const * sFile, char const * fmt, ...)
{
    if (bCondition && sFile && fmt)
    {
        std::va_list args;
        va_start(args, fmt);
        LogfArg(sFile, fmt, args);
        va_end(args);
    }
}

void LogfArg(char const * sFile, char const * fmt, std::va_list args)
{
    MemCategoryScope_c const Scope(mem::logger);
    std::FILE * const pFile = sFile ? ModuleLog_c::Get()->GetLogFile(sFile) : g_pMessageLogFile;
    if (pFile)
    {
        Write(pFile, fmt, args);
    }
}

void Logf_raw(char const * sFile, char const * sText)
{
    std::FILE * const pFile = ModuleLog_c::Get()->GetLogFile(sFile);
    if (pFile && sText)
    {
        std::fputs(sText, pFile);
        std::fflush(pFile);
    }
}
