// A bare CSMS for round-trip timing: plain WebSocket, no schema checks and no
// promise chain per call, so the round trip measured is mostly the station's.
// It answers only what a booting station needs.
import { createRequire } from 'node:module';

// ws is what ocpp-rpc itself runs on; resolve it the way ocpp-rpc does.
const require = createRequire(createRequire(import.meta.url).resolve('ocpp-rpc'));
const { WebSocketServer } = require('ws');

function answerTo(method, interval) {
  const now = new Date().toISOString();
  switch (method) {
    case 'BootNotification': return { currentTime: now, interval, status: 'Accepted' };
    case 'Heartbeat': return { currentTime: now };
    default: return {};
  }
}

export async function startRawCsms({ interval = 60 } = {}) {
  const server = new WebSocketServer({ host: '127.0.0.1', port: 0,
    handleProtocols: (protocols) => (protocols.has('ocpp2.0.1') ? 'ocpp2.0.1' : false) });
  await new Promise((resolve) => server.once('listening', resolve));
  const csms = {
    socket: undefined,
    pending: new Map(),   // message id -> resolve
    nextId: 0,
    url: () => `ws://127.0.0.1:${server.address().port}/ocpp`,
    // Sends one CALL and resolves with the CALLRESULT payload text.
    call(action, payload) {
      const id = `b${this.nextId++}`;
      return new Promise((resolve, reject) => {
        this.pending.set(id, { resolve, reject });
        this.socket.send(`[2,"${id}","${action}",${JSON.stringify(payload)}]`);
      });
    },
    close: () => new Promise((resolve) => {
      for (const c of server.clients) c.terminate();
      server.close(resolve);
    }),
  };
  server.on('connection', (socket) => {
    csms.socket = socket;
    socket.on('message', (data) => {
      const frame = JSON.parse(data.toString());
      if (frame[0] === 2) {
        socket.send(JSON.stringify([3, frame[1], answerTo(frame[2], interval)]));
        return;
      }
      const waiter = csms.pending.get(frame[1]);
      if (!waiter) return;
      csms.pending.delete(frame[1]);
      if (frame[0] === 3) waiter.resolve(frame[2]);
      else waiter.reject(new Error(`CALLERROR ${JSON.stringify(frame)}`));
    });
  });
  return csms;
}
