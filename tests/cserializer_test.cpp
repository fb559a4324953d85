#include "zqcore/cserializer.h"

#include "tests/archive_support.h"
#include "tests/graph_support.h"
#include "tests/test_support.h"

#include <gtest/gtest.h>

namespace
{
    using Access = NodeSerializer_c;
    using A = Serializeable_c;

    void const * At(std::uintptr_t n)
    {
        return reinterpret_cast<void const *>(n);
    }

    void ForgetStatics()
    {
        Serializer_c::ResetCache();
        Access::dRegisteredStaticPointers.Reset();
    }

    // Each test has serializers and static objects of its own.
    class Serializer : public testing::Test
    {
    protected:
        Serializer() { ForgetStatics(); }
        ~Serializer() override
        {
            ForgetStatics();
            g_dLoaded.clear();
            g_bRegisterItself = true;
            Access::s_StaticNode = Node_s();
        }

        std::string Save(ArchiveBody_t const & fnBody)
        {
            BufferedWriteable_c Archive(Folder.Join("graph.arc").c_str(), 1);
            Archive.Open();
            fnBody(Archive);
            return Archive.Close() && !Archive.IsFailed() ? Folder.Read("graph.arc") : "failed";
        }

        std::string SaveGraph(Node_s * pRoot, bool bStatic = false)
        {
            return Save([&](A & a) { Serializer_c::StartSerialize(a, bStatic), Nodes.Serialize(a, pRoot); });
        }

        // The root; null if the load failed.
        Node_s * LoadGraph(std::string const & sBytes, bool bStatic = false)
        {
            Node_s * pRoot = nullptr;
            bool const bWhole =
                Loaded(sBytes, 1, [&](A & a) { Serializer_c::StartSerialize(a, bStatic), Nodes.Serialize(a, pRoot); });
            return bWhole ? pRoot : nullptr;
        }

        TempFolder_c Folder;
        NodeSerializer_c Nodes{ "Node" };
        NodeSerializer_c Others{ "Other" };
    };
}

TEST_F(Serializer, SharedAndCyclicObjectsComeBackOnce)
{
    Node_s dNodes[3];
    dNodes[0] = { 1, 0, &dNodes[1], &dNodes[2], &dNodes[0].iPart };
    dNodes[1] = { 2, 0, &dNodes[2], &dNodes[0], &dNodes[0].iPart };
    dNodes[2] = { 3, 0, &dNodes[2], nullptr, &dNodes[1].iPart };
    Node_s const * const p0 = LoadGraph(SaveGraph(&dNodes[0]));
    ASSERT_TRUE(p0);
    ASSERT_EQ(g_dLoaded.size(), 3u);
    Node_s const & n1 = *p0->pNext;
    Node_s const & n2 = *p0->pOther;
    EXPECT_EQ(p0->iValue * 100 + n1.iValue * 10 + n2.iValue, 123);
    EXPECT_TRUE(n1.pNext == &n2 && n1.pOther == p0 && n2.pNext == &n2 && !n2.pOther);
    EXPECT_TRUE(p0->pPart == &p0->iPart && n1.pPart == &p0->iPart && n2.pPart == &n1.iPart);
}

TEST_F(Serializer, ABackReferenceToAnUnregisteredObjectEndsInAbort)
{
    LogCapture_c const Log;
    g_bRegisterItself = false;
    Node_s Loop;
    Loop.pNext = &Loop;
    std::string const sBytes = SaveGraph(&Loop);
    EXPECT_FALSE(SurvivesWithoutAbort([&] { LoadGraph(sBytes); }));
    EXPECT_EQ(Log.Count("Label 'composite object begin' expected in 'memory.arc' file."), 1);
}

