// The collector's API, and the stream that says when something arrived.

// A number whose text says more than a JavaScript number can: 9007199254740993, 349.0.
export class Exact {
  constructor(source) { this.source = source; }
  toString() { return this.source; }
  valueOf() { return Number(this.source); }
}

const exactly = (key, value, context) =>
  typeof value === "number" && context?.source && String(value) !== context.source ? new Exact(context.source) : value;
export const parse = text => JSON.parse(text, exactly);

let live = null;

export class APIError extends Error {}

export async function get(path, parameters = {}, signal) {
  const query = new URLSearchParams();
  for (const [name, value] of Object.entries(parameters)) if (value !== undefined && value !== null) query.set(name, value);
  const text = query.toString();
  const response = await fetch(`/api/${path}${text ? "?" + text : ""}`, {signal, cache: "no-store"}).catch(error => {
    if (error.name === "AbortError") throw error;
    live?.lose();
    throw new Error("The collector does not answer. The page tries again.");
  });
  const body = await response.text();
  let parsed;
  try {
    parsed = parse(body);
  } catch {
    throw new APIError(`${path}: the response is not JSON`);
  }
  if (!response.ok) throw new APIError(parsed.error ?? `status ${response.status}`);
  return parsed;
}

// One per page. Calls onArrival when something may have arrived, also after each connection, and onRestart first if the
// collector was started anew. A call of the API that fails begins a new connection, too. onState: "live", "lost". A hidden page holds no connection: browsers allow few at a time.
export class Live {
  #source = null;
  #started = null;
  #retry = 0;

  constructor({onArrival, onRestart, onState}) {
    Object.assign(this, {onArrival, onRestart, onState});
    document.addEventListener("visibilitychange", () => document.hidden ? this.#close() : this.#open());
    if (!document.hidden) this.#open();
    live = this;
  }

  lose() {
    if (document.hidden) return;
    this.onState("lost");
    this.#close();
    this.#retry = setTimeout(() => this.#open(), 1000);
  }

  #close() {
    clearTimeout(this.#retry);
    this.#source?.close();
    this.#source = null;
  }

  #open() {
    this.#close();
    const source = this.#source = new EventSource("/api/live");
    source.onmessage = message => {
      const {started} = JSON.parse(message.data);
      if (this.#started !== null && this.#started !== started) this.onRestart();
      this.#started = started;
      this.onState("live");
      this.onArrival();
    };
    // Sooner than the browser would by itself, and also after an answer that is no stream.
    source.onerror = () => this.lose();
  }
}
