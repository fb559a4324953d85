// The page of live memory: a treemap of categories, files and source lines. Squarified treemaps after Bruls, Huizing
// and van Wijk, "Squarified Treemaps" (2000).

const HEAD = 17;                // height of the head of an area that holds others
const MIN_AREA = 4;             // pixels of width and height below which an area is not drawn
const LETTER = 7;               // width of a letter of a figure, at most
const MAX_ROWS = 500;

const data = JSON.parse($("data").textContent);
const nodes = [], map = $("map");
let root = 0, focused = 0;

// The tree: all, categories, files, source lines. A file with one line is that line.

function addNode(name, parent, figures)
{
    const node = { index: nodes.length, name, parent, parts: [],
        bytes: 0, blocks: 0, oldBytes: 0, oldBlocks: 0, area: 0 };
    nodes.push(Object.assign(node, figures));
    if (parent)
    {
        parent.parts.push(node);
    }
    return node;
}

const isLine = (node) => node.parts.length === 0;
const growthOf = (node) => node.bytes - node.oldBytes;

function makeTree()
{
    const all = addNode("all memory", null);
    for (const [category, lines] of data.groups)
    {
        const group = addNode(category, all), files = new Map();
        for (const line of lines)
        {
            const file = line[0].replace(/\(\d+\)$/, "");
            files.set(file, [...files.get(file) || [], line]);
        }
        for (const [file, members] of files)
        {
            const whole = members.length > 1 ? addNode(file, group) : group;
            for (const [name, bytes, blocks, oldBytes, oldBlocks] of members)
            {
                addNode(name, whole, { bytes, blocks, oldBytes, oldBlocks });
            }
        }
    }
    for (const node of [...nodes].reverse())
    {
        for (const key of node.parent ? ["bytes", "blocks", "oldBytes", "oldBlocks"] : [])
        {
            node.parent[key] += node[key];
        }
    }
}

// Sets the area of each node by what is measured, and sorts the parts of each, largest first.
function measure()
{
    const byGrowth = data.growth && $("byGrowth").checked;
    nodes.forEach((node) => { node.area = isLine(node) ? Math.abs(byGrowth ? growthOf(node) : node.bytes) : 0; });
    [...nodes].reverse().filter((node) => node.parent).forEach((node) => { node.parent.area += node.area; });
    nodes.forEach((node) => node.parts.sort((a, b) => b.area - a.area || a.index - b.index));
}

// The picture

// Divides an area among nodes, which are sorted, largest first. Calls place(node, area) for each with an area.
function divide(area, parts, place)
{
    const shown = parts.filter((part) => part.area > 0), sum = shown.reduce((total, part) => total + part.area, 0);
    const scale = area.width * area.height / Math.max(sum, 1e-9);
    let { x, y, width, height } = area;
    const worst = (row, total, side) => Math.max(side * side * row[0].area * scale / (total * total),
        total * total / (side * side * row[row.length - 1].area * scale));
    for (let i = 0; i < shown.length;)
    {
        const isColumn = width >= height, side = Math.max(isColumn ? height : width, 1e-9);
        const row = [shown[i]];
        let total = shown[i++].area * scale;
        while (i < shown.length && worst([row[0], shown[i]], total + shown[i].area * scale, side)
            <= worst([row[0], row[row.length - 1]], total, side))
        {
            row.push(shown[i]);
            total += shown[i++].area * scale;
        }
        const thickness = total / side;
        let offset = 0;
        for (const part of row)
        {
            const length = part.area * scale / Math.max(thickness, 1e-9);
            place(part, isColumn ? { x, y: y + offset, width: thickness, height: length }
                : { x: x + offset, y, width: length, height: thickness });
            offset += length;
        }
        x += isColumn ? thickness : 0;
        y += isColumn ? 0 : thickness;
        width = Math.max(width - (isColumn ? thickness : 0), 0);
        height = Math.max(height - (isColumn ? 0 : thickness), 0);
    }
}

const showGrowth = (n) => (n > 0 ? "+" : n < 0 ? "\u2212" : "\u00B1") + showBytes(Math.abs(n));

