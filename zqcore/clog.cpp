#include "zqcore/clog.h"

#include "zqcore/cexceptionreport.h"
#include "zqcore/clink.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/clog_internal.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"
#include "zqcore/ctimer.h"
#include "zqcore/cwidepath_internal.h"

#include "platform/clock.h"
#include "platform/debugger.h"
#include "platform/files.h"
#include "platform/fork.h"
#include "platform/process.h"
#include "platform/rawfiles.h"
#include "platform/system.h"
#include "platform/text.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <utility>

constinit std::FILE * g_pMessageLogFile = nullptr;
constinit int g_iLogFrameCounter = 0;

namespace
{
    constexpr char DUMP_RULE[] =
        "---------------------------------------------------------------------------------------------------";
    static_assert(sizeof DUMP_RULE == 99 + 1);

    using Listener_t = void (*)(char const *);

    wchar_t g_wszFolder[WIDE_PATH_SIZE];
    wchar_t g_wszFile[WIDE_PATH_SIZE];
    constinit Link_T<Listener_t> * g_pListeners = nullptr;
    constinit bool g_bOpened = false;   // whether LogInit has opened the log's file
    constinit LogStream_c g_MessageLog;

    // Lock that is held until a host's stream is flushed, so that a fork copies no buffered text.
    constinit plat::Lock_c g_HostStreamLock;
    plat::ForkLock_c const g_HostStreamForkLock(g_HostStreamLock);

    constinit plat::Lock_c g_LimitLock;   // held by the thread that starts a new file
    plat::ForkLock_c const g_LimitForkLock(g_LimitLock);

    // A buffer for a line, with space before it for the prefix of the main log.
    class Line_c
    {
    public:
        char * Text() { return m_dRoom + LINE_PREFIX_SIZE; }

    private:
        char m_dRoom[LINE_PREFIX_SIZE + LOG_LINE_SIZE];
    };

    // Writes the path of the main log and creates the levels of its folder.
    void WriteWidePath(wchar_t (&wszPath)[WIDE_PATH_SIZE])
    {
        wchar_t const * const wszName = g_wszFile[0] ? g_wszFile : LOG_WIDE_MAIN_FILE;
        CopyWidePath(wszPath, g_wszFolder);
        LogCreateFolders(wszPath);
        std::wcsncat(wszPath, wszName, WIDE_PATH_SIZE - 1 - std::wcslen(wszPath));
    }

    // Does the same in UTF-8.
    void WriteMessageLogPath(char (&szPath)[LogStream_c::PATH_SIZE])
    {
        wchar_t wszPath[WIDE_PATH_SIZE];
        WriteWidePath(wszPath);
        plat::Utf8FromWide(szPath, sizeof szPath, wszPath);
    }

    // Creates the folder, opens the file in it by fnOpen(szPath) and returns its stream. Returns null on failure.
    template <typename OPEN>
    std::FILE * OpenMessageLog(OPEN fnOpen)
    {
        char szPath[LogStream_c::PATH_SIZE];
        WriteMessageLogPath(szPath);
        return fnOpen(szPath);
    }

    // Writes the line with its prefix, then starts a new file if the log has outgrown its limit. The text is unchanged
    // afterwards. Returns false if the line is lost.
    bool WriteStamped(std::FILE * pFile, Line_c & Line, std::size_t nText)
    {
        auto const tPassed = static_cast<float>(longTimeGetPassed());
        char const * const pBegin =
            FormatLinePrefix(Line.Text(), tPassed, std::atomic_ref(g_iLogFrameCounter).load(std::memory_order_relaxed));
        char * const pEnd = Line.Text() + nText;
        *pEnd = '\n';
        g_MessageLog.Follow(pFile, WriteMessageLogPath);
        bool const bWritten = g_MessageLog.Write(pFile, pBegin, static_cast<std::size_t>(pEnd + 1 - pBegin));
        *pEnd = '\0';
        g_MessageLog.Limit(pFile, static_cast<std::size_t>(pEnd + 1 - pBegin), WriteMessageLogPath);
        return bWritten;
    }

    // Writes how many lines were lost, if any were. If this line is lost too, the count stays.
    ZQ_COLD void ReportLost(std::FILE * pFile)
    {
        std::uint32_t const nLost = g_MessageLog.ExtractLost();
        if (nLost == 0)
        {
            return;
        }
        Line_c Line;
        int const nText =
            std::snprintf(Line.Text(), LOG_LINE_SIZE, "Log lines lost here: %u", static_cast<unsigned>(nLost));
        if (!WriteStamped(pFile, Line, static_cast<std::size_t>(nText)))
        {
            g_MessageLog.AddLost(nLost - 1);   // the report counts as one
        }
    }

