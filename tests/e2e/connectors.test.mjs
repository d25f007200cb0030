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
  if (count > 0) await csms.waitForCall('StatusNotification', { count, timeoutMs: 10000 });
  await pause(count > 0 ? 300 : 1000);
  return statuses(csms);
}

const key = (s) => `${s.evse}/${s.connector}`;
const keys = (list) => list.map(key).sort();

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

test('a connector status is sent once per real change: a repeat sends nothing, an error code alone sends one', async (t) => {
  const s = await connect(t, { interval: 60 }, { evses: 2 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  // Coming online the first time reports every connector.
  assert.deepEqual(keys(await settled(s.csms, 2)), ['1/1', '2/1']);
  assert.ok(statuses(s.csms).every((x) => x.status === 'Available'));

  // A report answers only after its message was answered, so the counts below are final.
  await report(s, 1, 1, 'Available');
  assert.equal(statuses(s.csms).length, 2, 'a repeated Available was sent again');
  await report(s, 1, 1, 'Occupied');
  await report(s, 1, 1, 'Occupied');
  assert.deepEqual(statuses(s.csms).slice(2).map((x) => x.status), ['Occupied']);
  await report(s, 2, 1, 'Faulted', 'GroundFailure');
  await report(s, 2, 1, 'Faulted', 'OverVoltage');
  await report(s, 2, 1, 'Faulted', 'OverVoltage');
  const after = statuses(s.csms).slice(3);
  assert.deepEqual(after.map((x) => [key(x), x.status]), [['2/1', 'Faulted'], ['2/1', 'Faulted']]);
  // Sent with the time of the report.
  for (const x of statuses(s.csms)) assert.ok(Math.abs(x.at - x.time) < 2000, `timestamp ${x.time} received ${x.at}`);
  // A connector never heard of before is created by its first report.
  await report(s, 3, 2, 'Unavailable');
  assert.deepEqual([key(statuses(s.csms).at(-1)), statuses(s.csms).at(-1).status], ['3/2', 'Unavailable']);
});

test('TriggerMessage StatusNotification reports one connector, one EVSE or all, and refuses unknown ones', async (t) => {
  const s = await connect(t, { interval: 60 }, { evses: 2, connectors: 2 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  await settled(s.csms, 4);
  await report(s, 2, 2, 'Occupied');
  const client = s.csms.client;
  const trigger = async (evse) => {
    const before = statuses(s.csms).length;
    const answer = await client.call('TriggerMessage', { requestedMessage: 'StatusNotification', ...(evse && { evse }) });
    return { answer: answer.status, before };
  };
  // The messages follow the answer: wait for them by count.
  const sentAfter = async ({ before }, count) => {
    await s.csms.waitForCall('StatusNotification', { count: before + count, timeoutMs: 10000 });
    return (await settled(s.csms, before + count)).slice(before);
  };

  const one = await trigger({ id: 2, connectorId: 2 });
  assert.equal(one.answer, 'Accepted');
  assert.deepEqual((await sentAfter(one, 1)).map((x) => [key(x), x.status]), [['2/2', 'Occupied']]);

  const evse = await trigger({ id: 1 });
  assert.equal(evse.answer, 'Accepted');
  assert.deepEqual(keys(await sentAfter(evse, 2)), ['1/1', '1/2']);

  const all = await trigger(undefined);
  assert.equal(all.answer, 'Accepted');
  const everything = await sentAfter(all, 4);
  assert.deepEqual(keys(everything), ['1/1', '1/2', '2/1', '2/2']);
  // Triggered reports carry the current time.
  for (const x of everything) assert.ok(Math.abs(x.at - x.time) < 2000);

  for (const unknown of [{ id: 3 }, { id: 1, connectorId: 3 }]) {
    const refused = await trigger(unknown);
    assert.equal(refused.answer, 'Rejected', JSON.stringify(unknown));
    await pause(300);
    assert.equal(statuses(s.csms).length, refused.before, 'a refused trigger sent statuses');
  }
  // The library answered these itself: the host never saw them.
  assert.ok(!s.station.events.some((e) => e.event === 'record' && e.name === 'TriggerMessage'));
});

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

test('after an outage longer than OfflineThreshold every connector is reported afresh and the cache is dropped', async (t) => {
  const s = await connect(t, { interval: 60 }, { evses: 2, connectors: 2 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  await setOfflineThreshold(s, 1);
  const { ok } = await outage(s, async () => {
    await report(s, 2, 1, 'Occupied');
    await pause(1500);  // longer than the threshold even without the back-off
  });
  const sent = await settled(s.csms, 4);
  assert.deepEqual(sent.map((x) => [key(x), x.status]).sort(),
    [['1/1', 'Available'], ['1/2', 'Available'], ['2/1', 'Occupied'], ['2/2', 'Available']], explain(s));
  for (const x of sent) assert.ok(Math.abs(x.at - x.time) < 2000, 'a full report carries the current time');
  assert.equal(ok.statusChangeOption, 1);

  // The dropped cache does not come back with the next short outage.
  await setOfflineThreshold(s, 60);
  await outage(s, async () => {});
  assert.deepEqual(await settled(s.csms, 0), [], explain(s));
});
