// The page of a stats file: its head, its tables, what is selected, and the news of a program that still runs.

const MAX_ROWS = 500;           // timers that the table shows
const WORST_ROWS = 20;
const NEWS_INTERVAL = 1000;     // milliseconds between two questions for news

function frameButton(frame)
{
    return make("button", { type: "button", data: { frame }, disabled: frame < data.first,
        onclick: () => selectFrame(frame, true) }, showNumber(frame));
}

// What is shown

function rememberPlace()
{
    try
    {
        history.replaceState(null, "", state.mode === "average" ? "#average" : "#frame=" + state.frame);
    }
    catch
    {
        // Some browsers refuse it to a page from a file; only the address then stays as it was.
    }
}

// Shows what is selected, and in full what is known of a timer.
function showState(timer)
{
    $("modeAverage").checked = state.mode === "average";
    $("modeFrame").checked = state.mode === "frame";
    $("frame").value = state.frame;
    drawFlame();
    drawGraph();
    showDetail(timer);
}

function update()
{
    showState(Math.max(state.marked, 0));
    rememberPlace();
}

// Shows the timers of a frame, and moves the graph to it if asked to.
function selectFrame(frame, follow)
{
    state.mode = "frame";
    state.frame = frame;
    if (follow && (frame < state.from || frame >= state.to))
    {
        const span = state.to - state.from;
        state.from = clamp(Math.round(frame - span / 2), data.first, endOfFrames() - span);
        state.to = state.from + span;
    }
    update();
}

function followAddress()
{
    const frame = /^#frame=(\d+)$/.exec(location.hash);
    if (frame)
    {
        selectFrame(clamp(Number(frame[1]), data.first, endOfFrames() - 1), true);
    }
    else
    {
        state.mode = "average";
        update();
    }
}

// The tables

const timeCell = (ticks) => ({ data: { ticks }, content: showTicks(ticks) });
const nothing = "\u2013";

const fillWorst = sortedTable($("worst"), [
    { key: "frame", text: "frame", of: (frame) => -frame, cell: (frame) => ({ content: frameButton(frame) }) },
    { key: "time", text: "time", of: timeOf, cell: (frame) => timeCell(timeOf(frame)) },
    { key: "hottest", text: "most time of its own", name: true,
        of: (frame) => (hottestOf("frame", frame) || { name: "" }).name,
        cell: (frame) => ({ content: (hottestOf("frame", frame) || { name: nothing }).name }) },
], "time", WORST_ROWS, (frame) => ({ frame }));

const fillHot = sortedTable($("hot"), [
    { key: "name", text: "timer", name: true, of: (timer) => timer.name.toLowerCase(), cell: (timer) => ({ content: [
        make("button", { type: "button", onclick: () => zoomTimer(timer.index) }, timer.name || "(no name)"),
        make("small", {}, timer.path)] }) },
    { key: "own", text: "own", of: (timer) => timer.own, cell: (timer) => timeCell(timer.own) },
    { key: "average", text: "average", of: (timer) => timer.average, cell: (timer) => timeCell(timer.average) },
    { key: "peak", text: "peak", of: (timer) => timer.peak, cell: (timer) => timeCell(timer.peak) },
    { key: "peakFrame", text: "in frame", of: (timer) => timer.peakFrame,
        cell: (timer) => ({ content: timer.peakFrame < 0 ? nothing : frameButton(timer.peakFrame) }) },
    { key: "calls", text: "calls a frame", of: (timer) => timer.calls,
        cell: (timer) => ({ data: { calls: timer.calls }, content: showNumber(timer.calls, 2) }) },
], "own", MAX_ROWS, (timer) => ({ timer: timer.index }));

function showHot()
{
    const wanted = $("filter").value.toLowerCase();
    const found = timers.slice(1).filter((timer) => timer.name.toLowerCase().includes(wanted));
    fillHot(found);
    $("shown").textContent = found.length > MAX_ROWS
        ? `the first ${MAX_ROWS} of ${showNumber(found.length)}` : showCount(found.length, "timer");
}

function showWorst()
{
    const sorted = sortedFrames(), least = sorted[Math.max(sorted.length - WORST_ROWS, 0)];
    const order = [];
    data.frames.forEach((ticks, i) => { if (ticks >= least) { order.push(data.first + i); } });
    fillWorst(order.sort((a, b) => timeOf(b) - timeOf(a) || a - b).slice(0, WORST_ROWS));
}

// The head

const FIGURES = [
    ["mean", "mean"], ["median", "median"], ["p95", "95 % below"], ["p99", "99 % below"], ["worst", "worst"]];

function showHead()
{
    const nFrames = data.frames.length, rate = showNumber(data.rate / 1e6, 1) + " million ticks a second";
    $("title").textContent = data.file;
    $("facts").textContent = [
        data.first > 0
            ? `the last ${showNumber(nFrames)} of ${showCount(endOfFrames(), "frame")}` : showCount(nFrames, "frame"),
        `${showNumber(data.batches.length)} batch${data.batches.length === 1 ? "" : "es"}`,
        showCount(Math.max(timers.length - 1, 0), "timer"),
        rate + (data.measured ? ", as on the machine that made this page" : "")].join(" \u00B7 ");
    $("problems").hidden = data.problems.length === 0;
    $("problems").querySelector("ul").replaceChildren(...data.problems.map((text) => make("li", {}, text)));
    $("cards").replaceChildren(...FIGURES.map(([key, text]) =>
    {
        const value = make("dd", { data: { figure: key, ticks: data.summary[key] } }, showTicks(data.summary[key]));
        if (key === "worst" && nFrames > 0)
        {
            value.append(" ", frameButton(data.summary.worstFrame));
        }
        return make("div", {}, make("dt", {}, text), value);
    }));
}

