#include "tests/test_support.h"
#include "zqcore/clogf.h"
#include "zqcore/cmodule.h"
#include "zqcore/ctimer.h"

#include <deque>
#include <regex>

namespace
{
    std::string g_sModuleTrace;   // what the modules were called for, in order

    // A module that adds a character and its name to the trace for each call: I is Initialize, 2 Initialize2, F the
    // heartbeat of a frame of 0.5 seconds, ? that of any other frame, B that of an idle pass, S Shutdown.
    struct TestModule_c : Module_c
    {
        explicit TestModule_c(char const * szName, Module_c * pFirst = nullptr, Module_c * pSecond = nullptr)
            : Module_c(szName)
            , m_dNeeded{ pFirst, pSecond, nullptr }
        {}

        Module_c ** GetPrerequisites() const override
        {
            return m_dNeeded[0] ? const_cast<Module_c **>(m_dNeeded) : nullptr;
        }

        bool Initialize() override
        {
            Trace("I");
            double const tStart = longTimeGet();
            longTimeWait(m_tWait);
            m_tTaken = longTimeGet() - tStart;
            return !m_bFails && (m_bForgets || Module_c::Initialize());
        }

        void Initialize2() override { Trace("2"); }
        void HeartbeatFrame(double dt) override { Trace(dt == 0.5 ? "F" : "?"); }
        void HeartbeatIdle() override { Trace("B"); }
        void Shutdown() override
        {
            Trace("S");
            Module_c::Shutdown();
        }

        Module_c * m_dNeeded[3];
        bool m_bFails = false, m_bForgets = false;
        double m_tWait = 0.0;    // seconds that Initialize asks for
        double m_tTaken = 0.0;   // seconds that it waits

        void Trace(char const * szEvent) const { g_sModuleTrace += std::string(szEvent) + GetName() + ' '; }
    };

    struct Modules : testing::Test
    {
        Modules() { g_sModuleTrace.clear(); }
        ~Modules() override { Module_c::ShutdownAllModules(); }

        TestModule_c & Make(char const * szName, Module_c * pFirst = nullptr, Module_c * pSecond = nullptr)
        {
            return m_dModules.emplace_back(szName, pFirst, pSecond);
        }

        static void Register(std::initializer_list<Module_c *> dModules)
        {
            std::for_each(dModules.begin(), dModules.end(), Module_c::Register);
        }

        static std::string ExtractTrace() { return std::exchange(g_sModuleTrace, ""); }

        // Returns the log's text with # instead of each time.
        std::string TextWithoutTimes() const
        {
            return std::regex_replace(m_Log.GetText(), std::regex("[0-9]+\\.[0-9]{2} sec"), "# sec");
        }

        std::deque<TestModule_c> m_dModules;
        LogCapture_c m_Log;
    };
}

TEST_F(Modules, LiveInTheOrderOfTheirNeeds)
{
    TestModule_c &First = Make("a"), &Second = Make("b", &First), &Third = Make("c", &Second, &First);
    Register({ &Third, &First, &Third });   // the entry of c brings b and a in
    EXPECT_TRUE(Module_c::InitializeAllModules());
    EXPECT_EQ(ExtractTrace(), "Ia Ib Ic 2a 2b 2c ");
    EXPECT_EQ(std::pair(First.GetInitOrder(), Third.GetInitOrder()), std::pair(0, 2));
    Module_c::HeartbeatAllModulesFrame(0.5);
    Module_c::HeartbeatAllModulesIdle();
    EXPECT_EQ(ExtractTrace(), "Fc Fb Fa Bc Bb Ba ");

    Module_c::ShutdownAllModules();
    EXPECT_EQ(ExtractTrace(), "Sc Sb Sa ");
    EXPECT_EQ(TextWithoutTimes(),
        "c shutdown\nc has been shutdown in # sec\nb shutdown\nb has been shutdown in # sec\n"
        "a shutdown\na has been shutdown in # sec\nAll modules have been shutdown in # sec\n");
    EXPECT_EACH(!First.IsInitialized(), Third.GetInitOrder() == 2);
    m_Log.Clear();   // no module is registered any more
    EXPECT_TRUE(Module_c::InitializeAllModules());
    Module_c::HeartbeatAllModulesIdle();
    Module_c::ShutdownAllModules();
    EXPECT_EQ(ExtractTrace(), "");
    EXPECT_EQ(TextWithoutTimes(), "All modules have been shutdown in # sec\n");
}

