// clogf.h: named logs, plain text files in the log folder, opened at their first use.
//
// For reports that are not meant for the main log. Each text is flushed at once, to the end of the file. A second run
// empties each named log at its first use, unless a process still has it open as its log. Any thread may use any log at
// any time but while ModuleLog_c shuts down. A log that can't be opened loses its lines without a message. Lines that a
// full disk does not take are counted, and the count goes to the main log when the disk takes lines again, or at the
// end.
#pragma once

#include "zqcore/cmodule.h"

#include <cstdarg>
#include <cstdio>

/// Formats a line, cut at 2048 characters, into the named log. Nothing happens if either text is null.
ZQ_API void Logf(char const * sFile, char const * fmt, ...) ZQ_PRINTF(2, 3);

/// Logf if the condition holds.
ZQ_API void Logcf(bool bCondition, char const * sFile, char const * fmt, ...) ZQ_PRINTF(3, 4);

/// The same with a ready argument list. With a null sFile the line goes to message.log, with no time and no frame.
ZQ_API void LogfArg(char const * sFile, char const * fmt, std::va_list args) ZQ_PRINTF(2, 0);

/// Writes a text unchanged, with no line end.
ZQ_API void Logf_raw(char const * sFile, char const * sText);

/// Works out the folder of the named logs and closes them at the end. Needs no other module.
class ZQ_API ModuleLog_c : public Module_c
{
public:
    constexpr ModuleLog_c()
        : Module_c("ModuleLog_c")
    {}

    /// The instance.
    static ModuleLog_c * Get();

    /// Sets the folder of the named logs, cut at 1023 characters, null for none; before the module initialises. The main
    /// log's folder takes precedence, and without either it is "GameLogs" below the current folder. The folder is
    /// created, with those on the way to it, and made absolute by the current folder when the module initialises.
    static void SetLogPath(wchar_t const * sPath);

    wchar_t const * GetLogPath() const;

    /// The open log of that name, opened if need be; names are exact and cut at 63 characters, but on disk two that
    /// differ in case only are one file. Null for a null name or if the file can't be opened. The stream has no buffer
    /// and belongs to the module. With the table of 64 logs full the stream is opened all the same, but stays out of the
    /// table and is not closed.
    std::FILE * GetLogFile(char const * sName);

protected:
    bool Initialize() override;
    void Shutdown() override;
};
