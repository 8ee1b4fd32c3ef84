// What the page knows of the farm. No DOM: the feed applies messages, the views read.

const KINDS = new Map([
  ["free", "free"], ["owned", "owned"], ["running", "owned"], ["stopping", "owned"],
  ["starting", "starting"], ["failed", "failed"], ["no answer", "away"], ["silent", "away"],
  ["disconnected", "away"], ["gone", "away"], ["waiting", "waiting"],
]);

/** In the order of their importance to an administrator. */
const STATES = ["failed", "no answer", "silent", "disconnected", "gone", "waiting", "starting",
  "running", "owned", "stopping", "free"];
const USUAL_STATES = new Set(["no answer", "silent", "disconnected", "owned", "free"]);

const KIND_NAMES = new Map([["free", "free"], ["owned", "owned"], ["starting", "starting"],
  ["failed", "failed"], ["away", "not answering"], ["waiting", "no state yet"]]);

const OWNER_COLORS = 6;
const MAX_EVENTS = 1000;
const MAX_HISTORY_MS = 24 * 3600 * 1000;
const MAX_ENTRIES = 2000; // of one node's history, however often it changes

function kindOf(state) {
  return KINDS.get(state) ?? "waiting";
}

function isBad(state) {
  const kind = kindOf(state);
  return kind === "failed" || kind === "away";
}

function byOwner(entry) {
  return entry.owner ? "by " + formatOwner(entry.owner, entry.ownerText) : "";
}

/** An event in a word and what follows it: "owned" "by 10.0.0.2:21000 (shot 12)". A change is told
    as the state that it led to. */
function describeEvent(event) {
  if (event.event === "changed") return { word: event.state, detail: byOwner(event) };
  if (event.event === "found") return { word: "found", detail: describeState(event) };
  return { word: event.event, detail: event.event === "stolen" ? byOwner(event) : "" };
}

class Farm {
  nodes = new Map();
  history = new Map();
  events = []; // newest first: {time, node, word, detail, bad}
  owners = new Map(); // address to {color, striped}
  historySince = NaN;
  serverTime = NaN;
  hasNodes = false;
  #heardAt = 0; // performance.now() at the latest server time
  #completeUntil = -Infinity; // `events` lacks nothing up to this server time
  #gap = { after: -Infinity, until: -Infinity }; // what the next history has to fill in

  setTime(text) {
    const time = parseTime(text);
    if (!Number.isFinite(time)) return;
    this.serverTime = time;
    this.#completeUntil = time;
    this.#heardAt = performance.now();
  }

  /** The server's clock. It stands still while the view is stale. */
  now(stale) {
    return stale ? this.serverTime : this.serverTime + performance.now() - this.#heardAt;
  }

  setNodes(snapshot) {
    const after = this.#completeUntil;
    this.setTime(snapshot.time);
    this.#gap = { after, until: this.serverTime };
    this.nodes = new Map(snapshot.nodes.map((node) => [node.node, node]));
    this.hasNodes = true;
    for (const name of [...this.history.keys()]) {
      if (!this.nodes.has(name)) this.history.delete(name);
    }
    for (const node of snapshot.nodes) this.#record(node);
  }

  /** Round trips are not worth an event each: takes them from a later answer. */
  setRoundTrips(nodes) {
    for (const { node, lastChange, roundTripMs } of nodes) {
      const known = this.nodes.get(node);
      if (known && known.lastChange === lastChange) known.roundTripMs = roundTripMs;
    }
  }

  setNode(node) {
    this.nodes.set(node.node, node);
    this.#record(node);
  }

  remove(name) {
    this.nodes.delete(name);
    this.history.delete(name);
  }

  /** Takes the server's history. What it lacks of the current states is added. */
  setHistory(answer) {
    this.historySince = parseTime(answer.since);
    this.history = new Map();
    for (const [name, entries] of Object.entries(answer.nodes)) {
      const usable = entries.map((entry) => ({ ...entry, time: parseTime(entry.time) }));
      this.history.set(name, usable.filter((entry) => Number.isFinite(entry.time)));
    }
    this.#nameOwners();
    for (const node of this.nodes.values()) this.#record(node);
    this.#addPastEvents();
  }

  addEvent(event) {
    if (event.event === "listening") return;
    const bad = isBad(event.state) || event.event === "refused" || event.event === "invalid record";
    this.#insertEvents([{ time: parseTime(event.time), node: event.node, bad,
      ...describeEvent(event) }]);
  }

  look(owner) {
    if (!owner) return null;
    if (!this.owners.has(owner)) {
      const index = this.owners.size;
      this.owners.set(owner, { color: index % OWNER_COLORS,
        striped: Math.floor(index / OWNER_COLORS) % 2 === 1 });
    }
    return this.owners.get(owner);
  }

  /** Colors follow the order in which owners appear, so all viewers see the same ones. */
  #nameOwners() {
    const all = [...this.history.values()].flat().filter((entry) => entry.owner);
    all.sort((a, b) => a.time - b.time || (a.owner < b.owner ? -1 : a.owner > b.owner ? 1 : 0));
    for (const entry of all) this.look(entry.owner);
  }

  #record(node) {
    if (node.owner) this.look(node.owner);
    const entries = this.history.get(node.node) ?? [];
    this.history.set(node.node, entries);
    const last = entries.at(-1);
    const same = last && last.state === node.state && last.owner === node.owner &&
      last.ownerText === node.ownerText;
    if (same) return;
    const since = parseTime(node.since);
    let time = last && since <= last.time ? parseTime(node.lastChange) : since;
    if (!Number.isFinite(time)) time = this.serverTime;
    if (last && time < last.time) return;
    entries.push({ time, state: node.state, owner: node.owner, ownerText: node.ownerText });
    const oldest = this.serverTime - MAX_HISTORY_MS;
    while (entries.length > MAX_ENTRIES || entries[1]?.time < oldest) entries.shift();
  }

  /** The server sends events from now on only; earlier ones follow from the history. */
  #addPastEvents() {
    const { after, until } = this.#gap;
    const past = [];
    for (const [node, entries] of this.history) {
      for (const entry of entries) {
        if (entry.time <= after || entry.time > until || entry.state === "waiting") continue;
        past.push({ time: entry.time, node, word: entry.state, detail: byOwner(entry),
          bad: isBad(entry.state) });
      }
    }
    this.#insertEvents(past);
  }

  /** Takes them in the order in which they have happened: events of the same time keep it. */
  #insertEvents(added) {
    this.events.unshift(...added.reverse());
    this.events.sort((a, b) => b.time - a.time);
    this.events.length = Math.min(this.events.length, MAX_EVENTS);
  }
}

/** Decides which nodes the views show: every word of the text must occur in some field, and the
    state must be one of those chosen, if any is. */
class Filter {
  states = new Set();
  #words = [];

  set text(value) {
    this.#words = value.toLowerCase().split(/\s+/).filter((word) => word !== "");
  }

  get isActive() {
    return this.#words.length > 0 || this.states.size > 0;
  }

  matches(node) {
    if (this.states.size > 0 && !this.states.has(node.state)) return false;
    const all = [node.node, node.alias, node.state, node.owner, node.ownerText, node.slaveVersion]
      .map(clean).join("\n").toLowerCase();
    return this.#words.every((word) => all.includes(word));
  }
}
