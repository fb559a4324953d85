// Pages of zqtool at the widths of a phone, a tablet and a desktop, light and dark, and the page of a running program.
#include "tests/browser_support.h"
#include "tests/stats_support.h"
#include "zqcore/cprofile.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace
{
    using testing::HasSubstr;

    constexpr char PAGE_RATE[] = " --ticks-per-second 1e9 ";

    // Writes a number of nBytes bytes, lowest first.
    void Put(std::string & sBytes, std::size_t nOffset, std::uint64_t nNumber, std::size_t nBytes)
    {
        for (std::size_t i = 0; i < nBytes; ++i)
        {
            sBytes[nOffset + i] = static_cast<char>(nNumber >> (8 * i));
        }
    }

    // Returns a timer of a batch (docs/formats.md) with the addresses of its first child and its next sibling. Its
    // frames take tTime to 1.6 * tTime nanoseconds. Frame 77 of a timer of more than a millisecond takes two seconds.
    std::string Timer(
        char const * szName, std::uint32_t iTimer, std::size_t nChild, std::size_t nNext, std::uint64_t tTime)
    {
        std::string sRecord(STATS_RECORD, '\0');
        sRecord.replace(0, std::strlen(szName), szName);
        Put(sRecord, STATS_TIMER, iTimer, 4);
        Put(sRecord, STATS_CHILD, nChild, 4);
        Put(sRecord, STATS_NEXT, nNext, 4);
        for (std::size_t i = 0; i < STATS_BATCH_FRAMES; ++i)
        {
            std::size_t const nFrame = STATS_TIMES + sizeof(timerFrame_t) * i;
            Put(sRecord, nFrame, i == 77 && tTime > 1000000 ? 2000000000 : tTime + tTime * (i % 7) / 10, 8);
            Put(sRecord, nFrame + 8, tTime > 0, 4);
        }
        return sRecord;
    }

    // Returns a file of a program that has its timers at nAddress.
    std::string StatsFile(std::size_t nBatches, std::size_t nAddress = 0)
    {
        std::string sFile(8, '\0'), sBatch(4, '\0');
        auto const At = [nAddress](std::size_t iTimer) { return nAddress + iTimer * STATS_RECORD; };
        Put(sFile, 0, STATS_RECORD, 4);
        Put(sFile, 4, nAddress, 4);
        Put(sBatch, 0, 5, 4);
        sBatch += Timer("", 0x80000000, At(1), 0, 0) + Timer("Application", ZQ_TIMER_APPLICATION, At(2), 0, 20000000)
                  + Timer("A name as long as names can be", 1, 0, At(3), 14000000) + Timer("micro", 2, 0, At(4), 700000)
                  + Timer("nano", 3, 0, 0, 450);
        for (std::size_t i = 0; i < nBatches; ++i)
        {
            sFile += sBatch;
        }
        return sFile;
    }

    // Returns a snapshot of 13 blocks in each category. The third block of each has nGrown bytes more than without
    // growth. The fifth one has nGrown / 2 fewer.
    std::string Snapshot(int nGrown)
    {
        std::string sText = "Memory allocations\n";
        int nBlocks = 0;
        for (char const * szCategory : { "GFX", "AI", "Sound", "Script" })
        {
            for (int i = 1; i < 14; ++i, ++nBlocks)
            {
                int const nBytes = 90000 / i + (i == 3 ? nGrown : 0) - (i == 5 ? nGrown / 2 : 0);
                sText += std::to_string(nBytes) + "; " + szCategory + "; game/a/folder/a_source_of_" + szCategory
                         + std::to_string(i / 3) + ".cpp(" + std::to_string(i * 11) + ")\n";
            }
        }
        return sText + "\nTotal allocations\n" + std::to_string(nBlocks) + "; total\n";
    }

    // Script that reports labels and boxes out of place, what the keys select, the scheme and the width, and also the
    // figures that the page shows.
    constexpr char LAYOUT_SCRIPT[] = R"js(
const seen = [], rectOf = (element) => element.getBoundingClientRect();
const meet = (a, b) => Math.min(a.right, b.right) - Math.max(a.left, b.left) > 0.5
    && Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top) > 0.5;
