// The list of events: newest first, arriving while the page is open.
import {h, plural, say, setText} from "./dom.js";
import {get} from "./api.js";
import {address, go, parameters, viewAddress} from "./address.js";
import {full, roughly, split} from "./time.js";
import {attributesOf, valueText} from "./values.js";
import {emptyCollector} from "./empty.js";
import {filterBar, filtersOf} from "./filters.js";

const kPage = 100;
// More rows than this are not in the page at once.
const kRows = 400;
const kMostPending = 1000;

function whenText(row) {
  const parts = split(row.gmt_time ?? row.received_at, row.record?.EVENT_L_TIME);
  if (!parts) return ["", row.gmt_time ?? ""];
  const today = split(new Date().toISOString()).day;
  return [parts.day === today ? "" : parts.day.slice(5), parts.time];
}

function delayText(row) {
  const delay = Date.parse(row.received_at) - Date.parse(row.gmt_time);
  if (Number.isNaN(delay)) return "";
  return delay < -1000 ? `${roughly(delay)} ahead` : `+${roughly(Math.max(delay, 0))}`;
}

function contentOf(row) {
  if (row.kind === "refused") {
    const names = row.names ?? [];
    return [h("span", {class: "bad"}, row.error), names.length ? h("span", {class: "dim"}, ` in it: ${names.join(", ")}`) : null];
  }
  return attributesOf(row.record).map(({name, value, type}) =>
    [h("span", {class: "key"}, name), " ", valueText(value, type), h("span", {class: "gap"}, " ")]);
}

function rowFor(row) {
  const isRefused = row.kind === "refused";
  const [day, time] = whenText(row);
  const target = isRefused ? {request: row.batch, event: null} : {event: row.id, request: null};
  const element = h("tr", {class: row.kind, tabindex: "-1"},
    h("td", {class: "when", title: full(row.gmt_time ?? row.received_at, row.record?.EVENT_L_TIME)},
      day ? h("span", {class: "day"}, day, " ") : null, time),
    h("td", {class: "delay", title: "from happening to arriving"}, isRefused ? "" : delayText(row)),
    h("td", {class: "name"}, h("a", {href: address(target), draggable: "false", title: row.name},
      isRefused ? `${row.status || "Dropped"} refused` : row.name === "" ? "(no name)" : row.name)),
    h("td", {class: "what"}, contentOf(row)),
    h("td", {class: "who"}, row.user_id === null ? h("span", {class: "dim"}, "anonymous") :
      h("a", {href: viewAddress("story", {user: row.user_id}), title: row.user_id}, row.user_id)),
    h("td", {class: "session"}, row.session_id === null ? "" :
      h("a", {class: "id", href: address({session: row.session_id, event: null, request: null}), title: "only session " + row.session_id},
        row.session_id.slice(0, 8))));
  element.dataset.key = row.id;
  element.dataset.target = JSON.stringify(target);
  return element;
}

