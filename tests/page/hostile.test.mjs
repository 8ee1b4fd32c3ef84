import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, screenshot, withPage } from "./support/browser.mjs";
import { cell, eventually } from "./support/look.mjs";
import { makeNode } from "./support/mock_server.mjs";

const MARKUP = '<img src=x onerror="document.title=1"><script>document.title=2</script>';
const CONTROLS = "a\u0000b\u001B[31mc\u007Fd\u0085e\u2028f\nz";
const OVERRIDE = "\u202Eevil\u2066";
const LONG = "W".repeat(3000);
const STACKED = "Z" + "\u0301\u0300\u0316".repeat(200);
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

test("shows markup from nodes as text, in every view", async () => {
  const owned = { state: "owned", owner: MARKUP, ownerText: MARKUP };
  const node = makeNode("a:1", { ...owned, alias: MARKUP });
  await withPage(browser, [node, makeNode(MARKUP)], async (page, server) => {
    server.change("a:1", { ownerText: MARKUP + "!" }, MARKUP);
    await page.locator("#events", { hasText: MARKUP }).first().waitFor();
    assert.equal(await cell(page, "a:1", "alias").textContent(), MARKUP);
    await page.goto(server.url + "#/node/" + encodeURIComponent(MARKUP));
    await page.getByRole("heading", { name: MARKUP }).waitFor();
    assert.equal(await page.locator("img").count(), 0);
    assert.equal(await page.locator("script").count(), 1);
    assert.equal(await page.title(), "Quelta farm");
  });
});

test("replaces control characters", async () => {
  const node = makeNode("a:1", { alias: CONTROLS, state: "owned", owner: CONTROLS,
    ownerText: "half \uD800" });
  await withPage(browser, [node], async (page) => {
    const shown = "a\uFFFDb\uFFFD[31mc\uFFFDd\uFFFDe\uFFFDf\uFFFDz";
    assert.equal(await cell(page, "a:1", "alias").textContent(), shown);
    assert.equal(await cell(page, "a:1", "owner").textContent(), shown);
    assert.equal(await cell(page, "a:1", "ownerText").textContent(), "half \uFFFD");
  });
});

test("keeps a text that turns the direction from turning its neighbors", async () => {
  const node = makeNode("a:1", { alias: OVERRIDE, state: "owned", owner: "10.0.0.2:1",
    ownerText: OVERRIDE });
  await withPage(browser, [node], async (page) => {
    for (const key of ["alias", "ownerText"]) {
      assert.equal(await cell(page, "a:1", key).locator("bdi").textContent(), OVERRIDE);
    }
    await eventually(async () =>
      assert.equal(await page.locator("#events bdi", { hasText: "evil" }).count(), 1));
    await page.locator("#timeline").focus();
    await page.keyboard.press("Home");
    assert.match(await page.locator("#readout").textContent(), /\(\uFFFDevil\uFFFD\)$/);
  });
});

test("long and stacked texts leave the page's layout alone", async () => {
  const nodes = [makeNode("a:1", { alias: LONG, state: "owned", owner: LONG, ownerText: STACKED }),
    makeNode("b".repeat(300) + ":1"), makeNode("c:1")];
  await withPage(browser, nodes, async (page) => {
    const sizes = await page.evaluate(() => ({
      page: document.documentElement.scrollWidth - innerWidth,
      rows: [...document.querySelectorAll("#table tbody tr")].map((row) => row.offsetHeight),
    }));
    assert.ok(sizes.page <= 0, `the page is ${sizes.page} pixels too wide`);
    assert.equal(Math.max(...sizes.rows) - Math.min(...sizes.rows) <= 1, true, String(sizes.rows));
    await screenshot(page, "hostile");
  });
});

test("a state that the page does not know is shown as it is", async () => {
  await withPage(browser, [makeNode("a:1", { state: "constructor" })], async (page) => {
    assert.equal(await cell(page, "a:1", "state").textContent(), "constructor");
    assert.equal(await page.locator('#table tr[data-kind="waiting"]').count(), 1);
  });
});
