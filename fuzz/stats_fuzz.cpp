// stats_fuzz.cpp: stats files of any bytes. The result is a tree, whatever the links are.
#include "fuzz/fuzz_support.h"
#include "tools/zqtool/statstrace.h"
#include "tools/zqtool/statstree.h"

#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::istringstream Stream(std::string(pData, pData + nSize));
    std::ostringstream TraceStream;
    StatsTree_c Tree;
    StatsTrace_c Trace(TraceStream, 1e9);   // ticks in a second
    bool bComplained = false;
    auto const Take = [&](StatsBatch_t const & Batch, bool bWhole)
    {
        Require(!Batch.empty());
        Require(Batch.size() <= STATS_MAX_TIMERS);
        Require(Batch[0].iParent == -1);
        for (std::size_t i = 1; i < Batch.size(); ++i)
        {
            Require(Batch[i].iParent >= 0);
            Require(static_cast<std::size_t>(Batch[i].iParent) < i);
        }
        Require(Tree.Add(Batch, bWhole).size() == Batch.size());
        Trace.Add(Batch);
    };
    bool const bSound = ReadStatsFile(Stream, Take,
        [&](std::uint64_t nOffset, std::string const &)
        {
            Require(nOffset <= nSize);
            bComplained = true;
        });
    Trace.Finish();
    Require(bSound != bComplained);
    Require(Tree.GetAverages().size() == Tree.GetNodes().size());
    Tree.GetSummary();
    return 0;
}
