import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

const externalLimit = (id, source) => ({
  evseId: 1,
  chargingProfile: {
    id, stackLevel: 0, chargingProfilePurpose: 'ChargingStationExternalConstraints', chargingProfileKind: 'Absolute',
    ...(source ? { chargingLimitSource: source } : {}),
    chargingSchedule: [{ id: 1, chargingRateUnit: 'A', chargingSchedulePeriod: [{ startPeriod: 0, limit: 16 }] }],
  },
});

test('limits the station sets itself and an EV\'s charging needs are reported to the CSMS', async (t) => {
  const s = await connect(t, { interval: 60 });
  s.csms.handle('NotifyEVChargingNeeds', () => ({ status: 'Accepted' }));
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));

  assert.equal((await s.station.command({ cmd: 'addProfile', request: externalLimit(5, 'EMS') })).rc, 1);
  const limit = await s.csms.waitForCall('NotifyChargingLimit');
  assert.deepEqual(limit.params, { evseId: 1, chargingLimit: { chargingLimitSource: 'EMS' } });
  assert.equal((await s.station.command({ cmd: 'addProfile', request: externalLimit(6) })).rc, 1);
  const other = await s.csms.waitForCall('NotifyChargingLimit', { count: 2 });
  assert.equal(other.params.chargingLimit.chargingLimitSource, 'Other');

  assert.equal((await s.station.command({ cmd: 'removeProfiles', evse: 1, source: 'CSO' })).rc, 0);
  assert.equal((await s.station.command({ cmd: 'removeProfiles', evse: 1, source: 'EMS' })).rc, 1);
  const cleared = await s.csms.waitForCall('ClearedChargingLimit');
  assert.deepEqual(cleared.params, { chargingLimitSource: 'EMS', evseId: 1 });

  // An EV starting ISO 15118 charging has its needs sent; an unknown profile choice stores nothing.
  const rc = await s.station.command({ cmd: 'requestProfile', evse: 1, mode: 'AC_three_phase' });
  assert.equal(rc.rc, 1, JSON.stringify(rc));
  const needs = await s.csms.waitForCall('NotifyEVChargingNeeds');
  assert.deepEqual(needs.params, { chargingNeeds: { requestedEnergyTransfer: 'AC_three_phase' }, evseId: 1 });
  assert.equal((await s.station.command({ cmd: 'selectSchedule', profileId: 42, scheduleIds: '1' })).rc, 0);
});
