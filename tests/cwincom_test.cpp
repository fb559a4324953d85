#include "zqcore/cwincom.h"

#include "platform/com.h"
#include "tests/test_support.h"

namespace
{
    std::uint32_t g_dwComResult;
    int g_nComStarts, g_nComEnds;
}

TEST(WinCom, EachResultOfStartingDecidesWhatFollows)
{
    std::string const sAlready = "The COM library is already initialized on the calling thread";
    std::string const sChanged = "A previous call to CoInitializeEx specified a different concurrency model";
    // Results without a name are failures. Without COM no function is installed, so the result has no effect. nAlready
    // and nChanged count the lines of two runs.
    for (auto const & [bCom, dwResult, bInitialized, nAlready, nChanged] :
        Rows_t<bool, std::uint32_t, bool, int, int>{ { true, plat::COM_OK, true, 0, 0 },
            { true, plat::COM_ALREADY_INITIALIZED, true, 2, 0 }, { true, plat::COM_CHANGED_MODE, true, 0, 2 },
            { true, 0x8007000E, false, 0, 0 }, { true, 2, false, 0, 0 }, { false, 2, true, 0, 0 } })
    {
        SCOPED_TRACE(testing::PrintToString(std::pair(bCom, dwResult)));
        LogCapture_c const Log;
        g_dwComResult = dwResult;
        g_nComStarts = g_nComEnds = 0;
        auto const Begin = []
        {
            ++g_nComStarts;
            return g_dwComResult;
        };
        plat::ComSystem_t const Com = { Begin, [] { ++g_nComEnds; } };
        plat::ComSystem_t const Previous = plat::ComSystemSet(bCom ? Com : plat::ComSystem_t());
        for (int iRun = 0; iRun < 2; ++iRun)
        {
            EXPECT_EQ(StartModule(ModuleWinCom_c::Get()), bInitialized);
            EXPECT_EQ(ModuleWinCom_c::Get()->IsInitialized(), bInitialized);
            Module_c::ShutdownAllModules();
        }
        EXPECT_EQ(g_nComStarts, bCom ? 2 : 0) << "each start-up starts anew";
        EXPECT_EQ(g_nComEnds, bCom && bInitialized ? 2 : 0);
        EXPECT_EACH(Log.Count(sAlready) == nAlready, Log.CountHolding("COM library") == nAlready,
            Log.Count(sChanged) == nChanged, Log.CountHolding("CoInitializeEx") == nChanged)
            << Log.GetText();
        plat::ComSystemSet(Previous);
    }
}
