// clog.h: the main log.
//
// A line passes through a list of listeners; one of them, added by LogInit, writes message.log with the time and the
// frame in front: "%8.3f\t%i\t%s\n". Each line is flushed at once, with one write to the end of the file, whoever else
// writes to it. Lines are cut at 2048 characters and cost no memory. Any thread may log at any time, and the child of a
// fork; a line that nobody listens to goes nowhere. Lines that a full disk does not take are lost; the next one that is
// written comes after a line "Log lines lost here: N". The file is a regular one: a link, pipe or device of its name is
// refused, and the log stays closed. The list of listeners has no lock; listeners are added at start-up.
#pragma once

#include "zqcore/cconfig.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

/// Characters of one line, without the terminator.
inline constexpr int LOG_LINE_LENGTH = 2048;

/// The open main log, or null. A host may set a stream of its own, which LogDone closes; lines go through its buffer.
extern ZQ_API std::FILE * g_pMessageLogFile;

/// The frame number printed in each line. The application advances it, by std::atomic_ref if other threads log.
extern ZQ_API int g_iLogFrameCounter;

/// Names the folder and the file of the main log and passes them to the crash report. Must come before LogInit. The
/// folder is put in front of the name with nothing in between, so it ends in a separator. A relative one is made
/// absolute by the current folder. Both are cut at 1023 characters; null is empty.
ZQ_API void LogSetFile(wchar_t const * sFolder, wchar_t const * sName);

/// Opens the main log, "message.log" if no name was given, and adds its writer to the listeners unless it is there. The
/// log of an earlier run is emptied, unless a process still has it open as its log. Creates the folder, level by level;
/// `/` and `\` both separate. Does nothing without a folder or with the log open already.
ZQ_API void LogInit();

/// Frees the list of listeners and closes the main log.
ZQ_API void LogDone();

/// Limits the files of the main log and of each named log. After the line that takes a file beyond nBytes the file
/// gets ".1" at the end of its name, earlier ones ".2" to ".nFormer", and a new file is begun. With nFormer 0 the file
/// is emptied. Lines that other threads write meanwhile may still go to the old file. nBytes 0, as at first, is no
/// limit. A host's own stream has none. Any thread, at any time.
ZQ_API void LogSetLimit(std::uint64_t nBytes, int nFormer);

/// Adds a listener, which is called ahead of those that are there. It stays until LogDone.
ZQ_API void LogAddCallback(void (*fnListener)(char const * szText));

/// Formats a line and passes it to each listener. Whatever the line holds, a listener and a terminal see no control
/// characters but tabs and line ends: others, and bytes that are not UTF-8, are escaped as TextForLog (ctexterror.h) has
/// it. All that logs or complains does so.
ZQ_API void Log(char const * fmt, ...) ZQ_PRINTF(1, 2);
ZQ_API void LogArg(char const * fmt, std::va_list args) ZQ_PRINTF(1, 0);

/// Log for texts from outside, such as the names of files: what %s inserts is escaped whole, so it can't begin a line of
/// its own. fmt may hold %s, %c, %i, %d, %u, %x, %zu and %% without flags; any other conversion ends the line.
ZQ_API void LogEscaped(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Log if the condition holds and fmt is not null.
ZQ_API void Logc(bool bCondition, char const * fmt, ...) ZQ_PRINTF(2, 3);

/// Passes a ready text to each listener, cut only if something in it is escaped.
ZQ_API void LogText(char const * szText);

/// Sends a line to the debugger's output, and to no log. A host receives it through plat::DebugOutputSet
/// (platform/debugger.h); without a receiver it goes to standard error while a debugger is attached.
ZQ_API void Debugf(char const * fmt, ...) ZQ_PRINTF(1, 2);

/// Logs the calling thread's last system error as "%s: %s" with the prefix, or "GetLastError() returned: %s" without.
ZQ_API void LogWinLastError(char const * sPrefix);

/// Logs what the system says of itself, in 14 lines, ending with the time of the log's start.
ZQ_API void DumpSystemInfo();

/// The folder of the main log, absolute; empty without LogSetFile.
ZQ_API wchar_t const * LogGetFolder();

/// Creates each level of a folder that ends at a separator, from the outermost inward; the separators become `/`.
/// Folders that are there already, and levels that can't be made, are passed over.
ZQ_API void LogCreateFolders(wchar_t * sFolder);
