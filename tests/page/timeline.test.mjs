import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, waitUntil, withPage } from "./support/browser.mjs";
import { eventually, styleColor, timelineColor } from "./support/look.mjs";
import { iso, makeNode } from "./support/mock_server.mjs";

const OWNED = { state: "owned", owner: "10.0.0.2:21000", ownerText: "shot 12" };
const FREE = { state: "free", owner: null, ownerText: null };
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

const readout = (page) => page.locator("#readout").textContent();

/** An entry of a node's history, `minutes` ago. */
const past = (minutes, fields) => ({ time: iso(Date.now() - minutes * 60000), ...FREE, ...fields });

test("draws each state in its own color", async () => {
  const states = { "a:1": OWNED, "b:1": { ...OWNED, owner: "10.0.0.3:1" },
    "c:1": { state: "failed" }, "d:1": FREE };
  const nodes = Object.entries(states).map(([name, fields]) => makeNode(name, fields));
  await withPage(browser, nodes, async (page) => {
    const wanted = ["owner-0", "owner-1", "failed", "free"];
    await eventually(async () => {
      for (const [row, name] of wanted.entries()) {
        const colors = [];
        for (let x = 3; x < 12; ++x) colors.push(await timelineColor(page, row, x));
        assert.ok(colors.includes(await styleColor(page, name)), `${name}: ${colors}`);
      }
    });
  });
});

test("follows a start, a steal and a crash of the daemon", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    const follows = async (fields, color) => {
      server.change("a:1", fields);
      await eventually(async () =>
        assert.equal(await timelineColor(page, 0, 1), await styleColor(page, color)));
    };
    await page.getByRole("button", { name: "15 min" }).click();
    await follows(OWNED, "owner-0");
    await follows({ ...OWNED, owner: "10.0.0.9:1" }, "owner-1");
    await follows({ ...FREE, state: "disconnected" }, "away");
    await follows(FREE, "free");
    await page.locator("#timeline").focus();
    await page.keyboard.press("Home");
    await eventually(async () => assert.match(await readout(page), /^a:1, .* to now: free$/));
  });
});

test("shows the history from before the page was opened", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    server.begun = Date.now() - 50 * 60000;
    server.history.set("a:1", [past(45), past(30, OWNED), past(10)]);
    await page.reload();
    await page.locator("body.live").waitFor();
    await page.getByRole("button", { name: "1 h", exact: true }).click();
    await page.locator("#timeline").focus();
    await page.keyboard.press("Home");
    const wanted = [[5, / to now: free$/], [20, /: owned by 10\.0\.0\.2:21000 \(shot 12\)$/],
      [40, / to \d.*: free$/], [55, /: no record$/]];
    let minutes = 0;
    for (const [ago, text] of wanted) {
      for (; minutes < ago; ++minutes) await page.keyboard.press("ArrowLeft"); // one minute each
      assert.match(await readout(page), text);
    }
  });
});

test("explains the owners' colors, those of present ones first", async () => {
  const nodes = [makeNode("a:1", OWNED), makeNode("b:1", OWNED), makeNode("c:1")];
  await withPage(browser, nodes, async (page, server) => {
    const gone = { ...OWNED, owner: "10.0.0.9:1", ownerText: "gone" };
    server.history.set("c:1", [past(30, gone), past(10)]);
    await page.reload();
    const legend = page.locator("#legend li");
    await eventually(async () => assert.deepEqual(await legend.allTextContents(),
      ["10.0.0.2:21000 (shot 12)2", "10.0.0.9:1 (gone)", "free", "not answering"]));
  });
});

test("tells the state under the pointer", async () => {
  await withPage(browser, [makeNode("a:1"), makeNode("b:1", OWNED)], async (page) => {
    const box = await page.locator("#timeline").boundingBox();
    await page.mouse.move(box.x + box.width - 1, box.y + 20 + 16 + 8);
    await eventually(async () => assert.match(await readout(page),
      /^b:1, .* to now: owned by 10\.0\.0\.2:21000 \(shot 12\)$/));
    await page.mouse.click(box.x + box.width - 3, box.y + 20 + 8);
    await page.getByRole("heading", { name: "a:1" }).waitFor();
  });
});

test("covers as much time as there is history, or what the user chooses", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    const pressed = () => page.locator('#ranges [aria-pressed="true"]').textContent();
    await eventually(async () => assert.equal(await pressed(), "6 h"));
    await page.getByRole("button", { name: "15 min" }).click();
    await eventually(async () => assert.equal(await pressed(), "15 min"));
    server.change("a:1", OWNED);
    await page.locator("#table", { hasText: "shot 12" }).waitFor();
    assert.equal(await pressed(), "15 min");
  });
});

test("moves by keys, tells the state in words and opens the node", async () => {
  await withPage(browser, [makeNode("a:1"), makeNode("b:1", OWNED)], async (page) => {
    await page.locator("#timeline").focus();
    await page.keyboard.press("ArrowDown");
    assert.match(await readout(page), /^a:1, .*: free$/);
    await page.keyboard.press("ArrowDown");
    assert.match(await readout(page), /^b:1, .* to now: owned by 10\.0\.0\.2:21000 \(shot 12\)$/);
    for (let i = 0; i < 60; ++i) await page.keyboard.press("ArrowLeft");
    assert.match(await readout(page), /^b:1, .*: no record$/);
    await page.keyboard.press("Enter");
    await page.getByRole("heading", { name: "b:1" }).waitFor();
  });
});

test("fits 200 nodes and names every row when asked", async () => {
  const nodes = Array.from({ length: 200 }, (_, at) =>
    makeNode(`n${at + 1}:1`, at % 2 ? FREE : OWNED));
  await withPage(browser, nodes, async (page) => {
    const height = () => page.locator("#timeline .extent").evaluate((box) => box.offsetHeight);
    await waitUntil(page, () => document.querySelector("#timeline .extent").offsetHeight > 500);
    assert.ok(await height() <= 200 * 4 + 22, "200 rows of 4 pixels and the axis");
    assert.equal(await timelineColor(page, 0), await styleColor(page, "owner-0"));
    assert.notEqual(await timelineColor(page, 1), await styleColor(page, "owner-0"));
    await page.getByRole("button", { name: "Name every row" }).click();
    await waitUntil(page, () => document.querySelector("#timeline .extent").offsetHeight > 3200);
    await page.locator("#timeline").focus();
    await page.keyboard.press("End");
    assert.match(await readout(page), /^n200:1, /);
    await waitUntil(page, () => {
      const box = document.getElementById("timeline");
      return box.scrollTop + box.clientHeight >= box.scrollHeight - 20;
    });
  });
});

test("follows the filter and the order of the table", async () => {
  const nodes = [makeNode("a:1", OWNED), makeNode("b:1"), makeNode("c:1", OWNED)];
  await withPage(browser, nodes, async (page) => {
    await page.getByLabel("Filter").fill("shot");
    await page.getByRole("button", { name: "Node", exact: true }).click();
    await eventually(async () => {
      await page.locator("#timeline").focus();
      await page.keyboard.press("Home");
      assert.match(await readout(page), /^c:1, /);
      await page.keyboard.press("End");
      assert.match(await readout(page), /^a:1, /);
    });
  });
});
