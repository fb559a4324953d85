#include "zqcore/clogf.h"

#include "zqcore/chash.h"
#include "zqcore/clog.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/clog_internal.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"
#include "zqcore/cwidepath_internal.h"

#include "platform/files.h"
#include "platform/fork.h"
#include "platform/process.h"
#include "platform/text.h"

#include <cwchar>
#include <span>

namespace
{
    constexpr wchar_t DEFAULT_FOLDER[] = L"\\GameLogs";   // below the current one
    constexpr std::size_t CURRENT_FOLDER_SIZE = WIDE_PATH_SIZE - std::size(DEFAULT_FOLDER) + 1;   // leaves room for it
    constexpr int TABLE_SIZE = 64;   // slots of the table of logs

    struct LogFile_t
    {
        String_T<LOG_NAME_SIZE> sName;
        std::FILE * pFile = nullptr;
        LogStream_c Stream;
    };

    // The open log of a name.
    struct Found_t
    {
        std::FILE * pFile;
        LogStream_c * pStream;
    };

    wchar_t g_wszLogPath[WIDE_PATH_SIZE];
    constinit StringHash_T<LogFile_t, LOG_NAME_SIZE, TABLE_SIZE, 1> g_dLogFiles;
    constinit LogStream_c g_Unlisted;   // shared by all logs for which the table has no room
    constinit ModuleLog_c g_ModuleLog;

    // Lock of the table. Nothing is allocated or freed under it: the heap's hook logs under the heap's lock.
    constinit plat::Lock_c g_TableLock;
    plat::ForkLock_c const g_TableForkLock(g_TableLock);

    // Creates the log folder and its missing parents.
    ZQ_COLD void CreateLogFolder()
    {
        wchar_t wszFolder[WIDE_PATH_SIZE];
        CopyWidePath(wszFolder, g_wszLogPath);
        LogCreateFolders(wszFolder);
        char szFolder[WIDE_PATH_UTF8_SIZE];
        plat::Utf8FromWide(szFolder, sizeof szFolder, wszFolder);
        plat::FolderCreate(szFolder);
    }

    // Writes the path of a log's file in the log folder.
    void WritePathInLogPath(char const * szName, char (&szPath)[LogStream_c::PATH_SIZE])
    {
        std::size_t const nFolder = plat::Utf8FromWide(szPath, WIDE_PATH_UTF8_SIZE, g_wszLogPath);
        char * const pName = szPath + nFolder + (nFolder ? 1 : 0);
        if (nFolder)
        {
            szPath[nFolder] = '\\';
        }
        StrCopy(pName, szName, LOG_NAME_SIZE);
    }

    std::FILE * OpenInLogPath(char const * szName)
    {
        char szPath[LogStream_c::PATH_SIZE];
        WritePathInLogPath(szName, szPath);
        std::FILE * pFile = plat::StreamOpenLog(szPath);
        if (!pFile && g_wszLogPath[0])
        {
            CreateLogFolder();
            pFile = plat::StreamOpenLog(szPath);
        }
        return pFile;
    }

    LogFile_t * FindListed(char const * szName)
    {
        plat::LockScope_c const Scope(g_TableLock);
        return g_dLogFiles.FindByName(szName);
    }

    // Adds a log to the table. If another thread has added that name meanwhile, returns HASH_PRESENT and sets pLog to
    // that thread's log.
    HashAdd_e AddToTable(LogFile_t *& pLog)
    {
        plat::LockScope_c const Scope(g_TableLock);
        auto const eResult = static_cast<HashAdd_e>(g_dLogFiles.Add(pLog, &pLog->sName));
        pLog = eResult == HASH_PRESENT ? g_dLogFiles.FindByName(pLog->sName) : pLog;
        return eResult;
    }

    // Opens a log that is not in the table, adds it and returns it. Without room in the table the log shares
    // g_Unlisted. Returns nulls if the file can't be opened.
    ZQ_COLD Found_t OpenLog(String_T<LOG_NAME_SIZE> const & sName)
    {
        std::FILE * const pFile = OpenInLogPath(sName);
        if (!pFile)
        {
            return { nullptr, nullptr };
        }
        auto * const pNew = ZQ_NEW LogFile_t{ sName, pFile, {} };
        pNew->Stream.SetOwn(pFile);
        LogFile_t * pEntry = pNew;
        switch (AddToTable(pEntry))
        {
        case HASH_ADDED:
            return { pFile, &pNew->Stream };
        case HASH_PRESENT:
            std::fclose(pFile);
            delete pNew;
            return { pEntry->pFile, &pEntry->Stream };
        default:
            delete pNew;
            return { pFile, &g_Unlisted };
        }
    }

