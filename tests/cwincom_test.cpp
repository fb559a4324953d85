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
    struct Row_s
    {
        std::uint32_t dwResult;
        bool bInitialized;
        char const * szLine;
    };
    for (Row_s const & Row :
        { Row_s{ 0, true, "" }, { 1, true, "The COM library is already initialized on the calling thread" },
            { 0x80010106, true, "A previous call to CoInitializeEx specified a different concurrency model" },
            { 0x8007000E, false, "" }, { 2, false, "" } })
    {
        LogCapture_c const Log;
        s_dwResult = Row.dwResult;
        s_nStarts = s_nEnds = 0;
        plat::ComSystem_t const Former = plat::ComSystemSet({ Initialize, Uninitialize });
        for (int iRun = 1; iRun <= 2; ++iRun)
        {
            Module_c::Register(ModuleWinCom_c::Get());
            EXPECT_EQ(Module_c::InitializeAllModules(), Row.bInitialized) << Row.dwResult;
            EXPECT_EQ(ModuleWinCom_c::Get()->IsInitialized(), Row.bInitialized);
            EXPECT_EQ(s_nStarts, iRun) << "each start-up starts anew";
            Module_c::ShutdownAllModules();
            EXPECT_EQ(s_nEnds, Row.bInitialized ? iRun : 0);
        }
        EXPECT_EQ(Log.CountHolding("COM library") + Log.CountHolding("CoInitializeEx"), *Row.szLine ? 2 : 0);
        EXPECT_EQ(Log.Count(Row.szLine), *Row.szLine ? 2 : 0);
        plat::ComSystemSet(Former);
    }
}

TEST(WinCom, AMachineWithoutComHasNothingThatFails)
{
    LogCapture_c const Log;
    Module_c::Register(ModuleWinCom_c::Get());
    EXPECT_TRUE(Module_c::InitializeAllModules());
    Module_c::ShutdownAllModules();
    EXPECT_EQ(Log.CountHolding("COM"), 0);
}
