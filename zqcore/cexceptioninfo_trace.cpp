#include "zqcore/cexceptioninfo_internal.h"

#include "zqcore/cdebug_internal.h"
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/cscope_internal.h"

#include "platform/fork.h"
#include "platform/memory.h"
#include "platform/modulelist.h"
#include "platform/process.h"
#include "platform/symbols.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace exceptioninfo;

constinit OwnedLock_c exceptioninfo::g_Lock;

namespace
{
    constexpr std::size_t LINE_SIZE = 2048;     // bytes of a line of TraceLine, the terminator included
    constexpr std::size_t ERROR_SIZE = 16384;   // bytes of the text of a system error
    constexpr int MAX_MODULES = 512;            // further ones are not listed
    constexpr int ROW_WORDS = 12;               // words in a row of DumpMemory

    std::atomic<ExceptionInfo_c::TraceReceiver_t> g_fnReceiver{ nullptr };
    std::atomic<bool> g_bTraceInUse{ false };

    // Drops the dialog and the trace of other threads, which a forked child lacks.
    void DropOthers()
    {
        g_Lock.Renew();
        g_bTraceInUse = false;
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, DropOthers });

    bool g_bSymbolsReady = false;
    ModuleInfo_s g_dModules[MAX_MODULES];
    int g_nModules = 0;
    char g_szError[ERROR_SIZE];

    void AddModule(plat::Module_t const & Module, void *)
    {
        if (g_nModules < MAX_MODULES)
        {
            ModuleInfo_s & Info = g_dModules[g_nModules++];
            std::snprintf(Info.szPath, sizeof Info.szPath, "%s", Module.szPath);
            Info.szName = plat::ModuleFileName(Info.szPath);
            Info.Base = Module.Base;
            Info.nSize = Module.nBytes;
        }
    }

    // The trace that is being written, and its parts. All are globals, because the caller may have little stack.
    char g_szTrace[EXCEPTION_TRACE_SIZE];
    plat::FaultContext_t g_Context;   // of the trace
    char g_szName[4096];              // of a function, then of its source file

    void AppendFrame(
        exceptionreport::Text_c & Trace, plat::Symbols_c & Symbols, int iFrame, plat::SymbolFrame_t const & Frame)
    {
        std::uintptr_t const Inside = Frame.PlaceInSource();
        std::uint64_t nDisplacement = 0;
        unsigned iLine = 0;
        bool const bName = Symbols.FunctionAt(Inside, g_szName, sizeof g_szName, &nDisplacement);
        Trace.Add("[%.2d]\t%s\t", iFrame, bName ? g_szName : "?");
        if (Symbols.LineAt(Inside, g_szName, sizeof g_szName, &iLine))
        {
            Trace.Add("%s (%u)\t\n", g_szName, iLine);
        }
        else
        {
            Trace.Add("eip\t0x%08" PRIXPTR "\n", Frame.Address);
        }
    }

    void Walk(exceptionreport::Text_c & Trace, int nFrames, int nSkip)
    {
        plat::Symbols_c Symbols;
        Symbols.Start(&g_Context);   // on failure the walk has addresses only
        plat::SymbolFrame_t Frame;
        std::int64_t const nEnd = std::int64_t{ nFrames } + nSkip;
        for (int i = 0; i < nEnd; ++i)   // the stack ends before i overflows
        {
            if (!Symbols.NextFrame(&Frame))
            {
                Trace.Add("Stack Trace Failed");
                return;
            }
            if (Frame.Address == 0)
            {
                Trace.Add("Stack Trace Failed:: zero eip");
                return;
            }
            if (i >= nSkip)
            {
                AppendFrame(Trace, Symbols, i, Frame);
            }
        }
    }

    void DumpRow(std::uintptr_t nStart)
    {
        char szRow[ROW_WORDS * sizeof "0x????????" + 1];
        char * pEnd = szRow;
        for (int i = 0; i < ROW_WORDS; ++i)
        {
            std::uint32_t dwWord = 0;
            std::uintptr_t const Address = nStart + static_cast<std::uintptr_t>(i) * sizeof dwWord;
            bool const bRead = plat::MemoryReadObject(Address, dwWord);
            std::size_t const nRoom = sizeof szRow - static_cast<std::size_t>(pEnd - szRow);
            pEnd += bRead ? std::snprintf(pEnd, nRoom, "0x%08" PRIX32 "\t", dwWord)
                          : std::snprintf(pEnd, nRoom, "????????\t");
        }
        TraceText(szRow);
    }
}

