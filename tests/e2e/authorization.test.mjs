import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';

const inSeconds = (s) => new Date(Date.now() + s * 1000).toISOString();
const token = (idToken) => ({ idToken, type: 'ISO14443' });
const entry = (idToken, status) => (status ? { idToken: token(idToken), idTokenInfo: { status } } : { idToken: token(idToken) });
const variable = (component, name) => ({ component: { name: component }, variable: { name } });

async function authorize(station, idToken) {
  const r = await station.command({ cmd: 'authorize', token: idToken, type: 'ISO14443' }, 15000);
  assert.equal(r.rc, 1, JSON.stringify(r));
  return [r.status, r.source];
}

async function listed(station) {
  const r = await station.command({ cmd: 'tokenList' });
  return r.items.map((i) => [i.token, i.status]).sort();
}

test('Authorize answers are cached, the CSMS keeps the local list and clears the cache, and offline the list decides', async (t) => {
  // Every library log line is shown, to check that none carries a token in clear.
  const s = await connect(t, { interval: 60 }, { logLevel: 0 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  const { client } = s.csms;
  const authorizes = () => s.csms.callsOf('Authorize').length;
  const answers = new Map([
    ['BLOCKED-1', { idTokenInfo: { status: 'Blocked' } }],
    ['SHORT-1', { idTokenInfo: { status: 'Accepted', cacheExpiryDateTime: inSeconds(2) } }],
    ['HELLO-1', { idTokenInfo: { status: 'Accepted', personalMessage: { format: 'UTF8', content: 'Welcome back' } } }],
  ]);
  s.csms.handle('Authorize', ({ params }) => answers.get(params.idToken.idToken) ?? { idTokenInfo: { status: 'Accepted' } });

  // Accepted online, then from the cache without asking again (LocalPreAuthorize is on).
  assert.deepEqual(await authorize(s.station, 'CARD-1'), ['Accepted', 'csms']);
  assert.deepEqual(await authorize(s.station, 'CARD-1'), ['Accepted', 'cache']);
  assert.equal(authorizes(), 1);
  assert.deepEqual(await authorize(s.station, 'BLOCKED-1'), ['Blocked', 'csms']);
  assert.deepEqual(await authorize(s.station, 'HELLO-1'), ['Accepted', 'csms']);
  assert.equal((await s.station.waitFor({ event: 'record', name: 'PersonalMsg' })).content, 'Welcome back');

  // A cached entry past its expiry answers Expired once post-authorization is off.
  assert.deepEqual(await authorize(s.station, 'SHORT-1'), ['Accepted', 'csms']);
  await new Promise((r) => setTimeout(r, 3000));
  await s.station.command({ cmd: 'setVariable', component: 'AuthCacheCtrlr', variable: 'DisablePostAuthorize', value: 'true' });
  assert.deepEqual(await authorize(s.station, 'SHORT-1'), ['Expired', 'cache']);
  await s.station.command({ cmd: 'setVariable', component: 'AuthCacheCtrlr', variable: 'DisablePostAuthorize', value: 'false' });

  // Local list: Full, Differential with the same version, a newer one with a removal, too many entries.
  const send = (versionNumber, updateType, list) =>
    client.call('SendLocalList', { versionNumber, updateType, localAuthorizationList: list });
  assert.equal((await send(1, 'Full', [entry('LIST-A', 'Accepted'), entry("O'NEIL", 'Accepted'), entry('LIST-B', 'Blocked')])).status, 'Accepted');
  assert.equal((await send(1, 'Differential', [entry('LIST-C', 'Accepted')])).status, 'VersionMismatch');
  assert.equal((await send(2, 'Differential', [entry('LIST-B'), entry('LIST-C', 'Accepted')])).status, 'Accepted');
  const many = Array.from({ length: 101 }, (_, i) => entry(`MANY-${i}`, 'Accepted'));
  assert.equal((await send(3, 'Full', many)).status, 'Failed');
  assert.equal((await client.call('GetLocalListVersion', {})).versionNumber, 2);
  assert.deepEqual(await listed(s.station), [['LIST-A', 'Accepted'], ['LIST-C', 'Accepted'], ["O'NEIL", 'Accepted']]);
  // Entries is written just after the list, on its own thread.
  let entries;
  for (let i = 0; i < 20 && entries !== '4'; i++) {
    if (i) await new Promise((r) => setTimeout(r, 100));
    const got = await client.call('GetVariables', { getVariableData: [variable('LocalAuthListCtrlr', 'Entries')] });
    entries = got.getVariableResult[0].attributeValue;
  }
  assert.equal(entries, '4', 'three tokens and the version row');

  // A token with an apostrophe through the local list and through the cache.
  assert.deepEqual(await authorize(s.station, "O'NEIL"), ['Accepted', 'localList']);
  assert.deepEqual(await authorize(s.station, "D'ARCY"), ['Accepted', 'csms']);
  assert.deepEqual(await authorize(s.station, "D'ARCY"), ['Accepted', 'cache']);
  const before = authorizes();

  // ClearCache empties the cache; with the cache disabled it is Rejected.
  assert.equal((await client.call('ClearCache', {})).status, 'Accepted');
  assert.deepEqual(await authorize(s.station, "D'ARCY"), ['Accepted', 'csms']);
  assert.equal(authorizes(), before + 1);
  const disable = await client.call('SetVariables', {
    setVariableData: [{ ...variable('AuthCacheCtrlr', 'Enabled'), attributeValue: 'false' }],
  });
  assert.equal(disable.setVariableResult[0].attributeStatus, 'Accepted');
  assert.equal((await client.call('ClearCache', {})).status, 'Rejected');

  const logged = s.station.events.filter((e) => e.event === 'log').map((e) => e.text);
  assert.ok(logged.some((text) => text.includes('Token:<')), 'the decision is logged');
  const clear = logged.filter((text) => /CARD-1|BLOCKED-1|SHORT-1|HELLO-1|LIST-[ABC]|O'NEIL|D'ARCY/.test(text));
  assert.deepEqual(clear, [], 'log lines show idTokens only as their hash');

  // Offline: an unknown token passes only with OfflineTxForUnknownIdEnabled, a blocked one never.
  const set = await s.station.command({ cmd: 'setTokenList', items: [{ token: 'BLOCKED-L', status: 'Blocked' }, { token: 'GOOD-L' }] });
  assert.equal(set.rc, 1);
  const mark = s.station.events.length;
  await s.csms.close();
  await s.station.waitForStatus('Disconnected', { timeoutMs: 10000, from: mark });

  assert.deepEqual(await authorize(s.station, 'GOOD-L'), ['Accepted', 'localList']);
  assert.deepEqual(await authorize(s.station, 'STRANGER'), ['None', 'none']);
  await s.station.command({ cmd: 'setVariable', component: 'AuthCtrlr', variable: 'OfflineTxForUnknownIdEnabled', value: 'true' });
  assert.deepEqual(await authorize(s.station, 'STRANGER'), ['Accepted', 'offlineUnknown']);
  assert.deepEqual(await authorize(s.station, 'BLOCKED-L'), ['Blocked', 'localList']);
});
