// Demonstration: a local CSMS (strict schema checks) and the station simulator
// boot, exchange heartbeats and one GetVariables/SetVariables round; every
// message is printed as it passes. Exits 0 when the whole round went through.
import { startCsms } from '../../tests/e2e/lib/csms.mjs';
import { Station } from '../../tests/e2e/lib/sim.mjs';

const interval = 3;
const show = (who, text, payload) =>
  console.log(`${new Date().toISOString().slice(11, 23)}  ${who.padEnd(8)} ${text}${payload ? ` ${JSON.stringify(payload)}` : ''}`);

const csms = await startCsms({ interval });
csms.on('handshake', (h) => show('CSMS', `connection from "${h.identity}" (${h.protocols.join(',')})`));
csms.on('call', (c) => show('station', `-> ${c.method}`, c.params));
const station = new Station({ url: csms.url(), id: 'DEMO001' });
let printed = 0;
const printStation = () => {
  for (; printed < station.events.length; printed++) {
    const e = station.events[printed];
    if (e.event === 'record' && e.type === 0) show('station', `SDK status ${e.statusName}`);
    else if (e.event === 'record') show('station', `host record ${e.name ?? e.type}`);
    else if (e.event === 'answer') show('station', `host answers ${e.action}: ${e.status}`);
  }
};
const printer = setInterval(printStation, 50);

async function call(method, params) {
  show('CSMS', `-> ${method}`, params);
  const result = await csms.client.call(method, params);
  await new Promise((r) => setTimeout(r, 20)); // let the station's own lines come first
  printStation();
  show('station', `<- ${method}`, result);
  return result;
}

let code = 0;
try {
  station.send({ cmd: 'setVariableData', items: [{ component: 'DemoCtrlr', variable: 'Greeting', value: 'hello' }] });
  station.send({ cmd: 'boot' });
  await station.waitForStatus('OK', { timeoutMs: 30000 });
  await csms.waitForCall('Heartbeat', { count: 2, timeoutMs: 4 * interval * 1000 });
  const component = (name, variable) => ({ component: { name }, variable: { name: variable } });
  await call('GetVariables', { getVariableData: [component('DemoCtrlr', 'Greeting'), component('OCPPCommCtrlr', 'OfflineThreshold')] });
  await call('SetVariables', { setVariableData: [{ ...component('DemoCtrlr', 'Greeting'), attributeValue: 'bonjour' }] });
  await call('GetVariables', { getVariableData: [component('DemoCtrlr', 'Greeting')] });
  if (csms.failures.length) throw new Error(`schema check failures: ${JSON.stringify(csms.failures)}`);
  show('demo', 'finished');
} catch (e) {
  console.error(`demo failed: ${e.message}\n${station.tail()}`);
  code = 1;
} finally {
  clearInterval(printer);
  printStation();
  await station.stop();
  await csms.close();
}
process.exit(code);
