// Totals, events and the view of one node.

class Totals {
  #buttons = new Map();
  #box = document.getElementById("states");

  constructor(filter, chosen) {
    for (const state of STATES) {
      const count = make("b");
      const button = make("button", { type: "button", data: { state } }, swatch(kindOf(state)),
        make("span", { textContent: state }), count);
      button.ariaPressed = "false";
      button.addEventListener("click", () => {
        if (!filter.states.delete(state)) filter.states.add(state);
        button.ariaPressed = String(filter.states.has(state));
        chosen();
      });
      this.#buttons.set(state, { button, count });
      this.#box.append(button);
    }
  }

  show(nodes) {
    let gpus = 0;
    let owned = 0;
    const counts = new Map(STATES.map((state) => [state, 0]));
    for (const node of nodes) {
      counts.set(node.state, (counts.get(node.state) ?? 0) + 1);
      gpus += node.gpus ?? 0;
      owned += node.owner ? node.gpus ?? 0 : 0;
    }
    setText(document.getElementById("node-count"), String(nodes.length));
    setText(document.getElementById("gpu-count"), String(gpus));
    setText(document.getElementById("gpu-owned"), String(owned));
    for (const [state, { button, count }] of this.#buttons) {
      const number = counts.get(state);
      setText(count, String(number));
      button.classList.toggle("zero", number === 0);
      button.hidden = number === 0 && !USUAL_STATES.has(state) && button.ariaPressed !== "true";
    }
    const bad = STATES.filter(isBad).reduce((sum, state) => sum + counts.get(state), 0);
    document.title = (bad > 0 ? `(${bad}) ` : "") + "Quelta farm";
  }
}

class EventList {
  #box = document.getElementById("events");
  #list = this.#box.firstElementChild;
  #items = new Map(); // event to element
  #keepOneTabStop = roveFocus(this.#list, "a");

  show(events, now) {
    const shown = new Set(events);
    const height = this.#list.offsetHeight;
    for (const [event, item] of this.#items) {
      if (shown.has(event)) continue;
      item.remove();
      this.#items.delete(event);
    }
    let before = null;
    for (const event of events.toReversed()) {
      if (!this.#items.has(event)) this.#items.set(event, this.#make(event, now));
      const item = this.#items.get(event);
      const isInPlace = item.parentNode === this.#list && item.nextSibling === before;
      if (!isInPlace) this.#list.insertBefore(item, before);
      before = item;
    }
    this.#keepOneTabStop();
    if (this.#box.scrollTop > 0) this.#box.scrollTop += this.#list.offsetHeight - height;
  }

  #make(event, now) {
    const link = nodeLink(event.node);
    link.tabIndex = -1;
    const what = make("span", { className: "what" }, link, " ",
      make("span", { className: "word", textContent: clean(event.word) }));
    if (event.detail) what.append(" ", isolated(event.detail));
    const time = make("time", { textContent: formatTime(event.time, now) });
    if (Number.isFinite(event.time)) time.dateTime = new Date(event.time).toISOString();
    const item = make("li", {}, time, what);
    item.toggleAttribute("data-bad", event.bad);
    return item;
  }
}

class NodeView {
  name = null;
  #farm;
  #chart;
  #title = document.getElementById("node-title");
  #facts = document.getElementById("node-facts");
  #history = document.querySelector("#history tbody");
  #values = new Map();

  constructor(farm) {
    this.#farm = farm;
    this.#chart = new Chart("strip", farm);
    this.#chart.rowHeight = 28;
    for (const column of COLUMNS) {
      if (column.key === "node") continue;
      const value = make("bdi");
      this.#values.set(column, value);
      this.#facts.append(make("div", {}, make("dt", { textContent: column.title }),
        make("dd", {}, value)));
    }
  }

  open(name) {
    this.name = name;
    this.#title.replaceChildren(isolated(name));
    this.#history.replaceChildren();
  }

  focus() {
    this.#title.focus({ preventScroll: true });
  }

  show(now) {
    const node = this.#farm.nodes.get(this.name);
    document.getElementById("node-missing").hidden = Boolean(node) || !this.#farm.hasNodes;
    document.getElementById("node-body").hidden = !node;
    if (!node) return;
    for (const [column, value] of this.#values) {
      let text = column.text ? column.text(node, now) : clean(node[column.key]);
      if (column.key === "since") text = `${formatTime(parseTime(node.since), now)} (${text})`;
      setText(value, text || "\u2013");
    }
    const entries = this.#farm.history.get(this.name) ?? [];
    const since = Math.min(this.#farm.historySince, entries[0]?.time ?? now);
    const from = Math.max(now - 24 * 3600000, Number.isFinite(since) ? since : now - 3600000);
    this.#chart.set([{ name: "", entries }], Math.min(from, now - 60000), now);
    this.#showHistory(entries, now);
  }

  /** Newest first. Only the rows that differ are written. */
  #showHistory(entries, now) {
    entries.toReversed().forEach((entry, at) => {
      const index = entries.length - 1 - at;
      const end = entries[index + 1]?.time ?? now;
      const texts = [formatTime(entry.time, now), formatDuration(end - entry.time),
        clean(entry.state), clean(entry.owner), clean(entry.ownerText)];
      const row = this.#history.rows[at] ?? this.#history.appendChild(this.#makeRow(texts.length));
      const mark = row.cells[2].firstElementChild;
      paintSwatch(mark, kindOf(entry.state), this.#farm.look(entry.owner));
      row.dataset.kind = kindOf(entry.state);
      texts.forEach((text, column) => setText(row.cells[column].querySelector("bdi"), text));
    });
    while (this.#history.rows.length > entries.length) this.#history.deleteRow(-1);
  }

  #makeRow(count) {
    const cells = Array.from({ length: count }, () => make("td", {}, make("bdi")));
    cells[2].prepend(swatch("waiting"));
    cells[2].dataset.key = "state";
    return make("tr", {}, ...cells);
  }
}
