import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

test('meter values outside a transaction reach a strict CSMS grouped by time, signed data included', async (t) => {
  const s = await connect(t, { interval: 60 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const t1 = 1700000000;
  const result = await s.station.command({
    cmd: 'meterValues', evse: 1, items: [
      { timestamp: t1, value: 16, measurand: 'Current.Import', phase: 'L1', unit: 'A' },
      { timestamp: t1, value: 2.5, measurand: 'Energy.Active.Import.Register', unit: 'kWh', multiplier: 3 },
      { timestamp: t1 + 60, value: 2501, signed: { data: 'OCMF|{}', method: 'ECDSA-secp256r1-SHA256', encoding: 'OCMF', publicKey: 'KEY' } },
    ],
  });
  assert.equal(result.rc, 1, explain(s));
  const call = await s.csms.waitForCall('MeterValues');
  assert.equal(call.params.evseId, 1);
  const [first, second] = call.params.meterValue;
  assert.equal(Date.parse(first.timestamp) / 1000, t1);
  assert.deepEqual(first.sampledValue.map((v) => [v.measurand, v.context, v.value]),
    [['Current.Import', 'Sample.Periodic', 16], ['Energy.Active.Import.Register', 'Sample.Periodic', 2.5]]);
  assert.deepEqual(first.sampledValue[1].unitOfMeasure, { unit: 'kWh', multiplier: 3 });
  assert.equal(second.sampledValue[0].signedMeterValue.signedMeterData, 'OCMF|{}');
});
