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
