// Charts in plain SVG.
import {count, h, s} from "./dom.js";
import {split} from "./time.js";

export const kColours = 6;

const drawings = new WeakMap();
const widths = new ResizeObserver(entries => {
  for (const {target, contentRect} of entries) target.replaceChildren(drawings.get(target)(Math.max(contentRect.width, 100)));
});

// An element whose content draw(width) makes, again whenever its width in pixels changes.
export function fitted(draw) {
  const element = h("span", {class: "fitted"});
  drawings.set(element, draw);
  widths.observe(element);
  return element;
}

// The times of the columns: minutes, hours or days as "2026-11-21T10:00", from the first to the last.
export function slots(from, to, by) {
  const length = {minute: 60_000, hour: 3_600_000, day: 86_400_000}[by];
  const characters = {minute: 16, hour: 13, day: 10}[by];
  const start = Math.ceil(Date.parse(`${from}:00Z`) / length) * length;
  const list = [];
  for (let time = start; time <= Date.parse(to); time += length) list.push(new Date(time).toISOString().slice(0, characters));
  return list;
}

const moment = slot => (slot.length === 10 ? slot + "T00:00:00Z" : slot.length === 13 ? slot + ":00:00Z" : slot + ":00Z");

export function slotText(slot) {
  if (slot.length === 10) return slot;
  const parts = split(moment(slot));
  return slot.length === 13 ? `${parts.day.slice(5)} ${parts.time.slice(0, 5)}` : parts.time.slice(0, 5);
}

// A round number from the value on.
function roundUp(value) {
  const power = 10 ** Math.floor(Math.log10(Math.max(value, 1)));
  return [1, 2, 5, 10].map(factor => factor * power).find(each => each >= value);
}

// Stacked columns. columns: [{slot, parts: [{name, number, colour}]}], from the bottom up. Every column names its numbers.
export const columnsChart = (columns, title) => fitted(width => drawColumns(columns, title, width));

function drawColumns(columns, title, width) {
  const most = roundUp(Math.max(1, ...columns.map(column => column.parts.reduce((sum, part) => sum + part.number, 0))));
  const height = 240, left = 14 + 8 * count(most).length, bottom = 22, top = 8;
  const scale = (height - top - bottom) / most;
  const step = (width - left) / Math.max(columns.length, 1);
  const chart = s("svg", {viewBox: `0 0 ${width} ${height}`, width, height, class: "columns", role: "img", "aria-label": title});
  for (const part of [0, 0.5, 1]) {
    const y = height - bottom - part * most * scale;
    if (part * most % 1) continue;
    chart.append(s("line", {x1: left, x2: width, y1: y, y2: y, class: part ? "grid" : "axis"}),
      s("text", {x: left - 6, y: y + 4, class: "label end"}, count(part * most)));
  }
  // Labels of up to 80 pixels.
  const every = Math.ceil(columns.length / Math.floor((width - left) / 90));
  columns.forEach((column, at) => {
    const x = left + at * step;
    const group = s("g", {});
    let y = height - bottom;
    for (const {number, colour} of column.parts) {
      const part = number * scale;
      y -= part;
      group.append(s("rect", {x: x + step * 0.1, y, width: Math.max(step * 0.8, 1), height: Math.max(part, 0.8), class: colour}));
    }
    const total = column.parts.reduce((sum, part) => sum + part.number, 0);
    if (total) {
      group.append(s("rect", {x, y: top, width: step, height: height - top - bottom, class: "hit"}),
        s("title", {}, [slotText(column.slot), ...column.parts.map(part => `${part.name}: ${count(part.number)}`).reverse()].join("\n")));
    }
    chart.append(group);
    if (at % every === 0) chart.append(s("text", {x: Math.min(Math.max(x + step / 2, 40), width - 40), y: height - 6, class: "label middle"}, slotText(column.slot)));
  });
  return chart;
}

// The same without axes and numbers, for a line of text.
export function spark(columns, title) {
  const most = Math.max(1, ...columns.map(column => column.parts.reduce((sum, part) => sum + part.number, 0)));
  return s("svg", {viewBox: `0 0 ${columns.length * 3} 18`, preserveAspectRatio: "none", role: "img", "aria-label": title},
    columns.map((column, at) => {
      let y = 18;
      return column.parts.map(({number, colour}) => {
        const height = Math.max(16 * number / most, 1);
        y -= height;
        return s("rect", {x: at * 3, y, width: 2, height, class: colour});
      });
    }), s("line", {x1: 0, x2: columns.length * 3, y1: 17.5, y2: 17.5, class: "axis"}));
}

// Horizontal bars with their numbers as text. rows: [{name, number, colour, target}].
export function barsList(rows) {
  const most = Math.max(1, ...rows.map(row => row.number));
  return h("table", {class: "bars"}, h("tbody", {}, rows.map(row => h("tr", {},
    h("th", {scope: "row"}, h("span", {class: `swatch ${row.colour ?? ""}`, "aria-hidden": "true"}), row.target ? h("a", {href: row.target, title: row.name}, row.name) : row.name),
    h("td", {class: "bar", "aria-hidden": "true"}, h("span", {class: row.colour ?? "c0", style: {width: `${100 * row.number / most}%`}})),
    h("td", {class: "number"}, count(row.number))))));
}
