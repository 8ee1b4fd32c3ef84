import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, screenshot, waitUntil, withPage } from "./support/browser.mjs";
import { column, eventually, totals } from "./support/look.mjs";
import { makeFarm } from "./support/made_farm.mjs";

const OWNED = { state: "owned", owner: "10.0.0.2:21000", ownerText: "shot 12" };
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

function withFarm(count, body, options) {
  return withPage(browser, [], async (page, server) => {
    makeFarm(server, count, 20);
    await page.reload();
    await waitUntil(page, (count) =>
      document.querySelectorAll("#table tbody tr").length === count, count);
    await body(page, server);
  }, options);
}

for (const colorScheme of ["light", "dark"]) {
  test(`200 nodes: ${colorScheme}`, async () => {
    await withFarm(200, async (page) => {
      await page.locator("#events li").first().waitFor();
      await screenshot(page, `farm-200-${colorScheme}`);
    }, { colorScheme });
  });
}

test("500 nodes that all change at once", async () => {
  await withFarm(500, async (page, server) => {
    await page.getByRole("button", { name: "State", exact: true }).click();
    for (const name of [...server.nodes.keys()]) server.change(name, OWNED, "changed");
    await eventually(async () => assert.equal((await totals(page)).owned, 500));
    assert.equal(new Set(await column(page, "state")).size, 1);
    await page.getByLabel("Filter").fill("render499");
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["render499:5130"]));
    await page.getByLabel("Filter").fill("");
    await screenshot(page, "farm-500");
  });
});
