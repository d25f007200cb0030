// Charging sessions as the CSMS sees them: the TransactionEvents of each
// transaction, the numbering they must keep, and the device-model settings
// the session tests change.
import assert from 'node:assert/strict';
import { waitUntil } from './csms.mjs';

const txOf = (params) => params.transactionInfo.transactionId;

// Every TransactionEvent the CSMS received, optionally only one transaction's.
export function txEvents(csms, transactionId) {
  const all = csms.callsOf('TransactionEvent').map((c) => c.params);
  return transactionId ? all.filter((e) => txOf(e) === transactionId) : all;
}

// [eventType, triggerReason, seqNo]: enough to read a session at a glance.
export const brief = (e) => [e.eventType, e.triggerReason, e.seqNo];

// Resolves with the count-th TransactionEvent that matches (fields of the event,
// `transactionId` for its transaction), waiting up to timeoutMs.
export function waitForEvent(csms, match, { count = 1, timeoutMs = 10000 } = {}) {
  const test = (e) => Object.entries(match).every(([k, v]) => (k === 'transactionId' ? txOf(e) : e[k]) === v);
  return waitUntil(() => txEvents(csms).filter(test)[count - 1], timeoutMs, `TransactionEvent ${JSON.stringify(match)}`);
}

// A station numbers each transaction's events 0, 1, 2 ... in the order they
// are sent, with no gap, whatever happens in between (restart included).
export function assertSeqNos(csms) {
  const byTx = new Map();
  for (const e of txEvents(csms)) byTx.set(txOf(e), [...(byTx.get(txOf(e)) ?? []), e.seqNo]);
  for (const [id, seqNos] of byTx) assert.deepEqual(seqNos, seqNos.map((_, i) => i), `seqNo of transaction ${id}`);
  for (const [id] of byTx) {
    const types = txEvents(csms, id).map((e) => e.eventType);
    assert.equal(types[0], 'Started', `transaction ${id} begins with Started`);
    assert.ok(!types.slice(0, -1).includes('Ended'), `nothing follows the Ended event of ${id}`);
  }
  return byTx.size;
}

// SetVariables from the CSMS on one component: values { name: value }; the statuses in order.
export async function setVariables(client, component, values) {
  const setVariableData = Object.entries(values).map(([name, value]) => ({
    component: { name: component }, variable: { name }, attributeValue: String(value),
  }));
  const answer = await client.call('SetVariables', { setVariableData });
  return answer.setVariableResult.map((r) => r.attributeStatus);
}

export async function txPoints(client, start, stop) {
  assert.deepEqual(await setVariables(client, 'TxCtrlr', { TxStartPoint: start, TxStopPoint: stop }),
    ['Accepted', 'Accepted'], `TxStartPoint ${start} / TxStopPoint ${stop}`);
}

// A station with a meter declares its sampling: periodic samples go out while
// TxUpdatedInterval is above 0.
export async function declareMeter(station, txUpdatedInterval) {
  const item = (variable, value, extra = {}) => ({ component: 'SampledDataCtrlr', variable, value: String(value), ...extra });
  const r = await station.command({ cmd: 'setVariableData', items: [
    item('Enabled', true, { dataType: 'boolean' }),
    item('Available', true, { dataType: 'boolean', mode: 'ReadOnly' }),
    item('TxUpdatedInterval', txUpdatedInterval, { dataType: 'integer', unit: 's' }),
  ] });
  assert.equal(r.rc, 1, JSON.stringify(r));
}

// Sends a session command and checks its rc.
export async function act(station, cmd, rc = 1) {
  const r = await station.command(cmd, 15000);
  assert.equal(r.rc, rc, `${JSON.stringify(cmd)} -> ${JSON.stringify(r)}`);
  return r;
}
