// test_support.h: GoogleTest, and what the tests of several services need.
//
// It has folders that are deleted after a test, child processes, captures of the log, answers to dialogs, and the like.
#pragma once

#include "platform/debugheap.h"
#include "platform/dialog.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

class Module_c;

/// The rows of a table of cases.
template <typename... T>
using Rows_t = std::initializer_list<std::tuple<T...>>;

/// Calls fnCall(0) to fnCall(nThreads - 1), each on a thread of its own, and waits for all.
template <typename CALL>
void RunInThreads(int nThreads, CALL const & fnCall)
{
    std::vector<std::thread> dThreads;
    for (int i = 0; i < nThreads; ++i)
    {
        dThreads.emplace_back(fnCall, i);
    }
    std::for_each(dThreads.begin(), dThreads.end(), [](std::thread & Thread) { Thread.join(); });
}

/// Skips the calling test if bCondition holds. szWhy is the reason: any texts, joined by `<<`.
#define SKIP_IF(bCondition, szWhy)                                                                                     \
    if (bCondition)                                                                                                    \
    GTEST_SKIP() << szWhy

/// Expects several conditions, all of which are evaluated, in order. On failure it lists them, and the numbers of those
/// that are false, counted from 1.
#define EXPECT_EACH(...) EXPECT_EQ(FalseAmong({ __VA_ARGS__ }), "")

/// Condition of EXPECT_EACH: any value that converts to a truth value.
struct Condition_s
{
    template <typename T>
    Condition_s(T const & Value)
        : bHolds(static_cast<bool>(Value))
    {}
    bool bHolds;
};

/// Returns the numbers of the false conditions, counted from 1, each followed by a blank.
inline std::string FalseAmong(std::initializer_list<Condition_s> dConditions)
{
    std::string sNumbers;
    for (auto const & Condition : dConditions)
    {
        sNumbers += Condition.bHolds ? "" : std::to_string(&Condition - dConditions.begin() + 1) + " ";
    }
    return sNumbers;
}

/// Registers a module, and initialises every registered one that is not yet initialised. Returns false on failure.
/// Module_c::ShutdownAllModules ends all.
bool StartModule(Module_c * pModule);

/// Returns the number of this process's pages in memory, without those of files.
long ResidentPages();

/// Starts a child process and returns its number. It ends with the status that fnRun returns, or with 98 if the first
/// failed expectation of the test is in it. A signal ends it after a minute.
pid_t StartChild(std::function<int()> const & fnRun);

/// Ends this process by a signal after nSeconds, in place of the minute of StartChild. Serves calls that may hang.
inline void EndAfter(unsigned nSeconds)
{
    alarm(nSeconds);
}

/// Waits for the end of a child. Returns its status, or -1 if a signal ended it.
int StatusOfChild(pid_t iChild);

/// Kills a child and waits for its end. Returns false if it had exited before.
bool KillChild(pid_t iChild);

/// Predicate for EXPECT_EXIT: whether a breakpoint ended the process.
inline testing::KilledBySignal const g_EndedAtBreakpoint(SIGTRAP);

/// Skips a test that needs StatusAsNobody, unless CanDropRights().
#define NEEDS_NOBODY SKIP_IF(!CanDropRights(), "the superuser's rights can't be dropped")

/// Returns whether a child process can run without the superuser's rights. Returns true if this process has none.
bool CanDropRights();

/// Runs a call in a child process without the superuser's rights. Returns its status. Requires CanDropRights().
int StatusAsNobody(std::function<int()> const & fnRun);

/// Returns whether this process may do what file permissions forbid.
bool IsSuperuser();

/// Makes a named pipe. Returns its path.
std::string MakePipe(std::string const & sPath);

/// A gate at which a process waits until another process, or a thread, opens it. Each Open ends one Wait.
class Gate_c
{
public:
    Gate_c() { EXPECT_EQ(pipe(m_dEnds), 0); }
    ~Gate_c()
    {
        close(m_dEnds[0]);
        close(m_dEnds[1]);
    }
    Gate_c & operator=(Gate_c &&) = delete;

