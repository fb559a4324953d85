#include "zqcore/cexceptionreport.h"

#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cexceptioninfo.h"
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/cfaultnames_internal.h"
#include "zqcore/clog.h"
#include "zqcore/clog_format_internal.h"
#include "zqcore/clog_internal.h"
#include "zqcore/cwidepath_internal.h"

#include "platform/clock.h"
#include "platform/dialog.h"
#include "platform/faults.h"
#include "platform/modules.h"
#include "platform/process.h"
#include "platform/rawfiles.h"
#include "platform/symbols.h"
#include "platform/text.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace
{
    using namespace exceptionreport;

    constexpr std::size_t CRASH_LINE_SIZE = 1024;   // bytes of a text of CrashLog, with the terminator
    constexpr char NO_WRITING[] = " can't be written";
    constexpr std::size_t EXCEPTION_TEXT_SIZE = 512;   // bytes of the text of a fault's code, with the terminator
    constexpr char CAPTION[] = "TARNWELL SADLY REPORTS: Program has crashed!";   // of the dialog

    wchar_t g_wszFolder[WIDE_PATH_SIZE];
    wchar_t g_wszLogFile[WIDE_PATH_SIZE];
    char g_szFolder[WIDE_PATH_UTF8_SIZE];         // g_wszFolder, absolute if that fits
    plat::FaultFilter_t g_fnPrevious = nullptr;   // fault filter before this one

    // State of the report that is being written.
    plat::RawFile_t g_hReport = nullptr;
    char g_szReport[PATH_SIZE];   // its path
    bool g_bLost = false;         // whether some of it could not be written
    bool g_bWriting = false;      // whether it is being written
    constinit plat::Symbols_c g_Symbols;
    char g_szDialog[LINE_SIZE];
    char g_szSourceFile[NAME_SIZE];   // of the last line that LogSourceString found

    // Makes the path from folder and local time. szMore distinguishes reports of the same second. A path that does not
    // fit becomes empty.
    void MakeReportPath(char const * szMore)
    {
        plat::LocalTime_t const Time = plat::LocalTimeByKept();
        int const nPath =
            std::snprintf(g_szReport, PATH_SIZE, "%s/%s%d.%d.%d__%d_%d_%d%s%s", g_szFolder, CRASH_REPORT_START,
                Time.iDay, Time.iMonth, Time.iYear, Time.iHour, Time.iMinute, Time.iSecond, szMore, CRASH_REPORT_END);
        if (static_cast<std::size_t>(nPath) >= PATH_SIZE)
        {
            g_szReport[0] = '\0';
        }
    }

    // Logs a line on what became of the report, and prints the line for a person at the terminal. The dialog's text
    // does not have it.
    void Announce(char const * szBefore, char const * szPath = "", char const * szAfter = "")
    {
        CallGuarded(ExceptionReport_c::HOST_LIMIT, [=] { LogEscaped("%s%s%s", szBefore, szPath, szAfter); });
        CallGuarded(ExceptionReport_c::HOST_LIMIT,
            [=]
            {
                char szLine[LINE_SIZE];
                Text_c Line(szLine, sizeof szLine);
                Line.Add("%s", szBefore);
                Line.AddShown(szPath);
                Line.Add("%s", szAfter);
                plat::DialogPrintLine(Line.Get());
            });
    }

    // Keeps the end of the main log, before the report adds lines to it. Then opens the report's file under a free
    // name, and announces its path or the reason why there is no file. In a process with rights that its caller lacks,
    // only announces that there is none.
    void OpenAndAnnounce()
    {
        if (plat::ProcessIsSecure())
        {
            Announce("No crash log saved: this process has rights that its caller lacks");
            return;
        }
        CallGuarded(ExceptionReport_c::HOST_LIMIT, KeepLogTail);
        g_hReport = MakeUnderFreeName(g_szReport, MakeReportPath);
        if (g_hReport)
        {
            Announce("Crash log saved at ", g_szReport);
        }
        else if (g_szReport[0])
        {
            // Readers of logs look for this text, so it is logged although there is no file.
            CallGuarded(ExceptionReport_c::HOST_LIMIT, [] { LogEscaped("Crash log saved at %s", g_szReport); });
            Announce("No crash log saved: ", g_szReport, NO_WRITING);
        }
        else
        {
            Announce("No crash log saved: the name of its folder is too long");
        }
    }

    // Marks the report as incomplete if a part of its file was not written.
    void NoteLoss(bool bWritten)
    {
        g_bLost = g_bLost || (g_hReport && !bWritten);
    }

    void WriteFault(plat::FaultRecord_t const & Record)
    {
        plat::ModulePlace_t Place;
        plat::ModuleFind(Record.Address, &Place);
        ExceptionReport_c::CrashLog("\nPROGRAM IS CRASHED!!!\r\n");
        char szLine[LINE_SIZE];
        Text_c Line(szLine, sizeof szLine);
        Line.Add("Exception code: %08X ", Record.nCode);
        Line.AddShown(FaultName(Record.nCode));
        Line.Add(
            "\r\nFault address:  %08" PRIXPTR " %02X:%08" PRIXPTR " ", Record.Address, Place.iSection, Place.nOffset);
        Line.AddShown(Place.szPath);
        Line.AddEnd("\r\n");
        WriteText(Line);
    }

    void WriteRegisters(plat::FaultContext_t const & Context)
    {
        ExceptionReport_c::CrashLog("\r\nRegisters:\r\n");
        ExceptionReport_c::CrashLog("EAX:%08" PRIXPTR "\r\nEBX:%08" PRIXPTR "\r\nECX:%08" PRIXPTR "\r\nEDX:%08" PRIXPTR
                                    "\r\nESI:%08" PRIXPTR "\r\nEDI:%08" PRIXPTR "\r\n\n",
            Context.nAx, Context.nBx, Context.nCx, Context.nDx, Context.nSi, Context.nDi);
        ExceptionReport_c::CrashLog("CS:EIP:%04X:%08" PRIXPTR "\r\n\n", Context.nCs, Context.nIp);
        ExceptionReport_c::CrashLog(
            "SS:ESP:%04X:%08" PRIXPTR "  EBP:%08" PRIXPTR "\r\n\n", Context.nSs, Context.nSp, Context.nBp);
        ExceptionReport_c::CrashLog(
            "DS:%04X  ES:%04X  FS:%04X  GS:%04X\r\n\n", Context.nDs, Context.nEs, Context.nFs, Context.nGs);
        ExceptionReport_c::CrashLog("Flags:%08" PRIXPTR "\r\n\n", Context.nFlags);
    }

    // Writes the registers that only a 64-bit process has.
    void WriteExtendedRegisters(plat::FaultContext_t const & Context)
    {
        if constexpr (sizeof(void *) == 8)
        {
            char szLines[CRASH_LINE_SIZE];
            Text_c Lines(szLines, sizeof szLines);
            for (int i = 0; i < std::ssize(Context.dExtended); ++i)
            {
                Lines.Add("R%d:%08" PRIXPTR "\r\n", i + 8, Context.dExtended[i]);
            }
            Lines.AddEnd("\n");
            WriteText(Lines);
        }
    }

    // Writes the MMX registers: the low 64 bits of the x87 registers. The context has those in the order of the x87
    // stack.
    void WriteMmx(plat::FaultContext_t const & Context)
    {
        int const iTop = (Context.nX87Status >> 11) & 7;
        for (int i = 0; i < std::ssize(Context.dX87); ++i)
        {
            std::uint32_t dValue[2];
            std::memcpy(dValue, Context.dX87[(i - iTop) & 7], sizeof dValue);
            ExceptionReport_c::CrashLog("MM%c = %08" PRIx32 "%08" PRIx32 "\r\n", '0' + i, dValue[1], dValue[0]);
        }
    }

    // Writes the report up to the first call stack, whose text is also the dialog's.
    void WriteHead(plat::FaultPointers_t const & Fault)
    {
        WriteFault(*Fault.pRecord);
        WriteRegisters(*Fault.pContext);
        WriteExtendedRegisters(*Fault.pContext);
        WriteMmx(*Fault.pContext);
        g_Symbols.Start(Fault.pContext);
        Text_c DialogText(g_szDialog, sizeof g_szDialog);
        WriteCallStack(g_Symbols, false, &DialogText);
    }

    // Logs each line of the dialog's text with its line end. A line that is longer than the buffer is cut.
    void LogDialogText()
    {
        char szLine[CRASH_LINE_SIZE];
        for (char const * pLine = g_szDialog; *pLine != '\0';)
        {
            char const * const pEnd = std::strchr(pLine, '\n');
            std::size_t const nLine = pEnd ? static_cast<std::size_t>(pEnd - pLine) + 1 : std::strlen(pLine);
            std::size_t const nCopied = std::min(nLine, sizeof szLine - 1);
            std::memcpy(szLine, pLine, nCopied);
            szLine[nCopied] = '\0';
            LogText(szLine);
            pLine += nLine;
        }
    }

    // Fires g_ExecutionCallbacker. A fault or the limit ends only this firing.
    void FireExecution(bool bGoesOn)
    {
        if (!CallGuarded(ExceptionReport_c::HOST_LIMIT, [bGoesOn] { g_ExecutionCallbacker.Fire(bGoesOn, false); }))
        {
            g_ExecutionCallbacker.EndFiring();
        }
    }

    // Reports the stack through the host's code. If a step faults or exceeds its limit, only that step is lost. Ends a
    // silent process.
    void ReportStack(bool bSilent)
    {
        constexpr unsigned LIMIT = ExceptionReport_c::HOST_LIMIT;
        FireExecution(false);
        bSilent = bSilent || g_silentMode;   // a receiver may set it
        if (!bSilent)
        {
            CallGuarded(plat::DialogIsAttended() ? 0 : LIMIT,
                [] {
                    MessageBoxPlain(nullptr, g_szDialog, CAPTION, MESSAGE_OK | MESSAGE_ICON_ERROR | MESSAGE_FOREGROUND);
                });
        }
        CallGuarded(LIMIT, LogDialogText);
        FireExecution(true);
        if (bSilent)
        {
            CallGuarded(LIMIT, [] { plat::DialogPrint(CAPTION, g_szDialog); });
        }
        if (bSilent || g_silentMode)
        {
            plat::FaultExit(1);
        }
    }

    // Writes the code at the fault, and the call stack with its variables.
    void WriteRest(plat::FaultPointers_t const & Fault)
    {
        ExceptionReport_c::CrashLog("\nCrash code disassembly:\n\n");
        WriteCode(Fault.pRecord->Address);
        ExceptionReport_c::CrashLog("\n\n");
        ExceptionReport_c::CrashLog("========================\r\n");
        ExceptionReport_c::CrashLog("Local Variables And Parameters\r\n");
        WriteCallStack(g_Symbols, true, nullptr);
        ExceptionReport_c::CrashLog("\r\n");
    }

    // Writes both files, announces if one of them could not be written whole, and then reports the stack. The stack
    // comes last, because a receiver of the host or the person at the dialog may end the process. In silent mode the
    // report ends with the first call stack.
    void WriteReport(plat::FaultPointers_t const & Fault)
    {
        constexpr unsigned LIMIT = ExceptionReport_c::REPORT_LIMIT;
        bool const bSilent = g_silentMode;
        g_szDialog[0] = '\0';
        bool const bHead = CallGuarded(LIMIT, [&Fault] { WriteHead(Fault); });
        if (bHead && !bSilent)
        {
            CallGuarded(LIMIT, [&Fault] { WriteRest(Fault); });
        }
        bool const bDetails = WriteDetails(g_Symbols, Fault, g_szReport);
        CallGuarded(LIMIT, [] { g_Symbols.Stop(); });
        if (g_bLost)
        {
            Announce("Crash log incomplete: ", g_szReport, NO_WRITING);
        }
        else if (g_hReport && !bDetails)
        {
            Announce("Details of the crash incomplete: the file beside ", g_szReport, NO_WRITING);
        }
        if (bHead)
        {
            ReportStack(bSilent);
        }
    }
}

