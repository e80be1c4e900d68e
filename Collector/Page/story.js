// One user or one device: sessions with their events, identity, attributes with their history, devices, sources.
import {breakable, count, h, id, plural, s} from "./dom.js";
import {get} from "./api.js";
import {address, viewAddress} from "./address.js";
import {fitted} from "./chart.js";
import {duration, full, short} from "./time.js";
import {attributesOf, valueText} from "./values.js";
import {sourceText} from "./detail.js";

const kEvents = 1000;
const kMostDevices = 5;
const kAttributes = "EVENT_ACTION_USER_ATTRIBUTE";
const kDeviceAttributes = "EVENT_ACTION_DEVICE_ATTRIBUTE";
const kUserID = "USER_ATTRIBUTE_UNIQUE_ID";

// When it arrived, if it has no time that can be read.
function happened(event) {
  const time = Date.parse(event.gmt_time);
  return Number.isNaN(time) ? Date.parse(event.received_at) : time;
}

const panel = (title, ...content) => h("section", {class: "panel"}, h("h2", {}, title), content);
const none = text => h("p", {class: "dim"}, text);
const userLink = user => h("a", {href: viewAddress("story", {user}), class: "id", title: user}, user);
const eventLink = (event, ...content) => h("a", {href: address({event: event.id, request: null})}, content);

// [{id, start, end, events}] from events, the latest session first.
function sessionsOf(events) {
  const sessions = new Map();
  for (const event of events) {
    const key = event.session_id ?? "";
    if (!sessions.has(key)) sessions.set(key, {id: event.session_id, events: [], start: Infinity, end: -Infinity});
    const session = sessions.get(key);
    session.events.push(event);
    const time = happened(event);
    session.start = Math.min(session.start, time);
    session.end = Math.max(session.end, time);
  }
  return [...sessions.values()].sort((a, b) => b.start - a.start);
}

// All sessions on one time line.
function timeLine(sessions) {
  const from = Math.min(...sessions.map(each => each.start)), to = Math.max(...sessions.map(each => each.end));
  const first = short(new Date(from).toISOString()), last = short(new Date(to).toISOString());
  const draw = width => {
    const x = time => 4 + (width - 8) * (to === from ? 0 : (time - from) / (to - from));
    return s("svg", {width, height: 44, role: "img", "aria-label": `${plural(sessions.length, "session")} from ${first} to ${last}`},
      s("line", {x1: 0, x2: width, y1: 22, y2: 22, class: "axis"}),
      sessions.map(session => s("rect", {x: x(session.start), y: 8, width: Math.max(x(session.end) - x(session.start), 4), height: 28, rx: 2, class: "session"},
        s("title", {}, `${full(new Date(session.start).toISOString())}: ${plural(session.events.length, "event")}`))));
  };
  return h("div", {class: "timeline"}, fitted(draw), h("div", {class: "ends dim"}, h("span", {}, first), h("span", {}, last)));
}

function drawLane(session, longest, width) {
  const length = Math.max((width - 12) * (session.end - session.start) / (longest || 1), 0);
  const x = event => 6 + (session.end === session.start ? 0 : length * (happened(event) - session.start) / (session.end - session.start));
  return s("svg", {width, height: 26, class: "lane", "aria-hidden": "true"},
    s("rect", {x: 2, y: 9, width: length + 8, height: 8, rx: 4, class: "session"}),
    session.events.map(event => s("a", {href: address({event: event.id, request: null}), tabindex: "-1"},
      s("rect", {x: x(event) - 2, y: event.kind === "own" ? 3 : 7, width: 4, height: event.kind === "own" ? 20 : 12, rx: 1, class: event.kind},
        s("title", {}, `${event.name}\n${full(event.gmt_time, event.record.EVENT_L_TIME)}`)))));
}

// A session as a bar, as long as it lasted, with its events on it.
function lane(session, longest, sources) {
  const list = h("ol", {class: "inside"}, [...session.events].sort((a, b) => happened(a) - happened(b) || a.id - b.id).map(event =>
    h("li", {class: event.kind}, h("span", {class: "when"}, full(event.gmt_time, event.record.EVENT_L_TIME).slice(11)), " ",
      eventLink(event, event.name || "(no name)"), " ",
      h("span", {class: "dim"}, attributesOf(event.record).slice(0, 4).map(({name, value, type}) => `${name} ${valueText(value, type)}`).join(" · ")))));
  return h("details", {class: "visit"},
    h("summary", {},
      h("span", {class: "title"}, h("b", {}, short(new Date(session.start).toISOString())), " ",
        h("span", {class: "dim"}, [session.end - session.start < 1000 ? "a moment" : duration(session.end - session.start), plural(session.events.length, "event"), ...sources].join(" · "))),
      fitted(width => drawLane(session, longest, width))),
    h("p", {class: "dim"}, session.id === null ? "Without a session" : [id(session.id), " ", h("a", {class: "only", href: viewAddress("events", {session: session.id})}, "in the list")]),
    list);
}

