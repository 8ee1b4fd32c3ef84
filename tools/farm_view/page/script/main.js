// Puts the parts together. What the user does is drawn with the next frame, what the server tells
// with at most five frames a second.

const farm = new Farm();
const filter = new Filter();
const feed = new Feed(farm, redrawSoon);
const table = new NodeTable(redraw);
const timeline = new Timeline(farm, redraw);
const totals = new Totals(filter, redraw);
const eventList = new EventList();
const nodeView = new NodeView(farm);
const pages = { farm: document.getElementById("farm"), node: document.getElementById("node") };
const filterInput = document.getElementById("filter");

const REDRAW_EVERY_MS = 200;

let isRedrawDue = false;
let laterRedraw = 0;
let drawnAt = -Infinity;
let farmScroll = 0;

function redraw() {
  if (isRedrawDue) return;
  isRedrawDue = true;
  requestAnimationFrame(() => {
    isRedrawDue = false;
    drawnAt = performance.now();
    showAll();
  });
}

function redrawSoon() {
  if (laterRedraw) return;
  const wait = Math.max(0, drawnAt + REDRAW_EVERY_MS - performance.now());
  laterRedraw = setTimeout(() => {
    laterRedraw = 0;
    redraw();
  }, wait);
}

function showAll() {
  showLink();
  if (!farm.hasNodes) return;
  const now = farm.now(feed.stale);
  const all = [...farm.nodes.values()];
  totals.show(all);
  if (nodeView.name !== null) {
    nodeView.show(now);
    return;
  }
  const nodes = table.sort(all.filter((node) => filter.matches(node)));
  const names = new Set(nodes.map((node) => node.node));
  table.show(nodes, farm, now);
  timeline.show(nodes, now);
  const isShown = (event) => !filter.isActive || names.has(event.node);
  eventList.show(farm.events.filter(isShown), now);
  const match = filter.isActive ? `${nodes.length} of ${all.length} nodes` : "";
  setText(document.getElementById("match"), match);
}

function showLink() {
  document.body.classList.toggle("live", !feed.stale);
  document.body.classList.toggle("stale", feed.stale && farm.hasNodes);
  const last = formatTime(farm.serverTime, Date.now());
  const stale = farm.hasNodes ? `Stale since ${last}; reconnecting` : "Connecting";
  setText(document.getElementById("link-text"), feed.stale ? stale : "Live");
}

/** Shows what the address names: "#/node/NAME" or everything. */
function navigate() {
  const match = /^#\/node\/(.+)$/.exec(location.hash);
  const previous = nodeView.name;
  if (match && previous === null) farmScroll = scrollY;
  let name = null;
  try {
    name = match && decodeURIComponent(match[1]);
  } catch {
    name = match[1];
  }
  nodeView.name = name;
  if (name !== null) nodeView.open(name);
  pages.farm.hidden = name !== null;
  pages.node.hidden = name === null;
  showAll();
  if (name !== null) {
    scrollTo(0, 0);
    nodeView.focus();
  } else if (previous !== null) {
    scrollTo(0, farmScroll);
    table.focus(previous);
  }
}

function pressKey(event) {
  if (event.altKey || event.ctrlKey || event.metaKey) return;
  if (event.key === "/" && !pages.farm.hidden && document.activeElement !== filterInput) {
    event.preventDefault();
    filterInput.focus();
  } else if (event.key === "Escape" && !pages.node.hidden) {
    location.hash = "#/";
  } else if (event.key === "Escape" && document.activeElement === filterInput) {
    filterInput.value = "";
    filterInput.dispatchEvent(new Event("input"));
  }
}

filterInput.addEventListener("input", () => {
  filter.text = filterInput.value;
  redraw();
});
addEventListener("hashchange", navigate);
addEventListener("keydown", pressKey);
setInterval(redraw, 1000);
navigate();
feed.start();
