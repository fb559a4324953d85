#include "tests/media_fixture.h"
#include "zqcore/cscript.h"
#include "zqcore/cstring.h"

#include <cinttypes>
#include <map>
#include <memory>
#include <sstream>

using namespace std::string_literals;

namespace
{
    using Operation_t = std::string (*)(Script_c & Script, char * szBuffer, std::string sArgument);

    std::string Found(bool bFound)
    {
        return bFound ? "found" : "none";
    }

    // Steps are letters with their arguments, separated by bars. Each adds its outcome, if it has one:
    //   T, P         GetToken without and with punctuation: [token]
    //   W, V         GetSpecific, V to a String_T<4>: <word>
    //   L5           GetLine with a buffer of 5: {line}
    //   S'           GetString of at most 5 characters with the quote ': 'text'
    //   I, Iname     GetInt without and with a label: the number. F, Fname: GetFloat
    //   Kname        SkipToken
    //   @7           SetPosition
    //   wname, X, p, q   RewindAfterToken: w and p from here, X and q from the start; w and X whole tokens only
    //   D3           GetDump of three bytes from 3 on
    //   .            position:lines, and ! if m_bEndOfFile is set
#define OPERATION(...)                                                                                                 \
    [](Script_c & Script, [[maybe_unused]] char * sz, [[maybe_unused]] std::string s) { __VA_ARGS__; }
    std::map<char, Operation_t> const OPERATIONS = {
        { 'T', OPERATION(Script.GetToken(sz, false); return "["s + sz + "]") },
        { 'P', OPERATION(Script.GetToken(sz, true); return "["s + sz + "]") },
        { 'W', OPERATION(Script.GetSpecific(sz); return "<"s + sz + ">") },
        { 'V', OPERATION(String_T<4> sWord; Script.GetSpecific(sWord); return "<"s + sWord.CStr() + ">") },
        { 'L', OPERATION(Script.GetLine(sz, std::stoi(s)); return "{"s + sz + "}") },
        { 'S', OPERATION(Script.GetString(sz, 5, s[0]); return "'"s + sz + "'") },
        { 'I', OPERATION(return std::to_string(s.empty() ? Script.GetInt() : Script.GetInt(s.c_str()))) },
        { 'F', OPERATION(float const f = s.empty() ? Script.GetFloat() : Script.GetFloat(s.c_str());
                         return ""s + Va("%g", static_cast<double>(f))) },
        { 'K', OPERATION(Script.SkipToken(s.c_str()); return ""s) },
        { '@', OPERATION(Script.SetPosition(std::stoi(s)); return ""s) },
        { 'w', OPERATION(return Found(Script.RewindAfterToken(s.c_str(), false, true))) },
        { 'X', OPERATION(return Found(Script.RewindAfterToken(s.c_str(), true, true))) },
        { 'p', OPERATION(return Found(Script.RewindAfterToken(s.c_str(), false, false))) },
        { 'q', OPERATION(return Found(Script.RewindAfterToken(s.c_str(), true, false))) },
        { 'D', OPERATION(Script.GetDump(sz, std::stoi(s), std::stoi(s) + 3); return std::string(sz, 3)) },
        { '.', OPERATION(return std::to_string(Script.m_iBytesRead) + ":" + std::to_string(Script.m_iLines)
                                + (Script.m_bEndOfFile ? "!" : "")) },
    };
#undef OPERATION

    std::string Drive(Script_c & Script, std::string const & sSteps)
    {
        std::istringstream Steps(sSteps);
        std::string sStep, sAll;
        while (std::getline(Steps, sStep, '|'))
        {
            char szBuffer[1024] = "stale";
            std::string const sOutcome = OPERATIONS.at(sStep[0])(Script, szBuffer, sStep.substr(1));
            sAll += (sAll.empty() || sOutcome.empty() ? "" : " ") + sOutcome;
        }
        return sAll;
    }

    struct Row_s
    {
        std::string sText, sSteps, sOutcome;
        int nMismatches = 0;   // assertions that fail for a block of memory
    };

