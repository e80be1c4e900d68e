// The lists of users, devices, sessions, sources and requests.
import {choose, count, h, id, say, setText, sync} from "./dom.js";
import {get} from "./api.js";
import {address, go, parameters, viewAddress} from "./address.js";
import {full, short} from "./time.js";
import {emptyCollector} from "./empty.js";

const kPage = 100;
const none = text => h("span", {class: "dim"}, text);
const number = key => row => count(row[key] ?? 0);
const time = key => row => h("span", {title: full(row[key])}, short(row[key]));
const user = row => row.user_id === null ? none("anonymous") : h("a", {href: viewAddress("story", {user: row.user_id}), title: row.user_id}, row.user_id);
const device = row => row.unique_id === null ? none("–") : h("a", {class: "id", href: viewAddress("story", {device: row.unique_id}), title: row.unique_id}, row.unique_id);
const text = key => row => row[key] ?? none("–");

// By list: columns of heading, content and class; the row's key; where a click leads; what there is when there is none.
const kinds = {
  users: {
    columns: [["User", user, "wide"], ["App", text("app_id")], ["Segment", text("segment_id")], ["Devices", number("devices"), "number"],
      ["Sessions", number("sessions"), "number"], ["Events", number("events"), "number"], ["First", time("first_batch"), "time"],
      ["Last", time("last_batch"), "time"]],
    key: row => JSON.stringify([row.app_id, row.user_id, row.segment_id]),
    target: row => viewAddress("story", {user: row.user_id ?? ""}),
    search: "Search users and segments",
  },
  devices: {
    columns: [["Device", device, "wide"], ["App", text("app_id")], ["Last user", user, "wide"], ["Registered", time("request_time"), "time"],
      ["Times", number("registrations"), "number"], ["Events", number("events"), "number"],
      ["Off", row => Object.entries(row.preferences).filter(([, on]) => !on).map(([name]) => name).join(", ") || none("–")]],
    key: row => JSON.stringify([row.app_id, row.unique_id]),
    target: row => viewAddress("story", {device: row.unique_id}),
    search: "Search devices",
    none: "No device has registered yet.",
  },
  sessions: {
    columns: [["Session", row => id(row.session_id), "wide"], ["User", user, "wide"], ["Started", time("start_time"), "time"],
      ["Last batch", time("last_batch"), "time"], ["Events", number("events"), "number"], ["Batches", number("batches"), "number"],
      ["Sources", text("sources"), "wide"]],
    key: row => row.session_id,
    target: row => viewAddress("events", {session: row.session_id}),
    search: "Search sessions, users and sources",
  },
  sources: {
    columns: [["Source", text("source")], ["Medium", text("medium")], ["Campaign", text("campaign_name"), "wide"],
      ["Campaign ID", text("campaign_id")], ["Term", text("term")], ["Content", text("content")],
      ["URL", row => row.source_url ? h("span", {title: row.source_url}, row.source_url) : none("–"), "wide"],
      ["Extras", text("extras")], ["Session", row => row.session_id ? id(row.session_id) : none("none")]],
    key: row => row.id,
    target: row => viewAddress("events", {session: row.session_id ?? ""}),
    search: "Search sources",
  },
  requests: {
    columns: [["Received", time("received_at"), "time"],
      ["Status", row => h("span", {class: row.accepted ? "good" : row.duplicate ? "warn" : "bad"}, row.status ? String(row.status) : "none"), "number"],
      ["Kind", row => row.injected ? `${row.service}, ${row.injected} on purpose` : row.duplicate ? `${row.service}, again` : row.service],
      ["Events", number("events"), "number"], ["Bytes", number("bytes"), "number"], ["Signature", text("signature")], ["User", user],
      ["Error", row => row.error ? h("span", {class: "bad", title: row.error}, row.error) : none("–"), "wide"]],
    key: row => row.id,
    target: row => address({request: row.id, event: null}),
    search: "Search identifiers, names and errors",
    statuses: [["", "Any status"], ["accepted", "Accepted"], ["refused", "Refused"], ["duplicate", "Duplicates"], ["400", "400"], ["401", "401"], ["503", "503"]],
  },
};
const filterNames = ["q", "user", "session", "device", "app", "status"];

