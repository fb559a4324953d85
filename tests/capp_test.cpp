#include "tests/test_support.h"
#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/clog.h"
#include "zqcore/ctimer.h"

#include <cstdio>

// Class whose constructor calls through a variable, outside the unnamed namespace, so that no compiler knows that the
// call is pure.
struct AppTestAbstract_c
{
    AppTestAbstract_c() { m_fnCall(*this); }
    virtual void Act() = 0;

    void (*volatile m_fnCall)(AppTestAbstract_c &) = [](AppTestAbstract_c & Object) { Object.Act(); };
};

namespace
{
    double g_tFake = 100.0;   // seconds

    // Returns the window with the number i. Window 3 is a child of window 2, which is a child of window 1. Window 9 has
    // no parent.
    plat::Window_t Window(std::uintptr_t i)
    {
        return reinterpret_cast<plat::Window_t>(i);
    }

    plat::Window_t g_hFocus;
    std::vector<unsigned> g_dWaiting;   // messages

    struct App : testing::Test
    {
        App()
        {
            plat::WindowSystem_t System;
            System.fnGetFocus = [] { return g_hFocus; };
            System.fnGetParent = [](plat::Window_t hWindow)
            {
                auto const i = reinterpret_cast<std::uintptr_t>(hWindow);
                return Window(i <= 3 ? i - 1 : 0);
            };
            System.fnDispatchOne = [](unsigned iFirst, unsigned iLast)
            {
                auto const it = std::ranges::find_if(g_dWaiting, [=](unsigned i) { return i >= iFirst && i <= iLast; });
                bool const bFound = it != g_dWaiting.end();
                g_dWaiting.erase(it, it + bFound);
                return bFound;
            };
            m_Previous = plat::WindowSystemSet(System);
        }

        ~App() override
        {
            plat::WindowSystemSet(m_Previous);
            g_pAppWindow = nullptr;
            Game_longTimeGet = longTimeGet;
        }

        plat::WindowSystem_t m_Previous;
    };
}

TEST_F(App, DeltaTimeGathersUntilItIsEnough)
{
    Game_longTimeGet = [] { return g_tFake; };
    auto const PrintFirstDelta = []
    {
        g_tFake = 100.0;   // here 1/30 is rounded down
        std::fprintf(stderr, "%.4f", AppGetDeltaTime(1.0 / 30.0));
        std::exit(0);
    };
    EXPECT_EXIT(PrintFirstDelta(), testing::ExitedWithCode(0), "0.0333");
    AppGetDeltaTime(0.0);
    // All times are in seconds.
    for (auto const & [tStep, tMinDelta, tExpected] : Rows_t<double, double, double>{
             { 0.05, 0.1, 0.0 }, { 0.0625, 0.1, 0.1125 }, { 0.25, 0.25, 0.25 }, { 1000.0, 0.0, 1000.0 } })
    {
        g_tFake += tStep;
        EXPECT_NEAR(AppGetDeltaTime(tMinDelta), tExpected, 1e-9);
    }
}

TEST_F(App, IsInFocusWithItsWindowOrAChildOfIt)
{
    g_hFocus = Window(3);
    EXPECT_EQ(FailedConditions([] { EXPECT_FALSE(AppIsInFocus()); }), "g_pAppWindow");
    for (auto const & [iFocus, iApp, bExpected] : Rows_t<unsigned, unsigned, bool>{
             { 3, 1, true }, { 2, 2, true }, { 1, 2, false }, { 9, 1, false }, { 0, 1, false } })
    {
        g_hFocus = Window(iFocus);
        g_pAppWindow = Window(iApp);
        EXPECT_EQ(AppIsInFocus(), bExpected) << iFocus << ' ' << iApp;
    }
}

TEST_F(App, PurgesAllMessagesOrThoseOfTheKeyboard)
{
    // The messages of the keyboard are 0x100 to 0x109 (WM_KEYFIRST to WM_KEYLAST).
    g_dWaiting = { 0xFF, 0x100, 0x109, 0x10A, 0xFFFFFFFF };
    AppPurgeKeyboardQueue();
    EXPECT_THAT(g_dWaiting, testing::ElementsAre(0xFF, 0x10A, 0xFFFFFFFF));
    AppPurgeMessageQueue();
    EXPECT_TRUE(g_dWaiting.empty());
}

TEST_F(App, ResourceReportsAreBlockedByOneFlag)
{
    static std::string s_sReports;
    s_sReports.clear();
    g_ResourceLoadCallbacker.Add([](char const * szText) { s_sReports += szText; }, false);
    ResourceLoadReportCall("a");
    {
        ResourceLoadBlockScope_c const Blocked;
        ResourceLoadReportBlock();
        ResourceLoadReportCall("b");
    }
    ResourceLoadReportCall("c");
    g_ResourceLoadCallbacker.Reset();
    EXPECT_EQ(s_sReports, "ac");
}

TEST_F(App, TheVersionNamesTheBuildAndItsTime)
{
    EXPECT_THAT(GetBuildVersionString(),
        testing::ContainsRegex("^Unknown v1\\.0  \\(build: 0 - debug, ... .. .... ..:..:..\\)$"));
}

TEST_F(App, StartsInItsFolderAndEndsPureVirtualCallsInAbort)
{
    struct Concrete_c : AppTestAbstract_c
    {
        void Act() override {}
    };
    TempFolder_c const Folder;
    auto const CallPureVirtual = [&Folder]
    {
        LogSetFile(std::filesystem::path(Folder.GetPath() + "/").wstring().c_str(), L"");
        AppMiscStartup();
        std::fprintf(stderr, "in folder: %i, log: %i\n",
            std::filesystem::current_path() == std::filesystem::read_symlink("/proc/self/exe").parent_path(),
            g_pMessageLogFile != nullptr);
        Concrete_c();
    };
    EXPECT_EXIT(CallPureVirtual(), g_EndedAtBreakpoint, "in folder: 1, log: 1\n.*\npure virtual function call");
}

TEST_F(App, ShutdownEmptiesTheEventListsExceptThree)
{
    auto const fnKept = [](auto &... Events)
    {
        (Events.Add(nullptr, false), ...);   // never fired
        AppMiscShutdown();
        return std::vector<bool>{ !Events.IsEmpty()... };
    };
    EXPECT_EQ(fnKept(g_CommandCallbacker, g_RenderCallbacker, g_ActiveCallbacker, g_SizeCallbacker, g_IdleCallbacker,
                  g_InitMenuCallbacker, g_FullscreenCallbacker, g_MouseCallbacker, g_KeyboardCallbacker,
                  g_JoystickCallbacker, g_CharCallbacker, g_ApplicationMessages, g_FileReadErrorCallbacker,
                  g_NetworkCallbacker, g_FullscreenSwitchCallbacker, g_FileTrackChangesCallbacker,
                  g_AddSubfolderCallbacker, g_ResourceLoadCallbacker, g_WarningsCallbacker),
        std::vector<bool>(19, false));
    EXPECT_EQ(fnKept(g_ExecutionCallbacker, g_LoadingCallbacker, g_FileOpenCallbacker), std::vector<bool>(3, true));
    g_ExecutionCallbacker.Reset();
    g_LoadingCallbacker.Reset();
    g_FileOpenCallbacker.Reset();
}
