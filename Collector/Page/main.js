// Starts the page: views, details, keys, and what arrives.
import {byId, count, h, say, setText, sync} from "./dom.js";
import {get, Live} from "./api.js";
import {go, onAddress, parameters, viewAddress, address} from "./address.js";
import {onZone, setUpZones} from "./time.js";
import {showDetail} from "./detail.js";
import {eventsView} from "./events.js";
import {listView} from "./lists.js";
import {spark} from "./chart.js";
import {columnsOf, coloursOf, overviewView} from "./overview.js";
import {storyView} from "./story.js";

const views = {
  events: ["Events", eventsView],
  overview: ["Overview", overviewView],
  users: ["Users", page => listView("users", page)],
  devices: ["Devices", page => listView("devices", page)],
  sessions: ["Sessions", page => listView("sessions", page)],
  sources: ["Sources", page => listView("sources", page)],
  requests: ["Requests", page => listView("requests", page)],
};

let shown = null;
let shownName = "";
let state = "connecting";
let paused = false;
let pending = 0;
let summary = null;

// What the views know of the page.
const page = {
  isPaused: () => paused,
  summary: () => summary,
  setPending(number) {
    pending = number;
    showState();
  },
};

function nameOf(query) {
  const name = query.get("view") ?? "events";
  return name === "story" || Object.hasOwn(views, name) ? name : "events";
}

function show() {
  const query = parameters();
  const name = nameOf(query);
  if (name !== shownName) {
    shown?.close?.();
    shownName = name;
    page.setPending(0);
    shown = name === "story" ? storyView(page) : views[name][1](page);
    byId("main").replaceChildren(shown.element);
  }
  document.title = (name === "story" ? query.get("user") || query.get("device") || "Anonymous" : views[name][0]) + " · zrcollector";
  sync(byId("views"), Object.entries(views), ([key]) => key,
    ([key, [label]]) => h("a", {href: viewAddress(key)}, label),
    link => link);
  for (const link of byId("views").children) {
    if (link.dataset.key === (name === "story" ? "users" : name)) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  shown.show(query);
  showDetail(byId("detail"), query);
}

const figures = ["events", "users", "devices", "sessions", "sources"];

function showSummary() {
  const wrong = [
    ["refused", summary.refused, viewAddress("events", {status: "refused"}), summary.refused ? "bad" : ""],
    ["bad signatures", summary.signatures_bad, viewAddress("requests", {status: "401"}), summary.signatures_bad ? "bad" : ""],
    ["duplicates", summary.duplicates, viewAddress("requests", {status: "duplicate"}), ""],
  ];
  const all = [
    ...figures.map(name => [name, summary[name], viewAddress(name), ""]),
    ...wrong.filter(([, number]) => number),
  ];
  sync(byId("totals"), all, ([label]) => label,
    ([label, number, target, kind]) => h("a", {href: target, class: kind}, h("b", {}, count(number)), " ", h("span", {}, label)),
    (link, [, number]) => setText(link.firstChild, count(number)));
}

function showSpark(found) {
  byId("spark").replaceChildren(spark(columnsOf(found, "minute", coloursOf(found.arrivals)), "Arrivals in the last hour"));
}

// At most once in a second; the line of the last hour once in five.
let summaryIsRecent = false, summaryIsDue = false, sparkTime = 0;
async function updateSummary() {
  summaryIsDue = true;
  if (summaryIsRecent) return;
  summaryIsDue = false;
  summaryIsRecent = true;
  try {
    summary = await get("summary");
    showSummary();
    if (Date.now() - sparkTime > 5000) {
      sparkTime = Date.now();
      showSpark(await get("arrivals"));
    }
  } catch {
    // The state of the connection says so.
  }
  setTimeout(() => {
    summaryIsRecent = false;
    if (summaryIsDue) updateSummary();
  }, 1000);
}

function showState() {
  const button = byId("live");
  button.dataset.state = state === "live" ? (paused ? "paused" : "live") : state;
  const more = pending ? ` · ${pending > 999 ? "999+" : pending} new` : "";
  const texts = {connecting: "Connecting", lost: "Connection lost, retrying", live: paused ? "Paused" + more : "Live" + more};
  setText(byId("live-text"), texts[state]);
  button.title = paused ? "Resume (p)" : "Pause (p)";
  button.setAttribute("aria-pressed", String(paused));
}

function setPaused(value) {
  paused = value;
  say(paused ? "Paused" : "Resumed");
  if (!paused) shown.resume?.();
  showState();
}

const shortcuts = [
  ["j", "k", "the next, the previous row"], ["Enter", "open the row"], ["Esc", "close the details, leave the search"],
  ["/", "search"], ["p", "pause, resume"], ["t", "to the newest"], ["?", "these keys"],
];

function showHelp() {
  const dialog = byId("help");
  dialog.replaceChildren(
    h("h2", {id: "help-title"}, "Keys"),
    h("dl", {class: "keys"}, shortcuts.map(keys => [
      h("dt", {}, keys.slice(0, -1).map(key => h("kbd", {}, key))), h("dd", {}, keys.at(-1)),
    ])),
    h("p", {class: "dim"}, "The search finds text anywhere. It also takes name:, user:, session:, device: and app:, ",
      "for example user:ada@example.com."),
    h("button", {type: "button", onclick: () => dialog.close()}, "Close"));
  dialog.showModal();
}

function onKey(event) {
  if (event.ctrlKey || event.metaKey || event.altKey || byId("help").open) return;
  const isTyping = event.target.matches?.("input, select, textarea");
  if (event.key === "Escape") {
    const query = parameters();
    if (isTyping) event.target.blur();
    else if (query.has("event") || query.has("request")) go(address({event: null, request: null}));
    else return;
  } else if (isTyping) {
    return;
  } else if (event.key === "/") {
    document.querySelector("#main input[type=search]")?.focus();
  } else if (event.key === "p") {
    setPaused(!paused);
  } else if (event.key === "?") {
    showHelp();
  } else if (!shown.key?.(event.key)) {
    return;
  }
  event.preventDefault();
}

byId("live").addEventListener("click", () => setPaused(!paused));
byId("keys").addEventListener("click", showHelp);
document.addEventListener("keydown", onKey);
setUpZones(byId("zone"));
onZone(() => {
  shown.redraw?.();
  showDetail(byId("detail"), parameters(), {again: true});
});
onAddress(show);
show();
updateSummary();
setInterval(updateSummary, 60_000);
new Live({
  onState(now) {
    state = now;
    showState();
    if (state === "live") showDetail(byId("detail"), parameters());
  },
  onRestart() {
    shown.restart?.();
  },
  onArrival() {
    updateSummary();
    shown.arrived?.();
  },
});