// Returns the name in a picture, without folders. A line in the area of its file is named by its number.
function shortName({ name, parent })
{
    const line = parent && /\(\d+\)$/.test(name) && name.startsWith(`${parent.name}(`)
        ? `line ${name.slice(parent.name.length + 1, -1)}` : "";
    return line || name.replace(/^.*[\\/]/, "");
}

// Returns what an area says: its size, or its growth if the areas show that.
const figureOf = (node) => data.growth && $("byGrowth").checked ? showGrowth(growthOf(node)) : showBytes(node.bytes);

function describe(node)
{
    const share = nodes[0].bytes > 0 ? `, ${showNumber(100 * node.bytes / nodes[0].bytes, 1)} % of all` : "";
    return `${node.name}: ${showBytes(node.bytes)} in ${showCount(node.blocks, "block")}${share}`
        + (data.growth ? `, ${showGrowth(growthOf(node))} since the first snapshot` : "");
}

function hueOfNode(node)
{
    let group = node;
    while (group.parent && group.parent.parent)
    {
        group = group.parent;
    }
    return hueOf(group.name);
}

function drawArea(node, area)
{
    if (area.width < MIN_AREA || area.height < MIN_AREA)
    {
        return;
    }
    const isWhole = !isLine(node), growth = growthOf(node), label = describe(node);
    const isTall = !isWhole && area.height >= 2 * HEAD, figure = figureOf(node);
    const hasFigure = area.width >= LETTER * figure.length + (isTall ? 10 : 44);   // a figure is whole or not there
    const texts = area.width < 26 || area.height < HEAD ? [] : [shortName(node), ...hasFigure ? [figure] : []];
    const box = make("button", {
        type: "button", title: label, tabIndex: -1, data: { node: node.index, bytes: node.bytes, growth },
        className: "box" + (isWhole ? " whole" : "") + (isTall ? " tall" : "")
            + (texts.length === 0 ? " bare" : "") + (data.growth && growth === 0 ? " same" : ""),
        attributes: { "aria-label": label }, onclick: () => zoomTo(node),
        onmouseenter: () => { $("what").textContent = label; }, onfocus: () => focusOn(node.index, box),
    }, ...texts.map((text) => make("span", {}, text)));
    box.style.setProperty("--hue", data.growth ? `var(--${growth > 0 ? "grown" : "shrunk"})` : hueOfNode(node));
    Object.assign(box.style,
        { left: `${area.x}px`, top: `${area.y}px`, width: `${area.width}px`, height: `${area.height}px` });
    map.append(box);
    if (isWhole && area.height > HEAD + MIN_AREA)
    {
        divide({ x: area.x + 2, y: area.y + HEAD, width: area.width - 4, height: area.height - HEAD - 2 },
            node.parts, drawArea);
    }
}

function focusOn(index, box)
{
    focused = index;
    $("what").textContent = describe(nodes[index]);
    [...map.children].forEach((other) => { other.tabIndex = other === box ? 0 : -1; });
}

function drawMap()
{
    const node = nodes[root], way = [];
    map.replaceChildren();
    drawArea(node, { x: 0, y: 0, width: map.clientWidth, height: map.clientHeight });
    const first = boxOf(focused) || map.firstElementChild;
    first.tabIndex = 0;
    for (let step = node; step; step = step.parent)
    {
        way.unshift(make("li", {}, step === node ? make("span", { attributes: { "aria-current": "true" } }, step.name)
            : make("button", { type: "button", onclick: () => zoomTo(step) }, step.name)));
    }
    $("way").replaceChildren(...way);
    $("zoomOut").disabled = !node.parent;
    map.dataset.root = root;
}

const boxOf = (index) => map.querySelector(`[data-node="${index}"]`);

// Fills the picture with a node, or with the parent of a line. Zooming to what fills the picture goes back.
function zoomTo(node)
{
    const whole = isLine(node) ? node.parent : node;
    root = whole.index === root && whole.parent && !isLine(node) ? whole.parent.index : whole.index;
    focused = node.index;
    showParts();
    (boxOf(focused) || map.firstElementChild).focus();
}

