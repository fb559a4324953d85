#include "platform/checker.h"
#include "platform/memory.h"
#include "zqcore/cserializer.h"

#include "tests/coverage.h"
#include "tests/graph_support.h"
#include "tests/test_support.h"

#include "zqcore/cserializecheck.h"
#include "zqcore/cserializestd.h"

namespace
{
    using Archive_c = Serializeable_c;

    void const * At(std::uintptr_t nAddress)
    {
        return reinterpret_cast<void const *>(nAddress);
    }

    class Serializer : public testing::Test, protected World_s
    {
    protected:
        Serializer() { Forget(); }
        ~Serializer() override { Forget(); }

        std::string SaveGraph(Node_s * pRoot)
        {
            return Stored(1, [&](Archive_c & Archive) { World_s::Serialize(Archive, pRoot); });
        }

        ArchiveResult_t Check(std::string const & sBytes)
        {
            Node_s * pRoot = nullptr;
            ArchiveResult_t Result;
            EXPECT_EQ(FailedConditions(
                          [&]
                          {
                              Result = ArchiveCheck(std::as_bytes(std::span(sBytes)), 1,
                                  [&](Archive_c & Archive) { World_s::Serialize(Archive, pRoot); });
                          }),
                "");
            return Result;
        }

    private:
        void Forget()
        {
            RegisterStatics();
            Serializer_c::ResetCache();
            NodeSerializer_c::dRegisteredStaticPointers.Reset();
            g_dLoaded.clear();
            g_bRegisterItself = true;
        }
    };
}

// The graph is as deep as it has nodes. A thread's stack has room for a small part of that.
TEST_F(Serializer, SharedAndCyclicObjectsComeBackOnce)
{
    constexpr std::size_t DEPTH = 200000;
    std::vector<Node_s> dNodes(DEPTH);
    auto const Link = [](Node_s & Node, std::size_t i, auto && fnGet) {
        Node = { static_cast<int>(i), 0, &fnGet((i + 1) % DEPTH), &fnGet(i * 7919 % DEPTH), &fnGet(i / 2).iPart };
    };
    for (std::size_t i = 0; i < DEPTH; ++i)
    {
        Link(dNodes[i], i, [&](std::size_t iNode) -> Node_s & { return dNodes[iNode]; });
    }
    std::string sBytes;
    {
        // Without a descriptor the system can't report the first thread's stack. The checker needs some itself.
        FewDescriptors_c const None(plat::ADDRESS_CHECKER ? 64 : 0);
        sBytes = SaveGraph(dNodes.data());
    }
    Node_s const * const pRoot = Load(sBytes);
    ASSERT_TRUE(bWhole);
    ASSERT_EQ(g_dLoaded.size(), DEPTH);
    EXPECT_EQ(pRoot, g_dLoaded[0].get());
    for (std::size_t i = 0; i < DEPTH; ++i)
    {
        Node_s Expected;
        Link(Expected, i, [](std::size_t iNode) -> Node_s & { return *g_dLoaded[iNode]; });
        auto const FieldsOf = [](Node_s const & Node)
        { return std::tuple(Node.iValue, Node.iPart, Node.pNext, Node.pOther, Node.pPart); };
        ASSERT_EQ(FieldsOf(*g_dLoaded[i]), FieldsOf(Expected)) << i;
    }
    Load(sBytes.substr(0, sBytes.size() / 4));
    EXPECT_FALSE(bWhole);
    sBytes[sBytes.rfind("\x59\x63\x32\x09")] = '?';   // a label that only the deepest stack meets
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Load(sBytes); }));
}

