#include "tests/browser_support.h"
#include "tests/stats_support.h"
#include "zqcore/cfilename.h"
#include "zqcore/cprofile.h"

#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>

namespace
{
    using Json_t = nlohmann::json;
    using testing::HasSubstr;

    constexpr std::size_t TIMERS = 6, WORST = 77;
    constexpr std::size_t BATCH_0 = 8, BATCH_1 = BATCH_0 + 4 + (TIMERS - 1) * STATS_RECORD;    // offsets in the sample
    constexpr std::size_t NAME_END = 28, FIRST_TIME_HIGH = STATS_TIMES + 4, MAX_SLOT = 2496;   // offsets in a record
    constexpr std::uint32_t RECORD_ADDRESS = 0xFFFFF000;   // the addresses from record 2 on wrap around

    constexpr char UGLY[] = "</script><b id=evil>&\"'\\\x1B[1m\xFF_x";
    static_assert(sizeof UGLY == 32, "the longest name that there is");

    // Returns the time and the calls of a timer in a frame.
    timerFrame_t Measured(std::size_t iTimer, std::size_t iFrame)
    {
        std::int64_t const tExtra = iFrame == WORST ? 18000 : 0;   // ticks
        timerFrame_t const dFrames[TIMERS] = { { 0, 0 }, { 2000 + tExtra, 1 }, { 1500 + tExtra, 3 },
            { iFrame % 2 ? 500 : 0, iFrame % 2 ? 2u : 0u }, { 10, 1 }, { 100, 1 } };
        return dFrames[iTimer];
    }

    std::uint32_t Word(std::string const & sBytes, std::size_t nOffset)
    {
        std::uint32_t nWord;
        std::memcpy(&nWord, &sBytes[nOffset], 4);
        return nWord;
    }

    std::string Patched(std::string sBytes, std::size_t nOffset, std::uint32_t nWord)
    {
        std::memcpy(&sBytes[nOffset], &nWord, 4);
        return sBytes;
    }

    // Runs the profiler for two batches, shuts all modules down, and returns the stats file. The last timer comes with
    // the second batch.
    std::string RecordedFile()
    {
        TempFolder_c const Folder;
        EXPECT_TRUE(StartModule(ModuleProfiler_c::Get()));
        ProfilerInitSwapStats(FileName_c(Folder.Join("stats").c_str()));
        for (std::size_t iFrame = 0; iFrame < 2 * STATS_BATCH_FRAMES; ++iFrame)
        {
            if (iFrame % STATS_BATCH_FRAMES == 0)
            {
                {
                    ProfilerFrameScope_c const Application;
                    ProfilerScope_c const World("world"), Inner(iFrame == 0 ? UGLY : "late");
                }
                ProfilerScope_c const Update("update");
            }
            for (std::size_t i = 0; i < (iFrame < STATS_BATCH_FRAMES ? TIMERS - 1 : TIMERS); ++i)
            {
                ProfilerGetRoot()[i].dFrames[iFrame % STATS_BATCH_FRAMES] = Measured(i, iFrame);
            }
            ProfilerUpdateFrame(false);
        }
        Module_c::ShutdownAllModules();
        return Folder.Read("stats");
    }

    // Returns a stats file of a process whose first record is at RECORD_ADDRESS.
    std::string Sample()
    {
        static std::string const s_sFile = RecordedFile();
        std::string sBytes = Patched(s_sFile, 4, RECORD_ADDRESS);
        for (std::size_t i = 0; i < 2 * TIMERS - 1; ++i)
        {
            std::size_t const nRecord =
                i < TIMERS - 1 ? BATCH_0 + 4 + i * STATS_RECORD : BATCH_1 + 4 + (i + 1 - TIMERS) * STATS_RECORD;
            for (std::size_t const nLink : { nRecord + STATS_CHILD, nRecord + STATS_NEXT })
            {
                std::uint32_t const nFrom = Word(sBytes, nLink);
                sBytes = Patched(sBytes, nLink, nFrom != 0 ? nFrom - Word(s_sFile, 4) + RECORD_ADDRESS : 0);
            }
        }
        return sBytes;
    }

