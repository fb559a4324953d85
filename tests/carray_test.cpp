#include "tests/test_support.h"
#include "zqcore/carray.h"
#include "zqcore/clink.h"
#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

#include <numeric>
#include <random>
#include <span>

namespace
{
    using testing::ElementsAre;

    template <typename ARRAY, typename T>
    void Fill(ARRAY & dArray, std::vector<T> const & dElements)
    {
        std::for_each(dElements.begin(), dElements.end(), [&](T const & Element) { dArray.Add(Element); });
    }

    constexpr int MAX_ELEMENTS = 40;
    constexpr int VARIANTS = 30;   // different elements

    template <typename T>
    using Inline_T = SortedArray_T<T, StaticArrayLenTraits_T<T, MAX_ELEMENTS>>;

    // Adds, deletes, sorts and empties at random. Compares the array and its search with a vector after each step.
    // fnMake(i) makes an element.
    template <typename T, typename ARRAY, typename MAKE>
    void CompareWithVector(MAKE fnMake)
    {
        ARRAY dArray;
        std::vector<T> dModel;
        std::mt19937 Random(4);
        for (int iStep = 0; iStep < 5000; ++iStep)
        {
            T const Element = fnMake(static_cast<int>(Random() % VARIANTS));
            auto const iOperation = Random() % 100;
            if (iOperation < 60 && dModel.size() < MAX_ELEMENTS)
            {
                ASSERT_EQ(dArray.Add(Element), static_cast<int>(dModel.size())) << "step " << iStep;
                dModel.push_back(Element);
            }
            else if (iOperation < 90 && !dModel.empty())
            {
                auto const i = static_cast<std::ptrdiff_t>(Random() % dModel.size());
                dArray.Delete(static_cast<int>(i));
                dModel.erase(dModel.begin() + i);
            }
            else if (iOperation < 98)
            {
                dArray.Sort([](T const & a, T const & b) { return a < b ? -1 : b < a; }, 0, -1);
                std::sort(dModel.rbegin(), dModel.rend());
            }
            else
            {
                dArray.Reset();
                dModel.clear();
            }
            ASSERT_EQ(std::vector<T>(dArray.begin(), dArray.end()), dModel) << "step " << iStep;
            auto const itFound = std::find(dModel.begin(), dModel.end(), Element);
            ASSERT_EQ(
                dArray.Find(Element), itFound == dModel.end() ? nullptr : dArray.begin() + (itFound - dModel.begin()))
                << "step " << iStep;
        }
    }
}

TEST(Array, BehavesLikeAVectorOverRandomOperations)
{
    static char s_dBytes[VARIANTS];
    auto const MakeText = [](int i) { return std::string(static_cast<std::size_t>(i), 'x'); };
    CompareWithVector<std::string, Array_T<std::string, 3, 0>>(MakeText);
    CompareWithVector<std::string, Inline_T<std::string>>(MakeText);
    CompareWithVector<char *, Array_T<char *, 32, 0>>([](int i) { return s_dBytes + i; });
}

TEST(Array, CapacityDoublesBeforeTheLengthReachesIt)
{
    Array_T<int, 64, 0> dArray;
    for (int i = 1; i <= 300; ++i)
    {
        dArray.Add(dArray.IsEmpty() ? 7 : dArray[0]);   // an element of its own, which growing moves
        EXPECT_EQ(dArray.GetCapacity(), i < 64 ? 64 : i < 128 ? 128 : i < 256 ? 256 : 512) << i;
    }
    EXPECT_EQ(std::count(dArray.begin(), dArray.end(), 7), 300);
    dArray.Reset();
    EXPECT_EQ(dArray.GetCapacity(), 0);
}

