import assert from 'node:assert/strict';
import { rmSync } from 'node:fs';
import { test } from 'node:test';
import { bootToOk, online as connectOnline } from './lib/fixture.mjs';
import { Station, tempDir } from './lib/sim.mjs';
import { act, assertSeqNos, brief, declareMeter, setVariables, txEvents, txPoints, waitForEvent } from './lib/sessions.mjs';

async function online(t, stationArgs = {}) {
  const s = await connectOnline(t, { interval: 60 }, stationArgs);
  t.after(() => assertSeqNos(s.csms));
  return s;
}

// The events of one transaction, briefly, once the last expected one has arrived.
async function session(csms, transactionId, last) {
  await waitForEvent(csms, { transactionId, ...last });
  return txEvents(csms, transactionId).map(brief);
}

const plug = { cmd: 'plug' };
const unplug = { cmd: 'unplug' };
const card = (token) => ({ cmd: 'token', token });

// Runs the session commands in turn; resolves with the first transaction id one returns.
async function steps(station, ...cmds) {
  let tx;
  for (const cmd of cmds) {
    const r = await act(station, cmd);
    tx ??= r.transactionId;
  }
  return tx;
}

test('the start and stop points decide which cable, token and charging events open and close a session', async (t) => {
  const { csms, station } = await online(t);
  const { client } = csms;
  const ended = { eventType: 'Ended' };

  // EVConnected: the cable opens the session; the token comes later; pulling the cable ends it.
  await txPoints(client, 'EVConnected', 'EVConnected');
  let tx = await steps(station, plug, card('CARD-1'), { cmd: 'charge', state: 'Charging', power: 7400, current: 32 }, unplug);
  assert.deepEqual(await session(csms, tx, ended), [
    ['Started', 'CablePluggedIn', 0], ['Updated', 'Authorized', 1], ['Updated', 'ChargingStateChanged', 2],
    ['Ended', 'EVCommunicationLost', 3]]);
  const [started, authorized, , end] = txEvents(csms, tx);
  assert.equal(started.idToken, undefined, 'no token before one is presented');
  assert.deepEqual([started.evse, started.transactionInfo.chargingState], [{ id: 1, connectorId: 1 }, 'EVConnected']);
  assert.equal(authorized.idToken.idToken, 'CARD-1');
  assert.deepEqual([end.transactionInfo.stoppedReason, end.transactionInfo.chargingState], ['EVDisconnected', 'Idle']);
  const told = await station.waitFor({ event: 'record', name: 'NotifyTransactionStart', transactionId: tx });
  assert.deepEqual([told.evseId, told.connectorId], [1, 1], 'the controller hears of the start');

  // Authorized: plugging in sends nothing; the token starts with seqNo 0 and stops by itself.
  await txPoints(client, 'Authorized', 'Authorized');
  tx = await steps(station, plug, card('CARD-2'));
  assert.equal((await act(station, card('CARD-2'))).action, 'stop');
  assert.deepEqual(await session(csms, tx, ended), [['Started', 'Authorized', 0], ['Ended', 'StopAuthorized', 1]]);
  const [byCard, stopped] = txEvents(csms, tx);
  assert.equal(byCard.idToken.idToken, 'CARD-2');
  assert.deepEqual([stopped.transactionInfo.stoppedReason, stopped.transactionInfo.chargingState],
    ['Local', 'EVConnected'], 'the card stops the energy, the car stays plugged in');
  await act(station, unplug);

  // PowerPathClosed: both the token and the cable, in either order.
  await txPoints(client, 'PowerPathClosed', 'PowerPathClosed');
  tx = await steps(station, card('CARD-3'), plug, unplug);
  assert.deepEqual(await session(csms, tx, ended), [['Started', 'CablePluggedIn', 0], ['Ended', 'EVCommunicationLost', 1]]);
  tx = await steps(station, plug, card('CARD-4'), card('CARD-4'));
  assert.deepEqual(await session(csms, tx, ended), [['Started', 'Authorized', 0], ['Ended', 'StopAuthorized', 1]]);
  await act(station, unplug);

  // EnergyTransfer: nothing until energy flows; a car that stops drawing ends it.
  await txPoints(client, 'EnergyTransfer', 'EnergyTransfer');
  tx = await steps(station, plug, card('CARD-5'), { cmd: 'charge', state: 'Charging', power: 11000 });
  assert.equal((await act(station, { cmd: 'charge', state: 'SuspendedEV' })).open, false);
  assert.deepEqual(await session(csms, tx, ended), [['Started', 'ChargingStateChanged', 0], ['Ended', 'ChargingStateChanged', 1]]);
  assert.equal(txEvents(csms, tx)[1].transactionInfo.stoppedReason, 'StoppedByEV');
  await act(station, unplug);

  // DataSigned: token and cable as for PowerPathClosed, the start told as signed data received.
  // It is a start point only: the stop points refuse it.
  await txPoints(client, 'DataSigned', 'EVConnected');
  tx = await steps(station, plug, card('CARD-6'), unplug);
  assert.deepEqual(await session(csms, tx, ended), [['Started', 'SignedDataReceived', 0], ['Ended', 'EVCommunicationLost', 1]]);
  assert.deepEqual(await setVariables(client, 'TxCtrlr', { TxStopPoint: 'DataSigned' }), ['Rejected']);
  assert.deepEqual((await station.command({ cmd: 'transactions' })).items, []);
});

