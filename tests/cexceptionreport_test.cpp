#include "platform/checker.h"
#include "platform/faults.h"
#include "platform/modules.h"
#include "platform/threads.h"
#include "tests/crash_support.h"
#include "zqcore/cexceptionreport.h"
#include "zqcore/cexceptionreport_internal.h"
#include "zqcore/cstring.h"

#include <ctime>
#include <link.h>
#include <span>

int const * SharedPageData();   // modules/sharedpage.cpp

namespace
{
    using testing::ContainsRegex;
    using testing::EndsWith;
    using testing::HasSubstr;
    using testing::Not;

    constexpr bool IS_64_BIT = sizeof(void *) == 8;
    constexpr char ACCESS_VIOLATION[] = "C0000005 ACCESS_VIOLATION";   // as a report names it

    // Expects that a report has all texts of a complete one, with their line ends, in order.
    void ExpectComplete(std::string const & sReport, std::string const & sException)
    {
        std::vector<std::string> dTexts = { "\nPROGRAM IS CRASHED!!!\r\nException code: " + sException
                                                + "\r\nFault address:  ",
            "\r\n\r\nRegisters:\r\nEAX:", "\r\nEBX:", "\r\nECX:", "\r\nEDX:", "\r\nESI:", "\r\nEDI:", "\r\n\nCS:EIP:",
            "\r\n\nSS:ESP:", "  EBP:", "\r\n\nDS:", "  ES:", "  FS:", "  GS:", "\r\n\nFlags:" };
        if (IS_64_BIT)
        {
            dTexts.insert(dTexts.end(), { "\r\n\nR8:", "\r\nR15:" });
        }
        char const STACK[] = "\r\nCall stack:\r\nAddress   Frame     Function            SourceFile\r\n";
        dTexts.insert(dTexts.end(),
            { "\r\n\nMM0 = ", "\r\nMM7 = ", STACK, "\r\n\nCrash code disassembly:\n\n", "      <--------- FAULT!!!\n",
                "\n\n========================\r\nLocal Variables And Parameters\r\n", STACK });
        std::size_t nAt = 0;
        for (std::size_t i = 0; i < dTexts.size() && nAt != std::string::npos; ++i)
        {
            nAt = sReport.find(dTexts[i], nAt);
            EXPECT_NE(nAt, std::string::npos) << "no " << dTexts[i] << " in its place in\n" << sReport;
        }
        EXPECT_THAT(sReport, EndsWith("\r\n\r\n\r\n"));   // of the last line, of its frame, of the report
    }

    // Runs the crasher. Expects one complete report with its details, the lines of a crash, and an end by the signal
    // within 15 seconds.
    void ExpectReported(std::string const & sArguments, std::string const & sException, std::string const & sSignal)
    {
        SCOPED_TRACE(sArguments);
        Crash_t const Crash = RunAlone(sArguments);
        ExpectComplete(Crash.sReport, sException);
        EXPECT_EQ(Crash.sSignal, sSignal) << "status " << Crash.iStatus << ": " << Crash.sOutput;
        EXPECT_EQ(Crash.nReports, 1);
        EXPECT_THAT(Crash.sOutput, HasSubstr("TARNWELL SADLY REPORTS: Program has crashed!\nCall stack functions:\n"));
        EXPECT_THAT(Crash.sOutput, ContainsRegex("log closed\n(.*\n)*previous handler\n"));
        EXPECT_THAT(Crash.sDetails, HasSubstr("\n[Process]\n"));
        EXPECT_THAT(Crash.sLog, HasSubstr("\tCrash log saved at /"));
        EXPECT_THAT(Crash.sLog, Not(HasSubstr("elsewhere")));
        EXPECT_THAT(Crash.sOutput, HasSubstr("Crash log saved at /"));
        EXPECT_THAT(Crash.sLog, HasSubstr("\tCall stack functions:\n\n"));
        EXPECT_LT(Crash.tSeconds, 15.0);
    }
}