TEST(Array, MovesItsStorageAndIsARange)
{
    using Array_t = Array_T<std::string, 3, 0>;
    static_assert(std::ranges::contiguous_range<Array_t> && std::ranges::contiguous_range<StaticArray_T<int, 3> const>);
    static_assert(std::ranges::contiguous_range<Inline_T<int>> && std::ranges::contiguous_range<String_T<8>>);
    static_assert(std::is_same_v<decltype(std::span(std::declval<Array_t &>())), std::span<std::string>>);
    static_assert(std::is_nothrow_move_constructible_v<Array_t> && !std::is_copy_constructible_v<Array_t>);
    Array_t dFirst, dSecond;
    Fill(dFirst, std::vector<std::string>{ "a", "b" });
    Fill(dSecond, std::vector<std::string>{ "c" });
    std::string const * const pElement = &dFirst[1];
    dSecond = std::move(dFirst);
    EXPECT_EACH(
        dSecond.Find("b") == pElement, dFirst.IsEmpty(), dFirst.GetCapacity() == 0);   // NOLINT(*use-after-move)
    dFirst.Add("d");
    std::swap(dFirst, dSecond);
    std::span<std::string const> const dSpan = dFirst;
    EXPECT_THAT(dSpan, ElementsAre("a", "b"));
    EXPECT_THAT(dSecond, ElementsAre("d"));
    StaticArray_T<int, 3> dFixed;
    std::iota(dFixed.begin(), dFixed.end(), 1);
    EXPECT_EQ(dFixed[2], 3);
}

TEST(Array, StatesItsPreconditions)
{
    Array_T<int, 4, 0> dArray;
    dArray.Add(1);
    EXPECT_EQ(FailedConditions([&] { dArray[1] = 2; }), "index>=0 && index<iLength");
    for (int const iAbsent : { 1, -1 })
    {
        EXPECT_EQ(FailedConditions([&] { dArray.Delete(iAbsent); }), "index >= 0 && index < iLength");
        EXPECT_THAT(std::span(dArray.begin(), dArray.end()), ElementsAre(1));
    }
    dArray.Delete(0);
    EXPECT_EQ(FailedConditions([&] { dArray.Delete(0); }), "index >= 0 && index < iLength");
    EXPECT_EQ(dArray.Add(7), 0) << "the failed deletion changed no length";
    SortedArray_T<int, StaticArrayLenTraits_T<int, 2>> dFull;
    auto const AddThree = [&] { Fill(dFull, std::vector{ 1, 2, 3 }); };
    EXPECT_EQ(FailedConditions(AddThree), "iAccessIndex >= 0 && iAccessIndex <= LENGTH");
    EXPECT_THAT(std::span(dFull.begin(), dFull.end()), ElementsAre(1, 3));
}

TEST(Array, AnIndexBeyondAStaticOneEndsASilentProcess)
{
    auto const Overrun = []
    {
        LogToStandardError();
        g_silentMode = true;   // ends the process before the element is reached
        StaticArray_T<int, 3> dStatic;
        int volatile iLast = 2;   // the compiler must not know where this ends
        dStatic[iLast] = 1;
        dStatic[iLast + 1] = 1;
    };
    EXPECT_EXIT(Overrun(), testing::ExitedWithCode(1), "Assert failed, \\(nIndex>=0\\) && \\(nIndex<iLength\\), ");
}

