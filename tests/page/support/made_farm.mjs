// A made-up farm with a history, the same at every run except for the time of day.

import { iso, makeNode } from "./mock_server.mjs";

const OWNERS = [["10.0.0.2:21000", "artist 7, shot 12"], ["10.0.0.3:21000", "layout"],
  ["10.0.0.9:40110", "nightly comp"], ["10.0.0.12:33999", "lookdev: teapot"],
  ["10.0.0.14:21000", ""], ["10.0.0.15:21000", "fx"], ["10.0.0.16:21000", "td test"]];
const ALIASES = ["alpha", "beta", "workstation", ""];
const HOUR = 3600000;
const OWNERLESS = { owner: null, ownerText: null };

/** A generator of numbers from 0 to 1 that always gives the same ones. */
function makeChance(seed) {
  let state = seed;
  return () => (state = (state * 1103515245 + 12345) % 2147483648) / 2147483648;
}

function chooseState(chance) {
  const dice = chance();
  const [owner, ownerText] = OWNERS[Math.floor(chance() * chance() * OWNERS.length)];
  if (dice < 0.6) return { state: "owned", owner, ownerText };
  if (dice < 0.92) return { state: "free", ...OWNERLESS };
  if (dice < 0.94) return { state: "failed", owner, ownerText };
  return { state: dice < 0.97 ? "disconnected" : "silent", ...OWNERLESS };
}

/** Fills `server` with nodes that have changed now and then for some hours. */
export function makeFarm(server, count, hours = 5) {
  const chance = makeChance(7);
  const now = Date.now();
  server.begun = now - hours * HOUR;
  for (let number = 1; number <= count; ++number) {
    const entries = [];
    let state = { state: "free", ...OWNERLESS };
    for (let time = server.begun; time < now - 20000;) {
      entries.push({ time: iso(time), ...state });
      time += (chance() * hours / 4 + 0.02) * HOUR;
      state = chooseState(chance);
    }
    const name = `render${String(number).padStart(3, "0")}:5130`;
    const { time, ...fields } = entries.at(-1);
    const alias = ALIASES[number % 4] && `${ALIASES[number % 4]} ${number}`;
    server.nodes.set(name, makeNode(name, { ...fields, since: time, lastChange: time,
      alias, gpus: 1 + number % 4, roundTripMs: 0.3 + chance() * 2 }));
    server.history.set(name, entries);
  }
}
