// Times in the zone that the reader chose: the browser's, UTC, the device's, or another.
import {choose, h} from "./dom.js";

const kept = "zrcollector.zone";
const browserZone = Intl.DateTimeFormat().resolvedOptions().timeZone;
const formats = new Map();
const listeners = [];

let zone = "browser";
try {
  zone = localStorage.getItem(kept) ?? zone;
  if (!["browser", "UTC", "device"].includes(zone)) Intl.DateTimeFormat("en", {timeZone: zone});
} catch {
  zone = "browser";
}

const zoneName = () => zone === "browser" ? browserZone : zone === "device" ? "UTC" : zone;

function partsOf(date) {
  const name = zoneName();
  if (!formats.has(name)) {
    formats.set(name, new Intl.DateTimeFormat("en-GB", {
      timeZone: name, hourCycle: "h23", year: "numeric", month: "2-digit", day: "2-digit",
      hour: "2-digit", minute: "2-digit", second: "2-digit", fractionalSecondDigits: 3,
    }));
  }
  return Object.fromEntries(formats.get(name).formatToParts(date).map(part => [part.type, part.value]));
}

// {day: "2026-11-21", time: "10:00:00.000"}; null if it is no time. local: the same moment as the device wrote it.
export function split(text, local) {
  if (zone === "device" && /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d/.test(local ?? "")) {
    return {day: local.slice(0, 10), time: local.slice(11, 23).replace(/[^\d:.].*$/, "")};
  }
  const date = new Date(text ?? NaN);
  if (Number.isNaN(date.getTime())) return null;
  const p = partsOf(date);
  return {day: `${p.year}-${p.month}-${p.day}`, time: `${p.hour}:${p.minute}:${p.second}.${p.fractionalSecond}`};
}

export function full(text, local) {
  const parts = split(text, local);
  return parts ? `${parts.day} ${parts.time}` : text ?? "–";
}

export function short(text) {
  const parts = split(text);
  return parts ? `${parts.day} ${parts.time.slice(0, 5)}` : text ?? "–";
}

// "3.2 s", "4 min", "2 h 5 min", "3 d"
export function duration(milliseconds) {
  const seconds = Math.abs(milliseconds) / 1000;
  if (seconds < 1) return `${Math.round(Math.abs(milliseconds))} ms`;
  if (seconds < 60) return `${seconds.toFixed(seconds < 10 ? 1 : 0)} s`;
  const minutes = Math.round(seconds / 60);
  if (minutes < 60) return `${minutes} min`;
  if (minutes < 48 * 60) return `${Math.floor(minutes / 60)} h${minutes % 60 ? ` ${minutes % 60} min` : ""}`;
  return `${Math.round(minutes / 1440)} d`;
}

// The same with its largest unit alone.
export const roughly = milliseconds => duration(milliseconds).split(" ").slice(0, 2).join(" ");

export const onZone = listener => listeners.push(listener);

export function setUpZones(select) {
  const option = (value, text = value) => h("option", {value}, text);
  select.append(option("browser", `Local time (${browserZone})`), option("UTC"), option("device", "The device’s time"),
    h("optgroup", {label: "Other zones"}, (Intl.supportedValuesOf?.("timeZone") ?? []).map(each => option(each))));
  choose(select, zone);
  select.addEventListener("change", () => {
    zone = select.value;
    try {
      localStorage.setItem(kept, zone);
    } catch {
      // It holds for this page, then.
    }
    for (const listener of listeners) listener();
  });
}
