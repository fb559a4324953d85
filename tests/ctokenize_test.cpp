#include "tests/test_support.h"
#include "zqcore/ctokenize.h"

namespace
{
    // Returns the pieces of a text, each followed by a bar.
    template <int GROW, typename SEPARATORS>
    std::string Pieces(char const * szText, SEPARATORS Separators)
    {
        Array_T<String_T<256>, GROW, 0> dPieces;
        Tokenize(szText, dPieces, Separators);
        std::string sJoined;
        std::for_each(
            dPieces.begin(), dPieces.end(), [&](char const * szPiece) { sJoined += std::string(szPiece) + '|'; });
        return sJoined;
    }
}

TEST(Tokenize, ReturnsThePiecesBetweenSeparators)
{
    std::string const sLong(300, 'x'), sCut = sLong.substr(0, 255) + '|';
    for (auto const & [szText, szSeparators, szExpected] :
        Rows_t<char const *, char const *, char const *>{ { "one two", " ", "one|two|" },
            { "  a,, b ,c", " ,", "a|b|c|" }, { "a b", nullptr, "a|b|" }, { "", " ", "" }, { ",,,", ",", "" },
            { "no separator", "", "no separator|" }, { "x;", ";", "x|" }, { sLong.c_str(), " ", sCut.c_str() } })
    {
        EXPECT_EQ(Pieces<10>(szText, szSeparators), szExpected) << szText;
        EXPECT_EQ(Pieces<1024>(szText, szSeparators), szExpected) << szText;
    }
    EXPECT_EQ(Pieces<10>(";a;;bc;", ';'), "a|bc|");
    EXPECT_EQ(Pieces<1024>("d;e", ';'), "d|e|");

    Array_T<String_T<256>, 10, 0> dPieces;
    dPieces.Add(String_T<256>("1,2,3,4,5,6,7,8,9,10,11,12"));
    Tokenize(dPieces[0], dPieces, ",");   // the array grows while its own element is split
    ASSERT_EQ(dPieces.GetLength(), 13);
    EXPECT_STREQ(dPieces[12], "12");
}
