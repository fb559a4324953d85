// The graph of all frames.

const MIN_SPAN = 10;            // frames in the closest zoom
const GUIDES = [[1000 / 60, "60 fps"], [1000 / 30, "30 fps"]];   // milliseconds
const LABEL_HEIGHT = 13, TOP = 10, BOTTOM = 20;
const CAP = 3;                  // a capped axis ends at this many times what 95 of 100 frames stay below

const graph = $("graph"), context = graph.getContext("2d");
const margin = { left: 54, right: 44 };
let hovered = -1, dragFrom = null, dragTo = null;

const plotWidth = () => Math.max(graph.clientWidth - margin.left - margin.right, 1);
const plotHeight = () => graph.clientHeight - TOP - BOTTOM;
const xOf = (frame) => margin.left + (frame - state.from) / (state.to - state.from) * plotWidth();

// Returns the frames that share the column of pixels at x, as [first, end).
function framesAt(x)
{
    const column = Math.floor(x - margin.left);
    const startOf = (index) => Math.floor(state.from + index * (state.to - state.from) / plotWidth());
    const first = clamp(startOf(column), state.from, state.to - 1);
    return [first, clamp(startOf(column + 1), first + 1, state.to)];
}

function worstIn(valueOf, first, end)
{
    let worst = first, most = valueOf(first);
    for (let i = first + 1; i < end; ++i)
    {
        const value = valueOf(i);
        if (value > most)
        {
            worst = i;
            most = value;
        }
    }
    return worst;
}

// Returns a step of 1, 2 or 5 times a power of ten, about a fourth of the range.
function niceStep(range)
{
    const power = 10 ** Math.floor(Math.log10(range / 4));
    return power * ([1, 2, 5].find((factor) => factor * power * 4 >= range * 0.8) || 10);
}

// Returns the vertical axis: its kind, the longest time and the upper end in milliseconds, how high a time is as a
// part of the plot, and the times of its labels.
function axisOf()
{
    const worst = Math.max(toMs(timeOf(worstIn(timeOf, state.from, state.to))), 1e-6);
    const sorted = sortedFrames(), usual = toMs(sorted[Math.ceil(sorted.length * 0.95) - 1]) * CAP;
    const spiked = worst > usual && usual > 0;
    const kind = state.axis || (spiked ? "capped" : "full");
    if (kind === "log")
    {
        const least = toMs(sorted.find((ticks) => ticks > 0) || sorted[sorted.length - 1] || 0);
        const top = worst * 1.2, bottom = clamp(least * 0.8, top / 1e6, top / 10), range = Math.log(top / bottom);
        const ticks = [];
        for (let power = 10 ** Math.floor(Math.log10(bottom)); power <= top; power *= 10)
        {
            ticks.push(...(range < Math.log(1000) ? [1, 2, 5] : [1]).map((factor) => factor * power));
        }
        return { kind, worst, top, partOf: (ms) => ms <= 0 ? 0 : clamp(Math.log(ms / bottom) / range, 0, 1),
            ticks: ticks.filter((ms) => ms >= bottom && ms <= top) };
    }
    const top = kind === "capped" && spiked ? usual : worst * 1.08, ticks = [];
    for (let i = 0, step = niceStep(top); i * step <= top; ++i)
    {
        ticks.push(i * step);
    }
    return { kind, worst, top, partOf: (ms) => clamp(ms / top, 0, 1), ticks };
}

// Returns a time at the axis as text, without digits that mean nothing.
function showTick(ms)
{
    const [size, name] = TIMES.find((unit) => ms >= unit[0] * 0.999) || TIMES[3];
    return ms === 0 ? "0" : `${(Number((ms / size).toPrecision(6))).toLocaleString("en")}\u00A0${name}`;
}