class CrashReport : public CrashTest
{};

TEST_F(CrashReport, ReportsEachFaultClosesTheLogAndPassesOnWithoutTheHeap)
{
    // The crasher's arguments, the exception in the report, and the signal that ends the process.
    std::vector<std::tuple<std::string, std::string, std::string>> dRows = {
        { "divide", "C0000094 INT_DIVIDE_BY_ZERO", "FPE" },
        { "quotient", "C0000095 INT_OVERFLOW", "FPE" },
        { "floatdivide", "C000008E FLT_DIVIDE_BY_ZERO", "FPE" },
        { "floatinvalid", "C0000090 FLT_INVALID_OPERATION", "FPE" },
        { "floatoverflow", "C0000091 FLT_OVERFLOW", "FPE" },
        { "floatunderflow", "C0000093 FLT_UNDERFLOW", "FPE" },
        { "floatinexact", "C000008F FLT_INEXACT_RESULT", "FPE" },
        { "floatdenormal", "C000008D FLT_DENORMAL_OPERAND", "FPE" },
        { "floatstack", "C0000092 FLT_STACK_CHECK", "FPE" },
        { "illegal", "C000001D ILLEGAL_INSTRUCTION", "ILL" },
        { "privileged", "C0000096 PRIV_INSTRUCTION", "SEGV" },
        { "step", "80000004 SINGLE_STEP", "TRAP" },
        { "abort!", "80000003 BREAKPOINT", "TRAP" },
        { "pure", "80000003 BREAKPOINT", "TRAP" },
        { "stack", "C00000FD STACK_OVERFLOW", "SEGV" },
        { "stack thread", "C00000FD STACK_OVERFLOW", "SEGV" },
        { "stack worker", "C00000FD STACK_OVERFLOW", "SEGV" },
        { "stack small8", "C00000FD STACK_OVERFLOW", "SEGV" },
        { "throwdeep", "E06D7363 Uncaught C++ exception std::runtime_error: deep", "ABRT" },
        { "bus", "C0000006 IN_PAGE_ERROR", "BUS" },
        { "throw", "E06D7363 Uncaught C++ exception std::runtime_error: what\\x1B\\nit says", "ABRT" },
        { "throwint thread", "E06D7363 Uncaught C++ exception int", "ABRT" },
        { "abort", "40000015 abort() was called", "ABRT" },
    };
#ifndef __SANITIZE_THREAD__
    dRows.emplace_back("stack unjoined", "C00000FD STACK_OVERFLOW", "SEGV");     // this checker creates the threads
    dRows.emplace_back("misaligned", "80000002 DATATYPE_MISALIGNMENT", "BUS");   // its handler runs first and misaligns
#endif
    if (!IS_64_BIT)
    {
        dRows.emplace_back("into", "C0000095 INT_OVERFLOW", "SEGV");
        dRows.emplace_back("bound", "C000008C ARRAY_BOUNDS_EXCEEDED", "SEGV");
    }
    if (!plat::ADDRESS_CHECKER)   // it needs descriptors itself, and more of the stack at a thread's start
    {
        dRows.emplace_back("read fulljoined", ACCESS_VIOLATION, "SEGV");
        dRows.emplace_back("read nodescriptors", ACCESS_VIOLATION, "SEGV");
    }
    for (char const * szArguments : { "read", "write thread", "read worker", "wild", "read locked", "read lockedbeside",
             "read two", "read small8", "readdeep", "read moved", "read callbackfaults", "read callbackhangs",
             "read otherscase", "read longfolder" })
    {
        dRows.emplace_back(szArguments, ACCESS_VIOLATION, "SEGV");
    }
    for (auto const & [sArguments, sException, sSignal] : dRows)
    {
        ExpectReported(sArguments, sException, sSignal);
    }
}

