// clog.h: the main log.
//
// Each line goes to a list of listeners. LogInit adds one that writes message.log, with the time in seconds and the
// frame number before the line: "%8.3f\t%i\t%s\n". Each line is written at once and appended to the file, even if other
// processes write to it. A line without a listener is lost. Formatted lines are cut at LOG_LINE_LENGTH characters.
//
// Ownership: the library opens and closes the file. Listeners are kept as pointers.
// Threads: any thread may log at any time except during LogDone, also in a forked child. The list of listeners has no
// lock. Requires that listeners are added at start-up, and that LogDone is called when no other thread logs.
// Cost: a line is one system call for the file. Nothing allocates for a line.
// Failure: lines that a full disk does not store are lost. The next line that is written comes after "Log lines lost
// here: N". A link, pipe or device with the log's name is refused, and the log stays closed.
//
//     LogSetFile(L"logs/", L"message.log");
//     LogInit();
//     Log("%i players", 4);
//     LogEscaped("Level: %s", "harbour\n");   // for texts from outside
//     LogDone();
#pragma once

#include "zqcore/cconfig.h"
#include "zqcore/cprintf.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

/// Maximum number of characters of a formatted line, without the terminator.
inline constexpr int LOG_LINE_LENGTH = 2048;

/// The open main log, or null. After LogInit a host may close it and set a stream of its own. Lines go through the
/// stream's buffer and are flushed. LogDone closes the stream. LogInit does nothing while a stream is set.
extern ZQ_API std::FILE * g_pMessageLogFile;

/// Frame number of each line, 0 at start. The application sets it, with std::atomic_ref if other threads log.
extern ZQ_API int g_iLogFrameCounter;

/// Sets folder and name of the main log, makes the missing levels of the folder, and passes both to the crash report.
/// Both texts are cut at 1023 characters, and so is the path that they make. Null counts as an empty text. Requires
/// that LogInit has opened no log.
/// - The folder ends in a separator. Without one, its last level becomes the start of the log's name and is not made as
///   a folder. A crash report needs that folder: if it does not exist, a crash leaves no report.
/// - A relative folder is below the current one. It stays relative if the whole path has more than 1023 characters or
///   the current folder is unknown.
ZQ_API void LogSetFile(wchar_t const * sFolder, wchar_t const * sName);

/// Opens the main log, "message.log" if no name was set, and adds its writer to the listeners, once. Makes the missing
/// levels of its folder. Empties the log of a previous run, unless another process has it open as its log. Does nothing
/// if no folder was set or the log is open. On failure the log stays closed, and its lines are lost.
ZQ_API void LogInit();

/// Removes all listeners and closes the main log.
ZQ_API void LogDone();

/// Limits each file of the main log and of the named logs to nBytes. 0, as at start, means no limit. Any thread may
/// set the limit.
/// - After the line that exceeds the limit, the log begins a new file. The full one gets ".1" at the end of its name,
///   previous ones ".2" to ".nPrevious". If nPrevious is 0 or negative, the log empties the file instead.
/// - Lines that other threads write meanwhile may go to the full file. Another process with the same log continues in
///   the full file for at most a second, or nBytes of its own lines.
/// - If a log is deleted, its lines go to a new file of its name after at most a second.
/// - A stream that the host has set has no limit, and neither has a named log beyond the table of GetLogFile (clogf.h).
/// - Lines that LogfArg (clogf.h) writes to the main log are not counted until the file's size is read again.
ZQ_API void LogSetLimit(std::uint64_t nBytes, int nPrevious);

/// Adds a listener, which is called before the others and on the thread that logs. It stays until LogDone. Requires
/// that it is not null, and that it neither logs nor complains, because each of its lines would call it again.
ZQ_API void LogAddCallback(void (*fnListener)(char const * szText));

/// Format a line and pass it to each listener. Escape what TextForLog (ctexterror.h) escapes, except tabs, line feeds
/// and carriage returns. All functions that log or complain do so, except Logf_raw (clogf.h). Require that fmt is not
/// null.
ZQ_API void Log(char const * fmt, ...) ZQ_PRINTF(1, 2);
ZQ_API void LogArg(char const * fmt, std::va_list args) ZQ_PRINTF(1, 0);

/// Does what Log does, for texts from outside, such as file names. Tabs and line ends that %s and %c insert are escaped
/// too, so they can't begin a line. fmt itself is not escaped. It may hold %s, %c, %i, %d, %u, %x, %zu and %% without
/// flags. Any other conversion ends the line, and so does a NUL of %c.
ZQ_API void LogEscaped(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Calls Log if bCondition is true and fmt is not null.
ZQ_API void Logc(bool bCondition, char const * fmt, ...) ZQ_PRINTF(2, 3);

/// Passes a text to each listener: uncut if it is printable ASCII, else escaped as Log does and cut at LOG_LINE_LENGTH
/// characters. message.log always cuts it there. Requires that szText is not null.
ZQ_API void LogText(char const * szText);

/// Writes a formatted line to the debugger's output, and to no log. A host receives it through plat::DebugOutputSet
/// (platform/debugger.h). Without a receiver it goes to standard error while a debugger is attached. Requires that fmt
/// is not null.
ZQ_API void Debugf(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the calling thread's last system error as "%s: %s" with the prefix, or as "GetLastError() returned: %s" if
/// sPrefix is null.
ZQ_API void LogWinLastError(char const * sPrefix);

/// Logs the facts of the system and the local time, in 14 lines.
ZQ_API void DumpSystemInfo();

/// Returns the folder of the main log, or an empty text before LogSetFile. It is absolute, except in the cases that
/// LogSetFile names.
ZQ_API wchar_t const * LogGetFolder();

/// Makes each missing level of a folder, from the outermost inward. `/` and `\` separate the levels and become `/` in
/// sFolder. The part after the last separator is not made. Levels that can't be made are skipped.
ZQ_API void LogCreateFolders(wchar_t * sFolder);

/// Do what the functions of the same name do, with arguments of text classes (cprintf.h).
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , Log)
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , LogEscaped)
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , Debugf)
ZQ_PRINTF_TEXTS_AFTER(ZQ_INLINE void, , Logc, (bool bCondition), (bCondition))
