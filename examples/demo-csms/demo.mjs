// Demonstration: a local CSMS (strict schema checks) and the station simulator
// boot, exchange heartbeats and one GetVariables/SetVariables round, then
// charge a car once (plug, token, charging with meter values, stop); every
// message is printed as it passes. Exits 0 when the whole round went through.
import { startCsms } from '../../tests/e2e/lib/csms.mjs';
import { Station } from '../../tests/e2e/lib/sim.mjs';
import { assertSeqNos, declareMeter, waitForEvent } from '../../tests/e2e/lib/sessions.mjs';

const interval = 3;
const show = (who, text, payload) =>
  console.log(`${new Date().toISOString().slice(11, 23)}  ${who.padEnd(8)} ${text}${payload ? ` ${JSON.stringify(payload)}` : ''}`);

const csms = await startCsms({ interval });
csms.on('handshake', (h) => show('CSMS', `connection from "${h.identity}" (${h.protocols.join(',')})`));
// A TransactionEvent in one line: type, seqNo, trigger and the energy register.
const energy = (e) => {
  const v = (e.meterValue ?? []).flatMap((m) => m.sampledValue)
    .find((s) => (s.measurand ?? 'Energy.Active.Import.Register') === 'Energy.Active.Import.Register');
  return v ? `${v.value.toFixed(1)} Wh` : '-';
};
csms.on('call', (c) => {
  if (c.method !== 'TransactionEvent') { show('station', `-> ${c.method}`, c.params); return; }
  const e = c.params;
  show('station', `-> TransactionEvent ${e.eventType.padEnd(7)} seqNo ${String(e.seqNo).padEnd(2)} ${e.triggerReason.padEnd(20)} ` +
    `energy ${energy(e).padEnd(9)} ${e.transactionInfo.chargingState ?? ''}${e.transactionInfo.stoppedReason ? ` (${e.transactionInfo.stoppedReason})` : ''}`);
});
const station = new Station({ url: csms.url(), id: 'DEMO001' });
let printed = 0;
const printStation = () => {
  for (; printed < station.events.length; printed++) {
    const e = station.events[printed];
    if (e.event === 'record' && e.type === 0) show('station', `SDK status ${e.statusName}`);
    else if (e.event === 'record') show('station', `host record ${e.name ?? e.type}`);
    else if (e.event === 'answer') show('station', `host answers ${e.action}: ${e.status}`);
    else if (e.event === 'result' && session.has(e.cmd)) show('station', `host ${e.cmd}: rc ${e.rc}${e.status ? ` ${e.status}` : ''}`);
  }
};
const session = new Set(['plug', 'token', 'charge', 'meter', 'unplug']);
const printer = setInterval(printStation, 50);

// One charging session: the car plugs in, a card starts it, it charges with a sample every
// second, the card stops it and the car leaves.
async function chargeOnce() {
  show('demo', 'charging session');
  const command = async (cmd) => {
    const r = await station.command(cmd, 15000);
    if (r.rc !== 1) throw new Error(`${JSON.stringify(cmd)} failed: ${JSON.stringify(r)}`);
    return r;
  };
  await declareMeter(station, 1);
  await command({ cmd: 'plug' });
  const { transactionId } = await command({ cmd: 'token', token: 'DEMO-CARD' });
  await command({ cmd: 'charge', state: 'Charging', power: 22000, current: 32 });
  await command({ cmd: 'meter', energy: 0, soc: 20, interval: 1 });
  await waitForEvent(csms, { transactionId, triggerReason: 'MeterValuePeriodic' }, { count: 3 });
  await command({ cmd: 'token', token: 'DEMO-CARD' });
  await waitForEvent(csms, { transactionId, eventType: 'Ended' });
  await command({ cmd: 'unplug' });
  assertSeqNos(csms);
}

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
  await chargeOnce();
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
