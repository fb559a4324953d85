"use strict";
// What all pages share. Names come from files: they reach the document as text only.

const $ = (id) => document.getElementById(id);
const clamp = (x, low, high) => Math.min(Math.max(x, low), high);

// Makes an element with properties, data attributes, further attributes and children, which are elements or texts.
function make(tag, properties, ...children)
{
    const element = document.createElement(tag);
    const { data: values, attributes, ...rest } = properties || {};
    Object.assign(element, rest);
    Object.assign(element.dataset, values);
    Object.entries(attributes || {}).forEach(([name, value]) => element.setAttribute(name, value));
    element.append(...children);
    return element;
}

// Numbers. Thousands have separators.

const formats = [];   // by digits after the point
function showNumber(n, digits = 0)
{
    formats[digits] ??= new Intl.NumberFormat("en", { minimumFractionDigits: digits, maximumFractionDigits: digits });
    return formats[digits].format(n);
}

// Returns a number in the largest unit that leaves at least 1, or in the smallest one, with so many significant
// digits. Bytes have no fraction.
function showIn(units, n, digits)
{
    const [size, name] = units.find((unit) => Math.abs(n) >= unit[0] * 0.99995) || units[units.length - 1];
    const value = n / size;
    const nBefore = Math.floor(Math.log10(Math.max(Math.abs(value), 1))) + 1;
    return `${showNumber(value, size === 1 && name !== "ms" ? 0 : Math.max(digits - nBefore, 0))}\u00A0${name}`;
}

const TIMES = [[1000, "s"], [1, "ms"], [1e-3, "\u00B5s"], [1e-6, "ns"]];
const SIZES = [[2 ** 30, "GiB"], [2 ** 20, "MiB"], [2 ** 10, "KiB"], [1, "bytes"]];

const showTime = (ms) => ms === 0 ? "0\u00A0ms" : showIn(TIMES, ms, 4);
const showBytes = (n) => n === 1 ? "1\u00A0byte" : showIn(SIZES, n, 3);
const showCount = (n, word) => `${showNumber(n, Number.isInteger(n) ? 0 : 2)}\u00A0${word}${n === 1 ? "" : "s"}`;

// Boxes

// Returns the hue of a name in degrees. Same names have the same hue.
function hueOf(name)
{
    let hash = 0;
    for (const letter of name)
    {
        hash = (hash * 31 + letter.codePointAt(0)) >>> 0;
    }
    return hash * 137 % 360;
}

// Tables

// Makes a table that its heads sort. A column is { key, text, of, cell }: `of` returns what to sort by, `cell` what a
// cell holds, of a row's member. Members of equal keys keep their order. Returns the function that shows other
// members.
function sortedTable(table, columns, sort, limit, dataOf)
{
    let members = [], ascending = false;
    const roles = (role) => ({ role });
    table.setAttribute("role", "table");
    [table.tHead, table.tBodies[0]].forEach((part) => part.setAttribute("role", "rowgroup"));
    const classOf = ({ name }) => name ? { className: "name" } : {};
    const heads = columns.map((column) => make("th",
        { scope: "col", ...classOf(column), data: { key: column.key }, attributes: roles("columnheader") },
        make("button", { type: "button", onclick: () => sortBy(column.key) }, column.text)));
    table.tHead.replaceChildren(make("tr", { attributes: roles("row") }, ...heads));

    function fill()
    {
        const { of } = columns.find((column) => column.key === sort), sign = ascending ? 1 : -1;
        const order = members.map((member, index) => [of(member), index, member])
            .sort((a, b) => a[0] < b[0] ? -sign : a[0] > b[0] ? sign : a[1] - b[1]);
        const body = table.tBodies[0], facts = (row) => JSON.stringify(row.dataset);
        const active = body.contains(document.activeElement) ? document.activeElement : null;
        const place = active && [facts(active.closest("tr")), active.closest("td").cellIndex];
        body.replaceChildren(...order.slice(0, limit).map(([, , member]) =>
            make("tr", { data: dataOf(member), attributes: roles("row") }, ...columns.map((column) =>
            {
                const { data, content } = column.cell(member);
                return make("td", { ...classOf(column), data: column.name ? data : { ...data, head: column.text },
                    attributes: roles("cell") }, ...[content].flat());
            }))));
        const row = place && [...body.rows].find((other) => facts(other) === place[0]);
        (row ? row.cells[place[1]].querySelector("button") : null)?.focus();
        for (const head of heads)
        {
            head.removeAttribute("aria-sort");
            if (head.dataset.key === sort)
            {
                head.setAttribute("aria-sort", ascending ? "ascending" : "descending");
            }
        }
    }

    function sortBy(key)
    {
        ascending = sort === key ? !ascending : Boolean(columns.find((column) => column.key === key).name);
        sort = key;
        fill();
    }

    return (shown) => { members = shown; fill(); };
}