TEST_F(Serializer, WritesTheExampleOfTheFormatsPage)
{
    struct UnitSerializer_c : NodeSerializer_c
    {
        UnitSerializer_c()
            : NodeSerializer_c("Unit")
        {}
        void SerializeObject(A & a, void *&) override
        {
            int iValue = 7;
            a.Serialize(iValue);
        }
    } Units;
    Serializer_c::RegisterStaticPointer(const_cast<void *>(At(0x1230)));
    std::string const sBytes = Save(
        [&](A & a)
        {
            void const * pStatic = At(0x1230);
            void *pNull = nullptr, *pUnit = const_cast<void *>(At(0x1240));
            Serializer_c::StartSerialize(a, true);
            Access::FixupVoidPointer(a, pStatic);
            Serializer_c::RegisterPointer(a, At(0x1238));
            Nodes.WritePointer(a, pNull);
            Units.WritePointer(a, pUnit);
            Units.WritePointer(a, pUnit);
        });
    EXPECT_EQ(Hex(sBytes), DumpOfPage(TEST_MEDIA_FOLDER "/../../docs/formats.md", "graph"));
    EXPECT_EQ(Hex(SaveGraph(nullptr)), "01 00 00 00 E9 CB 02 00 FF FF FF FF CC 89 0A 00");
}

TEST_F(Serializer, TheTableProbesWrapsAndForgets)
{
    int iSlot = 5;
    EXPECT_FALSE(Access::AddVoidToCache(nullptr, &iSlot));
    EXPECT_EQ(iSlot, -1);
    struct Row_s
    {
        std::uintptr_t nAddress;
        bool bNew;
        int iSlot;
    };
    for (Row_s const & row : { Row_s{ 0x7FFFF8, true, 0xFFFFF }, Row_s{ 0x7FFFF9, true, 204 },
             Row_s{ 0x7FFFFF, true, 204 + 205 }, Row_s{ 0x7FFFF9, false, 204 }, Row_s{ 0x800000, true, 0 } })
    {
        EXPECT_EQ(Access::AddVoidToCache(At(row.nAddress), &iSlot), row.bNew);
        EXPECT_EQ(iSlot, row.iSlot) << std::hex << row.nAddress;
        EXPECT_EQ(Serializer_c::dPointers[row.iSlot], At(row.nAddress));
    }
    Serializer_c::ResetCache();
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(Serializer_c::dPointers[204]), -2);
    EXPECT_TRUE(Access::IsInCache(-1) && !Access::IsInCache(204));
    for (std::uintptr_t n = 1; n <= Serializer_c::HASH_SIZE; ++n)
    {
        ASSERT_TRUE(Access::AddVoidToCache(At(n * 8), &iSlot));
    }
    LogCapture_c const Log;
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Access::AddVoidToCache(At(4), &iSlot); }));
    EXPECT_EQ(Log.Count("Serializer_c Hash overflow"), 1);
}

TEST_F(Serializer, StaticObjectsAreBoundByTheirOrder)
{
    int dStatics[3] = {};
    Node_s & Static = Access::s_StaticNode;
    for (int * p : { &dStatics[0], &dStatics[0], static_cast<int *>(nullptr) })
    {
        Serializer_c::RegisterStaticPointer(p);
    }
    Access::RegisterSerializedStaticPointer(&Static, "Node");
    Serializer_c::RegisterStaticPointer(&dStatics[2]);
    auto & dEntries = Access::dRegisteredStaticPointers;
    ASSERT_EQ(dEntries.GetLength(), 3);
    Static.iValue = 9;
    Node_s Root{ 1, 0, &Static, nullptr, &dStatics[2] };
    std::string const sBytes = SaveGraph(&Root, true);

    // A run with another address, one with an object too many, one with an object too few.
    LogCapture_c const Log;
    dEntries[2].pPointer = &dStatics[1];
    Static.iValue = 0;
    Node_s const * pRoot = LoadGraph(sBytes, true);
    ASSERT_TRUE(pRoot);
    EXPECT_TRUE(pRoot->pNext == &Static && Static.iValue == 9 && pRoot->pPart == &dStatics[1]);
    Serializer_c::RegisterStaticPointer(&Root);
    EXPECT_TRUE(LoadGraph(sBytes, true));
    EXPECT_EQ(dEntries.GetLength(), 3);
    dEntries.Delete(2);
    pRoot = LoadGraph(sBytes, true);
    EXPECT_TRUE(pRoot && !pRoot->pPart && dEntries.GetLength() == 3);
    EXPECT_EQ(Log.Count("Serializer_c: number of registered static pointers not match serialized"), 2);

    while (dEntries.GetLength() < 999)
    {
        dEntries.Add({});
    }
    EXPECT_NE(SaveGraph(nullptr, true), "failed");
    dEntries.Add({});
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(SaveGraph(nullptr, true), "failed"); }),
        "nRegisteredStaticPointers < MAX_STATIC_POINTERS");
}

