#include "zqcore/clog.h"

#include "zqcore/cexceptionreport.h"
#include "zqcore/cformat_internal.h"
#include "zqcore/clink.h"
#include "zqcore/clog_internal.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"
#include "zqcore/ctimer.h"

#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/rawfiles.h"
#include "platform/system.h"
#include "platform/text.h"

#include <cstring>
#include <cwchar>
#include <utility>

constinit std::FILE * g_pMessageLogFile = nullptr;
constinit int g_iLogFrameCounter = 0;

namespace
{
    constexpr std::size_t PATH_SIZE = 1024;
    constexpr std::size_t LINE_SIZE = LOG_LINE_LENGTH + 1;
    constexpr char DUMP_RULE[] =
        "---------------------------------------------------------------------------------------------------";
    static_assert(sizeof DUMP_RULE == 99 + 1);

    using Listener_t = void (*)(char const *);

    wchar_t g_wszFolder[PATH_SIZE];
    wchar_t g_wszFile[PATH_SIZE];
    constinit Link_T<Listener_t> * g_pListeners = nullptr;
    constinit bool g_bOpened = false;   // LogInit has made the log's file

    void CopyPath(wchar_t * wszTo, wchar_t const * wszFrom)
    {
        std::wcsncpy(wszTo, wszFrom, PATH_SIZE - 1);
        wszTo[PATH_SIZE - 1] = L'\0';
    }

    // Room for a line, and ahead of it for what the message log puts there.
    class Line_c
    {
    public:
        char * Text() { return m_aRoom + LINE_PREFIX_SIZE; }

    private:
        char m_aRoom[LINE_PREFIX_SIZE + LINE_SIZE];
    };

    // Writes the line where it stands, and leaves the text as it was.
    void WriteLine(Line_c & Line, std::size_t nText)
    {
        if (!g_pMessageLogFile)
        {
            return;
        }
        auto const tPassed = static_cast<float>(longTimeGetPassed());
        char const * const pBegin = FormatLinePrefix(Line.Text(), tPassed, g_iLogFrameCounter);
        char * const pEnd = Line.Text() + nText;
        *pEnd = '\n';
        auto const nBytes = static_cast<std::size_t>(pEnd + 1 - pBegin);
        plat::StreamWriteThrough(g_pMessageLogFile, pBegin, nBytes);   // the stream has no buffer
        *pEnd = '\0';
    }

    void WriteToMessageLog(char const * szText)
    {
        Line_c Line;
        WriteLine(Line, StrCopy(Line.Text(), szText, LINE_SIZE));
    }

    // Folder and name as one path, with the folder's levels created.
    void FullPath(wchar_t * wszPath, wchar_t const * wszName)
    {
        wchar_t wszFolder[PATH_SIZE];
        CopyPath(wszFolder, g_wszFolder);
        LogCreateFolders(wszFolder);
        CopyPath(wszPath, wszFolder);
        std::wcsncat(wszPath, wszName, PATH_SIZE - 1 - std::wcslen(wszPath));
    }

    wchar_t const * FileNameOrDefault()
    {
        return g_wszFile[0] ? g_wszFile : L"message.log";
    }

    std::FILE * OpenMessageLog(char const * szMode)
    {
        wchar_t wszPath[PATH_SIZE];
        FullPath(wszPath, FileNameOrDefault());
        char szPath[PATH_SIZE * 4];
        plat::Utf8FromWide(szPath, sizeof szPath, wszPath);
        return plat::StreamOpen(szPath, szMode);
    }

    double Megabytes(std::uint64_t nBytes)
    {
        return static_cast<double>(static_cast<float>(nBytes) / 1048576.0f);
    }
}

void LogCreateFolders(wchar_t * sFolder)
{
    for (wchar_t * p = sFolder; *p; ++p)
    {
        if (*p != L'/' && *p != L'\\')
        {
            continue;
        }
        *p = L'\0';
        if (p != sFolder)
        {
            char szLevel[PATH_SIZE * 4];
            plat::Utf8FromWide(szLevel, sizeof szLevel, sFolder);
            plat::FolderCreate(szLevel);
        }
        *p = L'/';
    }
}

void LogSetFile(wchar_t const * sFolder, wchar_t const * sName)
{
    CopyPath(g_wszFolder, sFolder);
    CopyPath(g_wszFile, sName);

    wchar_t wszPath[PATH_SIZE];
    FullPath(wszPath, FileNameOrDefault());
    g_ExceptionReport.SetLogFileName(g_wszFolder, wszPath);
}

wchar_t const * LogGetFolder()
{
    return g_wszFolder;
}

