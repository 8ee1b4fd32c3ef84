import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, withPage } from "./support/browser.mjs";
import { cell, column, eventually, totals } from "./support/look.mjs";
import { iso, makeNode } from "./support/mock_server.mjs";

const OWNED = { state: "owned", owner: "10.0.0.2:21000", ownerText: "shot 12" };
const names = (count) => Array.from({ length: count }, (_, at) => `node${at + 1}:5130`);
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

test("shows every field of a node", async () => {
  const time = iso(Date.now() - 3 * 60000);
  const node = makeNode("render01:5130", { ...OWNED, alias: "blue", gpus: 4, slaveVersion: 4000017,
    since: time, lastChange: time, roundTripMs: 1.26 });
  await withPage(browser, [node], async (page) => {
    const texts = await page.locator("#table tbody tr > *").allTextContents();
    assert.deepEqual(texts, ["render01:5130", "blue", "4", "4000017", "owned", "3 min",
      "10.0.0.2:21000", "shot 12", time.slice(11, 19), "1.3 ms"]);
  });
});

test("leaves fields empty that no node has told yet", async () => {
  const node = makeNode("n:1", { state: "waiting", alias: null, gpus: null, slaveVersion: null,
    roundTripMs: null });
  await withPage(browser, [node], async (page) => {
    for (const key of ["alias", "gpus", "slaveVersion", "owner", "ownerText", "roundTripMs"]) {
      assert.equal(await cell(page, "n:1", key).textContent(), "", key);
    }
    assert.equal(await cell(page, "n:1", "state").textContent(), "waiting");
  });
});

test("follows changes, new nodes and removed ones, and counts the states", async () => {
  await withPage(browser, [makeNode("a:1"), makeNode("b:1", { gpus: 3 })], async (page, server) => {
    server.change("b:1", OWNED);
    server.change("c:1", { state: "disconnected" });
    server.remove("a:1");
    await eventually(async () => {
      assert.deepEqual(await column(page, "node"), ["b:1", "c:1"]);
      assert.deepEqual(await column(page, "state"), ["owned", "disconnected"]);
      assert.deepEqual(await column(page, "owner"), ["10.0.0.2:21000", ""]);
    });
    assert.deepEqual(await totals(page),
      { "no answer": 0, silent: 0, disconnected: 1, owned: 1, free: 0 });
    assert.equal(await page.locator(".figures").innerText(), "2 nodes\n5 GPUs\n3 GPUs in use");
    assert.equal(await page.title(), "(1) Quelta farm");
  });
});

test("takes new round trips from the server without an event", async () => {
  await withPage(browser, [makeNode("a:1", { roundTripMs: 1 })], async (page, server) => {
    server.nodes.get("a:1").roundTripMs = 7.5;
    await eventually(async () =>
      assert.equal(await cell(page, "a:1", "roundTripMs").textContent(), "7.5 ms"));
  });
});

test("sorts by any column, names as a person would, missing values last", async () => {
  const nodes = [makeNode("node10:1", { alias: "b" }), makeNode("node9:1", { alias: null }),
    makeNode("node1:1", { alias: "a" })];
  await withPage(browser, nodes, async (page) => {
    assert.deepEqual(await column(page, "node"), ["node1:1", "node9:1", "node10:1"]);
    const alias = page.getByRole("columnheader", { name: "Alias" });
    await alias.getByRole("button").click();
    await eventually(async () =>
      assert.deepEqual(await column(page, "node"), ["node1:1", "node10:1", "node9:1"]));
    assert.equal(await alias.getAttribute("aria-sort"), "ascending");
    await alias.getByRole("button").click();
    await eventually(async () =>
      assert.deepEqual(await column(page, "node"), ["node10:1", "node1:1", "node9:1"]));
    assert.equal(await alias.getAttribute("aria-sort"), "descending");
  });
});

test("sorts states by urgency", async () => {
  const states = ["free", "owned", "silent", "failed", "no answer", "starting"];
  const nodes = states.map((state, at) => makeNode(`n${at}:1`, { state }));
  await withPage(browser, nodes, async (page) => {
    await page.getByRole("button", { name: "State", exact: true }).click();
    await eventually(async () => assert.deepEqual(await column(page, "state"),
      ["failed", "no answer", "silent", "starting", "owned", "free"]));
  });
});

test("filters while the user types: every word in some field", async () => {
  const nodes = [makeNode("a:1", { ...OWNED, alias: "Blue" }), makeNode("b:1", OWNED),
    makeNode("c:1", { alias: "blue" })];
  await withPage(browser, nodes, async (page, server) => {
    await page.keyboard.press("/");
    await page.keyboard.type("SHOT");
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["a:1", "b:1"]));
    assert.equal(await page.locator("#match").textContent(), "2 of 3 nodes");
    await page.keyboard.type(" blue");
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["a:1"]));
    server.change("c:1", OWNED);
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["a:1", "c:1"]));
    await page.keyboard.type("x");
    await page.getByText("No node matches.").waitFor();
    await page.keyboard.press("Escape");
    await eventually(async () => assert.equal((await column(page, "node")).length, 3));
  });
});

