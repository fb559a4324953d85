// zqtool stats: shows a stats file of the hierarchical profiler as a tree, as trace events and as a page.
#include "platform/clock.h"

#include "tools/zqtool/command.h"
#include "tools/zqtool/output.h"
#include "tools/zqtool/statspage.h"
#include "tools/zqtool/statstrace.h"
#include "tools/zqtool/statstree.h"
#include "tools/zqtool/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

namespace
{
    constexpr std::size_t MAX_PROBLEMS = 20;   // printed; the others are counted

    struct Options_s
    {
        std::string sFile, sTrace, sPage;
        double fTicksPerSecond = 0;   // 0: that of this machine
    };

    // Returns the rate of this machine's cycle counter, measured with its good clock for a twentieth of a second.
    // Returns 1e9 if one of the clocks does not advance.
    double MeasureTicksPerSecond()
    {
        std::int64_t const nFrequency = plat::GoodClockFrequency();
        std::int64_t const nStart = plat::GoodClockTicks(), tStart = plat::CycleCounter();
        std::int64_t nPassed = 0;
        while (nFrequency > 0 && nPassed < nFrequency / 20)
        {
            nPassed = plat::GoodClockTicks() - nStart;
        }
        auto const fTicks = static_cast<double>(plat::CycleCounter() - tStart);
        return nPassed > 0 && fTicks > 0 ? fTicks * static_cast<double>(nFrequency) / static_cast<double>(nPassed)
                                         : 1e9;
    }

    void PrintTree(StatsTree_c const & Tree, double fMilliseconds)
    {
        std::vector<StatsNode_t> const & dNodes = Tree.GetNodes();
        std::vector<StatsAverage_t> const dAverages = Tree.GetAverages();
        std::vector<int> dParents;
        std::vector<std::size_t> dDepths;
        for (StatsNode_t const & Node : dNodes)
        {
            dDepths.push_back(Node.iParent < 0 ? 0 : dDepths[static_cast<std::size_t>(Node.iParent)] + 1);
            dParents.push_back(Node.iParent);
        }
        std::printf("%12s %12s %12s %9s %12s %12s  %s\n", "average ms", "own ms", "peak ms", "at frame", "calls",
            "calls/frame", "timer");
        for (std::size_t const i : DepthFirst(dParents))
        {
            StatsNode_t const & Node = dNodes[i];
            if (i > 0)   // the root is not timed
            {
                std::printf("%12.4f %12.4f %12.4f %9s %12llu %12.2f  %*s%s\n", dAverages[i].tTime * fMilliseconds,
                    dAverages[i].tOwn * fMilliseconds, static_cast<double>(Node.tPeak) * fMilliseconds,
                    Node.iPeakFrame < 0 ? "-" : std::to_string(Node.iPeakFrame).c_str(),
                    static_cast<unsigned long long>(Node.nCalls), dAverages[i].nCalls,
                    static_cast<int>(2 * dDepths[i] - 2), "", Node.sName.c_str());
            }
        }
    }

    void Print(StatsTree_c const & Tree, StatsFacts_t const & Facts)
    {
        int const nBatches = Tree.GetFrameCount() / static_cast<int>(STATS_FRAMES);
        std::printf("%i frames in %i %s; %.0f ticks a second%s\n", Tree.GetFrameCount(), nBatches,
            nBatches == 1 ? "batch" : "batches", Facts.fTicksPerSecond,
            Facts.bMeasured ? ", as on this machine (--ticks-per-second tells another rate)" : "");
        if (Tree.GetFrameCount() == 0)
        {
            std::puts("The profiler writes its first batch after 150 frames.");
            return;
        }
        double const fMilliseconds = 1000 / Facts.fTicksPerSecond;
        StatsSummary_t const Summary = Tree.GetSummary();
        std::printf("frame time in ms: mean %.4f, median %.4f, 95 %% %.4f, 99 %% %.4f, worst %.4f (frame %i)\n\n",
            Summary.tMean * fMilliseconds, Summary.tMedian * fMilliseconds, Summary.t95 * fMilliseconds,
            Summary.t99 * fMilliseconds, Summary.tWorst * fMilliseconds, Summary.iWorst);
        PrintTree(Tree, fMilliseconds);
    }

    // Reads a file once, for all requested outputs.
    class StatsRun_c
    {
    public:
        explicit StatsRun_c(Options_s const & Options)
            : m_Options(Options)
        {}

        bool Open();
        bool Run();

    private:
        void Take(StatsBatch_t const & Batch, bool bWhole);
        void Complain(std::uint64_t nOffset, std::string const & sText);
        void PrintProblems();
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
        m_Stream.open(m_Options.sFile, std::ios::binary);
        if (!m_Stream)
        {
            std::fprintf(stderr, "zqtool: can't open %s\n", m_Options.sFile.c_str());
            return false;
        }
        return m_TraceOut.Open(m_Options.sTrace, { m_Options.sFile })
               && m_PageOut.Open(m_Options.sPage, { m_Options.sFile });
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
        if (m_Facts.dProblems.size() < MAX_PROBLEMS)
        {
            m_Facts.dProblems.push_back("byte " + std::to_string(nOffset) + ": " + sText);
        }
        else
        {
            ++m_nMoreProblems;
        }
    }

    void StatsRun_c::PrintProblems()
    {
        if (m_nMoreProblems > 0)
        {
            m_Facts.dProblems.push_back("and " + std::to_string(m_nMoreProblems) + " more like these");
        }
        std::fflush(stdout);
        for (std::string const & sProblem : m_Facts.dProblems)
        {
            std::fprintf(stderr, "%s: %s\n", m_Options.sFile.c_str(), sProblem.c_str());
        }
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

    bool StatsRun_c::Run()
    {
        m_Facts.sFile = Printable(std::filesystem::path(m_Options.sFile).filename().string());
        m_Facts.bMeasured = m_Options.fTicksPerSecond == 0;
        m_Facts.fTicksPerSecond = m_Facts.bMeasured ? MeasureTicksPerSecond() : m_Options.fTicksPerSecond;
        if (m_TraceOut.IsWanted())
        {
            m_Trace.emplace(m_TraceOut.Get(), m_Facts.fTicksPerSecond);
        }
        bool const bSound = ReadStatsFile(
            m_Stream, [this](StatsBatch_t const & Batch, bool bWhole) { Take(Batch, bWhole); },
            [this](std::uint64_t nOffset, std::string const & sText) { Complain(nOffset, sText); });
        Print(m_Tree, m_Facts);
        PrintProblems();
        return WriteOutputs() && bSound;
    }
}

CommandRun_t PrepareStats(CLI::App & App)
{
    auto const pOptions = std::make_shared<Options_s>();
    App.add_option("FILE", pOptions->sFile, "stats file of the profiler")->type_name("")->required();
    App.add_option("--trace", pOptions->sTrace, "write trace events, which trace viewers load")->type_name("OUT");
    App.add_option("--html", pOptions->sPage, "write a page with pictures")->type_name("OUT");
    App.add_option(
           "--ticks-per-second", pOptions->fTicksPerSecond, "rate of the cycle counter; default: this machine's")
        ->type_name("N")
        ->check(CLI::Range(1.0, 1e15));
    App.parse_complete_callback(
        [pOptions]
        {
            if (!pOptions->sTrace.empty() && pOptions->sTrace == pOptions->sPage)
            {
                throw CLI::ValidationError("--trace and --html name the same file");
            }
        });
    return [pOptions]
    {
        StatsRun_c Run(*pOptions);
        return Run.Open() && Run.Run() ? EXIT_DONE : EXIT_FOUND;
    };
}