const lie = (inner, outer) => inner.left >= outer.left - 0.5 && inner.right <= outer.right + 0.5
    && inner.top >= outer.top - 0.5 && inner.bottom <= outer.bottom + 0.5;
function layOutFaults(elements, outer)
{
    const rects = elements.map(rectOf);
    return rects.filter((a, i) => !lie(a, outer) || rects.slice(i + 1).some((b) => meet(a, b))).length;
}
function checkGraph()
{
    const all = new Set();
    for (const axis of ["Full", "Capped", "Log"])
    {
        for (const [from, to] of [[0, data.frames.length], [9990, 10010], [70, 90]])
        {
            $("axis" + axis).click();
            showRange(from, to);
            const labels = [...$("labels").children];
            labels.forEach((label) => all.add(label.textContent));
            if (layOutFaults(labels, rectOf($("graphBox"))) > 0 || labels.length < 4) { seen.push(axis, from, to); }
        }
    }
    seen.push(["10,000", "60 fps", "30 fps", "1\u00A0s", "10\u00A0ms"].filter((text) => !all.has(text)).join());
    $("axisCapped").click();
    showAll();
}
function checkMap()
{
    const leaves = [...map.children].filter((box) => !box.classList.contains("whole"));
    seen.push(layOutFaults(leaves, rectOf(map)));
    const isWhole = (span) => !/\d/.test(span.textContent) || span.scrollWidth <= span.clientWidth + 1;
    seen.push([...map.querySelectorAll("span + span")].filter((span) => !isWhole(span)
        || !lie(rectOf(span), rectOf(span.parentElement))).length);
    const press = (key) => document.activeElement.dispatchEvent(new KeyboardEvent("keydown", { key, bubbles: true }));
    const look = () => seen.push(nodes[map.dataset.root].name + ":" + nodes[document.activeElement.dataset.node].name);
    map.firstElementChild.focus(); press("ArrowDown"); document.activeElement.click(); look();
    press("Escape"); look();
    press("Escape"); look();
    document.activeElement.blur();
}
const isStats = Boolean($("graph"));
if (isStats) { checkGraph(); } else { checkMap(); }
if (document.documentElement.scrollWidth > innerWidth) { seen.push("too wide"); }
seen.push(matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light", innerWidth);
document.documentElement.dataset.seen = seen.join("; ");
const show = (ticks) => toMs(ticks).toFixed(4).padStart(12);
document.documentElement.dataset.figures = (isStats
    ? timers.slice(1).map((timer) => [timer.average, timer.own, timer.peak].map(show).join(" "))
    : [...$("parts").tBodies[0].rows].map((row) => row.querySelector("[data-bytes]").dataset.bytes.padStart(14)))
    .join(";");
)js";

    // Script that shows the means of the cells of screenshots, a grid of 6 by 8, as hexadecimal digits.
    constexpr char GRID_SCRIPT[] = R"(