    constexpr char RATE[] = " --ticks-per-second 1e6";
}

class ZqtoolStats : public testing::Test
{
protected:
    Result_t Run(std::string const & sBytes, std::string const & sArguments = "")
    {
        return RunTool("stats " + m_Folder.Write("zq.stats", sBytes) + RATE + sArguments);
    }

    TempFolder_c const m_Folder;
};

TEST_F(ZqtoolStats, PrintsTheTree)
{
    Result_t const Result = Run(Sample());
    EXPECT_EQ(Result.iStatus, 0);
    EXPECT_EQ(Result.sOutput,
        "300 frames in 2 batches; 1000000 ticks a second\n"
        "frame time in ms: mean 2.0600, median 2.0000, 95 % 2.0000, 99 % 2.0000, worst 20.0000 (frame 77)\n"
        "\n"
        "  average ms       own ms      peak ms  at frame        calls  calls/frame  timer\n"
        "      2.0600       0.5000      20.0000        77          300         1.00  Application\n"
        "      1.5600       1.2600      19.5000        77          900         3.00    world\n"
        "      0.2500       0.2500       0.5000         1          300         1.00      </script><b id=evil>&\"'\\"
        "\xEF\xBF\xBD[1m\xEF\xBF\xBD_x\n"
        "      0.0500       0.0500       0.1000       150          150         0.50      late\n"
        "      0.0100       0.0100       0.0100         0          300         1.00  update\n");
}

TEST_F(ZqtoolStats, AveragesATimerOverTheFramesInWhichItIsKnown)
{
    Result_t const Broken = Run(Sample().substr(0, BATCH_1 + 4 + 2 * STATS_RECORD));
    EXPECT_THAT(
        Broken.sOutput, HasSubstr("      2.0600       0.5000      20.0000        77          300         1.00  App"))
        << "the time of its own comes from the batch that is whole";
    EXPECT_THAT(
        Broken.sOutput, HasSubstr("      1.6200       1.3700      19.5000        77          450         3.00    wor"))
        << "frames in which a timer isn't known don't count";
}

TEST_F(ZqtoolStats, AFileWithoutABatchIsNotDamaged)
{
    Result_t const Young = Run(Sample().substr(0, BATCH_0));
    EXPECT_EQ(Young.iStatus, 0);
    EXPECT_THAT(Young.sOutput, HasSubstr("The profiler writes its first batch after 150 frames."));
}

TEST_F(ZqtoolStats, TheTraceNestsAndHoldsEveryCall)
{
    SKIP_IF(RunShell("python3 -c ''").iStatus != 0, "needs python3");
    EXPECT_EQ(Run(Sample(), " --trace " + m_Folder.Join("trace.json")).iStatus, 0);
    std::string const sScript = m_Folder.Write("check.py", R"(
import collections, json, sys
open_ends, sums, last = [], collections.defaultdict(lambda: [0, 0, 0]), 0
for event in json.load(open(sys.argv[1]))["traceEvents"]:
    if event["ph"] != "X":
        continue
    start = round(event["ts"] * 1000)
    end = start + round(event["dur"] * 1000)
    while open_ends and open_ends[-1] <= start and end > open_ends[-1]:
        open_ends.pop()
    assert start >= last and (not open_ends or end <= open_ends[-1]), event
    open_ends.append(end)
    last = start
    args = event["args"]
    for i, n in enumerate((end - start, args.get("ticks", 0), args.get("calls", 0))):
        sums["Frame" if "frame" in args else event["name"]][i] += n
print(*(f"{ascii(name)} {sum}" for name, sum in sums.items()), sep="\n")
)");
    Result_t const Result = RunShell("python3 " + sScript + " " + m_Folder.Join("trace.json") + " 2>&1");
    EXPECT_EQ(Result.iStatus, 0);
    EXPECT_EQ(Result.sOutput, "'Frame' [621000000, 0, 0]\n'Application' [618000000, 618000, 300]\n"
                              "'world' [468000000, 468000, 900]\n'update' [3000000, 3000, 300]\n"
                              "'</script><b id=evil>&\"\\'\\\\\\ufffd[1m\\ufffd_x' [75000000, 75000, 300]\n"
                              "'late' [15000000, 15000, 150]\n");
}