test('a token presented after plugging in is taken or refused by the CSMS, and a car that never comes times out', async (t) => {
  const { csms, station } = await online(t);
  csms.handle('Authorize', ({ params }) => ({ idTokenInfo: { status: params.idToken.idToken === 'BAD' ? 'Blocked' : 'Accepted' } }));
  csms.handle('TransactionEvent', ({ params }) =>
    (params.idToken ? { idTokenInfo: { status: params.idToken.idToken === 'BAD' ? 'Blocked' : 'Accepted' } } : {}));

  let tx = (await act(station, plug)).transactionId;
  const refused = await act(station, card('BAD'), 0);
  assert.equal(refused.status, 'Blocked');
  assert.ok(!txEvents(csms, tx).some((e) => e.idToken), 'a blocked token never joins the session');
  await act(station, unplug);
  await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' });

  // A token the local list lets through but the CSMS blocks in its answer: the station stops charging.
  await act(station, { cmd: 'setTokenList', items: [{ token: 'BAD', status: 'Accepted' }] });
  tx = (await act(station, plug)).transactionId;
  assert.equal((await act(station, card('BAD'))).status, 'Accepted');
  assert.equal((await station.waitFor({ event: 'record', name: 'TransactionNotAccepted' })).transactionId, tx);
  const deauthorized = await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' });
  assert.deepEqual([brief(deauthorized), deauthorized.transactionInfo.stoppedReason],
    [['Ended', 'Deauthorized', 2], 'DeAuthorized']);
  await act(station, unplug);

  // Authorized without a car: after EVConnectionTimeOut the session ends on its own.
  assert.deepEqual(await setVariables(csms.client, 'TxCtrlr', { EVConnectionTimeOut: 2, TxStartPoint: 'Authorized' }),
    ['Accepted', 'Accepted']);
  tx = (await act(station, card('GOOD'))).transactionId;
  const timeout = await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' }, { timeoutMs: 8000 });
  assert.deepEqual([brief(timeout), timeout.transactionInfo.stoppedReason, timeout.transactionInfo.chargingState],
    [['Ended', 'EVConnectTimeout', 1], 'Timeout', 'Idle']);
  assert.deepEqual((await station.command({ cmd: 'transactions' })).items, []);
});