const means = (image) =>
{
    const canvas = document.createElement("canvas"), [width, height] = [image.naturalWidth, image.naturalHeight];
    Object.assign(canvas, { width, height });
    const context = canvas.getContext("2d");
    context.drawImage(image, 0, 0);
    let text = "";
    for (let y = 0; y < 8; ++y)
    {
        for (let x = 0; x < 6; ++x)
        {
            const pixels = context.getImageData(x * width / 6, y * height / 8, width / 6, height / 8).data;
            const sums = [0, 0, 0];
            pixels.forEach((value, i) => { if (i % 4 < 3) { sums[i % 4] += value; } });
            text += sums.map((sum) => Math.floor(sum / pixels.length * 4).toString(16).padStart(2, "0")).join("");
        }
    }
    return text;
};
addEventListener("load", () =>
{
    document.documentElement.dataset.seen = [...document.images].map(means).join(" ");
});
)";

    // Returns the value of a data attribute, or an empty text if the document has none of the name.
    std::string AttributeOf(std::string const & sDocument, std::string const & sName)
    {
        std::string const sHead = " data-" + sName + "=\"";
        std::size_t const iHead = sDocument.find(sHead), iStart = iHead + sHead.size();
        return iHead == std::string::npos ? "" : sDocument.substr(iStart, sDocument.find('"', iStart) - iStart);
    }

    std::vector<std::string> Split(std::string const & sText, char cSeparator)
    {
        std::vector<std::string> dParts;
        std::istringstream Stream(sText);
        for (std::string sPart; std::getline(Stream, sPart, cSeparator);)
        {
            dParts.push_back(sPart);
        }
        return dParts;
    }

    // Returns the mean difference of the bytes of two grids, or 1000 if they differ in size.
    double Difference(std::string const & sGrid, std::string const & sKnown)
    {
        double fSum = 0;
        for (std::size_t i = 0; i + 1 < std::min(sGrid.size(), sKnown.size()); i += 2)
        {
            auto const Byte = [i](std::string const & sText)
            { return std::strtol(sText.substr(i, 2).c_str(), nullptr, 16); };
            fSum += std::abs(static_cast<double>(Byte(sGrid) - Byte(sKnown)));
        }
        return sGrid.size() == sKnown.size() ? 2 * fSum / static_cast<double>(sGrid.size()) : 1000;
    }

    struct Page_s
    {
        std::string sName, sArguments;
        std::string sSeen;   // what LAYOUT_SCRIPT reports before the scheme and the width
    };

    // Makes pages and shows them at three widths in both schemes. Expects of each view:
    // - LAYOUT_SCRIPT reports sSeen, the scheme and the width.
    // - The output of the tool has the four rows of figures that the page shows.
    // - The picture differs little from the golden one.
    void ExpectPagesFitAndLookAsBefore(TempFolder_c const & Folder, std::vector<Page_s> const & dPages)
    {
        std::string sImages, sNames;
        for (auto const & [sName, sArguments, sSeen] : dPages)
        {
            Result_t const Result = RunTool(sArguments + " --html " + Folder.Join("page.html"));
            ASSERT_EQ(Result.iStatus, 0) << Result.sOutput;
            for (int i = 0; i < 6; ++i)
            {
                std::string const sWidth = std::array{ "360", "800", "1280" }[static_cast<std::size_t>(i) / 2];
                bool const bDark = i % 2 == 0;
                std::string const sState = sName + "-" + sWidth + (bDark ? "-dark" : "-light"),
                                  sImage = Folder.Join(sState + ".png");
                std::string const sDocument = LoadDocument(Folder, Folder.Read("page.html"), LAYOUT_SCRIPT, "",
                    "--hide-scrollbars --window-size=" + sWidth + ",900 --screenshot=" + sImage
                        + " --blink-settings=preferredColorScheme=" + (bDark ? "0" : "1"));
                EXPECT_EQ(AttributeOf(sDocument, "seen"), sSeen + (bDark ? "; dark; " : "; light; ") + sWidth)
                    << sState;
                std::vector<std::string> const dFigures = Split(AttributeOf(sDocument, "figures"), ';');
                EXPECT_EQ(dFigures.size(), 4u) << sState;
                for (std::string const & sFigures : dFigures)
                {
                    EXPECT_THAT(Result.sOutput, HasSubstr(sFigures)) << sState;
                }
                sImages += "<img src=\"" + sState + ".png\">";
                sNames += sState + "\n";
            }
        }
        std::string const sGrids =
            AttributeOf(LoadDocument(Folder, "<!DOCTYPE html>\n<html lang=\"en\" data-ready=\"1\">" + sImages,
                            GRID_SCRIPT, "", "--allow-file-access-from-files"),
                "seen");
        std::vector<std::string> const dGrids = Split(sGrids, ' '), dNames = Split(sNames, '\n');
        ASSERT_EQ(dGrids.size(), dNames.size());
        std::map<std::string, std::string> dKnown;
        std::ifstream Stream(TEST_SOURCE_FOLDER "/tests/golden/pages.txt");
        for (std::string sName, sGrid; Stream >> sName >> sGrid;)
        {
            dKnown[sName] = sGrid;
        }
        for (std::size_t i = 0; i < dGrids.size(); ++i)
        {
            EXPECT_LT(Difference(dGrids[i], dKnown[dNames[i]]), 6)
                << "the picture differs; if it is right, its line in tests/golden/pages.txt is\n"
                << dNames[i] << " " << dGrids[i];
        }
    }
}