TEST_F(CrashReport, CallsReceiversBeforeAndAfterTheDialog)
{
    EXPECT_THAT(RunAlone("write callbackasks").sOutput, ContainsRegex("unknown\n(.*\n)*unknown\n"));
    EXPECT_THAT(RunAlone("write callbackcomplains").sOutput, ContainsRegex("heard\n(.*\n)*heard\n"));
    EXPECT_THAT(RunAlone("write callbackfaults again").sOutput,
        ContainsRegex("stops\n(.*\n)*goes on\n(.*\n)*stops\n(.*\n)*goes on\n(.*\n)*previous handler\n"));
}

TEST_F(CrashReport, IsWholeBeforeAKeyAtTheTerminalsPromptActs)
{
    // What is typed, and the signal that ends or stops the process.
    for (auto const & [szTyped, iSignal] :
        Rows_t<char const *, int>{ { "\n", SIGSEGV }, { "\x03", SIGINT }, { "\x1C", SIGQUIT }, { "\x1A", SIGTSTP } })
    {
        TempFolder_c const Folder;
        std::string const sCommand =
            "cd '" + Folder.GetPath() + "' && exec " TEST_EMULATOR "'" CRASHER_PATH "' read ''";
        SCOPED_TRACE(iSignal);
        Result_t const Result = RunOnTerminal([&] { return RunInForeground(sCommand); }, szTyped, "(O)k* ? ");
        EXPECT_EQ(Result.iStatus, iSignal) << Result.sOutput;
        EXPECT_THAT(Result.sOutput, ContainsRegex("Crash log saved at /.*rpt\r\n"));
        Crash_t Crash;
        ReadReports(Folder, Crash);
        ExpectComplete(Crash.sReport, ACCESS_VIOLATION);
    }
}

TEST_F(CrashReport, OutlivesACorruptedHeapAndEndsTheProcessByTheFault)
{
    SKIP_IF(plat::ADDRESS_CHECKER, "the address checker ends the process where the heap is overwritten");
    Crash_t const Crash = RunAlone("read corrupt alone");
    ExpectComplete(Crash.sReport, ACCESS_VIOLATION);
    EXPECT_EQ(Crash.sSignal, "SEGV");
    EXPECT_THAT(Crash.sOutput, EndsWith("log closed\n"));
}

TEST_F(CrashReport, EndsASilentProcessAfterTheFirstCallStack)
{
    for (char const * szFault : { "read silent", "abort! silent" })
    {
        SCOPED_TRACE(szFault);
        Crash_t const Crash = RunAlone(szFault);
        EXPECT_EQ(Crash.iStatus, 1);
        EXPECT_THAT(Crash.sOutput, ContainsRegex("Crash log saved at /.*rpt\n"));
        EXPECT_THAT(Crash.sOutput, HasSubstr("TARNWELL SADLY REPORTS: Program has crashed!\nCall stack functions:"));
        EXPECT_THAT(Crash.sReport, ContainsRegex("\r\nCall stack:\r\n.*SourceFile\r\n(.*\r\n)+$"));
        EXPECT_THAT(Crash.sReport, Not(HasSubstr("disassembly")));
        EXPECT_THAT(Crash.sLog, HasSubstr("Call stack functions:"));
    }
    Crash_t const Late = RunAlone("read silenced");
    EXPECT_EQ(Late.iStatus, 1) << "a receiver turned silent mode on after the dialog";
    EXPECT_THAT(Late.sReport, HasSubstr("disassembly"));
}

