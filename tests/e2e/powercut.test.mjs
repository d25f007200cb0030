// Power cuts: the station runs sessions with meter values while the driver
// kills it (SIGKILL) at random instants and starts it again on the same cache
// folder. Nothing the library accepted may be lost: at the end every session
// the host started is ended at the CSMS, each session's seqNo run has no gap,
// and every store still loads. OCPP_POWERCUT_SEED repeats a run.
import assert from 'node:assert/strict';
import { readdirSync, readFileSync, rmSync, statSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { sleep, startCsms, waitUntil } from './lib/csms.mjs';
import { txEvents } from './lib/sessions.mjs';
import { Station, tempDir } from './lib/sim.mjs';

const seed = Number(process.env.OCPP_POWERCUT_SEED ?? (Date.now() % 1000000));
const kills = Number(process.env.OCPP_POWERCUT_KILLS ?? 30);

// Small, seeded, good enough for instants and choices.
function random(seedValue) {
  let x = seedValue >>> 0 || 1;
  return () => {
    x ^= x << 13; x >>>= 0; x ^= x >>> 17; x ^= x << 5; x >>>= 0;
    return x / 4294967296;
  };
}

test(`power cuts at random instants lose no accepted transaction event (seed ${seed})`, { timeout: 240000 }, async (t) => {
  console.log(`power-cut seed ${seed}, ${kills} kills`);
  const rand = random(seed);
  const csms = await startCsms({ interval: 60 });
  const cache = tempDir('ocpp-powercut-');
  t.after(async () => {
    await csms.close();
    rmSync(cache, { recursive: true, force: true });
  });
  const started = new Set();   // sessions the host opened
  const ended = new Set();     // sessions whose end the library accepted
  const accepted = new Map();  // session -> events the library accepted
  const power = () => {
    const station = new Station({ url: csms.url(), cache, backoff: 1, messageTimeout: 3, logLevel: 3 });
    station.proc.stdin.on('error', () => {});
    return station;
  };

  const run = async (station, untilMs) => {
    const gone = station.exited.then(() => { throw new Error('killed'); });
    gone.catch(() => {});
    const command = (cmd) => Promise.race([station.command(cmd, 3000), gone]);
    station.send({ cmd: 'boot' });
    await Promise.race([station.waitFor((e) => e.event === 'record' && e.type === 0, { timeoutMs: 10000 }), gone])
      .catch(() => {});
    const deadline = Date.now() + untilMs;
    let open;
    while (Date.now() < deadline && station.proc.exitCode === null && station.proc.signalCode === null) {
      try {
        if (!open) {
          const r = await command({ cmd: 'txStart', evse: 1, connector: 1, reason: 'CablePluggedIn',
            chargingState: 'EVConnected', items: [{ value: 0, measurand: 'Energy.Active.Import.Register' }] });
          if (r.rc === 0 && r.transactionId) {
            open = r.transactionId;
            started.add(open);
            accepted.set(open, 1);
          }
        } else if (rand() < 0.8) {
          const r = await command({ cmd: 'txUpdate', transactionId: open, reason: 'MeterValueClock',
            chargingState: 'Charging', items: [{ value: Math.round(rand() * 1e5), measurand: 'Energy.Active.Import.Register' }] });
          if (r.rc === 0) accepted.set(open, accepted.get(open) + 1);
        } else {
          const r = await command({ cmd: 'txEnd', transactionId: open, reason: 'StopAuthorized',
            chargingState: 'Idle', stopReason: 'Local' });
          if (r.rc === 0) {
            ended.add(open);
            accepted.set(open, accepted.get(open) + 1);
          }
          open = undefined;
        }
      } catch {
        return; // killed under the command
      }
      await sleep(rand() * 60);
    }
  };

  for (let i = 0; i < kills; ++i) {
    const station = power();
    const life = 300 + rand() * 2200;
    const cut = setTimeout(() => station.proc.kill('SIGKILL'), life);
    await run(station, life + 500);
    clearTimeout(cut);
    station.proc.kill('SIGKILL');
    await station.exited;
  }

  // Power stays on: the host ends what it still holds and the queue drains.
  const station = power();
  try {
    station.send({ cmd: 'boot' });
    await station.waitForStatus('OK', { timeoutMs: 30000 });
    for (const id of started) {
      if (ended.has(id)) continue;
      const r = await station.command({ cmd: 'txEnd', transactionId: id, reason: 'StopAuthorized',
        chargingState: 'Idle', stopReason: 'Local' });
      if (r.rc === 0) accepted.set(id, accepted.get(id) + 1);
    }
    await waitUntil(() => [...started].every((id) => txEvents(csms, id).some((e) => e.eventType === 'Ended')), 60000,
      'every session ended at the CSMS').catch(() => {});

    const why = `seed ${seed}\n${station.tail()}`;
    for (const id of started) {
      const events = txEvents(csms, id);
      assert.ok(events.some((e) => e.eventType === 'Ended'), `session ${id} never ended at the CSMS; ${why}`);
      const seqNos = [...new Set(events.map((e) => e.seqNo))].sort((a, b) => a - b);
      assert.deepEqual(seqNos, seqNos.map((_, i) => i), `session ${id} has a gap in its seqNos; ${why}`);
      assert.ok(seqNos.length >= accepted.get(id), `session ${id}: an accepted event is missing; ${why}`);
      assert.equal(events.filter((e) => e.eventType === 'Started').length >= 1, true);
    }
    assert.deepEqual(csms.failures, []);
    console.log(`${started.size} sessions, ${csms.callsOf('TransactionEvent').length} TransactionEvents at the CSMS`);

    // Every store still loads: the station came up on them, and they read back below.
    const r = await station.command({ cmd: 'getStatus' });
    assert.equal(r.status, 3, why);
  } finally {
    station.send({ cmd: 'quit' });
    await Promise.race([station.exited, sleep(8000)]);
    station.proc.kill('SIGKILL');
  }
  for (const dir of readdirSync(cache).map((name) => path.join(cache, name))) {
    if (!statSync(dir).isDirectory()) continue;
    for (const json of ['variablecache.json', 'reservation.json']) {
      const file = path.join(dir, json);
      try { JSON.parse(readFileSync(file, 'utf8')); } catch (e) { if (e.code !== 'ENOENT') assert.fail(`${file}: ${e.message}`); }
    }
    const db = readFileSync(path.join(dir, 'offline.db'));
    assert.equal(db.subarray(0, 16).toString('latin1'), 'SQLite format 3\0');
    assert.equal(statSync(path.join(dir, 'transactioncache.bin')).size % 132, 0);
  }
  JSON.parse(readFileSync(path.join(cache, 'csmscfg.json'), 'utf8'));
});
