import assert from 'node:assert/strict';
import { test } from 'node:test';
import { sleep, waitUntil } from './lib/csms.mjs';
import { back, explain, online, outage } from './lib/fixture.mjs';
import { setVariables } from './lib/sessions.mjs';

// Which changes, with which times, is the unit tests' (ConnectorStatusTest); here the real reconnect.
test('a change during a short outage is sent once the station has reconnected', async (t) => {
  const s = await online(t, { interval: 60 }, { evses: 2, backoff: 1 });
  assert.deepEqual(await setVariables(s.csms.client, 'OCPPCommCtrlr', { OfflineThreshold: 60 }), ['Accepted']);
  await outage(s);
  const r = await s.station.command({ cmd: 'status', evse: 2, connector: 1, status: 'Faulted', errorCode: 'HighTemperature' });
  assert.equal(r.rc, 1, JSON.stringify(r));
  const ok = await back(s);
  // Only what the reconnected link carried. The OK record may reach the host before the report
  // after it is sent: wait for one, then a little longer to see that no more follow.
  const link = s.csms.client;
  const onLink = () => s.csms.callsOf('StatusNotification').filter((c) => c.client === link);
  await waitUntil(() => onLink().length > 0, 10000, 'a StatusNotification after the reconnect');
  await sleep(300);
  const sent = onLink().map(({ params: p }) => [`${p.evseId}/${p.connectorId}`, p.connectorStatus]);
  assert.deepEqual(sent, [['2/1', 'Faulted']], explain(s));
  assert.equal(ok.statusChangeOption, 2);
});
