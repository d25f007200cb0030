// Loopback benchmark: a local CSMS and the station simulator on one machine.
// 1. After boot, the station idles for IDLE_S seconds (default 60): its resident
//    memory and the CPU time it used meanwhile are read from /proc.
// 2. The CSMS then sends CALLS GetVariables requests (default 10,000), one after
//    another; the round trip is measured at the CSMS.
// 3. With --replay N: the CSMS goes away, the station keeps one transaction's
//    Started and N Updated events offline, and the time from the CSMS's
//    return to the last replayed event arriving is measured.
// --csms raw swaps the strict ocpp-rpc CSMS for a bare WebSocket one, so the
// round trip is mostly the station's own. --sim PATH (repeatable) compares
// several simulator builds: steps 1 and 2 run for each in turn, --rounds times.
// --sim floor (raw CSMS only) stands a trivial peer in for a station: the round
// trip a station cannot go below on this machine.
// Usage: node bench/loopback/loopback.mjs [--calls N] [--idle S] [--replay N]
//        [--csms strict|raw] [--sim PATH ...] [--rounds R]
import { readFileSync } from 'node:fs';
import { startCsms } from '../../tests/e2e/lib/csms.mjs';
import { Station, simPath } from '../../tests/e2e/lib/sim.mjs';
import { startFloorPeer } from './floorpeer.mjs';
import { startRawCsms } from './rawcsms.mjs';

const arg = (name, fallback) => {
  const i = process.argv.indexOf(name);
  return i > 0 ? process.argv[i + 1] : fallback;
};
const calls = Number(arg('--calls', 10000));
const idleS = Number(arg('--idle', 60));
const replay = Number(arg('--replay', 0));
const raw = arg('--csms', 'strict') === 'raw';
const rounds = Number(arg('--rounds', 1));
const sims = process.argv.flatMap((a, i) => (a === '--sim' ? [process.argv[i + 1]] : []));
if (sims.length === 0) sims.push(simPath);
if (sims.includes('floor') && !raw) {
  console.error('--sim floor needs --csms raw');
  process.exit(2);
}
if (replay > 0 && (raw || sims.length > 1 || rounds > 1)) {
  console.error('--replay needs the strict CSMS and one simulator');
  process.exit(2);
}
const ticksPerSecond = 100; // USER_HZ on Linux

function proc(pid) {
  const status = readFileSync(`/proc/${pid}/status`, 'utf8');
  const kb = (key) => Number((status.match(new RegExp(`^${key}:\\s+(\\d+) kB`, 'm')) ?? [])[1] ?? NaN);
  // Fields after the command name, which may hold spaces: utime and stime are fields 14 and 15.
  const stat = readFileSync(`/proc/${pid}/stat`, 'utf8');
  const fields = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
  const cpuS = (Number(fields[11]) + Number(fields[12])) / ticksPerSecond;
  return { rssKb: kb('VmRSS'), hwmKb: kb('VmHWM'), threads: Number((status.match(/^Threads:\s+(\d+)/m) ?? [])[1]), cpuS };
}

const percentile = (sorted, p) => sorted[Math.min(sorted.length - 1, Math.ceil((p / 100) * sorted.length) - 1)];

