// Logs, complains and counts the complaints: log_and_complain [FOLDER]
#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"

#include <cstdio>
#include <filesystem>
#include <string>

namespace
{
    int g_nComplaints = 0;

    void OnWarning(char const * szText)
    {
        ++g_nComplaints;
        std::printf("complaint: %s\n", szText);
    }
}

int main(int nArguments, char ** dArguments)   // NOLINT(bugprone-exception-escape): a folder may not be UTF-8
{
    std::filesystem::path const Logs = std::filesystem::absolute(nArguments > 1 ? dArguments[1] : "logs") / "";
    std::u32string const sLogs = Logs.u32string();   // libstdc++'s wstring() refuses names beyond ASCII
    LogSetFile(std::wstring(sLogs.begin(), sLogs.end()).c_str(), L"message.log");   // ends in a separator
    AppMiscStartup();
    LogSetLimit(1 << 20, 3);   // message.log and three previous files of 1 MiB
    LogAddCallback([](char const * szLine) { std::printf("line: %s\n", szLine); });
    g_WarningsCallbacker.Add(OnWarning, false);
    SetAchtungs(false);   // log and count, ask nobody
    Module_c::Register(ModuleLog_c::Get());
    Module_c::InitializeAllModules();

    Log("%i players", 4);
    Logf("loot.log", "%s\t%i", "gold", 12);   // a log of its own beside message.log
    Warning("no wind at %s", "Skerry Sound");
    Achtung("%i crates without a harbour", 7);

    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return g_nComplaints == 2 && std::fflush(stdout) == 0 ? 0 : 1;   // fails too if the output is lost
}
