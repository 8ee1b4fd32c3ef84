// A chart of states over time, one row for each node. A canvas covers the visible part.
// States differ in form as well as in color: free is a thin line, owned a block, starting is
// hatched, failed is crossed, not answering is hatched gray.

const AXIS_HEIGHT = 20;
const ROW_HEIGHT = 16;
const LABEL_STEP = 16;
const TICK_MINUTES = [1, 2, 5, 10, 15, 30, 60, 120, 180, 360, 720];
const MIN_TICK_WIDTH = 70;

/** A node's states between two times: [{from, to, ...entry}]. The last one lasts until `to`. */
function statesBetween(entries, from, to) {
  const parts = [];
  entries.forEach((entry, at) => {
    const end = at + 1 < entries.length ? entries[at + 1].time : to;
    const part = { ...entry, from: Math.max(entry.time, from), to: Math.min(end, to) };
    if (part.to > part.from) parts.push(part);
  });
  return parts;
}

function readColors() {
  const style = getComputedStyle(document.documentElement);
  const read = (name) => style.getPropertyValue("--" + name);
  const names = ["text", "dim", "line", "panel", "row", "free", "failed", "failed-mark", "away"];
  const colors = Object.fromEntries(names.map((name) => [name, read(name)]));
  colors.owners = Array.from({ length: OWNER_COLORS }, (_, at) => read("owner-" + at));
  return colors;
}

/** Diagonal lines, `step` device pixels apart. */
function hatch(context, color, step, line, crossed) {
  const tile = make("canvas", { width: step, height: step });
  const pen = tile.getContext("2d");
  pen.strokeStyle = color;
  pen.lineWidth = line;
  pen.beginPath();
  for (const shift of [-step, 0, step]) {
    pen.moveTo(shift, step);
    pen.lineTo(shift + step, 0);
    if (crossed) pen.moveTo(shift, 0), pen.lineTo(shift + step, step);
  }
  pen.stroke();
  return context.createPattern(tile, "repeat");
}

class Chart {
  rowHeight = ROW_HEIGHT;
  cursor = -1;
  rows = []; // {name, entries}
  from = 0;
  to = 1;
  left = 0;
  #box;
  #extent;
  #canvas;
  #farm;
  #colors = readColors();

