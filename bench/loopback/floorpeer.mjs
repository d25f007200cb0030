// The floor under the raw round trip: in place of a station, a trivial peer in
// another process that only parses each CALL and sends back a fixed result.
// Run directly with a CSMS URL it is that peer; imported, it starts one.
import { spawn } from 'node:child_process';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';

const self = fileURLToPath(import.meta.url);

// Just what the benchmark asks of a station: a process, a wait for the link, a stop.
export function startFloorPeer(csms) {
  const proc = spawn(process.execPath, [self, csms.url()], { stdio: 'inherit' });
  return {
    proc,
    send: () => {},
    async waitForStatus() {
      while (!csms.socket) await new Promise((r) => setTimeout(r, 10));
    },
    async stop() {
      proc.kill();
    },
    tail: () => '',
  };
}

if (process.argv[1] === self) {
  const require = createRequire(createRequire(import.meta.url).resolve('ocpp-rpc'));
  const WebSocket = require('ws');
  const answer = { getVariableResult: [{ attributeStatus: 'Accepted', attributeValue: '300',
    component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }] };
  const ws = new WebSocket(process.argv[2], 'ocpp2.0.1');
  ws.on('message', (data) => {
    const frame = JSON.parse(data.toString());
    if (frame[0] === 2) ws.send(JSON.stringify([3, frame[1], answer]));
  });
  ws.on('close', () => process.exit(0));
}
