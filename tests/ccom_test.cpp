#include "platform/debugger.h"
#include "tests/machine_support.h"
#include "zqcore/ccom.h"
#include "zqcore/cstring.h"

namespace
{
    using testing::ElementsAre;

    int g_nDeleted = 0;

    class Object_c : public ComObject_c
    {
    public:
        ~Object_c() override { ++g_nDeleted; }
    };

    class Pooled_c : public ComObject_c
    {
    public:
        mutable int m_nDisposed = 0;

    private:
        void Dispose() const override { ++m_nDisposed; }
    };

    char const OWNERS[4] = {};   // their addresses name the owners

    // Calls Release on what may be no object, which the checkers would report first. Returns its result.
    ZQ_UNCHECKED bool ReleaseAnything(void const * pAny)
    {
        return static_cast<ComObject_c const *>(pAny)->Release(OWNERS, "", 0, pAny);
    }
}

TEST(ComObject, CountsReferencesAndDisposesWithTheLast)
{
    auto * const pObject = new Object_c;
    g_nDeleted = 0;
    EXPECT_EACH(COM_ADDREF(pObject, OWNERS) == 0, COM_ADDREF(pObject, OWNERS + 1) == 1, !COM_RELEASE(pObject, OWNERS),
        g_nDeleted == 0, COM_RELEASE(pObject, OWNERS + 1), g_nDeleted == 1);

    Pooled_c Pooled;
    for (int i = 1; i <= 2; ++i)
    {
        EXPECT_EQ(COM_ADDREF(&Pooled, OWNERS), 0u) << "an object that its Dispose spared lives on without references";
        EXPECT_TRUE(COM_RELEASE(&Pooled, nullptr));
        EXPECT_EQ(Pooled.m_nDisposed, i);
    }
}

TEST(ComObject, ListsItsOwnersTheNewestFirst)
{
    Pooled_c Object;
    LogCapture_c Log;
    Object.ComDebug();
    EXPECT_THAT(Log.GetLines(), ElementsAre("WARNING: There is nothing to dump!\n\tm_pDebugHead == nullptr"));
    Log.Clear();
    for (int i = 0; i < 3; ++i)
    {
        Object.AddRef(OWNERS + i % 2, "a.cpp", i, &Object);
    }
    Object.Release(OWNERS + 1, "", 0, &Object);
    Object.AddRef(OWNERS + 3, nullptr, 9, &Object);
    {
        ComReference_T const Reference(&Object, OWNERS + 2);
        ComReference_T<Pooled_c> const None(nullptr, OWNERS + 2);
        ComDebug_t Newest;
        EXPECT_EQ(Reference->GetOwners(&Newest, 1), 1);
        EXPECT_EACH(Newest.pOwner == OWNERS + 2, std::string_view(Newest.sFile).ends_with("ccom_test.cpp"));
        EXPECT_EQ(Newest.iLine, __LINE__ - 5);
    }

    auto const Line = [&](char const * szWhere, int iOwner)
    {
        return std::string(Va("%s: probably COM Object=0x%zx Owner=0x%zx", szWhere,
            reinterpret_cast<std::size_t>(&Object), reinterpret_cast<std::size_t>(OWNERS + iOwner)));
    };
    Object.ComDebug();
    EXPECT_THAT(Log.GetLines(),
        ElementsAre("Dumping objects:", Line("unknown(9)", 3), Line("a.cpp(2)", 0), Line("a.cpp(0)", 0)));

    static std::string s_sOutput;
    s_sOutput.clear();
    auto const fnPrevious = plat::DebugOutputSet([](char const * szText) { s_sOutput += szText; });
    ComDebug_t dOwners[3] = {};
    EXPECT_EACH(Object.GetOwners(dOwners, 3) == 3, s_sOutput == "", dOwners[0].pNext->iLine == dOwners[1].iLine,
        Object.GetOwners(dOwners, 2) == 2);
    EXPECT_THAT(s_sOutput, testing::StartsWith("Array size is too small to contain all owners "));
    plat::DebugOutputSet(fnPrevious);
    Object.Release(OWNERS, "", 0, &Object);
    EXPECT_EQ(Object.GetOwners(dOwners, 3), 2);
    EXPECT_EQ(dOwners[1].iLine, 0) << "of two references the one that was added last is removed";
    EXPECT_EACH(!COM_RELEASE(&Object, OWNERS), COM_RELEASE(&Object, OWNERS + 3));
}

