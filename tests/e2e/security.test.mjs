import assert from 'node:assert/strict';
import { readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test, after } from 'node:test';
import { makePki } from './lib/certs.mjs';
import { bootToOk, connect, online } from './lib/fixture.mjs';
import { tempDir } from './lib/sim.mjs';

const identity = 'SIMSEC01';
const pkiDir = tempDir('ocpp-e2e-pki-');
const pki = makePki(pkiDir, identity);
after(() => rmSync(pkiDir, { recursive: true, force: true }));

test('security profile 3: the station presents its client certificate', async (t) => {
  const s = await online(t, { tls: { ...pki.server, requireClientCert: true } },
    { id: identity, profile: 3, ca: pki.caFile, cert: pki.certFile, key: pki.keyFile });
  assert.equal(s.csms.handshakes[0].peerCn, identity);
});

test('a profile of a lower security profile is removed once a higher one has connected', async (t) => {
  // A station provisioned with a TLS profile and a plain fallback of lower security.
  const cache = tempDir();
  t.after(() => rmSync(cache, { recursive: true, force: true }));
  const store = path.join(cache, 'csmscfg.json');
  const profile = (id, priority, conntype, url) => ({ id, priority, conntype, protocol: 1, messagetimeout: 10, url });
  const s = await connect(t, { password: 'Secret-0123456789', tls: pki.server, interval: 60 },
    { id: identity, profile: 2, password: 'Secret-0123456789', ca: pki.caFile, cache },
    (csms) => writeFileSync(store, JSON.stringify({
      connectinfo: [profile(1, 2, 2, csms.url()), profile(2, 1, 1, 'ws://127.0.0.1:9/ocpp')],
      connectpriority: '1,2', offlinetimesec: 0, isacceptedbycsms: 0,
    })));
  await bootToOk(s);
  const stored = JSON.parse(readFileSync(store, 'utf8'));
  assert.deepEqual(stored.connectinfo.map((p) => [p.id, p.conntype]), [[1, 2]]);
});
