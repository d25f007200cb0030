// A CSMS that sends what no well-behaved one would, over a raw WebSocket: the
// station stays up, answers a valid request afterwards, gives its memory back
// and sits idle while nobody listens.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { createRequire } from 'node:module';
import { sleep, waitUntil } from './lib/csms.mjs';
import { Station, simPath } from './lib/sim.mjs';

const require = createRequire(import.meta.url);
const { WebSocketServer } = require('ws');

// Memory figures mean something only in a plain build: a sanitizer's allocator keeps what is freed.
const sim = readFileSync(simPath);
const sanitized = sim.includes('__asan_init') || sim.includes('__tsan_init');

function statusKb(pid, field) {
  const m = readFileSync(`/proc/${pid}/status`, 'utf8').match(new RegExp(`^${field}:\\s+(\\d+)`, 'm'));
  return m ? Number(m[1]) : -1;
}

// CPU seconds the process used so far (user + system, at 100 ticks a second).
function cpuSeconds(pid) {
  const stat = readFileSync(`/proc/${pid}/stat`, 'utf8');
  const fields = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
  return (Number(fields[11]) + Number(fields[12])) / 100;
}

class RawCsms {
  constructor() {
    this.mode = 'hold-boot';  // hold-boot | answer | slam
    this.received = [];
    this.accepted = 0;
    this.wss = new WebSocketServer({ host: '127.0.0.1', port: 0, maxPayload: 64 * 1024 * 1024,
      handleProtocols: (protocols) => (protocols.has('ocpp2.0.1') ? 'ocpp2.0.1' : false) });
    this.wss.on('connection', (ws) => this.#attach(ws));
  }

  async listening() {
    await new Promise((resolve) => this.wss.once('listening', resolve));
    this.port = this.wss.address().port;
    return this;
  }

  #attach(ws) {
    this.accepted += 1;
    if (this.mode === 'slam') { ws.close(); return; }
    this.ws = ws;
    ws.on('message', (data) => {
      const text = data.toString();
      this.received.push(text);
      let frame;
      try { frame = JSON.parse(text); } catch { return; }
      if (frame[0] === 2 && frame[2] === 'BootNotification' && this.mode === 'answer') {
        ws.send(JSON.stringify([3, frame[1], { currentTime: new Date().toISOString(), interval: 300, status: 'Accepted' }]));
      } else if (frame[0] === 2 && frame[2] !== 'BootNotification') {
        ws.send(JSON.stringify([3, frame[1], frame[2] === 'Heartbeat' ? { currentTime: new Date().toISOString() } : {}]));
      }
    });
  }

  count(match) { return this.received.filter(match).length; }
  answerTo(id) { return this.received.find((m) => m.startsWith(`[3,${JSON.stringify(id)},`) || m.startsWith(`[4,${JSON.stringify(id)},`)); }

  async close() {
    for (const c of this.wss.clients) c.terminate();
    await new Promise((resolve) => this.wss.close(resolve));
  }
}

const getVariables = (id) => JSON.stringify([2, id, 'GetVariables',
  { getVariableData: [{ component: { name: 'OCPPCommCtrlr' }, variable: { name: 'OfflineThreshold' } }] }]);