// Shows everything anew.
function showAllParts()
{
    readTimers();
    showHead();
    $("empty").hidden = data.frames.length > 0;
    $("main").hidden = data.frames.length === 0;
    if (data.frames.length > 0)
    {
        $("frame").min = data.first;
        $("frame").max = endOfFrames() - 1;
        showWorst();
        showHot();
    }
}

// News of a program that still runs

// Forgets the timers of the quickest batches if the page holds too many.
function limitTexts()
{
    let size = data.batches.reduce((sum, text) => sum + text.length, 0);
    const worst = (i) => Math.max(...data.frames.slice(i * SLOTS, (i + 1) * SLOTS));
    while (size > MAX_TEXT)
    {
        let least = -1;
        data.batches.forEach((text, i) => { if (text && (least < 0 || worst(i) < worst(least))) { least = i; } });
        size -= data.batches[least].length;
        data.batches[least] = "";
    }
}

// Takes news: the frames after those that the page has, and all figures of the whole.
function takeNews(news)
{
    const had = data.frames.length, hadEnd = endOfFrames(), wasAll = state.from <= data.first && state.to >= hadEnd;
    const again = news.run !== data.run || news.from > hadEnd;
    const kept = again ? 0 : clamp(hadEnd - news.first, 0, had), gone = had - kept;
    data.frames.splice(0, gone);
    data.batches.splice(0, gone / SLOTS);
    // One by one: a call takes only so many arguments.
    news.frames.forEach((ticks) => data.frames.push(ticks));
    news.batches.forEach((text) => data.batches.push(text));
    Object.assign(data, { run: news.run, first: news.from - kept, summary: news.summary, timers: news.timers,
        problems: news.problems, live: news.live });
    limitTexts();
    if (again)
    {
        Object.assign(state, { mode: "average", root: 0, marked: -1 });
    }
    const span = had === 0 || again || wasAll ? data.frames.length : state.to - state.from;
    const atEnd = state.to >= hadEnd || span === data.frames.length;
    state.to = atEnd ? endOfFrames() : Math.max(state.to, data.first + span);
    state.from = state.to - span;
    state.frame = had === 0 || again ? data.summary.worstFrame : clamp(state.frame, data.first, endOfFrames() - 1);
}

const isPaused = () => $("pause").getAttribute("aria-pressed") === "true";

function showLive(text)
{
    $("live").hidden = false;
    $("liveText").textContent = text;
}

async function askForNews()
{
    let wait = NEWS_INTERVAL;
    try
    {
        if (!isPaused())
        {
            const response = await fetch(`data?run=${data.run}&from=${endOfFrames()}`, { cache: "no-store" });
            const news = await response.json();
            if (news.frames.length > 0 || news.run !== data.run || !news.live
                || news.problems.length !== data.problems.length)
            {
                takeNews(news);
                showAllParts();
                if (data.frames.length > 0)
                {
                    showState(Number($("detail").dataset.timer || 0));
                }
                wait = news.more ? 0 : wait;
            }
            showLive(data.live
                ? `live, ${showCount(endOfFrames(), "frame")} so far` : "the program's file is complete");
        }
    }
    catch
    {
        showLive("zqtool has ended: the page shows what it had");
        return;
    }
    if (data.live)
    {
        setTimeout(askForNews, wait);
    }
}

// Start

function start()
{
    $("frame").onchange = () =>
        selectFrame(clamp(Math.round(Number($("frame").value)) || 0, data.first, endOfFrames() - 1), true);
    $("modeAverage").onchange = () => { state.mode = "average"; update(); };
    $("modeFrame").onchange = () => selectFrame(state.frame, true);
    $("axisFull").onchange = () => { state.axis = "full"; drawGraph(); };
    $("axisCapped").onchange = () => { state.axis = "capped"; drawGraph(); };
    $("axisLog").onchange = () => { state.axis = "log"; drawGraph(); };
    $("zoomIn").onclick = () => zoom(0.5, zoomCentre());
    $("zoomOut").onclick = () => zoom(2, zoomCentre());
    $("zoomAll").onclick = showAll;
    $("zoomRoot").onclick = () => zoomTimer(0);
    $("pause").onclick = () => $("pause").setAttribute("aria-pressed", String(!isPaused()));
    $("filter").oninput = showHot;
    listenToGraph();
    showAllParts();
    Object.assign(state, { from: data.first, to: endOfFrames(), frame: Math.max(data.summary.worstFrame, 0) });
    if (data.frames.length > 0)
    {
        followAddress();
    }
    const redraw = () => { if (data.frames.length > 0) { drawFlame(); drawGraph(); } };
    window.addEventListener("hashchange", () => { if (data.frames.length > 0) { followAddress(); } });
    window.addEventListener("resize", redraw);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);
    if (data.live)
    {
        askForNews();
    }
    document.documentElement.dataset.ready = "1";
}

start();
