#include "tests/test_support.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cstring.h"

namespace
{
    // Source text of a call.
    struct Call_s
    {
        char const * szCall;
        bool bCompiles;
    };

    // Calls with text classes and without. The last one shows that the compiler's own check is still there. s is a
    // String_T, t a std::string, v a std::string_view, n an int.
    constexpr Call_s CALLS[] = {
        { R"(Log("%s %-8s|%.*s|%i %5.1f %p %c%%", s, t, n, v, n, 1.5, &n, 'c');)", true },
        { R"(Log("%zu %td %jd %ld %lld %hhu %Lf %lf %ls %s", sizeof n, &n - &n, std::intmax_t{ 1 }, 1L, 1LL, 1, 1.0L, 1.0, L"w", s);)",
            true },
        { R"(Logf("a", "%s", t); Logcf(true, "a", "%s", s); Logc(true, "%s", v); LogEscaped("%s", s); Debugf("%s", t);)",
            true },
        { R"(Warning("%s", s); Achtung("%s", t); AssertFailed("%s", v); ZQ_ASSERT_EX(n, "%s", s); Abort("%s", s);)",
            true },
        { R"(Log("%i %s", n, "plain");)", true },
        { R"(Log("%i", s);)", false },
        { R"(Log("%s %s", s);)", false },
        { R"(Log("%s", s, n);)", false },
        { R"(Log("%s %s", s, n);)", false },
        { R"(Log("%s %ld", s, n);)", false },
        { R"(Log("%s %f", s, n);)", false },
        { R"(Log("%s %.*s", s, 1.5, t);)", false },
        { R"(Log("%s %n", s, &n);)", false },
        { R"(Log("%s %", s);)", false },
        { R"(Log("%s %ls", s, "narrow");)", false },
        { R"(Logf("a", "%i", t);)", false },
        { R"(Warning("%x", v);)", false },
        { R"(ZQ_ASSERT_EX(n, "%d", s);)", false },
        { R"(NewString("%s and text up to the end of a line that is longer %i", s);)", false },
        { R"(Log("%s", n);)", false },
    };
}

TEST(Printf, TextClassesPrintAsTheirTexts)
{
    String_T<8> const sMonster("Ogre");
    std::string const sPlace = "the cave";
    std::string_view const sPart = std::string_view(sPlace).substr(4, 2);
    LogCapture_c const Log;
    ::Log("%s has %i lives in %s, %.3s", sMonster, 3, sPlace, sPart);
    LogEscaped("%s|%i", "a\n" + sPlace, 5);
    Logc(true, "%-6s|%6s", sMonster, sPart);
    Logc(false, "%s", sMonster);
    Warning("%s%c", sMonster, '!');
    static char s_szFormat[4];
    StrCopy(s_szFormat, "%i\n", 3);
    ::Log(s_szFormat, sMonster);   // no literal: checked when it runs
    for (char const * const szFormat : { "<%s>", "%i" })
    {
        ::Log(szFormat, sPlace);
    }
    std::string const sLong(5000, 'l');
    ::Log("%s", std::string_view(sLong));
    EXPECT_EQ(
        Log.GetText(), "Ogre has 3 lives in the cave, ca\na\\nthe cave|5\nOgre  |    ca\nOgre!\n%i\n<the cave>\n%i\n"
                           + std::string(LOG_LINE_LENGTH, 'l') + "\n");
    EXPECT_STREQ(NewString("%s-%s", sMonster, sPart), "Ogre-ca");
    EXPECT_STREQ(Va("%5s", std::string_view()), "     ");
    EXPECT_EQ(FailedConditions([&] { ZQ_ASSERT_EX(sMonster.IsEmpty(), "%s: %s", sMonster, sPlace); }),
        "sMonster.IsEmpty(), Ogre: the cave");
}

// g++ refuses only with optimisation, clang++ always.
TEST(Printf, ACallWithAWrongFormatDoesNotCompile)
{
    constexpr int FIRST_LINE = 101;
    TempFolder_c const Folder;
    std::string sSource = "#include \"zqcore/clog.h\"\n#include \"zqcore/clogf.h\"\n#include \"zqcore/cstring.h\"\n"
                          "#include <string>\n#line "
                          + std::to_string(FIRST_LINE) + "\n";
    for (Call_s const & Call : CALLS)
    {
        sSource += "void F" + std::to_string(&Call - CALLS)
                   + "(String_T<8> s, std::string t, std::string_view v, int n) { " + Call.szCall
                   + " (void)s; (void)t; (void)v; (void)n; }\n";
    }
    std::string const sFile = Folder.Write("calls.cpp", sSource);
    int nCompilers = 0;
    for (std::string const sCompiler : { "g++ -O1", "clang++ -O0 -ferror-limit=0" })
    {
        if (RunShell(sCompiler + " --version").iStatus != 0)
        {
            continue;
        }
        ++nCompilers;
        Result_t const Compiled =
            RunShell(sCompiler + " -std=c++20 -Wall -I" + TEST_SOURCE_FOLDER + " -I" + TEST_PLATFORM_INCLUDE + " -c "
                     + sFile + " -o " + Folder.Join("calls.o") + " 2>&1");
        int iLine = FIRST_LINE;
        for (Call_s const & Call : CALLS)
        {
            std::string const sPlace = "calls.cpp:" + std::to_string(iLine++) + ":";
            EXPECT_EQ(Compiled.sOutput.find(sPlace) == std::string::npos, Call.bCompiles)
                << sCompiler << ": " << Call.szCall << "\n"
                << Compiled.sOutput;
        }
    }
    SKIP_IF(nCompilers == 0, "no compiler is installed");
}
