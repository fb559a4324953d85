"use strict";
// The page of a stats file. Names come from the file: they reach the document as text only.

const SLOTS = 150;              // frames in a batch
const MAX_ROWS = 500;           // timers that the table shows
const WORST_ROWS = 20;
const MIN_SPAN = 10;            // frames in the closest zoom
const ROW_HEIGHT = 22;          // of a timer in the flame view
const MIN_BOX = 0.0004;         // part of the width below which a timer isn't drawn
const GUIDES = [[1000 / 60, "60 a second"], [1000 / 30, "30 a second"]];   // milliseconds

const $ = (id) => document.getElementById(id);
const data = JSON.parse($("data").textContent);
const frames = data.frames, nFrames = frames.length;
const timers = data.timers.map(([name, id, parent, average, own, calls, allCalls, peak, peakFrame, peakCalls], index) =>
    ({ index, name, id, parent, average, own, calls, allCalls, peak, peakFrame, peakCalls, depth: 0, path: "" }));
for (const timer of timers)
{
    const parent = timers[timer.parent];
    if (parent)
    {
        timer.depth = parent.depth + 1;
        timer.path = parent.parent < 0 ? "" : parent.path ? parent.path + " \u203A " + parent.name : parent.name;
    }
}

const state = {
    mode: "average", frame: Math.max(data.summary.worstFrame, 0),
    root: 0, marked: -1,        // timers that the flame view and the graph show
    from: 0, to: nFrames,       // frames that the graph shows
    sort: "own", ascending: false,
};

const toMs = (ticks) => ticks * 1000 / data.rate;
const clamp = (x, low, high) => Math.min(Math.max(x, low), high);

function formatMs(ms)
{
    return ms.toFixed(Math.abs(ms) >= 100 ? 1 : Math.abs(ms) >= 1 ? 2 : 4);
}

const showMs = (ticks) => formatMs(toMs(ticks)) + " ms";

function showCalls(n)
{
    return n === 1 ? "1 call" : (Number.isInteger(n) ? n : n.toFixed(2)) + " calls";
}

/// Makes an element with properties, data attributes and children, which are elements or texts.
function make(tag, properties, ...children)
{
    const element = document.createElement(tag);
    const { data: attributes, ...rest } = properties || {};
    Object.assign(element, rest);
    Object.assign(element.dataset, attributes);
    element.append(...children);
    return element;
}

function frameButton(frame)
{
    return make("button", { type: "button", data: { frame }, onclick: () => selectFrame(frame, true) }, String(frame));
}

// The timers of one frame

/// The batch of a frame as [node, average, max, last, max ever, calls of last, calls at max, slot of max, times, calls]
/// for each timer; null if the page was made without it.
const batchOf = (frame) => data.batches[Math.floor(frame / SLOTS)];

/// Time and calls of each timer, in one frame or on average; null if the page doesn't have the frame's.
function valuesOf(mode, frame)
{
    if (mode === "average")
    {
        return timers.map((t) => ({ time: t.average, calls: t.calls }));
    }
    const batch = batchOf(frame);
    if (!batch)
    {
        return null;
    }
    const values = timers.map(() => ({ time: 0, calls: 0 }));
    for (const record of batch)
    {
        values[record[0]] = { time: record[8][frame % SLOTS] || 0, calls: record[9][frame % SLOTS] || 0 };
    }
    return values;
}

/// Room for each timer: its own time or that of its children together, whichever is more. Parents come first.
function layOut(values)
{
    const places = values.map((value) => ({ start: 0, size: Math.max(value.time, 0), children: 0, next: 0 }));
    for (let i = places.length; i-- > 1;)
    {
        places[i].size = Math.max(places[i].size, places[i].children);
        places[timers[i].parent].children += places[i].size;
    }
    places[0].size = Math.max(places[0].size, places[0].children);
    for (let i = 1; i < places.length; ++i)
    {
        const parent = places[timers[i].parent];
        places[i].start = places[i].next = parent.next;
        parent.next += places[i].size;
    }
    return places;
}

