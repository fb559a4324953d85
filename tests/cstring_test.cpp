#include "tests/test_support.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <unordered_set>

static_assert(sizeof(String_T<8>) == 8 && String_T<8>::Capacity() == 8);

TEST(String, SubStrCountsFromBothEnds)
{
    for (auto const & [iStart, iCount, szExpected] :
        Rows_t<int, int, char const *>{ { -3, 1000, "def" }, { 1, -1, "bcde" }, { 4, 10, "ef" }, { -9, 2, "ab" },
            { 9, 2, "" }, { 3, -5, "" }, { 2, 0, "" }, { 0, INT_MAX, "abcdef" }, { INT_MIN, INT_MIN, "" } })
    {
        String_T<16> const s("abcdef");
        EXPECT_STREQ(s.SubStr(iStart, iCount), szExpected) << iStart << ' ' << iCount;
    }
    EXPECT_STREQ(String_T<16>("abcdef").SubStr(-3), "def");
}

TEST(String, ComparesWithAndWithoutRegardToCaseAndConvertsIt)
{
    String_T<16> s("abcdef");
    EXPECT_EACH(s.Begins("ABC"), s.Ends("DEF"), s.Begins(""), s.Ends(""));
    EXPECT_EACH(!s.Begins("abcdefg"), !s.Ends("zabcdef"), !s.Ends("abc"));
    EXPECT_EACH(s == "abcdef", s != "ABCDEF", s == String_T<16>(s));
    EXPECT_EQ(s.StrPos("CD"), -1);
    s = "mIxEd \xC4";   // a byte above ASCII is unchanged
    s.ToUpper();
    EXPECT_STREQ(s, "MIXED \xC4");
    s.ToLower();
    EXPECT_STREQ(s, "mixed \xC4");
    EXPECT_LT(StrCompareNoCase("ABc", "abD"), 0);
    EXPECT_EQ(StrCompareNoCase("ABc", "abD", 2), 0);
}

TEST(String, IsComparedOrderedAndHashedByItsText)
{
    using Text_t = String_T<8>;
    std::vector<Text_t> dTexts{ "b", "aa", "\xC4", "a" };   // a byte above ASCII comes last
    std::sort(dTexts.begin(), dTexts.end());
    EXPECT_EQ(dTexts, (std::vector<Text_t>{ "a", "aa", "b", "\xC4" }));
    EXPECT_EQ((std::set<Text_t>{ "a", "b", "a" }.size()), 2u);
    EXPECT_EQ((std::unordered_set<Text_t>{ "a", "b", "a" }.size()), 2u);
    Text_t const s("b");
    String_T<16> const sLonger("b");
    EXPECT_EACH(s == sLonger, !(s != sLonger), s <= sLonger, s < String_T<16>("c"), String_T<16>("a") < s);
    EXPECT_EACH("b" == s, "c" != s, s > "a", "a" < s, s <= "b");
}

TEST(String, MeetsStandardTexts)
{
    using namespace std::literals;
    String_T<8> s("abc");
    std::string_view const sView = s;
    std::string const sCopy(s);
    auto const fnLength = [](std::string_view sText) { return sText.size(); };
    EXPECT_EACH(sView == "abc", sCopy == "abc", fnLength(s) == 3, static_cast<std::string_view>(s) == sView);
    EXPECT_EACH(s == "abc"sv, s == sCopy, "abc"s == s, s < "abd"sv, "abb"s < s, s != "ab"sv);
    EXPECT_EQ(std::count_if(s.begin(), s.end(), [](char c) { return c >= 'b'; }), 2);
    s = std::string_view(s).substr(1);   // a part of itself
    EXPECT_STREQ(s, "bc");
    s += sCopy + "defgh";
    EXPECT_STREQ(s, "bcabcde");
    EXPECT_STREQ(String_T<4>(s) + s, "bca");
    s = String_T<16>("x\0y"sv) + String_T<3>("zz") + std::string_view();
    EXPECT_STREQ(s, "xzz");
    std::ostringstream Stream;
    Stream << s << s.CStr();
    EXPECT_EQ(Stream.str(), "xzzxzz");
}