    // Writes the line to the main log if that is open, after a report of lines that were lost.
    void WriteLine(Line_c & Line, std::size_t nText)
    {
        std::FILE * const pFile = g_pMessageLogFile;
        if (!pFile)
        {
            return;
        }
        if (g_MessageLog.HasLost()) [[unlikely]]
        {
            ReportLost(pFile);
        }
        WriteStamped(pFile, Line, nText);
    }

    // Writes a line to the main log, as a listener. PassOn calls WriteLine instead, which saves the copy.
    void WriteToMessageLog(char const * szText)
    {
        Line_c Line;
        WriteLine(Line, StrCopy(Line.Text(), szText, LOG_LINE_SIZE));
    }

    void PassOn(Line_c & Line, std::size_t nText)
    {
        for (Link_T<Listener_t> const * pNode = g_pListeners; pNode; pNode = pNode->pNext)
        {
            if (pNode->Get() == WriteToMessageLog)
            {
                WriteLine(Line, nText);
            }
            else
            {
                pNode->Get()(Line.Text());
            }
        }
    }

    ZQ_COLD void LogEscapedCopy(char const * szText)
    {
        Line_c Line;
        PassOn(Line, plat::TextEscape(Line.Text(), LOG_LINE_SIZE, szText, plat::Controls_e::Layout));
    }

    bool HasListener(Listener_t fnListener)
    {
        Link_T<Listener_t> const * pNode = g_pListeners;
        while (pNode && pNode->Get() != fnListener)
        {
            pNode = pNode->pNext;
        }
        return pNode != nullptr;
    }

    double Megabytes(std::uint64_t nBytes)
    {
        constexpr float MEGABYTE = 1024 * 1024;
        return static_cast<double>(static_cast<float>(nBytes) / MEGABYTE);
    }
}

// Writes a text and returns the number of bytes written. If that is unknown, returns half of nText.
std::size_t LogStream_c::WriteSome(std::FILE * pStream, char const * pText, std::size_t nText) const
{
    if (pStream == m_pOwn && plat::StreamIsUnbuffered(pStream))
    {
        return plat::StreamWriteThrough(pStream, pText, nText);
    }
    plat::LockScope_c const Scope(g_HostStreamLock);
    bool const bWritten = std::fwrite(pText, 1, nText, pStream) == nText;
    return std::fflush(pStream) == 0 && bWritten ? nText : nText / 2;
}

bool LogStream_c::Write(std::FILE * pStream, char const * pLine, std::size_t nLine)
{
    if (m_nLost.load(std::memory_order_relaxed) & TORN && !EndTornLine(pStream)) [[unlikely]]
    {
        ++m_nLost;
        return false;
    }
    std::size_t const nWritten = WriteSome(pStream, pLine, nLine);
    if (nWritten != nLine) [[unlikely]]
    {
        ++m_nLost;
        m_nLost |= nWritten > 0 ? TORN : 0;
        return false;
    }
    return true;
}

// Ends the line that was written in part, unless another thread does. Returns false if the end can't be written.
ZQ_COLD bool LogStream_c::EndTornLine(std::FILE * pStream)
{
    bool const bEnded = (m_nLost.fetch_and(~TORN) & TORN) == 0 || WriteSome(pStream, "\n", 1) == 1;
    m_nLost |= bEnded ? 0 : TORN;
    return bEnded;
}

// Makes this time that of Follow's last check if that was a second ago or more. Returns whether it was.
bool LogStream_c::BeginDueCheck()
{
    constexpr std::uint32_t CHECK_MILLISECONDS = 1000;
    std::uint32_t const tNow = plat::CoarseClockMilliseconds();
    bool const bDue = tNow - m_tChecked.load(std::memory_order_relaxed) >= CHECK_MILLISECONDS;
    if (bDue)
    {
        m_tChecked.store(tNow, std::memory_order_relaxed);
    }
    return bDue;
}

constinit std::atomic<std::uint64_t> LogStream_c::s_nLimit = 0;
constinit std::atomic<int> LogStream_c::s_nPrevious = 0;

void LogStream_c::SetLimit(std::uint64_t nLimit, int nPrevious)
{
    s_nPrevious.store(std::max(nPrevious, 0));
    s_nLimit.store(nLimit);
}

