// The timeline of all nodes: its length, its rows, what pointer and keys show, and its legend.

const RANGES = [[15, "15 min"], [60, "1 h"], [360, "6 h"], [1440, "24 h"]];
const DENSE_ROW_HEIGHTS = [4, 10];
const DENSE_FROM = 40; // more nodes than this begin without a name for every row
const MAX_LEGEND_OWNERS = 12;
const HINT = "Point at a row, or press the arrow keys, to read it.";

function defaultRange(farm) {
  if (!Number.isFinite(farm.historySince)) return 60;
  const minutes = (farm.serverTime - farm.historySince) / 60000;
  return (RANGES.find(([length]) => length >= minutes) ?? RANGES.at(-1))[0];
}

class Timeline {
  #farm;
  #chart;
  #minutes = 0; // 0 until the history tells how far back it goes
  #dense = null; // null until the user chooses
  #time = NaN; // under the pointer
  #readout = document.getElementById("readout");
  #legend = document.getElementById("legend");
  #density = document.getElementById("density");
  #redraw;

  constructor(farm, redraw) {
    this.#farm = farm;
    this.#redraw = redraw;
    this.#chart = new Chart("timeline", farm);
    const ranges = document.getElementById("ranges");
    for (const [minutes, title] of RANGES) {
      const button = make("button", { type: "button", textContent: title, data: { minutes } });
      button.addEventListener("click", () => {
        this.#minutes = minutes;
        redraw();
      });
      ranges.append(button);
    }
    this.#density.addEventListener("click", () => {
      this.#dense = this.#density.ariaPressed === "true";
      redraw();
    });
    this.#listen();
  }

  show(nodes, now) {
    const minutes = this.#minutes || defaultRange(this.#farm);
    for (const button of document.querySelectorAll("#ranges button")) {
      button.ariaPressed = String(Number(button.dataset.minutes) === minutes);
    }
    const dense = this.#dense ?? nodes.length > DENSE_FROM;
    this.#density.ariaPressed = String(!dense);
    this.#chart.rowHeight = dense ? this.#denseRowHeight(nodes.length) : ROW_HEIGHT;
    const current = this.#chart.rows[this.#chart.cursor]?.name;
    const rows = nodes.map(({ node: name }) =>
      ({ name, entries: this.#farm.history.get(name) ?? [] }));
    this.#chart.cursor = rows.findIndex((row) => row.name === current);
    this.#chart.set(rows, now - minutes * 60000, now);
    this.#showReadout();
    this.#showLegend(nodes);
  }

  /** The height with which all rows fit without scrolling, within limits. */
  #denseRowHeight(count) {
    const [least, most] = DENSE_ROW_HEIGHTS;
    const space = parseFloat(getComputedStyle(this.#chart.box).maxHeight) - AXIS_HEIGHT - 2;
    return Math.min(Math.max(Math.floor(space / count), least), most) || least;
  }

  #listen() {
    const box = this.#chart.box;
    box.addEventListener("pointermove", (event) => {
      this.#time = this.#chart.timeAt(event.clientX);
      this.#moveTo(this.#chart.rowAt(event.clientY));
    });
    box.addEventListener("click", (event) => {
      this.#moveTo(this.#chart.rowAt(event.clientY));
      if (event.pointerType !== "touch") this.#openNode();
    });
    box.addEventListener("keydown", (event) => this.#press(event));
  }

  #press(event) {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    const last = this.#chart.rows.length - 1;
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: 20, PageUp: -20, Home: -1e9, End: 1e9 };
    const span = this.#chart.to - this.#chart.from;
    const jumps = { ArrowLeft: -span / 60, ArrowRight: span / 60 };
    if (event.key in steps) {
      this.#moveTo(Math.min(Math.max(this.#chart.cursor + steps[event.key], 0), last));
      this.#chart.showRow(this.#chart.cursor);
    } else if (event.key in jumps) {
      const time = (Number.isFinite(this.#time) ? this.#time : this.#chart.to) + jumps[event.key];
      this.#time = Math.min(Math.max(time, this.#chart.from), this.#chart.to);
      this.#moveTo(Math.max(0, this.#chart.cursor));
    } else if (event.key === "Enter") {
      this.#openNode();
    } else {
      return;
    }
    event.preventDefault();
  }

  #moveTo(row) {
    this.#chart.cursor = row;
    this.#chart.draw();
    this.#showReadout();
  }

  #openNode() {
    const row = this.#chart.rows[this.#chart.cursor];
    if (row) location.hash = "#/node/" + encodeURIComponent(row.name);
  }

  /** Describes the state under the pointer or the keys' cursor. */
  #showReadout() {
    const row = this.#chart.rows[this.#chart.cursor];
    const { from, to } = this.#chart;
    if (!row) return setText(this.#readout, this.#chart.rows.length > 0 ? HINT : "");
    const time = Number.isFinite(this.#time) ? Math.min(Math.max(this.#time, from), to) : to;
    const parts = statesBetween(row.entries, -Infinity, to);
    const part = parts.find((one) => one.from <= time && time < one.to) ??
      (time >= to ? parts.at(-1) : undefined);
    let text = formatTime(time, to) + ": no record";
    if (part) {
      const end = part.to >= to ? "now" : formatTime(part.to, to);
      text = `${formatTime(part.from, to)} to ${end}: ${describeState(part)}`;
    }
    setText(this.#readout, plain(`${row.name}, ${text}`));
  }

  #showLegend(nodes) {
    const present = this.#ownersOf(nodes).slice(0, MAX_LEGEND_OWNERS);
    const kinds = this.#presentKinds();
    const key = JSON.stringify([present, kinds]);
    if (this.#legend.dataset.key === key) return;
    this.#legend.dataset.key = key;
    const states = kinds.map((kind) =>
      make("li", {}, swatch(kind), make("span", { textContent: KIND_NAMES.get(kind) })));
    const items = present.map(([owner, { text, count }]) => make("li", {},
      swatch("owned", this.#farm.look(owner)), isolated(formatOwner(owner, text)),
      make("span", { textContent: count > 0 ? String(count) : "" })));
    this.#legend.replaceChildren(...items, ...states);
  }

  /** The owners with the number of their nodes, then those that the rows show from the past. */
  #ownersOf(nodes) {
    const owners = new Map();
    const note = ({ owner, ownerText }, count) => {
      if (!owner) return;
      const known = owners.get(owner) ?? { text: ownerText, count: 0 };
      known.count += count;
      owners.set(owner, known);
    };
    for (const node of nodes) note(node, 1);
    for (const { entries } of this.#chart.rows) {
      for (const part of statesBetween(entries, this.#chart.from, this.#chart.to)) note(part, 0);
    }
    return [...owners].sort((a, b) => b[1].count - a[1].count);
  }

  /** The kinds of states that the rows show; the usual ones are always explained. */
  #presentKinds() {
    const present = new Set(["free", "away"]);
    for (const { entries } of this.#chart.rows) {
      for (const entry of entries) present.add(kindOf(entry.state));
    }
    return ["free", "starting", "failed", "away"].filter((kind) => present.has(kind));
  }
}
