#include "tests/test_support.h"
#include "zqcore/ctextparser.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <tuple>

using namespace std::string_literals;

namespace
{
    /// A copy in a block of exactly its size, so that an address check sees a read behind it.
    std::unique_ptr<char[]> Block(std::string const & sText)
    {
        std::unique_ptr<char[]> pBytes(new char[sText.size()]);
        sText.copy(pBytes.get(), sText.size());
        return pBytes;
    }

    std::string Token(SimpleTextParser_c const & Parser)
    {
        std::ostringstream Out;
        Parser.IsWord()     ? Out << "w:" << Parser.GetWord()
        : Parser.IsString() ? Out << "s:" << Parser.GetString()
        : Parser.IsNumber() ? Out << "n:" << Parser.GetNumber()
                            : Out << "y:" << Parser.GetSymbol();
        return Out.str();
    }

    /// All tokens of an open parser, each followed by a bar.
    std::string Tokens(SimpleTextParser_c & Parser)
    {
        std::string sAll;
        while (Parser.ParseNext())
        {
            EXPECT_EQ(Parser.IsWord() + Parser.IsString() + Parser.IsNumber() + Parser.IsSymbol(), 1);
            sAll += Token(Parser) + "|";
        }
        EXPECT_FALSE(Parser.ParseNext()) << "the end stays the end";
        EXPECT_FALSE(Parser.IsWord() || Parser.IsString() || Parser.IsNumber() || Parser.IsSymbol());
        return sAll;
    }

    struct Rule_s
    {
        int iFirst, iLast;
        CharacterParsingRule_e eRule;
    };

    struct Row_s
    {
        std::string sText, sTokens;
        std::vector<Rule_s> dRules = {};
    };
}

