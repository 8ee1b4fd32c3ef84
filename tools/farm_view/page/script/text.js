// Texts and times for display. Texts from nodes are data: they reach the page through textContent
// only, with control characters replaced, each in an element that isolates its direction.

const REPLACEMENT = "\uFFFD";
const CONTROLS = /[\u0000-\u001F\u007F-\u009F\u2028\u2029]|\p{Surrogate}/gu;
const DIRECTIONS = /[\u061C\u200E\u200F\u202A-\u202E\u2066-\u2069]/g;

/** A value as one line of text; null and undefined give an empty text. */
function clean(value) {
  return value === null || value === undefined ? "" : String(value).replace(CONTROLS, REPLACEMENT);
}

/** For places that cannot isolate a text's direction: the canvas, attributes and the title. */
function plain(value) {
  return clean(value).replace(DIRECTIONS, REPLACEMENT);
}

/** Creates an element; `children` are elements and strings. */
function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name === "data") Object.assign(element.dataset, value);
    else if (name in element) element[name] = value;
    else element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

function isolated(value) {
  return make("bdi", { textContent: clean(value) });
}

/** Writes only what differs, so that a selection inside an unchanged text survives. */
function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

function nodeLink(name) {
  return make("a", { href: "#/node/" + encodeURIComponent(name) }, isolated(name));
}

/** Milliseconds since 1970, or NaN for a time that is missing or malformed. */
function parseTime(text) {
  return typeof text === "string" ? Date.parse(text) : NaN;
}

const CLOCK = new Intl.DateTimeFormat("en-GB", { timeStyle: "medium" });
const SHORT_CLOCK = new Intl.DateTimeFormat("en-GB", { hour: "2-digit", minute: "2-digit" });
const DAY = new Intl.DateTimeFormat("sv-SE", { dateStyle: "short" });

/** Local time; with the date unless it is the day of `now`. */
function formatTime(time, now) {
  if (!Number.isFinite(time)) return "";
  const sameDay = DAY.format(time) === DAY.format(now);
  return (sameDay ? "" : DAY.format(time) + " ") + CLOCK.format(time);
}

/** A duration in its two largest units: "14 s", "3 min", "2 h 05 min", "4 d 03 h". */
function formatDuration(milliseconds) {
  if (!Number.isFinite(milliseconds)) return "";
  const seconds = Math.max(0, Math.floor(milliseconds / 1000));
  const two = (value) => String(value).padStart(2, "0");
  if (seconds < 60) return seconds + " s";
  const minutes = Math.floor(seconds / 60);
  if (minutes < 60) return minutes + " min";
  const hours = Math.floor(minutes / 60);
  if (hours < 24) return hours + " h " + two(minutes % 60) + " min";
  return Math.floor(hours / 24) + " d " + two(hours % 24) + " h";
}

function formatMilliseconds(value) {
  return typeof value === "number" ? value.toFixed(1) + " ms" : "";
}

function formatOwner(owner, ownerText) {
  const text = clean(ownerText);
  return clean(owner) + (text ? " (" + text + ")" : "");
}

/** "owned by 10.0.0.2:21000 (shot 12)", or the state alone. */
function describeState(entry) {
  const owner = entry.owner ? " by " + formatOwner(entry.owner, entry.ownerText) : "";
  return clean(entry.state) + owner;
}

/** Swatch of a state; `look` comes from the owners' colors and may be absent. */
function swatch(kind, look) {
  const element = make("span", { className: "swatch", "aria-hidden": "true" });
  paintSwatch(element, kind, look);
  return element;
}

function paintSwatch(element, kind, look) {
  element.dataset.kind = kind;
  element.toggleAttribute("data-striped", Boolean(look?.striped));
  if (look) element.style.setProperty("--ink", `var(--owner-${look.color})`);
  else element.style.removeProperty("--ink");
}

/** Leaves one tab stop in a list of links; arrow keys, Home, End and Page keys move it. */
function roveFocus(container, selector) {
  const links = () => [...container.querySelectorAll(selector)];
  const select = (link) => {
    for (const other of links()) other.tabIndex = other === link ? 0 : -1;
  };
  container.addEventListener("focusin", (event) => {
    const link = event.target.closest(selector);
    if (link) select(link);
  });
  container.addEventListener("keydown", (event) => {
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: 15, PageUp: -15, Home: -1e9, End: 1e9 };
    const step = steps[event.key];
    const all = links();
    const at = all.indexOf(event.target);
    if (step === undefined || at < 0 || event.altKey || event.ctrlKey || event.metaKey) return;
    event.preventDefault();
    const next = all[Math.min(Math.max(at + step, 0), all.length - 1)];
    next.focus({ preventScroll: true });
    next.scrollIntoView({ block: "nearest" });
  });
  return function keepOneTabStop() {
    const all = links();
    if (all.length > 0 && !all.some((link) => link.tabIndex === 0)) all[0].tabIndex = 0;
  };
}
