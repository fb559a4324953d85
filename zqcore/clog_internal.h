// clog_internal.h: what the crash report needs of the main log.
#pragma once

/// Closes the main log and sets g_pMessageLogFile to null, with no heap and no lock: the stream's memory stays taken,
/// and what other threads still write to it is dropped.
void LogCloseInCrash();
