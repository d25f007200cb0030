import assert from 'node:assert/strict';
import { test } from 'node:test';
import { waitUntil } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

// Raw frames the station sends back, by message id.
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

test('malformed and unknown CSMS requests get CALLERRORs and the station stays online', async (t) => {
  const s = await connect(t, { interval: 60 }, { messageTimeout: 3 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const client = s.csms.client;
  const answerTo = replies(client);

  client.sendRaw(JSON.stringify([2, 'badtype-1', 'Reset', { type: 42 }]));
  const badType = await answerTo('badtype-1');
  assert.equal(badType[0], 4);
  assert.ok(['FormatViolation', 'TypeConstraintViolation', 'PropertyConstraintViolation', 'OccurrenceConstraintViolation']
    .includes(badType[2]), badType[2]);

  for (const garbage of ['[2,', '{}', '[]', '[2,"x"]', '"\u0000"', 'x'.repeat(70000)]) client.sendRaw(garbage);

  // Still up and answering.
  const result = await client.call('GetVariables', {
    getVariableData: [{ component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }],
  });
  assert.equal(result.getVariableResult[0].attributeStatus, 'Accepted');
  assert.equal(s.station.proc.exitCode, null);
  assert.equal(s.station.statuses().at(-1), 'OK');
});