ZQ_FIRST_GLOBAL ExceptionReport_c g_ExceptionReport;

ExceptionReport_c::ExceptionReport_c()
{
    plat::LocalTimeKeep();
    g_fnPrevious = plat::FaultFilterSet(UnhandledExceptionFilter);
}

ExceptionReport_c::~ExceptionReport_c()
{
    plat::FaultFilterSet(g_fnPrevious);
}

void ExceptionReport_c::SetLogFileName(wchar_t const * sFolder, wchar_t const * sName)
{
    CopyWidePath(g_wszFolder, sFolder);
    CopyWidePath(g_wszLogFile, sName);
    wchar_t wszAbsolute[WIDE_PATH_SIZE];
    CopyWidePath(wszAbsolute, sFolder);
    plat::ProcessMakeAbsolute(wszAbsolute, WIDE_PATH_SIZE);
    constexpr std::size_t NAME_ROOM = 96;   // bytes for the name of a report
    if (plat::Utf8FromWide(g_szFolder, sizeof g_szFolder, wszAbsolute) + NAME_ROOM > sizeof g_szFolder)
    {
        plat::Utf8FromWide(g_szFolder, sizeof g_szFolder, g_wszFolder);
    }
    plat::LocalTimeKeep();
    plat::FaultReserveDescriptors();
}