    /// Open the gate, and wait until it is open. Return false on failure.
    bool Open() const { return write(m_dEnds[1], "x", 1) == 1; }
    bool Wait() const
    {
        char cRead;
        return read(m_dEnds[0], &cRead, 1) == 1;
    }

private:
    int m_dEnds[2] = {};
};

/// A child process that runs from the constructor on and waits until the end of the scope.
class WaitingChild_c
{
public:
    WaitingChild_c();
    ~WaitingChild_c();
    WaitingChild_c & operator=(WaitingChild_c &&) = delete;

private:
    pid_t m_iChild;
};

/// Status and output of a process that has ended.
struct Result_t
{
    int iStatus = -1;   // -1 if a signal ended it
    std::string sOutput = "";
    std::string sSignal = "";   // of RunShell and RunTool: as in "SEGV", or empty for an exit
};

/// Returns a matcher of a result with this status and an output that matches.
template <typename OUTPUT>
auto Ends(int iStatus, OUTPUT const & Output)
{
    return testing::AllOf(testing::Field(&Result_t::iStatus, iStatus), testing::Field(&Result_t::sOutput, Output));
}

/// Runs a command line of the shell and waits for its end. Returns its status and standard output.
Result_t RunShell(std::string const & sCommand);

/// Skip the test if a program that it runs is not built.
#define NEEDS_ZQTOOL SKIP_IF(!std::filesystem::exists(ZQTOOL_PATH), "zqtool is not built here")
#define NEEDS_ZQSYMBOLS                                                                                                \
    SKIP_IF(!std::filesystem::exists(ZQSYMBOLS_PATH), "zqsymbols is not built here: libdw was not found")

/// Runs zqtool. Returns its status and what it prints on both streams.
Result_t RunTool(std::string const & sArguments);

/// Runs a call in a child process on a terminal of its own, types sTyped as soon as the output ends in sAwaited, and
/// returns the status and the output. Expects both texts or neither. Without them it types nothing.
Result_t RunOnTerminal(
    std::function<int()> const & fnRun, std::string const & sTyped = "", std::string const & sAwaited = "");

/// Replaces this process by a shell that runs the command line. On failure returns -1, otherwise does not return.
inline int BecomeShell(std::string const & sCommand)
{
    return execl("/bin/sh", "sh", "-c", sCommand.c_str(), nullptr);
}

/// Runs a command line of the shell as the foreground job of this process's terminal. Returns the signal that ends or
/// stops the job, or 0. Kills a job that stops.
int RunInForeground(std::string const & sCommand);

/// Scope in which this process's limit RESOURCE (setrlimit) is nLimit. A write beyond RLIMIT_FSIZE raises no signal.
template <int RESOURCE>
class LimitScope_T
{
public:
    explicit LimitScope_T(rlim_t nLimit)
        : m_fnPrevious(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RESOURCE, &m_Previous);
        rlimit const Limit = { nLimit, m_Previous.rlim_max };
        setrlimit(RESOURCE, &Limit);
    }
    ~LimitScope_T()
    {
        setrlimit(RESOURCE, &m_Previous);
        std::signal(SIGXFSZ, m_fnPrevious);
    }
    LimitScope_T & operator=(LimitScope_T &&) = delete;

private:
    rlimit m_Previous;
    void (*m_fnPrevious)(int);
};

/// Scope in which every write beyond nLimit bytes of a file fails, as on a full disk.
using FullDisk_c = LimitScope_T<RLIMIT_FSIZE>;

/// Scope in which no new descriptor has the number nLimit or a higher one.
using FewDescriptors_c = LimitScope_T<RLIMIT_NOFILE>;

/// A fresh folder in Root, by default the system's folder for temporary files. It is deleted with all it holds at the
/// end of the scope. Requires an absolute Root.
class TempFolder_c
{
public:
    explicit TempFolder_c(std::filesystem::path const & Root = std::filesystem::temp_directory_path());
    ~TempFolder_c();
    TempFolder_c & operator=(TempFolder_c &&) = delete;

    /// Returns the folder, absolute, in the system's own form, without a trailing separator.
    std::string const & GetPath() const { return m_sPath; }

    /// Returns the path of a name in the folder. Both `/` and `\` separate the parts of the name.
    std::string Join(std::string_view sName) const;