    Row_s const ROWS[] = {
        // Tokens, what they leave unread, and the end.
        { "one  two\nthree", "T|.|T|.|T|.|T|.|T|.", "[one] 3:0 [two] 8:1 [three] 13:2! [] 14:2! [] 14:2!" },
        { "a\n\nb \n", "T|.|T|.|T|.", "[a] 1:1 [b] 4:3 [] 6:4!" },
        { "", "T|.|I|F|W|L9|S'", "[] 0:0! 0 0 <> {} ''", 1 },
        { "a,b;'x'\"y\";z,", "P|P|P|P|P|P|.|@0|T", "[a] [b] [x] [y] [z] [] 13:0! []" },
        { "a b", "T|T|@0|L20|.", "[a] [b] {a} 1:0!" },
        { "a,b;\x80q\xFFr\x01s\0t"s, "T|T|T|T|T|T", "[a,b;] [q] [r] [s] [t] []" },
        // Comments.
        { "// c d\na //e\n//\n/ b//c // last", "T|T|T|T|.", "[a] [/] [b//c] [] 30:5!" },
        { "a //\nb //x", "T|.|T|.|T|.", "[a] 1:0 [b] 6:2 [] 9:2!" },
        { "//a;b\nc", "P", "[c]" },
        // Labels.
        { "size 12 // big\nweight 3.5", "Isize|Fweight|.", "12 3.5 25:1!" },
        { "a b size 7 f -2.5e1x x", "Isize|Ff|T", "7 -25 [x]", 2 },
        { "a b 7", "Isize|.|Isize", "7 4:0! 0", 3 },
        { "a b 7 ", "Isize|.", "0 6:0!", 4 },
        { "n //5 6 n 99999999999 n -99999999999 n", "In|T|In|In|In|.", "0 [6] 2147483647 -2147483648 0 38:0!" },
        // Numbers without a label.
        { "w12.5,-7x3", "I|.|I|.|I|.|I", "12 5:0 -7 8:0 3 10:0! 0" },
        { "ab\ncd", "I|.", "0 5:1!" },
        { "a\0 12 1-2 .5 - 8"s, "I|I|I|I|I", "12 1 0 0 8" },
        { "1.5 -.25 1e2 x0 -0, +.0 0e5 1e-60 12z", "F|F|F|F|F|F|F|F|F|.|F|F", "1.5 -0.25 100 0 -0 0 0 0 12 36:0! 0 0",
            3 },
        { "0 0.0 ,0 1e999 0x10 0-0 +-0 0..0 0.,0", "F|F|F|F|F|F|F|F|F", "0 0 0 inf 16 0 0 0 0", 3 },
        // Words.
        { "  //x, \"y\"\n\nz", "W|.|W|.|W|.|W|.", "<//x,> 7:0 <\"y\"> 11:1 <z> 13:2! <> 13:2!" },
        // Lines.
        { "  a b \r\n\tc\n\n  \nd", "L99|L99|L99|L99|.|L99|.|L99|.", "{a b } {} {c} {} 12:3 {} 15:4 {d} 16:4!" },
        { "abcdef\nabc\ng", "L4|.|L4|L4|.|L4|L2|.", "{abc} 3:0 {def} {} 7:1 {abc} {} 11:2" },
        { "a\0b\n\0c\n \t"s, "L9|L9|L9|L9|L9|.", "{a} {b} {} {} {} 9:2!" },
        // Quoted strings.
        { " 'a b' \"c\n\"x '12345'6", "S'|.|S\"|T|S'|T", "'a b' 6:0 'c\n' [x] '12345' [6]" },
        { "/ // one\n/ two\n 'x'/ 'y'", "S'|.|S'", "'x' 19:2 'y'" },
        { "ab 'x'", "S'|.|S'", "'' 1:0 ''", 2 },
        { "'open", "S'|.", "'open' 5:0!" },
        { "// c", "S'|.", "'' 4:0!", 1 },
        // Moving.
        { "a bc // de\nbc f", "wbc|.|wbc|.|wbc|.", "found 4:0 found 13:1 none 13:1" },
        { "a bc // de\nbc f", "T|wnone|.|Xnone|.|Xa|.", "[a] none 1:1 none 1:2 found 1:2" },
        { "a bc // de\nbc f", "pde|.|qc|T|q//|T|pzz|p", "found 10:1 found [bc] found [f] none found" },
        { "a\0b c"s, "qb|.|T|pb|T", "none 0:0 [a] none [b]" },
        { "abc", "T|.|pc|.|Xabc|.|Xab|qab|.", "[abc] 2:0! found 3:0! found 2:0! none found 2:0!" },
        { "one two", "Kone|Ktwo|Kx", "", 1 },
        { "one two", "@4|T|@99|.|T|@0|.|T|.|Xone|@7|.", "[two] 7:0! [] 0:0! [] 1:0! found 7:0" },
        // Dumps, and texts that a buffer cuts.
        { "abc //xyz\tlast", "V|V|W|V|.", "<abc> <//x> <last> <> 14:0!" },
        { "0\n23\n5", "D1|.|D0|.", "\n23 4:1 0\n2 3:2" },
        { std::string(300, 't') + " x " + std::string(300, '7'), "T|T|I|.",
            "[" + std::string(259, 't') + "] [x] 2147483647 603:0!" },
        { std::string(259, 't') + " " + std::string(260, 'u') + " " + std::string(259, 'v') + " "
                + std::string(260, 'w') + " x",
            "T|T|W|W|T",
            "[" + std::string(259, 't') + "] [" + std::string(259, 'u') + "] <" + std::string(259, 'v') + "> <"
                + std::string(259, 'w') + "> [x]" },
        { std::string(257, '0') + "12 " + std::string(258, '0') + "12", "I|I", "12 1" },
        { std::string(250, 'x') + " needle " + std::string(99, 'y') + "\0b c"s, "pneedle|T|qc|qy|.",
            "found [" + std::string(99, 'y') + "] none found 357:0" },
    };

