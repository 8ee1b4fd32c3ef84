// The table of nodes. Rows are kept and updated in place. A row with the focus or with a part of
// the selection is never moved in the document; the others move around it.

const naturally = new Intl.Collator("en", { numeric: true, sensitivity: "base" }).compare;

const COLUMNS = [
  { key: "node", title: "Node", value: (node) => node.node },
  { key: "alias", title: "Alias", value: (node) => node.alias },
  { key: "gpus", title: "GPUs", number: true, value: (node) => node.gpus },
  { key: "slaveVersion", title: "Version", number: true, value: (node) => node.slaveVersion },
  { key: "state", title: "State", value: (node) => STATES.indexOf(node.state) },
  { key: "since", title: "Since", number: true, value: (node) => -parseTime(node.since),
    text: (node, now) => formatDuration(now - parseTime(node.since)) },
  { key: "owner", title: "Owner", value: (node) => node.owner },
  { key: "ownerText", title: "Owner's text", value: (node) => node.ownerText },
  { key: "lastChange", title: "Last change", number: true,
    value: (node) => parseTime(node.lastChange),
    text: (node, now) => formatTime(parseTime(node.lastChange), now) },
  { key: "roundTripMs", title: "Round trip", number: true, value: (node) => node.roundTripMs,
    text: (node) => formatMilliseconds(node.roundTripMs) },
];

const isMissing = (value) => value === null || value === undefined || value === "" ||
  Number.isNaN(value);

/** Missing values come last in both directions; equal ones are in the order of the names. */
function compareBy(column, descending) {
  return (a, b) => {
    const x = column.value(a);
    const y = column.value(b);
    if (isMissing(x) !== isMissing(y)) return isMissing(x) ? 1 : -1;
    let order = 0;
    if (!isMissing(x)) order = typeof x === "number" ? x - y : naturally(clean(x), clean(y));
    return (descending ? -order : order) || naturally(a.node, b.node);
  };
}

/** The positions of a longest increasing subsequence of distinct numbers. */
function longestIncreasing(numbers) {
  const tails = [];
  const previous = [];
  numbers.forEach((number, at) => {
    let low = 0;
    for (let high = tails.length; low < high;) {
      const middle = (low + high) >> 1;
      if (numbers[tails[middle]] < number) low = middle + 1;
      else high = middle;
    }
    previous[at] = low > 0 ? tails[low - 1] : -1;
    tails[low] = at;
  });
  const kept = new Set();
  for (let at = tails.at(-1) ?? -1; at >= 0; at = previous[at]) kept.add(at);
  return kept;
}

/** Brings the children of `parent` into the given order with few moves. `pinned` never moves. */
function reorder(parent, wanted, pinned) {
  const current = new Map([...parent.children].map((element, index) => [element, index]));
  const pin = pinned && wanted.includes(pinned) && current.has(pinned) ? pinned : null;
  const pinIndex = current.get(pin);
  const pinPlace = wanted.indexOf(pin);
  const stays = (element, place) => current.has(element) &&
    (!pin || Math.sign(current.get(element) - pinIndex) === Math.sign(place - pinPlace));
  const candidates = wanted.filter(stays);
  const kept = longestIncreasing(candidates.map((element) => current.get(element)));
  const fixed = new Set(candidates.filter((_, at) => kept.has(at)));
  for (let at = wanted.length - 1, next = null; at >= 0; next = wanted[at--]) {
    if (!fixed.has(wanted[at])) parent.insertBefore(wanted[at], next);
  }
}

class NodeTable {
  column = COLUMNS[0];
  descending = false;
  #box = document.getElementById("table");
  #head = this.#box.querySelector("thead");
  #body = this.#box.querySelector("tbody");
  #rows = new Map(); // node name to {row, cells, link}
  #keepOneTabStop = roveFocus(this.#body, "a");

