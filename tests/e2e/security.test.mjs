import assert from 'node:assert/strict';
import { readFileSync, rmSync } from 'node:fs';
import path from 'node:path';
import { test, before, after } from 'node:test';
import { makePki } from './lib/certs.mjs';
import { waitUntil } from './lib/csms.mjs';
import { bootToOk, connect, explain } from './lib/fixture.mjs';
import { tempDir } from './lib/sim.mjs';

const identity = 'SIMSEC01';
let pkiDir;
let pki;

before(() => {
  pkiDir = tempDir('ocpp-e2e-pki-');
  pki = makePki(pkiDir, identity);
});
after(() => rmSync(pkiDir, { recursive: true, force: true }));

test('security profile 1: the CSMS checks the Basic credentials', async (t) => {
  const s = await connect(t, { password: 'Secret-0123456789' }, { id: identity, profile: 1, password: 'Secret-0123456789' });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  assert.equal(s.csms.handshakes[0].password, 'Secret-0123456789');
  assert.ok(s.csms.handshakes[0].accepted);
});

test('security profile 1: a wrong password is refused and never reaches OK', async (t) => {
  const s = await connect(t, { password: 'Secret-0123456789' }, { id: identity, profile: 1, password: 'Wrong-0123456789' });
  await waitUntil(() => s.csms.handshakes.length >= 1 || undefined, 15000, 'a handshake');
  await new Promise((r) => setTimeout(r, 1500));
  assert.ok(s.csms.handshakes.every((h) => !h.accepted));
  assert.equal(s.csms.clients.length, 0);
  assert.ok(!s.station.statuses().includes('OK'));
});

test('security profile 2: TLS against the test CA with Basic credentials', async (t) => {
  const s = await connect(t, { password: 'Secret-0123456789', tls: pki.server },
    { id: identity, profile: 2, password: 'Secret-0123456789', ca: pki.caFile });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  assert.equal(s.csms.handshakes[0].password, 'Secret-0123456789');
});

test('security profile 3: the station presents its client certificate', async (t) => {
  const s = await connect(t, { tls: { ...pki.server, requireClientCert: true } },
    { id: identity, profile: 3, ca: pki.caFile, cert: pki.certFile, key: pki.keyFile });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  assert.equal(s.csms.handshakes[0].peerCn, identity);
});

test('a profile of a lower security profile is removed once a higher one has connected', async (t) => {
  const s = await connect(t, { password: 'Secret-0123456789', tls: pki.server, interval: 60 },
    { id: identity, profile: 2, password: 'Secret-0123456789', ca: pki.caFile, backoff: 4 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const store = path.join(s.station.cache, 'csmscfg.json');
  const slots = () => JSON.parse(readFileSync(store, 'utf8')).connectinfo.map((p) => p.id).sort();

  const answer = await s.csms.client.call('SetNetworkProfile', {
    configurationSlot: 2,
    connectionData: {
      ocppVersion: 'OCPP20', ocppTransport: 'JSON', ocppInterface: 'Wired0',
      ocppCsmsUrl: s.csms.url().replace('wss:', 'ws:'), messageTimeout: 10, securityProfile: 1,
    },
  });
  assert.equal(answer.status, 'Accepted');
  assert.deepEqual(slots(), [1, 2]);

  // Drop the link; on the next link-up the weaker slot goes.
  const clientsBefore = s.csms.clients.length;
  await s.csms.client.close({ code: 1001 });
  await s.csms.waitForClient({ count: clientsBefore + 1, timeoutMs: 20000 });
  await waitUntil(() => slots().length === 1 || undefined, 10000, 'slot 2 to be removed').catch(() => {});
  assert.deepEqual(slots(), [1]);
});
