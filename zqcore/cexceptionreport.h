// cexceptionreport.h: the report of a crash.
//
// A fault that nothing handles leaves a text file, CrashReport_*.rpt. The file says what faulted, where, with which
// registers, on which call stack, what the code around it was and what the locals of every frame held. The main log and
// standard error get the file's path, or the reason why there is no file. When the file is whole, a dialog shows the
// call stack. Then the main log gets a copy of the stack and is closed. Then the previous fault filter gets the fault.
// Silent mode differs: see UnhandledExceptionFilter.
//
// A second file beside it, the file of details CrashReport_*_details.txt, has what was accessed by which thread, the
// frames with inlined calls, sources and values, the other threads, the modules and the state of the process.
// docs/formats.md describes both files.
//
// The file is private to its user. Its name comes from the local time, to the second:
// - a finished report of the same user with that name is continued.
// - anything else with that name stays as it is. The report's name then gets "_" and eight hexadecimal digits.
//
// A process with rights that its caller lacks, as a set-user-id program, could show what its caller must not see. It
// writes no file, looks up no names and logs one line that says so.
//
// Ownership: the only instance hooks the faults from load to unload.
// Threads: the thread that faulted writes the report, on a stack of the library's. A second thread that faults
// meanwhile waits until the report ends, and then passes its fault on without a report of its own. While a report is
// written, only the thread that writes it may call CrashLog, GetSymbol and LogSourceString. The folder and the name of
// the log may be set only while no other thread reads them or crashes.
// Cost: before a crash, a few descriptors, so that a report has them even if the process has used up all others, and a
// stack for each new thread. That stack costs about a microsecond, and memory only if the thread faults. A report
// allocates nothing from the heap, and waits for no lock but that of a log stream which the host set (clog.h). Its
// buffers are static, on that stack or pages of the system. A call stack shows the innermost 256 frames, and then a
// line says that farther ones are left out. The dialog and the log get the innermost of them, in whole lines of at
// most 4094 bytes together. The log cuts a line at 1023 bytes.
// Failure: a report lacks what can't be read. It has two parts: up to the end of the first call stack, and the rest.
// - a part ends when it faults or after REPORT_LIMIT, wherever it hangs. Without the first part there is no second, no
//   dialog and no copy in the log.
// - a step into the host's code (receivers of events, listeners of the log, a dialog that nobody can answer) ends after
//   HOST_LIMIT, or when it faults or throws. A dialog that somebody can answer has no limit.
// - without the symbol helper, names, lines, variables and other threads are missing. All its answers to the report
//   take at most 20 seconds, and those to the file of details as long again.
//
//     LogSetFile(L"logs/", L"message.log");   // sets the folder of the reports too
//     wchar_t const * const wszFolder = g_ExceptionReport.GetFolder();
//     Log("A crash leaves its report in %ls", wszFolder);
#pragma once

#include "zqcore/cconfig.h"

namespace plat
{
    struct FaultPointers_t;
}

/// The writer of reports.
class ExceptionReport_c
{
public:
    static constexpr unsigned REPORT_LIMIT = 30000;   // milliseconds for each part of a report
    static constexpr unsigned HOST_LIMIT = 5000;      // milliseconds for each step into the host's code

    /// Sets UnhandledExceptionFilter as the fault filter. Stores the difference between local time and UTC, for the
    /// names of reports.
    ExceptionReport_c();

    /// Restores the previous filter.
    ~ExceptionReport_c();
    ExceptionReport_c(ExceptionReport_c const &) = delete;
    ExceptionReport_c & operator=(ExceptionReport_c const &) = delete;

    /// Sets the folder of the reports and the main log's name, each cut at 1023 characters. LogSetFile (clog.h) calls
    /// it.
    /// - A relative folder is below the current folder of this call. If its absolute path is too long or unknown, it is
    ///   below the current folder of the crash.
    /// - The folder is empty at start: reports go to "/".
    ///
    /// Stores the difference between local time and UTC. The names of reports carry local time, so a change to or from
    /// summer time after this call has no effect on them. Opens the descriptors for a crash again if the host has
    /// closed them.
    ZQ_API void SetLogFileName(wchar_t const * sFolder, wchar_t const * sName);

