// Test PKI made with the openssl command: a CA, a server certificate for
// 127.0.0.1/localhost and a client certificate whose CN is the station identity.
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';

function openssl(args, cwd) {
  execFileSync('openssl', args, { cwd, stdio: ['ignore', 'ignore', 'pipe'] });
}

function issue(dir, name, subject, caName, extensions) {
  openssl(['req', '-newkey', 'rsa:2048', '-nodes', '-keyout', `${name}.key`, '-subj', subject, '-out', `${name}.csr`], dir);
  writeFileSync(path.join(dir, `${name}.ext`), extensions);
  openssl(['x509', '-req', '-in', `${name}.csr`, '-CA', `${caName}.pem`, '-CAkey', `${caName}.key`,
    '-CAcreateserial', '-days', '2', '-sha256', '-extfile', `${name}.ext`, '-out', `${name}.pem`], dir);
}

export function makePki(dir, identity) {
  openssl(['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', 'ca.key', '-subj', '/CN=E2E Test CA',
    '-days', '2', '-sha256', '-addext', 'basicConstraints=critical,CA:TRUE',
    '-addext', 'keyUsage=critical,keyCertSign,cRLSign', '-out', 'ca.pem'], dir);
  issue(dir, 'server', '/CN=localhost', 'ca',
    'subjectAltName=DNS:localhost,IP:127.0.0.1\nextendedKeyUsage=serverAuth\n');
  issue(dir, 'client', `/CN=${identity}`, 'ca', 'extendedKeyUsage=clientAuth\n');
  const file = (n) => path.join(dir, n);
  const read = (n) => readFileSync(file(n));
  return {
    caFile: file('ca.pem'), certFile: file('client.pem'), keyFile: file('client.key'),
    server: { key: read('server.key'), cert: read('server.pem'), ca: read('ca.pem') },
  };
}