TEST_F(Serializer, WritesTheExampleOfTheFormatsPage)
{
    struct UnitSerializer_c : NodeSerializer_c
    {
        using NodeSerializer_c::NodeSerializer_c;
        void SerializeObject(Archive_c & Archive, void *&) override
        {
            int iValue = 7;
            Archive.Serialize(iValue);
        }
    } Units("Unit");
    Serializer_c::RegisterStaticPointer(const_cast<void *>(At(0x1230)));
    std::string const sBytes = Stored(1,
        [&](Archive_c & Archive)
        {
            void const * pStatic = At(0x1230);
            void *pNull = nullptr, *pUnit = const_cast<void *>(At(0x1240));
            Serializer_c::StartSerialize(Archive, true);
            NodeSerializer_c::FixupVoidPointer(Archive, pStatic);
            Serializer_c::RegisterPointer(Archive, At(0x1238));
            Nodes.WritePointer(Archive, pNull);
            Units.WritePointer(Archive, pUnit);
            Units.WritePointer(Archive, pUnit);
        });
    EXPECT_EQ(Hex(sBytes), DumpOfPage(FORMATS_PAGE, "graph"));
    EXPECT_EQ(Hex(Stored(1, [](Archive_c & Archive) { Serializer_c::StartSerialize(Archive, false); })),
        "01 00 00 00 E9 CB 02 00");
}

TEST_F(Serializer, TheTableProbesWrapsAndForgets)
{
    int iSlot = 5;
    for (auto const & [nAddress, bNew, iExpected] :
        Rows_t<std::uintptr_t, bool, int>{ { 0x7FFFF8, true, 0xFFFFF }, { 0x7FFFF9, true, 204 },
            { 0x7FFFFF, true, 204 + 205 }, { 0x7FFFF9, false, 204 }, { 0x800000, true, 0 }, { 0, false, -1 } })
    {
        SCOPED_TRACE(nAddress);
        EXPECT_EQ(NodeSerializer_c::AddVoidToCache(At(nAddress), &iSlot), bNew);
        EXPECT_EQ(iSlot, iExpected);
        EXPECT_EQ(iSlot < 0 ? nullptr : Serializer_c::dPointers[iSlot], At(nAddress));
    }
    Serializer_c::ResetCache();
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(Serializer_c::dPointers[204]), -2);
    EXPECT_EACH(NodeSerializer_c::IsInCache(-1), !NodeSerializer_c::IsInCache(204));
}

TEST(SerializerDeathTest, TheTableTouchesItsMemoryAsItIsUsedUntilItIsFull)
{
    auto const Fill = []
    {
        LogToStandardError();
        long const nBefore = ResidentPages();
        int iSlot, nNew = 0;
        for (std::uintptr_t n = 1; n <= Serializer_c::HASH_SIZE; ++n)
        {
            nNew += NodeSerializer_c::AddVoidToCache(At(n * 8), &iSlot);
        }
        bool const bGrew =
            ResidentPages() - nBefore >= Serializer_c::HASH_SIZE / long{ plat::MEMORY_PAGE } * long{ sizeof(void *) };
        bool const bFull = !SurvivesWithoutAbort([&] { NodeSerializer_c::AddVoidToCache(At(4), &iSlot); });
        std::fprintf(stderr, "grew: %i, full: %i, new: %i", bGrew, bFull, nNew);
        EndChild(0);
    };
    EXPECT_EXIT(Fill(), testing::ExitedWithCode(0),
        Va("Serializer_c Hash overflow(.|\n)*grew: 1, full: 1, new: %i", Serializer_c::HASH_SIZE));
}