TEST_F(CrashReport, GoesOnWithoutAFileWithAFullDiskAndWithoutCode)
{
    Crash_t const NoCode = RunAlone("call");
    EXPECT_THAT(NoCode.sReport, HasSubstr("\r\nFault address:  00000000 00:00000000 \r\n"));
    EXPECT_THAT(NoCode.sReport, HasSubstr("Crash code disassembly:\n\n00000000: add "));
    EXPECT_EQ(NoCode.sSignal, "SEGV");
    Crash_t const NoFolder = RunAlone("read nofolder");
    EXPECT_EQ(NoFolder.nReports, 0);
    EXPECT_EQ(NoFolder.sSignal, "SEGV");
    EXPECT_THAT(NoFolder.sLog, ContainsRegex("\tCrash log saved at (/.*/gone//CrashReport_.*rpt)\n"
                                             ".*\tNo crash log saved: /.*/gone//CrashReport_.*rpt can't be written\n"));
    EXPECT_THAT(NoFolder.sOutput, Not(HasSubstr("Crash log saved")));
    EXPECT_THAT(NoFolder.sOutput, ContainsRegex("Call stack functions:\n(.*\n)*log closed\nprevious handler\n"));
    Crash_t const Full = RunAlone("read full");
    EXPECT_EQ(Full.sReport.size(), 300u);
    EXPECT_EQ(Full.sSignal, "SEGV");
    EXPECT_THAT(Full.sLog, HasSubstr("Call stack functions:"));
    EXPECT_THAT(Full.sLog, ContainsRegex("\tCrash log incomplete: /.*[.]rpt can't be written\n"));
    Crash_t const Details = RunAlone("read fulldetails");
    EXPECT_THAT(Details.sLog, ContainsRegex("\tDetails of the crash incomplete: the file beside /.*[.]rpt can't"));
    EXPECT_THAT(Details.sLog, Not(HasSubstr("Crash log incomplete"))) << "the report is whole";
}

TEST_F(CrashReport, OutlivesItsHelperAndItsOwnFaults)
{
    TempFolder_c const Folder;
    for (char const * szScript : { "exit 1", "kill -SEGV $$", "echo nonsense >&0" })
    {
        SCOPED_TRACE(szScript);
        Crash_t const Crash = RunAlone("read", WriteHelper(Folder, szScript));
        ExpectComplete(Crash.sReport, ACCESS_VIOLATION);
        EXPECT_EQ(Crash.sSignal, "SEGV");
        EXPECT_LT(Crash.tSeconds, 10.0);
    }
    Crash_t const Faulting = RunAlone("read reportfaults", WriteHelper(Folder, "exec sleep 3"));
    EXPECT_THAT(Faulting.sReport, EndsWith("MM7 = 0000000000000000\r\n"));
    EXPECT_THAT(Faulting.sOutput, HasSubstr("log closed\nprevious handler\n"));
    EXPECT_EQ(Faulting.sSignal, "SEGV");
    EXPECT_LT(Faulting.tSeconds, 8.0);
}

TEST_F(CrashReport, NamesFunctionsLinesAndVariables)
{
    NEEDS_ZQSYMBOLS;
    Crash_t const Crash = RunAlone("read", ZQSYMBOLS_PATH);
    char const FRAME[] = "ReadNowhere\\+[0-9A-F]+   [^ ]*/tests/crasher/nowhere.h\\([0-9]+\\): return "
                         "\\*static_cast<int volatile \\*>\\(g_pNowhere\\)";
    EXPECT_THAT(Crash.sReport, ContainsRegex(FRAME));
    EXPECT_THAT(Crash.sLog, ContainsRegex(FRAME));
    EXPECT_THAT(
        Crash.sReport, ContainsRegex("; *return \\*static_cast<int volatile [^\n]*\n[^\n]*\n?[^\n]*FAULT!!!\n"));
    EXPECT_THAT(Crash.sReport, ContainsRegex("; \\}\n([0-9a-f]+: [^\n]*\n)+; [0-9]+, [^\n]*/crasher.cpp\n[0-9a-f]+: "))
        << "one line of the next function, which is of another file";
    for (char const * szVariable : { "\tParameter 'iFirst' = 5\r\n", "\tParameter 'szSecond' = \"second\"\r\n",
             "\tLocal 'iLocal' = 1234\r\n", "\tLocal 'fLocal' = 1.500000\r\n",
             "\tLocal 'szLocal' = \"a text of more than thirty-one \"\r\n", "\tLocal 'szWild' = 40\r\n",
             "Outer_t\r\n\t\t (anonymous namespace)::Inner_t\r\n\t\t\t iNumber = 7\r\n\t\t\t szText = \"seven\"\r\n\r\n"
             "\t\t fValue = 2.250000\r\n\t\t nLow = 5\r\n\t\t nHigh = 41\r\n\t\t Inner\r\n\t\t\t iNumber = 8\r\n\t\t\t "
             "szText = \"eight\"\r\n\r\n\r\n" })
    {
        EXPECT_THAT(Crash.sReport, HasSubstr(szVariable));
    }
    if (!plat::ADDRESS_CHECKER)
    {
        Crash_t const Few = RunAlone("read nodescriptors", ZQSYMBOLS_PATH);
        EXPECT_THAT(Few.sReport, HasSubstr("\tParameter 'iFirst' = 5\r\n"));
    }
}

