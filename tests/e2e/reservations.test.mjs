import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

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
