#include "tests/test_support.h"
#include "zqcore/ctextparser.h"

#include <sstream>

using namespace std::string_literals;

namespace
{
    // Returns the last token after a letter for its kind: w for word, s for string, n for number, y for symbol. Returns
    // "." if there is none.
    std::string Token(SimpleTextParser_c const & Parser)
    {
        std::ostringstream Number;
        Number << Parser.GetNumber();
        return Parser.IsWord()     ? "w:"s + Parser.GetWord()
               : Parser.IsString() ? "s:"s + Parser.GetString()
               : Parser.IsNumber() ? "n:" + Number.str()
               : Parser.IsSymbol() ? "y:"s + Parser.GetSymbol()
                                   : ".";
    }

    // Returns the letters of all kinds that the parser reports for the last token.
    std::string Kinds(SimpleTextParser_c const & Parser)
    {
        return (Parser.IsWord() ? "w"s : "") + (Parser.IsString() ? "s" : "") + (Parser.IsNumber() ? "n" : "")
               + (Parser.IsSymbol() ? "y" : "");
    }

    // Reads the remaining tokens of an open parser. Returns them, each followed by a bar.
    std::string ReadTokens(SimpleTextParser_c & Parser)
    {
        std::string sAll;
        while (Parser.ParseNext())
        {
            EXPECT_EQ(Kinds(Parser), Token(Parser).substr(0, 1)) << "one kind alone";
            sAll += Token(Parser) + "|";
        }
        EXPECT_FALSE(Parser.ParseNext()) << "the end stays the end";
        EXPECT_EQ(Token(Parser), ".");
        return sAll;
    }

    // Role of the characters from iFirst to iLast.
    struct Rule_s
    {
        int iFirst, iLast;
        CharacterParsingRule_e eRule;
    };
}

TEST(TextParser, SplitsATextAlikeHoweverItIsOpened)
{
    struct Row_s
    {
        std::string sText, sTokens;
        std::vector<Rule_s> dRules = {};
        std::string sLog = "";
    };
    // Texts of the lengths that the parser's buffers hold, and digits that have no room there.
    std::string const sWord(SimpleTextParser_c::WORD_SIZE - 1, 'w'), sString(SimpleTextParser_c::STRING_SIZE - 1, 's'),
        sNumber = std::string(SimpleTextParser_c::NUMBER_SIZE - 2, '0') + "7", sMore(1000, '5');
    std::string const sKept = "w:" + sWord + "|s:" + sString + "|n:7|y:;|";
    std::string const sCut = "SimpleTextParser_c::ParseWord : word buffer overflow.\n"
                             "SimpleTextParser_c::ParseString : string buffer overflow.\n"
                             "SimpleTextParser_c::ParseNumber : number buffer overflow.\n";
    std::string const sUnknown = "SimpleTextParser_c::SetCharacterRule : unknown rule.\n";
    Row_s const dRows[] = {
        { sWord + "\t\"" + sString + "\"" + sNumber + ";", sKept },
        { sWord + "5\t\"" + sString + "5\"" + sNumber + "5;", sKept, {}, sCut },
        { sWord + sMore + "\t\"" + sString + sMore + "\"" + sNumber + sMore + ";", sKept, {}, sCut },
        { "one two_2 _x3 a=b;", "w:one|w:two_2|w:_x3|w:a|y:=|w:b|y:;|" },
        { "12 +3.5 -4 1-2 1.2.3 + 7up 1e3", "n:12|n:3.5|n:-4|n:1|n:-2|n:1.2|n:0|n:7|w:up|n:1|w:e3|" },
        { "\"a b\" \"\" \"\"\"\" \"x\"\"y\" \"line\nend\"", "s:a b|s:|s:\"|s:x\"y|s:line\nend|" },
        { R"(ab"c d" "open)", R"(w:ab|s:c d|s:open|)" },
        { "\"ends in two\"\"", "s:ends in two\"|" },
        { " \t\r\n\x01", "" },
        { ".5 \xE9\xFF{+", "y:.|n:5|y:\xE9|y:\xFF|y:{|n:0|" },
        { "a\0b \"c\0d\""s, "w:a|w:b|s:c|" },
        { "xa5a", "w:x|y:a|n:5|y:a|", { { 'a', 'a', PARSING_RULE_SYMBOL } } },
        { "1.5", "n:1|y:.|n:5|", { { '.', '.', PARSING_RULE_SYMBOL } } },
        { "a.b-c", "w:a.b-c|", { { '.', '.', PARSING_RULE_WORD_REST }, { '-', '-', PARSING_RULE_WORD_REST } } },
        { "-a 7", "w:-a|w:7|", { { '-', '9', PARSING_RULE_WORD_FIRST } } },
        { "'a\"b' c''d\"'e'", "s:a|w:b|s: c'd'e|", { { '\'', '\'', PARSING_RULE_STRING } } },
        { "xay a", "w:xay|s:|", { { 'a', 'a', PARSING_RULE_STRING } } },
        { "x1 1x", "n:0|n:1|n:0|",
            { { 'x', 'x', PARSING_RULE_NUMBER_FIRST }, { 'x', 'x', PARSING_RULE_WORD_FIRST },
                { 'x', 'x', PARSING_RULE_NUMBER_FIRST } } },
        { "1e3x", "n:1000|w:x|", { { 'e', 'e', PARSING_RULE_NUMBER_REST } } },
        { "a,bab;", "w:bab|y:;|", { { ',', ',', PARSING_RULE_SEPARATOR }, { 'a', 'a', PARSING_RULE_SEPARATOR } } },
        { "\xE4\xFF.", "w:\xE4|w:\xFF|y:.|", { { '\x80', -1, PARSING_RULE_WORD_FIRST } } },
        { "za", "w:za|", { { 'z', 'a', PARSING_RULE_SYMBOL } } },
        { "a b", "w:a|w:b|", { { 0, 255, CharacterParsingRule_e{} }, { 0, 255, CharacterParsingRule_e{ 8 } } },
            sUnknown + sUnknown },
    };
    for (Row_s const & Row : dRows)
    {
        SCOPED_TRACE(Row.sText.substr(0, 80));
        LogCapture_c Log;
        SimpleTextParser_c Parser;
        for (Rule_s const & Rule : Row.dRules)
        {
            Parser.SetCharacterRule(static_cast<char>(Rule.iFirst), static_cast<char>(Rule.iLast), Rule.eRule);
        }
        // A block of exactly the text's size, so that an address checker reports a read beyond it.
        std::vector<char> const dText(Row.sText.begin(), Row.sText.end());
        ASSERT_TRUE(Parser.Open(dText.data(), static_cast<int>(dText.size())));
        EXPECT_EQ(ReadTokens(Parser), Row.sTokens);
        EXPECT_EQ(Log.GetText(), Row.sLog);
        Parser.Close();
        ASSERT_TRUE(Parser.Open(dText.data(), dText.data() + dText.size())) << "the rules outlive Close";
        EXPECT_EQ(ReadTokens(Parser), Row.sTokens);
    }
}

