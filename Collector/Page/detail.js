// The details of an event or a request, beside the list.
import {breakable, byId, copyButton, h, id, plural} from "./dom.js";
import {APIError, get, parse} from "./api.js";
import {address, go, viewAddress} from "./address.js";
import {duration, full} from "./time.js";
import {attributesOf, coloured, ordered, print, valueText, wireText} from "./values.js";

let shown = null;
let loading = new AbortController();

const section = (title, ...content) => h("section", {}, h("h3", {}, title), content);
const facts = pairs => h("dl", {class: "facts"}, pairs.filter(pair => pair && pair[1] !== null && pair[1] !== undefined)
  .map(([name, value]) => [h("dt", {}, name), h("dd", {}, value)]));
const none = text => h("span", {class: "dim"}, text);

function since(from, to, what) {
  const gap = Date.parse(to) - Date.parse(from);
  if (Number.isNaN(gap)) return null;
  return h("span", {class: gap < -1000 ? "warn" : "dim"}, gap < -1000 ?
    ` ${duration(gap)} earlier: a clock differs` : ` ${duration(Math.max(gap, 0))} after ${what}`);
}

function times({event, request}) {
  const local = event?.record?.EVENT_L_TIME;
  return section("Time", facts([
    event && ["Happened", [full(event.gmt_time, local), local ? h("div", {class: "dim"}, "on the device ", local) : null]],
    ["Sent", request.request_time ? [full(request.request_time), event && since(event.gmt_time, request.request_time, "it happened")] : none("the body does not say")],
    ["Came", [full(request.received_at), request.request_time && since(request.request_time, request.received_at, "it was sent")]],
  ]));
}

function attributes(record) {
  const list = attributesOf(record);
  if (!list.length) return null;
  return section("Attributes", h("table", {class: "attributes"},
    h("thead", {class: "unseen"}, h("tr", {}, ["Name", "Value", "Type"].map(text => h("th", {scope: "col"}, text)))),
    h("tbody", {}, list.map(({name, value, type}) => h("tr", {},
      h("th", {scope: "row"}, breakable(name)),
      h("td", {title: wireText(value, type)}, valueText(value, type)),
      h("td", {class: "dim"}, type))))));
}

// A link to the story, and one that filters the list.
const storyLink = (name, value) => value === null ? none(name === "user" ? "anonymous" : "unknown") :
  [h("a", {class: "id", title: value, href: viewAddress("story", {[name]: value})}, value), " ", only(name, value)];
const only = (name, value) =>
  h("a", {class: "only", href: viewAddress("events", {[name]: value}), title: `Only the events of this ${name}`}, "events");

function context({request, session, sources, device}) {
  return section("Belongs to", facts([
    ["User", storyLink("user", request.user_id)],
    request.segment_id && ["Segment", id(request.segment_id)],
    ["Device", storyLink("device", request.unique_id)],
    device?.idfv && ["Vendor’s ID", id(device.idfv)],
    device?.advertising_id && ["Advertising ID", id(device.advertising_id)],
    ["Session", request.session_id === null ? none("none") : [id(request.session_id), " ", only("session", request.session_id)]],
    session && ["Started", full(session.start_time)],
    sources.length ? ["Sources", sources.map(each => h("div", {}, sourceText(each)))] : null,
    ["App", request.app_id],
    ["Batch", request.bid === null ? none("without an identifier") : id(request.bid)],
  ]));
}

export function sourceText(source) {
  const named = ["source", "medium", "campaign_name", "campaign_id", "term", "content", "extras"];
  return named.filter(key => source[key]).map(key => source[key]).join(" · ") || "–";
}

function signature(request) {
  const given = Object.entries(request.headers).find(([name]) => name.toLowerCase() === "zrv-request-id")?.[1];
  switch (request.signature) {
    case "good":
      return [["Signature", h("span", {class: "good"}, "right")], ["Given", id(given ?? "")]];
    case "wrong":
      return [["Signature", h("span", {class: "bad"}, "wrong")], ["Given", id(given ?? "")], ["Expected", request.expected ? id(request.expected) : none("none can be right")]];
    case "missing":
      return [["Signature", h("span", {class: "bad"}, "missing")], ["Expected", id(request.expected)]];
    case "none":
      return [["Signature", none("not needed: the body has no identifiers to sign")]];
    default:
      return [["Signature", none("not checked")]];
  }
}

