// The connection to the server: server-sent events, and the history once for each connection. The
// addresses are relative, so that a proxy can serve the page under any path.

const STALE_AFTER_MS = 6000; // the server sends its time every 2 s
const HUNG_AFTER_MS = 12000; // a connection without news for so long is given up
const ROUND_TRIPS_EVERY_MS = 10000;
const RETRY_MS = [500, 1000, 2000, 4000, 8000];

async function fetchJson(path) {
  const answer = await fetch(path);
  if (!answer.ok) throw new Error(path + ": status " + answer.status);
  return answer.json();
}

class Feed {
  stale = true;
  #farm;
  #changed;
  #source = null;
  #heardAt = -Infinity;
  #openedAt = 0;
  #failures = 0;
  #retry = 0;

  /** `changed` is called after each message and when the view becomes stale or live. */
  constructor(farm, changed) {
    this.#farm = farm;
    this.#changed = changed;
  }

  start() {
    this.#open();
    setInterval(() => this.#watch(), 500);
    setInterval(() => this.#fetchRoundTrips(), ROUND_TRIPS_EVERY_MS);
    addEventListener("online", () => this.#reopenIn(0));
  }

  #open() {
    this.#source?.close();
    const source = new EventSource("api/v1/events");
    this.#source = source;
    const on = (name, apply) => source.addEventListener(name, (message) => {
      if (source === this.#source) this.#take(message.data, apply);
    });
    on("nodes", (data) => {
      this.#farm.setNodes(data);
      this.#failures = 0;
      this.#fetchHistory(source);
    });
    on("node", (data) => this.#farm.setNode(data));
    on("event", (data) => this.#farm.addEvent(data));
    on("removed", (data) => this.#farm.remove(data.node));
    on("time", (data) => {
      this.#farm.setTime(data.time);
      return false; // the page redraws its clocks by itself
    });
    source.addEventListener("error", () => {
      if (source === this.#source) this.#lose();
    });
    this.#openedAt = performance.now();
  }

  #take(text, apply) {
    this.#heardAt = performance.now();
    const isNews = apply(JSON.parse(text)) !== false || this.stale;
    this.stale = false;
    if (isNews) this.#changed();
  }

  async #fetchHistory(source) {
    try {
      const history = await fetchJson("api/v1/history");
      if (source !== this.#source) return;
      this.#farm.setHistory(history);
      this.#changed();
    } catch (error) {
      console.warn("cannot read the history:", error);
      if (source === this.#source) this.#lose();
    }
  }

  async #fetchRoundTrips() {
    if (this.stale || document.hidden) return;
    try {
      const { nodes } = await fetchJson("api/v1/nodes");
      this.#farm.setRoundTrips(nodes);
      this.#changed();
    } catch (error) {
      console.warn("cannot read the round trips:", error);
    }
  }

  /** Opens anew rather than leave it to the browser, which gives up after an HTTP error. */
  #lose() {
    this.stale = true;
    this.#changed();
    this.#reopenIn(RETRY_MS[Math.min(this.#failures++, RETRY_MS.length - 1)]);
  }

  #reopenIn(delay) {
    this.#source?.close();
    this.#source = null;
    clearTimeout(this.#retry);
    this.#retry = setTimeout(() => this.#open(), delay);
  }

  #watch() {
    const now = performance.now();
    if (!this.stale && now - this.#heardAt > STALE_AFTER_MS) {
      this.stale = true;
      this.#changed();
    }
    if (this.#source && now - Math.max(this.#heardAt, this.#openedAt) > HUNG_AFTER_MS) this.#lose();
  }
}