// The numbers compare by their tens. The order of equal ones is the one that results from the algorithm.
TEST(Sort, PutsTheGreatestFirstBetweenItsBounds)
{
    using Numbers_t = std::vector<int>;
    for (auto const & [dInput, iStart, iEnd, dExpected] : Rows_t<Numbers_t, int, int, Numbers_t>{
             { { 10, 20, 30 }, 0, -1, { 30, 20, 10 } }, { {}, 0, -1, {} }, { { 20, 10 }, 0, 1, { 20, 10 } },
             { { 10, 20, 30, 40 }, 1, 2, { 10, 30, 20, 40 } }, { { 10, 20, 30, 40 }, -2, -1, { 10, 20, 40, 30 } },
             { { 10, 20, 30 }, 1, 1, { 10, 20, 30 } }, { { 70 }, 5, -9, { 70 } },
             { { 10, 11, 12, 13 }, 0, -1, { 12, 13, 10, 11 } }, { { 10, 20, 11, 21 }, 0, -1, { 21, 20, 10, 11 } },
             { { 10, 20, 11, 21, 12, 22 }, 0, -1, { 21, 20, 22, 12, 10, 11 } } })
    {
        Array_T<int, 8, 0> dArray;
        Fill(dArray, dInput);
        auto const Sort = [&, iFrom = iStart, iTo = iEnd]
        { dArray.Sort([](int a, int b) { return a / 10 - b / 10; }, iFrom, iTo); };
        EXPECT_EQ(FailedConditions(Sort), "") << testing::PrintToString(dInput);
        EXPECT_EQ(Numbers_t(dArray.begin(), dArray.end()), dExpected);
    }
}

TEST(Sort, NamesTheArraysTypeWhenItsBoundsAreWrong)
{
    Array_T<Module_c *, 64, 0> dModules;
    Array_T<String_T<256>, 10, 0> dTexts;
    Fill(dModules, std::vector<Module_c *>(4));
    Fill(dTexts, std::vector<String_T<256>>(2));
    auto const Equal = [](auto const &, auto const &) { return 0; };
    LogCapture_c const Log;
    DialogScript_c const Ignore;
    dModules.Sort(Equal, 3, 1);
    dModules.Sort(Equal, -1, -4);
    dTexts.Sort(Equal, 0, 2);
    std::string const sModules = "SortedArray_T<class Module_c *,class ArrayTraits_T<class Module_c *,64,0> >::Sort: ";
    EXPECT_EQ(
        Log.GetText(), sModules + "start=3 end=1 len=4\n" + sModules + "start=-1 end=-4 len=4\n"
                           + "SortedArray_T<class String_T<256>,class ArrayTraits_T<class String_T<256>,10,0> >::Sort: "
                             "start=0 end=2 len=2\n");
}

TEST(Sort, StaysInBoundsUnderAComparatorThatContradictsItself)
{
    std::mt19937 Random(5);
    for (int iRound = 0; iRound < 300; ++iRound)
    {
        std::vector<int> dValues(Random() % 60);
        std::iota(dValues.begin(), dValues.end(), 0);
        Array_T<int, 1, 0> dArray;
        Fill(dArray, dValues);
        dArray.Sort([&](int, int) { return iRound % 3 == 0 ? 1 : static_cast<int>(Random() % 3) - 1; }, 0, -1);
        ASSERT_TRUE(std::is_permutation(dArray.begin(), dArray.end(), dValues.begin(), dValues.end())) << iRound;
    }
}

TEST(Link, ListGrowsAtItsHeadAndLosesAnyNode)
{
    using Node_t = Link_T<int>;
    Node_t *pHead = nullptr, *dNodes[4];
    std::ptrdiff_t const nBlocks = MemoryTotalAllocations();
    for (int i = 0; i < 4; ++i)
    {
        pHead = dNodes[i] = (ZQ_NEW Node_t(i))->Link(pHead);
    }
    for (auto const & [iNode, szLeft] : { std::pair{ 2, "310" }, { 3, "10" }, { 0, "1" } })   // middle, head, tail
    {
        pHead = dNodes[iNode]->Unlink(pHead);
        delete dNodes[iNode];
        std::string sText;
        Node_t const * pLast = nullptr;
        for (Node_t const * pNode = pHead; pNode; pNode = pNode->pNext)
        {
            EXPECT_EQ(pNode->pPrev, pLast);
            sText += std::to_string(pNode->Get());
            pLast = pNode;
        }
        EXPECT_EQ(sText, szLeft);
    }
    LinkFreeAll(pHead);
    EXPECT_EQ(MemoryTotalAllocations(), nBlocks);
}
