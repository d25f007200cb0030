// A CSMS for the end-to-end tests: an ocpp-rpc server in strict mode that
// records every call the station makes and answers with scripted defaults.
import { EventEmitter, once } from 'node:events';
import { appendFileSync } from 'node:fs';
import https from 'node:https';
import rpc from 'ocpp-rpc';

const { RPCServer } = rpc;

export class Csms extends EventEmitter {
  // options: port (0 = ephemeral), password (Basic auth required when set),
  // tls { key, cert, ca, requireClientCert }, boot: list of boot answers used in
  // turn (the last one repeats), interval (heartbeat / boot retry seconds).
  constructor(options = {}) {
    super();
    this.options = options;
    this.boot = [...(options.boot ?? ['Accepted'])];
    this.interval = options.interval ?? 30;
    this.calls = [];        // every call from the station: { method, params, at, client }
    this.failures = [];     // strict validation failures; a test fails on any
    this.handshakes = [];   // { identity, password, protocols, peerCn, accepted }
    this.clients = [];
    this.handlers = new Map();
    this.server = new RPCServer({
      protocols: ['ocpp2.0.1', 'ocpp2.1'],
      strictMode: true,
      callTimeoutMs: 20000,
      pingIntervalMs: 60000,
    });
    this.server.auth((accept, reject, hs) => this.#authenticate(accept, reject, hs));
    this.server.on('client', (client) => this.#attach(client));
  }

  async listen(port = this.options.port ?? 0) {
    if (this.options.tls) {
      const { key, cert, ca, requireClientCert } = this.options.tls;
      this.http = https.createServer({ key, cert, ca, requestCert: !!requireClientCert,
        rejectUnauthorized: !!requireClientCert, minVersion: 'TLSv1.2' });
      this.http.on('upgrade', this.server.handleUpgrade);
      this.http.listen(port, '127.0.0.1');
      await once(this.http, 'listening');
    } else {
      this.http = await this.server.listen(port, '127.0.0.1');
    }
    this.port = this.http.address().port;
    return this;
  }

  url(path = '/ocpp') {
    return `${this.options.tls ? 'wss' : 'ws'}://127.0.0.1:${this.port}${path}`;
  }

  // Replaces the default answer for one action: fn({ params, client }) returns the result.
  handle(method, fn) { this.handlers.set(method, fn); }

  #authenticate(accept, reject, hs) {
    const peer = hs.request.socket.getPeerCertificate?.();
    const record = {
      identity: hs.identity,
      password: hs.password?.toString('utf8'),
      protocols: [...hs.protocols],
      peerCn: peer?.subject?.CN,
    };
    record.accepted = (this.options.password === undefined || record.password === this.options.password) &&
      (!this.options.tls?.requireClientCert || record.peerCn === hs.identity);
    this.handshakes.push(record);
    this.emit('handshake', record);
    if (record.accepted) accept({});
    else reject(401);
  }

  #attach(client) {
    this.clients.push(client);
    // OCPP_E2E_CAPTURE=file keeps every frame sent to the station, one per line (fuzzing seeds).
    const capture = process.env.OCPP_E2E_CAPTURE;
    if (capture) client.on('message', (m) => { if (m.outbound) appendFileSync(capture, `${m.message}\n`); });
    client.on('strictValidationFailure', (e) => {
      this.failures.push({ method: e.method, outbound: e.outbound, isCall: e.isCall, error: String(e.error) });
    });
    client.handle(({ method, params }) => {
      const call = { method, params, at: Date.now(), client };
      this.calls.push(call);
      this.emit('call', call);
      const custom = this.handlers.get(method);
      if (custom) return custom({ params, client });
      return this.#defaultAnswer(method);
    });
  }

  #defaultAnswer(method) {
    const currentTime = new Date().toISOString();
    if (method === 'BootNotification') {
      const status = this.boot.length > 1 ? this.boot.shift() : this.boot[0];
      return { currentTime, interval: this.interval, status };
    }
    if (method === 'Heartbeat') return { currentTime };
    if (method === 'Authorize') return { idTokenInfo: { status: 'Accepted' } };
    return method === 'DataTransfer' ? { status: 'Accepted' } : {};
  }

  callsOf(method) { return this.calls.filter((c) => c.method === method); }

  // Resolves with the count-th call of `method` (1-based), waiting up to timeoutMs.
  waitForCall(method, { count = 1, timeoutMs = 15000 } = {}) {
    return waitUntil(() => {
      const list = this.callsOf(method);
      return list.length >= count ? list[count - 1] : undefined;
    }, timeoutMs, `${count} x ${method}`);
  }

  get client() { return this.clients[this.clients.length - 1]; }

  async close() {
    await this.server.close({ force: true });
    if (this.options.tls && this.http) await new Promise((resolve) => this.http.close(resolve));
  }
}

export async function startCsms(options) {
  return new Csms(options).listen();
}

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Polls `probe` (cheap, in-memory) until it returns something other than undefined.
export async function waitUntil(probe, timeoutMs, what) {
  const started = Date.now();
  while (true) {
    const value = probe();
    if (value !== undefined && value !== false) return value;
    if (Date.now() - started > timeoutMs) throw new Error(`timed out after ${timeoutMs} ms waiting for ${what}`);
    await sleep(25);
  }
}