test('the CSMS starts and stops sessions remotely, with or without a charging profile', async (t) => {
  const { csms, station } = await online(t);
  const { client } = csms;
  const start = (remoteStartId, extra = {}) => client.call('RequestStartTransaction',
    { evseId: 1, remoteStartId, idToken: { idToken: `REMOTE-${remoteStartId}`, type: 'Central' }, ...extra });

  assert.equal((await start(7)).status, 'Accepted');
  const started = await waitForEvent(csms, { eventType: 'Started' });
  const tx = started.transactionInfo.transactionId;
  assert.deepEqual([started.triggerReason, started.transactionInfo.remoteStartId, started.idToken.idToken],
    ['RemoteStart', 7, 'REMOTE-7']);
  assert.equal((await client.call('RequestStopTransaction', { transactionId: tx })).status, 'Accepted');
  const stopped = await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' });
  assert.deepEqual([stopped.triggerReason, stopped.transactionInfo.stoppedReason], ['RemoteStop', 'Remote']);

  // The station refuses: nothing starts.
  await act(station, { cmd: 'policy', action: 'RequestStartTransaction', status: 'Rejected' });
  assert.equal((await start(8)).status, 'Rejected');
  await act(station, { cmd: 'policy', action: 'RequestStartTransaction', status: 'Accepted' });

  // A TxProfile in the request is stored before the session starts; the cable's session answers by its id.
  await act(station, plug);
  const plugged = (await station.command({ cmd: 'transactions' })).items[0].id;
  const chargingProfile = {
    id: 90, stackLevel: 0, chargingProfilePurpose: 'TxProfile', chargingProfileKind: 'Relative',
    chargingSchedule: [{ id: 1, chargingRateUnit: 'A', chargingSchedulePeriod: [{ startPeriod: 0, limit: 16 }] }],
  };
  const answer = await start(9, { chargingProfile });
  assert.deepEqual(answer, { status: 'Accepted', transactionId: plugged });
  await station.waitFor({ event: 'remoteStart', remoteStartId: 9 });
  const entries = await client.call('GetVariables', { getVariableData: [
    { component: { name: 'SmartChargingCtrlr' }, variable: { name: 'Entries', instance: 'ChargingProfiles' } }] });
  assert.equal(entries.getVariableResult[0].attributeValue, '1');
  await act(station, unplug);
  await waitForEvent(csms, { transactionId: plugged, eventType: 'Ended' });
  assert.ok(txEvents(csms, plugged).some((e) => e.transactionInfo.remoteStartId === 9), 'the session carries the remote start id');
});

test('a session is stopped by its own token, a token of its group or a master pass, which cannot start one', async (t) => {
  const { csms, station } = await online(t);
  const groups = { 'CARD-A': 'FLEET', 'CARD-B': 'FLEET', 'CARD-C': 'OTHER', MASTER: 'MASTERS' };
  csms.handle('Authorize', ({ params }) => ({ idTokenInfo: { status: 'Accepted',
    groupIdToken: { idToken: groups[params.idToken.idToken] ?? 'NONE', type: 'Central' } } }));
  assert.deepEqual(await setVariables(csms.client, 'AuthCtrlr', { MasterPassGroupId: 'MASTERS' }), ['Accepted']);
  await act(station, plug);
  const stop = async (token, expect) => {
    const r = await act(station, { cmd: 'token', token, reason: token === 'MASTER' ? 'MasterPass' : 'Local' }, expect ? 1 : 0);
    assert.equal(r.open, !expect, `${token} ${expect ? 'ends' : 'leaves'} the session`);
    return r;
  };

  let tx = (await act(station, card('CARD-A'))).transactionId;
  await stop('CARD-A', true);
  tx = (await act(station, card('CARD-A'))).transactionId;
  assert.equal((await stop('CARD-C', false)).status, 'Invalid');
  await stop('CARD-B', true);
  const byGroup = await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' });
  assert.equal(byGroup.transactionInfo.stoppedReason, 'Local');

  const master = await act(station, card('MASTER'), 0);
  assert.deepEqual([master.action, master.status, master.errorCode], ['start', 'Invalid', 1]);
  tx = (await act(station, card('CARD-C'))).transactionId;
  await stop('MASTER', true);
  const byMaster = await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' });
  assert.equal(byMaster.transactionInfo.stoppedReason, 'MasterPass');
  assert.equal(txEvents(csms).filter((e) => e.eventType === 'Started').length, 3, 'the master pass started nothing');
});

