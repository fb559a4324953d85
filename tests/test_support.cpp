#include "tests/test_support.h"

#include "tests/coverage.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cmodule.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <pty.h>
#include <random>
#include <sys/stat.h>

namespace fs = std::filesystem;

TempFolder_c::TempFolder_c(fs::path const & Root)
{
    std::random_device Random;
    do
    {
        m_sPath = (Root / ("zqcore_test_" + std::to_string(Random()))).string();
    }
    while (!fs::create_directory(m_sPath));
}

TempFolder_c::~TempFolder_c()
{
    std::error_code Ignored;
    fs::remove_all(m_sPath, Ignored);
}

std::string TempFolder_c::Join(std::string_view sName) const
{
    std::string sPath = m_sPath + '/' + std::string(sName);
    std::replace(sPath.begin() + static_cast<std::ptrdiff_t>(m_sPath.size()), sPath.end(), '\\', '/');
    return sPath;
}

std::string TempFolder_c::Write(std::string_view sName, std::string_view sContents) const
{
    fs::create_directories(fs::path(Join(sName)).parent_path());
    std::ofstream(Join(sName), std::ios::binary) << sContents;
    return Join(sName);
}

std::string TempFolder_c::MakeFolder(std::string_view sName) const
{
    fs::create_directories(Join(sName));
    return Join(sName);
}

std::string TempFolder_c::Read(std::string_view sName) const
{
    std::ifstream File(Join(sName), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(File), {});
}

bool StartModule(Module_c * pModule)
{
    Module_c::Register(pModule);
    return Module_c::InitializeAllModules();
}

long ResidentPages()
{
    long nAll = 0, nResident = 0, nShared = 0;
    std::ifstream("/proc/self/statm") >> nAll >> nResident >> nShared;
    return nResident - nShared;
}

pid_t StartChild(std::function<int()> const & fnRun)
{
    constexpr int EXPECTATION_FAILED = 98;
    bool const bFailedBefore = testing::Test::HasFailure();
    pid_t const iChild = fork();
    if (iChild == 0)
    {
        alarm(60);   // ends it if the test does not
        int const iStatus = fnRun();
        EndChild(testing::Test::HasFailure() && !bFailedBefore ? EXPECTATION_FAILED : iStatus);
    }
    return iChild;
}