TEST_F(ZqtoolStats, ReportsWhereTheFileIsDamagedAndShowsTheRest)
{
    std::string const sGood = Sample(), sTwo = "300 frames in 2 batches", sOne = "150 frames in 1 batch;";
    std::size_t const nRecord = BATCH_1 + 4 + 3 * STATS_RECORD;   // record 3 of the second batch
    auto const At = [](std::uint32_t i) { return RECORD_ADDRESS + i * static_cast<std::uint32_t>(STATS_RECORD); };
    for (auto const & [sBytes, sExpected, sShown] :
        Rows_t<std::string, std::string, std::string>{
            { "", "byte 0: the file ends within its header of 8 bytes", "0 frames in 0 batches" },
            { Patched(sGood, 0, 2500), "byte 0: not a stats file: records of 2500 bytes in place of 2504", "0 frames" },
            { sGood.substr(0, BATCH_0 + 2), "byte 10: the file ends within the count of batch 0", "0 frames" },
            { sGood.substr(0, BATCH_0 + 9), "byte 17: the file ends within record 0 of batch 0", "0 frames" },
            { sGood.substr(0, nRecord + STATS_NEXT),
                "byte 20088: the file ends within record 3 of batch 1, which has 6", sTwo },
            { sGood.substr(0, BATCH_1 + 3), "byte 12535: the file ends within the count of batch 1", sOne },
            { Patched(sGood, BATCH_1, 0), "byte 12532: batch 1 has 0 records in place of 1 to 512", sOne },
            { Patched(sGood, BATCH_1, 513), "byte 12532: batch 1 has 513 records", sOne },
            { Patched(sGood, nRecord + STATS_NEXT, At(1)),
                "byte 20088: the sibling of record 3 of batch 1 is at address FFFFF9C8, which leads back", sTwo },
            { Patched(sGood, nRecord + STATS_CHILD, At(3)),
                "byte 20084: the child of record 3 of batch 1 is at address", sTwo },
            { Patched(sGood, nRecord + STATS_NEXT, At(6)), ", which is outside of the batch", sTwo },
            { Patched(sGood, nRecord + STATS_NEXT, At(5) + 1), ", which is within a record", sTwo },
            { Patched(sGood, nRecord + STATS_NEXT, 0), "byte 25056: nothing links to record 5 of batch 1; it is shown",
                sTwo },
            { Patched(sGood, nRecord + STATS_NEXT, At(4)),
                "byte 20088: record 3 of batch 1 links to record 4, which hangs elsewhere", sTwo },
            { Patched(sGood, BATCH_1 + 4 + STATS_NEXT, At(5)), "links to record 5 as a sibling of the root", sTwo },
            { Patched(sGood, BATCH_1 + 4 + STATS_TIMER, 7), "record 0 of batch 1 is not the root: its id is 00000007",
                sTwo },
            { Patched(sGood, nRecord + NAME_END, 0x41414141), "byte 20048: the name of record 3 of batch 1 has no end",
                sTwo },
            { Patched(sGood, nRecord + MAX_SLOT, 150), "byte 22544: the peak of record 3 of batch 1 is in slot 150",
                sTwo },
            { Patched(sGood, BATCH_1 + 4 + STATS_RECORD + FIRST_TIME_HIGH, 0x7FFFFFFF) + "x", "the count of batch 2",
                sTwo } })
    {
        Result_t const Result =
            Run(sBytes, " --html " + m_Folder.Join("p.html") + " --trace " + m_Folder.Join("t.json"));
        SCOPED_TRACE(sExpected);
        EXPECT_EQ(Result.iStatus, 1);
        EXPECT_THAT(Result.sOutput, HasSubstr("zq.stats: byte "));
        EXPECT_THAT(Result.sOutput, HasSubstr(sExpected));
        EXPECT_THAT(Result.sOutput, HasSubstr(sShown));
        EXPECT_THAT(m_Folder.Read("p.html"), HasSubstr(sExpected));
        EXPECT_THAT(m_Folder.Read("t.json"), testing::EndsWith("]}\n"));
    }
}

