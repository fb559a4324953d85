#include "zqcore/cwincom.h"

#include "platform/com.h"
#include "tests/test_support.h"

#include <gtest/gtest.h>

namespace
{
    std::uint32_t s_dwResult;
    int s_nStarts, s_nEnds;

    std::uint32_t Initialize()
    {
        ++s_nStarts;
        return s_dwResult;
    }

    void Uninitialize()
    {
        ++s_nEnds;
    }
}

TEST(WinCom, EachResultOfStartingDecidesWhatFollows)
{
    std::string const sAlready = "The COM library is already initialized on the calling thread";
    std::string const sChanged = "A previous call to CoInitializeEx specified a different concurrency model";
    struct Row_s
    {
        bool bCom;   // else nothing is installed
        std::uint32_t dwResult;
        bool bInitialized;
        int nAlready, nChanged;   // lines of two runs
    };
    for (Row_s const & Row : { Row_s{ true, 0, true, 0, 0 }, { true, 1, true, 2, 0 }, { true, 0x80010106, true, 0, 2 },
             { true, 0x8007000E, false, 0, 0 }, { true, 2, false, 0, 0 }, { false, 2, true, 0, 0 } })
    {
        LogCapture_c const Log;
        s_dwResult = Row.dwResult;
        s_nStarts = s_nEnds = 0;
        plat::ComSystem_t const New = { Row.bCom ? Initialize : nullptr, Row.bCom ? Uninitialize : nullptr };
        plat::ComSystem_t const Former = plat::ComSystemSet(New);
        for (int iRun = 0; iRun < 2; ++iRun)
        {
            Module_c::Register(ModuleWinCom_c::Get());
            EXPECT_EQ(Module_c::InitializeAllModules(), Row.bInitialized) << Row.dwResult;
            EXPECT_EQ(ModuleWinCom_c::Get()->IsInitialized(), Row.bInitialized);
            Module_c::ShutdownAllModules();
        }
        EXPECT_EQ(s_nStarts, Row.bCom ? 2 : 0) << "each start-up starts anew";
        EXPECT_EQ(s_nEnds, Row.bCom && Row.bInitialized ? 2 : 0);
        EXPECT_TRUE(Log.Count(sAlready) == Row.nAlready && Log.CountHolding("COM library") == Row.nAlready);
        EXPECT_TRUE(Log.Count(sChanged) == Row.nChanged && Log.CountHolding("CoInitializeEx") == Row.nChanged);
        plat::ComSystemSet(Former);
    }
}
