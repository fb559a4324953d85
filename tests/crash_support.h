// crash_support.h: runs the crasher and reads what it leaves.
#pragma once

#include "tests/machine_support.h"

#include <chrono>

namespace fs = std::filesystem;

/// Result of a run of the crasher, and the texts of its reports, their details and its logs.
struct Crash_t : Result_t
{
    int nReports = 0;
    std::string sReport = "", sDetails = "", sLog = "";
    double tSeconds = 0.0;
};

/// Adds the reports and details in a folder to Crash.
inline void ReadReports(TempFolder_c const & Folder, Crash_t & Crash)
{
    for (auto const & Entry : fs::recursive_directory_iterator(Folder.GetPath()))
    {
        bool const bRegular = Entry.symlink_status().type() == fs::file_type::regular;
        std::string const sName = Entry.path().lexically_relative(Folder.GetPath()).string();
        if (bRegular && sName.ends_with(".rpt"))
        {
            ++Crash.nReports;
            Crash.sReport += Folder.Read(sName);
        }
        if (bRegular && sName.ends_with("_details.txt"))
        {
            Crash.sDetails += Folder.Read(sName);
        }
    }
}

/// Runs the crasher, or another program, in a folder. Returns its result and what it leaves there. The last argument of
/// the program is sHelper, the path of a symbol helper.
inline Crash_t RunIn(TempFolder_c const & Folder, std::string const & sArguments, std::string const & sHelper,
    std::string const & sProgram = CRASHER_PATH)
{
    auto const tStart = std::chrono::steady_clock::now();
    std::string const sCommand = "cd '" + Folder.GetPath() + "' && exec " TEST_EMULATOR "'" + sProgram + "' "
                                 + sArguments + " '" + sHelper + "' > out 2>&1 < /dev/null";
    Crash_t Crash{ RunShell(sCommand) };
    Crash.tSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
    Crash.sOutput = Folder.Read("out");
    ReadReports(Folder, Crash);
    Crash.sLog = Folder.Read("message.log") + Folder.Read("mixed/message.log");
    return Crash;
}

/// Runs the crasher in a folder of its own. Returns what RunIn does.
inline Crash_t RunAlone(std::string const & sArguments, std::string const & sHelper = "")
{
    return RunIn(TempFolder_c(), sArguments, sHelper);
}

/// Writes a symbol helper that runs a script of the shell. Returns its path.
inline std::string WriteHelper(TempFolder_c const & Folder, std::string const & sScript)
{
    std::string const sPath = Folder.Write("helper", "#!/bin/sh\n" + sScript);
    fs::permissions(sPath, fs::perms::owner_all);
    return sPath;
}

/// Fixture of tests that need a report.
class CrashTest : public testing::Test
{
protected:
    void SetUp() override { NEEDS_VFORK; }
};
