import assert from 'node:assert/strict';
import { test } from 'node:test';
import { startCsms } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

test('the CSMS stopped and restarted: the station goes offline, reconnects after its back-off and boots again', async (t) => {
  const backoff = 5;
  const s = await connect(t, { interval: 60 }, { backoff });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const port = s.csms.port;
  const firstFailures = s.csms.failures;
  await s.csms.close();
  const lost = await s.station.waitForStatus('Disconnected', { timeoutMs: 10000 });
  await s.station.waitFor({ event: 'record', name: 'EnterOfflineMode' });

  // The same address comes back.
  s.csms = await startCsms({ port, interval: 60 });
  s.csms.failures.push(...firstFailures);
  const client = await s.csms.waitForClient({ timeoutMs: 20000 });
  assert.ok(client);
  const reconnectedAfter = (Date.now() - lost.at) / 1000;
  assert.ok(reconnectedAfter >= backoff - 1, `reconnected ${reconnectedAfter} s after the loss`);
  await s.csms.waitForCall('BootNotification', { timeoutMs: 15000 });
  const from = s.station.events.indexOf(lost);
  await s.station.waitFor((e) => e.event === 'record' && e.type === 0 && e.statusName === 'OK', { from, timeoutMs: 15000 });
  assert.equal(s.station.events.filter((e) => e.name === 'EnterOfflineMode').length, 1);
});
