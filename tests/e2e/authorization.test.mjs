import assert from 'node:assert/strict';
import { test } from 'node:test';
import { bootToOk, connect, explain } from './lib/fixture.mjs';
import { act } from './lib/sessions.mjs';

const entry = (idToken, status) => ({ idToken: { idToken, type: 'ISO14443' }, idTokenInfo: { status } });

async function authorize(station, idToken) {
  const r = await act(station, { cmd: 'authorize', token: idToken, type: 'ISO14443' });
  return [r.status, r.source];
}

// The decision rules themselves are the unit tests' (AuthorizeTest); here the host's
// authorize entry, its records and the real link around them.
test('Authorize answers reach the host, the CSMS keeps the local list, and offline the list decides', async (t) => {
  const s = await connect(t, { interval: 60 });
  await bootToOk(s).catch((e) => assert.fail(e.message + explain(s)));
  s.csms.handle('Authorize', () => ({
    idTokenInfo: { status: 'Accepted', personalMessage: { format: 'UTF8', content: 'Welcome back' } },
  }));

  assert.deepEqual(await authorize(s.station, 'CARD-1'), ['Accepted', 'csms']);
  assert.equal((await s.station.waitFor({ event: 'record', name: 'PersonalMsg' })).content, 'Welcome back');
  const sent = await s.csms.client.call('SendLocalList', {
    versionNumber: 1, updateType: 'Full', localAuthorizationList: [entry("O'NEIL", 'Accepted')],
  });
  assert.equal(sent.status, 'Accepted');
  // The station answers before it writes the list: a slow (sanitizer) build needs a moment.
  for (let i = 0; i < 100; i++) {
    const list = await s.station.command({ cmd: 'tokenList' });
    if ((list.items ?? []).some((item) => item.token === "O'NEIL")) break;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  assert.deepEqual(await authorize(s.station, "O'NEIL"), ['Accepted', 'localList']);

  // Once the link is really gone the host's list decides; which offline token passes is the unit tests'.
  await act(s.station, { cmd: 'setTokenList', items: [{ token: 'GOOD-L' }] });
  const mark = s.station.events.length;
  await s.csms.close();
  await s.station.waitForStatus('Disconnected', { timeoutMs: 10000, from: mark });
  assert.deepEqual(await authorize(s.station, 'GOOD-L'), ['Accepted', 'localList']);
  assert.deepEqual(await authorize(s.station, 'STRANGER'), ['None', 'none']);
});