test('a hostile CSMS neither brings the station down nor leaves it holding memory or spinning', async (t) => {
  const csms = await new RawCsms().listening();
  const station = new Station({ url: `ws://127.0.0.1:${csms.port}/ocpp`, messageTimeout: 3 });
  t.after(async () => {
    await csms.close().catch(() => {});
    await station.stop();
  });
  const pid = station.proc.pid;
  const explain = () => `\n--- station output ---\n${station.tail()}`;

  // A CSMS that never answers BootNotification: the station asks again, and is answered at last.
  station.send({ cmd: 'boot' });
  await waitUntil(() => csms.count((m) => m.includes('"BootNotification"')) >= 1, 20000, 'BootNotification');
  await sleep(4000);
  csms.mode = 'answer';
  await waitUntil(() => csms.count((m) => m.includes('"BootNotification"')) >= 2, 60000, 'BootNotification again')
    .catch((e) => assert.fail(e.message + explain()));
  await station.waitForStatus('OK', { timeoutMs: 20000 }).catch((e) => assert.fail(e.message + explain()));

  const ws = csms.ws;
  ws.send(getVariables('warm-up'));
  await waitUntil(() => csms.answerTo('warm-up'), 10000, 'the warm-up answer');
  await sleep(500);
  const rssBefore = statusKb(pid, 'VmRSS');

  const big = 4 * 1024 * 1024;
  const hostile = [
    '[2,"trunc","GetVariables",{"getVariableData":[{"compo',   // cut mid-JSON
    '[2,"trunc2","Reset",{"type":"Imm',
    '["2","head1","Reset",{"type":"Immediate"}]',             // header of the wrong types
    '[2,7,"Reset",{"type":"Immediate"}]',
    '[2,"head3",5,{}]',
    '[2,"head4","Reset","payload"]',
    '[2,"head5","Reset",{"type":"Immediate"},"extra"]',
    '[99,"head6",{}]', '[2]', '[]', '{}', 'null', '"text"', '',
    '[2,"unknown-action","NoSuchAction",{}]',                  // unknown action
    `[2,"${'i'.repeat(100000)}","Reset",{"type":"Immediate"}]`, // huge message id
    '[2,"q\\"b\\\\s\\u0001","NoSuchAction",{}]',               // id that needs escapes
    '[3,"no-such-call",{}]', '[4,"no-such-call","GenericError","",{}]',  // answers nobody asked for
    `[2,"big-text","DataTransfer",{"vendorId":"v","data":"${'x'.repeat(big)}"}]`,  // 4 MiB frames
    `[2,"big-array","DataTransfer",{"vendorId":"v","data":[0${',0'.repeat(big / 2)}]}]`,
  ];
  for (const frame of hostile) ws.send(frame);
  ws.send(Buffer.from([0x00, 0xff, 0x5b, 0x32, 0x2c]), { binary: true });
  ws.send(Buffer.alloc(big, 0x5b), { binary: true });
  for (let i = 0; i < 10000; i++) ws.send(i % 2 ? `[3,"burst-${i}",{}]` : `[2,"burst-${i}","NoSuchAction",{}]`);

  ws.send(getVariables('after'));
  const answer = await waitUntil(() => csms.answerTo('after'), 60000, 'the GetVariables answer after the hostile frames')
    .catch((e) => assert.fail(e.message + explain()));
  const [, , payload] = JSON.parse(answer);
  assert.equal(payload.getVariableResult[0].attributeStatus, 'Accepted', answer);
  for (const id of ['big-text', 'big-array']) {
    assert.match(csms.answerTo(id) ?? '', /"FormatViolation"/, `a frame over the cap is refused by its id (${id})`);
  }
  assert.equal(csms.count((m) => m.startsWith('[4,"no-such-call"')), 0, 'an answer to no call is not answered');

  // Memory: back within 1 MB of where it started once the frames are gone.
  let rssAfter = 0;
  await waitUntil(() => {
    rssAfter = statusKb(pid, 'VmRSS');
    return sanitized || rssAfter - rssBefore <= 1024;
  }, 15000, 'resident memory back within 1 MB').catch(() => {});
  t.diagnostic(`VmRSS ${rssBefore} -> ${rssAfter} kB (peak VmHWM ${statusKb(pid, 'VmHWM')} kB)${sanitized ? ', sanitized build: not asserted' : ''}`);
  if (!sanitized) assert.ok(rssAfter - rssBefore <= 1024, `resident memory ${rssAfter - rssBefore} kB above where it started`);

  // A server that accepts and closes at once, again and again.
  csms.mode = 'slam';
  const acceptedBefore = csms.accepted;
  for (const c of csms.wss.clients) c.close();
  await waitUntil(() => csms.accepted >= acceptedBefore + 2, 30000, 'reconnects to a server that slams the door')
    .catch((e) => assert.fail(e.message + explain()));

  // Nobody listening: the station waits, it does not spin.
  await csms.close();
  await sleep(2000);
  const cpu0 = cpuSeconds(pid);
  const t0 = Date.now();
  await sleep(8000);
  const share = (cpuSeconds(pid) - cpu0) / ((Date.now() - t0) / 1000);
  t.diagnostic(`CPU while the port refuses connections: ${(share * 100).toFixed(2)} % of a core`);
  assert.ok(share < 0.02, `the station uses ${(share * 100).toFixed(1)} % of a core while nobody listens`);

  assert.equal(station.proc.exitCode, null, 'the station is still running' + explain());
  const exit = await station.stop();
  assert.deepEqual(exit, { code: 0, signal: null }, station.stderr.slice(-30).join('\n'));
});