ZQ_COLD void LogStream_c::BeginAnew(std::FILE * pStream, char const * szPath)
{
    if (!g_LimitLock.TryEnter())
    {
        return;   // another thread starts the new file
    }
    if (plat::StreamIsUnbuffered(pStream) && plat::StreamGetIdentity(pStream) == m_OwnFile)
    {
        m_nSize = plat::StreamLimitLog(pStream, szPath, s_nLimit, s_nPrevious);
        m_OwnFile = plat::StreamGetIdentity(pStream);
    }
    else
    {
        m_nSize = 0;   // a host's stream with the address of the own one, which the host has closed
    }
    g_LimitLock.Leave();
}

void LogSetLimit(std::uint64_t nBytes, int nPrevious)
{
    LogStream_c::SetLimit(nBytes, nPrevious);
}

void LogCreateFolders(wchar_t * sFolder)
{
    for (wchar_t * pEnd = sFolder; *pEnd; ++pEnd)
    {
        if (*pEnd != L'/' && *pEnd != L'\\')
        {
            continue;
        }
        *pEnd = L'\0';
        if (pEnd != sFolder)
        {
            char szLevel[WIDE_PATH_UTF8_SIZE + 4];   // a level that is cut is too long for the system too
            plat::Utf8FromWide(szLevel, sizeof szLevel, sFolder);
            plat::FolderCreate(szLevel);
        }
        *pEnd = L'/';
    }
}

void LogSetFile(wchar_t const * sFolder, wchar_t const * sName)
{
    CopyWidePath(g_wszFolder, sFolder);
    CopyWidePath(g_wszFile, sName);
    plat::ProcessMakeAbsolute(g_wszFolder, WIDE_PATH_SIZE);

    wchar_t wszPath[WIDE_PATH_SIZE];
    WriteWidePath(wszPath);
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
    g_pMessageLogFile = OpenMessageLog(plat::StreamOpenLog);
    g_MessageLog.SetOwn(g_pMessageLogFile);
    g_bOpened = g_bOpened || g_pMessageLogFile;
    if (!HasListener(WriteToMessageLog))   // a call that can't open the file adds it too
    {
        LogAddCallback(WriteToMessageLog);
    }
}

void LogDone()
{
    LinkFreeAll(std::exchange(g_pListeners, nullptr));   // freeing may log a report of the heap
    if (g_pMessageLogFile)
    {
        ReportLost(g_pMessageLogFile);
        std::fclose(g_pMessageLogFile);
        g_pMessageLogFile = nullptr;
    }
    g_MessageLog.ForgetOwn();
}

void LogWriteBare(char const * pLine, std::size_t nLine)
{
    if (std::FILE * const pFile = g_pMessageLogFile)
    {
        ReportLost(pFile);
        g_MessageLog.Write(pFile, pLine, nLine);
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
    std::FILE * const pOwn = g_bOpened && !g_pMessageLogFile
                                 ? OpenMessageLog([](char const * szPath) { return plat::StreamOpen(szPath, "ab"); })
                                 : nullptr;
    std::FILE * const pFile = pOwn ? pOwn : g_pMessageLogFile;
    while (pFile && *szText)
    {
        std::size_t const nLine = std::strcspn(szText, "\n");
        Line_c Line;
        WriteStamped(pFile, Line, StrCopy(Line.Text(), szText, std::min(nLine + 1, LOG_LINE_SIZE)));
        szText += nLine + (szText[nLine] == '\n');
    }
    if (pOwn)
    {
        std::fclose(pOwn);
    }
}

void LogAddCallback(void (*fnListener)(char const *))
{
    MemCategoryScope_c const Scope(mem::Noise);
    g_pListeners = (ZQ_NEW Link_T<Listener_t>(fnListener))->Link(g_pListeners);
}

void LogText(char const * szText)
{
    if (!IsPlainText(szText, std::strlen(szText))) [[unlikely]]
    {
        LogEscapedCopy(szText);
        return;
    }
    for (Link_T<Listener_t> const * pNode = g_pListeners; pNode; pNode = pNode->pNext)
    {
        pNode->Get()(szText);
    }
}

void LogArg(char const * fmt, std::va_list args)
{
    Line_c Line;
    PassOn(Line, FormatLine(Line.Text(), LOG_LINE_SIZE, fmt, args));
}

void LogEscaped(char const * fmt, ...)
{
    Line_c Line;
    std::va_list args;
    va_start(args, fmt);
    PassOn(Line, FormatEscaped(Line.Text(), LOG_LINE_SIZE, fmt, args));
    va_end(args);
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
    char szLine[LOG_LINE_SIZE];
    ZQ_FORMAT_LINE(szLine, LOG_LINE_SIZE, fmt);
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
    LogEscaped("   Computer name: \t\t\"%s\"", Facts.szComputer);
    LogEscaped("   User name: \t\t\t\"%s\"", Facts.szUser);
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
