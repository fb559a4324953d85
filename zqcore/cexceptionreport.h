// cexceptionreport.h: the report of a crash.
//
// A fault that nothing handles leaves a text file, CrashReport_*.rpt, that says what faulted, where, with which
// registers, on which call stack, what the code around it was and what the locals of every frame held. Then the call
// stack is shown in a dialog and copied to the main log, the log is closed, and the fault goes on to whoever handled it
// before. docs/formats.md tells the file.
//
// The file is private to its user. Its name comes from the second; a report that another crash of the same user left
// there is continued, and anything else of that name stays as it is: the report's name then goes on "_" and eight
// hexadecimal digits. A process that has rights which its caller lacks (a set-user-id program) writes no file, looks up
// no names and logs one line that says so: what it can read is not its caller's to see.
//
// The one instance arms itself while the library is loaded. The report is written by the thread that faulted, on its
// alternate stack, with buffers that are static or on that stack and with pages of the system: it takes nothing from
// the heap and waits for no lock. A second thread that faults meanwhile waits for the end and passes its fault on
// without a report. Each of the two parts of the report, before and behind the dialog, ends after REPORT_LIMIT at the
// latest, and each step into the host's code (listeners, a dialog that nobody can answer) after HOST_LIMIT, wherever it
// hangs; a dialog that someone can answer waits. A call stack shows the innermost 256 frames and says so of the rest. A
// fault inside a part ends the report, a fault of the host's code that step alone. Without the symbol helper, names,
// lines and variables are missing.
#pragma once

#include "zqcore/cconfig.h"

namespace plat
{
    struct FaultPointers_t;
}

class ExceptionReport_c
{
public:
    static constexpr unsigned REPORT_LIMIT = 30000;   // milliseconds
    static constexpr unsigned HOST_LIMIT = 5000;

    /// Hooks the faults, ahead of the filter that was set, and unhooks them.
    ExceptionReport_c();
    ~ExceptionReport_c();
    ExceptionReport_c(ExceptionReport_c const &) = delete;
    ExceptionReport_c & operator=(ExceptionReport_c const &) = delete;

    /// Sets the folder of the reports and keeps a name, each cut at 1023 characters. Relative folders count from the
    /// current folder of the crash; without a call the reports go to the root. Reports are named by local time, as it
    /// was set at the last call or at load: a change to or from summer time since then is not seen.
    ZQ_API void SetLogFileName(wchar_t const * sFolder, wchar_t const * sName);

    /// Sets the name to the executable's path with RPT in place of the three characters behind its first dot, a dot
    /// in a folder's name included. Without a dot, or with fewer characters behind it, the path as it stands.
    ZQ_API void SetReportFileAutoName();

    /// Sets the program that reads names, lines and variables for reports and for the traces in dialogs; null or empty
    /// for none. Cut at 1023 bytes. Without a call it is zqsymbols in the folder of the library, else where the
    /// installation has it. Not while another thread crashes or shows a trace.
    ZQ_API static void SetSymbolHelper(char const * szPath);

    ZQ_API wchar_t const * GetFolder() const;
    ZQ_API wchar_t const * GetLogFileName() const;

    /// Writes the report of a fault, as the platform's filter. Returns what the filter that was set before returns, or
    /// 0 without one. In silent mode the first call stack goes to standard error too, and then the process ends with
    /// status 1 at once: handlers of exit do not run, for they could wait for what the crashed thread holds.
    ZQ_API static long UnhandledExceptionFilter(plat::FaultPointers_t const * pFault);

    /// Writes a text of up to 1023 bytes to the report, without a terminator; the rest is cut. The bytes written to
    /// the report, whether or not the disk took them. Does nothing while no report is being written.
    ZQ_API static int CrashLog(char const * fmt, ...) ZQ_PRINTF(1, 2);

    /// The name of the function at an address, cut to nSize - 1 bytes, and the address's distance from its start; all
    /// ones for an unknown address and while no report is being written.
    ZQ_API std::uint64_t GetSymbol(std::uintptr_t Address, char * szName, unsigned nSize) const;

    /// Writes into the report the source lines behind iLastLine up to the line of the address, "; text" each, or
    /// "; number, file" where the text can't be read; of the first call, with all ones, that line alone. Of more than
    /// 100 lines the last 100. Returns the address's line, iLastLine for an address without one.
    ZQ_API unsigned LogSourceString(std::uintptr_t Address, unsigned iLastLine) const;
};

/// The one instance.
extern ZQ_API ExceptionReport_c g_ExceptionReport;

/// Called at the application's start and end. They have no effect: the instance arms itself.
ZQ_API void ExceptionInit();
ZQ_API void ExceptionDone();