    /// Writes a file and makes the folders of its path. Returns the path.
    std::string Write(std::string_view sName, std::string_view sContents) const;

    /// Makes a folder and those of its path. Returns the path.
    std::string MakeFolder(std::string_view sName) const;

    /// Returns the contents of a file, empty if there is none.
    std::string Read(std::string_view sName) const;

private:
    std::string m_sPath;
};

/// Scope in which a folder is the current one.
class CurrentFolderScope_c
{
public:
    explicit CurrentFolderScope_c(std::string const & sFolder) { std::filesystem::current_path(sFolder); }
    ~CurrentFolderScope_c() { std::filesystem::current_path(m_Previous); }
    CurrentFolderScope_c & operator=(CurrentFolderScope_c &&) = delete;

private:
    std::filesystem::path const m_Previous = std::filesystem::current_path();
};

/// Prints all that is logged from now on. Serves processes that the test ends.
void LogToStandardError();

/// Scope that collects the lines that any thread logs, except those about modules that start slowly. Scopes may nest:
/// the innermost collects. LogDone within the scope ends the collecting.
class LogCapture_c
{
public:
    LogCapture_c();
    ~LogCapture_c();
    LogCapture_c & operator=(LogCapture_c &&) = delete;

    std::vector<std::string> GetLines() const;

    /// Returns all lines, each followed by a line end.
    std::string GetText() const;

    /// Return how many lines are this text, and how many hold it.
    int Count(std::string_view sLine) const { return static_cast<int>(std::ranges::count(GetLines(), sLine)); }
    int CountHolding(std::string_view sPart) const;

    void Clear();

    /// Also collects the lines about modules that start slowly.
    void CollectSlowStarts() { m_bSlowStarts = true; }

private:
    friend void OnCapturedLine(char const * szText);

    std::vector<std::string> m_dLines;
    LogCapture_c * m_pOuter;
    bool m_bSlowStarts = false;
};

/// Scope that collects the heap's reports. Requires that no other one exists.
class HeapReports_c
{
public:
    ~HeapReports_c() { plat::HeapReportSet(m_fnPrevious); }
    HeapReports_c & operator=(HeapReports_c &&) = delete;

    /// Removes the reports since the last call and returns them.
    std::string Extract() { return std::exchange(s_sReports, ""); }

private:
    static inline std::string s_sReports;
    plat::HeapReport_t m_fnPrevious = plat::HeapReportSet([](char const * szText) { s_sReports += szText; });
};

/// Converts each byte to a character by itself and returns the result. Requires that all bytes are ASCII.
inline std::wstring WideFromAscii(std::string const & sText)
{
    return std::wstring(sText.begin(), sText.end());
}

/// Returns an address as the heap's reports show it.
std::string AddressText(void const * pMemory);

/// Returns a text without the occurrences of a part. Requires that the part is not empty.
std::string Without(std::string sText, std::string_view sPart);

/// Page of the file formats, whose examples are tested.
#define FORMATS_PAGE TEST_SOURCE_FOLDER "/docs/formats.md"

/// Runs a call and ignores each assertion that fails in it. Returns their conditions, joined by " & ".
std::string FailedConditions(std::function<void()> const & fnCall);

/// Scope that answers dialogs and keeps their texts. The answers are used in order. After the last one, and without
/// any, each dialog gets the answer that lets the program continue (Ignore, No, OK).
class DialogScript_c
{
public:
    explicit DialogScript_c(std::initializer_list<plat::DialogAnswer_e> dAnswers = {});
    ~DialogScript_c();
    DialogScript_c & operator=(DialogScript_c &&) = delete;

    /// Return how many dialogs were shown, and how many held this text.
    int GetCount() const { return CountHolding(""); }
    int CountHolding(std::string_view sPart) const;

    /// Returns the texts of all dialogs.
    std::string GetText() const;

private:
    friend plat::DialogAnswer_e OnScriptedDialog(plat::Dialog_t const & Dialog);

    std::vector<plat::DialogAnswer_e> m_dAnswers;
    std::vector<std::string> m_dShown;
    DialogScript_c * m_pOuter;
    plat::DialogHandler_t m_fnPrevious;
};
