// What a certifying CSMS checks: requests its schemas forbid, and the rules on top of them.
import assert from 'node:assert/strict';
import { rmSync } from 'node:fs';
import { test } from 'node:test';
import { waitUntil } from './lib/csms.mjs';
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

test('HeartbeatInterval holds the boot interval and a SetVariables of it spaces the next heartbeats; CancelReservation keeps what it rejects', async (t) => {
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

  // An accepted CancelReservation removes the reservation; a rejected one keeps it.
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

// Raw answers the station sends, by message id.
function replies(client) {
  const byId = new Map();
  client.on('message', ({ message, outbound }) => {
    if (outbound) return;
    try {
      const frame = JSON.parse(String(message));
      if (frame[0] === 3 || frame[0] === 4) byId.set(frame[1], frame);
    } catch { /* not ours to judge */ }
  });
  return (id) => waitUntil(() => byId.get(id), 10000, `an answer to ${id}`);
}

const resetRecords = (s) => s.station.events.filter((e) => e.event === 'record' && e.name === 'Reset').length;

test('requests a strict CSMS could not send are refused at once, never reach the host, and unknown connectors are named', async (t) => {
  const s = await connect(t, { interval: 60 }, { messageTimeout: 30 });
  const declared = { component: 'Connector', variable: 'AvailabilityState', value: 'Available', mode: 'ReadOnly', evse: 1, connector: 1 };
  assert.equal((await s.station.command({ cmd: 'setVariableData', items: [declared] })).rc, 1);
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;
  const answerTo = replies(client);

  client.sendRaw(JSON.stringify([2, 'bad-type', 'Reset', { type: 'Sometime' }]));
  assert.deepEqual(await answerTo('bad-type'), [4, 'bad-type', 'TypeConstraintViolation', '', {}]);

  client.sendRaw(JSON.stringify([2, 'unknown', 'MakeCoffee', {}]));
  // At once: the message time-out is 30 s.
  assert.deepEqual(await answerTo('unknown'), [4, 'unknown', 'NotImplemented', '', {}]);

  // An error frame that happens to carry an action's name is not a request.
  client.sendRaw(JSON.stringify([4, 'not-a-call', 'Reset', '', {}]));
  const asked = (connectorId) => ({ component: { name: 'Connector', evse: { id: 1, connectorId } }, variable: { name: 'AvailabilityState' } });
  // The strict CSMS checks the answer against its schema: an empty result list would fail the test.
  const answer = await client.call('GetVariables', { getVariableData: [asked(9)] });
  assert.equal(answer.getVariableResult.length, 1);
  assert.equal(answer.getVariableResult[0].attributeStatus, 'UnknownComponent');
  assert.deepEqual(answer.getVariableResult[0].component.evse, { id: 1, connectorId: 9 });
  const known = await client.call('GetVariables', { getVariableData: [asked(1)] });
  assert.deepEqual([known.getVariableResult[0].attributeStatus, known.getVariableResult[0].attributeValue], ['Accepted', 'Available']);
  await sleep(300);
  assert.equal(resetRecords(s), 0, 'the host was never asked to reset');
});