    using ScriptTest = MediaTest;
}

TEST_F(ScriptTest, ReadsTheSameFromAFileAndFromMemory)
{
    ExpectComplaints(2);
    for (Row_s const & Row : ROWS)
    {
        SCOPED_TRACE(Row.sText + " -> " + Row.sSteps);
        Script_c File;
        Serve("a.txt", Row.sText);
        ASSERT_TRUE(File.OpenFile("A.txt"));
        EXPECT_STREQ(File.m_sName, "A.txt");
        int const nEarlier = m_Dialogs.GetCount();
        EXPECT_EQ(Drive(File, Row.sSteps), Row.sOutcome);
        EXPECT_EQ(m_Dialogs.GetCount(), nEarlier) << "a file's mismatches are silent";
        File.CloseFile();

        // A block of exactly the text's size, so that an address checker reports a read beyond it.
        std::vector<char> dText(Row.sText.begin(), Row.sText.end());
        char * const pText = dText.empty() ? nullptr : dText.data();
        int const nText = static_cast<int>(dText.size());
        Script_c Memory;
        FailedConditions([&] { Memory.OpenMemoryLocation(pText, nText); });
        EXPECT_STREQ(Memory.m_sName,
            Va("Memory mapped: %08" PRIXPTR ", size: %d", reinterpret_cast<std::uintptr_t>(pText), nText));
        std::string sOutcome;
        std::string sFailed = FailedConditions([&] { sOutcome = Drive(Memory, Row.sSteps); });
        EXPECT_EQ(sOutcome, Row.sOutcome);
        EXPECT_EQ(std::count(sFailed.begin(), sFailed.end(), '&') + !sFailed.empty(), Row.nMismatches) << sFailed;
    }
}