/// The timer with the most time of its own in a frame or on average; null if there is none.
function hottestOf(mode, frame)
{
    const values = valuesOf(mode, frame);
    if (!values)
    {
        return null;
    }
    const own = values.map((value) => value.time);
    values.forEach((value, i) => { if (i > 0) { own[timers[i].parent] -= value.time; } });
    let best = 0;
    own.forEach((time, i) => { if (i > 0 && (best === 0 || time > own[best])) { best = i; } });
    return best > 0 && own[best] > 0 ? timers[best] : null;
}

/// The time of a timer in each frame, 0 where the page doesn't have it.
const seriesOf = (() =>
{
    let held = -1, series = null;
    return (index) =>
    {
        if (held !== index)
        {
            held = index;
            series = new Float64Array(nFrames);
            data.batches.forEach((batch, iBatch) =>
            {
                const record = batch && batch.find((entry) => entry[0] === index);
                if (record)
                {
                    series.set(record[8], iBatch * SLOTS);
                }
            });
        }
        return series;
    };
})();

// The graph

const graph = $("graph"), context = graph.getContext("2d");
const MARGIN = { left: 54, right: 6, top: 10, bottom: 20 };
let hovered = -1, dragFrom = null, dragTo = null;

const plotWidth = () => Math.max(graph.clientWidth - MARGIN.left - MARGIN.right, 1);
const xOf = (frame) => MARGIN.left + (frame - state.from) / (state.to - state.from) * plotWidth();

/// The frames that share the column of pixels at x, as [first, end).
function framesAt(x)
{
    const column = Math.floor(x - MARGIN.left);
    const startOf = (index) => Math.floor(state.from + index * (state.to - state.from) / plotWidth());
    const first = clamp(startOf(column), state.from, state.to - 1);
    return [first, clamp(startOf(column + 1), first + 1, state.to)];
}

function worstIn(values, first, end)
{
    let worst = first;
    for (let i = first + 1; i < end; ++i)
    {
        worst = values[i] > values[worst] ? i : worst;
    }
    return worst;
}

/// A step of 1, 2 or 5 times a power of ten, about a fourth of the range.
function niceStep(range)
{
    const power = 10 ** Math.floor(Math.log10(range / 4));
    return power * ([1, 2, 5].find((factor) => factor * power * 4 >= range * 0.8) || 10);
}

/// A bar for each frame, or, where there are more frames than pixels, for the worst one of each column.
function drawBars(values, topMs, height, colour)
{
    const span = state.to - state.from, nBars = Math.min(span, plotWidth()), step = plotWidth() / nBars;
    context.fillStyle = colour;
    for (let i = 0; i < nBars; ++i)
    {
        const frame = nBars === span ? state.from + i : worstIn(values, ...framesAt(MARGIN.left + i));
        const bar = clamp(toMs(values[frame]) / topMs, 0, 1) * height;
        context.fillRect(MARGIN.left + i * step, MARGIN.top + height - bar, step > 3 ? step - 1 : step, bar);
    }
}

function drawLine(x0, y0, x1, y1, colour, dash)
{
    context.strokeStyle = colour;
    context.setLineDash(dash || []);
    context.beginPath();
    context.moveTo(x0, y0);
    context.lineTo(x1, y1);
    context.stroke();
}

