#include "zqcore/cexceptionreport.h"

#include <cwchar>

namespace
{
    constexpr std::size_t PATH_SIZE = 1024;

    wchar_t g_wszFolder[PATH_SIZE];
    wchar_t g_wszLogFile[PATH_SIZE];

    void Keep(wchar_t * wszTo, wchar_t const * wszFrom)
    {
        std::wcsncpy(wszTo, wszFrom, PATH_SIZE - 1);
        wszTo[PATH_SIZE - 1] = L'\0';
    }
}

ExceptionReport_c g_ExceptionReport;

void ExceptionReport_c::SetLogFileName(wchar_t const * sFolder, wchar_t const * sName)
{
    Keep(g_wszFolder, sFolder);
    Keep(g_wszLogFile, sName);
}

wchar_t const * ExceptionReport_c::GetFolder() const
{
    return g_wszFolder;
}

wchar_t const * ExceptionReport_c::GetLogFileName() const
{
    return g_wszLogFile;
}

void ExceptionInit() {}

void ExceptionDone() {}
