import assert from 'node:assert/strict';
import { test } from 'node:test';
import { startCsms } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

// StatusNotifications the CSMS received, in order.
function statuses(csms) {
  return csms.callsOf('StatusNotification').map((c) => ({
    evse: c.params.evseId, connector: c.params.connectorId, status: c.params.connectorStatus,
    time: Date.parse(c.params.timestamp), at: c.at,
  }));
}

const pause = (ms) => new Promise((r) => setTimeout(r, ms));

// The OK record may reach the host before the report after it is sent: wait for `count`
// messages, then a little longer to see that no more follow.
async function settled(csms, count) {
  await csms.waitForCall('StatusNotification', { count, timeoutMs: 10000 });
  await pause(300);
  return statuses(csms);
}

const key = (s) => `${s.evse}/${s.connector}`;

async function setOfflineThreshold(s, seconds) {
  const answer = await s.csms.client.call('SetVariables', {
    setVariableData: [{ component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' },
      attributeValue: String(seconds) }],
  });
  assert.equal(answer.setVariableResult[0].attributeStatus, 'Accepted');
}

// Stops the CSMS, runs `whileAway` once the station knows it is offline, brings the CSMS back
// on the same port and resolves when the station is online again.
async function outage(s, whileAway) {
  const { port, failures } = s.csms;
  const before = s.station.events.length;
  await s.csms.close();
  const lost = await s.station.waitForStatus('Disconnected', { timeoutMs: 10000, from: before });
  const from = s.station.events.indexOf(lost);
  await whileAway();
  s.csms = await startCsms({ port, interval: 60 });
  s.csms.failures.push(...failures);
  const ok = await s.station.waitFor((e) => e.event === 'record' && e.type === 0 && e.statusName === 'OK',
    { from, timeoutMs: 25000 }).catch((e) => assert.fail(e.message + explain(s)));
  return { lost, ok };
}

async function report(s, evse, connector, status, errorCode = 'NoError') {
  const result = await s.station.command({ cmd: 'status', evse, connector, status, errorCode });
  assert.equal(result.rc, 1, JSON.stringify(result));
  return result.at;
}

test('changes during a short outage are sent from the cache, once per connector, with the time of the change', async (t) => {
  const s = await connect(t, { interval: 60 }, { evses: 3 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  await setOfflineThreshold(s, 60);
  let changedAt;
  const { lost, ok } = await outage(s, async () => {
    await report(s, 1, 1, 'Occupied');
    changedAt = await report(s, 1, 1, 'Available');  // the latest change of a connector wins
    await report(s, 2, 1, 'Faulted', 'HighTemperature');
    await report(s, 3, 1, 'Available');              // no change at all
  });
  const sent = await settled(s.csms, 2);
  assert.deepEqual(sent.map((x) => [key(x), x.status]), [['1/1', 'Available'], ['2/1', 'Faulted']], explain(s));
  for (const x of sent) {
    assert.ok(x.time >= lost.at - 1000 && x.time <= changedAt + 1000, `timestamp ${new Date(x.time).toISOString()}`);
    assert.ok(x.at - x.time >= 2000, 'sent with the reconnection time, not the change time');
  }
  assert.equal(ok.statusChangeOption, 2);
});