TEST_F(ZqtoolStats, FailsOverALimit)
{
    // Statuses: 0 each limit is kept, 1 one is exceeded or nothing was measured, 2 wrong arguments.
    for (auto const & [sLimits, iStatus, sExpected] : Rows_t<std::string, int, std::string>{
             { "frame.worst=20ms", 0, "" }, { "frame.p99=0.0021s --fail-over world.peak=20ms", 0, "" },
             { "frame.mean=2000us --fail-over frame.median=2ms", 1, "frame.mean is 2.06 ms, over its limit of 2 ms\n" },
             { "frame.p95=1ms --fail-over late.mean=10us", 1,
                 "frame.p95 is 2 ms, over its limit of 1 ms\n"
                 "[^\n]*zq.stats: late.mean is 0.05 ms, over its limit of 0.01 ms\n" },
             { "wrld.mean=1s", 2, "there is no timer wrld; did you mean world" },
             { "frame.peak=1s", 2, "no peak of frames" }, { "world.p99=1s", 2, "no p99 of a timer" },
             { "frame.p99=20", 2, "the unit s, ms or us" }, { "frame.p99=-1s", 2, "the unit" },
             { "world=1s", 2, "world=1s is not a limit" } })
    {
        Result_t const Result = Run(Sample(), " --fail-over " + sLimits);
        EXPECT_EQ(Result.iStatus, iStatus) << sLimits;
        EXPECT_THAT(Result.sOutput, testing::ContainsRegex(sExpected)) << sLimits;
        EXPECT_EQ(Result.sOutput.find("over its limit") != std::string::npos, iStatus == 1) << sLimits;
    }
    Result_t const Mistyped = Run(Sample(), " --fail-over wrld.mean=1s --html " + m_Folder.Join("keep.html"));
    EXPECT_THAT(Mistyped.sOutput, HasSubstr("300 frames in 2 batches"));
    EXPECT_THAT(m_Folder.Read("keep.html"), testing::EndsWith("</html>\n"));
    Result_t const Young = Run(Sample().substr(0, BATCH_0), " --fail-over frame.p99=1s --fail-over x.mean=1s");
    EXPECT_EQ(Young.iStatus, 1);
    EXPECT_THAT(Young.sOutput, HasSubstr("x.mean has a limit of 1000 ms, but no frame was measured\n"));
}

TEST_F(ZqtoolStats, PrintsJson)
{
    Json_t const Json = Json_t::parse(Run(Sample(), " --json --fail-over frame.worst=1s").sOutput);
    EXPECT_EQ(Json["frame"].dump(),
        R"({"mean_ms":2.06,"median_ms":2.0,"p95_ms":2.0,"p99_ms":2.0,"worst_frame":77,"worst_ms":20.0})");
    EXPECT_EQ(
        Json["limits"].dump(), R"([{"exceeded":false,"limit_ms":1000.0,"measured_ms":20.0,"name":"frame.worst"}])");
    EXPECT_EQ(Json["timers"][3].dump(),
        R"({"calls":150,"calls_per_frame":0.5,"depth":2,"mean_ms":0.05,"name":"late","own_ms":0.05,"parent":1,)"
        R"("peak_frame":150,"peak_ms":0.1})");
}

