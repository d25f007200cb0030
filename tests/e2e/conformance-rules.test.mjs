// Rules a certifying CSMS checks on top of the schemas.
import assert from 'node:assert/strict';
import { rmSync } from 'node:fs';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';
import { Station, tempDir } from './lib/sim.mjs';

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const comm = (variable) => ({ component: { name: 'OCPPCommCtrlr' }, variable: { name: variable } });
const reserve = (id) => ({
  id, expiryDateTime: new Date(Date.now() + 3600e3).toISOString(), idToken: { idToken: `T${id}`, type: 'ISO14443' },
});

test('a triggered BootNotification is sent while the station boots and refused once it is accepted', async (t) => {
  const s = await connect(t, { boot: ['Pending', 'Accepted'], interval: 60 });
  s.station.send({ cmd: 'boot' });
  await s.csms.waitForCall('BootNotification');
  const client = await s.csms.waitForClient();
  assert.equal((await client.call('TriggerMessage', { requestedMessage: 'BootNotification' })).status, 'Accepted');
  const triggered = await s.csms.waitForCall('BootNotification', { count: 2 });
  assert.equal(triggered.params.reason, 'Triggered');
  await s.station.waitForStatus('OK').catch((e) => assert.fail(e.message + explain(s)));

  assert.equal((await client.call('TriggerMessage', { requestedMessage: 'BootNotification' })).status, 'Rejected');
  await sleep(1000);
  assert.equal(s.csms.callsOf('BootNotification').length, 2, 'an accepted station does not boot again');
});

test('HeartbeatInterval holds the boot interval, and a SetVariables of it spaces the next heartbeats', async (t) => {
  const s = await connect(t, { interval: 60 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;
  const got = await client.call('GetVariables', { getVariableData: [comm('HeartbeatInterval')] });
  assert.deepEqual([got.getVariableResult[0].attributeStatus, got.getVariableResult[0].attributeValue], ['Accepted', '60']);

  const set = await client.call('SetVariables', {
    setVariableData: [{ ...comm('HeartbeatInterval'), attributeValue: '6' }],
  });
  assert.equal(set.setVariableResult[0].attributeStatus, 'Accepted');
  const before = s.csms.callsOf('Heartbeat').length;
  const first = await s.csms.waitForCall('Heartbeat', { count: before + 1, timeoutMs: 15000 });
  const second = await s.csms.waitForCall('Heartbeat', { count: before + 2, timeoutMs: 15000 });
  // Sent 2 s ahead of the interval, on a 2 s timer.
  const spacing = second.at - first.at;
  assert.ok(spacing >= 3000 && spacing <= 7000, `heartbeats ${spacing} ms apart`);
});

test('an accepted CancelReservation removes the reservation; a rejected one keeps it', async (t) => {
  const s = await connect(t, { interval: 60 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;
  const stored = async () => (await s.station.command({ cmd: 'reservations' })).items.map((r) => r.id).sort();
  assert.equal((await client.call('ReserveNow', reserve(21))).status, 'Accepted');
  assert.equal((await client.call('ReserveNow', reserve(22))).status, 'Accepted');

  assert.equal((await client.call('CancelReservation', { reservationId: 21 })).status, 'Accepted');
  assert.deepEqual(await stored(), [22]);
  await s.station.command({ cmd: 'policy', action: 'CancelReservation', status: 'Rejected' });
  assert.equal((await client.call('CancelReservation', { reservationId: 22 })).status, 'Rejected');
  assert.deepEqual(await stored(), [22]);
});

test('a station killed right after accepting a SetVariables comes back with the value it confirmed', async (t) => {
  const cache = tempDir();
  const s = await connect(t, { interval: 60 }, { cache });
  t.after(() => rmSync(cache, { recursive: true, force: true }));  // after the station has stopped
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const set = await s.csms.client.call('SetVariables', {
    setVariableData: [{ ...comm('OfflineThreshold'), attributeValue: '77' }],
  });
  assert.equal(set.setVariableResult[0].attributeStatus, 'Accepted');
  s.station.proc.kill('SIGKILL');
  await s.station.exited;

  s.station = new Station({ url: s.csms.url(), cache });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const got = await s.csms.client.call('GetVariables', { getVariableData: [comm('OfflineThreshold')] });
  assert.equal(got.getVariableResult[0].attributeValue, '77');
});
