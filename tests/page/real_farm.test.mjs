import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, openPage, screenshot, waitLive } from "./support/browser.mjs";
import { cell, eventually, styleColor, timelineColor, totals } from "./support/look.mjs";
import { RealFarm } from "./support/real_farm.mjs";

let browser;
let farm;
let page;
let first;
let second;

before(async () => {
  farm = new RealFarm();
  first = await farm.addDaemon("rack 1");
  second = await farm.addDaemon("rack 2");
  await farm.serve();
  browser = await launch();
  page = await openPage(browser, farm.url);
  await waitLive(page);
});

after(async () => {
  await browser?.close();
  await farm.close();
});

async function waitState(node, state, ownerText) {
  await eventually(async () => {
    assert.equal(await cell(page, node, "state").textContent(), state);
    assert.equal(await cell(page, node, "ownerText").textContent(), ownerText);
  });
}

/** Waits for the present state's color at the right end of the node's row in the timeline. */
async function waitColor(node, name) {
  const row = [first, second].sort().indexOf(node);
  await eventually(async () =>
    assert.equal(await timelineColor(page, row, 1), await styleColor(page, name)));
}

test("shows the nodes that the daemons describe", async () => {
  await waitState(first, "free", "");
  await waitState(second, "free", "");
  assert.equal(await cell(page, first, "alias").textContent(), "rack 1");
  assert.equal(await cell(page, first, "gpus").textContent(), "1");
  assert.equal(await cell(page, first, "slaveVersion").textContent(), "4000000");
  await eventually(async () =>
    assert.match(await cell(page, first, "roundTripMs").textContent(), /^[0-9.]+ ms$/));
  assert.equal((await totals(page)).free, 2);
});

test("follows a hold, a steal and the end of both", async () => {
  const holder = farm.take("hold", first, "holder");
  await waitState(first, "owned", "holder");
  await waitColor(first, "owner-0");
  const thief = farm.take("steal", first, "thief");
  await waitState(first, "owned", "thief");
  await waitColor(first, "owner-1");
  await thief.end();
  await holder.end();
  await waitState(first, "free", "");
  await page.goto(farm.url + "#/node/" + encodeURIComponent(first));
  await eventually(async () => {
    const texts = await page.locator("#history tbody tr td:last-child").allTextContents();
    const ended = texts.indexOf("thief");
    assert.ok(ended >= 0 && texts.indexOf("holder") > ended, String(texts));
  });
  await page.goBack();
});

test("follows the crash of a daemon and its return", async () => {
  await farm.killDaemon(second);
  await waitState(second, "disconnected", "");
  await waitColor(second, "away");
  assert.equal(await page.title(), "(1) Quelta farm");
  await page.locator("#events li[data-bad]", { hasText: second }).first().waitFor();
  await screenshot(page, "real-farm");
  farm.startDaemon(second);
  await waitState(second, "free", "");
});

test("reconnects after a restart of the farm view", async () => {
  await farm.stopServing();
  await page.locator("body.stale").waitFor();
  await farm.serve();
  await waitLive(page);
  await waitState(first, "free", "");
  await waitState(second, "free", "");
});

test("reported no error but the lost connections", () => {
  const expected = /ERR_CONNECTION|ERR_INCOMPLETE|ERR_EMPTY/;
  assert.deepEqual(page.errors.filter((error) => !expected.test(error)), []);
});