TEST_F(Serializer, StaticObjectsAreBoundByTheirOrder)
{
    int dStatics[2] = {};
    RegisterStatics();
    for (int * p : { &iStatic, &dStatics[0], static_cast<int *>(nullptr) })
    {
        Serializer_c::RegisterStaticPointer(p);
    }
    auto & dEntries = NodeSerializer_c::dRegisteredStaticPointers;
    ASSERT_EQ(dEntries.GetLength(), 3);
    g_StaticNode.iValue = 9;
    Node_s Root{ 1, 0, &g_StaticNode, nullptr, &dStatics[0] };
    std::string const sBytes = SaveGraph(&Root);

    // Three loads have other static objects than the save:
    // - The first one has an object at another address.
    // - The second one has an object too many.
    // - The third one has an object too few.
    LogCapture_c const Log;
    dEntries[2].pPointer = &dStatics[1];
    g_StaticNode.iValue = 0;
    Node_s const * pRoot = Load(sBytes);
    ASSERT_TRUE(bWhole);
    EXPECT_EACH(pRoot->pNext == &g_StaticNode, g_StaticNode.iValue == 9, pRoot->pPart == &dStatics[1]);
    Serializer_c::RegisterStaticPointer(&Root);
    EXPECT_EACH(Load(sBytes), bWhole, dEntries.GetLength() == 3);
    dEntries.Delete(2);
    pRoot = Load(sBytes);
    ASSERT_TRUE(pRoot);
    EXPECT_EQ(pRoot->pPart, nullptr);
    EXPECT_EQ(dEntries.GetLength(), 3);
    EXPECT_EQ(Log.Count("Serializer_c: number of registered static pointers not match serialized"), 2);
    for (char const nInFile : { '\0', '\2', '\4' })
    {
        EXPECT_FALSE(Check(std::string(sBytes).replace(8, 1, 1, nInFile)).IsSound()) << int{ nInFile };
        EXPECT_EQ(dEntries.GetLength(), 3) << "a check changes no list";
    }
    EXPECT_EQ(Log.CountHolding("number of registered static pointers"), 2) << "and logs nothing";

    while (dEntries.GetLength() < 999)
    {
        dEntries.Add({});
    }
    std::string sMost = SaveGraph(nullptr);
    EXPECT_EACH(!Load(sMost), bWhole) << "999, and a null root";
    dEntries.Add({});
    EXPECT_EQ(FailedConditions([&] { EXPECT_EQ(SaveGraph(nullptr), ""); }),
        "nRegisteredStaticPointers < MAX_STATIC_POINTERS");
    ++sMost[8];
    EXPECT_EQ(FailedConditions([&] { EXPECT_EACH(!Load(sMost), !bWhole); }),
        "nRegisteredStaticPointers >= 0 && nRegisteredStaticPointers < MAX_STATIC_POINTERS");
}

TEST_F(Serializer, WrongRecordsAndUnknownPointersAssertOrAbort)
{
    Node_s Node;
    std::string const sWhole = SaveGraph(&Node);   // identifier at 12, class name at 20
    NodeSerializer_c::RegisterSerializedStaticPointer(&g_StaticNode, "Other");
    Node.pNext = &g_StaticNode;
    std::string sOther;
    EXPECT_EQ(FailedConditions([&] { sOther = SaveGraph(&Node); }), "") << "such a pointer may be stored";
    auto const With = [&](std::size_t i, std::string_view sNew)
    { return std::string(sWhole).replace(i, sNew.size(), sNew); };
    using namespace std::string_view_literals;
    for (auto const & [sBytes, szCondition, nBodies] : Rows_t<std::string, char const *, std::size_t>{
             { sOther, "dPointers[iPointer] is of class m_sClassName, 'Node' expected in 'memory.arc' file", 1 },
             { With(12, "\0\0\x10\0"sv),
                 "iPointer >= -1 && iPointer < HASH_SIZE, identifier 1048576 in 'memory.arc' file", 0 },
             { With(12, "\xFE\xFF\xFF\xFF"),
                 "iPointer >= -1 && iPointer < HASH_SIZE, identifier -2 in 'memory.arc' file", 0 },
             { With(24, "Mode"), "pSerializer, class 'Mode' in 'memory.arc' file", 0 },
             { With(24, "\nde\t"), "pSerializer, class '\\nde\\t' in 'memory.arc' file", 0 },
             { With(20, "\5\0\0\0Other\0"sv),
                 "sClassName == m_sClassName, class 'Other' for 'Node' in 'memory.arc' file", 0 },
         })
    {
        g_dLoaded.clear();
        EXPECT_EQ(FailedConditions([&, &sRow = sBytes] { Load(sRow); }), szCondition);
        EXPECT_EQ(std::pair(bWhole, g_dLoaded.size()), std::pair(false, nBodies)) << szCondition;
    }
    EXPECT_STREQ(Check(With(24, "\nde\t")).sWhyNot, "an object of class '\\nde\\t', which has no serializer");
    LogCapture_c const Log;
    g_bRegisterItself = false;   // so that a pointer back to a node finds none
    Node.pNext = &Node;
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Load(SaveGraph(&Node)); }));
    EXPECT_EQ(Log.Count("Label 'composite object begin' expected in 'memory.arc' file."), 1);
    void const * pTarget = &Node;
    ArchiveBody_t const fnFixup = [&](Archive_c & Archive)
    {
        Serializer_c::ResetCache();
        NodeSerializer_c::FixupVoidPointer(Archive, pTarget);
    };
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Stored(1, fnFixup); }));
    EXPECT_FALSE(SurvivesWithoutAbort([&] { LoadArchive(With(4, "\1\0\0\0"sv), 1, fnFixup); }));
    EXPECT_EQ(Log.CountHolding("Serializer_c: Can't fixup pointer in '"), 2);
    EXPECT_EQ(FailedConditions(
                  [&]
                  {
                      NodeSerializer_c::Reconstruct(3, pTarget);
                      NodeSerializer_c::IsInCache(Serializer_c::HASH_SIZE);
                  }),
        "dPointers[iPointer] != HASH_NO_ELEMENT & IsIdentifier(iPointer)");
    EXPECT_FALSE(pTarget);
}