TEST_F(Serializer, WhatTheFileGetsWrongFailsTheArchive)
{
    Node_s Node;
    std::string const sWhole = SaveGraph(&Node);   // identifier at 8, class name at 16
    Access::RegisterSerializedStaticPointer(&Access::s_StaticNode, "Other");
    Node.pNext = &Access::s_StaticNode;
    std::string const sOther = SaveGraph(&Node, true);
    auto const With = [&](std::size_t i, std::string_view sNew)
    { return std::string(sWhole).replace(i, sNew.size(), sNew); };
    struct Row_s
    {
        std::string sBytes, sCondition;
        bool bStatic = false;
    };
    using namespace std::string_view_literals;
    for (Row_s const & row : {
             Row_s{ With(8, "\0\0\x10\0"sv), "iPointer >= -1 && iPointer < HASH_SIZE, identifier 1048576" },
             Row_s{ With(8, "\xFE\xFF\xFF\xFF"), "iPointer >= -1 && iPointer < HASH_SIZE, identifier -2" },
             Row_s{ With(20, "Mode"), "pSerializer, class 'Mode'" },
             Row_s{ With(16, "\5\0\0\0Other\0"sv), "sClassName == m_sClassName, class 'Other' for 'Node'" },
             Row_s{ sOther, "dPointers[iPointer] is of class m_sClassName, 'Node' expected", true },
         })
    {
        g_dLoaded.clear();
        EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(LoadGraph(row.sBytes, row.bStatic)); }),
            row.sCondition + " in 'memory.arc' file");
        EXPECT_EQ(g_dLoaded.size(), row.bStatic ? 1u : 0u) << "bodies run";
    }
    LogCapture_c const Log;
    void const * p = &Node;
    ArchiveBody_t const fnFixup = [&](A & a) { Serializer_c::ResetCache(), Access::FixupVoidPointer(a, p); };
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Save(fnFixup); }));
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Loaded(With(4, "\1\0\0\0"sv), 1, fnFixup); }));
    EXPECT_EQ(Log.CountHolding("Serializer_c: Can't fixup pointer in '"), 2);
    EXPECT_EQ(FailedConditions([&] { Access::Reconstruct(3, p), Access::IsInCache(Serializer_c::HASH_SIZE); }),
        "dPointers[iPointer] != HASH_NO_ELEMENT & IsIdentifier(iPointer)");
    EXPECT_FALSE(p);
}

// Whatever becomes of any byte or word and wherever the file ends, every pointer leads to a node or nowhere.
TEST_F(Serializer, DamageEndsEveryLoadInADefinedWay)
{
    LogCapture_c Log;
    Node_s dNodes[2];
    dNodes[0] = { 1, 0, &dNodes[1], &dNodes[0], &dNodes[0].iPart };
    dNodes[1] = { 2, 0, &dNodes[0], &dNodes[1], &dNodes[0].iPart };
    Access::RegisterSerializedStaticPointer(&Access::s_StaticNode, "Node");
    std::string const sWhole = SaveGraph(&dNodes[0], true);
    auto const Check = [&](std::string const & sBytes)
    {
        ForgetStatics();
        Access::RegisterSerializedStaticPointer(&Access::s_StaticNode, "Node");
        SurvivesWithoutAbort([&] { LoadGraph(sBytes, true); });
        EXPECT_TRUE(LoadedPointersAreSound());
        g_dLoaded.clear();
        Log.Clear();
    };
    for (std::size_t i = 0; i < sWhole.size(); ++i)
    {
        EXPECT_FALSE(LoadGraph(sWhole.substr(0, i), true));
        Check(sWhole.substr(0, i));
        for (int const iFlip : { 0x01, 0x80, 0xFF, 0x7F })
        {
            Check(std::string(sWhole).replace(i, 1, 1, static_cast<char>(sWhole[i] ^ iFlip)));
        }
        for (std::size_t j = 4; j + 4 <= sWhole.size() && i + 4 <= sWhole.size(); ++j)
        {
            Check(std::string(sWhole).replace(i, 4, sWhole, j, 4));
        }
    }
}