// Strict checks stay on by default: they cost the CSMS, not the station, and keep the answers honest.
async function run(sim, label) {
  const csms = raw ? await startRawCsms({ interval: 60 }) : await startCsms({ interval: 60 });
  const station = sim === 'floor' ? startFloorPeer(csms)
    : new Station({ sim, url: csms.url(), id: 'BENCH001', logLevel: 3, backoff: 1 });
  const client = () => (raw ? csms : csms.client);
  let result;
  try {
    station.send({ cmd: 'boot' });
    await station.waitForStatus('OK', { timeoutMs: 30000 });
    const pid = station.proc.pid;

    if (idleS > 0) {
      const idleStart = proc(pid);
      await new Promise((r) => setTimeout(r, idleS * 1000));
      const idleEnd = proc(pid);
      console.log(`${label}idle ${idleS} s after boot: RSS ${idleEnd.rssKb} kB (peak ${idleEnd.hwmKb} kB), ` +
        `${idleEnd.threads} threads, CPU ${(idleEnd.cpuS - idleStart.cpuS).toFixed(2)} s ` +
        `(${(100 * (idleEnd.cpuS - idleStart.cpuS) / idleS).toFixed(2)} % of one core)`);
    }

    const request = { getVariableData: [{ component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }] };
    const times = new Float64Array(calls);
    const cpuBefore = proc(pid).cpuS;
    const started = process.hrtime.bigint();
    for (let i = 0; i < calls; i++) {
      const t0 = process.hrtime.bigint();
      const answer = await client().call('GetVariables', request);
      times[i] = Number(process.hrtime.bigint() - t0) / 1e6;
      if (answer.getVariableResult[0].attributeStatus !== 'Accepted') throw new Error(`call ${i}: ${JSON.stringify(answer)}`);
    }
    const wallS = Number(process.hrtime.bigint() - started) / 1e9;
    const after = proc(pid);
    const sorted = Array.from(times).sort((a, b) => a - b);
    result = { median: percentile(sorted, 50), p99: percentile(sorted, 99), cpuS: after.cpuS - cpuBefore };
    console.log(`${label}${calls} GetVariables in ${wallS.toFixed(1)} s: median ${result.median.toFixed(3)} ms, ` +
      `p99 ${result.p99.toFixed(3)} ms, max ${sorted[sorted.length - 1].toFixed(3)} ms; ` +
      `station CPU ${result.cpuS.toFixed(2)} s, RSS after ${after.rssKb} kB (peak ${after.hwmKb} kB)`);
    if (replay > 0) await replayStored(csms, station);
    if (!raw && csms.failures.length) throw new Error(`schema check failures: ${JSON.stringify(csms.failures.slice(0, 3))}`);
  } catch (e) {
    console.error(`${label}benchmark failed: ${e.message}\n${station.tail()}`);
    result = undefined;
  } finally {
    await station.stop();
    await csms.close();
  }
  return result;
}

async function replayStored(csms, station) {
  csms.options.password = 'away'; // refuse the reconnect until the CSMS is back
  await csms.client.close({ code: 1001, force: true });
  await station.waitForStatus('Disconnected');
  const tx = await station.command({ cmd: 'txStart', evse: 1, connector: 1, reason: 'CablePluggedIn',
    chargingState: 'EVConnected' });
  for (let i = 0; i < replay; i++) {
    await station.command({ cmd: 'txUpdate', transactionId: tx.transactionId, reason: 'MeterValueClock',
      chargingState: 'Charging', items: [{ value: i, measurand: 'Energy.Active.Import.Register' }] });
  }
  const before = csms.callsOf('TransactionEvent').length;
  const back = Date.now();
  delete csms.options.password;
  await csms.waitForCall('TransactionEvent', { count: before + replay + 1, timeoutMs: 120000 });
  const from = csms.calls.find((c) => c.method === 'BootNotification' && c.at >= back)?.at ?? back;
  const last = csms.callsOf('TransactionEvent')[before + replay].at;
  console.log(`replay of ${replay + 1} stored events: ${((last - from) / 1000).toFixed(2)} s from the accepted boot ` +
    `(${((last - back) / 1000).toFixed(2)} s from the CSMS's return, reconnect back-off included)`);
}

const results = sims.map(() => []);
let code = 0;
for (let r = 0; r < rounds; r++) {
  for (let s = 0; s < sims.length; s++) {
    const label = sims.length > 1 || rounds > 1 ? `[${sims[s]} round ${r + 1}] ` : '';
    const result = await run(sims[s], label);
    if (!result) code = 1;
    else results[s].push(result);
  }
}
if (sims.length > 1 || rounds > 1) {
  const mid = (xs) => [...xs].sort((a, b) => a - b)[Math.floor(xs.length / 2)];
  sims.forEach((sim, s) => {
    const rs = results[s];
    if (rs.length === 0) return;
    console.log(`${sim}: median of round medians ${mid(rs.map((x) => x.median)).toFixed(3)} ms, ` +
      `of round p99s ${mid(rs.map((x) => x.p99)).toFixed(3)} ms, station CPU ${mid(rs.map((x) => x.cpuS)).toFixed(2)} s`);
  });
}
process.exit(code);