TEST_F(ScriptTest, HoldsAFilesCopyUntilItIsClosed)
{
    Serve("a.txt", "\nfirst");
    Serve("b.txt", "second");
    std::ptrdiff_t const nBefore = MemoryTotalAllocations();
    {
        Script_c Script;
        EXPECT_EACH(!Script.OpenFile("missing.txt"), Script.OpenFile("a.txt"));
        EXPECT_EQ(Drive(Script, "T|."), "[first] 5:1!");
        EXPECT_TRUE(Script.OpenFile("b.txt"));
        EXPECT_FALSE(Script.OpenFile((std::string(300, 'n') + ".txt").c_str()));
        EXPECT_EQ(MemoryTotalAllocations(), nBefore + 1);
        EXPECT_EQ(Drive(Script, "T|."), "[second] 5:0!") << "the text that was open stays";
        Script.OpenMemoryLocation("block", 5);
        EXPECT_EQ(Script.m_sName, std::string(259, 'n')) << "while a copy is held the name is not the block's";
        Script.CloseFile();
        EXPECT_EQ(Drive(Script, "T"), "[block]");
        EXPECT_TRUE(Script.OpenFile("a.txt"));
        Script.CloseFile();
        EXPECT_EQ(Drive(Script, "T|pfirst|."), "[] none 0:0!");
        EXPECT_EQ(MemoryTotalAllocations(), nBefore);
    }
    EXPECT_EQ(m_Log.GetText(), "");
    auto pScript = std::make_unique<Script_c>();
    EXPECT_TRUE(pScript->OpenFile("b.txt"));
    char const * const pLeft = pScript->m_pData;
    pScript.reset();
    EXPECT_EQ(m_Log.GetText(), "WARNING: current script \"b.txt\" need called Script_c::CloseFile()\n");
    EXPECT_STREQ(pLeft, "second") << "the copy stays, with its terminator";
    delete[] pLeft;
}

TEST_F(ScriptTest, StatesWhatItRequires)
{
    Script_c Script;
    for (auto const & [szSteps, szConditions, szOutcome] : Rows_t<char const *, char const *, char const *>{
             { "S'|.|T", "nString < iMaxLength", "'12345' 6:0 [678']" },
             { "L1|.", "iMaxLength >= 2", "{stale} 0:0" },
             { "@3|@-1|.", "iPosition >= 0", "0:0" },
             { "D7|.", "iEnd < m_iBytesTotal", "sta 0:0" },
             { "D-1|.", "iStart >= 0", "sta 0:0" },
             { "Kx", "m_pFileData", "" },
         })
    {
        Script.OpenMemoryLocation("'12345678'", 10);
        std::string sOutcome;
        EXPECT_EQ(FailedConditions([&, sz = szSteps] { sOutcome = Drive(Script, sz); }), szConditions) << szSteps;
        EXPECT_EQ(sOutcome, szOutcome) << szSteps;
    }
    char cKept = 'c';
    EXPECT_EQ(FailedConditions([&] { Script.GetDump(&cKept, 2, 2); }), "iEnd > iStart");
    EXPECT_EQ(cKept, 'c');
    EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Script.OpenFile(nullptr)); }), "sFileName");
    Script.SetPosition(4);
    EXPECT_EQ(FailedConditions(
                  [&]
                  {
                      Script.SkipToken(nullptr);
                      EXPECT_FALSE(Script.RewindAfterToken(nullptr, true, true));
                      EXPECT_FALSE(Script.RewindAfterToken(nullptr, true, false));
                      EXPECT_EACH(Script.GetInt(nullptr) == 0, Script.GetFloat(nullptr) == 0);
                  }),
        "sToken & sToken & sToken & sLabel & sLabel");
    EXPECT_EQ(Drive(Script, "."), "4:0!");
    EXPECT_EQ(FailedConditions([&] { Script.OpenMemoryLocation(nullptr, -1); }), "pText & iLength >= 0");
    EXPECT_EQ(Drive(Script, "T|I|F|W|pa|."), "[] 0 0 <> none 0:0!");
}