    /// Sets the log's name to the executable's path, in which RPT replaces the three characters after the first dot.
    /// That dot may be in a folder's name. A path without a dot, or with fewer characters after it, stays as it is. On
    /// failure the name is empty.
    ZQ_API void SetReportFileAutoName();

    /// Sets the program that reads names, lines and variables for reports and for the traces in dialogs. Null or an
    /// empty text sets none. At start the program is zqsymbols in the folder of the library, or else in that of the
    /// installation, or else none. The path is cut at 4095 bytes. Requires that no other thread crashes or shows a
    /// trace.
    ZQ_API static void SetSymbolHelper(char const * szPath);

    /// Adds a printer, the form in which the file of details shows the values of a type, and returns true. Copies both
    /// texts. If several printers match a type, the last one added applies.
    /// - szType is the type's name with its namespaces, at most 127 bytes. `*` in it is any text.
    /// - szTemplate is a text such as "({x}, {y}, {z})", at most 255 bytes. `{name}` is the value of a member,
    ///   `{name.name}` that of a member's member, and all else is copied. A member that the type does not have is shown
    ///   as "(no member x)".
    ///
    /// Requires that no other thread adds or crashes. On failure, because a text is longer or there are 32 printers,
    /// logs a line and returns false.
    ZQ_API static bool AddTypePrinter(char const * szType, char const * szTemplate);

    /// Return the folder and the name as they were set.
    ZQ_API wchar_t const * GetFolder() const;
    ZQ_API wchar_t const * GetLogFileName() const;

    /// Writes the report of a fault. It is the fault filter. Returns what the previous filter returns, or 0 without
    /// one.
    ///
    /// In silent mode the report ends after the first call stack, which goes to standard error instead of a dialog. The
    /// process then ends at once with status 1, unless the first part of the report failed. Exit handlers do not run,
    /// because they could wait for what the crashed thread holds. A receiver of g_ExecutionCallbacker may turn silent
    /// mode on. Turning it off has no effect after the report has begun.
    ZQ_API static long UnhandledExceptionFilter(plat::FaultPointers_t const * pFault);

    /// Writes a formatted text, cut at 1023 bytes, to the report, without a terminator. Returns the text's length in
    /// bytes, whether or not the disk has stored it. Does nothing and returns 0 while no report is being written. A
    /// receiver of g_ExecutionCallbacker may call it. Its text then follows the rest of the report.
    ZQ_API static int CrashLog(char const * fmt, ...) ZQ_PRINTF(1, 2);

    /// Writes the name of the function at an address to szName, cut at nSize - 1 bytes. Returns the distance of the
    /// address from the function's start in bytes. For an unknown address, and while no report is being written,
    /// returns all ones and writes an empty text, unless nSize is 0. Receivers of events run after the symbol helper
    /// has ended, so for them every address is unknown.
    ZQ_API std::uint64_t GetSymbol(std::uintptr_t Address, char * szName, unsigned nSize) const;

    /// Writes source lines to the report: each one after iLastLine up to the line of the address. Returns the line of
    /// the address. For an address without a line, and while no report is being written, writes nothing and returns
    /// iLastLine. In receivers of events no address has a line.
    /// - A line is "; text", or "; number, file" if the text can't be read.
    /// - The address's line is the only one if iLastLine is all ones, as in a first call, or if the address is in
    ///   another file than that of the previous call.
    ZQ_API unsigned LogSourceString(std::uintptr_t Address, unsigned iLastLine) const;
};

/// The only instance.
extern ZQ_API ExceptionReport_c g_ExceptionReport;

/// Have no effect: the instance hooks the faults by itself. AppMiscStartup and AppMiscShutdown call them.
ZQ_API void ExceptionInit();
ZQ_API void ExceptionDone();
