// Runs the station simulator as a child process: commands go in as JSON lines,
// every line it prints comes back as an event.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import readline from 'node:readline';
import { fileURLToPath } from 'node:url';
import { waitUntil } from './csms.mjs';

const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../..');
export const simPath = process.env.OCPP_STATION_SIM ??
  path.join(root, 'build/examples/station-sim/ocpp_station_sim');

export function tempDir(prefix = 'ocpp-e2e-') {
  return mkdtempSync(path.join(tmpdir(), prefix));
}

export class Station {
  // args: { sim, url, id, profile, user, password, ca, cert, key, messageTimeout, backoff, logLevel, cache, evses, connectors }
  constructor(args) {
    this.cache = args.cache ?? tempDir();
    this.ownsCache = !args.cache;
    this.events = [];
    this.stderr = [];
    const argv = ['--url', args.url, '--cache', this.cache, '--id', args.id ?? 'SIM001',
      '--profile', String(args.profile ?? 0), '--log-level', String(args.logLevel ?? 2)];
    for (const [flag, key] of [['--user', 'user'], ['--password', 'password'], ['--ca', 'ca'], ['--cert', 'cert'],
      ['--key', 'key'], ['--message-timeout', 'messageTimeout'], ['--backoff', 'backoff'], ['--protocol', 'protocol'],
      ['--evses', 'evses'], ['--connectors', 'connectors']]) {
      if (args[key] !== undefined) argv.push(flag, String(args[key]));
    }
    this.proc = spawn(args.sim ?? simPath, argv, { stdio: ['pipe', 'pipe', 'pipe'] });
    this.exited = new Promise((resolve) => this.proc.once('exit', (code, signal) => resolve({ code, signal })));
    readline.createInterface({ input: this.proc.stdout }).on('line', (line) => {
      let event;
      try { event = JSON.parse(line); } catch { event = { event: 'text', text: line }; }
      event.at = Date.now();
      this.events.push(event);
    });
    readline.createInterface({ input: this.proc.stderr }).on('line', (line) => this.stderr.push(line));
  }

  send(cmd) { this.proc.stdin.write(`${JSON.stringify(cmd)}\n`); }

  // Resolves with the first event (at or after index `from`) that matches.
  waitFor(match, { timeoutMs = 15000, from = 0 } = {}) {
    const test = typeof match === 'function' ? match : (e) => Object.entries(match).every(([k, v]) => e[k] === v);
    return waitUntil(() => this.events.slice(from).find(test), timeoutMs, JSON.stringify(match.toString?.() ?? match));
  }

  statuses() {
    return this.events.filter((e) => e.event === 'record' && e.type === 0).map((e) => e.statusName);
  }

  waitForStatus(name, opts) {
    return this.waitFor((e) => e.event === 'record' && e.type === 0 && e.statusName === name, opts);
  }

  // Sends one command and resolves with its result line.
  async command(cmd, timeoutMs = 10000) {
    const from = this.events.length;
    this.send(cmd);
    return this.waitFor((e) => e.event === 'result' && e.cmd === cmd.cmd, { timeoutMs, from });
  }

  // Quits cleanly (stdin EOF), killing the process if it does not leave in time.
  async stop(timeoutMs = 8000) {
    if (this.proc.exitCode === null && this.proc.signalCode === null) {
      this.proc.stdin.end();
      const timer = setTimeout(() => this.proc.kill('SIGKILL'), timeoutMs);
      const result = await this.exited;
      clearTimeout(timer);
      this.exit = result;
    }
    if (this.ownsCache) rmSync(this.cache, { recursive: true, force: true });
    return this.exit;
  }

  // The last lines, to explain a failure.
  tail(n = 40) {
    return [...this.events.slice(-n).map((e) => JSON.stringify(e)), ...this.stderr.slice(-10)].join('\n');
  }
}
