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

// Boots the station and waits until it reports OK; a failure shows the station's last output.
export async function bootToOk(state, { timeoutMs = 20000 } = {}) {
  state.station.send({ cmd: 'boot' });
  try {
    await state.csms.waitForCall('BootNotification', { timeoutMs });
    await state.station.waitForStatus('OK', { timeoutMs });
  } catch (e) {
    assert.fail(e.message + explain(state));
  }
}

// connect() and bootToOk() in one.
export async function online(t, csmsOptions = { interval: 60 }, stationArgs = {}) {
  const state = await connect(t, csmsOptions, stationArgs);
  await bootToOk(state);
  return state;
}

// The CSMS goes away: the link is closed and every new handshake refused until back().
// Resolves with the station's Disconnected record.
export async function outage(state) {
  state.csms.options.password = 'closed';
  const from = state.station.events.length;
  await state.csms.client.close({ code: 1001, force: true });
  return state.station.waitForStatus('Disconnected', { from });
}

// Resolves with the OK record of the reconnect.
export async function back(state) {
  const from = state.station.events.length;
  delete state.csms.options.password;
  return state.station.waitForStatus('OK', { from, timeoutMs: 30000 }).catch((e) => assert.fail(e.message + explain(state)));
}

export function explain(state) {
  return `\n--- station output ---\n${state.station.tail()}`;
}
