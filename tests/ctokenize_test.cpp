#include "zqcore/ctokenize.h"

#include <gtest/gtest.h>

namespace
{
    template <int GROW, typename SEPARATORS>
    std::string Pieces(char const * szText, SEPARATORS Separators)
    {
        Array_T<String_T<256>, GROW, 0> dPieces;
        Tokenize(szText, dPieces, Separators);
        std::string sJoined;
        for (char const * szPiece : dPieces)
        {
            sJoined += std::string(szPiece) + '|';
        }
        return sJoined;
    }
}

TEST(Tokenize, GivesThePiecesBetweenSeparators)
{
    struct Row_s
    {
        char const *szText, *szSeparators, *szExpected;
    };
    std::string const sLong(300, 'x');
    std::string const sCut = sLong.substr(0, 255) + '|';
    for (Row_s const & Row : { Row_s{ "one two", " ", "one|two|" }, { "  a,, b ,c", " ,", "a|b|c|" },
             { "a b", nullptr, "a|b|" }, { "", " ", "" }, { ",,,", ",", "" }, { "no separator", "", "no separator|" },
             { "x;", ";", "x|" }, { sLong.c_str(), " ", sCut.c_str() } })
    {
        EXPECT_EQ(Pieces<10>(Row.szText, Row.szSeparators), Row.szExpected);
        EXPECT_EQ(Pieces<1024>(Row.szText, Row.szSeparators), Row.szExpected);
        if (Row.szSeparators && std::strlen(Row.szSeparators) == 1)
        {
            EXPECT_EQ(Pieces<10>(Row.szText, Row.szSeparators[0]), Row.szExpected);
            EXPECT_EQ(Pieces<1024>(Row.szText, Row.szSeparators[0]), Row.szExpected);
        }
    }
}