TEST_F(ZqtoolStats, RefusesWhatItCantDo)
{
    std::string const sFile = m_Folder.Write("zq.stats", Sample());
    // Statuses: 0 success, 1 a file can't be read or written, 2 wrong arguments.
    for (auto const & [sArguments, iStatus] :
        Rows_t<std::string, int>{ { "", 2 }, { sFile + " more", 2 }, { sFile + " --trace", 2 },
            { sFile + " --ticks-per-second 0", 2 }, { sFile + " --ticks-per-second 9x", 2 }, { sFile + " --svg x", 2 },
            { sFile + " --trace x --html x", 2 }, { sFile, 0 }, { m_Folder.Join("absent"), 1 },
            { sFile + " --html " + m_Folder.Join("no/such.html"), 1 }, { sFile + " --trace " + sFile, 1 },
            { sFile + " --trace " + m_Folder.Join("same") + " --html " + m_Folder.Join("./same"), 1 } })
    {
        EXPECT_EQ(RunTool("stats " + sArguments).iStatus, iStatus) << sArguments;
    }
    EXPECT_EQ(m_Folder.Read("zq.stats"), Sample());
    std::string const sPipe = MakePipe(m_Folder.Join("pipe")), sFolder = m_Folder.MakeFolder("folder");
    for (std::string const & sOther : { sPipe, sFolder })
    {
        for (char const * szCommand : { "stats ", "stats --follow --frames 300 ", "memory ", "disasm " })
        {
            Result_t const Result =
                RunShell("timeout 20 " TEST_EMULATOR "'" ZQTOOL_PATH "' " + (szCommand + sOther) + " 2>&1");
            EXPECT_EQ(Result.iStatus, 1) << szCommand;
            EXPECT_EQ(Result.sOutput, sOther + ": this is no regular file\n") << szCommand;
        }
    }
}

// The page in a headless browser.
class ZqtoolStatsBrowser : public ZqtoolStats
{
protected:
    void SetUp() override
    {
        SKIP_IF(FindBrowser().empty(), NEEDS_BROWSER);
        ASSERT_EQ(Run(Sample(), " --html " + m_Folder.Join("page.html")).iStatus, 0);
        m_sPage = m_Folder.Read("page.html");
    }

    std::string Load(std::string const & sAddress, std::string const & sScript = "")
    {
        return LoadDocument(m_Folder, m_sPage, sScript, sAddress);
    }

    std::string m_sPage;
};

TEST_F(ZqtoolStatsBrowser, ThePageShowsTheFilesFigures)
{
    EXPECT_EQ(m_sPage.find("://"), std::string::npos) << "the page needs nothing else";
    std::string const sFrame = Load("#frame=77"), sAverage = Load("#average");
    for (char const * szPart : { "data-timer=\"1\" data-ticks=\"20000\" data-calls=\"1\"",
             "data-timer=\"2\" data-ticks=\"19500\" data-calls=\"3\"",
             "data-timer=\"3\" data-ticks=\"500\" data-calls=\"2\"", "aria-valuetext=\"frame 77: 20.00&nbsp;ms\"",
             "data-figure=\"worst\" data-ticks=\"20000\">20.00&nbsp;ms", "<tr data-frame=\"77\" role=\"row\">",
             "data-ticks=\"1560\" data-head=\"average\" role=\"cell\">1.560&nbsp;ms</td><td data-ticks=\"19500\"",
             // The profiler's own figures of the hottest timer, "world": 1500 + 18000 / 149 on average.
             "data-average=\"1620\" data-max=\"19500\" data-last=\"1500\" data-max-ever=\"19500\" data-n-last=\"3\" "
             "data-n-at-max=\"3\" data-max-slot=\"77\"",
             "&lt;/script&gt;&lt;b id=evil&gt;&amp;\"'\\\xEF\xBF\xBD[1m\xEF\xBF\xBD_x</button>" })
    {
        EXPECT_THAT(sFrame, HasSubstr(szPart));
    }
    EXPECT_THAT(sAverage, HasSubstr("data-timer=\"5\" data-ticks=\"50\" data-calls=\"0.5\""));
    EXPECT_THAT(sAverage, HasSubstr("data-max=\"1500\" data-last=\"1500\" data-max-ever=\"19500\""));
    EXPECT_EQ(sFrame.find("<b id"), std::string::npos) << "a name became an element";
}

