// The heap's lock and its reports.
#include "platform/debugheap.h"
#include "platform/fork.h"
#include "platform/memory.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace plat
{
    constinit Lock_c g_HeapLock(4000);

    namespace
    {
        ForkLock_c const g_HeapForkLock(g_HeapLock);

        constinit std::atomic<HeapWordName_t> g_fnWordName = nullptr;
        constinit std::atomic<HeapReport_t> g_fnReport = nullptr;
    }

    void HeapFileName(HeapBlock_t const & Block, char * szBuffer, std::size_t nSize)
    {
        if (!Block.szFile)
        {
            std::snprintf(szBuffer, nSize, "unknown");
            return;
        }
        std::size_t const nRead = MemoryRead(reinterpret_cast<std::size_t>(Block.szFile), szBuffer, nSize - 1);
        szBuffer[nRead] = '\0';
        char const * pEnd = szBuffer;
        while (static_cast<unsigned char>(*pEnd) >= ' ')
        {
            ++pEnd;
        }
        if (pEnd == szBuffer || *pEnd != '\0')   // nothing can be read there, or something else is there
        {
            std::snprintf(szBuffer, nSize, "unloaded module");
        }
    }

    void HeapSetWordName(HeapWordName_t fnName)
    {
        g_fnWordName = fnName;
    }

    char const * HeapWordName(std::uint32_t dwWord)
    {
        HeapWordName_t const fnName = g_fnWordName;
        return fnName ? fnName(dwWord) : "unknown";
    }

    void HeapReport(char const * szFormat, ...)
    {
        char szText[1024];
        std::va_list args;
        va_start(args, szFormat);
        std::vsnprintf(szText, sizeof szText, szFormat, args);
        va_end(args);
        if (HeapReport_t const fnReport = g_fnReport)
        {
            fnReport(szText);
        }
        else
        {
            std::fputs(szText, stderr);
        }
    }

    void HeapReportFreed(void const * pUser)
    {
        HeapReport("The block at 0x%08zX was freed already. It is left alone.\n", HeapAddressOf(pUser));
    }

    HeapReport_t HeapReportSet(HeapReport_t fnReceiver)
    {
        return g_fnReport.exchange(fnReceiver);
    }
}
