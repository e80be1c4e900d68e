// What the page shows stands in its address, so that Back works and a link can be shared.

const listeners = [];

export const parameters = () => new URLSearchParams(location.search);

// The address with these parameters changed; null removes one.
export function address(changes, from = parameters()) {
  const query = new URLSearchParams(from);
  for (const [name, value] of Object.entries(changes)) {
    if (value === null || value === undefined) query.delete(name);
    else query.set(name, value);
  }
  const text = query.toString();
  return text ? "?" + text : "/";
}

// The address of a view with these parameters alone.
export const viewAddress = (view, given = {}) => address({view: view === "events" ? null : view, ...given}, "");

export function go(target, {replace = false} = {}) {
  if (target === location.search || (target === "/" && location.search === "")) return;
  history[replace ? "replaceState" : "pushState"](null, "", target);
  changed();
}

export const onAddress = listener => listeners.push(listener);

function changed() {
  for (const listener of listeners) listener();
}

addEventListener("popstate", changed);

// Links within the page are followed without loading it again.
document.addEventListener("click", event => {
  const link = event.target.closest?.("a[href]");
  if (!link || event.defaultPrevented || event.button !== 0 || event.metaKey || event.ctrlKey || event.shiftKey) return;
  const target = new URL(link.getAttribute("href"), location.href);
  if (target.origin !== location.origin || target.pathname !== "/" || target.hash) return;
  event.preventDefault();
  go(target.search || "/");
});
