// What the file of details says of the process. The figures and texts belong to other threads, so each is read as it is
// at the moment, without a lock. Memory of the host is read guarded.
#include "zqcore/capp.h"
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/clog.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/cversion.h"

#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/process.h"
#include "platform/system.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace
{
    using namespace exceptionreport;

    constexpr std::size_t FACT_SIZE = 256;   // bytes of a name of the system or of the host
    constexpr int LOG_LINES = 32;
    constexpr std::size_t LOG_LINE_BYTES = LINE_PREFIX_SIZE + LOG_LINE_LENGTH;   // longest formatted line, with its end

    // End of the main log, as it was before the report. It has room for a first line that is not whole.
    char g_szLogTail[(LOG_LINES + 1) * LOG_LINE_BYTES + 1];

    void WriteTime(Details_c & Details)
    {
        plat::LocalTime_t const Time = plat::LocalTimeByKept();
        int const iZone = plat::LocalTimeKeptZone();
        Details.GetLine().Add("time: %04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d", Time.iYear, Time.iMonth, Time.iDay,
            Time.iHour, Time.iMinute, Time.iSecond, Time.iMillisecond, iZone < 0 ? '-' : '+', std::abs(iZone) / 60,
            std::abs(iZone) % 60);
        Details.EndLine();
        std::int64_t const tUptime = plat::ProcessUptime();
        if (tUptime >= 0)
        {
            Details.GetLine().Add("uptime: %lld.%03d", static_cast<long long>(tUptime / plat::MILLISECONDS_OF_SECOND),
                static_cast<int>(tUptime % plat::MILLISECONDS_OF_SECOND));
            Details.EndLine();
        }
    }

    void WriteCommand(Details_c & Details)
    {
        char szArguments[LINE_SIZE / 2];
        Text_c & Line = Details.GetLine();
        Line.Add("command:");
        std::size_t const nArguments = plat::ProcessArguments(szArguments, sizeof szArguments - 1);
        szArguments[nArguments] = '\0';
        for (char const * pText = szArguments; pText < szArguments + nArguments; pText += std::strlen(pText) + 1)
        {
            Line.Add(" \"");
            Line.AddShown(pText);
            Line.Add("\"");
        }
        Line.Add(nArguments == sizeof szArguments - 1 ? "..." : "");
        Details.EndLine();
    }

    // Copies a text of the host, as far as it can be read, cut to FACT_SIZE - 1 bytes.
    void CopyText(char const * szText, char (&szCopy)[FACT_SIZE])
    {
        std::size_t const nRead = plat::MemoryRead(reinterpret_cast<std::uintptr_t>(szText), szCopy, sizeof szCopy - 1);
        szCopy[nRead] = '\0';
    }

    void WriteVersions(Details_c & Details)
    {
        char szName[FACT_SIZE];
        CopyText(g_szApplicationName, szName);
        Details.GetLine().Add("host: ");
        Details.GetLine().AddShown(szName);
        Details.GetLine().Add(" v%d.%d", g_nProjectVersionMajor, g_nProjectVersionMinor);
        Details.EndLine();
        Details.GetLine().Add("library: %d.%d.%d", ZQCORE_VERSION_MAJOR, ZQCORE_VERSION_MINOR, ZQCORE_VERSION_PATCH);
        Details.EndLine();
        plat::SystemName(szName, sizeof szName);
        Details.GetLine().Add("system: ");
        Details.GetLine().AddShown(szName);
        Details.EndLine();
        plat::ProcessorName(szName, sizeof szName);
        Details.GetLine().Add("processor: ");
        Details.GetLine().AddShown(szName);
        Details.EndLine();
    }

    void WriteMemory(Details_c & Details)
    {
        constexpr int LARGEST = 10;
        struct Category_s
        {
            std::ptrdiff_t nBytes;
            int iCategory;
        };
        Category_s dCategories[mem::TOTAL];
        for (int i = 0; i < mem::TOTAL; ++i)
        {
            dCategories[i] = { MemoryBytesNow(static_cast<mem::Categories_e>(i)), i };
        }
        std::sort(std::begin(dCategories), std::end(dCategories),
            [](Category_s const & Left, Category_s const & Right)
            { return Left.nBytes != Right.nBytes ? Left.nBytes > Right.nBytes : Left.iCategory < Right.iCategory; });
        Details.AddLines("memory:\n");
        for (int i = 0; i < LARGEST && dCategories[i].nBytes > 0; ++i)
        {
            Details.GetLine().Add("    %td %s", dCategories[i].nBytes,
                MemoryCategoryName(static_cast<mem::Categories_e>(dCategories[i].iCategory)));
            Details.EndLine();
        }
    }

    // Returns the start of the last nLines lines of a text. A last line without an end counts too.
    char const * LastLines(char const * szText, std::size_t nText, int nLines)
    {
        char const * pStart = szText + nText - (nText > 0 && szText[nText - 1] == '\n' ? 1 : 0);
        while (pStart > szText && (pStart[-1] != '\n' || --nLines > 0))
        {
            --pStart;
        }
        return pStart;
    }

    void WriteLog(Details_c & Details)
    {
        Details.AddLines("log:\n");
        for (char const * pLine = LastLines(g_szLogTail, std::strlen(g_szLogTail), LOG_LINES); *pLine != '\0';)
        {
            std::size_t const nLine = std::strcspn(pLine, "\n");
            Details.GetLine().Add("    | ");
            Details.GetLine().AddShown(pLine, nLine);
            Details.EndLine();
            pLine += nLine + (pLine[nLine] == '\n' ? 1 : 0);
        }
    }

    void WriteTimers(Details_c & Details)
    {
        char const * dNames[MAX_TIMERS_INHERITED];
        char szName[FACT_SIZE];
        Details.AddLines("timers:\n");
        int const nOpen = ProfilerOpenTimers(dNames, MAX_TIMERS_INHERITED);
        for (int i = 0; i < nOpen; ++i)
        {
            CopyText(dNames[i], szName);
            Details.GetLine().Add("    ");
            Details.GetLine().AddShown(szName);
            Details.EndLine();
        }
        int const nMore = ProfilerDepth() - 1 - nOpen;
        if (nMore > 0)
        {
            Details.GetLine().Add("    ... %d timers left out ...", nMore);
            Details.EndLine();
        }
    }
}