TEST(TextParser, ClassifiesEachByteByDefault)
{
    std::string sKinds;
    for (int i = 0; i <= 0xFF; ++i)
    {
        SimpleTextParser_c Parser;
        auto const cText = static_cast<char>(i);
        EXPECT_TRUE(Parser.Open(&cText, 1)) << i;
        EXPECT_EQ(Parser.ParseNext(), i > ' ') << i;
        sKinds += Token(Parser)[0];
    }
    EXPECT_EQ(sKinds, std::string(33, '.') + "ysyyyyyyyynynyynnnnnnnnnnyyyyyyy" + std::string(26, 'w') + "yyyywy"
                          + std::string(26, 'w') + std::string(133, 'y'));
}

TEST(TextParser, RefusesWhatItCannotReadAndKeepsTheLastTokenOfEachKind)
{
    auto const Kept = [](SimpleTextParser_c const & Parser)
    {
        std::ostringstream Out;
        Out << Parser.GetWord() << ' ' << Parser.GetString() << ' ' << Parser.GetNumber() << ' ' << +Parser.GetSymbol();
        return Out.str();
    };
    LogCapture_c Log;
    SimpleTextParser_c Parser;
    char const szText[] = "word \"text\" 2.5 ;";
    constexpr int LENGTH = sizeof szText - 1;
    EXPECT_EACH(!Parser.ParseNext(), !Parser.Open(nullptr, szText), !Parser.Open(szText, szText),
        !Parser.Open(szText, 0), !Parser.Open(nullptr, 0), !Parser.Open(nullptr, 1));
    EXPECT_EQ(Kept(Parser), "  0 0");
    EXPECT_EACH(
        Parser.Open(szText, LENGTH), Parser.ParseNext(), !Parser.Open(szText, szText + 1), !Parser.Open(szText, 1));
    EXPECT_EQ(ReadTokens(Parser), "s:text|n:2.5|y:;|") << "the first text stays";
    EXPECT_EQ(Kept(Parser), "word text 2.5 59");
    Parser.Close();
    EXPECT_EQ(Kept(Parser), "  0 0");
    EXPECT_EACH(Parser.Open(szText, LENGTH), Parser.ParseNext());
    Parser.Close();
    EXPECT_EQ(Token(Parser), ".");
    EXPECT_FALSE(Parser.ParseNext());
    EXPECT_EQ(Log.GetText(), "SimpleTextParser_c::ParseNext : text wasn't opened.\n"
                             "SimpleTextParser_c::Open( const char *, const char *) : bad ptr\n"
                             "SimpleTextParser_c::Open( const char *, const char *) : bad ptr\n"
                             "SimpleTextParser_c::Open( const char *, int ) : bad length.\n"
                             "SimpleTextParser_c::Open( const char *, int ) : bad length.\n"
                             "SimpleTextParser_c::Open( const char *, int ) : bad ptr.\n"
                             "SimpleTextParser_c::Open : reentry. Was opened yet.\n"
                             "SimpleTextParser_c::Open( const char *, int ) : reentry. Was opened yet.\n"
                             "SimpleTextParser_c::ParseNext : text wasn't opened.\n");
}
