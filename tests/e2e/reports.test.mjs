// What a booted station reports reaches a strict CSMS: the boot and connectors,
// meter values, events and the EV's chosen schedule.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { explain, online } from './lib/fixture.mjs';

test('boot accepted: the station reports connected, then OK, with its model and reason', async (t) => {
  const s = await online(t, { interval: 60 }, { connectors: 2 });
  const boot = s.csms.callsOf('BootNotification')[0];
  assert.equal(boot.params.reason, 'PowerUp');
  assert.equal(boot.params.chargingStation.model, 'SIM-1');
  assert.equal(boot.params.chargingStation.vendorName, 'Quorvane');
  assert.equal(s.csms.handshakes[0].identity, 'SIM001');
  assert.deepEqual(s.csms.handshakes[0].protocols, ['ocpp2.0.1']);
  const statuses = s.station.statuses();
  assert.ok(statuses.indexOf('Connected') < statuses.lastIndexOf('OK'), statuses.join(','));
  // The connectors the host reported before the link came up reach the CSMS once it is OK.
  await s.csms.waitForCall('StatusNotification', { count: 2 });
  const connectors = s.csms.callsOf('StatusNotification').map(({ params: p }) => [p.evseId, p.connectorId, p.connectorStatus]);
  assert.deepEqual(connectors.sort(), [[1, 1, 'Available'], [1, 2, 'Available']]);
});

test('meter values outside a transaction reach a strict CSMS grouped by time, signed data included', async (t) => {
  const s = await online(t);
  const t1 = 1700000000;
  const result = await s.station.command({
    cmd: 'meterValues', evse: 1, items: [
      { timestamp: t1, value: 16, measurand: 'Current.Import', phase: 'L1', unit: 'A' },
      { timestamp: t1, value: 2.5, measurand: 'Energy.Active.Import.Register', unit: 'kWh', multiplier: 3 },
      { timestamp: t1 + 60, value: 2501, signed: { data: 'OCMF|{}', method: 'ECDSA-secp256r1-SHA256', encoding: 'OCMF', publicKey: 'KEY' } },
    ],
  });
  assert.equal(result.rc, 1, explain(s));
  const call = await s.csms.waitForCall('MeterValues');
  assert.equal(call.params.evseId, 1);
  const [first, second] = call.params.meterValue;
  assert.equal(Date.parse(first.timestamp) / 1000, t1);
  assert.deepEqual(first.sampledValue.map((v) => [v.measurand, v.context, v.value]),
    [['Current.Import', 'Sample.Periodic', 16], ['Energy.Active.Import.Register', 'Sample.Periodic', 2.5]]);
  assert.deepEqual(first.sampledValue[1].unitOfMeasure, { unit: 'kWh', multiplier: 3 });
  assert.equal(second.sampledValue[0].signedMeterValue.signedMeterData, 'OCMF|{}');
});

test('events and the EV\'s chosen schedule reach a strict CSMS', async (t) => {
  const s = await online(t);
  s.csms.handle('NotifyEVChargingSchedule', () => ({ status: 'Accepted' }));
  const events = await s.station.command({
    cmd: 'notifyEvent', events: [
      { eventId: 7, trigger: 'Alerting', actualValue: '40.5', component: 'EVSE', evse: 1, variable: 'Current',
        notificationType: 'CustomMonitor', monitoringId: 4, cleared: true, timestamp: 1700000000 },
    ],
  });
  assert.equal(events.rc, 1, explain(s));
  const call = await s.csms.waitForCall('NotifyEvent');
  const [event] = call.params.eventData;
  assert.deepEqual([event.eventId, Date.parse(event.timestamp) / 1000, event.cleared], [7, 1700000000, true]);
  assert.deepEqual(event.component, { name: 'EVSE', evse: { id: 1 } });

  const schedule = { id: 3, chargingRateUnit: 'W', chargingSchedulePeriod: [{ startPeriod: 0, limit: 7400 }] };
  const sent = await s.station.command({ cmd: 'evSchedule', evse: 1, timeBase: 1700000000, schedule });
  assert.equal(sent.rc, 1, explain(s));
  const notify = await s.csms.waitForCall('NotifyEVChargingSchedule');
  assert.equal(notify.params.chargingSchedule.chargingSchedulePeriod[0].limit, 7400);
});
