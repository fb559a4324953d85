// zqtool stats: shows a stats file of the hierarchical profiler as a tree, as trace events and as a page.
#include "platform/clock.h"
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/help.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/output.h"
#include "tools/zqtool/statsfile.h"
#include "tools/zqtool/statsfollow.h"
#include "tools/zqtool/statslimits.h"
#include "tools/zqtool/statsprint.h"
#include "tools/zqtool/statstrace.h"
#include "tools/zqtool/text.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

namespace
{
    struct Options_s
    {
        std::string sFile, sTrace, sPage;
        std::vector<StatsLimit_t> dLimits;
        bool bJson = false;
        double fTicksPerSecond = 0;   // 0: that of this machine
        bool bFollow = false;
        StatsFollow_t Follow;
    };

    // Returns the rate of this machine's cycle counter, measured with its good clock for a twentieth of a second.
    // Returns 1e9 if there is no good clock, or if the cycle counter does not advance.
    double MeasureTicksPerSecond()
    {
        std::int64_t const nFrequency = plat::GoodClockFrequency();
        std::int64_t const tStart = plat::GoodClockTicks(), tStartCycles = plat::CycleCounter();
        std::int64_t tPassed = 0;
        while (nFrequency > 0 && tPassed < nFrequency / 20)
        {
            tPassed = plat::GoodClockTicks() - tStart;
        }
        auto const fTicks = static_cast<double>(plat::CycleCounter() - tStartCycles);
        return tPassed > 0 && fTicks > 0 ? fTicks * static_cast<double>(nFrequency) / static_cast<double>(tPassed)
                                         : 1e9;
    }

    // One reading of a file, for all requested outputs.
    class StatsRun_c
    {
    public:
        explicit StatsRun_c(Options_s const & Options)
            : m_Options(Options)
        {}

        bool Open();
        int Run();

    private:
        void Take(StatsBatch_t const & Batch, bool bWhole);
        void Complain(std::uint64_t nOffset, std::string const & sText);
        bool Read();
        void PrintProblems();
        bool FindTimers();
        bool CheckLimits(Json_t & Json);
        bool WriteOutputs();

        Options_s const & m_Options;
        std::ifstream m_Stream;
        OutputFile_c m_TraceOut, m_PageOut;
        StatsFacts_t m_Facts;
        std::size_t m_nMoreProblems = 0;   // beyond those in the facts
        StatsTree_c m_Tree;
        StatsPage_c m_Page;
        std::optional<StatsTrace_c> m_Trace;
    };

    bool StatsRun_c::Open()
    {
        if (std::string const sWhyNot = OpenInput(m_Options.sFile, m_Stream); !sWhyNot.empty())
        {
            PrintProblem(m_Options.sFile, sWhyNot);
            return false;
        }
        if (!m_TraceOut.Open(m_Options.sTrace, { m_Options.sFile }))
        {
            return false;
        }
        std::error_code Ignored;
        if (std::filesystem::equivalent(m_Options.sTrace, m_Options.sPage, Ignored))
        {
            PrintProblem(m_Options.sPage, "this is the file of --trace");
            return false;
        }
        return m_PageOut.Open(m_Options.sPage, { m_Options.sFile });
    }

    void StatsRun_c::Take(StatsBatch_t const & Batch, bool bWhole)
    {
        std::vector<int> const dNodes = m_Tree.Add(Batch, bWhole);
        if (m_Trace)
        {
            m_Trace->Add(Batch);
        }
        if (m_PageOut.IsWanted())
        {
            m_Page.Add(Batch, dNodes);
        }
    }

    void StatsRun_c::Complain(std::uint64_t nOffset, std::string const & sText)
    {
        m_nMoreProblems += m_Facts.AddProblem(nOffset, sText) ? 0 : 1;
    }

    void StatsRun_c::PrintProblems()
    {
        for (std::string const & sProblem : m_Facts.dProblems)
        {
            PrintProblem(m_Options.sFile, sProblem);
        }
    }

    // Reports the first limit that is for a timer that is not there, and returns false. Returns true if there is no
    // such limit, or no frame.
    bool StatsRun_c::FindTimers()
    {
        std::vector<std::string> dNames = { STATS_FRAME };
        for (StatsNode_t const & Node : m_Tree.GetNodes())
        {
            dNames.push_back(Node.sName);
        }
        for (StatsLimit_t const & Limit : m_Options.dLimits)
        {
            if (m_Tree.GetFrameCount() > 0 && !MeasureStats(Limit, m_Tree, m_Facts.fTicksPerSecond).bKnown)
            {
                ReportMisuse("there is no timer " + Limit.sName + Suggestion(Limit.sName, dNames), "stats");
                return false;
            }
        }
        return true;
    }

