// What an empty collector shows: the commands that send a first event.
import {copyButton, h} from "./dom.js";

function command(title, text) {
  return h("section", {class: "command"},
    h("header", {}, h("h3", {}, title), copyButton(() => text)),
    h("pre", {tabindex: "0"}, text));
}

export function emptyCollector() {
  const origin = location.origin;
  return h("div", {class: "empty"},
    h("h2", {}, "Nothing has arrived yet"),
    h("p", {}, "This page shows each event within a second of its arrival. Send a first one:"),
    command("With zrhost, as an application would",
      `printf '%s\\n' '{"do": "launch"}' '{"do": "track", "event": "Hello"}' '{"do": "flush"}' |\n` +
      `  build/release/Host/zrhost --data ./app --endpoint ${origin}`),
    command("With curl",
      `curl ${origin}/v1/report/DEMO -d '{"viewsCount": 1, "viewsInfo": [{"EVENT_ACTION": "Hello"}]}'`),
    h("p", {class: "dim"}, "In your application the endpoint is ", h("code", {}, origin),
      ". Within an emulator, this machine often has the address 10.0.2.2."));
}