function outcome(request) {
  if (request.injected) return h("span", {class: "warn"}, request.injected === "failed" ? "failed on purpose" : "dropped on purpose");
  if (request.accepted) return h("span", {class: "good"}, "accepted");
  if (request.duplicate) return h("span", {class: "warn"}, "accepted before");
  return h("span", {class: "bad"}, "refused");
}

function requestFacts(request, isLink) {
  return section("Request", facts([
    ["Number", isLink ? h("a", {href: address({request: request.id, event: null})}, String(request.id)) : String(request.id)],
    ["Status", [request.status ? String(request.status) : "none", " ", outcome(request)]],
    ["Kind", {report: "report of events", device: "registration of a device", unknown: "unknown path"}[request.service]],
    ["Events", String(request.events)],
    ["Size", `${request.bytes.toLocaleString("en")} bytes`],
    ...signature(request),
  ]), h("details", {}, h("summary", {}, plural(Object.keys(request.headers).length, "header")),
    facts(Object.entries(request.headers).map(([name, value]) => [name, value]))));
}

function json(title, value, isText) {
  const text = isText ? value : print(value);
  return h("section", {class: "raw"}, h("h3", {}, title, " ", copyButton(() => text)), coloured(text));
}

function bodyOf(text) {
  try {
    return print(parse(text));
  } catch {
    return text;
  }
}

function eventDetail(found) {
  const {event, request} = found;
  return [
    heading(event.name || "(no name)", h("span", {class: "tag"}, event.kind === "module" ? "the module’s" : "own"),
      "N_I_E" in event.record ? h("span", {class: "tag"}, "non-interactive") : null,
      h("a", {class: "only", href: viewAddress("events", {name: event.name})}, "all of this name")),
    attributes(event.record), times(found), context(found), requestFacts(request, true), json("Record", ordered(event.record)),
  ];
}

function requestDetail(found, events) {
  const {request} = found;
  return [
    heading(`Request ${request.id}`, h("span", {class: "tag"}, outcome(request))),
    request.error ? h("p", {class: "bad error"}, request.error) : null,
    request.advice ? h("div", {class: "advice"}, h("h3", {}, "What to change"), h("p", {}, request.advice)) : null,
    times(found),
    request.names?.length ? section("Events in it", h("p", {}, request.names.join(", "))) : null,
    events.length ? section(plural(request.events, "event"), h("ol", {class: "inside"}, events.map(event =>
      h("li", {}, h("a", {href: address({event: event.id, request: null})}, event.name || "(no name)")))),
    events.length < request.events ? none(`and ${plural(request.events - events.length, "more", "more")}`) : null) : null,
    context(found), requestFacts(request, false),
    request.body ? json("Body", bodyOf(request.body), true) : null,
  ];
}

function heading(title, ...rest) {
  return h("header", {},
    h("h2", {tabindex: "-1"}, title), h("div", {class: "tags"}, rest),
    h("button", {type: "button", class: "quiet close", "aria-label": "Close the details", title: "Close (Esc)",
      onclick: () => go(address({event: null, request: null}))}, "×"));
}

// Shows what the address names; hides the pane if it names nothing.
export async function showDetail(pane, query, {again = false} = {}) {
  const kind = query.has("event") ? "event" : query.has("request") ? "request" : null;
  const key = kind && `${kind}s/${query.get(kind)}`;
  if (key === shown && !again) return;
  const wasShown = shown;
  shown = key;
  loading.abort();
  loading = new AbortController();
  const {signal} = loading;
  document.body.classList.toggle("has-detail", key !== null);
  pane.hidden = key === null;
  if (key === null) {
    // Back to where the reader came from.
    if (pane.contains(document.activeElement) || document.activeElement === document.body) {
      byId("main").querySelector("tr[data-key][aria-selected=true], tr:focus")?.focus({preventScroll: true});
    }
    pane.replaceChildren();
    return;
  }
  try {
    const found = await get(key, {}, signal);
    let inside = [];
    if (kind === "request" && found.request.accepted && found.request.service === "report") {
      const first = found.request.id * 1000000;
      inside = await get("events", {after: first, before: first + 1000000, order: "asc", limit: 200}, signal);
    }
    pane.replaceChildren(...(kind === "event" ? eventDetail(found) : requestDetail(found, inside)).filter(Boolean));
    if (key !== wasShown) pane.scrollTop = 0;
  } catch (error) {
    if (error.name === "AbortError") return;
    const isRefusal = error instanceof APIError;
    if (!isRefusal) shown = null;  // tried again with the next connection
    pane.replaceChildren(heading(isRefusal ? "Not found" : "Not loaded"), h("p", {}, error.message));
  }
}