// A typed pointer leads to a part of another object. No save complains. A load fails if it complains.
TEST_F(Serializer, ATypedPointerLeadsToARegisteredPart)
{
    using Register_t = std::function<void(Archive_c &, Node_s &)>;
    for (auto const & [fnRegister, szComplaint] :
        Rows_t<Register_t, char const *>{
            { [](Archive_c &Archive, Node_s &Part) { Serializer_c::RegisterPointer(Archive, &Part); }, "" },
            { [&](Archive_c &Archive, Node_s &Part) { Nodes.RegisterOwnPointer(Archive, &Part); }, "" },
            { [&](Archive_c &Archive, Node_s &Part) { Others.RegisterOwnPointer(Archive, &Part); },
                "dPointers[iPointer] is of class m_sClassName, 'Node' expected in '" } })
    {
        SCOPED_TRACE(szComplaint);
        Node_s dParts[2], *dLeads[2] = { &dParts[0], nullptr };
        ArchiveBody_t const fnBody = [&, &fnRun = fnRegister](Archive_c & Archive)
        {
            Serializer_c::StartSerialize(Archive, false);
            fnRun(Archive, dParts[Archive.IsReading()]);
            Nodes.Serialize(Archive, dLeads[Archive.IsReading()]);
        };
        std::string sBytes;
        EXPECT_EQ(FailedConditions([&] { sBytes = Stored(1, fnBody); }), "");
        bool bLoads = false;
        std::string const sFailed = FailedConditions([&] { bLoads = LoadArchive(sBytes, 1, fnBody); });
        EXPECT_THAT(sFailed, testing::StartsWith(szComplaint));
        EXPECT_EQ(sFailed.empty(), bLoads);
        EXPECT_EQ(std::pair(bLoads, dLeads[1]), std::pair(!*szComplaint, bLoads ? &dParts[1] : nullptr));
    }
}