function drawGraph()
{
    const ratio = window.devicePixelRatio || 1, width = graph.clientWidth, full = graph.clientHeight;
    const height = full - MARGIN.top - MARGIN.bottom, right = width - MARGIN.right;
    const style = getComputedStyle(document.documentElement), colour = (name) => style.getPropertyValue(name).trim();
    graph.width = width * ratio;
    graph.height = full * ratio;
    context.scale(ratio, ratio);
    context.font = "11px system-ui, sans-serif";
    const topMs = Math.max(toMs(frames[worstIn(frames, state.from, state.to)]) * 1.08, 1e-6);
    const yOf = (ms) => MARGIN.top + height - ms / topMs * height;
    context.textAlign = "right";
    for (let ms = 0, step = niceStep(topMs); ms <= topMs; ms += step)
    {
        drawLine(MARGIN.left, yOf(ms), right, yOf(ms), colour("--line"));
        context.fillStyle = colour("--quiet");
        context.fillText(Number(ms.toPrecision(6)) + " ms", MARGIN.left - 5, yOf(ms) + 4);
    }
    drawBars(frames, topMs, height, colour("--bar"));
    if (state.marked > 0)
    {
        drawBars(seriesOf(state.marked), topMs, height, colour("--mark"));
    }
    for (const [ms, label] of GUIDES.filter((guide) => guide[0] < topMs))
    {
        drawLine(MARGIN.left, yOf(ms), right, yOf(ms), colour("--chosen"), [4, 4]);
        context.fillStyle = colour("--ink");
        context.fillText(label, right - 4, yOf(ms) - 3);
    }
    drawFrameNumbers(full, colour);
    drawMarks(height, colour);
    updateGraphTexts();
}

function drawFrameNumbers(full, colour)
{
    const step = Math.max(Math.ceil(niceStep((state.to - state.from) / 2)), 1);
    context.textAlign = "center";
    context.fillStyle = colour("--quiet");
    for (let frame = Math.ceil(state.from / step) * step; frame < state.to; frame += step)
    {
        context.fillText(String(frame), clamp(xOf(frame + 0.5), MARGIN.left + 8, graph.clientWidth - 24), full - 5);
    }
}

function drawMarks(height, colour)
{
    const span = (frame) => [xOf(frame), Math.max(xOf(frame + 1) - xOf(frame), 1.5)];
    if (state.frame >= state.from && state.frame < state.to)
    {
        const [x, width] = span(state.frame);
        context.fillStyle = colour("--chosen");
        context.fillRect(x, MARGIN.top - 8, width, 5);
        context.globalAlpha = 0.45;
        context.fillRect(x, MARGIN.top, width, height);
        context.globalAlpha = 1;
    }
    if (dragTo !== null)
    {
        context.fillStyle = colour("--accent");
        context.globalAlpha = 0.2;
        context.fillRect(Math.min(dragFrom, dragTo), MARGIN.top, Math.abs(dragTo - dragFrom), height);
        context.globalAlpha = 1;
    }
    else if (hovered >= 0)
    {
        const [x, width] = span(hovered);
        drawLine(x + width / 2, MARGIN.top, x + width / 2, MARGIN.top + height, colour("--ink"));
    }
}

function updateGraphTexts()
{
    $("range").textContent = `frames ${state.from} to ${state.to - 1}` + (state.marked > 0
        ? `, the time in ${timers[state.marked].name} marked` : "");
    graph.setAttribute("aria-valuemin", 0);
    graph.setAttribute("aria-valuemax", nFrames - 1);
    graph.setAttribute("aria-valuenow", state.frame);
    graph.setAttribute("aria-valuetext", `frame ${state.frame}: ${showMs(frames[state.frame])}`);
    Object.assign(graph.dataset, { from: state.from, to: state.to, frame: state.frame, ticks: frames[state.frame] });
}

function showRange(from, to)
{
    const span = clamp(Math.round(to - from), Math.min(MIN_SPAN, nFrames), nFrames);
    state.from = clamp(Math.round(from), 0, nFrames - span);
    state.to = state.from + span;
    drawGraph();
}

function zoom(factor, centre)
{
    showRange(centre - (centre - state.from) * factor, centre + (state.to - centre) * factor);
}