void ExceptionReport_c::SetSymbolHelper(char const * szPath)
{
    plat::SymbolsSetHelper(szPath ? szPath : "");
}

bool ExceptionReport_c::AddTypePrinter(char const * szType, char const * szTemplate)
{
    bool const bAdded = plat::SymbolsAddPrinter(szType, szTemplate);
    if (!bAdded)
    {
        LogEscaped("The printer of type %s is too long, or there is no more room", szType);
    }
    return bAdded;
}

void ExceptionReport_c::SetReportFileAutoName()
{
    constexpr wchar_t ENDING[] = L"RPT";
    constexpr std::size_t LENGTH = std::size(ENDING) - 1;
    if (!plat::ProcessExecutablePath(g_wszLogFile, WIDE_PATH_SIZE))
    {
        g_wszLogFile[0] = L'\0';
    }
    wchar_t * const pDot = std::wcschr(g_wszLogFile, L'.');
    if (pDot && std::wcslen(pDot + 1) >= LENGTH)
    {
        std::wmemcpy(pDot + 1, ENDING, LENGTH);
    }
}

wchar_t const * ExceptionReport_c::GetFolder() const
{
    return g_wszFolder;
}

wchar_t const * ExceptionReport_c::GetLogFileName() const
{
    return g_wszLogFile;
}

