// The flame view: timers, each within the one that called it, and what is known of one.

const ROW_HEIGHT = 22;
const MIN_BOX = 0.0004;         // part of the width below which a timer is not drawn

const flame = $("flame");

// Returns the place of a timer beside the one that fills the view: "above" it, "in" it, or "" for neither.
function locate(index)
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
        : (state.mode === "average" ? "average frame" : "frame " + showNumber(state.frame)) + ", all timers";
    const label = `${name}, ${showTicks(timer.index > 0 ? value.time : place.size)}`
        + (timer.index > 0 ? `, ${showCount(value.calls, "call")}` : "");
    const box = make("button", {
        type: "button", className: "box" + (above ? " above" : "") + (timer.index === state.marked ? " marked" : ""),
        tabIndex: timer.index === state.root ? 0 : -1, title: label,
        data: { timer: timer.index, ticks: value.time, calls: value.calls }, attributes: { "aria-label": label },
        onclick: () => zoomTimer(timer.index),
        onmouseenter: () => showDetail(timer.index), onfocus: () => showDetail(timer.index),
    }, width * flame.clientWidth > 24 ? label : "");
    box.style.setProperty("--hue", hueOf(timer.name));
    box.style.left = left * 100 + "%";
    box.style.width = width * 100 + "%";
    box.style.top = timer.depth * ROW_HEIGHT + "px";
    return box;
}

function drawFlame()
{
    const values = valuesOf(state.mode, state.frame);
    const focused = flame.contains(document.activeElement) ? document.activeElement.dataset.timer : "";
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
        const place = places[timer.index], where = locate(timer.index);
        const width = where === "above" || timer.index === state.root ? 1 : place.size / (root.size || 1);
        if (where && width >= MIN_BOX)
        {
            const left = where === "above" ? 0 : (place.start - root.start) / (root.size || 1);
            flame.append(drawBox(timer, values[timer.index], place, left, width, where === "above"));
            depth = Math.max(depth, timer.depth + 1);
        }
    }
    flame.style.height = depth * ROW_HEIGHT + "px";
    if (focused)
    {
        boxOf(focused)?.focus();
    }
}

const boxOf = (index) => flame.querySelector(`[data-timer="${index}"]`);

// Fills the view with a timer and marks it in the graph; a second time goes back to its parent.
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

// Shows what is known of a timer. Shows the hottest one instead of the root, which is not timed.
function showDetail(wanted)
{
    const hottest = wanted > 0 ? null : hottestOf(state.mode, state.frame), index = hottest ? hottest.index : wanted;
    const timer = timers[index], values = valuesOf(state.mode, state.frame), firstBatch = data.first / SLOTS;
    let iBatch = Math.floor(state.frame / SLOTS), record = recordOf(iBatch, index);
    if (state.mode === "average")   // the last batch that has it
    {
        record = null;
        for (iBatch = firstBatch + data.batches.length; !record && --iBatch >= firstBatch;)
        {
            record = recordOf(iBatch, index);
        }
    }
    const columns = [];
    $("detail").dataset.timer = index;
    if (index === 0)
    {
        $("detail").replaceChildren(detailColumn("No time was measured."));
        return;
    }
    if (values && state.mode === "frame")
    {
        columns.push(detailColumn(`${timer.name} in frame ${showNumber(state.frame)}`, showTicks(values[index].time),
            showCount(values[index].calls, "call")));
    }
    columns.push(detailColumn(`${timer.name} in all frames`, `average ${showTicks(timer.average)}`,
        `of its own ${showTicks(timer.own)}`,
        `${showCount(timer.calls, "call")} a frame, ${showNumber(timer.allCalls)} in all`,
        timer.peakFrame < 0 ? "never above 0" : [`peak ${showTicks(timer.peak)} in frame `,
            frameButton(timer.peakFrame), `, ${showCount(timer.peakCalls, "call")}`]));
    if (record)
    {
        const [, average, max, last, maxEver, nLast, nAtMax, maxSlot] = record;
        columns.push(detailColumn(`The profiler's own figures of batch ${showNumber(iBatch)}, from its last 149 frames`,
            `average ${showTicks(average)}`, maxSlot < 0 ? "no peak"
                : `peak ${showTicks(max)} in frame ${showNumber(iBatch * SLOTS + maxSlot)}, `
                    + showCount(nAtMax, "call"),
            `last frame ${showTicks(last)}, ${showCount(nLast, "call")}`, `highest peak so far ${showTicks(maxEver)}`));
        Object.assign(columns[columns.length - 1].dataset, { average, max, last, maxEver, nLast, nAtMax, maxSlot });
    }
    $("detail").replaceChildren(...columns);
}