void LogInit()
{
    if (!g_wszFolder[0] || g_pMessageLogFile)
    {
        return;
    }
    g_pMessageLogFile = OpenMessageLog("wb");
    if (g_pMessageLogFile)
    {
        std::setvbuf(g_pMessageLogFile, nullptr, _IONBF, 0);
        g_bOpened = true;
    }
    LogAddCallback(WriteToMessageLog);
}

void LogDone()
{
    LinkFreeAll(std::exchange(g_pListeners, nullptr));   // a report of the heap may come in between
    if (g_pMessageLogFile)
    {
        std::fclose(g_pMessageLogFile);
        g_pMessageLogFile = nullptr;
    }
}

void LogCloseInCrash()
{
    if (std::FILE * const pFile = g_pMessageLogFile)
    {
        g_pMessageLogFile = nullptr;
        plat::RawCloseStream(pFile);
    }
}

void LogWriteLate(char const * szText)
{
    bool const bClosed = !g_pMessageLogFile;
    if (bClosed && g_bOpened)
    {
        g_pMessageLogFile = OpenMessageLog("ab");
    }
    std::size_t nLine;
    for (; *szText; szText += nLine + (szText[nLine] == '\n'))
    {
        char szLine[LINE_SIZE];
        nLine = std::strcspn(szText, "\n");
        std::snprintf(szLine, sizeof szLine, "%.*s", static_cast<int>(nLine), szText);
        WriteToMessageLog(szLine);
    }
    if (bClosed && g_pMessageLogFile)
    {
        std::fclose(g_pMessageLogFile);
        g_pMessageLogFile = nullptr;
    }
}

void LogAddCallback(void (*fnListener)(char const *))
{
    MemCategoryScope_c const Scope(mem::Noise);
    g_pListeners = (ZQ_NEW Link_T<Listener_t>(fnListener))->Link(g_pListeners);
}

void LogText(char const * szText)
{
    for (Link_T<Listener_t> const * pNode = g_pListeners; pNode; pNode = pNode->pNext)
    {
        pNode->Get()(szText);
    }
}

void LogArg(char const * fmt, std::va_list args)
{
    Line_c Line;
    std::size_t const nText = FormatText(Line.Text(), LINE_SIZE, fmt, args);
    for (Link_T<Listener_t> const * pNode = g_pListeners; pNode; pNode = pNode->pNext)
    {
        pNode->Get() == WriteToMessageLog ? WriteLine(Line, nText) : pNode->Get()(Line.Text());
    }
}

void Log(char const * fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    LogArg(fmt, args);
    va_end(args);
}

void Logc(bool bCondition, char const * fmt, ...)
{
    if (bCondition && fmt)
    {
        std::va_list args;
        va_start(args, fmt);
        LogArg(fmt, args);
        va_end(args);
    }
}

void Debugf(char const * fmt, ...)
{
    char szLine[LINE_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szLine, LINE_SIZE, fmt, args);
    va_end(args);
    plat::DebugOutput(szLine);
    plat::DebugOutput("\n");
}

void LogWinLastError(char const * sPrefix)
{
    char szError[256];
    plat::LastErrorText(szError, sizeof szError);
    if (sPrefix)
    {
        Log("%s: %s", sPrefix, szError);
    }
    else
    {
        Log("GetLastError() returned: %s", szError);
    }
}

void DumpSystemInfo()
{
    plat::SystemFacts_t Facts;
    plat::SystemGetFacts(Facts);
    plat::LocalTime_t const Time = plat::LocalTime();

    Log("System information:");
    Log("   OS: \t\t\t\t%s", Facts.szName);
    Log("   OS version: \t\t\t%d.%d.%d", Facts.iMajor, Facts.iMinor, static_cast<int>(Facts.iBuild & 0xFFFF));
    Log("   Computer name: \t\t\"%s\"", Facts.szComputer);
    Log("   User name: \t\t\t\"%s\"", Facts.szUser);
    Log("   Processors count: \t\t%d", Facts.nProcessors);
    Log("   Processor(s) type: \t\t%d", Facts.iProcessorType);
    Log("   Total physical memory: \t%.02f Mb", Megabytes(Facts.nPhysicalTotal));
    Log("   Available physical memory: \t%.02f Mb", Megabytes(Facts.nPhysicalFree));
    Log("   Total virtual memory: \t%.02f Mb", Megabytes(Facts.nVirtualTotal));
    Log("   Available virtual memory: \t%.02f Mb", Megabytes(Facts.nVirtualFree));
    Log("%s", DUMP_RULE);
    Log("LOG START:  %02d.%02d.%02d  %02d:%02d:%02d.%03d", Time.iDay, Time.iMonth, Time.iYear, Time.iHour, Time.iMinute,
        Time.iSecond, Time.iMillisecond);
    Log("%s", DUMP_RULE);
}