// Changes of identity, the latest first.
function identity(events) {
  const changes = [];
  for (const event of events) {
    const attributes = event.record.EVENT_ATTRS ?? {};
    if (event.name === "ZRV_LOGOUT") changes.push([event, "logged out"]);
    else if ("USER_ID_MODIFIED_FROM" in attributes) {
      changes.push([event, "renamed from ", userLink(String(attributes.USER_ID_MODIFIED_FROM)), " to ", userLink(String(attributes[kUserID]))]);
    } else if (kUserID in attributes) changes.push([event, "logged in as ", userLink(String(attributes[kUserID]))]);
  }
  changes.sort((a, b) => happened(b[0]) - happened(a[0]) || b[0].id - a[0].id);
  return changes.length ? h("ol", {class: "changes"}, changes.map(([event, ...text]) =>
    h("li", {}, eventLink(event, full(event.gmt_time, event.record.EVENT_L_TIME)), " ", text))) : none("No login, rename or logout.");
}

// Attributes with their history: each value from the time on when it was set.
function history(events) {
  const values = new Map();
  for (const event of [...events].sort((a, b) => happened(a) - happened(b) || a.id - b.id)) {
    for (const {name, value, type} of attributesOf(event.record)) {
      if (name === "USER_ID_MODIFIED_FROM") continue;
      if (!values.has(name)) values.set(name, []);
      const text = valueText(value, type);
      const list = values.get(name);
      if (list[0]?.text === text) list[0].times += 1;
      else list.unshift({text, event, times: 1});
    }
  }
  if (!values.size) return none("None was set.");
  return h("table", {class: "attributes"}, h("tbody", {}, [...values].sort(([a], [b]) => a.localeCompare(b)).map(([name, list]) => h("tr", {},
    h("th", {scope: "row"}, breakable(name)),
    h("td", {}, list[0].text, " ", h("span", {class: "dim"}, "since ", eventLink(list[0].event, short(list[0].event.gmt_time))),
      list.length > 1 ? h("details", {}, h("summary", {}, plural(list.length - 1, "earlier value")), h("ol", {class: "changes"}, list.slice(1).map(each =>
        h("li", {}, eventLink(each.event, short(each.event.gmt_time)), " ", each.text)))) : null)))));
}

function deviceList(devices, facts) {
  if (!devices.length) return none("No device was registered.");
  return h("ul", {class: "cards"}, devices.map(device => h("li", {},
    h("a", {class: "id", href: viewAddress("story", {device: device.unique_id}), title: device.unique_id}, device.unique_id),
    h("div", {class: "dim"}, facts.get(device.unique_id)?.join(" · ")),
    h("div", {class: "dim"}, `registered ${short(device.request_time)}${device.registrations > 1 ? `, ${device.registrations} times` : ""}`),
    Object.entries(device.preferences).filter(([, on]) => !on).map(([name]) =>
      h("div", {class: "warn"}, ({e_t_p: "data tracking", push_p: "push messages", in_app_p: "in-app messages"}[name] ?? name) + " switched off")))));
}

// What device attributes say of each device: model, name, system.
function deviceFacts(events) {
  const facts = new Map();
  for (const event of [...events].reverse()) {
    const attributes = event.record.EVENT_ATTRS ?? {};
    if (!facts.has(event.unique_id)) facts.set(event.unique_id, new Map());
    for (const name of ["device_model_name", "device_model", "os_version"]) {
      if (name in attributes) facts.get(event.unique_id).set(name, `${name === "os_version" ? "system " : ""}${attributes[name]}`);
    }
  }
  return new Map([...facts].map(([device, each]) => [device, [...each.values()]]));
}