TEST(ZqtoolPages, OfStatsFitEachWidthAndSchemeAndLookAsBefore)
{
    SKIP_IF(FindBrowser().empty(), NEEDS_BROWSER);
    TempFolder_c const Folder;
    std::string const sStats = PAGE_RATE + Folder.Write("zq.stats", StatsFile(100));
    ExpectPagesFitAndLookAsBefore(Folder, { { "stats", "stats " + sStats, "" } });
}

TEST(ZqtoolPages, OfMemoryFitEachWidthAndSchemeAndLookAsBefore)
{
    SKIP_IF(FindBrowser().empty(), NEEDS_BROWSER);
    TempFolder_c const Folder;
    std::string const sOld = Folder.Write("old.csv", Snapshot(0)), sNew = Folder.Write("new.csv", Snapshot(15000));
    std::string const sAll = "all memory:AI", sKeys = "0; 0; AI:AI; " + sAll + "; " + sAll;
    ExpectPagesFitAndLookAsBefore(
        Folder, { { "map", "memory " + sOld, sKeys }, { "growth", "memory " + sOld + " " + sNew, sKeys } });
}

namespace
{
    // Script that follows a file that grows, is created anew, and grows up to the limit. It also sends the
    // requests that a hostile page could send.
    constexpr char FOLLOW_SCRIPT[] = R"(
import json, socket, subprocess, sys, time
tool, path, whole, again = sys.argv[1].split(), sys.argv[2], *(open(name, "rb").read() for name in sys.argv[3:])
batch = (len(whole) - 8) // 2
def write(data, mode="ab"):
    with open(path, mode) as file: file.write(data)
write(whole[:100], "wb")
run = subprocess.Popen(tool + ["stats", path, "--follow", "--frames", "300", "--ticks-per-second", "1e9"],
    stdout=subprocess.PIPE, text=True)
port = int(run.stdout.readline().split(":")[2].split("/")[0])
def connect(address="127.0.0.1"):
    return socket.create_connection((address, port), timeout=10)
def ask(request):
    with connect() as client:
        client.sendall(request.encode())
        answer = b""
        while part := client.recv(65536): answer += part
    head, _, body = answer.partition(b"\r\n\r\n")
    return int(head.split()[1]), head.decode(), body.decode()
def get(target, host=None, more=""):
    return ask(f"GET {target} HTTP/1.1\r\nHost: {host or f'127.0.0.1:{port}'}\r\n{more}\r\n")
def news(run_number, start):
    return json.loads(get(f"/data?run={run_number}&from={start}")[2])
def wait_for(frames):
    for _ in range(100):
        if len((answer := news(0, 0))["frames"]) == frames: return answer
        time.sleep(0.1)
    raise AssertionError(answer["frames"])
own = f"127.0.0.1:{port}"
status, head, page = get("/", f"localhost:{port}")
assert status == 200, head
assert "connect-src 'self'; frame-ancestors 'none'" in head, head
assert '"live":true' in page
assert "://" not in page
for expected, status in [
    (403, get("/", f"evil.example:{port}")), (403, get("/", "127.0.0.1:1")),
    (403, get("/", None, "Origin: http://evil.example\r\n")),
    (200, get("/", None, f"Origin: http://{own}\r\n")), (400, get("/", None, f"Host: {own}\r\n")),
    (400, ask("GET / HTTP/1.1\r\n\r\n")),
    (405, ask(f"POST / HTTP/1.1\r\nHost: {own}\r\nContent-Length: 3\r\n\r\nabc")),
    (400, ask(f"GET http://{own}/ HTTP/1.1\r\nHost: {own}\r\n\r\n")),
    (400, ask("\x16\x03\x01 nonsense\r\n\r\n")), (400, get("/", None, " folded: x\r\n")),
    (404, get("/../etc/passwd")), (404, get("/data?run=1")),
    (404, get("/data?run=1&from=0x")), (431, ask("GET /" + "a" * 9000)),
    (400, ask(f"GET / HTTP/2\r\nHost: {own}\r\n\r\n"))]:
    assert status[0] == expected, (expected, status)
try:
    connect("127.0.0.2")
    raise AssertionError("it listens beyond the loopback address")
except ConnectionRefusedError: pass
idle = [connect() for _ in range(40)]
for client in idle[::2]: client.sendall(b"GET / HT")
started = time.monotonic()
assert news(1, 0)["frames"] == []
assert time.monotonic() - started < 5
write(whole[100:8 + batch])
assert wait_for(150)["run"] == 1
assert news(1, 150)["frames"] == []
assert news(9, 150)["from"] == 0
write(again[:8 + batch], "wb")
for _ in range(100):
    if (answer := news(1, 150))["run"] == 2: break
    time.sleep(0.1)
answer = wait_for(150)
assert answer["run"] == 2, answer["run"]
assert answer["frames"][77] == 2000000000, answer["frames"][77]
assert len(json.loads(answer["batches"][0])) == 5
write(again[8 + batch:])
answer = wait_for(300)
assert answer["more"] is False
assert news(2, 300)["live"] is False
print(run.communicate(timeout=20)[0], run.returncode)
)";
}