test("shows only the states that are pressed", async () => {
  const nodes = [makeNode("a:1"), makeNode("b:1", OWNED), makeNode("c:1", { state: "silent" })];
  await withPage(browser, nodes, async (page, server) => {
    await page.getByRole("button", { name: "owned 1" }).click();
    await page.getByRole("button", { name: "silent 1" }).click();
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["b:1", "c:1"]));
    server.change("b:1", { state: "free", owner: null, ownerText: null });
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["c:1"]));
  });
});

/** The distance of a row from the table's upper edge on the screen. */
const placeOf = (page, node) => page.evaluate((node) => {
  const topOf = (selector) => document.querySelector(selector).getBoundingClientRect().top;
  return topOf(`#table tr[data-node="${node}"]`) - topOf("#table");
}, node);

/** Rows are a fraction of a pixel higher than a whole number of them. */
function assertSamePlace(place, expected) {
  assert.ok(Math.abs(place - expected) < 1, `${place} instead of ${expected}`);
}

test("keeps the focus on a row and the row in its place while others move", async () => {
  const nodes = names(120).map((name) => makeNode(name));
  await withPage(browser, nodes, async (page, server) => {
    await page.getByRole("button", { name: "State", exact: true }).click();
    await page.locator('#table a[href="#/node/node60%3A5130"]').focus();
    const place = await placeOf(page, "node60:5130");
    for (const name of names(120).slice(90)) server.change(name, { state: "silent" });
    await eventually(async () =>
      assert.equal((await column(page, "state")).filter((state) => state === "silent").length, 30));
    assert.equal((await column(page, "node"))[0], "node91:5130");
    assert.equal(await page.evaluate(() => document.activeElement.textContent), "node60:5130");
    assertSamePlace(await placeOf(page, "node60:5130"), place);
  });
});

test("keeps a scrolled table in its place while rows come and go above", async () => {
  const nodes = names(120).map((name) => makeNode(name));
  await withPage(browser, nodes, async (page, server) => {
    await page.evaluate(() => { document.getElementById("table").scrollTop = 1200; });
    const first = await page.evaluate(() => {
      const box = document.getElementById("table");
      const top = box.getBoundingClientRect().top + box.querySelector("thead").offsetHeight;
      return [...box.querySelectorAll("tbody tr")]
        .find((row) => row.getBoundingClientRect().top >= top).dataset.node;
    });
    const place = await placeOf(page, first);
    for (const name of names(9)) server.remove(name);
    for (const name of ["a:1", "b:1", "c:1"]) server.change(name, {});
    await eventually(async () => assert.equal((await column(page, "node")).length, 114));
    assertSamePlace(await placeOf(page, first), place);
  });
});

test("keeps the focus on a row that comes to another place", async () => {
  await withPage(browser, names(20).map((name) => makeNode(name)), async (page, server) => {
    await page.getByRole("button", { name: "State", exact: true }).click();
    await page.locator('#table a[href="#/node/node9%3A5130"]').focus();
    server.change("node9:5130", { state: "silent" });
    await eventually(async () => assert.equal((await column(page, "node"))[0], "node9:5130"));
    assert.equal(await page.evaluate(() => document.activeElement.textContent), "node9:5130");
  });
});

test("keeps a selected text while the row's node and the order change", async () => {
  const nodes = [makeNode("a:1"), makeNode("b:1", { alias: "blue" }), makeNode("c:1")];
  await withPage(browser, nodes, async (page, server) => {
    await page.getByRole("button", { name: "State", exact: true }).click();
    await page.evaluate(() => getSelection().selectAllChildren(
      document.querySelector('#table tr[data-node="b:1"] [data-key="alias"] bdi')));
    server.change("b:1", { roundTripMs: 9, state: "silent" });
    await eventually(async () =>
      assert.deepEqual(await column(page, "node"), ["b:1", "a:1", "c:1"]));
    assert.equal(await cell(page, "b:1", "roundTripMs").textContent(), "9.0 ms");
    assert.equal(await page.evaluate(() => String(getSelection())), "blue");
  });
});

test("moves through the nodes with the arrow keys from one tab stop", async () => {
  await withPage(browser, names(5).map((name) => makeNode(name)), async (page) => {
    const focused = () => page.evaluate(() => document.activeElement.textContent);
    await page.getByRole("button", { name: "Round trip" }).focus();
    await page.keyboard.press("Tab");
    assert.equal(await focused(), "node1:5130");
    await page.keyboard.press("ArrowDown");
    await page.keyboard.press("ArrowDown");
    assert.equal(await focused(), "node3:5130");
    await page.keyboard.press("End");
    assert.equal(await focused(), "node5:5130");
    await page.keyboard.press("Tab");
    assert.equal(await page.evaluate(() => document.activeElement.id), "events");
  });
});
