// Builds and updates elements. Text becomes text nodes, never markup.

const SVG = "http://www.w3.org/2000/svg";

function fill(element, properties, children) {
  for (const [key, value] of Object.entries(properties ?? {})) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith("on")) element.addEventListener(key.slice(2), value);
    else if (key === "style") for (const [name, each] of Object.entries(value)) element.style.setProperty(name, each);
    else element.setAttribute(key, value === true ? "" : value);
  }
  element.append(...children.flat(Infinity).filter(child => child !== null && child !== undefined && child !== false));
  return element;
}

export const h = (tag, properties, ...children) => fill(document.createElement(tag), properties, children);
export const s = (tag, properties, ...children) => fill(document.createElementNS(SVG, tag), properties, children);
export const byId = id => document.getElementById(id);

// Writes only what differs, so that a selection survives.
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

// Makes the children those of the items, in their order. A child whose key stays is kept and updated. make(item) returns
// an element, update(element, item) changes it.
export function sync(parent, items, keyOf, make, update) {
  const known = new Map([...parent.children].map(child => [child.dataset.key, child]));
  let next = parent.firstElementChild;
  for (const item of items) {
    const key = String(keyOf(item));
    let child = known.get(key);
    if (child) {
      known.delete(key);
      update?.(child, item);
    } else {
      child = make(item);
      child.dataset.key = key;
    }
    if (child === next) next = next.nextElementSibling;
    else parent.insertBefore(child, next);
  }
  for (const child of known.values()) child.remove();
}

// Tells a screen reader.
export function say(text) {
  byId("said").textContent = text;
}

async function copyText(text) {
  if (navigator.clipboard) return navigator.clipboard.writeText(text);
  // Only secure pages have a clipboard; one that an emulator opens at 10.0.2.2 is not.
  const area = h("textarea", {class: "unseen"});
  area.value = text;
  document.body.append(area);
  area.select();
  const done = document.execCommand("copy");
  area.remove();
  if (!done) throw new Error("no clipboard");
}

export function copyButton(textOf, label = "Copy") {
  const button = h("button", {type: "button", class: "small", onclick: async () => {
    try {
      await copyText(textOf());
      button.textContent = "Copied";
    } catch {
      button.textContent = "Not allowed";
    }
    say(button.textContent);
    setTimeout(() => { button.textContent = label; }, 1500);
  }}, label);
  return button;
}

// An identifier: one line, the whole of it in the title.
export const id = (text, properties) => h("span", {class: "id", title: text, ...properties}, text);

// A name that may be broken after "_" and ".".
export const breakable = name => name.split(/(?<=[_.])/).flatMap((part, at) => at ? [h("wbr"), part] : [part]);

// Chooses the value in a select, which gets an option for it if it has none.
export function choose(select, value) {
  if (![...select.options].some(option => option.value === value)) select.append(h("option", {value}, value));
  select.value = value;
}

export const count = number => number.toLocaleString("en");
export const plural = (number, one, many = one + "s") => `${count(number)} ${number === 1 ? one : many}`;