TEST_F(ZqtoolStatsBrowser, KeysAndThePointerSelectFramesAndTimers)
{
    std::string const sDocument = Load("#average", R"(
const seen = [];
const press = (key) => document.activeElement.dispatchEvent(new KeyboardEvent("keydown", { key, bubbles: true }));
const look = () => seen.push(["frame", "from", "to"].map((name) => $("graph").dataset[name]).join(" "));
$("graph").focus();
for (const key of ["End", "ArrowLeft", "PageUp", "+", "-", "Home", "0"]) { press(key); look(); }
const point = (type, x) => $("graph").dispatchEvent(
    new PointerEvent(type, { clientX: $("graph").getBoundingClientRect().left + x, clientY: 200, pointerId: 1 }));
$("graph").setPointerCapture = () => {};
const at = (frame) => xOf(frame + 0.5);
point("pointermove", at(77)); seen.push($("tip").textContent);
point("pointerdown", at(60)); point("pointermove", at(80)); point("pointerup", at(80)); look();
point("pointerdown", at(77)); point("pointerup", at(77)); look();
boxOf(1).focus(); press("ArrowDown"); press("ArrowDown"); press("ArrowUp");
seen.push(document.activeElement.dataset.timer);
document.activeElement.click(); seen.push(flame.querySelectorAll(".above").length, $("range").textContent);
press("Escape"); press("Escape"); seen.push(flame.querySelectorAll(".above").length);
$("filter").value = "LAT"; $("filter").oninput(); seen.push($("hot").tBodies[0].rows.length);
document.documentElement.dataset.seen = seen.join("; ");
)");
    EXPECT_THAT(sDocument,
        HasSubstr("data-seen=\"299 0 300; 298 0 300; 148 0 300; 148 74 224; 148 0 300; 0 0 300; 0 0 300; frame 77: "
                  "20.00&nbsp;ms, most in world; 0 60 81; 77 60 81; 2; 2; frames 60 to 80, cut at 6.000&nbsp;ms, the "
                  "time in world marked; 0; 1\""));
}

TEST_F(ZqtoolStatsBrowser, DrawsALongFrameAtEachWidthAndTakesNews)
{
    std::string const sDocument = Load("#average", R"(
const seen = [];
selectFrame(0, false);
let drawn = 0;   // widths of the graph at which the one long frame shows half way up
for (let width = 150; width < 750; width += 6)
{
    graph.style.width = width + "px";
    showAll();
    const row = context.getImageData(margin.left + 20, graph.height / 2, width, 1).data;
    drawn += row.some((value, i) => i % 4 === 3 && value > 0);
}
seen.push(drawn);
const news = { ...data, frames: Array(150).fill(7), batches: [""] };   // as of a program that still runs
takeNews({ ...news, first: 150, from: 300 });
seen.push([data.first, data.frames.length, data.batches.length, state.from, state.to, timeOf(449)]);
takeNews({ ...news, run: 2, first: 0, from: 0 });
seen.push([data.first, data.frames.length, state.from, state.to]);
takeNews({ ...news, run: 3, first: 0, from: 0, frames: Array(135000).fill(7), batches: Array(900).fill("") });
const answer = { ...news, run: 3, first: 0, from: 135000, frames: [], batches: [], problems: ["cut"], live: true };
window.fetch = async () => ({ json: async () => answer });
window.setTimeout = () => {};
askForNews().then(() => { document.documentElement.dataset.problems = String($("problems").hidden); });
seen.push(data.frames.length);
document.documentElement.dataset.seen = seen.join("; ");
)");
    EXPECT_THAT(sDocument, HasSubstr("data-seen=\"100; 150,300,2,150,450,7; 0,150,0,150; 135000\""));
    EXPECT_THAT(sDocument, HasSubstr("data-problems=\"false\"")) << "damage without new frames stays hidden";
}