TEST(ZqtoolPages, AreServedWhileTheFileGrows)
{
    SKIP_IF(RunShell("python3 -c ''").iStatus != 0, "needs python3");
    TempFolder_c const Folder;
    std::string const sScript = Folder.Write("follow.py", FOLLOW_SCRIPT);
    Result_t const Result = RunShell("timeout 100 python3 " + sScript + " '" TEST_EMULATOR ZQTOOL_PATH "' "
                                     + Folder.Join("live.stats") + " " + Folder.Write("whole.stats", StatsFile(2)) + " "
                                     + Folder.Write("again.stats", StatsFile(2, 4096)) + " 2>&1");
    EXPECT_EQ(Result.iStatus, 0);
    EXPECT_THAT(Result.sOutput, HasSubstr("300 frames in 2 batches; 1000000000 ticks a second\n"));
    EXPECT_THAT(Result.sOutput, testing::EndsWith(" nano\n 0\n"));
    // The limit is out of reach after the damage.
    Result_t const Damaged = RunShell("timeout 20 " TEST_EMULATOR "'" ZQTOOL_PATH "' stats --follow --frames 300 "
                                      + Folder.Write("cut.stats", StatsFile(1) + std::string(4, '\0')) + " 2>&1");
    EXPECT_EQ(Damaged.iStatus, 1);
    EXPECT_THAT(Damaged.sOutput, HasSubstr("batch 1 has 0 records"));
    for (char const * szArguments : { "--port 80", "--follow --port 0", "--follow --html x", "--follow --frames -1" })
    {
        EXPECT_EQ(RunTool("stats " + sScript + " " + szArguments).iStatus, 2) << szArguments;
    }
}
