// A server that speaks as `quelta_master serve` does and says what a test tells it to: the page,
// nodes, history and server-sent events.

import { readFileSync } from "node:fs";
import { createServer } from "node:http";
import { fileURLToPath } from "node:url";

const PAGE = fileURLToPath(new URL("../../../build/page/", import.meta.url));
const TIME_EVERY_MS = 500;

export const iso = (time) => new Date(time).toISOString();

/** A node as the JSON interface shows it: free, and so since a minute ago. */
export function makeNode(name, fields = {}) {
  const time = iso(Date.now() - 60000);
  return { node: name, state: "free", alias: "", gpus: 2, slaveVersion: 4000000, owner: null,
    ownerText: null, since: time, lastChange: time, roundTripMs: 0.4, ...fields };
}

export class MockServer {
  nodes = new Map();
  history = new Map();
  requests = []; // the paths that were asked for
  isSilent = false; // while true, open connections get nothing
  failsWith = 0; // the status that event requests get instead of events
  begun = Date.now() - 3600000;
  #server = null;
  #port = 0;
  #viewers = new Set();
  #timer = null;

  constructor(nodes = []) {
    for (const node of nodes) this.#keep(node);
  }

  get url() { return `http://127.0.0.1:${this.#port}/`; }
  get viewers() { return this.#viewers.size; }

  /** Listens, after `close` on the same port again. */
  async listen() {
    this.#server = createServer((request, answer) => this.#answer(request, answer));
    await new Promise((done, failed) => {
      this.#server.once("error", failed).listen(this.#port, "127.0.0.1", done);
    });
    this.#port = this.#server.address().port;
    this.#timer = setInterval(() => this.#send("time", { time: iso(Date.now()) }), TIME_EVERY_MS);
    return this;
  }

  async close() {
    clearInterval(this.#timer);
    this.#server.closeAllConnections();
    this.#viewers.clear();
    await new Promise((done) => this.#server.close(done));
  }

  /** Changes a node now and tells all viewers, also by an event with the name `event`. */
  change(name, fields, event) {
    const time = iso(Date.now());
    const node = { ...(this.nodes.get(name) ?? makeNode(name)), ...fields, lastChange: time };
    if ("state" in fields && !("since" in fields)) node.since = time;
    this.#keep(node);
    this.#send("node", node);
    if (event) this.#send("event", { time, event, ...node });
  }

  remove(name) {
    this.nodes.delete(name);
    this.history.delete(name);
    this.#send("removed", { node: name });
  }

  #keep(node) {
    this.nodes.set(node.node, node);
    const entries = this.history.get(node.node) ?? [];
    const { state, owner, ownerText } = node;
    entries.push({ time: node.lastChange, state, owner, ownerText });
    this.history.set(node.node, entries);
  }

  #snapshot() {
    return { time: iso(Date.now()), nodes: [...this.nodes.values()] };
  }

  #send(event, data, viewers = this.#viewers) {
    if (this.isSilent) return;
    const text = `event: ${event}\ndata: ${JSON.stringify(data)}\n\n`;
    for (const viewer of viewers) viewer.write(text);
  }

  #answer(request, answer) {
    this.requests.push(request.url);
    const json = (value) => {
      answer.setHeader("Content-Type", "application/json");
      answer.end(JSON.stringify(value));
    };
    if (request.url === "/") return this.#sendPage(answer);
    if (request.url === "/api/v1/nodes") return json(this.#snapshot());
    if (request.url === "/api/v1/history") {
      return json({ time: iso(Date.now()), since: iso(this.begun),
        nodes: Object.fromEntries(this.history) });
    }
    if (request.url === "/api/v1/events" && this.failsWith === 0) return this.#serve(answer);
    answer.statusCode = this.failsWith || 404;
    return json({ error: "not available" });
  }

  #sendPage(answer) {
    answer.setHeader("Content-Type", "text/html; charset=utf-8");
    answer.setHeader("Content-Security-Policy",
      readFileSync(PAGE + "content_security_policy.txt", "utf8"));
    answer.end(readFileSync(PAGE + "index.html"));
  }

  #serve(answer) {
    answer.writeHead(200, { "Content-Type": "text/event-stream", "Cache-Control": "no-store" });
    answer.write("retry: 2000\n\n");
    this.#viewers.add(answer);
    answer.on("close", () => this.#viewers.delete(answer));
    this.#send("nodes", this.#snapshot(), [answer]);
  }
}
