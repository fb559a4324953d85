// parts.cpp: a single service of the library, for runs in which system calls fail.
//
//     parts SERVICE FOLDER old|new       writes the service's data
//     parts SERVICE FOLDER check         checks that the old or the new data are complete
//     parts SERVICE FOLDER check-new     checks that the new data are complete
//
// Ends with status 0 on success, 1 after a line that says what is wrong, or 2 if the arguments are wrong. The service
// "crash" ends in a fault for `new` instead.
#include "platform/asyncwrite.h"
#include "platform/clipboard.h"
#include "platform/text.h"
#include "zqcore/capp.h"
#include "zqcore/cclipboard.h"
#include "zqcore/cdebug.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cprofile.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/cregistry.h"
#include "zqcore/cserialize.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace
{
    constexpr int VALUES = 2000;   // more than fit into the buffer of BufferedWriteable_c

    bool Fail(std::string const & sWhat)
    {
        std::printf("%s\n", sWhat.c_str());
        return false;
    }

    std::string Contents(std::string const & sFile)
    {
        std::ifstream Stream(sFile, std::ios::binary);
        return { std::istreambuf_iterator<char>(Stream), {} };
    }

    bool WriteRegistry(std::string const &, std::string const & sText)
    {
        Registry_c Key;
        bool bWritten = Key.OpenKey("game\\options", true) && Key.WriteString("name", sText.c_str())
                        && Key.WriteValue("size", static_cast<int>(sText.size()));
        if (bWritten)
        {
            Key.DeleteValue("spare");
            bWritten = Key.WriteString("spare", sText.c_str());
        }
        return bWritten || Fail("registry: not written");
    }

    // Returns the name, or "damaged". Each text may be old or new, and the spare one missing. The size is 3 for both.
    std::string ReadRegistry(std::string const &)
    {
        Registry_c Key;
        char szName[64] = "", szSpare[64] = "";
        Key.OpenKey("game\\options", false);
        Key.ReadString("name", szName, sizeof szName);
        bool const bSpare = Key.ReadString("spare", szSpare, sizeof szSpare);
        int const iSize = Key.ReadInt("size", -1);
        bool const bWhole = iSize == 3 && (!bSpare || szSpare == std::string("old") || szSpare == std::string("new"));
        return bWhole ? szName : "damaged";
    }

    bool WriteClipboard(std::string const &, std::string const & sText)
    {
        ClipboardOpen();
        if (!g_isOpen)
        {
            return Fail("clipboard: not open");
        }
        ClipboardReset();
        if (std::string sLeft(ClipboardGetSize() + 1, 0); ClipboardGetData(sLeft.data()) && sLeft[0] != 0)
        {
            ClipboardClose();
            return Fail("clipboard: not emptied");
        }
        ClipboardPrintf("%s", sText.c_str());
        std::string sStored(ClipboardGetSize() + 1, 0);
        bool const bStored = ClipboardGetData(sStored.data()) && sStored.c_str() == sText;
        ClipboardClose();
        return bStored || Fail("clipboard: not stored");
    }

    std::string ReadClipboard(std::string const &)
    {
        ClipboardOpen();
        std::string sStored(ClipboardGetSize() + 1, 0);
        ClipboardGetData(sStored.data());
        ClipboardClose();
        return *sStored.c_str() ? sStored.c_str()
                                : "old";   // the reset before the new text may be the last thing stored
    }

    bool WriteArchive(std::string const & sFolder, std::string const & sText)
    {
        FileReplacement_c Replacement((sFolder + "\\deep\\kept.sav").c_str());
        BufferedWriteable_c Archive(Replacement, ARCHIVE_SAVED_GAME_VERSION);
        if (Archive.Open())
        {
            for (int i = 0; i < VALUES; ++i)
            {
                int iValue = sText[0];
                Archive.Serialize(iValue);
            }
        }
        bool const bSaved = Archive.Close() && !Archive.IsFailed() && Replacement.Commit();
        return bSaved || Fail("archive: not saved: " + std::to_string(errno));
    }

    std::string ReadArchive(std::string const & sFolder)
    {
        std::string const sBytes = Contents(sFolder + "/deep/kept.sav");
        bool bWhole = sBytes.size() == 4 + 4 * VALUES;   // the version and the values
        std::string const sFirst = bWhole ? sBytes.substr(4, 1) : "";
        for (std::size_t i = 4; bWhole && i < sBytes.size(); i += 4)
        {
            bWhole = sBytes.substr(i, 1) == sFirst;
        }
        return !bWhole ? "damaged" : sFirst == "o" ? "old" : "new";
    }

    bool WriteReport(std::string const & sFolder, std::string const & sText)
    {
        MemCategoryScope_c const Scope(mem::AI);
        char * const pBlock = ZQ_NEW char[sText == "old" ? 1111 : 2222];
        MemoryLogAllocations();
        delete[] pBlock;
        std::string const sReport = Contents(sFolder + "/allocations.csv");
        bool const bWhole = sReport.find("; total\n") != std::string::npos && !MemoryLogAllocationsFailed();
        return bWhole || Fail("report: not whole");
    }

    // Returns "old" if the report has the block of 1111 bytes, otherwise "new". It is written in place and may be cut.
    std::string ReadReport(std::string const & sFolder)
    {
        return Contents(sFolder + "/allocations.csv").find("1111; ") != std::string::npos ? "old" : "new";
    }

    // Returns "old" or "new" by the last line of this program, or "damaged: " and the first damaged line.
    std::string ReadLogs(std::string const & sFolder)
    {
        std::string sKind = "old";
        for (char const * szFile : { "/message.log", "/named.log" })
        {
            std::istringstream Lines(Contents(sFolder + szFile));
            for (std::string sLine; std::getline(Lines, sLine);)
            {
                std::size_t const nAt = std::min(sLine.find("new "), sLine.find("old "));
                if (nAt == std::string::npos)
                {
                    continue;
                }
                if (sLine.find_first_not_of(plat::DECIMAL_DIGITS, nAt + 4) != std::string::npos)
                {
                    return "damaged: " + sLine;
                }
                sKind = sLine.substr(nAt, 3);
            }
        }
        return sKind;
    }

    bool WriteLogs(std::string const & sFolder, std::string const & sText)
    {
        for (int i = 0; i < 20; ++i)
        {
            Log("%s %i", sText.c_str(), i);
            Logf("named.log", "%s %i", sText.c_str(), i);
        }
        return ReadLogs(sFolder) == sText || Fail("logs: not written");
    }

    // Writes two batches and returns whether that succeeded. The driver reads the file.
    bool WriteStats(std::string const & sFolder, std::string const &)
    {
        Module_c::Register(ModuleProfiler_c::Get());
        if (!Module_c::InitializeAllModules())
        {
            return Fail("the profiler did not start");
        }
        ProfilerInitSwapStats((sFolder + "/game.stats").c_str());
        for (int i = 0; i < 2 * PROFILER_FRAMES; ++i)
        {
            ProfilerBeginFrame();
            ProfilerEndFrame();
            ProfilerUpdateFrame(false);
        }
        ProfilerCloseStats();
        return !ProfilerSwapStatsFailed() || Fail("stats: not written");
    }

    // Calls WriteStats without a queue of requests, whose writes can't be made to fail.
    bool WriteStatsInPlace(std::string const & sFolder, std::string const & sText)
    {
        plat::AsyncFile_c::AllowConcurrent(false);
        return WriteStats(sFolder, sText);
    }

    bool Crash(std::string const &, std::string const & sText)
    {
        auto const Address = static_cast<std::uintptr_t>(sText.size());   // unmapped, which no compiler knows
        return sText == "old" || *reinterpret_cast<int volatile *>(Address) == 1;
    }

    struct Service_s
    {
        char const * szName;
        bool (*fnWrite)(std::string const & sFolder, std::string const & sText);
        std::string (*fnRead)(std::string const & sFolder);   // null if the program does not check the service's data
    };
    constexpr Service_s SERVICES[] = { { "registry", WriteRegistry, ReadRegistry },
        { "clipboard", WriteClipboard, ReadClipboard }, { "archive", WriteArchive, ReadArchive },
        { "report", WriteReport, ReadReport }, { "logs", WriteLogs, ReadLogs }, { "stats", WriteStats, nullptr },
        { "stats in place", WriteStatsInPlace, nullptr }, { "crash", Crash, nullptr } };

    bool RunService(Service_s const & Service, std::string const & sFolder, std::string const & sWish)
    {
        if (sWish.starts_with("check"))
        {
            std::string const sFound = Service.fnRead(sFolder);
            return sFound == "new" || (sWish == "check" && sFound == "old")
                   || Fail(Service.szName + (": found " + sFound));
        }
        return Service.fnWrite(sFolder, sWish);
    }
}