  /** `sorted` is called when the user has chosen another order. */
  constructor(sorted) {
    const row = make("tr");
    for (const column of COLUMNS) {
      const button = make("button", { type: "button", textContent: column.title });
      const cell = make("th", { scope: "col", data: { key: column.key } }, button);
      cell.classList.toggle("number", Boolean(column.number));
      button.addEventListener("click", () => {
        this.descending = this.column === column && !this.descending;
        this.column = column;
        this.#showOrder();
        sorted();
      });
      row.append(cell);
    }
    this.#head.append(row);
    this.#showOrder();
  }

  sort(nodes) {
    return nodes.sort(compareBy(this.column, this.descending));
  }

  show(nodes, farm, now) {
    const names = new Set(nodes.map((node) => node.node));
    const anchor = this.#anchor(names);
    for (const [name, { row }] of this.#rows) {
      if (names.has(name)) continue;
      row.remove();
      this.#rows.delete(name);
    }
    for (const node of nodes) this.#update(node, farm, now);
    reorder(this.#body, nodes.map((node) => this.#rows.get(node.node).row), this.#pinned());
    document.getElementById("nothing").hidden = nodes.length > 0 || !farm.hasNodes;
    this.#keepOneTabStop();
    if (anchor) this.#box.scrollTop += anchor.row.offsetTop - anchor.top;
  }

  focus(name) {
    this.#rows.get(name)?.link.focus({ preventScroll: true });
  }

  #showOrder() {
    for (const cell of this.#head.querySelectorAll("th")) {
      const isChosen = cell.dataset.key === this.column.key;
      if (isChosen) cell.ariaSort = this.descending ? "descending" : "ascending";
      else cell.removeAttribute("aria-sort");
    }
  }

  #pinned() {
    const selection = getSelection();
    const inside = [document.activeElement, selection.isCollapsed ? null : selection.anchorNode]
      .find((place) => place && this.#body.contains(place) && place !== this.#body);
    return (inside?.closest ? inside : inside?.parentElement)?.closest("tr") ?? null;
  }

  /** The row that stays where it is on the screen: the focused one, else the first visible one
      once the table has been scrolled. */
  #anchor(names) {
    const top = this.#box.scrollTop;
    const pinned = this.#pinned();
    const isVisible = (row) => row.offsetTop + row.offsetHeight > top &&
      row.offsetTop < top + this.#box.clientHeight;
    if (top === 0 && !pinned) return null;
    const stays = (row) => names.has(row.dataset.node);
    const row = pinned && stays(pinned) && isVisible(pinned) ? pinned
      : [...this.#body.children].find((other) => stays(other) &&
          other.offsetTop >= top + this.#head.offsetHeight);
    return row && top > 0 ? { row, top: row.offsetTop } : null;
  }

  #add(name) {
    const row = make("tr", { data: { node: name } });
    const cells = new Map();
    for (const { key, number } of COLUMNS) {
      const cell = make(key === "node" ? "th" : "td", { data: { key } });
      if (key === "node") cell.scope = "row";
      cell.classList.toggle("number", Boolean(number));
      cells.set(key, cell);
      row.append(cell);
    }
    const link = nodeLink(name);
    link.tabIndex = -1;
    cells.get("node").append(link);
    const state = { mark: swatch("waiting"), word: make("span") };
    cells.get("state").append(state.mark, state.word);
    for (const key of ["alias", "owner", "ownerText"]) cells.get(key).append(make("bdi"));
    return { row, cells, link, state };
  }

  #update(node, farm, now) {
    if (!this.#rows.has(node.node)) this.#rows.set(node.node, this.#add(node.node));
    const { row, cells, state } = this.#rows.get(node.node);
    const kind = kindOf(node.state);
    row.dataset.kind = kind;
    row.dataset.state = node.state;
    paintSwatch(state.mark, kind, farm.look(node.owner));
    setText(state.word, clean(node.state));
    for (const column of COLUMNS) {
      if (column.key === "node" || column.key === "state") continue;
      const cell = cells.get(column.key);
      const text = column.text ? column.text(node, now) : clean(node[column.key]);
      setText(cell.firstElementChild ?? cell, text);
    }
    cells.get("since").title = formatTime(parseTime(node.since), now);
  }
}