async function load(subject, signal) {
  const of = subject;
  const [users, sources, events, devices] = await Promise.all([
    get("users", {...of, limit: 20}, signal), get("sources", {...of, limit: 200}, signal),
    get("events", {...of, limit: kEvents}, signal), get("devices", {...of, limit: 50}, signal)]);
  const attributes = await get("events", {...of, name: kAttributes, limit: kEvents}, signal);
  // Who logged in and out on these devices: a logout is sent under the identifiers that come after it.
  const known = subject.device !== undefined ? [subject.device] : [...new Set(events.map(event => event.unique_id).filter(each => each !== null))].slice(0, kMostDevices);
  const perDevice = await Promise.all(known.flatMap(device => [
    get("events", {device, name: kAttributes, q: kUserID, limit: 200}, signal), get("events", {device, name: "ZRV_LOGOUT", limit: 200}, signal),
    get("events", {device, name: kDeviceAttributes, limit: 200}, signal)]));
  const all = perDevice.flat();
  return {users, sources, events, devices, attributes, identity: all.filter(each => each.name !== kDeviceAttributes),
    facts: deviceFacts(all.filter(each => each.name === kDeviceAttributes))};
}

function heading(subject, found) {
  const {user, device} = subject;
  const events = found.users.reduce((sum, each) => sum + each.events, 0);
  const title = device !== undefined ? `Device ${device || "without an identifier"}` : user === "" ? "Anonymous" : user;
  const filter = device !== undefined ? {device} : {user};
  const mine = device === undefined ? found.users : [];
  return h("header", {class: "story-head"},
    h("h1", {title}, title),
    h("p", {}, device !== undefined ? [plural(found.users.length, "user"), " on it: ", found.users.map((each, at) =>
      [at ? ", " : "", each.user_id === null ? h("a", {href: viewAddress("story", {user: ""})}, "anonymous") : userLink(each.user_id)]), ". "] :
      mine.map(each => [`App ${each.app_id}`, each.segment_id ? `, segment ${each.segment_id}` : "", `: ${plural(each.sessions, "session")} on ${plural(each.devices, "device")}, `,
        `${plural(each.events, "event")}, ${short(each.first_batch)} to ${short(each.last_batch)}. `]),
    h("a", {class: "only", href: viewAddress("events", filter)}, device === undefined ? `all ${count(events)} events` : "its events")),
    user === "" ? h("p", {class: "hint"}, "Nobody was logged in when these events were sent: before a login, after a logout, or without tracking consent. ",
      "They are of all such people together. The device tells them apart: open one below.") : null);
}

export function storyView(page) {
  const content = h("div", {class: "story"});
  const element = h("div", {class: "view"}, h("div", {class: "scroller", tabindex: "-1"}, content));
  let subject = null, key = null, found = null, timer = 0;
  let loading = new AbortController();

  function draw() {
    if (!found) return;
    const open = new Set([...content.querySelectorAll("details[open][data-session]")].map(each => each.dataset.session));
    const sessions = sessionsOf(found.events);
    const longest = Math.max(...sessions.map(each => each.end - each.start), 0);
    const sourcesOf = session => found.sources.filter(each => each.session_id === session).map(sourceText);
    const lanes = sessions.map(session => {
      const made = lane(session, longest, sourcesOf(session.id));
      made.dataset.session = session.id ?? "";
      made.open = open.has(made.dataset.session);
      return made;
    });
    content.replaceChildren(heading(subject, found),
      h("section", {class: "panel wide"}, h("h2", {}, "Sessions"),
        sessions.length ? [timeLine(sessions), lanes] : none("No events."),
        found.events.length === kEvents ? none(`The newest ${count(kEvents)} events.`) : null),
      panel("Identity", identity(found.identity)),
      panel("Attributes", history(found.attributes)),
      panel("Devices", deviceList(found.devices, found.facts)),
      panel("Sources", found.sources.length ? h("ul", {class: "cards"}, found.sources.map(each => h("li", {}, sourceText(each),
        each.source_url ? h("div", {class: "dim url", title: each.source_url}, each.source_url) : null))) : none("No traffic source.")));
  }

  async function reload() {
    loading.abort();
    loading = new AbortController();
    try {
      found = await load(subject, loading.signal);
      draw();
    } catch (error) {
      if (error.name !== "AbortError") content.replaceChildren(h("p", {class: "note"}, error.message));
    }
  }

  return {
    element,
    show(query) {
      const wanted = query.has("device") ? {device: query.get("device")} : {user: query.get("user") ?? ""};
      if (JSON.stringify(wanted) === key) return;
      key = JSON.stringify(wanted);
      subject = wanted;
      found = null;
      reload();
    },
    arrived() {
      // A selection, or a session that is read, is not drawn anew.
      if (page.isPaused() || timer) return;
      timer = setTimeout(() => {
        timer = 0;
        if (getSelection().isCollapsed) reload();
      }, 1000);
    },
    restart: reload, resume: reload, redraw: draw,
    close() {
      clearTimeout(timer);
      loading.abort();
    },
  };
}