TEST(TextParser, SplitsATextAlikeHoweverItIsOpened)
{
    constexpr auto NO_RULE = static_cast<CharacterParsingRule_e>(0);
    Row_s const dRows[] = {
        { "one two_2 _x3", "w:one|w:two_2|w:_x3|" },
        { "a=b;", "w:a|y:=|w:b|y:;|" },
        { "12 +3.5 -4", "n:12|n:3.5|n:-4|" },
        { "1-2 1.2.3 + 7up 1e3", "n:1|n:-2|n:1.2|n:0|n:7|w:up|n:1|w:e3|" },
        { R"("a b" "" """" "x""y" "line
end")",
            "s:a b|s:|s:\"|s:x\"y|s:line\nend|" },
        { R"(ab"c d" "open)", R"(w:ab|s:c d|s:open|)" },
        { "\"ends in two\"\"", "s:ends in two\"|" },
        { " \t\r\n\x01", "" },
        { ".5 \xE9\xFF{", "y:.|n:5|y:\xE9|y:\xFF|y:{|" },
        { "a\0b \"c\0d\""s, "w:a|w:b|s:c|" },
        { "+", "n:0|" },
        { "ab", "y:a|w:b|", { { 'a', 'a', PARSING_RULE_SYMBOL } } },
        { "xa5a", "w:x|y:a|n:5|y:a|", { { 'a', 'a', PARSING_RULE_SYMBOL } } },
        { "a.b-c", "w:a.b-c|", { { '.', '.', PARSING_RULE_WORD_REST }, { '-', '-', PARSING_RULE_WORD_REST } } },
        { "-a 7", "w:-a|w:7|", { { '-', '9', PARSING_RULE_WORD_FIRST } } },
        { "'a\"b' c'", "s:a|w:b|s: c|", { { '\'', '\'', PARSING_RULE_STRING } } },
        { "'a''b\"'c'", "s:a'b'c|", { { '\'', '\'', PARSING_RULE_STRING } } },
        { "xay a", "w:xay|s:|", { { 'a', 'a', PARSING_RULE_STRING } } },
        { "x1 1x", "n:0|n:1|n:0|",
            { { 'x', 'x', PARSING_RULE_NUMBER_FIRST }, { 'x', 'x', PARSING_RULE_WORD_FIRST },
                { 'x', 'x', PARSING_RULE_NUMBER_FIRST } } },
        { "1e3x", "n:1000|w:x|", { { 'e', 'e', PARSING_RULE_NUMBER_REST } } },
        { "a,b;", "w:a|w:b|y:;|", { { ',', ',', PARSING_RULE_SEPARATOR } } },
        { "aba", "w:ba|", { { 'a', 'a', PARSING_RULE_SEPARATOR } } },
        { "\xE4\xFF.", "w:\xE4|w:\xFF|y:.|", { { '\x80', -1, PARSING_RULE_WORD_FIRST } } },
        { "za", "w:za|", { { 'z', 'a', PARSING_RULE_SYMBOL } } },
        { "a b", "w:a|w:b|", { { 0, 255, NO_RULE }, { 0, 255, static_cast<CharacterParsingRule_e>(8) } } },
    };
    for (Row_s const & row : dRows)
    {
        SCOPED_TRACE(row.sText);
        LogCapture_c Log;
        SimpleTextParser_c Parser;
        for (Rule_s const & Rule : row.dRules)
        {
            Parser.SetCharacterRule(static_cast<char>(Rule.iFirst), static_cast<char>(Rule.iLast), Rule.eRule);
        }
        EXPECT_EQ(Log.Count("SimpleTextParser_c::SetCharacterRule : unknown rule."),
            !row.dRules.empty() && row.dRules[0].eRule == NO_RULE ? 2 : 0);
        auto const pText = Block(row.sText);
        ASSERT_TRUE(Parser.Open(pText.get(), static_cast<int>(row.sText.size())));
        EXPECT_EQ(Tokens(Parser), row.sTokens);
        Parser.Close();
        ASSERT_TRUE(Parser.Open(pText.get(), pText.get() + row.sText.size())) << "the rules outlive Close";
        EXPECT_EQ(Tokens(Parser), row.sTokens);
    }
}

TEST(TextParser, ClassifiesEachByteByDefault)
{
    for (int i = 0; i <= 0xFF; ++i)
    {
        SimpleTextParser_c Parser;
        auto const c = static_cast<char>(i);
        bool const bLetter = (i >= 'A' && i <= 'Z') || (i >= 'a' && i <= 'z') || i == '_';
        bool const bNumber = (i >= '0' && i <= '9') || i == '+' || i == '-';
        ASSERT_TRUE(Parser.Open(&c, 1));
        EXPECT_EQ(Parser.ParseNext(), i > ' ') << i;
        EXPECT_EQ(Parser.IsWord(), bLetter) << i;
        EXPECT_EQ(Parser.IsNumber(), bNumber) << i;
        EXPECT_EQ(Parser.IsString(), i == '"') << i;
        EXPECT_EQ(Parser.IsSymbol(), i > ' ' && !bLetter && !bNumber && i != '"') << i;
    }
}

TEST(TextParser, CutsATokenThatItsBufferDoesNotHoldAndStandsBehindIt)
{
    std::tuple<char const *, char, std::size_t, std::string> const dRows[] = {
        { "", 'w', 511, "SimpleTextParser_c::ParseWord : word buffer overflow.\n" },
        { "\"", 's', 24575, "SimpleTextParser_c::ParseString : string buffer overflow.\n" },
        { "", '0', 127, "SimpleTextParser_c::ParseNumber : number buffer overflow.\n" },
    };
    for (auto const & [szQuote, cFill, nRoom, sMessage] : dRows)
    {
        for (std::size_t nMore : { 0u, 1u, 1000u })
        {
            LogCapture_c Log;
            std::string const sKept = std::string(nRoom - 1, cFill) + "7";
            std::string const sText = szQuote + sKept + std::string(nMore, '5') + szQuote + ";";
            auto const pText = Block(sText);
            SimpleTextParser_c Parser;
            ASSERT_TRUE(Parser.Open(pText.get(), static_cast<int>(sText.size())) && Parser.ParseNext());
            EXPECT_EQ(Token(Parser).substr(2), Parser.IsNumber() ? "7" : sKept);
            EXPECT_EQ(Log.GetText(), nMore > 0 ? sMessage : "");
            EXPECT_EQ(Tokens(Parser), "y:;|");
        }
    }
}

TEST(TextParser, RefusesWhatItCannotReadAndKeepsTheLastTokenOfEachKind)
{
    auto const Kept = [](SimpleTextParser_c const & Parser)
    {
        return std::string(Parser.GetWord()) + " " + Parser.GetString() + " " + std::to_string(Parser.GetNumber()) + " "
               + std::to_string(Parser.GetSymbol());
    };
    LogCapture_c Log;
    SimpleTextParser_c Parser;
    char const szText[] = "word \"text\" 2.5 ;";
    EXPECT_FALSE(Parser.ParseNext());
    EXPECT_FALSE(Parser.Open(nullptr, szText) || Parser.Open(szText, szText));
    EXPECT_FALSE(Parser.Open(szText, 0) || Parser.Open(nullptr, 0) || Parser.Open(nullptr, 1));
    EXPECT_EQ(Kept(Parser), "  0.000000 0");
    EXPECT_TRUE(Parser.Open(szText, 17) && Parser.ParseNext());
    EXPECT_FALSE(Parser.Open(szText, szText + 1) || Parser.Open(szText, 1));
    EXPECT_EQ(Tokens(Parser), "s:text|n:2.5|y:;|") << "the first text stays";
    EXPECT_EQ(Kept(Parser), "word text 2.500000 59");
    Parser.Close();
    EXPECT_EQ(Kept(Parser), "  0.000000 0");
    EXPECT_EQ(Log.GetText(), "SimpleTextParser_c::ParseNext : text wasn't opened.\n"
                             "SimpleTextParser_c::Open( const char *, const char *) : bad ptr\n"
                             "SimpleTextParser_c::Open( const char *, const char *) : bad ptr\n"
                             "SimpleTextParser_c::Open( const char *, int ) : bad length.\n"
                             "SimpleTextParser_c::Open( const char *, int ) : bad length.\n"
                             "SimpleTextParser_c::Open( const char *, int ) : bad ptr.\n"
                             "SimpleTextParser_c::Open : reentry. Was opened yet.\n"
                             "SimpleTextParser_c::Open( const char *, int ) : reentry. Was opened yet.\n");
}

TEST(TextParser, ACharacterSetHoldsWhatWasAddedAndNotRemoved)
{
    CharacterSet_c Set;
    Set.AddChar(10, 20);
    Set.AddChar(9, 8);
    Set.RemoveChar(15);
    Set.RemoveChar(18, 255);
    std::string sHeld;
    for (int i = 0; i <= 255; ++i)
    {
        sHeld += Set.IsHere(static_cast<unsigned char>(i)) ? std::to_string(i) + " " : "";
    }
    EXPECT_EQ(sHeld, "10 11 12 13 14 16 17 ");
}