TEST(ComObject, MisuseFailsItsConditionAndKeepsTheLedgerWhole)
{
    Pooled_c Object, Other;
    EXPECT_EQ(FailedConditions([&] { Object.AddRef(OWNERS, "", 0, &Other); }), "pObject==this");
    EXPECT_EQ(FailedConditions([&] { Object.AddRef(nullptr, "", 0, &Object); }), "pOwner");
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Object.Release(OWNERS, "", 0, &Other)); }), "pObject == this");
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(COM_RELEASE(&Object, OWNERS + 2)); }),
        "pList && \"ComDebug: release failed\"");
    EXPECT_TRUE(COM_RELEASE(&Object, OWNERS));
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(COM_RELEASE(&Object, OWNERS)); }), "iRefCount > 0");

    LogCapture_c const Log;
    DialogScript_c const Ignore;
    {
        Object_c Deleted;
        COM_ADDREF(&Deleted, OWNERS);
        COM_ADDREF(&Deleted, OWNERS + 1);
        EXPECT_EQ(ComObject_c::GetFreeReferences(), COM_REFERENCES - 2);
    }
    EXPECT_EQ(Log.Count("Dumping objects:"), 1);
    EXPECT_EQ(Log.CountHolding(std::string(__FILE__) + "("), 2);
    EXPECT_EQ(Log.Count("iRefCount > 0, see message.log"), 1);
    EXPECT_EQ(ComObject_c::GetFreeReferences(), COM_REFERENCES);
}

TEST(ComObject, ReleaseOfWhatIsNoObjectFailsItsConditionAndTouchesNothing)
{
    constexpr char UNREADABLE[] = "_CrtIsValidPointer( this, sizeof ( ComObject_c ), false )";
    constexpr char NO_SIGNATURE[] = "m_dwComSignature == COM_SIGNATURE";
    char * const pPage = AllocateLastPage();
    auto * const pInPage = new (pPage) Pooled_c;
    COM_ADDREF(pInPage, OWNERS);
    auto * const pEnded = new (pPage + 512) Pooled_c;
    COM_ADDREF(pEnded, OWNERS);
    FailedConditions([&] { pEnded->~Pooled_c(); });   // which complains of the reference
    auto * const pDead = new Object_c;
    COM_ADDREF(pDead, OWNERS);
    COM_RELEASE(pDead, OWNERS);

    for (auto const & [szWhat, pAny, szCondition] : Rows_t<char const *, void const *, char const *>{
             { "null", nullptr, UNREADABLE }, { "small", reinterpret_cast<void *>(16), UNREADABLE },
             { "unmapped", pPage + plat::MEMORY_PAGE, UNREADABLE },
             { "runs out of its page", pPage + plat::MEMORY_PAGE - 8, UNREADABLE },
             { "beside a held object", pPage + 256, NO_SIGNATURE }, { "text", OWNERS, NO_SIGNATURE },
             { "deleted", pDead, NO_SIGNATURE }, { "ended while referenced", pEnded, "iRefCount > 0" } })
    {
        EXPECT_THAT(
            FailedConditions([pAny = pAny] { EXPECT_FALSE(ReleaseAnything(pAny)); }), testing::StartsWith(szCondition))
            << szWhat;
    }
    EXPECT_TRUE(COM_RELEASE(pInPage, OWNERS));
    ReleasePage(pPage);
    EXPECT_EQ(FailedConditions([&] { ReleaseAnything(pPage); }), UNREADABLE) << "gone with its page";
}

TEST(ComObject, LedgerTouchesItsMemoryAsItIsUsedAndEndsAtItsLimit)
{
    auto const UseAll = []
    {
        Pooled_c Object;
        long const nStart = ResidentPages();
        int const nFree = ComObject_c::GetFreeReferences();
        long const nTouched = ResidentPages() - nStart;
        for (int i = 0; i < COM_REFERENCES; ++i)
        {
            COM_ADDREF(&Object, OWNERS);
        }
        std::string const sFailed = FailedConditions([&] { COM_ADDREF(&Object, OWNERS + 1); });
        int const nLeft = ComObject_c::GetFreeReferences();
        for (int i = 0; i <= COM_REFERENCES; ++i)
        {
            COM_RELEASE(&Object, i == 0 ? nullptr : OWNERS);   // first the one without a note
        }
        std::fprintf(stderr, "%i free, %i left, %s; %i free; %li pages", nFree, nLeft, sFailed.c_str(),
            ComObject_c::GetFreeReferences(), nTouched);
        std::_Exit(nTouched < COM_REFERENCES * long{ sizeof(ComDebug_t) } / long{ plat::MEMORY_PAGE } / 8 ? 0 : 1);
    };
    // UseAll runs in a process of its own, in which no note was used before.
    EXPECT_EXIT(UseAll(), testing::ExitedWithCode(0),
        Va("^%i free, 0 left, m_pEmptyList; %i free", COM_REFERENCES, COM_REFERENCES));
}