TEST(String, BehavesLikeAStandardStringThatIsCut)
{
    EXPECT_STREQ(String_T<8>("abcde") + "fghij", "abcdefg");
    EXPECT_EQ(String_T<8>("aaa").StrLastPos("aa"), 1);
    constexpr std::size_t MAX_LENGTH = 11;
    std::mt19937 Random(1);
    String_T<MAX_LENGTH + 1> Tested;
    std::string sModel;
    for (int iStep = 0; iStep < 20000; ++iStep)
    {
        std::string sText(Random() % 7, 'a');
        std::generate(sText.begin(), sText.end(), [&] { return static_cast<char>('a' + Random() % 2); });
        int const iArgument = static_cast<int>(Random() % 16) - 2;
        auto const nFrom = static_cast<std::size_t>(std::clamp(iArgument, 0, Tested.Length()));
        switch (Random() % 6)
        {
        case 0:
            Tested = sText.c_str();
            sModel = sText;
            break;
        case 1:
            Tested += sText.c_str();
            sModel += sText;
            break;
        case 2:
            Tested.Chop(iArgument);
            sModel.resize(sModel.size() - std::min(sModel.size(), std::size_t(std::max(iArgument, 1))));
            break;
        case 3:
            Tested = static_cast<char const *>(Tested) + nFrom;   // a tail of itself
            sModel.erase(0, nFrom);
            break;
        case 4:
            Tested += Tested;
            sModel += sModel;
            break;
        default:
            ASSERT_EQ(Tested.StrPos(sText.c_str(), iArgument), static_cast<int>(sModel.find(sText, nFrom)))
                << sModel << ' ' << sText;
            ASSERT_EQ(Tested.StrLastPos(sText.c_str()), static_cast<int>(sModel.rfind(sText)))
                << sModel << ' ' << sText;
        }
        sModel.resize(std::min(sModel.size(), MAX_LENGTH));
        ASSERT_STREQ(Tested, sModel.c_str());
        ASSERT_EQ(Tested.Length(), static_cast<int>(sModel.size()));
    }
}

TEST(String, FormatsIntoAValueAndIntoSixteenSharedBuffers)
{
    EXPECT_STREQ(NewString("%s-%03i", "a", 7), "a-007");
    EXPECT_EQ(NewString("%300i", 1).Length(), 255);
    char const * volatile szNone = nullptr;
    EXPECT_EQ(FailedConditions([&] { EXPECT_TRUE(NewString(szNone).IsEmpty()); }), "sFmt");
    EXPECT_EQ(std::strlen(Va("%5000i", 1)), 4095u);
    char const * dTexts[17];
    std::generate(dTexts, dTexts + 17, [i = 0]() mutable { return Va("%i", i++); });
    EXPECT_STREQ(dTexts[1], "1");
    EXPECT_STREQ(dTexts[0], "16");   // the 17th text is in the first one's buffer
}

TEST(String, AssertsThatTextsAreNotNullExceptInAnAssignment)
{
    char const * const szNull = nullptr;
    String_T<8> s("x");
    EXPECT_EQ(FailedConditions([&] { String_T<8>{ szNull }; }), "sTxt");
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(s == szNull); }), "sTxt != nullptr");
    EXPECT_EQ(FailedConditions([&] { EXPECT_TRUE(s != szNull); }), "sTxt != nullptr");
    EXPECT_EQ(FailedConditions([&] { EXPECT_STREQ(s += szNull, "x"); }), "sTxt != nullptr");
    EXPECT_EQ(FailedConditions([&] { EXPECT_EACH(s.StrPos(szNull) == -1, s.StrLastPos(szNull) == -1); }),
        "sNeedle != nullptr & sNeedle != nullptr");
    EXPECT_EQ(FailedConditions([&] { EXPECT_EACH(!s.Begins(szNull), !s.Ends(szNull)); }),
        "sPrefix != nullptr & sPrefix != nullptr");
    s = nullptr;
    EXPECT_TRUE(s.IsEmpty());
}
