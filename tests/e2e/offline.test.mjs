// Transactions across outages against a strict CSMS: nothing lost, each
// transaction's events in seqNo order, offline events marked, refused tokens
// reported once, CALLERROR retried on a live link.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { sleep } from './lib/csms.mjs';
import { back, explain, online, outage } from './lib/fixture.mjs';
import { txEvents } from './lib/sessions.mjs';

const stationArgs = { backoff: 1, messageTimeout: 5 };
const eventsOf = (s, id) => txEvents(s.csms, id);

async function start(s) {
  const r = await s.station.command({ cmd: 'txStart', evse: 1, connector: 1, reason: 'CablePluggedIn',
    chargingState: 'EVConnected' });
  assert.equal(r.rc, 0, explain(s));
  return r.transactionId;
}
const update = (s, transactionId) => s.station.command({ cmd: 'txUpdate', transactionId, reason: 'ChargingStateChanged',
  chargingState: 'Charging' });
const end = (s, transactionId) => s.station.command({ cmd: 'txEnd', transactionId, reason: 'StopAuthorized',
  chargingState: 'Idle', stopReason: 'Local' });

test('a session started online and ended in an outage reaches the CSMS whole and in order; GetTransactionStatus sees the queue', async (t) => {
  const s = await online(t, { interval: 60 }, stationArgs);
  const id = await start(s);
  await s.csms.waitForCall('TransactionEvent');

  await outage(s);
  await update(s, id);
  await end(s, id);

  // While the replay waits for the CSMS, the station says events are still queued.
  let during;
  s.csms.handle('TransactionEvent', async ({ params, client }) => {
    if (during === undefined && params.offline) {
      during = await client.call('GetTransactionStatus', { transactionId: id });
    }
    return {};
  });
  await back(s);
  await s.csms.waitForCall('TransactionEvent', { count: 3 });
  const after = await s.csms.client.call('GetTransactionStatus', { transactionId: id });

  const events = eventsOf(s, id);
  assert.deepEqual(events.map((e) => [e.eventType, e.seqNo, !!e.offline]),
    [['Started', 0, false], ['Updated', 1, true], ['Ended', 2, true]], explain(s));
  assert.equal(during?.messagesInQueue, true, explain(s));
  assert.deepEqual(after, { ongoingIndicator: false, messagesInQueue: false });
});

test('a session held entirely offline is replayed in order after the boot and a refused token is reported once', async (t) => {
  const s = await online(t, { interval: 60 }, stationArgs);
  await outage(s);
  const id = await start(s);
  await update(s, id);
  await s.station.command({ cmd: 'securityEvent', type: 11 });

  s.csms.handle('TransactionEvent', ({ params }) =>
    (params.eventType === 'Started' ? { idTokenInfo: { status: 'Invalid' } } : {}));
  await back(s);
  await s.station.waitFor({ event: 'record', type: 39 }, { timeoutMs: 20000 }).catch((e) => assert.fail(e.message + explain(s)));

  // The simulator ends a session whose token was refused: that Ended comes online, after the replay.
  const events = eventsOf(s, id);
  assert.deepEqual(events.slice(0, 2).map((e) => [e.eventType, e.seqNo, e.offline]),
    [['Started', 0, true], ['Updated', 1, true]], explain(s));
  assert.deepEqual(events.map((e) => e.seqNo), events.map((_, i) => i));
  const tamper = s.csms.callsOf('SecurityEventNotification').find((c) => c.params.type === 'TamperDetectionActivated');
  assert.ok(tamper, 'the security event raised offline is sent in the replay');
  await sleep(500);
  assert.equal(s.station.events.filter((e) => e.event === 'record' && e.type === 39).length, 1);
});

test('a CALLERROR to an Updated event is retried under a new id on the live link, then the session goes on', async (t) => {
  const s = await online(t, { interval: 60 }, stationArgs);
  await s.station.command({ cmd: 'setVariable', component: 'OCPPCommCtrlr', variable: 'MessageAttemptInterval',
    variableInstance: 'TransactionEvent', value: '1' });
  let refused = 0;
  s.csms.handle('TransactionEvent', ({ params }) => {
    if (params.eventType === 'Updated' && refused++ === 0) {
      const error = new Error('not now');
      error.rpcErrorCode = 'InternalError';
      throw error;
    }
    return {};
  });
  const id = await start(s);
  await update(s, id);
  await end(s, id);
  await s.csms.waitForCall('TransactionEvent', { count: 4, timeoutMs: 20000 }).catch((e) => assert.fail(e.message + explain(s)));
  assert.deepEqual(eventsOf(s, id).map((e) => [e.eventType, e.seqNo]),
    [['Started', 0], ['Updated', 1], ['Updated', 1], ['Ended', 2]], explain(s));
});