/// The middle of a zoom by key or button: the selected frame if it is in view.
function zoomCentre()
{
    const inView = state.frame >= state.from && state.frame < state.to;
    return inView ? state.frame + 0.5 : (state.from + state.to) / 2;
}

function showTip(x)
{
    const tip = $("tip");
    tip.hidden = hovered < 0 || dragTo !== null;
    if (!tip.hidden)
    {
        const hottest = hottestOf("frame", hovered);
        tip.textContent = `frame ${hovered}: ${showMs(frames[hovered])}` + (hottest ? `, most in ${hottest.name}` : "");
        const right = x > graph.clientWidth / 2;
        tip.style.left = right ? "auto" : x + 14 + "px";
        tip.style.right = right ? graph.clientWidth - x + 14 + "px" : "auto";
    }
}

graph.addEventListener("pointerdown", (event) =>
{
    graph.setPointerCapture(event.pointerId);
    dragFrom = event.offsetX;
});
graph.addEventListener("pointermove", (event) =>
{
    if (dragFrom !== null && (dragTo !== null || Math.abs(event.offsetX - dragFrom) > 4))
    {
        dragTo = clamp(event.offsetX, MARGIN.left, graph.clientWidth - MARGIN.right);
    }
    hovered = worstIn(frames, ...framesAt(event.offsetX));
    showTip(event.offsetX);
    drawGraph();
});
graph.addEventListener("pointerup", (event) =>
{
    const from = dragFrom, to = dragTo;
    dragFrom = dragTo = null;
    if (from !== null && to !== null)
    {
        showRange(framesAt(Math.min(from, to))[0], framesAt(Math.max(from, to))[1]);
    }
    else if (from !== null)
    {
        selectFrame(worstIn(frames, ...framesAt(event.offsetX)), false);
    }
});
graph.addEventListener("pointercancel", () => { dragFrom = dragTo = null; drawGraph(); });
graph.addEventListener("pointerleave", () => { hovered = -1; showTip(0); drawGraph(); });
graph.addEventListener("dblclick", () => showRange(0, nFrames));
graph.addEventListener("wheel", (event) =>
{
    if (document.activeElement === graph || event.ctrlKey)
    {
        event.preventDefault();
        zoom(event.deltaY > 0 ? 1.25 : 0.8, framesAt(event.offsetX)[0] + 0.5);
    }
}, { passive: false });
graph.addEventListener("keydown", (event) =>
{
    const steps = { ArrowLeft: -1, ArrowRight: 1, PageUp: -SLOTS, PageDown: SLOTS, Home: -nFrames, End: nFrames };
    if (event.ctrlKey || event.altKey || event.metaKey)
    {
        return;
    }
    if (event.key in steps)
    {
        selectFrame(clamp(state.frame + steps[event.key], 0, nFrames - 1), true);
    }
    else if (event.key === "+" || event.key === "=" || event.key === "-")
    {
        zoom(event.key === "-" ? 2 : 0.5, zoomCentre());
    }
    else if (event.key === "0")
    {
        showRange(0, nFrames);
    }
    else
    {
        return;
    }
    event.preventDefault();
});

// The flame view

const flame = $("flame");

/// Same names, same colours.
function hueOf(name)
{
    let hash = 0;
    for (const letter of name)
    {
        hash = (hash * 31 + letter.codePointAt(0)) >>> 0;
    }
    return hash * 137 % 360;
}

/// How a timer stands to the one that fills the view: "above" it, "in" it, or "" for neither.
function standing(index)
{
    const isWithin = (inner, outer) =>
    {
        while (inner > outer)
        {
            inner = timers[inner].parent;
        }
        return inner === outer;
    };
    return isWithin(index, state.root) ? "in" : isWithin(state.root, index) ? "above" : "";
}

