import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';
import { test } from 'node:test';
import { waitUntil } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

// Raw answers the station sends, by message id.
function replies(client) {
  const byId = new Map();
  client.on('message', ({ message, outbound }) => {
    if (outbound) return;
    try {
      const frame = JSON.parse(String(message));
      if (frame[0] === 3 || frame[0] === 4) byId.set(frame[1], frame);
    } catch { /* not ours to judge */ }
  });
  return (id) => waitUntil(() => byId.get(id), 10000, `an answer to ${id}`);
}

const resetRecords = (s) => s.station.events.filter((e) => e.event === 'record' && e.name === 'Reset').length;

test('requests a strict CSMS could not send are refused at once and never reach the host', async (t) => {
  const s = await connect(t, { interval: 60 }, { messageTimeout: 30 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;
  const answerTo = replies(client);

  client.sendRaw(JSON.stringify([2, 'bad-type', 'Reset', { type: 'Sometime' }]));
  assert.deepEqual(await answerTo('bad-type'), [4, 'bad-type', 'TypeConstraintViolation', '', {}]);

  client.sendRaw(JSON.stringify([2, 'unknown', 'MakeCoffee', {}]));
  // At once: the message time-out is 30 s.
  assert.deepEqual(await answerTo('unknown'), [4, 'unknown', 'NotImplemented', '', {}]);

  // An error frame that happens to carry an action's name is not a request.
  client.sendRaw(JSON.stringify([4, 'not-a-call', 'Reset', '', {}]));
  const result = await client.call('GetVariables', {
    getVariableData: [{ component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }],
  });
  assert.equal(result.getVariableResult[0].attributeStatus, 'Accepted');
  await sleep(300);
  assert.equal(resetRecords(s), 0, 'the host was never asked to reset');
});

test('GetVariables of a connector the station does not have is answered UnknownComponent', async (t) => {
  const s = await connect(t, { interval: 60 });
  const declared = { component: 'Connector', variable: 'AvailabilityState', value: 'Available', mode: 'ReadOnly', evse: 1, connector: 1 };
  assert.equal((await s.station.command({ cmd: 'setVariableData', items: [declared] })).rc, 1);
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const asked = (connectorId) => ({ component: { name: 'Connector', evse: { id: 1, connectorId } }, variable: { name: 'AvailabilityState' } });
  // The strict CSMS checks the answer against its schema: an empty result list would fail the test.
  const answer = await s.csms.client.call('GetVariables', { getVariableData: [asked(9)] });
  assert.equal(answer.getVariableResult.length, 1);
  assert.equal(answer.getVariableResult[0].attributeStatus, 'UnknownComponent');
  assert.deepEqual(answer.getVariableResult[0].component.evse, { id: 1, connectorId: 9 });
  const known = await s.csms.client.call('GetVariables', { getVariableData: [asked(1)] });
  assert.deepEqual([known.getVariableResult[0].attributeStatus, known.getVariableResult[0].attributeValue], ['Accepted', 'Available']);
});
