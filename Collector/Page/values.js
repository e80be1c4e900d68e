// Attribute values shown as what they are, and JSON in readable form.
import {h} from "./dom.js";
import {Exact} from "./api.js";
import {full} from "./time.js";

const isNumber = value => typeof value === "number" || value instanceof Exact;
const isObject = value => typeof value === "object" && value !== null && !(value instanceof Exact);

// [{name, value, type}] of an event record: type "date" and "place" for typed attributes.
export function attributesOf(record) {
  const list = [];
  for (const [name, value] of Object.entries(record?.EVENT_ATTRS ?? {})) list.push({name, value, type: typeOf(value)});
  const typed = record?.EVENT_ATTRS_CUST ?? {};
  for (const [section, type] of [["timestamp", "date"], ["location", "place"]]) {
    for (const pair of typed[section] ?? []) {
      for (const [name, value] of Object.entries(pair)) list.push({name, value, type});
    }
  }
  return list;
}

export function typeOf(value) {
  if (value === null) return "null";
  if (Array.isArray(value)) return "list";
  if (isNumber(value)) return /^-?\d+$/.test(String(value)) ? "integer" : "double";
  if (isObject(value)) return "object";
  return {string: "text", boolean: "boolean"}[typeof value];
}

function placeText(text) {
  const [latitude, longitude] = text.split(",").map(Number);
  if (!Number.isFinite(latitude) || !Number.isFinite(longitude)) return text;
  const part = (degrees, positive, negative) =>
    `${Math.abs(degrees).toFixed(5).replace(/0{1,4}$/, "")}° ${degrees < 0 ? negative : positive}`;
  return `${part(latitude, "N", "S")}, ${part(longitude, "E", "W")}`;
}

export function valueText(value, type) {
  if (type === "date") {
    const date = new Date(Number(value));
    return value === null || Number.isNaN(date.getTime()) ? "no date" : full(date.toISOString());
  }
  if (type === "place") return placeText(value);
  return typeof value === "string" ? value : print(value, 0);
}

// What the value was on the wire, where valueText says it in another way.
export const wireText = (value, type) => type === "date" || type === "place" ? String(value) : undefined;

// Indented JSON; with indent 0 in one line.
export function print(value, indent = 2, depth = 0) {
  if (!isObject(value)) return value instanceof Exact ? value.source : JSON.stringify(value);
  const isList = Array.isArray(value);
  const parts = isList ? value.map(each => print(each, indent, depth + 1)) :
    Object.entries(value).map(([name, each]) => `${JSON.stringify(name)}: ${print(each, indent, depth + 1)}`);
  const [open, close] = isList ? "[]" : "{}";
  if (!parts.length) return open + close;
  if (!indent) return open + parts.join(", ") + close;
  const space = "\n" + " ".repeat(indent * (depth + 1));
  return open + space + parts.join("," + space) + "\n" + " ".repeat(indent * depth) + close;
}

// JSON text with its tokens marked.
export function coloured(text) {
  const token = /("(?:[^"\\]|\\.)*")(\s*:)?|-?\d[\d.eE+-]*|\b(?:true|false|null)\b/g;
  const pre = h("pre", {class: "json", tabindex: "0"});
  let end = 0;
  for (const match of text.matchAll(token)) {
    pre.append(text.slice(end, match.index));
    const kind = match[1] ? (match[2] ? "key" : "string") : /^[-\d]/.test(match[0]) ? "number" : "word";
    pre.append(h("span", {class: kind}, match[1] ?? match[0]), match[2] ?? "");
    end = match.index + match[0].length;
  }
  pre.append(text.slice(end));
  return pre;
}

// The record's keys in the order in which people read them.
export function ordered(record) {
  const first = ["EVENT_ACTION", "EVENT_ATTRS", "EVENT_ATTRS_CUST", "EVENT_G_TIME", "EVENT_L_TIME", "N_I_E"];
  return Object.fromEntries([...first.filter(key => key in record), ...Object.keys(record)].map(key => [key, record[key]]));
}