function drawBox(timer, value, place, left, width, above)
{
    const name = timer.index > 0 ? timer.name
        : (state.mode === "average" ? "average frame" : "frame " + state.frame) + ", all timers";
    const label = `${name}, ${showMs(timer.index > 0 ? value.time : place.size)}`
        + (timer.index > 0 ? `, ${showCalls(value.calls)}` : "");
    const box = make("button", {
        type: "button", className: "box" + (above ? " above" : "") + (timer.index === state.marked ? " marked" : ""),
        tabIndex: timer.index === state.root ? 0 : -1, title: label,
        data: { timer: timer.index, ticks: value.time, calls: value.calls },
        onclick: () => zoomTimer(timer.index),
        onmouseenter: () => showDetail(timer.index), onfocus: () => showDetail(timer.index),
    }, width > 0.02 ? label : "");
    box.setAttribute("aria-label", label);
    box.style.setProperty("--hue", hueOf(timer.name));
    box.style.left = left * 100 + "%";
    box.style.width = width * 100 + "%";
    box.style.top = timer.depth * ROW_HEIGHT + "px";
    return box;
}

function drawFlame()
{
    const values = valuesOf(state.mode, state.frame);
    flame.replaceChildren();
    if (!values)
    {
        flame.style.height = "auto";
        flame.append("The timers of this frame were left out to keep the page small; its time is above.");
        return;
    }
    const places = layOut(values), root = places[state.root];
    let depth = 0;
    for (const timer of timers)
    {
        const place = places[timer.index], stands = standing(timer.index);
        const width = stands === "above" || timer.index === state.root ? 1 : place.size / (root.size || 1);
        if (stands && width >= MIN_BOX)
        {
            const left = stands === "above" ? 0 : (place.start - root.start) / (root.size || 1);
            flame.append(drawBox(timer, values[timer.index], place, left, width, stands === "above"));
            depth = Math.max(depth, timer.depth + 1);
        }
    }
    flame.style.height = depth * ROW_HEIGHT + "px";
}

const boxOf = (index) => flame.querySelector(`[data-timer="${index}"]`);

/// Fills the view with a timer and marks it in the graph; a second time goes back to its parent.
function zoomTimer(index)
{
    state.root = index === state.root && index > 0 ? timers[index].parent : index;
    state.marked = state.root > 0 ? index : -1;
    drawFlame();
    drawGraph();
    showDetail(index);
    const box = boxOf(index);
    if (box)
    {
        box.focus();
    }
}

flame.addEventListener("keydown", (event) =>
{
    const index = Number(event.target.dataset.timer);
    if (event.key === "Escape")
    {
        event.preventDefault();
        zoomTimer(state.root > 0 ? timers[state.root].parent : 0);
        return;
    }
    const boxes = [...flame.children].map((box) => timers[Number(box.dataset.timer)]);
    const row = boxes.filter((timer) => timer.depth === timers[index].depth);
    const place = row.indexOf(timers[index]);
    const target = {
        ArrowUp: timers[timers[index].parent], ArrowDown: boxes.find((timer) => timer.parent === index),
        ArrowLeft: row[place - 1], ArrowRight: row[place + 1],
    }[event.key];
    if (event.key.startsWith("Arrow"))
    {
        event.preventDefault();
    }
    if (target)
    {
        boxOf(target.index).focus();
    }
});

function detailColumn(title, ...lines)
{
    return make("div", {}, make("h3", {}, title), ...lines.map((line) => make("p", {}, ...[line].flat())));
}

