// The browser under test: Debian's headless Chromium. Any error on a page fails the test that
// opened it, unless that test expects it.

import assert from "node:assert/strict";
import { mkdirSync } from "node:fs";
import { createRequire } from "node:module";
import { fileURLToPath } from "node:url";
import { MockServer } from "./mock_server.mjs";

const BUILD = new URL("../../../build/page/", import.meta.url);

/** Finds the packages of package.json, which are installed in the build folder. */
export const installed = createRequire(new URL("npm/package.json", BUILD));
export const SCREENSHOTS = fileURLToPath(new URL("screenshots/", BUILD));
export const LIMIT_MS = 90000; // guards against hangs only

const { chromium } = installed("playwright-core");
const EXECUTABLE = process.env.QUELTA_CHROMIUM ?? "/usr/bin/chromium-headless-shell";

export async function launch() {
  mkdirSync(SCREENSHOTS, { recursive: true });
  return chromium.launch({ executablePath: EXECUTABLE, args: ["--no-sandbox"] });
}

/** Opens the server's page; `errors` of the result collects what went wrong on it. */
export async function openPage(browser, url, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1440, height: 900 },
    timezoneId: "UTC", ...options });
  context.setDefaultTimeout(LIMIT_MS);
  const page = await context.newPage();
  page.errors = [];
  page.on("pageerror", (error) => page.errors.push(String(error)));
  page.on("console", (message) => {
    if (message.type() === "error") page.errors.push(message.text());
  });
  await page.goto(url);
  return page;
}

export async function waitLive(page) {
  await page.locator("body.live").waitFor();
}

/** Waits until `check` gives a true value in the page. */
export async function waitUntil(page, check, argument) {
  return page.waitForFunction(check, argument, { timeout: LIMIT_MS, polling: 50 });
}

export async function screenshot(page, name) {
  await page.screenshot({ path: `${SCREENSHOTS}${name}.png` });
}

/** Runs `body(page, server)` with the page of a mock server that has these nodes. The page must
    have reported no error by the end, except those that match `expectedErrors`. */
export async function withPage(browser, nodes, body, { expectedErrors = /^$/, ...options } = {}) {
  const server = await new MockServer(nodes).listen();
  const page = await openPage(browser, server.url, options);
  try {
    await waitLive(page);
    await body(page, server);
    assert.deepEqual(page.errors.filter((error) => !expectedErrors.test(error)), []);
  } finally {
    await page.context().close();
    await server.close();
  }
}