TEST_F(CrashReport, ListsInstructionsAndLinesInFull)
{
    EXPECT_THAT(RunAlone("interrupted").sReport,
        ContainsRegex("ud2 +<--------- FAULT!!!\n(.*: nop *\n){124}.*: mov    eax,00000078\n\n\n="));
    NEEDS_ZQSYMBOLS;
    std::string const sReport = RunAlone("gap", ZQSYMBOLS_PATH).sReport;
    std::size_t nAt = sReport.find("FAULT!!!\n");
    for (int iLine = 1002; iLine <= 1201; ++iLine)
    {
        nAt = sReport.find("; " + std::to_string(iLine) + ", /", nAt);
        ASSERT_NE(nAt, std::string::npos) << iLine;
    }
}

TEST_F(CrashReport, NamesAnInterruptedFunctionByTheInstructionItself)
{
    NEEDS_ZQSYMBOLS;
    Crash_t const Crash = RunAlone("handler", ZQSYMBOLS_PATH);
    EXPECT_THAT(Crash.sReport, HasSubstr("  FaultAtOnce+0  "));
    EXPECT_THAT(Crash.sDetails, HasSubstr(" FaultAtOnce+0\n"));
    EXPECT_THAT(Crash.sOutput, HasSubstr("]\tFaultAtOnce\t"));   // of the trace in the handler
}

TEST_F(CrashReport, AppendsToTheReportOfTheSameSecond)
{
    Crash_t Crash;
    for (int iTry = 0; iTry < 20 && Crash.nReports != 1; ++iTry)
    {
        TempFolder_c const Folder;
        RunIn(Folder, "read", "");
        Crash = RunIn(Folder, "write", "");
    }
    ASSERT_EQ(Crash.nReports, 1) << "no two crashes in a second";
    std::size_t const nSecond = Crash.sReport.rfind("\nPROGRAM IS CRASHED!!!");
    ExpectComplete(Crash.sReport.substr(0, nSecond), ACCESS_VIOLATION);
    ExpectComplete(Crash.sReport.substr(nSecond), ACCESS_VIOLATION);
}