export function listView(name, page) {
  const kind = kinds[name];
  let filters = {}, filterKey = null;
  let oldest = null, isLoading = false;
  let extra = 0;  // pages below the first
  let timer = 0;
  let loading = new AbortController();
  let known = [];

  const body = h("tbody", {});
  const table = h("table", {class: "list"},
    h("caption", {class: "unseen"}, name + ", newest first"),
    h("thead", {}, h("tr", {}, kind.columns.map(([label, , kindOfCell]) => h("th", {scope: "col", class: kindOfCell}, label)))), body);
  const note = h("p", {class: "note", role: "status"});
  const place = h("div", {});
  const scroller = h("div", {class: "scroller", tabindex: "-1", onscroll: onScroll}, table, place, note);
  const search = h("input", {type: "search", placeholder: kind.search, "aria-label": kind.search, autocomplete: "off", spellcheck: "false",
    oninput: () => { clearTimeout(timer); timer = setTimeout(apply, 250); }});
  const status = kind.statuses && h("select", {"aria-label": "Status", onchange: () => go(address({status: status.value || null, request: null}))},
    kind.statuses.map(([value, label]) => h("option", {value}, label)));
  const chips = h("span", {class: "chips"});
  const element = h("div", {class: "view"}, h("form", {class: "filters", role: "search", onsubmit: event => {
    event.preventDefault();
    apply();
  }}, search, status, chips), scroller);

  const apply = () => {
    clearTimeout(timer);
    go(address({q: search.value || null, request: null, event: null}), {replace: true});
  };

  function fill(element, row) {
    element.dataset.target = kind.target(row);
    element.replaceChildren(...kind.columns.map(([label, content, kindOfCell]) => h("td", {class: kindOfCell, "data-label": label}, content(row))));
  }
  function make(row) {
    const element = h("tr", {tabindex: "-1"});
    element.dataset.row = JSON.stringify(row);
    fill(element, row);
    return element;
  }
  function update(element, row) {
    const text = JSON.stringify(row);
    if (element.dataset.row === text) return;
    element.dataset.row = text;
    fill(element, row);
  }

  async function load(more = false) {
    if (isLoading) return;
    isLoading = true;
    const {signal} = loading;
    try {
      if (more) {
        const list = await get(name, {...filters, before: oldest, limit: kPage}, signal);
        extra += 1;
        oldest = list.length === kPage ? list.at(-1).id : null;
        known = [...known, ...list];
      } else {
        const limit = kPage * (extra + 1);
        known = await get(name, {...filters, limit}, signal);
        oldest = known.length === limit ? known.at(-1).id : null;
      }
      sync(body, known, kind.key, make, update);
      table.hidden = !known.length;
      place.replaceChildren();
      setText(note, "");
      if (!known.length) {
        if (page.summary() && !Object.keys(page.summary().requests).length) place.append(emptyCollector());
        else setText(note, Object.keys(filters).length ? "Nothing matches." : kind.none ?? `No ${name} yet.`);
      }
      mark();
    } catch (error) {
      if (error.name !== "AbortError") setText(note, error.message);
    }
    isLoading = false;
  }

  function onScroll() {
    if (oldest !== null && scroller.scrollTop + scroller.clientHeight > scroller.scrollHeight - 400) load(true);
  }

  function mark() {
    const request = parameters().get("request");
    for (const row of body.children) {
      if (request !== null && name === "requests" && row.dataset.key === request) row.setAttribute("aria-selected", "true");
      else row.removeAttribute("aria-selected");
    }
  }

  body.addEventListener("click", event => {
    const row = event.target.closest("tr");
    if (row && !event.target.closest("a") && getSelection().isCollapsed) go(row.dataset.target);
  });

  let isDue = false;
  return {
    element,
    show(query) {
      filters = Object.fromEntries(filterNames.filter(each => query.has(each)).map(each => [each, query.get(each)]));
      if (document.activeElement !== search) search.value = filters.q ?? "";
      if (status) choose(status, filters.status ?? "");
      chips.replaceChildren(...["user", "session", "device", "app"].filter(each => each in filters).map(each =>
        h("button", {type: "button", class: "chip", onclick: () => go(address({[each]: null}))}, h("span", {class: "dim"}, each), " ",
          h("span", {class: "id"}, filters[each] || "none"), " ×")));
      const key = JSON.stringify(filters);
      if (key !== filterKey) {
        filterKey = key;
        loading.abort();
        loading = new AbortController();
        isLoading = false;
        extra = 0;
        load();
      }
      mark();
    },
    arrived() {
      if (page.isPaused() || isDue) return;
      isDue = true;
      setTimeout(() => {
        isDue = false;
        if (element.isConnected) load();
      }, 500);
    },
    restart: () => load(),
    resume: () => load(),
    redraw() {
      for (const [at, row] of known.entries()) if (body.children[at]) fill(body.children[at], row);
    },
    key(key) {
      const focused = document.activeElement.closest?.("tbody tr");
      if (key === "Enter" && focused) go(focused.dataset.target);
      else if (key === "j" || key === "k") {
        const to = focused ? (key === "j" ? focused.nextElementSibling : focused.previousElementSibling) : body.firstElementChild;
        to?.focus();
        if (to) say(to.firstElementChild.textContent);
        if (to && parameters().has("request")) go(to.dataset.target, {replace: true});
      } else if (key === "t") scroller.scrollTop = 0;
      else return false;
      return true;
    },
    close: () => loading.abort(),
  };
}