int StatusOfChild(pid_t iChild)
{
    int iStatus = -1;
    waitpid(iChild, &iStatus, 0);
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

bool KillChild(pid_t iChild)
{
    kill(iChild, SIGKILL);
    return StatusOfChild(iChild) == -1;
}

bool CanDropRights()
{
    return StatusAsNobody([] { return 0; }) == 0;
}

int StatusAsNobody(std::function<int()> const & fnRun)
{
    constexpr int NOBODY = 65534, REFUSED = 99;
    auto const Run = [&] { return IsSuperuser() && setresuid(NOBODY, NOBODY, NOBODY) != 0 ? REFUSED : fnRun(); };
    return StatusOfChild(StartChild(Run));
}

bool IsSuperuser()
{
    return geteuid() == 0;
}

std::string MakePipe(std::string const & sPath)
{
    EXPECT_EQ(mkfifo(sPath.c_str(), 0600), 0);
    return sPath;
}

WaitingChild_c::WaitingChild_c()
{
    Gate_c const Runs;
    m_iChild = StartChild([&Runs] { return Runs.Open() ? pause() : 1; });
    EXPECT_TRUE(Runs.Wait());
}

WaitingChild_c::~WaitingChild_c()
{
    KillChild(m_iChild);
}

Result_t RunShell(std::string const & sCommand)
{
    std::string sOutput;
    std::FILE * const pPipe = popen(sCommand.c_str(), "r");
    char dBlock[4096];
    while (std::size_t const nRead = std::fread(dBlock, 1, sizeof dBlock, pPipe))
    {
        sOutput.append(dBlock, nRead);
    }
    int const iStatus = pclose(pPipe);
    return WIFEXITED(iStatus) ? Result_t{ WEXITSTATUS(iStatus), sOutput }
                              : Result_t{ -1, sOutput, sigabbrev_np(WTERMSIG(iStatus)) };
}

Result_t RunTool(std::string const & sArguments)
{
    return RunShell(TEST_EMULATOR ZQTOOL_PATH " " + sArguments + " 2>&1");
}

Result_t RunOnTerminal(std::function<int()> const & fnRun, std::string const & sTyped, std::string const & sAwaited)
{
    EXPECT_EQ(sTyped.empty(), sAwaited.empty()) << "what is typed before the child waits is echoed between its lines";
    int iTerminal = -1;
    pid_t const iChild = forkpty(&iTerminal, nullptr, nullptr, nullptr);
    if (iChild == 0)
    {
        EndChild(fnRun());
    }
    std::string sShown;
    char dBlock[256];
    bool bTyped = false;
    for (ssize_t nRead = 0; nRead >= 0;)
    {
        if (!bTyped && !sAwaited.empty() && sShown.ends_with(sAwaited))
        {
            bTyped = true;
            EXPECT_EQ(write(iTerminal, sTyped.data(), sTyped.size()), static_cast<ssize_t>(sTyped.size()));
        }
        nRead = read(iTerminal, dBlock, sizeof dBlock);
        sShown.append(dBlock, static_cast<std::size_t>(std::max<ssize_t>(nRead, 0)));
    }
    close(iTerminal);
    return { StatusOfChild(iChild), sShown };
}

int RunInForeground(std::string const & sCommand)
{
    pid_t const iChild = fork();
    if (iChild == 0)
    {
        std::signal(SIGTTOU, SIG_IGN);
        setpgid(0, 0);
        tcsetpgrp(STDIN_FILENO, getpid());
        BecomeShell(sCommand);
        _exit(127);
    }
    int iStatus = 0;
    waitpid(iChild, &iStatus, WUNTRACED);
    if (WIFSTOPPED(iStatus))
    {
        KillChild(iChild);
    }
    return WIFSTOPPED(iStatus) ? WSTOPSIG(iStatus) : WIFSIGNALED(iStatus) ? WTERMSIG(iStatus) : 0;
}

void LogToStandardError()
{
    LogAddCallback([](char const * szText) { std::fprintf(stderr, "%s\n", szText); });
}

namespace
{
    std::mutex g_Lock;   // of the lines and the texts that are collected
    LogCapture_c * g_pCapture = nullptr;
    DialogScript_c * g_pScript = nullptr;

    int CountThoseHolding(std::string_view sPart, std::vector<std::string> const & dTexts)
    {
        std::lock_guard const Scope(g_Lock);
        auto const Holds = [sPart](std::string const & sText) { return sText.find(sPart) != std::string::npos; };
        return static_cast<int>(std::count_if(dTexts.begin(), dTexts.end(), Holds));
    }
}

// Collects a line. What this allocates counts under Tools, not under the category of the code under test.
void OnCapturedLine(char const * szText)
{
    MemCategoryScope_c const Category(mem::Tools);
    std::lock_guard const Scope(g_Lock);
    std::string_view const sLine = szText;
    bool const bSlowStart = sLine.find(" initialized in ") != std::string_view::npos && sLine.ends_with(" sec");
    if (g_pCapture && (!bSlowStart || g_pCapture->m_bSlowStarts))
    {
        g_pCapture->m_dLines.emplace_back(szText);
    }
}

LogCapture_c::LogCapture_c()
    : m_pOuter(g_pCapture)
{
    {
        std::lock_guard const Scope(g_Lock);
        g_pCapture = this;
    }
    LogText("");   // shows whether the listener is still there: LogDone drops it
    if (GetLines().empty())
    {
        LogAddCallback(OnCapturedLine);
    }
    Clear();
}

LogCapture_c::~LogCapture_c()
{
    std::lock_guard const Scope(g_Lock);
    g_pCapture = m_pOuter;
}

std::vector<std::string> LogCapture_c::GetLines() const
{
    std::lock_guard const Scope(g_Lock);
    return m_dLines;
}

std::string LogCapture_c::GetText() const
{
    std::string sText;
    for (std::string const & sLine : GetLines())
    {
        sText += sLine + '\n';
    }
    return sText;
}

int LogCapture_c::CountHolding(std::string_view sPart) const
{
    return CountThoseHolding(sPart, m_dLines);
}

void LogCapture_c::Clear()
{
    std::lock_guard const Scope(g_Lock);
    m_dLines.clear();
}

std::string AddressText(void const * pMemory)
{
    char szText[32];
    std::snprintf(szText, sizeof szText, "0x%08zX", reinterpret_cast<std::size_t>(pMemory));
    return szText;
}

std::string Without(std::string sText, std::string_view sPart)
{
    for (std::size_t i = sText.find(sPart); i != std::string::npos; i = sText.find(sPart))
    {
        sText.erase(i, sPart.size());
    }
    return sText;
}

std::string FailedConditions(std::function<void()> const & fnCall)
{
    LogCapture_c const Log;
    DialogScript_c const Ignore;
    fnCall();
    std::string sConditions;
    for (std::string const & sLine : Log.GetLines())
    {
        std::size_t const iFailed = sLine.find(" failed, ");
        std::size_t iFile = std::string::npos;   // the source file follows the condition
        for (char const * szEnd : { ".cpp, ", ".inl, ", ".h, " })
        {
            iFile = std::min(iFile, sLine.find(szEnd));
        }
        if (sLine.starts_with("Assert") && iFailed < sizeof "AssertEx" && iFile != std::string::npos)
        {
            std::size_t const iCondition = iFailed + sizeof " failed, " - 1;
            std::string const sCondition = sLine.substr(iCondition, sLine.rfind(", ", iFile) - iCondition);
            sConditions += (sConditions.empty() ? "" : " & ") + sCondition;
        }
    }
    return sConditions;
}

plat::DialogAnswer_e OnScriptedDialog(plat::Dialog_t const & Dialog)
{
    MemCategoryScope_c const Category(mem::Tools);
    std::lock_guard const Scope(g_Lock);
    DialogScript_c & Script = *g_pScript;
    Script.m_dShown.push_back(Dialog.szText);
    if (Script.m_dShown.size() <= Script.m_dAnswers.size())
    {
        return Script.m_dAnswers[Script.m_dShown.size() - 1];
    }
    return Dialog.eButtons == plat::DialogButtons_e::AbortRetryIgnore ? plat::DialogAnswer_e::Ignore
           : Dialog.eButtons == plat::DialogButtons_e::YesNoCancel    ? plat::DialogAnswer_e::No
                                                                      : plat::DialogAnswer_e::Ok;
}

DialogScript_c::DialogScript_c(std::initializer_list<plat::DialogAnswer_e> dAnswers)
    : m_dAnswers(dAnswers)
    , m_pOuter(g_pScript)
{
    g_pScript = this;
    m_fnPrevious = plat::DialogSetHandler(OnScriptedDialog);
}

DialogScript_c::~DialogScript_c()
{
    plat::DialogSetHandler(m_fnPrevious);
    g_pScript = m_pOuter;
}

std::string DialogScript_c::GetText() const
{
    std::lock_guard const Scope(g_Lock);
    return testing::PrintToString(m_dShown);
}

int DialogScript_c::CountHolding(std::string_view sPart) const
{
    return CountThoseHolding(sPart, m_dShown);
}
