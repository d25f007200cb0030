import assert from 'node:assert/strict';
import { test } from 'node:test';
import { startCsms } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

// StatusNotifications the CSMS received, in order, as [evse/connector, status].
function statuses(csms) {
  return csms.callsOf('StatusNotification').map(({ params: p }) => [`${p.evseId}/${p.connectorId}`, p.connectorStatus]);
}

const pause = (ms) => new Promise((r) => setTimeout(r, ms));

// The OK record may reach the host before the report after it is sent: wait for `count`
// messages, then a little longer to see that no more follow.
async function settled(csms, count) {
  await csms.waitForCall('StatusNotification', { count, timeoutMs: 10000 });
  await pause(300);
  return statuses(csms);
}

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

// Which changes, with which times, is the unit tests' (ConnectorStatusTest); here the real reconnect.
test('a change during a short outage is sent once the station has reconnected', async (t) => {
  const s = await connect(t, { interval: 60 }, { evses: 2 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  await setOfflineThreshold(s, 60);
  const { ok } = await outage(s, async () => {
    const r = await s.station.command({ cmd: 'status', evse: 2, connector: 1, status: 'Faulted', errorCode: 'HighTemperature' });
    assert.equal(r.rc, 1, JSON.stringify(r));
  });
  const sent = await settled(s.csms, 1);
  assert.deepEqual(sent, [['2/1', 'Faulted']], explain(s));
  assert.equal(ok.statusChangeOption, 2);
});