TEST_F(Serializer, AnObjectThatRegistersItselfKeepsItsClass)
{
    struct SelfSerializer_c : NodeSerializer_c
    {
        using NodeSerializer_c::NodeSerializer_c;
        void SerializeObject(Archive_c & Archive, void *& pObject) override
        {
            pObject = Archive.IsReading() ? &g_StaticNode : pObject;
            RegisterPointer(Archive, pObject);
            auto * pSelf = static_cast<Node_s *>(pObject);
            static_cast<NodeSerializer_c *>(FindSerializer("Node"))->Serialize(Archive, pSelf);
        }
    } Selves("Self");
    Node_s Node;
    ArchiveBody_t const fnBody = [&](Archive_c & Archive)
    {
        Node_s * pRoot = &Node;
        Serializer_c::StartSerialize(Archive, false);
        Selves.Serialize(Archive, pRoot);
    };
    std::string sBytes;
    auto const IsOfAnotherClass = testing::StartsWith("dPointers[iPointer] is of class m_sClassName, 'Node' expected");
    EXPECT_EQ(FailedConditions([&] { sBytes = Stored(1, fnBody); }), "");
    EXPECT_THAT(FailedConditions([&] { EXPECT_FALSE(LoadArchive(sBytes, 1, fnBody)); }), IsOfAnotherClass);
}

TEST_F(Serializer, DamageEndsEveryLoadInADefinedWay)
{
    LogCapture_c Log;
    Node_s dNodes[2];
    dNodes[0] = { 1, 0, &dNodes[1], &dNodes[0], &dNodes[0].iPart };
    dNodes[1] = { 2, 0, &dNodes[0], &g_StaticNode, &dNodes[0].iPart };
    RegisterStatics();
    std::string const sWhole = SaveGraph(&dNodes[0]);
    EXPECT_EACH(LoadsSoundly(sWhole), bWhole);
    for (std::size_t i = 0; i < sWhole.size(); ++i)
    {
        SCOPED_TRACE(i);
        EXPECT_EACH(LoadsSoundly(sWhole.substr(0, i)), !bWhole) << "cut";
        for (int const iFlip : { 0x01, 0x80, 0xFF, 0x7F })
        {
            std::string const sDamaged = std::string(sWhole).replace(i, 1, 1, static_cast<char>(sWhole[i] ^ iFlip));
            EXPECT_TRUE(LoadsSoundly(sDamaged)) << iFlip;
            RegisterStatics();
            ArchiveResult_t const Result = Check(sDamaged);
            EXPECT_EQ(Result.IsSound(), bWhole) << Result.sWhyNot;
        }
        for (std::size_t j = 4; j + 4 <= sWhole.size() && i + 4 <= sWhole.size(); ++j)
        {
            std::string sMoved = std::string(sWhole).replace(i, 4, sWhole, j, 4);
            EXPECT_TRUE(LoadsSoundly(sMoved)) << "from " << j;
            EXPECT_TRUE(LoadsSoundly(sMoved.replace(j, 4, sWhole, i, 4))) << "exchanged with " << j;
        }
        Log.Clear();
    }
}

TEST_F(Serializer, TheLatestOfANameIsFoundUntilItsEndOrTheModules)
{
    struct TestModule_c : ModuleSerialize_c
    {
        using ModuleSerialize_c::Initialize;
        using ModuleSerialize_c::Shutdown;
    } Module;
    {
        NodeSerializer_c Later("Node");
        Node_s Node;
        EXPECT_EQ(NodeSerializer_c::FindSerializer("Node"), &Later);
        EXPECT_TRUE(Load(SaveGraph(&Node))) << "a namesake's objects are of the same class";
    }
    EXPECT_EACH(NodeSerializer_c::FindSerializer("Node") == &Nodes, !NodeSerializer_c::FindSerializer("node"));

    Serializer_c::RegisterStaticPointer(&iStatic);
    EXPECT_TRUE(Module.Initialize());
    int iSlot;
    EXPECT_TRUE(NodeSerializer_c::AddVoidToCache(&iStatic, &iSlot)) << "the table is empty";
    Module.Shutdown();
    EXPECT_EACH(!Serializer_c::pSerializerList, !NodeSerializer_c::FindSerializer("Node"));
    EXPECT_EQ(NodeSerializer_c::dRegisteredStaticPointers.GetLength(), 0);
}
