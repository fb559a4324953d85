// clog_internal.h: what the crash report and the heap's report at exit need of the main log.
#pragma once

/// Closes the main log and sets g_pMessageLogFile to null, with no heap and no lock: the stream's memory stays taken,
/// and what other threads still write to it is dropped.
void LogCloseInCrash();

/// Appends lines to the main log's file after the last destructor of the library, when its listeners may not be called
/// any more: to the file that LogInit opened last, whether or not LogDone has closed it. The text ends in a line end.
void LogWriteLate(char const * szText);
