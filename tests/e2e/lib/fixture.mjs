// One CSMS and one station per test, both torn down when the test ends; the
// test fails if the CSMS saw any message its schemas refuse.
import assert from 'node:assert/strict';
import { startCsms } from './csms.mjs';
import { Station } from './sim.mjs';

// beforeStation(csms) may prepare the station's cache folder once the CSMS address is known.
export async function connect(t, csmsOptions = {}, stationArgs = {}, beforeStation = undefined) {
  const csms = await startCsms(csmsOptions);
  if (beforeStation) await beforeStation(csms);
  const station = new Station({ url: csms.url(), ...stationArgs });
  const state = { csms, station };
  t.after(async () => {
    const exit = await state.station.stop();
    await state.csms.close();
    assert.deepEqual(state.csms.failures, [], 'the CSMS refused messages of the station');
    // End of input is a clean shutdown (under the sanitizers: no leak, no error either).
    assert.deepEqual(exit, { code: 0, signal: null }, state.station.stderr.slice(-30).join('\n'));
  });
  return state;
}

// Boots the station and waits until it reports OK.
export async function bootToOk(state, { timeoutMs = 20000 } = {}) {
  state.station.send({ cmd: 'boot' });
  await state.csms.waitForCall('BootNotification', { timeoutMs });
  await state.station.waitForStatus('OK', { timeoutMs });
}

export function explain(state) {
  return `\n--- station output ---\n${state.station.tail()}`;
}