// 200,000 nodes in a chain; a thread's stack holds a small part of it.
TEST_F(Serializer, ChainsAreAsDeepAsTheyAreLong)
{
    constexpr int DEPTH = 200000;
    std::vector<Node_s> dNodes(DEPTH);
    for (std::size_t i = 0; i < DEPTH; ++i)
    {
        dNodes[i] = { static_cast<int>(i), 0, i + 1 < DEPTH ? &dNodes[i + 1] : nullptr, nullptr, &dNodes[0].iPart };
    }
    std::string const sBytes = SaveGraph(dNodes.data());
    int nNodes = 0;
    for (Node_s const * p = LoadGraph(sBytes); p && p->iValue == nNodes; p = p->pNext)
    {
        ++nNodes;
    }
    EXPECT_EQ(nNodes, DEPTH);
    EXPECT_FALSE(LoadGraph(sBytes.substr(0, sBytes.size() / 2)));
    std::size_t const iLast = sBytes.rfind("\x59\x63\x32\x09");   // a label that only the deepest stack meets
    EXPECT_FALSE(SurvivesWithoutAbort([&] { LoadGraph(std::string(sBytes).replace(iLast, 1, "?")); }));
}

TEST_F(Serializer, TheLatestSerializerOfANameWinsUntilItsEnd)
{
    {
        NodeSerializer_c Later("Node");
        Node_s Node;
        EXPECT_EQ(Access::FindSerializer("Node"), &Later);
        EXPECT_TRUE(LoadGraph(SaveGraph(&Node))) << "a namesake's objects are of the same class";
    }
    EXPECT_EQ(Access::FindSerializer("Node"), &Nodes);
    EXPECT_FALSE(Access::FindSerializer("node"));
}

TEST_F(Serializer, TheModuleForgetsStaticObjectsAndSerializers)
{
    struct Module_s : ModuleSerialize_c
    {
        using ModuleSerialize_c::Initialize;
        using ModuleSerialize_c::Shutdown;
    } Module;
    int iSlot;
    Serializer_c::RegisterStaticPointer(&iSlot);
    EXPECT_TRUE(Module.Initialize());
    EXPECT_TRUE(Access::AddVoidToCache(&iSlot, &iSlot)) << "the table is empty";
    Module.Shutdown();
    EXPECT_FALSE(Serializer_c::pSerializerList || Access::FindSerializer("Node"));
    EXPECT_EQ(Access::dRegisteredStaticPointers.GetLength(), 0);
    EXPECT_STREQ(ModuleSerialize_c::Get()->GetName(), "ModuleSerialize_c");
}

// Kilobytes of this process that no file backs.
long ResidentMemory()
{
    std::ifstream Status("/proc/self/status");
    std::string sWord;
    while (Status >> sWord && sWord != "RssAnon:")
    {}
    long n = 0;
    Status >> n;
    return n;
}

TEST(SerializerDeathTest, TheTableTakesMemoryOnlyWhereItIsUsed)
{
    auto const Fill = []
    {
        long const nBefore = ResidentMemory();
        int iSlot;
        for (std::uintptr_t n = 1; n <= Serializer_c::HASH_SIZE; ++n)
        {
            Access::AddVoidToCache(At(n * 8), &iSlot);
        }
        _exit(ResidentMemory() - nBefore >= Serializer_c::HASH_SIZE / 1024 * long{ sizeof(void *) } ? 0 : 1);
    };
    EXPECT_EXIT(Fill(), testing::ExitedWithCode(0), "");
}