    // Opens the log of a name if needed, and returns it. Returns nulls for a null name or if the file can't be opened.
    Found_t FindLog(char const * szName)
    {
        if (!szName)
        {
            return { nullptr, nullptr };
        }
        MemCategoryScope_c const Scope(mem::logger);
        String_T<LOG_NAME_SIZE> const sKey(szName);
        LogFile_t * const pOpen = FindListed(sKey);
        return pOpen ? Found_t{ pOpen->pFile, &pOpen->Stream } : OpenLog(sKey);
    }

    ZQ_COLD void ReportLost(char const * szName, std::uint32_t nLost)
    {
        if (nLost > 0)
        {
            LogEscaped("Log lines lost in \"%s\": %u", szName, static_cast<unsigned>(nLost));
        }
    }

    void WriteNamed(char const * szName, char const * pText, std::size_t nText)
    {
        Found_t const Found = FindLog(szName);
        if (!Found.pFile)
        {
            return;
        }
        auto const WritePath = [szName](auto & szPath) { WritePathInLogPath(String_T<LOG_NAME_SIZE>(szName), szPath); };
        Found.pStream->Follow(Found.pFile, WritePath);
        if (Found.pStream->Write(Found.pFile, pText, nText) && Found.pStream->HasLost()) [[unlikely]]
        {
            ReportLost(szName, Found.pStream->ExtractLost());
        }
        Found.pStream->Limit(Found.pFile, nText, WritePath);
    }
}

ModuleLog_c * ModuleLog_c::Get()
{
    return &g_ModuleLog;
}

void ModuleLog_c::SetLogPath(wchar_t const * sPath)
{
    CopyWidePath(g_wszLogPath, sPath);
}

wchar_t const * ModuleLog_c::GetLogPath() const
{
    return g_wszLogPath;
}

std::FILE * ModuleLog_c::GetLogFile(char const * sName)
{
    return FindLog(sName).pFile;
}

bool ModuleLog_c::Initialize()
{
    MemCategoryScope_c const Scope(mem::logger);
    if (!g_wszLogPath[0])
    {
        if (!plat::ProcessCurrentFolder(g_wszLogPath, CURRENT_FOLDER_SIZE))
        {
            std::wcscpy(g_wszLogPath, L".");   // the default folder alone would lie in the root
        }
        std::wcscat(g_wszLogPath, DEFAULT_FOLDER);
    }
    plat::ProcessMakeAbsolute(g_wszLogPath, WIDE_PATH_SIZE);
    if (LogGetFolder()[0])
    {
        CopyWidePath(g_wszLogPath, LogGetFolder());
        LogCreateFolders(g_wszLogPath);
    }
    CreateLogFolder();
    return Module_c::Initialize();
}

void ModuleLog_c::Shutdown()
{
    MemCategoryScope_c const Scope(mem::logger);
    LogFile_t * dLogs[TABLE_SIZE];
    int nLogs = 0;
    {
        plat::LockScope_c const Lock(g_TableLock);
        for (auto * pSlot = g_dLogFiles.First(); pSlot; pSlot = g_dLogFiles.Next(pSlot))
        {
            dLogs[nLogs++] = pSlot->pObject;
        }
        g_dLogFiles.Reset();
    }
    for (LogFile_t * const pLog : std::span(dLogs, static_cast<std::size_t>(nLogs)))
    {
        ReportLost(pLog->sName, pLog->Stream.ExtractLost());
        std::fclose(pLog->pFile);
        delete pLog;
    }
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
    char szLine[LOG_LINE_SIZE + 1];
    std::size_t nLine = FormatLine(szLine, LOG_LINE_SIZE, fmt, args);
    szLine[nLine++] = '\n';
    if (sFile)
    {
        WriteNamed(sFile, szLine, nLine);
    }
    else
    {
        LogWriteBare(szLine, nLine);
    }
}

void Logf_raw(char const * sFile, char const * sText)
{
    if (sText)
    {
        WriteNamed(sFile, sText, std::strlen(sText));
    }
}