test('meter values while charging, periodic ones switched off by TxUpdatedInterval 0, and GetTransactionStatus after the end', async (t) => {
  const { csms, station } = await online(t);
  const { client } = csms;
  await declareMeter(station, 1);
  const tx = await steps(station, plug, card('CARD-M'), { cmd: 'charge', state: 'Charging', power: 7200, current: 31 });
  await act(station, { cmd: 'meter', energy: 1000, soc: 40, interval: 1 });
  const periodicCount = () => txEvents(csms, tx).filter((e) => e.triggerReason === 'MeterValuePeriodic').length;
  const periodic = await waitForEvent(csms, { transactionId: tx, triggerReason: 'MeterValuePeriodic' }, { count: 2 });
  const sampled = Object.fromEntries(periodic.meterValue[0].sampledValue.map((v) => [v.measurand ?? 'Energy.Active.Import.Register', v]));
  assert.deepEqual(Object.keys(sampled).sort(),
    ['Current.Import', 'Energy.Active.Import.Register', 'Power.Active.Import', 'SoC']);
  assert.deepEqual([sampled['Energy.Active.Import.Register'].value, sampled['Power.Active.Import'].value, sampled.SoC.value],
    [1004, 7200, 40]);
  assert.equal(sampled['Energy.Active.Import.Register'].context, 'Sample.Periodic');

  // TxUpdatedInterval 0: samples stop going out, a triggered reading still does. Events keep
  // their order, so what was sampled before the change is in once the first trigger arrives.
  assert.deepEqual(await setVariables(client, 'SampledDataCtrlr', { TxUpdatedInterval: 0 }), ['Accepted']);
  await act(station, { cmd: 'meter', soc: 50, trigger: 'Trigger' });
  await waitForEvent(csms, { transactionId: tx, triggerReason: 'Trigger' });
  const before = periodicCount();
  for (let i = 0; i < 2; i++) await station.waitFor({ event: 'meter', transactionId: tx }, { from: station.events.length });
  await act(station, { cmd: 'meter', soc: 55, trigger: 'Trigger' });
  const triggered = await waitForEvent(csms, { transactionId: tx, triggerReason: 'Trigger' }, { count: 2 });
  assert.equal(periodicCount(), before, 'no periodic sample once TxUpdatedInterval is 0');
  assert.ok(triggered.meterValue[0].sampledValue.some((v) => v.measurand === 'SoC' && v.value === 55));

  await act(station, unplug);
  await waitForEvent(csms, { transactionId: tx, eventType: 'Ended' });
  await station.waitFor({ event: 'meter', transactionId: tx, stopped: true });
  assert.deepEqual(await client.call('GetTransactionStatus', { transactionId: tx }),
    { ongoingIndicator: false, messagesInQueue: false });
  assert.deepEqual(await client.call('GetTransactionStatus', {}), { messagesInQueue: false });
});

test('a session open when the station restarts goes on with the same transaction id and the next seqNo', async (t) => {
  const cache = tempDir();
  t.after(() => rmSync(cache, { recursive: true, force: true }));
  const s = await online(t, { cache });
  const tx = await steps(s.station, plug, card('CARD-R'), { cmd: 'charge', state: 'Charging', power: 3700 });
  await waitForEvent(s.csms, { transactionId: tx, triggerReason: 'ChargingStateChanged' });
  assert.deepEqual(await s.station.stop(), { code: 0, signal: null });

  s.station = new Station({ url: s.csms.url(), cache });
  await bootToOk(s);
  const [kept] = (await s.station.command({ cmd: 'transactions' })).items;
  assert.deepEqual([kept.id, kept.token, kept.started], [tx, 'CARD-R', true]);
  await act(s.station, { cmd: 'meter', energy: 500 });
  await act(s.station, card('CARD-R'));
  assert.deepEqual(await session(s.csms, tx, { eventType: 'Ended' }), [
    ['Started', 'CablePluggedIn', 0], ['Updated', 'Authorized', 1], ['Updated', 'ChargingStateChanged', 2],
    ['Updated', 'Trigger', 3], ['Ended', 'StopAuthorized', 4]]);
});