TEST_F(CrashReport, IsPrivateAndLeavesAloneWhatHasItsName)
{
    using Plant_t = void (*)(std::string const & sVictim, std::string const & sAt);
    for (auto const & [szPlant, fnPlant] :
        Rows_t<char const *, Plant_t>{
            { "link", [](auto const &sVictim, auto const &sAt) { fs::create_symlink(sVictim, sAt); } },
            { "second name", [](auto const &sVictim, auto const &sAt) { fs::create_hard_link(sVictim, sAt); } },
            { "pipe", [](auto const &, auto const &sAt) { MakePipe(sAt); } },
            { "folder", [](auto const &, auto const &sAt) { fs::create_directory(sAt); } } })
    {
        SCOPED_TRACE(szPlant);
        TempFolder_c const Folder;
        std::string const sVictim = Folder.Write("victim", "kept");
        fs::permissions(sVictim, fs::perms(0600));
        std::time_t const tNow = std::time(nullptr);
        for (std::time_t t = tNow; t < tNow + 100; ++t)
        {
            std::tm const & Time = *std::localtime(&t);
            char const * const szName = Va("CrashReport_%i.%i.%i__%i_%i_%i.rpt", Time.tm_mday, Time.tm_mon + 1,
                Time.tm_year + 1900, Time.tm_hour, Time.tm_min, Time.tm_sec);
            fnPlant(sVictim, Folder.Join(szName));
        }
        Crash_t const Crash = RunIn(Folder, "read", "");
        ASSERT_THAT(Crash.sLog,
            ContainsRegex("Crash log saved at .*/CrashReport_[0-9._]+_" + std::string(8, '.') + "\\.rpt\n"));
        std::size_t const nName = Crash.sLog.rfind("CrashReport_");
        std::string const sName = Crash.sLog.substr(nName, Crash.sLog.find('\n', nName) - nName);
        ExpectComplete(Folder.Read(sName), ACCESS_VIOLATION);
        EXPECT_EQ(fs::status(Folder.Join(sName)).permissions(), fs::perms(0600));
        EXPECT_EQ(Folder.Read("victim"), "kept");
        EXPECT_LT(Crash.tSeconds, 60);
    }
}

TEST_F(CrashReport, IsNotWrittenWithRightsThatTheCallerLacks)
{
    TempFolder_c const Folder;
    SKIP_IF(!GrantsSetUserId(Folder.GetPath()) || RunShell("setpriv --version").iStatus != 0 || *TEST_EMULATOR != 0,
        "no set-user-id program can be made here");
    fs::copy_file(CRASHER_PATH, Folder.Join("crasher"));
    fs::permissions(Folder.Join("crasher"), fs::perms(04755));
    fs::permissions(Folder.GetPath(), fs::perms(0777));
    std::string const sProgram = "setpriv' --reuid=65534 --regid=65534 --clear-groups '" + Folder.Join("crasher");
    Crash_t const Crash = RunIn(Folder, "read", ZQSYMBOLS_PATH, sProgram);
    EXPECT_EQ(Crash.nReports, 0) << Crash.sReport;
    EXPECT_THAT(Crash.sLog, HasSubstr("\tNo crash log saved: this process has rights that its caller lacks\n"));
    EXPECT_THAT(Crash.sLog + Crash.sOutput, Not(HasSubstr("crasher.cpp"))) << "the lines of a source are its owner's";
    EXPECT_EQ(Crash.sSignal, "SEGV");
}

TEST_F(CrashReport, NamesAStrippedProgramByItsSections)
{
    TempFolder_c const Folder;
    std::string const sProgram = Folder.MakeFolder("a.folder") + "/crasher";
    SKIP_IF(RunShell("strip -o '" + sProgram + "' '" CRASHER_PATH "'").iStatus != 0, "no strip here");
    Crash_t const Crash = RunIn(Folder, "read autoname", ZQSYMBOLS_PATH, sProgram);
    EXPECT_THAT(Crash.sReport, ContainsRegex("Fault address:  [0-9A-F]+ [0-9A-F]{2}:[0-9A-F]{8} " + sProgram));
    EXPECT_THAT(Crash.sReport,
        ContainsRegex("SourceFile\r\n([0-9A-F]+  [0-9A-F]+  [0-9A-F]{4}:[0-9A-F]{8} " + sProgram + "  \r\n){5}"));
    ExpectComplete(Crash.sReport, ACCESS_VIOLATION);
    EXPECT_THAT(Crash.sOutput, HasSubstr(Folder.GetPath() + "/a.RPTder/crasher\n"));
}

