// The page of a stats file: what it knows of frames and timers.

const SLOTS = 150;                    // frames in a batch
const MAX_TEXT = 24 * 2 ** 20;        // letters of batches that a live page keeps

const data = JSON.parse($("data").textContent);
let timers = [];

const state = {
    mode: "average", frame: 0,
    root: 0, marked: -1,        // timers that the flame view and the graph show
    from: 0, to: 0,             // frames that the graph shows
    axis: "",                   // chosen by the reader: "full", "capped" or "log"
};

// Frames have the numbers that they have in the file. Those before data.first are forgotten.
const endOfFrames = () => data.first + data.frames.length;
const timeOf = (frame) => data.frames[frame - data.first];
const toMs = (ticks) => ticks * 1000 / data.rate;
const showTicks = (ticks) => showTime(toMs(ticks));

// Reads the timers anew. Parents come first.
function readTimers()
{
    timers = data.timers.map(([name, id, parent, average, own, calls, allCalls, peak, peakFrame, peakCalls], index) =>
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
}

// Returns the records of a batch, by the number that it has in the file: [node, average, max, last, max ever, calls of
// last, calls at max, slot of max, times, calls] for each timer. Returns null if the page is without them. A batch is
// a text until it is wanted: a page opens fast and stays small.
const batchOf = (() =>
{
    const held = new Map();
    return (iBatch) =>
    {
        const text = data.batches[iBatch - data.first / SLOTS];
        if (!text)
        {
            return null;
        }
        if (!held.has(iBatch) || held.get(iBatch)[0] !== text)
        {
            held.delete(iBatch);
            held.set(iBatch, [text, JSON.parse(text)]);
            if (held.size > 16)
            {
                held.delete(held.keys().next().value);
            }
        }
        return held.get(iBatch)[1];
    };
})();

// Returns the record of a timer in a batch, without reading the others. Returns null if the page does not have it.
function recordOf(iBatch, index)
{
    const text = data.batches[iBatch - data.first / SLOTS] || "", isFirst = text.startsWith(`[[${index},`);
    const start = isFirst ? 1 : text.indexOf(`]],[${index},`) + 3;
    return start >= 3 || isFirst ? JSON.parse(text.slice(start, text.indexOf("]]", start) + 2)) : null;
}

// Returns time and calls of each timer, in one frame or on average. Returns null if the page does not have the frame's.
function valuesOf(mode, frame)
{
    if (mode === "average")
    {
        return timers.map((t) => ({ time: t.average, calls: t.calls }));
    }
    const batch = batchOf(Math.floor(frame / SLOTS));
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

// Returns room for each timer: its own time or that of its children together, whichever is more. Parents come first.
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

// Returns the timer with the most time of its own in a frame or on average, or null if there is none.
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

// Returns a function that returns the time of a timer in a frame, or 0 if the page does not have it.
const seriesOf = (() =>
{
    let held = -1, known = "", series = null;
    return (index) =>
    {
        const facts = `${data.first} ${data.frames.length}`;
        if (held !== index || known !== facts)
        {
            held = index;
            known = facts;
            series = new Float64Array(data.frames.length);
            data.batches.forEach((text, i) =>
            {
                const record = recordOf(data.first / SLOTS + i, index);
                if (record)
                {
                    series.set(record[8], i * SLOTS);
                }
            });
        }
        return (frame) => series[frame - data.first];
    };
})();

// Returns the times of all frames in order of size, for shares such as the 99th of 100.
const sortedFrames = (() =>
{
    let known = "", sorted = null;
    return () =>
    {
        const facts = `${data.first} ${data.frames.length}`;
        if (known !== facts)
        {
            known = facts;
            sorted = Float64Array.from(data.frames).sort();
        }
        return sorted;
    };
})();
