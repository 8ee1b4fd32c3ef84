import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, withPage } from "./support/browser.mjs";
import { eventually } from "./support/look.mjs";
import { iso, makeNode } from "./support/mock_server.mjs";

const OWNED = { state: "owned", owner: "10.0.0.2:21000", ownerText: "shot 12" };
const FREE = { state: "free", owner: null, ownerText: null };
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

const rows = (page) => page.locator("#history tbody tr").evaluateAll((all) =>
  all.map((row) => [...row.cells].slice(1).map((cell) => cell.textContent)));

async function openNode(page, name) {
  await page.locator("#table").getByRole("link", { name, exact: true }).click();
  await page.getByRole("heading", { name, exact: true }).waitFor();
}

test("shows a node's fields and its history, newest first, and follows changes", async () => {
  const past = (minutes, fields) => ({ time: iso(Date.now() - minutes * 60000), ...fields });
  await withPage(browser, [makeNode("a:1", { alias: "blue" })], async (page, server) => {
    server.history.set("a:1", [past(60, FREE), past(30, OWNED), past(10, FREE)]);
    await page.reload();
    await openNode(page, "a:1");
    await eventually(async () => assert.deepEqual(await rows(page),
      [["10 min", "free", "", ""], ["20 min", "owned", "10.0.0.2:21000", "shot 12"],
        ["30 min", "free", "", ""]]));
    server.change("a:1", OWNED);
    await eventually(async () => assert.equal((await rows(page)).length, 4));
    assert.deepEqual((await rows(page))[0].slice(1), ["owned", "10.0.0.2:21000", "shot 12"]);
    const facts = await page.locator("#node-facts > div").allInnerTexts();
    assert.deepEqual(facts.slice(0, 4),
      ["Alias\nblue", "GPUs\n2", "Version\n4000000", "State\nowned"]);
  });
});

test("goes back to the same place and the same node", async () => {
  const nodes = Array.from({ length: 100 }, (_, at) => makeNode(`n${at + 1}:1`));
  await withPage(browser, nodes, async (page) => {
    const place = () => page.evaluate(() =>
      [document.getElementById("table").scrollTop, scrollY].map(Math.round));
    await page.setViewportSize({ width: 1440, height: 500 });
    await page.evaluate(() => scrollTo(0, 200));
    await page.locator("#table").getByRole("link", { name: "n80:1" }).scrollIntoViewIfNeeded();
    const before = await place();
    assert.ok(before[0] > 0 && before[1] > 0, String(before));
    await openNode(page, "n80:1");
    assert.equal(await page.evaluate(() => document.activeElement.id), "node-title");
    await page.goBack();
    await page.locator("#farm").waitFor();
    assert.deepEqual(await place(), before);
    assert.equal(await page.evaluate(() => document.activeElement.textContent), "n80:1");
    await page.goForward();
    await page.getByRole("heading", { name: "n80:1" }).waitFor();
    await page.keyboard.press("Escape");
    await page.locator("#farm").waitFor();
  });
});

test("opens a node by its address, and says when there is no such node", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    await page.goto(server.url + "#/node/a%3A1");
    await page.getByRole("heading", { name: "a:1" }).waitFor();
    await page.goto(server.url + "#/node/%");
    await page.getByText("The server does not know this node.").waitFor();
    await page.getByRole("link", { name: "All nodes" }).click();
    await page.locator("#farm").waitFor();
  });
});

test("says when the node on show is removed", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    await openNode(page, "a:1");
    server.remove("a:1");
    await page.getByText("The server does not know this node.").waitFor();
  });
});
