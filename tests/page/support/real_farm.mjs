// Real daemons with stand-in slaves, a real `quelta_master serve`, and masters that take nodes.
// QUELTA_BIN_DIR names the folder with the programs.

import { spawn } from "node:child_process";
import { copyFileSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createSocket } from "node:dgram";
import { once } from "node:events";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";

const BIN = process.env.QUELTA_BIN_DIR;
const SERVING = /serving at (http:\/\/127\.0\.0\.1:(\d+)\/)/;
const SCENARIO = "[info]\nconnect\ninfo\nwait 300\nexit 0\n\n" +
  "[run]\nconnect\ninfo\nwait 2500\nbeat 1000\n";
const LOWEST = 20000; // below the ephemeral ports
const BLOCKS = 3000;
const BLOCK = 4; // the daemon's port and some for its slave

async function isFree(port) {
  const datagrams = createSocket("udp4");
  const server = createServer();
  try {
    datagrams.bind(port);
    await once(datagrams, "listening");
    server.listen(port, "0.0.0.0");
    await once(server, "listening");
    return true;
  } catch {
    return false;
  } finally {
    datagrams.close();
    server.close();
  }
}

async function freePort() {
  for (;;) {
    const port = LOWEST + BLOCK * Math.floor(Math.random() * BLOCKS);
    if (await isFree(port) && await isFree(port + 1)) return port;
  }
}

/** A child process with its output; `end` waits until it has exited. */
class Program {
  output = "";

  constructor(name, parameters, folder) {
    this.process = spawn(name, parameters, { cwd: folder, stdio: ["ignore", "pipe", "pipe"] });
    this.exit = new Promise((done) => this.process.on("close", done));
    for (const stream of [this.process.stdout, this.process.stderr]) {
      stream.on("data", (data) => { this.output += data; });
    }
  }

  async end(signal = "SIGINT") {
    this.process.kill(signal);
    await this.exit;
  }
}

export class RealFarm {
  #folder = mkdtempSync(join(tmpdir(), "quelta-page-"));
  #daemons = new Map(); // node to {folder, port, program}
  #masters = [];
  #view = null;
  #port = 0;
  url = null;

  /** Adds a node with a daemon; returns its name. */
  async addDaemon(alias) {
    const port = await freePort();
    const folder = join(this.#folder, String(port));
    mkdirSync(folder);
    for (const name of ["quelta_daemon", "quelta_standin_slave"]) {
      copyFileSync(join(BIN, name), join(folder, name));
    }
    writeFileSync(join(folder, "quelta_standin_slave.txt"), SCENARIO);
    const node = `127.0.0.1:${port}`;
    this.#daemons.set(node, { folder, port, alias });
    this.startDaemon(node);
    return node;
  }

  startDaemon(node) {
    const daemon = this.#daemons.get(node);
    daemon.program = new Program(join(daemon.folder, "quelta_daemon"), ["--port", daemon.port,
      "--slave", join(daemon.folder, "quelta_standin_slave"), "--alias", daemon.alias],
    daemon.folder);
  }

  async killDaemon(node) {
    await this.#daemons.get(node).program.end("SIGKILL");
  }

  /** Starts the farm view; the first start chooses the port, later ones use it again. */
  async serve() {
    this.#view = new Program(join(BIN, "quelta_master"),
      ["serve", "--http", `127.0.0.1:${this.#port}`, ...this.#daemons.keys()], this.#folder);
    while (!SERVING.test(this.#view.output)) {
      const ended = await Promise.race([this.#view.exit.then(() => true), pause(20)]);
      if (ended) throw new Error("the farm view has ended: " + this.#view.output);
    }
    [, this.url, this.#port] = SERVING.exec(this.#view.output);
  }

  async stopServing() {
    await this.#view.end();
  }

  /** Takes a node by `hold` or `steal`, under this text; returns the program. */
  take(command, node, text) {
    const program = new Program(join(BIN, "quelta_master"), [command, node, "--text", text],
      this.#folder);
    this.#masters.push(program);
    return program;
  }

  async close() {
    await Promise.all(this.#masters.map((master) => master.end()));
    if (this.#view) await this.#view.end();
    await Promise.all([...this.#daemons.values()].map(({ program }) => program.end()));
    rmSync(this.#folder, { recursive: true });
  }
}

function pause(milliseconds) {
  return new Promise((done) => { setTimeout(done, milliseconds); });
}