export function eventsView(page) {
  let filters = {};
  let filterKey = null;
  let newest = 0;
  let oldest = null;       // null: there are no older ones
  let isCut = false;       // rows above were dropped
  let pending = [];
  let isReady = false, isFailed = false, busy = false, again = false;
  let loading = new AbortController();
  let isAtOld = false;     // an older page is on its way
  const rows = new Map();  // by id, for another time zone

  const body = h("tbody", {});
  const table = h("table", {class: "events"},
    h("caption", {class: "unseen"}, "Events, newest first"),
    h("thead", {}, h("tr", {}, ["Happened", "Delay", "Event", "Content", "User", "Session"].map(
      (text, at) => h("th", {scope: "col", class: ["when", "delay", "name", "what", "who", "session"][at]}, text)))),
    body);
  const note = h("p", {class: "note", role: "status"});
  const place = h("div", {});
  const news = h("button", {type: "button", class: "news", hidden: true, onclick: () => toNewest()});
  const scroller = h("div", {class: "scroller", tabindex: "-1", onscroll: onScroll}, news, table, place, note);
  const bar = filterBar();
  const element = h("div", {class: "view"}, bar.element, scroller);

  const isSelecting = () => {
    const selection = getSelection();
    return !selection.isCollapsed && body.contains(selection.anchorNode);
  };
  const canInsert = () => !page.isPaused() && scroller.scrollTop < 8 && !isCut && !isSelecting();
  const selected = () => body.querySelector("tr[aria-selected=true]");

  function showPending() {
    page.setPending(pending.length);
    news.hidden = !pending.length || page.isPaused();
    setText(news, `↑ ${plural(pending.length, "new row")}`);
  }

  // Inserts rows above, the oldest first.
  function insert(list) {
    for (const row of list) {
      if (rows.has(row.id)) continue;
      rows.set(row.id, row);
      const made = rowFor(row);
      made.classList.add("fresh");
      body.prepend(made);
    }
    while (body.children.length > kRows) forget(body.lastElementChild);
    if (list.length) place.replaceChildren();
    markSelected();
  }

  function forget(child) {
    rows.delete(Number(child.dataset.key));
    child.remove();
    oldest = Number(body.lastElementChild?.dataset.key ?? 0) || null;
  }

  function showNote() {
    const summary = page.summary();
    place.replaceChildren();
    if (rows.size) setText(note, oldest === null ? `${plural(rows.size, "row")}, no older ones` : "");
    else if (filterKey !== "{}") setText(note, "Nothing matches these filters. What arrives from now on and does, appears here.");
    else if (summary && Object.keys(summary.requests).length) {
      setText(note, "No event has arrived yet. What else has stands under Requests.");
    } else {
      setText(note, "");
      place.replaceChildren(emptyCollector());
    }
    table.hidden = !rows.size;
  }

  async function reload() {
    loading.abort();
    loading = new AbortController();
    const {signal} = loading;
    pending = [];
    isCut = isReady = isFailed = false;
    showPending();
    try {
      const list = await get("events", {...filters, limit: kPage}, signal);
      rows.clear();
      for (const row of list) rows.set(row.id, row);
      body.replaceChildren(...list.map(rowFor));
      newest = list[0]?.id ?? newest;
      oldest = list.length === kPage ? list.at(-1).id : null;
      scroller.scrollTop = 0;
      isReady = true;
      showNote();
      markSelected();
      selected()?.scrollIntoView({block: "nearest"});
    } catch (error) {
      if (error.name === "AbortError") return;
      isFailed = true;
      rows.clear();
      body.replaceChildren();
      place.replaceChildren();
      table.hidden = true;
      setText(note, error.message);
      return;
    }
    if (again) arrived();
  }

  async function older() {
    if (oldest === null || isAtOld) return;
    isAtOld = true;
    const {signal} = loading;
    try {
      const list = await get("events", {...filters, before: oldest, limit: kPage}, signal);
      for (const row of list) rows.set(row.id, row);
      body.append(...list.map(rowFor));
      oldest = list.length === kPage ? list.at(-1).id : null;
      while (body.children.length > kRows) {
        const first = body.firstElementChild;
        scroller.scrollTop -= first.getBoundingClientRect().height;
        rows.delete(Number(first.dataset.key));
        first.remove();
        isCut = true;
      }
      showNote();
    } catch (error) {
      if (error.name !== "AbortError") setText(note, error.message);
    }
    isAtOld = false;
  }

  // Rows above that were dropped while the reader scrolled down.
  async function newer() {
    if (!isCut || isAtOld) return;
    isAtOld = true;
    const {signal} = loading;
    try {
      const first = Number(body.firstElementChild.dataset.key);
      const list = await get("events", {...filters, after: first, order: "asc", limit: kPage}, signal);
      const before = scroller.scrollHeight;
      for (const row of list) {
        rows.set(row.id, row);
        body.prepend(rowFor(row));
      }
      scroller.scrollTop += scroller.scrollHeight - before;
      while (body.children.length > kRows) forget(body.lastElementChild);
      if (list.length < kPage) {
        isCut = false;
        // What has arrived since this list was made is not in it.
        pending = pending.filter(row => !rows.has(row.id));
        if (pending.length && canInsert()) takePending();
        else showPending();
      }
    } catch (error) {
      if (error.name !== "AbortError") setText(note, error.message);
    }
    isAtOld = false;
  }

  function onScroll() {
    if (scroller.scrollTop + scroller.clientHeight > scroller.scrollHeight - 600) older();
    if (scroller.scrollTop < 300) newer();
    if (scroller.scrollTop < 8 && pending.length && canInsert()) takePending();
  }

  function takePending() {
    if (isCut || pending.length >= kMostPending) return reload();
    const list = pending;
    pending = [];
    insert(list);
    showNote();
    showPending();
  }

  function toNewest() {
    if (isCut || pending.length >= kMostPending) return reload();
    scroller.scrollTop = 0;
    takePending();
  }

  async function arrived() {
    if (isFailed) return reload();
    if (busy || !isReady) {
      again = true;
      return;
    }
    busy = true;
    const {signal} = loading;
    try {
      do {
        again = false;
        const list = await get("events", {...filters, after: newest, order: "asc", limit: kMostPending}, signal);
        if (!list.length) continue;
        newest = list.at(-1).id;
        if (list.length === kMostPending && !page.isPaused()) {
          reload();
          break;
        } else if (canInsert() && !pending.length) {
          insert(list);
          showNote();
        } else {
          pending = [...pending, ...list].slice(-kMostPending);
          showPending();
        }
        again ||= list.length === kMostPending;
      } while (again);
    } catch {
      // The next message comes with the next arrival or connection.
    }
    busy = false;
  }

  function markSelected() {
    const query = parameters();
    const key = query.get("event") ?? (query.has("request") ? String(query.get("request") * 1000000) : null);
    for (const row of body.children) {
      if (row.dataset.key === key) row.setAttribute("aria-selected", "true");
      else row.removeAttribute("aria-selected");
    }
  }

  const open = (row, options) => go(address(JSON.parse(row.dataset.target)), options);

  body.addEventListener("click", event => {
    const row = event.target.closest("tr");
    if (row && !event.target.closest("a") && !isSelecting()) open(row);
  });
  document.addEventListener("selectionchange", onSelection);
  function onSelection() {
    if (pending.length && canInsert()) takePending();
  }

  function step(by) {
    const focused = body.contains(document.activeElement) ? document.activeElement.closest("tr") : null;
    const from = focused ?? selected();
    const to = from ? (by > 0 ? from.nextElementSibling : from.previousElementSibling) : body.firstElementChild;
    if (!to) return;
    to.focus({preventScroll: true});
    to.scrollIntoView({block: "nearest"});
    const query = parameters();
    if (query.has("event") || query.has("request")) open(to, {replace: true});
    say(to.querySelector(".name").textContent);
  }

  return {
    element,
    arrived,
    restart() {
      newest = 0;
      reload();
    },
    resume: () => scroller.scrollTop < 8 ? takePending() : showPending(),
    show(query) {
      const wanted = filtersOf(query);
      const key = JSON.stringify(wanted);
      bar.show(wanted);
      if (key !== filterKey) {
        filterKey = key;
        filters = {status: "any", ...wanted};
        newest = 0;
        reload();
      }
      markSelected();
    },
    redraw() {
      for (const child of [...body.children]) child.replaceWith(rowFor(rows.get(Number(child.dataset.key))));
      markSelected();
    },
    key(key) {
      if (key === "j" || key === "k") step(key === "j" ? 1 : -1);
      else if (key === "Enter" && document.activeElement.closest?.("tr")) open(document.activeElement.closest("tr"));
      else if (key === "t") toNewest();
      else return false;
      return true;
    },
    close() {
      loading.abort();
      document.removeEventListener("selectionchange", onSelection);
    },
  };
}

