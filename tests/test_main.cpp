#include "zqcore/cexceptionreport.h"
#include "zqcore/clog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

int main(int nArguments, char ** dArguments)
{
    testing::InitGoogleTest(&nArguments, dArguments);
    // The system can't start the program anew if it runs in an emulator.
    testing::GTEST_FLAG(death_test_style) = *TEST_EMULATOR != 0 ? "fast" : "threadsafe";
    umask(022);                                            // what the tests expect of files that others may read
    g_ExceptionReport.SetLogFileName(L"/dev/null", L"");   // no folder: processes that a test ends leave no report
#ifdef __SANITIZE_THREAD__   // the helper starts in a child that shares memory, which the checker can't follow
    ExceptionReport_c::SetSymbolHelper(nullptr);
#endif
    int const iResult = RUN_ALL_TESTS();
    LogDone();   // frees the listeners, so that a block that lives on is a leak
    return iResult;
}
