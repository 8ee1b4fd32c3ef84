import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launch, waitLive, withPage } from "./support/browser.mjs";
import { cell, column, eventually } from "./support/look.mjs";
import { makeNode } from "./support/mock_server.mjs";

const OWNED = { state: "owned", owner: "10.0.0.2:21000", ownerText: "shot 12" };
const NETWORK_ERRORS = { expectedErrors: /ERR_|Failed to load resource/ };
let browser;

before(async () => { browser = await launch(); });
after(() => browser.close());

const events = (page) => page.locator("#events li .what").allTextContents();

test("says that the view is stale and comes back after a restart of the server", async () => {
  await withPage(browser, [makeNode("a:1"), makeNode("b:1")], async (page, server) => {
    await server.close();
    await page.locator("body.stale").waitFor();
    assert.match(await page.locator("#link-text").textContent(),
      /^Stale since \d\d:\d\d:\d\d; reconnecting$/);
    server.nodes.delete("b:1");
    server.history.delete("b:1");
    server.nodes.set("c:1", makeNode("c:1", OWNED));
    await server.listen();
    await waitLive(page);
    await eventually(async () => assert.deepEqual(await column(page, "node"), ["a:1", "c:1"]));
    assert.equal(await page.locator("#link-text").textContent(), "Live");
    assert.equal(server.viewers, 1);
  }, NETWORK_ERRORS);
});

test("says that the view is stale when an open connection brings nothing", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    server.isSilent = true;
    await page.locator("body.stale").waitFor();
    assert.equal(server.viewers, 1, "the connection is still open");
    server.isSilent = false;
    await waitLive(page);
  });
});

test("keeps trying when the server answers with an error", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    server.failsWith = 503;
    await server.close();
    await server.listen();
    await page.locator("body.stale").waitFor();
    const tries = () => server.requests.filter((path) => path === "/api/v1/events").length;
    await eventually(async () => assert.ok(tries() >= 3));
    server.failsWith = 0;
    await waitLive(page);
  }, NETWORK_ERRORS);
});

test("stops the clocks of a stale view", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    server.change("a:1", { state: "silent" });
    await eventually(async () =>
      assert.match(await cell(page, "a:1", "since").textContent(), /^[0-9]+ s$/));
    await server.close();
    await page.locator("body.stale").waitFor();
    const since = await cell(page, "a:1", "since").textContent();
    await page.waitForTimeout(2500); // the page redraws every second
    assert.equal(await cell(page, "a:1", "since").textContent(), since);
    await server.listen();
  }, NETWORK_ERRORS);
});

test("lists events, newest first, with what happened before the page was opened", async () => {
  await withPage(browser, [makeNode("a:1", OWNED)], async (page, server) => {
    await eventually(async () =>
      assert.deepEqual(await events(page), ["a:1 owned by 10.0.0.2:21000 (shot 12)"]));
    server.change("a:1", { owner: "10.0.0.3:7", ownerText: "" }, "changed");
    server.change("a:1", { state: "disconnected" }, "disconnected");
    await eventually(async () => assert.deepEqual(await events(page), ["a:1 disconnected",
      "a:1 owned by 10.0.0.3:7", "a:1 owned by 10.0.0.2:21000 (shot 12)"]));
    assert.equal(await page.locator("#events li[data-bad]").count(), 1);
  });
});

test("learns after a reconnection what it has missed, and repeats nothing", async () => {
  await withPage(browser, [makeNode("a:1")], async (page, server) => {
    server.change("a:1", OWNED, "changed");
    await eventually(async () => assert.equal((await events(page)).length, 2));
    await page.waitForTimeout(1200); // the server's next time says that nothing is missing so far
    await server.close();
    server.change("a:1", { state: "silent", owner: null, ownerText: null }, "silent");
    await server.listen();
    await eventually(async () => assert.deepEqual(await events(page),
      ["a:1 silent", "a:1 owned by 10.0.0.2:21000 (shot 12)", "a:1 free"]));
  }, NETWORK_ERRORS);
});

test("filters the events with the nodes", async () => {
  await withPage(browser, [makeNode("a:1"), makeNode("b:1", OWNED)], async (page) => {
    await eventually(async () => assert.equal((await events(page)).length, 2));
    await page.getByLabel("Filter").fill("b:1");
    await eventually(async () => assert.equal((await events(page)).length, 1));
  });
});
