import assert from 'node:assert/strict';
import { rmSync } from 'node:fs';
import { test } from 'node:test';
import { waitUntil } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';
import { Station, tempDir } from './lib/sim.mjs';

const inSeconds = (s) => new Date(Date.now() + s * 1000).toISOString().replace(/\.\d+Z$/, 'Z');
const reserve = (id, token, expiresIn = 3600, extra = {}) => ({
  id, expiryDateTime: inSeconds(expiresIn), idToken: { idToken: token, type: 'ISO14443' }, ...extra,
});

async function stored(station) {
  const result = await station.command({ cmd: 'reservations' });
  assert.equal(result.rc, 1);
  return result.items.map((r) => [r.id, r.token]).sort((a, b) => a[0] - b[0]);
}

test('ReserveNow and CancelReservation are answered as the host decides, and the host sees what was asked', async (t) => {
  const s = await connect(t, { interval: 60 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;

  const accepted = await client.call('ReserveNow', reserve(11, 'TOKEN-A', 3600, { evseId: 1 }));
  assert.equal(accepted.status, 'Accepted');
  const record = await s.station.waitFor({ event: 'record', name: 'ReserveNow' });
  assert.deepEqual([record.id, record.evseId, record.idToken], [11, 1, 'TOKEN-A']);
  assert.ok(Math.abs(record.expiryDateTime - (Date.now() / 1000 + 3600)) < 10, String(record.expiryDateTime));

  await s.station.command({ cmd: 'policy', action: 'ReserveNow', status: 'Occupied' });
  assert.equal((await client.call('ReserveNow', reserve(12, 'TOKEN-B'))).status, 'Occupied');
  // The same id again replaces the earlier reservation.
  await s.station.command({ cmd: 'policy', action: 'ReserveNow', status: 'Accepted' });
  assert.equal((await client.call('ReserveNow', reserve(11, 'TOKEN-C'))).status, 'Accepted');
  // A refused reservation is kept until it ends, like an accepted one.
  assert.deepEqual(await stored(s.station), [[11, 'TOKEN-C'], [12, 'TOKEN-B']]);

  assert.equal((await client.call('CancelReservation', { reservationId: 11 })).status, 'Accepted');
  const cancel = await s.station.waitFor({ event: 'record', name: 'CancelReservation' });
  assert.equal(cancel.reservationId, 11);
  await s.station.command({ cmd: 'policy', action: 'CancelReservation', status: 'Rejected' });
  assert.equal((await client.call('CancelReservation', { reservationId: 99 })).status, 'Rejected');
  await s.station.command({ cmd: 'policy', action: 'CancelReservation', status: 'Error', code: 'NotSupported' });
  await assert.rejects(client.call('CancelReservation', { reservationId: 12 }), (e) => e.rpcErrorCode === 'NotSupported');
});

test('reservations survive a restart of the station; expired ones do not, and an ended one is reported to the CSMS', async (t) => {
  const cache = tempDir();
  const s = await connect(t, { interval: 60 }, { cache });
  t.after(() => rmSync(cache, { recursive: true, force: true }));  // after the station has stopped
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  assert.equal((await s.csms.client.call('ReserveNow', reserve(7, 'KEEP-ME', 3600, { evseId: 1 }))).status, 'Accepted');
  const shortLived = reserve(9, 'GONE-SOON', 2);
  assert.equal((await s.csms.client.call('ReserveNow', shortLived)).status, 'Accepted');
  assert.deepEqual(await stored(s.station), [[7, 'KEEP-ME'], [9, 'GONE-SOON']]);

  const exit = await s.station.stop();
  assert.deepEqual(exit, { code: 0, signal: null });
  await waitUntil(() => Date.now() > Date.parse(shortLived.expiryDateTime) + 1000, 5000, 'the short reservation to expire');
  s.station = new Station({ url: s.csms.url(), cache });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));

  // The store is rewritten from what was loaded: the live one is still there, the expired one is not.
  assert.equal((await s.csms.client.call('ReserveNow', reserve(8, 'NEW-ONE'))).status, 'Accepted');
  assert.deepEqual(await stored(s.station), [[7, 'KEEP-ME'], [8, 'NEW-ONE']]);

  // The host says reservation 7 expired: the CSMS is told and the station forgets it.
  const update = await s.station.command({ cmd: 'reservationStatus', id: 7, status: 'Expired' });
  assert.equal(update.rc, 1, JSON.stringify(update));
  const call = await s.csms.waitForCall('ReservationStatusUpdate');
  assert.deepEqual(call.params, { reservationId: 7, reservationUpdateStatus: 'Expired' });
  assert.deepEqual(await stored(s.station), [[8, 'NEW-ONE']]);

  assert.equal((await s.station.command({ cmd: 'reservationStatus', id: 8, status: 'Removed' })).rc, 1);
  assert.equal(s.csms.callsOf('ReservationStatusUpdate').at(-1).params.reservationUpdateStatus, 'Removed');
  assert.deepEqual(await stored(s.station), []);
  assert.equal((await s.station.command({ cmd: 'reservationStatus', id: 8, status: 'Lost' })).rc, 0);
});