  constructor(id, farm) {
    this.#box = document.getElementById(id);
    this.#extent = this.#box.firstElementChild;
    this.#canvas = this.#box.querySelector("canvas");
    this.#farm = farm;
    this.#box.addEventListener("scroll", () => this.draw());
    new ResizeObserver(() => this.draw()).observe(this.#box);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
      this.#colors = readColors();
      this.draw();
    });
  }

  get box() { return this.#box; }

  set(rows, from, to) {
    this.rows = rows;
    this.from = from;
    this.to = to;
    this.#extent.style.height = AXIS_HEIGHT + Math.max(1, rows.length) * this.rowHeight + 2 + "px";
    this.draw();
  }

  rowAt(clientY) {
    const y = clientY - this.#canvas.getBoundingClientRect().top - AXIS_HEIGHT;
    const row = Math.floor((y + this.#box.scrollTop) / this.rowHeight);
    return y >= 0 && row < this.rows.length ? row : -1;
  }

  timeAt(clientX) {
    const x = clientX - this.#canvas.getBoundingClientRect().left;
    const share = (x - this.left) / (this.#canvas.clientWidth - this.left);
    return this.from + Math.min(Math.max(share, 0), 1) * (this.to - this.from);
  }

  showRow(row) {
    const top = row * this.rowHeight;
    const height = this.#box.clientHeight - AXIS_HEIGHT - this.rowHeight;
    this.#box.scrollTop = Math.min(Math.max(this.#box.scrollTop, top - height), top);
  }

  draw() {
    const width = this.#box.clientWidth;
    const height = this.#box.clientHeight;
    if (width === 0 || height === 0) return;
    const ratio = devicePixelRatio || 1;
    const pixels = [Math.round(width * ratio), Math.round(height * ratio)];
    if (this.#canvas.width !== pixels[0]) this.#canvas.width = pixels[0];
    if (this.#canvas.height !== pixels[1]) this.#canvas.height = pixels[1];
    this.#canvas.style.width = width + "px";
    this.#canvas.style.height = height + "px";
    const pen = this.#canvas.getContext("2d");
    pen.setTransform(ratio, 0, 0, ratio, 0, 0);
    pen.clearRect(0, 0, width, height);
    pen.font = "11px " + getComputedStyle(document.body).fontFamily;
    pen.textBaseline = "middle";
    this.left = this.#labelWidth(pen, width);
    this.#drawRows(pen, width, height, ratio);
    this.#drawAxis(pen, width, height);
  }

  #labelWidth(pen, width) {
    let widest = 0;
    for (const { name } of this.rows) widest = Math.max(widest, pen.measureText(plain(name)).width);
    return this.rows.length === 0 ? 0 : Math.min(Math.ceil(widest) + 14, width * 0.3);
  }

  #drawRows(pen, width, height, ratio) {
    const style = { ratio, patterns: new Map() };
    const top = this.#box.scrollTop;
    const first = Math.floor(top / this.rowHeight);
    const last = Math.min(this.rows.length, Math.ceil((top + height) / this.rowHeight));
    const labelEvery = Math.ceil(LABEL_STEP / this.rowHeight);
    for (let row = Math.max(0, first - labelEvery); row < last; ++row) {
      const y = AXIS_HEIGHT + row * this.rowHeight - top;
      if (row === this.cursor) {
        pen.fillStyle = this.#colors.row;
        pen.fillRect(0, y - 1, width, this.rowHeight + 2);
      }
      if (row % labelEvery === 0 && y + LABEL_STEP > AXIS_HEIGHT) {
        this.#drawLabel(pen, this.rows[row].name, y, labelEvery > 1);
      }
      this.#drawStates(pen, this.rows[row].entries, y, width, style);
    }
    if (this.cursor >= first && this.cursor < last) {
      const y = AXIS_HEIGHT + this.cursor * this.rowHeight - top;
      pen.strokeStyle = this.#colors.text;
      pen.strokeRect(0.5, y - 0.5, width - 1, this.rowHeight + 1);
    }
  }

  #drawLabel(pen, name, y, isFirstOfMany) {
    let text = plain(name);
    while (text.length > 1 && pen.measureText(text).width > this.left - 12) {
      text = text.slice(0, -1);
    }
    pen.fillStyle = this.#colors.dim;
    pen.fillText(text, 6, y + (isFirstOfMany ? LABEL_STEP : this.rowHeight) / 2);
    if (!isFirstOfMany) return;
    pen.fillStyle = this.#colors.line;
    pen.fillRect(0, y, this.left - 3, 1);
  }

  /** Bad states come last and are at least two pixels wide, so that a short one is seen. */
  #drawStates(pen, entries, y, width, style) {
    const gap = this.rowHeight > 6 ? 2 : 1;
    const scale = (width - this.left) / (this.to - this.from);
    const parts = statesBetween(entries, this.from, this.to);
    parts.sort((a, b) => isBad(a.state) - isBad(b.state));
    for (const part of parts) {
      const x = this.left + (part.from - this.from) * scale;
      const wide = (part.to - part.from) * scale;
      const least = isBad(part.state) ? 2 : 1 / style.ratio;
      const area = [Math.min(x, width - least), y, Math.max(wide, least), this.rowHeight - gap];
      this.#drawState(pen, part, area, style);
    }
  }

  #drawState(pen, part, [x, y, width, height], style) {
    const kind = kindOf(part.state);
    const look = this.#farm.look(part.owner);
    const ink = look ? this.#colors.owners[look.color] : this.#colors.dim;
    const fill = (paint) => {
      pen.fillStyle = paint;
      pen.fillRect(x, y, width, height);
    };
    if (kind === "free") {
      pen.fillStyle = this.#colors.free;
      pen.fillRect(x, Math.round(y + height / 2 - 0.5), width, 1);
    } else if (kind === "owned") {
      fill(look?.striped ? this.#pattern(pen, style, ink, "striped") : ink);
    } else if (kind === "starting") {
      fill(this.#pattern(pen, style, ink, "hatched"));
    } else if (kind === "failed") {
      fill(this.#colors.failed);
      if (width > 4) fill(this.#pattern(pen, style, this.#colors["failed-mark"], "crossed"));
    } else if (kind === "away") {
      fill(width > 4 ? this.#pattern(pen, style, this.#colors.away, "hatched") : this.#colors.away);
    }
  }

  #pattern(pen, { ratio, patterns }, color, form) {
    const key = form + color;
    if (!patterns.has(key)) {
      const step = Math.round({ striped: 4, hatched: 4, crossed: 6 }[form] * ratio);
      const pattern = form === "striped" ? stripes(pen, color, step)
        : hatch(pen, color, step, (form === "crossed" ? 1.2 : 1.5) * ratio, form === "crossed");
      pattern.setTransform(new DOMMatrix().scale(1 / ratio));
      patterns.set(key, pattern);
    }
    return patterns.get(key);
  }

  #drawAxis(pen, width) {
    pen.fillStyle = this.#colors.panel;
    pen.fillRect(0, 0, width, AXIS_HEIGHT - 2);
    pen.fillStyle = this.#colors.line;
    pen.fillRect(0, AXIS_HEIGHT - 2, width, 1);
    const scale = (width - this.left) / (this.to - this.from);
    const minutes = TICK_MINUTES.find((step) => step * 60000 * scale >= MIN_TICK_WIDTH) ??
      TICK_MINUTES.at(-1);
    const step = minutes * 60000;
    const shift = new Date(this.to).getTimezoneOffset() * 60000;
    const first = Math.ceil((this.from - shift) / step) * step + shift;
    for (let time = first; time < this.to; time += step) {
      const x = Math.round(this.left + (time - this.from) * scale);
      pen.fillStyle = this.#colors.line;
      pen.fillRect(x, AXIS_HEIGHT - 6, 1, 5);
      pen.fillStyle = this.#colors.dim;
      const text = SHORT_CLOCK.format(time);
      if (x + pen.measureText(text).width + 4 > width) continue;
      pen.fillText(text, x + 3, AXIS_HEIGHT / 2 - 1);
    }
  }
}

function stripes(context, color, step) {
  const tile = make("canvas", { width: step, height: step });
  const pen = tile.getContext("2d");
  pen.fillStyle = color;
  pen.fillRect(0, 0, Math.ceil(step / 2), step);
  return context.createPattern(tile, "repeat");
}