TEST_F(Modules, ThatNeedEachOtherStayDown)
{
    static int s_nRun = 0;   // a repeated Achtung would be dropped
    static std::string s_sA, s_sB;
    s_sA = "cyclic" + std::to_string(++s_nRun);
    s_sB = s_sA + "b";
    TestModule_c &First = Make(s_sA.c_str()), &Second = Make(s_sB.c_str(), &First), &Third = Make("c");
    First.m_dNeeded[0] = &Second;
    Register({ &First, &Third });
    DialogScript_c const Dialogs;
    EXPECT_FALSE(Module_c::InitializeAllModules());
    EXPECT_EQ(ExtractTrace(), "Ic ");
    EXPECT_EQ(m_Log.GetText(),
        "Module [" + s_sA + "] was not initialized. xrf?\nModule [" + s_sB + "] was not initialized. xrf?\n");
    EXPECT_EQ(Dialogs.GetCount(), 2);
}

TEST_F(Modules, ThatForgetTheBaseAreNamed)
{
    static int s_nRun = 0;   // a repeated Achtung would be dropped
    static std::string s_sForgets;
    s_sForgets = "forgets" + std::to_string(++s_nRun);
    TestModule_c &First = Make(s_sForgets.c_str()), &Second = Make("b");
    First.m_bForgets = true;
    Register({ &First, &Second });
    DialogScript_c const Dialogs;
    EXPECT_FALSE(Module_c::InitializeAllModules());
    EXPECT_EQ(m_Log.GetText(), "Module [" + s_sForgets + "] was not initialized. xrf?\n");
    EXPECT_EACH(Second.IsInitialized(), Dialogs.GetCount() == 1);
    std::string const sAgain = "I" + s_sForgets + " ";
    EXPECT_EQ(ExtractTrace(), sAgain + "Ib " + sAgain + sAgain + sAgain + sAgain);
    First.m_bForgets = false;
    EXPECT_TRUE(Module_c::InitializeAllModules());
}

TEST_F(Modules, InitializedBeforeAFailedOneStayUpAndLaterOnesJoinThem)
{
    TestModule_c &First = Make("a"), &Second = Make("b"), &Third = Make("c");
    Second.m_bFails = true;
    Register({ &First, &Second, &Third });
    EXPECT_FALSE(Module_c::InitializeAllModules());
    EXPECT_EQ(m_Log.GetText(), "Module [b] failed to initialize\n");
    EXPECT_EACH(First.IsInitialized(), !Second.IsInitialized(), !Third.IsInitialized());
    Module_c::ShutdownAllModules();
    EXPECT_EQ(ExtractTrace(), "Ia Ib Sa Sb Sc ");   // in the order of registration

    Second.m_bFails = false;
    Register({ &First, &Second });
    EXPECT_TRUE(Module_c::InitializeAllModules());
    Register({ &Third });
    ExtractTrace();
    EXPECT_TRUE(Module_c::InitializeAllModules());
    EXPECT_EQ(Third.GetInitOrder(), 0);   // counted from 0 again
    EXPECT_THAT(ExtractTrace(), testing::AnyOf("Ic 2c 2a 2b ", "Ic 2a 2c 2b "));
}

TEST_F(Modules, SlowOnesAreNamedOutOfAHundred)
{
    m_Log.CollectSlowStarts();
    TestModule_c &Slow = Make("slow"), &Quick = Make("quick");
    Slow.m_tWait = 0.12;
    Quick.m_tWait = 0.02;
    Register({ &Slow, &Quick });
    for (int i = 0; i < 100; ++i)   // more than the registry has room for at first
    {
        Module_c::Register(&Make("m"));
    }
    EXPECT_TRUE(Module_c::InitializeAllModules());
    EXPECT_THAT(m_Log.GetText(), testing::ContainsRegex("^slow initialized in [0-9]+\\.[0-9][0-9] sec\n"));
    if (Quick.m_tTaken < 0.05)   // a loaded machine may wait longer
    {
        EXPECT_THAT(m_Log.GetText(), testing::Not(testing::HasSubstr("quick")));
    }
    EXPECT_EQ(m_dModules.back().GetInitOrder(), 101);
}

TEST_F(Modules, ComplainOfASecondInitializeAndOfAMissingShutdown)
{
    {
        TestModule_c Module("a");
        Module.Initialize();
        EXPECT_EQ(FailedConditions([&] { Module.Initialize(); }), "!m_bIsInitialized");
    }
    EXPECT_EQ(m_Log.GetText(), "a: still initialized!\n");
}

TEST_F(Modules, OfLogAndTimerHaveTheNamesOfTheirClasses)
{
    EXPECT_STREQ(ModuleLog_c::Get()->GetName(), "ModuleLog_c");
    EXPECT_STREQ(ModuleTimer_c::Get()->GetName(), "ModuleTimer_c");
}
