// What arrived lately, at a glance.
import {count, h, plural} from "./dom.js";
import {get} from "./api.js";
import {address, parameters, viewAddress} from "./address.js";
import {barsList, columnsChart, kColours, slots} from "./chart.js";
import {emptyCollector} from "./empty.js";

const spans = {minute: "the last hour", hour: "the last 48 hours", day: "the last 60 days"};
const delays = [["1", "up to 1 s"], ["10", "1 to 10 s"], ["60", "10 to 60 s"], ["600", "1 to 10 min"], ["3600", "10 to 60 min"],
  ["86400", "1 to 24 h"], ["", "more than a day"], ["ahead", "before they happened: the clocks differ"]];

function sums(arrivals, kind) {
  const totals = new Map();
  for (const each of arrivals) if (each.kind === kind) totals.set(each.name, (totals.get(each.name) ?? 0) + each.number);
  return totals;
}

// Own events have a colour each, as long as there are some; the module's are grey.
export function columnsOf(found, by, colours) {
  const columns = new Map(slots(found.from, found.now, by).map(slot => [slot, {slot, parts: []}]));
  for (const {at, kind, name, number} of found.arrivals) {
    const column = columns.get(at);
    if (!column) continue;
    if (kind === "refused") column.parts.push({name: `refused with ${name === "0" ? "no response" : name}`, number, colour: "refused", order: 99});
    if (kind !== "event" && kind !== "module") continue;
    const order = kind === "module" ? -1 : colours.get(name) ?? kColours;
    const known = column.parts.find(part => part.order === order);
    if (known) known.number += number;
    else column.parts.push({name: order < 0 ? "the module’s" : order === kColours ? "others" : name, number, order, colour: colourOf(order)});
  }
  for (const column of columns.values()) column.parts.sort((a, b) => a.order - b.order);
  return [...columns.values()];
}

const panel = (title, ...content) => h("section", {class: "panel"}, h("h2", {}, title), content);

const colourOf = order => order < 0 ? "module" : `c${order}`;
const byNumber = totals => [...totals].sort((a, b) => b[1] - a[1]);
export const coloursOf = arrivals => new Map(byNumber(sums(arrivals, "event")).slice(0, kColours).map(([name], at) => [name, at]));

function draw(found, by) {
  const names = [...byNumber(sums(found.arrivals, "event")).map(([name, number], at) => [name, number, Math.min(at, kColours)]),
    ...byNumber(sums(found.arrivals, "module")).map(([name, number]) => [name, number, -1])];
  const colours = coloursOf(found.arrivals);
  const total = names.reduce((sum, [, number]) => sum + number, 0);
  const late = sums(found.arrivals, "delay");
  const refused = [...sums(found.arrivals, "refused")];
  const duplicates = sums(found.arrivals, "duplicate").get("") ?? 0;
  const injected = sums(found.arrivals, "injected");
  const wrong = [
    ...refused.map(([status, number]) => ({name: status === "0" ? "Refused, no response" : `Refused with ${status}`, number, colour: "refused",
      target: viewAddress("events", {status})})),
    ...(duplicates ? [{name: "Accepted before", number: duplicates, colour: "c1", target: viewAddress("requests", {status: "duplicate"})}] : []),
    ...[["failed", "Failed on purpose"], ["dropped", "Dropped on purpose"]].filter(([key]) => injected.has(key))
      .map(([key, name]) => ({name, number: injected.get(key), colour: "c2"})),
  ];
  const choice = h("div", {class: "choice", role: "group", "aria-label": "Time shown"}, Object.entries({minute: "Hour", hour: "48 hours", day: "60 days"}).map(
    ([key, text]) => h("a", {href: address({by: key === "minute" ? null : key}), "aria-current": key === by ? "true" : null}, text)));
  return [
    h("section", {class: "panel wide"}, h("header", {}, h("h2", {}, `Arrivals in ${spans[by]}`), choice),
      h("p", {class: "dim"}, plural(total, "event"), refused.length ? [", ", h("span", {class: "bad"}, plural(refused.reduce((sum, [, n]) => sum + n, 0), "refused request"))] : null),
      columnsChart(columnsOf(found, by, colours), `Events by ${by} and name; refused requests in red. ${count(total)} events in ${spans[by]}.`)),
    panel("Events", names.length ? barsList(names.slice(0, 30).map(([name, number, order]) => ({
      name: name || "(no name)", number, colour: colourOf(order), target: viewAddress("events", {name})}))) : h("p", {class: "dim"}, "None in this time."),
    names.length > 30 ? h("p", {class: "dim"}, `and ${names.length - 30} more names`) : null),
    panel("From happening to arriving", late.size ? barsList(delays.filter(([key]) => late.has(key)).map(([key, name]) => ({
      name, number: late.get(key), colour: key === "ahead" ? "c2" : "c0"}))) : h("p", {class: "dim"}, "No event with a time.")),
    panel("Requests that need a look", wrong.length ? barsList(wrong) : h("p", {class: "dim"}, "None refused, repeated or failed on purpose.")),
  ];
}

export function overviewView(page) {
  const content = h("div", {class: "overview"});
  const element = h("div", {class: "view"}, h("div", {class: "scroller", tabindex: "-1"}, content));
  let by = "minute";
  let loading = new AbortController();
  let timer = 0, minute = 0, found = null;

  function redraw() {
    if (!found) return;
    if (page.summary() && !Object.keys(page.summary().requests).length) content.replaceChildren(emptyCollector());
    else content.replaceChildren(...draw(found, by));
  }
  async function load() {
    loading.abort();
    loading = new AbortController();
    try {
      found = await get("arrivals", {by}, loading.signal);
      redraw();
    } catch (error) {
      if (error.name !== "AbortError" && !found) content.replaceChildren(h("p", {class: "note"}, error.message));
    }
  }
  function soon() {
    if (page.isPaused() || timer) return;
    timer = setTimeout(() => {
      timer = 0;
      load();
    }, 700);
  }
  // Time goes on without arrivals, too.
  minute = setInterval(soon, 60_000);
  return {
    element,
    show() {
      const wanted = parameters().get("by");
      by = Object.hasOwn(spans, wanted) ? wanted : "minute";
      load();
    },
    arrived: soon, restart: load, resume: load, redraw,
    close() {
      clearInterval(minute);
      clearTimeout(timer);
      loading.abort();
    },
  };
}
