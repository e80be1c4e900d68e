// The filters above the list of events. They stand in the address.
import {choose, h} from "./dom.js";
import {get} from "./api.js";
import {address, go} from "./address.js";

const names = ["q", "name", "user", "session", "device", "app", "kind", "status"];
// Shown as a chip each.
const chips = {user: "User", session: "Session", device: "Device", app: "App"};
const closed = {event: null, request: null};

export function filtersOf(query) {
  return Object.fromEntries(names.filter(name => query.has(name)).map(name => [name, query.get(name)]));
}

// "socks user:ada name:'Home Viewed'" in its parts; what is no known filter stays text.
export function parse(text) {
  const found = {};
  const rest = text.replace(/\b(name|user|session|device|app):("[^"]*"|'[^']*'|\S+)/g, (_, name, value) => {
    found[name] = /^["'].*["']$/.test(value) ? value.slice(1, -1) : value;
    return "";
  });
  const q = rest.replace(/\s+/g, " ").trim();
  return {...found, q: q || null};
}

function select(label, name, options) {
  const element = h("select", {"aria-label": label, onchange: () => go(address({[name]: element.value || null, ...closed}))},
    options.map(([value, text]) => h("option", {value}, text)));
  return element;
}

export function filterBar() {
  const search = h("input", {
    type: "search", placeholder: "Search text anywhere", "aria-label": "Search text anywhere", "aria-keyshortcuts": "/",
    autocomplete: "off", spellcheck: "false", title: "Also user:… session:… device:… name:… app:…",
  });
  const nameList = h("datalist", {id: "names"});
  const name = h("input", {
    type: "search", placeholder: "Any event", "aria-label": "Event name", list: "names", autocomplete: "off", spellcheck: "false",
    class: "name", onfocus: fillNames, onchange: () => go(address({name: name.value || null, ...closed})),
  });
  const kind = select("Kind", "kind", [["", "Own and module’s"], ["own", "Own events"], ["module", "The module’s"]]);
  const status = select("Accepted or refused", "status", [["", "Accepted and refused"], ["accepted", "Accepted"], ["refused", "Refused"]]);
  const chipList = h("span", {class: "chips"});
  const element = h("form", {class: "filters", role: "search", onsubmit: event => {
    event.preventDefault();
    apply();
  }}, search, name, nameList, kind, status, chipList, h("button", {class: "unseen", tabindex: "-1"}, "Search"));

  let timer = 0;
  search.addEventListener("input", () => {
    clearTimeout(timer);
    // A name such as "user:" is taken with Enter, so that it can be typed to its end.
    if (!/\b(name|user|session|device|app):/.test(search.value)) timer = setTimeout(apply, 250);
  });

  function apply() {
    clearTimeout(timer);
    const found = parse(search.value);
    search.value = found.q ?? "";
    go(address({...found, ...closed}));
  }

  async function fillNames() {
    try {
      nameList.replaceChildren(...(await get("names")).map(each => h("option", {value: each.name})));
    } catch {
      // The name can still be typed.
    }
  }

  return {
    element,
    show(filters) {
      if (document.activeElement !== search) search.value = filters.q ?? "";
      if (document.activeElement !== name) name.value = filters.name ?? "";
      choose(kind, filters.kind ?? "");
      choose(status, filters.status ?? "");
      chipList.replaceChildren(...Object.entries(chips).filter(([key]) => key in filters).map(([key, label]) =>
        h("button", {type: "button", class: "chip", title: `Remove the filter: ${label} ${filters[key] || "none"}`,
          onclick: () => go(address({[key]: null, ...closed}))},
          h("span", {class: "dim"}, label), " ", h("span", {class: "id"}, filters[key] || "none"), h("span", {"aria-hidden": "true"}, " ×"))));
      if (names.some(each => each in filters)) {
        const clear = h("button", {type: "button", class: "quiet", onclick: () =>
          go(address({...Object.fromEntries(names.map(each => [each, null])), ...closed}))}, "Clear all");
        chipList.append(clear);
      }
    },
  };
}