long ExceptionReport_c::UnhandledExceptionFilter(plat::FaultPointers_t const * pFault)
{
    g_szReport[0] = '\0';
    g_bLost = false;
    OpenAndAnnounce();
    g_bWriting = true;
    WriteReport(*pFault);
    g_bWriting = false;
    plat::RawClose(g_hReport);
    g_hReport = nullptr;
    LogCloseInCrash();
    return g_fnPrevious ? g_fnPrevious(pFault) : 0;
}

int ExceptionReport_c::CrashLog(char const * fmt, ...)
{
    char szLine[CRASH_LINE_SIZE];
    std::va_list args;
    va_start(args, fmt);
    std::size_t const nLine = FormatLine(szLine, sizeof szLine, fmt, args);
    va_end(args);
    if (!g_bWriting || nLine == 0)
    {
        return 0;
    }
    NoteLoss(plat::RawWrite(g_hReport, szLine, nLine));
    return static_cast<int>(nLine);
}

std::uint64_t ExceptionReport_c::GetSymbol(std::uintptr_t Address, char * szName, unsigned nSize) const
{
    std::uint64_t nDisplacement;
    char cNoName;   // instead of a buffer without room
    if (nSize == 0)
    {
        szName = &cNoName;
        nSize = 1;
    }
    szName[0] = '\0';
    return g_bWriting && g_Symbols.FunctionAt(Address, szName, nSize, &nDisplacement) ? nDisplacement
                                                                                      : ~std::uint64_t{ 0 };
}

unsigned ExceptionReport_c::LogSourceString(std::uintptr_t Address, unsigned iLastLine) const
{
    char szFile[NAME_SIZE];
    unsigned iLine;
    if (!g_bWriting || !g_Symbols.LineAt(Address, szFile, sizeof szFile, &iLine))
    {
        return iLastLine;
    }
    if (std::strcmp(szFile, g_szSourceFile) != 0)
    {
        iLastLine = g_szSourceFile[0] != '\0' ? ~0u : iLastLine;   // lines are counted within one file
        std::memcpy(g_szSourceFile, szFile, std::strlen(szFile) + 1);
    }
    if (iLine == iLastLine)
    {
        return iLine;
    }
    unsigned const iFirst = iLastLine == ~0u ? iLine : iLastLine + 1;
    if (iFirst > iLine)
    {
        return iLine;
    }
    SourceFile_c const Source(szFile);
    char szLines[4 * LINE_SIZE];
    Text_c Lines(szLines, sizeof szLines);
    for (unsigned i = iFirst; i <= iLine; ++i)
    {
        char szText[LINE_SIZE];
        bool const bText = Source.GetLine(i, szText, sizeof szText);
        if (bText)
        {
            Lines.Add("; ");
        }
        else
        {
            Lines.Add("; %u, ", i);
        }
        Lines.AddShown(bText ? szText : szFile);
        Lines.AddEnd("\n");
        if (i == iLine || Lines.GetLength() > sizeof szLines / 2)
        {
            WriteText(Lines);
            Lines.CutAt(0);
        }
    }
    return iLine;
}

char const * exceptionreport::FaultName(std::uint32_t nCode)
{
    constexpr std::size_t PREFIX = sizeof "EXCEPTION_" - 1;
    static constinit char s_szText[EXCEPTION_TEXT_SIZE] = {};
    if (char const * const szName = FaultNameOf(nCode, PREFIX))
    {
        return szName;
    }
    plat::FaultText(nCode, s_szText, sizeof s_szText);
    return s_szText;
}

void exceptionreport::WriteText(Text_c const & Text)
{
    for (char const * szText = Text.Get(); *szText != '\0';)
    {
        char szShown[2 * LINE_SIZE];   // almost always holds the whole text
        std::size_t const nShown = plat::TextEscape(szShown, sizeof szShown, szText, plat::Controls_e::Layout);
        NoteLoss(plat::RawWrite(g_hReport, szShown, nShown));
    }
}

void ExceptionInit() {}

void ExceptionDone() {}
