import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

test('boot accepted: the station reports connected, then OK, with its model and reason', async (t) => {
  const s = await connect(t, { boot: ['Accepted'], interval: 60 }, { connectors: 2 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const boot = s.csms.callsOf('BootNotification')[0];
  assert.equal(boot.params.reason, 'PowerUp');
  assert.equal(boot.params.chargingStation.model, 'SIM-1');
  assert.equal(boot.params.chargingStation.vendorName, 'Quorvane');
  assert.equal(s.csms.handshakes[0].identity, 'SIM001');
  assert.deepEqual(s.csms.handshakes[0].protocols, ['ocpp2.0.1']);
  const statuses = s.station.statuses();
  assert.ok(statuses.indexOf('Connected') < statuses.lastIndexOf('OK'), statuses.join(','));
  // The connectors the host reported before the link came up reach the CSMS once it is OK.
  const connectors = [];
  for (let n = 1; n <= 2; n++) {
    const { params } = await s.csms.waitForCall('StatusNotification', { count: n });
    connectors.push([params.evseId, params.connectorId, params.connectorStatus]);
  }
  assert.deepEqual(connectors.sort(), [[1, 1, 'Available'], [1, 2, 'Available']]);
});