// Returns the box in the direction of an arrow from another one, or null if there is none. If there are several,
// returns the one with the shortest way: a distance beside the direction counts three times. A head counts as its own
// place.
function neighbour(box, [dx, dy])
{
    const placeOf = (other) => ({ x: other.offsetLeft, y: other.offsetTop, width: other.offsetWidth,
        height: other.classList.contains("whole") ? HEAD : other.offsetHeight });
    const from = placeOf(box);
    let best = null, least = Infinity;
    for (const other of map.children)
    {
        const to = placeOf(other);
        const along = (to.x + to.width / 2 - from.x - from.width / 2) * dx
            + (to.y + to.height / 2 - from.y - from.height / 2) * dy;
        const beside = dx === 0 ? Math.max(to.x - from.x - from.width, from.x - to.x - to.width, 0)
            : Math.max(to.y - from.y - from.height, from.y - to.y - to.height, 0);
        if (other !== box && along > 0.5 && along + 3 * beside < least)
        {
            best = other;
            least = along + 3 * beside;
        }
    }
    return best;
}

map.addEventListener("keydown", (event) =>
{
    const ways = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    if (event.key === "Escape" && nodes[root].parent)
    {
        event.preventDefault();
        const from = root;
        zoomTo(nodes[root].parent);
        (boxOf(from) || map.firstElementChild).focus();
    }
    else if (event.key in ways)
    {
        event.preventDefault();
        (neighbour(event.target, ways[event.key]) || event.target).focus();
    }
});

// The table

const figureCell = (key, show) => (node) => ({ data: { [key]: node[key] }, content: show(node[key]) });

const fillParts = sortedTable($("parts"), [
    { key: "name", text: "name", name: true, of: (node) => node.name.toLowerCase(), cell: (node) => ({ content: [
        isLine(node) ? node.name : make("button", { type: "button", onclick: () => zoomTo(node) }, node.name),
        make("small", {}, $("lines").checked && isLine(node) ? categoryOf(node) : "")] }) },
    { key: "bytes", text: "bytes", of: (node) => node.bytes, cell: figureCell("bytes", showNumber) },
    { key: "share", text: "share", of: (node) => node.bytes,
        cell: (node) => (
            { content: `${showNumber(nodes[0].bytes > 0 ? 100 * node.bytes / nodes[0].bytes : 0, 1)} %` }) },
    { key: "blocks", text: "blocks", of: (node) => node.blocks, cell: figureCell("blocks", showNumber) },
    ...data.growth ? [
        { key: "oldBytes", text: "before", of: (node) => node.oldBytes, cell: figureCell("oldBytes", showNumber) },
        { key: "growth", text: "change", of: growthOf, cell: (node) => ({ data: { growth: growthOf(node) },
            content: (growthOf(node) > 0 ? "+" : "") + showNumber(growthOf(node)).replace("-", "\u2212") }) }] : [],
], data.growth ? "growth" : "bytes", MAX_ROWS, (node) => ({ node: node.index }));

function categoryOf(node)
{
    return node.parent.parent.parent ? node.parent.parent.name : node.parent.name;
}

// Shows the parts of what fills the picture, or every source line in it.
function showParts()
{
    const wanted = $("filter").value.toLowerCase(), found = [];
    const collect = (node) => node.parts.forEach((part) =>
        isLine(part) || !$("lines").checked ? found.push(part) : collect(part));
    collect(nodes[root]);
    const shown = found.filter((node) => node.name.toLowerCase().includes(wanted));
    fillParts(shown);
    $("shown").textContent = shown.length > MAX_ROWS ? `the first ${MAX_ROWS} of ${showNumber(shown.length)}`
        : `${showNumber(shown.length)} in ${nodes[root].name}`;
    drawMap();
}

function start()
{
    $("title").textContent = data.title;
    makeTree();
    measure();
    $("facts").textContent = describe(nodes[0]).replace("all memory: ", "").replace(", 100.0 % of all", "");
    $("measures").hidden = !data.growth;
    ["byGrowth", "bySize"].forEach((id) => { $(id).onchange = () => { measure(); drawMap(); }; });
    $("zoomOut").onclick = () => { root = nodes[root].parent.index; showParts(); };
    $("lines").onchange = showParts;
    $("filter").oninput = showParts;
    showParts();
    window.addEventListener("resize", drawMap);
    document.documentElement.dataset.ready = "1";
}

start();