// Draws a bar for each frame, or, if there are more frames than pixels, for the worst one of each column. A mark tops
// a bar that the axis cuts.
function drawBars(valueOf, axis, colour, cut)
{
    const span = state.to - state.from, nBars = Math.min(span, plotWidth()), step = plotWidth() / nBars;
    const height = plotHeight(), width = step > 3 ? step - 1 : step;
    for (let i = 0; i < nBars; ++i)
    {
        const frame = nBars === span ? state.from + i : worstIn(valueOf, ...framesAt(margin.left + i));
        const ms = toMs(valueOf(frame)), bar = axis.partOf(ms) * height, x = margin.left + i * step;
        context.fillStyle = colour;
        context.fillRect(x, TOP + height - bar, width, bar);
        if (ms > axis.top)
        {
            context.fillStyle = cut;
            context.fillRect(x, TOP - 1, Math.max(width, 2), 4);
        }
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

// Places the texts around the plot. They are elements, each on a place of its own: numbers of times at the left, of
// frames below, names of the guides at the right.
const placeLabels = (() =>
{
    let known = "";
    const add = (text, left, top, className) =>
    {
        const label = make("span", { className: className || "" }, text);
        label.style.top = `${top}px`;
        $("labels").append(label);
        label.style.left = `${left(Math.ceil(label.offsetWidth))}px`;
    };
    return (axis, guides, yOf) =>
    {
        const facts = [graph.clientWidth, graph.clientHeight, state.from, state.to, axis.kind, axis.top].join();
        if (known === facts)
        {
            return;
        }
        known = facts;
        $("labels").replaceChildren();
        let free = Infinity;
        for (const ms of axis.ticks)
        {
            const top = yOf(ms) - LABEL_HEIGHT / 2;
            if (top + LABEL_HEIGHT <= free)
            {
                add(showTick(ms), (width) => margin.left - 5 - width, top);
                free = top;
            }
        }
        free = Infinity;
        for (const [ms, text] of guides)
        {
            const top = Math.min(yOf(ms) - LABEL_HEIGHT / 2, free - LABEL_HEIGHT);
            add(text, () => graph.clientWidth - margin.right + 4, top, "guide");
            free = top;
        }
        const room = 7 * showNumber(state.to).length + 16;   // pixels for a number
        const least = (state.to - state.from) / Math.max(Math.floor(plotWidth() / room), 1);
        const power = 10 ** Math.floor(Math.log10(least));
        const step = Math.max([1, 2, 5, 10].map((factor) => factor * power).find((n) => n >= least), 1);
        for (let frame = Math.ceil(state.from / step) * step; frame < state.to; frame += step)
        {
            add(showNumber(frame), (width) => clamp(xOf(frame + 0.5) - width / 2, 0, graph.clientWidth - width),
                graph.clientHeight - LABEL_HEIGHT);
        }
    };
})();

function drawGraph()
{
    const ratio = window.devicePixelRatio || 1, width = graph.clientWidth, full = graph.clientHeight;
    const style = getComputedStyle(document.documentElement), colour = (name) => style.getPropertyValue(name).trim();
    graph.width = width * ratio;
    graph.height = full * ratio;
    context.scale(ratio, ratio);
    const axis = axisOf(), guides = GUIDES.filter(([ms]) => ms < axis.top && axis.partOf(ms) > 0);
    margin.right = guides.length > 0 ? 44 : 8;
    const height = plotHeight(), right = width - margin.right;
    const yOf = (ms) => TOP + height - axis.partOf(ms) * height;
    axis.ticks.forEach((ms) => drawLine(margin.left, yOf(ms), right, yOf(ms), colour("--line")));
    drawBars(timeOf, axis, colour("--bar"), colour("--bad"));
    if (state.marked > 0)
    {
        drawBars(seriesOf(state.marked), axis, colour("--mark"), colour("--bad"));
    }
    guides.forEach(([ms]) => drawLine(margin.left, yOf(ms), right, yOf(ms), colour("--chosen"), [4, 4]));
    placeLabels(axis, guides, yOf);
    drawMarks(height, colour);
    updateGraphTexts(axis);
}

function drawMarks(height, colour)
{
    const span = (frame) => [xOf(frame), Math.max(xOf(frame + 1) - xOf(frame), 1.5)];
    if (state.frame >= state.from && state.frame < state.to)
    {
        const [x, width] = span(state.frame);
        context.fillStyle = colour("--chosen");
        context.fillRect(x, TOP - 8, width, 5);
        context.globalAlpha = 0.45;
        context.fillRect(x, TOP, width, height);
        context.globalAlpha = 1;
    }
    if (dragTo !== null)
    {
        context.fillStyle = colour("--accent");
        context.globalAlpha = 0.2;
        context.fillRect(Math.min(dragFrom, dragTo), TOP, Math.abs(dragTo - dragFrom), height);
        context.globalAlpha = 1;
    }
    else if (hovered >= state.from && hovered < state.to)
    {
        const [x, width] = span(hovered);
        drawLine(x + width / 2, TOP, x + width / 2, TOP + height, colour("--ink"));
    }
}

function updateGraphTexts(axis)
{
    const cut = axis.kind === "capped" && axis.worst > axis.top ? `, cut at ${showTime(axis.top)}` : "";
    $("range").textContent = `frames ${showNumber(state.from)} to ${showNumber(state.to - 1)}${cut}` + (state.marked > 0
        ? `, the time in ${timers[state.marked].name} marked` : "");
    $({ full: "axisFull", capped: "axisCapped", log: "axisLog" }[axis.kind]).checked = true;
    graph.setAttribute("aria-valuemin", data.first);
    graph.setAttribute("aria-valuemax", endOfFrames() - 1);
    graph.setAttribute("aria-valuenow", state.frame);
    graph.setAttribute("aria-valuetext", `frame ${state.frame}: ${showTicks(timeOf(state.frame))}`);
    Object.assign(graph.dataset,
        { from: state.from, to: state.to, frame: state.frame, ticks: timeOf(state.frame), axis: axis.kind,
            top: axis.top });
}

function showRange(from, to)
{
    const nFrames = data.frames.length, span = clamp(Math.round(to - from), Math.min(MIN_SPAN, nFrames), nFrames);
    state.from = clamp(Math.round(from), data.first, endOfFrames() - span);
    state.to = state.from + span;
    drawGraph();
}

const showAll = () => showRange(data.first, endOfFrames());

function zoom(factor, centre)
{
    showRange(centre - (centre - state.from) * factor, centre + (state.to - centre) * factor);
}

// Returns the middle of a zoom by key or button: the selected frame if it is in view.
function zoomCentre()
{
    const inView = state.frame >= state.from && state.frame < state.to;
    return inView ? state.frame + 0.5 : (state.from + state.to) / 2;
}

function showTip(x)
{
    const tip = $("tip");
    tip.hidden = hovered < data.first || dragTo !== null;
    if (!tip.hidden)
    {
        const hottest = hottestOf("frame", hovered);
        tip.textContent = `frame ${showNumber(hovered)}: ${showTicks(timeOf(hovered))}`
            + (hottest ? `, most in ${hottest.name}` : "");
        const left = x > graph.clientWidth / 2 ? x - tip.offsetWidth - 14 : x + 14;
        tip.style.left = `${clamp(left, 2, Math.max(graph.clientWidth - tip.offsetWidth - 2, 2))}px`;
    }
}

function listenToGraph()
{
    graph.addEventListener("pointerdown", (event) =>
    {
        graph.setPointerCapture(event.pointerId);
        dragFrom = event.offsetX;
    });
    graph.addEventListener("pointermove", (event) =>
    {
        if (dragFrom !== null && (dragTo !== null || Math.abs(event.offsetX - dragFrom) > 4))
        {
            dragTo = clamp(event.offsetX, margin.left, graph.clientWidth - margin.right);
        }
        hovered = worstIn(timeOf, ...framesAt(event.offsetX));
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
            selectFrame(worstIn(timeOf, ...framesAt(event.offsetX)), false);
        }
    });
    graph.addEventListener("pointercancel", () => { dragFrom = dragTo = null; drawGraph(); });
    graph.addEventListener("pointerleave", () => { hovered = -1; showTip(0); drawGraph(); });
    graph.addEventListener("dblclick", showAll);
    graph.addEventListener("wheel", (event) =>
    {
        if (document.activeElement === graph || event.ctrlKey)
        {
            event.preventDefault();
            zoom(event.deltaY > 0 ? 1.25 : 0.8, framesAt(event.offsetX)[0] + 0.5);
        }
    }, { passive: false });
    graph.addEventListener("keydown", onGraphKey);
}

function onGraphKey(event)
{
    const all = data.frames.length;
    const steps = { ArrowLeft: -1, ArrowRight: 1, PageUp: -SLOTS, PageDown: SLOTS, Home: -all, End: all };
    if (event.ctrlKey || event.altKey || event.metaKey)
    {
        return;
    }
    if (event.key in steps)
    {
        selectFrame(clamp(state.frame + steps[event.key], data.first, endOfFrames() - 1), true);
    }
    else if (event.key === "+" || event.key === "=" || event.key === "-")
    {
        zoom(event.key === "-" ? 2 : 0.5, zoomCentre());
    }
    else if (event.key === "0")
    {
        showAll();
    }
    else
    {
        return;
    }
    event.preventDefault();
}
