// cexceptionreport.h: where the report of a crash goes.
//
// Today the two names are kept; no fault is hooked and no report is written.
#pragma once

#include "zqcore/cconfig.h"

class ExceptionReport_c
{
public:
    /// Keeps the folder of the reports and the name of the main log, each cut at 1023 characters.
    ZQ_API void SetLogFileName(wchar_t const * sFolder, wchar_t const * sName);

    ZQ_API wchar_t const * GetFolder() const;
    ZQ_API wchar_t const * GetLogFileName() const;
};

/// The one instance.
extern ZQ_API ExceptionReport_c g_ExceptionReport;

/// Called at the application's start and end. They have no effect.
ZQ_API void ExceptionInit();
ZQ_API void ExceptionDone();
