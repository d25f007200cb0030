import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

const greeting = { component: 'SimCtrlr', variable: 'Greeting', value: 'hello', mode: 'ReadWrite', dataType: 'string' };
const get = (component, variable) => ({ component: { name: component }, variable: { name: variable } });

test('GetVariables and SetVariables reach the library-owned and the host-owned variables', async (t) => {
  const s = await connect(t, { interval: 60 });
  assert.equal((await s.station.command({ cmd: 'setVariableData', items: [greeting] })).rc, 1);
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;

  const before = await client.call('GetVariables', {
    getVariableData: [get('SimCtrlr', 'Greeting'), get('OCPPCommCtrlr', 'OfflineThreshold'), get('NoSuchCtrlr', 'Nothing')],
  });
  const [hostOwned, libraryOwned, unknown] = before.getVariableResult;
  assert.deepEqual([hostOwned.attributeStatus, hostOwned.attributeValue], ['Accepted', 'hello']);
  assert.equal(libraryOwned.attributeStatus, 'Accepted');
  assert.match(libraryOwned.attributeValue, /^\d+$/);
  assert.equal(unknown.attributeStatus, 'UnknownComponent');

  const set = await client.call('SetVariables', {
    setVariableData: [
      { ...get('SimCtrlr', 'Greeting'), attributeValue: 'bonjour' },
      { ...get('OCPPCommCtrlr', 'OfflineThreshold'), attributeValue: '77' },
    ],
  });
  assert.deepEqual(set.setVariableResult.map((r) => r.attributeStatus), ['Accepted', 'Accepted']);
  // The host was asked to decide its own variable only.
  const record = await s.station.waitFor({ event: 'record', name: 'SetVariables' });
  assert.deepEqual(record.variables.map((v) => [v.variable, v.status === 6]), [['Greeting', true], ['OfflineThreshold', false]]);
  await s.station.waitFor({ event: 'answer', action: 'SetVariables' });

  const after = await client.call('GetVariables', {
    getVariableData: [get('SimCtrlr', 'Greeting'), get('OCPPCommCtrlr', 'OfflineThreshold')],
  });
  assert.deepEqual(after.getVariableResult.map((r) => r.attributeValue), ['bonjour', '77']);
});

test('a host-owned variable the host refuses is answered Rejected', async (t) => {
  const s = await connect(t, { interval: 60 });
  await s.station.command({ cmd: 'setVariableData', items: [greeting] });
  await s.station.command({ cmd: 'policy', action: 'SetVariables', status: 'Rejected' });
  await bootToOk(s);
  const set = await s.csms.client.call('SetVariables', {
    setVariableData: [{ ...get('SimCtrlr', 'Greeting'), attributeValue: 'nope' }],
  });
  assert.equal(set.setVariableResult[0].attributeStatus, 'Rejected');
  const after = await s.csms.client.call('GetVariables', { getVariableData: [get('SimCtrlr', 'Greeting')] });
  assert.equal(after.getVariableResult[0].attributeValue, 'hello');
});

test('a CSMS request the host never answers gets InternalError "Request Timeout" after the message timeout', async (t) => {
  const s = await connect(t, { interval: 60 }, { messageTimeout: 3 });
  await s.station.command({ cmd: 'policy', action: 'Reset', status: 'NoAnswer' });
  await bootToOk(s);
  const started = Date.now();
  await assert.rejects(s.csms.client.call('Reset', { type: 'OnIdle' }), (e) => {
    assert.equal(e.rpcErrorCode, 'InternalError');
    assert.equal(e.message, 'Request Timeout');
    return true;
  });
  const waited = Date.now() - started;
  assert.ok(waited >= 2500 && waited < 8000, `answered after ${waited} ms`);
  // The host was told about the request.
  assert.ok(s.station.events.some((e) => e.event === 'record' && e.name === 'Reset'));
});

test('host-answered requests follow the policy: Accepted by default, then what a command sets', async (t) => {
  const s = await connect(t, { interval: 60 });
  await bootToOk(s);
  const client = s.csms.client;
  assert.equal((await client.call('Reset', { type: 'Immediate' })).status, 'Accepted');
  await s.station.command({ cmd: 'policy', action: 'Reset', status: 'Rejected' });
  assert.equal((await client.call('Reset', { type: 'Immediate' })).status, 'Rejected');
  await s.station.command({ cmd: 'policy', action: 'UnlockConnector', status: 'Error', code: 'NotSupported' });
  await assert.rejects(client.call('UnlockConnector', { evseId: 1, connectorId: 1 }), (e) => e.rpcErrorCode === 'NotSupported');
});
