import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import { installed, launch, screenshot, withPage } from "./support/browser.mjs";
import { makeFarm } from "./support/made_farm.mjs";

const AXE = readFileSync(installed.resolve("axe-core/axe.min.js"), "utf8");
const PHONE = { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true };
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

async function assertNothingFound(page) {
  await page.evaluate(AXE);
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  assert.deepEqual(violations.map(({ id, nodes }) =>
    id + ": " + nodes.map((node) => node.html).join(" ")), []);
}

/** A farm of 24 nodes with all states on a page with these options. */
function withFarm(options, body) {
  return withPage(browser, [], async (page, server) => {
    makeFarm(server, 24);
    await page.reload();
    await page.locator("#table tbody tr").first().waitFor();
    await page.locator("#events li").first().waitFor();
    await body(page, server);
  }, options);
}

for (const [name, options] of Object.entries({
  light: { colorScheme: "light" },
  dark: { colorScheme: "dark" },
  phone: { ...PHONE, colorScheme: "dark" },
})) {
  test(`axe finds nothing on the farm and on a node: ${name}`, async () => {
    await withFarm(options, async (page, server) => {
      await screenshot(page, `farm-${name}`);
      await assertNothingFound(page);
      await page.goto(server.url + "#/node/render003%3A5130");
      await page.locator("#history tbody tr").first().waitFor();
      await screenshot(page, `node-${name}`);
      await assertNothingFound(page);
    });
  });
}

for (const colorScheme of ["light", "dark"]) {
  test(`axe finds nothing on a stale and filtered page: ${colorScheme}`, async () => {
    await withFarm({ colorScheme, expectedErrors: /ERR_|Failed to load/ }, async (page, server) => {
      await page.getByLabel("Filter").fill("render00");
      await page.getByRole("button", { name: /^free/ }).click();
      await server.close();
      await page.locator("body.stale").waitFor();
      await screenshot(page, `stale-${colorScheme}`);
      await assertNothingFound(page);
      await server.listen();
    });
  });
}

test("fits a phone without scrolling sideways", async () => {
  await withFarm(PHONE, async (page, server) => {
    const tooWide = () => page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
    assert.ok(await tooWide() <= 0);
    await page.goto(server.url + "#/node/render003%3A5130");
    await page.locator("#history tbody tr").first().waitFor();
    assert.ok(await tooWide() <= 0);
  });
});

test("everything can be reached with the Tab key", async () => {
  await withFarm({}, async (page) => {
    const reached = new Set();
    for (let i = 0; i < 60; ++i) {
      await page.keyboard.press("Tab");
      reached.add(await page.evaluate(() => {
        const place = document.activeElement;
        return place.id || place.closest("[id]")?.id || place.tagName;
      }));
    }
    for (const id of ["states", "filter", "ranges", "density", "timeline", "table", "events"]) {
      assert.ok(reached.has(id), `${id} in ${[...reached]}`);
    }
  });
});

test("loads nothing from elsewhere and runs under its Content-Security-Policy", async () => {
  await withFarm({ expectedErrors: /Content Security Policy/ }, async (page, server) => {
    assert.deepEqual([...new Set(server.requests)].sort(),
      ["/", "/api/v1/events", "/api/v1/history"]);
    await page.evaluate(() => {
      const script = document.createElement("script");
      script.textContent = "document.title = 'injected'";
      document.body.append(script);
    });
    assert.doesNotMatch(await page.title(), /injected/);
    assert.ok(page.errors.some((error) => /Content Security Policy/.test(error)));
  });
});
