#include "zqcore/chwm.h"

#include "platform/debugger.h"

#include "tests/test_support.h"

namespace
{
    std::string g_sOutput;

    void AddGroups(StaticMemoryPool_c & Pool, std::initializer_list<unsigned> dSizes)
    {
        for (unsigned const nBytes : dSizes)
        {
            Pool.AddGroup(nBytes, 100);
        }
    }
}

TEST(StaticMemoryPool, AllocatesFromTheSmallestClassThatFits)
{
    StaticMemoryPool_c Pool("classes");
    AddGroups(Pool, { 16, 64, 65, 100, 1000, 1024, 1025, 5000 });
    for (auto const & [nBytes, nClass] :
        Rows_t<unsigned, int>{ { 0, 16 }, { 16, 16 }, { 17, 64 }, { 64, 64 }, { 65, 65 }, { 66, 100 }, { 101, 1000 },
            { 1000, 1000 }, { 1001, 1024 }, { 1024, 1024 }, { 1025, 1025 }, { 1026, 5000 }, { 5000, 5000 } })
    {
        void * const pBlock = Pool.Alloc(nBytes, false);
        EXPECT_EQ(Pool.IsValid(pBlock), nClass) << nBytes;
        EXPECT_EQ(FailedConditions([&] { Pool.IsArray(pBlock); }), "0 && \"why would you care?\"") << nBytes;
        EXPECT_TRUE(Pool.Free(pBlock, false)) << nBytes;
        EXPECT_EQ(Pool.IsValid(pBlock), 0) << nBytes << ": in a spare chunk";
    }
    int iForeign = 0;
    EXPECT_EQ(Pool.IsValid(&iForeign), 0);
    EXPECT_FALSE(Pool.Free(&iForeign, false));
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Pool.IsArray(&iForeign)); }), "0");
}

TEST(StaticMemoryPool, ReportsPeaksAndLeaksOfEachClass)
{
    auto const fnPrevious = plat::DebugOutputSet([](char const * szText) { g_sOutput += szText; });
    {
        StaticMemoryPool_c Pool("demo");
        AddGroups(Pool, { 16, 64 });
        Pool.Free(Pool.Alloc(64, false), false);
        Pool.Alloc(64, false);
        Pool.Alloc(50, true);
        EXPECT_EQ(Pool.GetHighWaterMark(0), 0);
        EXPECT_EQ(Pool.GetHighWaterMark(1), 2);
        Pool.ResetHighWaterMarks();
        EXPECT_EQ(Pool.GetHighWaterMark(1), 0);
        Pool.Free(Pool.Alloc(1, false), false);
        Pool.Free(Pool.Alloc(64, false), false);
        EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(Pool.GetHighWaterMark(2), -1); }), "index>=0 && index<iLength");
        g_sOutput.clear();
    }
    plat::DebugOutputSet(fnPrevious);
    EXPECT_EQ(g_sOutput, "pool demo group 16: high-water-mark 1\n"
                         "pool demo group 64: leaked 128 bytes in 2 allocations, high-water-mark 3\n");
}

TEST(StaticMemoryPool, WrongUseEndsTheProcessOrFailsItsCondition)
{
    struct Row_s
    {
        void (*fnUse)(StaticMemoryPool_c &);
        char const * szText;
    };
    for (Row_s const & Row :
        { Row_s{ [](StaticMemoryPool_c & Pool) { Pool.Alloc(65, false); }, "pool wrong: allocation size 65 too big" },
            { [](StaticMemoryPool_c & Pool) { Pool.Alloc(0xFFFFFFFF, false); }, "allocation size 4294967295 too big" },
            { [](StaticMemoryPool_c & Pool) { Pool.AddGroup(64, 1); }, "Invalid element size!" },
            { [](StaticMemoryPool_c & Pool) { Pool.AddGroup(32, 1); }, "Invalid element size!" },
            { [](StaticMemoryPool_c & Pool) { Pool.AddGroup(0x80000000, 1); }, "Invalid element size!" } })
    {
        auto const Use = [&]
        {
            StaticMemoryPool_c Pool("wrong");
            AddGroups(Pool, { 16, 64 });
            LogToStandardError();
            Row.fnUse(Pool);
        };
        EXPECT_EXIT(Use(), g_EndedAtBreakpoint, Row.szText);
    }

    StaticMemoryPool_c Pool("full");
    EXPECT_EQ(FailedConditions([&] { Pool.AddGroup(8, 0); }), "elements_total > 0");
    AddGroups(Pool, { 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176 });
    EXPECT_EQ(FailedConditions([&] { Pool.AddGroup(192, 1); }), "iAccessIndex >= 0 && iAccessIndex <= LENGTH");
    EXPECT_EQ(Pool.IsValid(Pool.Alloc(176, false)), 176) << "the twelve classes stay";
    EXPECT_EQ(FailedConditions([] { StaticMemoryPool_c const Nameless(nullptr); }), "sName");
}
