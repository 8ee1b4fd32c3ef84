// What a test sees on the page.

import { LIMIT_MS } from "./browser.mjs";

/** The texts of a column of the table, from top to bottom. */
export function column(page, key) {
  return page.locator(`#table tbody [data-key="${key}"]`).allTextContents();
}

export function cell(page, node, key) {
  return page.locator(`#table tr[data-node="${node}"] [data-key="${key}"]`);
}

/** The totals that are shown, as {state: number}. */
export function totals(page) {
  return page.locator("#states button:visible").evaluateAll((buttons) =>
    Object.fromEntries(buttons.map((button) =>
      [button.dataset.state, Number(button.querySelector("b").textContent)])));
}

/** The color in the middle of a row of the timeline, `fromRight` pixels from its right end. */
export function timelineColor(page, row, fromRight = 3) {
  return page.evaluate(([row, fromRight]) => {
    const canvas = document.querySelector("#timeline canvas");
    const named = document.getElementById("density").ariaPressed === "true";
    const height = named ? 16 : 4;
    const y = 20 + row * height + (named ? 7 : 1);
    const ratio = devicePixelRatio;
    const pixel = canvas.getContext("2d")
      .getImageData((canvas.clientWidth - fromRight) * ratio, y * ratio, 1, 1).data;
    return "#" + [...pixel.slice(0, 3)].map((part) => part.toString(16).padStart(2, "0")).join("");
  }, [row, fromRight]);
}

/** The value of a color of the page's style sheet. */
export function styleColor(page, name) {
  return page.evaluate((name) =>
    getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim(), name);
}

/** Waits for a condition outside the page. */
export async function eventually(check, limit = LIMIT_MS) {
  const deadline = Date.now() + limit;
  for (;;) {
    try {
      return await check();
    } catch (error) {
      if (Date.now() > deadline) throw error;
      await new Promise((done) => setTimeout(done, 50));
    }
  }
}
