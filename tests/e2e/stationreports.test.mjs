import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

test('events and the EV\'s chosen schedule reach a strict CSMS; a schedule it would refuse never leaves', async (t) => {
  const s = await connect(t);
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
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

  const refused = await s.station.command({ cmd: 'evSchedule', evse: 1, timeBase: 0, schedule: { id: 4 } });
  assert.equal(refused.rc, 0);
  assert.equal(s.csms.callsOf('NotifyEVChargingSchedule').length, 1);
  assert.deepEqual(s.csms.failures, []);
});