void exceptioninfo::SetUpSymbols(plat::FaultContext_t const & Context)
{
    if (!g_bSymbolsReady)
    {
        g_bSymbolsReady = plat::Symbols_c().Start(&Context);
        TraceText(g_bSymbolsReady ? "Symbols Init Ok" : "Symbols Init Failed");
    }
}

void exceptioninfo::LoadModules()
{
    TraceText("Enumirating loaded modules...");
    g_nModules = 0;
    plat::ModulesVisit(AddModule, nullptr);
    TraceText("loading debug info for modules");
    for (ModuleInfo_s const * pModule = g_dModules; pModule != g_dModules + g_nModules; ++pModule)
    {
        if (plat::ModuleFileIsReadable(pModule->szPath))
        {
            ExceptionInfo_c::TraceLine("Symbols loaded: \"%s\"\n", pModule->szPath);
        }
        else
        {
            ExceptionInfo_c::TraceLine("Error loading symbols for \"%s\"\n%s", pModule->szPath, LastError());
        }
    }
    TraceText("Enumirating loaded modules...done");
}

ModuleInfo_s const * exceptioninfo::ModuleOf(std::uintptr_t Address)
{
    auto const fnHolds = [Address](ModuleInfo_s const & Module)
    { return Address >= Module.Base && Address - Module.Base < Module.nSize; };
    ModuleInfo_s * const pEnd = g_dModules + g_nModules;
    ModuleInfo_s const * const pFound = std::find_if(g_dModules, pEnd, fnHolds);
    return pFound != pEnd ? pFound : nullptr;
}

void exceptioninfo::EndTrace()
{
    g_bTraceInUse = false;
}

char const * exceptioninfo::LastError()
{
    plat::LastErrorText(g_szError, sizeof g_szError);
    return g_szError;
}

void exceptioninfo::TraceText(char const * szText)
{
    if (ExceptionInfo_c::TraceReceiver_t const fnReceiver = g_fnReceiver.load())
    {
        fnReceiver(szText);
    }
}

void ExceptionInfo_c::TraceLine(char const * fmt, ...)
{
    if (g_fnReceiver.load() == nullptr)
    {
        return;
    }
    char szLine[LINE_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szLine, sizeof szLine, fmt, args);
    va_end(args);
    TraceText(szLine);
}

ExceptionInfo_c::TraceReceiver_t ExceptionInfo_c::SetTraceReceiver(TraceReceiver_t fnReceiver)
{
    return g_fnReceiver.exchange(fnReceiver);
}

void ExceptionInfo_c::StackTrace(
    char * szBuffer, std::size_t nSize, int nFrames, int nSkip, plat::FaultPointers_t const * pPointers)
{
    bool const bRoom = szBuffer != nullptr && nSize > 0;
    ZQ_ASSERT_BREAK(bRoom, DEVELOPER_BREAK);
    if (!bRoom)
    {
        return;
    }
    szBuffer[0] = 0;
    if (g_bTraceInUse)
    {
        return;
    }
    bool const bContext = pPointers != nullptr && pPointers->pContext != nullptr;
    ZQ_ASSERT_BREAK(bContext, DEVELOPER_BREAK);
    if (!bContext)
    {
        return;
    }
    Scope_c const Scope;
    exceptionreport::Text_c Trace(g_szTrace, sizeof g_szTrace);
    ValueScope_T const InUse(g_bTraceInUse, true);
    errno = 0;
    g_Context = *pPointers->pContext;
    Walk(Trace, nFrames, nSkip);
    std::snprintf(szBuffer, nSize, "%s", Trace.Get());
}

void ExceptionInfo_c::DumpMemory(char const * szRegister, std::uintptr_t nValue, std::uintptr_t nStart, int nWords)
{
    TraceText("");
    TraceLine("Starting dump of memory at 0x%08" PRIXPTR ", size %d dword's", nStart, nWords);
    if (szRegister != nullptr)
    {
        TraceLine("Address contained in %s value 0x%08" PRIXPTR, szRegister, nValue);
    }
    for (int i = 0; i < nWords / ROW_WORDS; ++i)
    {
        DumpRow(nStart + static_cast<std::uintptr_t>(i) * ROW_WORDS * sizeof(std::uint32_t));
    }
    TraceText("DoneDump\r\n");
}
