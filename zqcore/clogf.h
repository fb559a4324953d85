// clogf.h: named logs, for reports that do not belong in the main log.
//
// Each named log is a text file in the log folder. Its first use opens it and empties the log of a previous run, unless
// another process has that open as its log. Each text is written at once, at the end of the file. A log that is used
// before ModuleLog_c initialises is in the folder of SetLogPath, or in the current one without that call.
//
// Ownership: ModuleLog_c opens the logs, and closes those of its table when it shuts down (GetLogFile).
// Threads: any thread may write to any log at any time, but not while ModuleLog_c shuts down.
// Cost: a text is one system call. The first use of a name allocates, and so does each use beyond the table.
// Failure: lines to a log that can't be opened are lost without a message. Lines that a full disk does not store are
// counted. The count goes to the main log when the disk stores lines again, or when the log is closed.
//
//     ModuleLog_c::SetLogPath(L"logs");   // before the modules start
//     Module_c::Register(ModuleLog_c::Get());
//     Module_c::InitializeAllModules();
//     Logf("loot.log", "%s\t%i", "gold", 12);
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/cprintf.h"

#include <cstdarg>
#include <cstdio>

/// Module that makes the folder of the named logs at its start, and closes the logs of its table at shutdown. It
/// depends on no other module.
class ZQ_API ModuleLog_c : public Module_c
{
public:
    constexpr ModuleLog_c()
        : Module_c("ModuleLog_c")
    {}

    /// Returns the only instance.
    static ModuleLog_c * Get();

    /// Sets the folder of the named logs, cut at 1023 characters. The folder of LogSetFile takes precedence. Without
    /// either, or with null, the folder is "GameLogs". A relative folder is below the current one. The module makes the
    /// missing levels of the folder when it initialises. Requires that it is not initialised.
    static void SetLogPath(wchar_t const * sPath);

    /// Returns the folder of the named logs, absolute once the module is initialised, unless that path would have more
    /// than 1023 characters or the current folder is unknown. Before that returns the text of SetLogPath, or an empty
    /// one.
    wchar_t const * GetLogPath() const;

    /// Opens the log of a name if needed, and returns it. Compares names exactly, cut at 63 characters. On disk two
    /// names that differ in case only are one file. Makes the missing levels of the folder. A name may hold folders,
    /// also "..", which leads out of the log folder. Requires that it does not come from outside. Returns null if sName
    /// is null or the file can't be opened.
    ///
    /// The stream has no buffer and belongs to the module. The module has a table for 42 to 64 logs, depending
    /// on their names. Each use of a further name opens another stream, which is never closed.
    std::FILE * GetLogFile(char const * sName);

protected:
    bool Initialize() override;
    void Shutdown() override;
};

/// Writes a formatted line, cut at 2048 characters, to the named log. Does nothing if either text is null.
ZQ_API void Logf(char const * sFile, char const * fmt, ...) ZQ_PRINTF(2, 3);

/// Calls Logf if bCondition is true.
ZQ_API void Logcf(bool bCondition, char const * sFile, char const * fmt, ...) ZQ_PRINTF(3, 4);

/// Writes a line as Logf does, from a list of arguments. If sFile is null, the line goes to the main log's file,
/// without time and frame. Requires that fmt is not null.
ZQ_API void LogfArg(char const * sFile, char const * fmt, std::va_list args) ZQ_PRINTF(2, 0);

/// Writes a text to the named log as it is, without a line end. Does nothing if either text is null.
ZQ_API void Logf_raw(char const * sFile, char const * sText);

/// Do what the functions of the same name do, with arguments of text classes (cprintf.h).
ZQ_PRINTF_TEXTS_AFTER(ZQ_INLINE void, , Logf, (char const * sFile), (sFile))
ZQ_PRINTF_TEXTS_AFTER(ZQ_INLINE void, , Logcf, (bool bCondition, char const * sFile), (bCondition, sFile))