/// What is known of a timer; of the hottest one in place of the root, which isn't timed.
function showDetail(wanted)
{
    const hottest = wanted > 0 ? null : hottestOf(state.mode, state.frame), index = hottest ? hottest.index : wanted;
    const timer = timers[index], values = valuesOf(state.mode, state.frame);
    const recordIn = (batch) => (batch || []).find((entry) => entry[0] === index);
    const iBatch = state.mode === "frame" ? Math.floor(state.frame / SLOTS) : data.batches.findLastIndex(recordIn);
    const record = recordIn(data.batches[iBatch]);
    const columns = [];
    $("detail").dataset.timer = index;
    if (index === 0)
    {
        $("detail").replaceChildren(detailColumn("No time was measured."));
        return;
    }
    if (values && state.mode === "frame")
    {
        columns.push(detailColumn(`${timer.name} in frame ${state.frame}`, showMs(values[index].time),
            showCalls(values[index].calls)));
    }
    columns.push(detailColumn(`${timer.name} in all frames`, `average ${showMs(timer.average)}`,
        `of its own ${showMs(timer.own)}`, `${showCalls(timer.calls)} a frame, ${timer.allCalls} in all`,
        timer.peakFrame < 0 ? "never above 0" : [`peak ${showMs(timer.peak)} in frame `, frameButton(timer.peakFrame),
            `, ${showCalls(timer.peakCalls)}`]));
    if (record)
    {
        const [, average, max, last, maxEver, nLast, nAtMax, maxSlot] = record;
        columns.push(detailColumn(`The profiler's own figures of batch ${iBatch}, from its last 149 frames`,
            `average ${showMs(average)}`, maxSlot < 0 ? "no peak"
                : `peak ${showMs(max)} in frame ${iBatch * SLOTS + maxSlot}, ${showCalls(nAtMax)}`,
            `last frame ${showMs(last)}, ${showCalls(nLast)}`, `highest peak so far ${showMs(maxEver)}`));
        Object.assign(columns[columns.length - 1].dataset, { average, max, last, maxEver, nLast, nAtMax, maxSlot });
    }
    $("detail").replaceChildren(...columns);
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

function update()
{
    $("modeAverage").checked = state.mode === "average";
    $("modeFrame").checked = state.mode === "frame";
    $("frame").value = state.frame;
    drawFlame();
    drawGraph();
    showDetail(Math.max(state.marked, 0));
    rememberPlace();
}

/// Shows the timers of a frame, and moves the graph to it if asked to.
function selectFrame(frame, follow)
{
    state.mode = "frame";
    state.frame = frame;
    if (follow && (frame < state.from || frame >= state.to))
    {
        const span = state.to - state.from;
        state.from = clamp(Math.round(frame - span / 2), 0, nFrames - span);
        state.to = state.from + span;
    }
    update();
}

function followAddress()
{
    const frame = /^#frame=(\d+)$/.exec(location.hash);
    if (frame)
    {
        selectFrame(clamp(Number(frame[1]), 0, nFrames - 1), true);
    }
    else
    {
        state.mode = "average";
        update();
    }
}

// The tables

function msCell(ticks)
{
    return make("td", { data: { ticks } }, toMs(ticks).toFixed(4));
}

const HOT_COLUMNS = [
    ["name", "timer", (t) => t.name.toLowerCase()],
    ["own", "own ms", (t) => t.own], ["average", "average ms", (t) => t.average], ["peak", "peak ms", (t) => t.peak],
    ["peakFrame", "in frame", (t) => t.peakFrame], ["calls", "calls a frame", (t) => t.calls],
];

function fillWorst()
{
    const order = Array.from(frames.keys()).sort((a, b) => frames[b] - frames[a] || a - b).slice(0, WORST_ROWS);
    $("worst").tHead.append(make("tr", {}, ...["frame", "ms"].map((text) => make("th", { scope: "col" }, text)),
        make("th", { scope: "col", className: "name" }, "most time of its own")));
    $("worst").tBodies[0].append(...order.map((frame) =>
    {
        const hottest = hottestOf("frame", frame);
        return make("tr", { data: { frame } }, make("td", {}, frameButton(frame)),
            msCell(frames[frame]),
            make("td", { className: "name" }, hottest ? hottest.name : "\u2013"));
    }));
}

function hotRow(timer)
{
    return make("tr", { data: { timer: timer.index } },
        make("td", { className: "name" },
            make("button", { type: "button", onclick: () => zoomTimer(timer.index) }, timer.name || "(no name)"),
            make("small", {}, timer.path)),
        msCell(timer.own), msCell(timer.average), msCell(timer.peak),
        make("td", {}, timer.peakFrame < 0 ? "\u2013" : frameButton(timer.peakFrame)),
        make("td", { data: { calls: timer.calls } }, timer.calls.toFixed(2)));
}

function fillHot()
{
    const key = HOT_COLUMNS.find((column) => column[0] === state.sort)[2], wanted = $("filter").value.toLowerCase();
    const sign = state.ascending ? 1 : -1;
    const found = timers.slice(1).filter((timer) => timer.name.toLowerCase().includes(wanted));
    found.sort((a, b) => key(a) < key(b) ? -sign : key(a) > key(b) ? sign : a.index - b.index);
    $("hot").tBodies[0].replaceChildren(...found.slice(0, MAX_ROWS).map(hotRow));
    $("shown").textContent = found.length > MAX_ROWS ? `the first ${MAX_ROWS} of ${found.length}` : `${found.length} timers`;
    for (const head of $("hot").tHead.rows[0].cells)
    {
        head.removeAttribute("aria-sort");
        if (head.dataset.key === state.sort)
        {
            head.setAttribute("aria-sort", state.ascending ? "ascending" : "descending");
        }
    }
}

function makeHotHead()
{
    const sortBy = (key) =>
    {
        state.ascending = state.sort === key ? !state.ascending : key === "name";
        state.sort = key;
        fillHot();
    };
    $("hot").tHead.append(make("tr", {}, ...HOT_COLUMNS.map(([key, text]) =>
        make("th", { scope: "col", className: key === "name" ? "name" : "", data: { key } },
            make("button", { type: "button", onclick: () => sortBy(key) }, text)))));
}

// The head

function fillHead()
{
    $("title").textContent = data.file;
    const rate = (data.rate / 1e6).toFixed(1) + " million ticks a second";
    $("facts").textContent = [`${nFrames} frames`, `${data.batches.length} batches`,
        `${Math.max(timers.length - 1, 0)} timers`, rate + (data.measured ? ", as on the machine that made this page" : "")].join(" \u00B7 ");
    $("problems").hidden = data.problems.length === 0;
    $("problems").querySelector("ul").append(...data.problems.map((text) => make("li", {}, text)));
    for (const [key, text] of [["mean", "mean"], ["median", "median"], ["p95", "95 % below"], ["p99", "99 % below"], ["worst", "worst"]])
    {
        const value = make("dd", { data: { figure: key, ticks: data.summary[key] } }, showMs(data.summary[key]));
        if (key === "worst" && nFrames > 0)
        {
            value.append(" ", frameButton(data.summary.worstFrame));
        }
        $("cards").append(make("div", {}, make("dt", {}, text), value));
    }
}

function start()
{
    fillHead();
    $("empty").hidden = nFrames > 0;
    $("main").hidden = nFrames === 0;
    if (nFrames > 0)
    {
        $("frame").max = nFrames - 1;
        $("frame").onchange = () => selectFrame(clamp(Math.round(Number($("frame").value)) || 0, 0, nFrames - 1), true);
        $("modeAverage").onchange = () => { state.mode = "average"; update(); };
        $("modeFrame").onchange = () => selectFrame(state.frame, true);
        $("zoomIn").onclick = () => zoom(0.5, zoomCentre());
        $("zoomOut").onclick = () => zoom(2, zoomCentre());
        $("zoomAll").onclick = () => showRange(0, nFrames);
        $("zoomRoot").onclick = () => zoomTimer(0);
        $("filter").oninput = fillHot;
        makeHotHead();
        fillWorst();
        fillHot();
        followAddress();
        window.addEventListener("hashchange", followAddress);
        window.addEventListener("resize", drawGraph);
        matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawGraph);
    }
    document.documentElement.dataset.ready = "1";
}

start();
