// The floor under the raw round trip: the same bare CSMS and the same
// GetVariables calls, answered by a trivial peer in another process that only
// parses each CALL and sends back a fixed result. What the station adds to a
// round trip is its median minus this one, measured on the same machine.
// Usage: node bench/loopback/floor.mjs [--calls N] [--rounds R]
import { spawn } from 'node:child_process';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';
import { startRawCsms } from './rawcsms.mjs';

const arg = (name, fallback) => {
  const i = process.argv.indexOf(name);
  return i > 0 ? process.argv[i + 1] : fallback;
};

const peerUrl = arg('--peer', '');
if (peerUrl) {
  const require = createRequire(createRequire(import.meta.url).resolve('ocpp-rpc'));
  const WebSocket = require('ws');
  const answer = { getVariableResult: [{ attributeStatus: 'Accepted', attributeValue: '300',
    component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }] };
  const ws = new WebSocket(peerUrl, 'ocpp2.0.1');
  ws.on('message', (data) => {
    const frame = JSON.parse(data.toString());
    if (frame[0] === 2) ws.send(JSON.stringify([3, frame[1], answer]));
  });
  ws.on('close', () => process.exit(0));
} else {
  const calls = Number(arg('--calls', 5000));
  const rounds = Number(arg('--rounds', 3));
  const csms = await startRawCsms();
  const peer = spawn(process.execPath, [fileURLToPath(import.meta.url), '--peer', csms.url()], { stdio: 'inherit' });
  while (!csms.socket) await new Promise((r) => setTimeout(r, 10));
  const request = { getVariableData: [{ component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }] };
  for (let round = 1; round <= rounds; ++round) {
    const times = new Float64Array(calls);
    for (let i = 0; i < calls; ++i) {
      const t0 = process.hrtime.bigint();
      await csms.call('GetVariables', request);
      times[i] = Number(process.hrtime.bigint() - t0) / 1e6;
    }
    times.sort();
    const at = (p) => times[Math.min(calls - 1, Math.ceil((p / 100) * calls) - 1)];
    console.log(`[floor round ${round}] ${calls} GetVariables: median ${at(50).toFixed(3)} ms, p99 ${at(99).toFixed(3)} ms`);
  }
  await csms.close();
  peer.kill();
}