void exceptionreport::KeepLogTail()
{
    g_szLogTail[0] = '\0';
    std::FILE * const pLog = g_pMessageLogFile;
    std::size_t const nTail = pLog ? plat::RawReadTail(pLog, g_szLogTail, sizeof g_szLogTail - 1) : 0;
    g_szLogTail[nTail] = '\0';
    // A full tail may begin within a line. That line is dropped, unless it is the only one.
    char const * const pEnd = nTail == sizeof g_szLogTail - 1 ? std::strchr(g_szLogTail, '\n') : nullptr;
    if (pEnd && pEnd[1] != '\0')
    {
        std::memmove(g_szLogTail, pEnd + 1, std::strlen(pEnd + 1) + 1);
    }
}

void exceptionreport::WriteProcess(Details_c & Details)
{
    constexpr unsigned STEP_LIMIT = 1000;   // milliseconds
    for (auto const fnWrite : { WriteTime, WriteCommand, WriteVersions, WriteMemory, WriteLog, WriteTimers })
    {
        Details.GetLine().CutAt(0);
        if (!CallGuarded(STEP_LIMIT, [&] { fnWrite(Details); }))
        {
            Details.GetLine().CutAt(0);
            Details.GetLine().Add(
                "%sa fault, or the limit of %u s)", CRASH_CUT, STEP_LIMIT / plat::MILLISECONDS_OF_SECOND);
            Details.EndLine();
        }
    }
}