    // Prints the limits that are exceeded or without a frame, and adds all to an object. Returns whether all are
    // measured and none is exceeded. FindTimers reports a limit for a timer that is not there.
    bool StatsRun_c::CheckLimits(Json_t & Json)
    {
        bool bKept = true;
        for (StatsLimit_t const & Limit : m_Options.dLimits)
        {
            std::string const sName = Limit.sName + "." + Limit.sFigure;
            bool const bFrames = m_Tree.GetFrameCount() > 0;
            auto const [bKnown, tMeasured] =
                bFrames ? MeasureStats(Limit, m_Tree, m_Facts.fTicksPerSecond) : StatsMeasured_t();
            bool const bExceeded = !bKnown || tMeasured > Limit.tLimit;
            if (!bFrames)
            {
                std::fprintf(stderr, "%s: %s has a limit of %g ms, but no frame was measured\n",
                    Printable(m_Options.sFile).c_str(), sName.c_str(), Limit.tLimit);
            }
            else if (bKnown && bExceeded)
            {
                std::fprintf(stderr, "%s: %s is %g ms, over its limit of %g ms\n", Printable(m_Options.sFile).c_str(),
                    sName.c_str(), tMeasured, Limit.tLimit);
            }
            Json["limits"].push_back({ { "name", sName }, { "limit_ms", Limit.tLimit },
                { "measured_ms", bKnown ? Json_t(tMeasured) : Json_t() }, { "exceeded", bExceeded } });
            bKept = bKept && !bExceeded;
        }
        return bKept;
    }

    bool StatsRun_c::WriteOutputs()
    {
        bool bWritten = true;
        if (m_Trace)
        {
            m_Trace->Finish();
            bWritten = m_TraceOut.Close();
        }
        if (m_PageOut.IsWanted())
        {
            m_Page.Write(m_PageOut.Get(), m_Facts, m_Tree);
            bWritten = m_PageOut.Close() && bWritten;
        }
        return bWritten;
    }

    // Reads the file, or follows it. Returns false if StatsFollow fails.
    bool StatsRun_c::Read()
    {
        if (m_Options.bFollow)
        {
            StatsFollow_t Follow = m_Options.Follow;
            Follow.sFile = m_Options.sFile;
            return StatsFollow(Follow, m_Facts, m_Tree);
        }
        ReadStatsFile(
            m_Stream, [this](StatsBatch_t const & Batch, bool bWhole) { Take(Batch, bWhole); },
            [this](std::uint64_t nOffset, std::string const & sText) { Complain(nOffset, sText); });
        return true;
    }

    int StatsRun_c::Run()
    {
        m_Facts.sFile = Printable(std::filesystem::path(m_Options.sFile).filename().string());
        m_Facts.bMeasured = m_Options.fTicksPerSecond == 0;
        m_Facts.fTicksPerSecond = m_Facts.bMeasured ? MeasureTicksPerSecond() : m_Options.fTicksPerSecond;
        if (m_TraceOut.IsWanted())
        {
            m_Trace.emplace(m_TraceOut.Get(), m_Facts.fTicksPerSecond);
        }
        if (!Read())
        {
            return EXIT_FOUND;
        }
        bool const bSound = m_Facts.dProblems.empty();
        if (m_nMoreProblems > 0)
        {
            m_Facts.dProblems.push_back("and " + std::to_string(m_nMoreProblems) + " more like these");
        }
        bool const bWritten = WriteOutputs();   // before the text: what reads that may end first
        if (!m_Options.bJson)
        {
            PrintStats(m_Tree, m_Facts);
        }
        PrintProblems();
        Json_t Json = JsonOfStats(m_Tree, m_Facts);
        Json["file"] = m_Options.sFile;   // that of the facts is a page's title
        bool const bKept = CheckLimits(Json);
        if (m_Options.bJson)
        {
            PrintJson(Json);
        }
        std::fflush(stdout);
        return !FindTimers() ? EXIT_USAGE : bWritten && bSound && bKept ? EXIT_DONE : EXIT_FOUND;
    }
}

CommandRun_t PrepareStats(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments.AddText("FILE", "", pOptions->sFile, "stats file of the profiler").SetRequired();
    Argument_c const Trace =
        Arguments.AddText("--trace", "OUT", pOptions->sTrace, "write trace events, which trace viewers load");
    Argument_c const Page = Arguments.AddText("--html", "OUT", pOptions->sPage, "write a page with pictures");
    Arguments
        .AddNumber(
            "--ticks-per-second", "N", pOptions->fTicksPerSecond, "rate of the cycle counter; default: this machine's")
        .SetRange(1.0, 1e15);
    std::string const sPurpose =
        "end with status 1 if a time is above a limit, such as frame.p99=20ms or Physics.mean=500us: " + StatsFigures();
    Arguments.AddRead("--fail-over", "LIMIT", sPurpose.c_str())
        .SetOneValue()
        .SetReader(
            [pOptions](std::string const & sText) { return ReadStatsLimit(sText, pOptions->dLimits.emplace_back()); });
    Argument_c const Json = Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool stats --html game.html --fail-over frame.p99=20ms game.stats");
    Argument_c const Follow =
        Arguments
            .AddFlag("--follow", pOptions->bFollow,
                "serve the page to browsers on this machine while the program runs; Ctrl-C ends, then the tree is "
                "printed")
            .SetExcludes(Trace)
            .SetExcludes(Page)
            .SetExcludes(Json);
    Arguments.AddNumber("--port", "N", pOptions->Follow.iPort, "port for --follow; default: a free one")
        .SetRange(1, 65535)
        .SetNeeds(Follow);
    Arguments.AddNumber("--frames", "N", pOptions->Follow.nMaxFrames, "end --follow after so many frames")
        .SetRange(1, 2000000000)
        .SetNeeds(Follow);
    Arguments.SetCheck(
        [pOptions]
        {
            bool const bSame = !pOptions->sTrace.empty() && pOptions->sTrace == pOptions->sPage;
            return std::string(bSame ? "--trace and --html name the same file" : "");
        });
    return [pOptions]
    {
        StatsRun_c Run(*pOptions);
        return Run.Open() ? Run.Run() : EXIT_FOUND;
    };
}