TEST(CrashReportSource, ReturnsOnlyLinesThatEndInCarriageReturnAndLineFeed)
{
    TempFolder_c const Folder;
    exceptionreport::SourceFile_c const Source(Folder.Write("a.cpp", "first\r\n\r\n  third \r\nno end").c_str());
    exceptionreport::SourceFile_c const Other(Folder.Write("b.cpp", "first\nsecond\n").c_str());
    exceptionreport::SourceFile_c const Missing(Folder.Join("c.cpp").c_str());
    char szText[8];
    for (auto const & [iLine, bFound, szExpected] : Rows_t<unsigned, bool, char const *>{
             { 1, true, "first" }, { 2, true, "" }, { 3, true, "  third" }, { 0, false, "" }, { 4, false, "" } })
    {
        EXPECT_EQ(Source.GetLine(iLine, szText, sizeof szText), bFound) << iLine;
        EXPECT_STREQ(szText, szExpected) << iLine;
    }
    EXPECT_EACH(!Other.GetLine(1, szText, sizeof szText), !Missing.GetLine(1, szText, sizeof szText));
}

TEST(CrashReportModules, FindTheSectionOfAnAddress)
{
    static char s_dData[2] = { 1, 1 };
    static thread_local int volatile t_nInitialised = 1;   // so that the program has initial values of such data
    std::uintptr_t nInitial = 0;
    auto const FindInitial = [](dl_phdr_info * pModule, std::size_t, void * pAddress)
    {
        std::span const Segments(pModule->dlpi_phdr, pModule->dlpi_phnum);
        for (auto const & Segment : Segments)
        {
            if (Segment.p_type == PT_TLS)
            {
                *static_cast<std::uintptr_t *>(pAddress) = pModule->dlpi_addr + Segment.p_vaddr;
            }
        }
        return 1;   // the program comes first
    };
    dl_iterate_phdr(FindInitial, &nInitial);
    auto const Find = [](void const * pAddress)
    {
        plat::ModulePlace_t Place;
        bool const bFound = plat::ModuleFind(reinterpret_cast<std::uintptr_t>(pAddress), &Place);
        return std::tuple(bFound, std::string(Place.szPath), Place.iSection, Place.nOffset);
    };
    std::string const sProgram = fs::read_symlink("/proc/self/exe").string();
    auto const [bData, sData, iData, nData] = Find(s_dData);
    auto const [bText, sText, iText, nText] = Find(reinterpret_cast<void const *>(&RunIn));
    EXPECT_EQ(std::tuple(bData, sData, bText, sText), std::tuple(true, sProgram, true, sProgram));
    EXPECT_LT(iText, iData);
    EXPECT_EQ(Find(s_dData + 1), std::tuple(true, sProgram, iData, nData + 1));
    auto const [bInitial, sInitial, iInitial, nAtInitial] = Find(reinterpret_cast<void const *>(nInitial));
    EXPECT_EQ(std::tuple(bInitial, sInitial, nAtInitial), std::tuple(t_nInitialised == 1, sProgram, 0u));
    EXPECT_GT(iInitial, iText);
    EXPECT_FALSE(std::get<0>(Find(nullptr)));
    EXPECT_EQ(std::get<1>(Find(&bText)), "[stack]");
    EXPECT_EQ(std::get<3>(Find(SharedPageData() + 1)), sizeof(int));
}

TEST(CrashReportOutside, KnowsNothingAndCapturesTheCallersRegisters)
{
    char szName[16] = "stale";
    plat::FaultContext_t Context;
    plat::FaultContextCapture(&Context);
    EXPECT_EQ(ExceptionReport_c::CrashLog("%s", "text"), 0);
    EXPECT_FALSE(ExceptionReport_c::AddTypePrinter(std::string(200, 'x').c_str(), "too long"));
    EXPECT_EACH(g_ExceptionReport.GetSymbol(Context.nIp, szName, sizeof szName) == ~0ull, szName[0] == '\0');
    EXPECT_EQ(g_ExceptionReport.LogSourceString(Context.nIp, 7), 7u);
    EXPECT_EQ(Context.nBp, reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
    EXPECT_LT(Context.nSp, Context.nBp);
    EXPECT_EQ(Context.iThread, plat::ThreadId());
    EXPECT_EQ(Context.nCs, IS_64_BIT ? 0x33u : 0x23u);
}