int main(int nArguments, char ** dArguments)
{
    std::string const sWish = nArguments == 4 ? dArguments[3] : "";
    bool const bCheck = sWish == "check" || sWish == "check-new", bWrite = sWish == "old" || sWish == "new";
    auto const pService = std::find_if(std::begin(SERVICES), std::end(SERVICES),
        [&](Service_s const & Service)
        { return (bWrite || (bCheck && Service.fnRead)) && Service.szName == std::string(dArguments[1]); });
    if (pService == std::end(SERVICES))
    {
        std::fprintf(stderr, "parts: see the head of its source\n");
        return 2;
    }
    std::string const sFolder = dArguments[2];
    g_silentMode = false;
    plat::RegistrySetFolder(plat::RegistryTree_e::User, (sFolder + "/registry").c_str());
    plat::ClipboardSetFolder((sFolder + "/clipboard").c_str());
    LogSetFile(bCheck ? L"" : std::filesystem::path(sFolder + "/").wstring().c_str(), L"message.log");
    AppMiscStartup();
    std::filesystem::current_path(sFolder);
    Module_c::Register(ModuleLog_c::Get());
    Module_c::Register(ModuleClipboard_c::Get());
    bool const bDone =
        Module_c::InitializeAllModules() ? RunService(*pService, sFolder, sWish) : Fail("a service did not start");
    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return bDone ? 0 : 1;
}
