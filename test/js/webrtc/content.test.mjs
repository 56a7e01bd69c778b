// Sharing of content between participants in rooms of a real SFU. What is shared is on an X server of
// the test's own, and is recognised at the others by its colours.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { ScreenServer, yuvOf } from '../../support/screen_server.mjs';
import { CONTENT } from '../../support/streams.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const ROOM = 'meeting';
const MONITORS = [
  [640, 480],
  [800, 480],
];
const [GREY, GREEN] = ['#808080', '#20c040'];
const EVERYWHERE = [0.1, 0.5, 0.9].flatMap((x) => [0.1, 0.5, 0.9].map((y) => [x, y]));
const all = (colour) => EVERYWHERE.map((at) => ({ at, yuv: yuvOf(colour) }));

async function join(t, server, name, { environment, room = ROOM, ...overrides } = {}) {
  const member = await openMember(t, { environment });
  const uri = server.uri(room, { camera: 'card:1', microphone: 'tone:440' });
  const answer = await member.does('join', uri, { endpointName: name, ...overrides });
  assert.deepEqual(answer, { connected: true });
  return member;
}

const status = (member, value) => member.does('seen', 'screenShareStatus', { status: value });

async function requestToken(member) {
  await member.does('forget');
  await member.does('call', 'requestContentShareToken');
  const { status: answer } = await member.does('seen', 'screenShareStatus');
  return answer;
}

for (const [kind, room, hasNumbers] of [
  ['names', 'meeting', false],
  ['numbers', '4711', true],
]) {
  test(`one participant at a time has the token in a room of ${kind}`, async (t) => {
    const server = await startServer(t, { rooms: { [room]: { pin: 'secret' } }, hasNumbers });
    const enter = async (name) => {
      const member = await openMember(t);
      const access = { pin: 'secret', camera: 'card:1', microphone: 'tone:440' };
      assert.deepEqual(
        await member.does('join', server.uri(room, access), { endpointName: name }),
        {
          connected: true,
        },
      );
      return member;
    };
    const members = await Promise.all(['Ada', 'Zoë'].map(enter));
    const answers = await Promise.all(members.map(requestToken));
    assert.deepEqual([...answers].sort(), ['token_denied', 'token_granted']);
    const [holder, other] = answers[0] === 'token_granted' ? members : [...members].reverse();
    assert.equal(await requestToken(holder), 'token_granted');
    assert.equal(await requestToken(other), 'token_denied');

    await holder.does('call', 'releaseContentShareToken');
    await status(holder, 'token_relinquished');
    assert.equal(await requestToken(other), 'token_granted');
    assert.equal(await requestToken(holder), 'token_denied');
  });
}

test('the second of two monitors is shown to the others', async (t) => {
  const screens = await ScreenServer.start(t, MONITORS);
  await screens.paint(GREY);
  await screens.openWindow(GREEN, { x: 640, y: 0, width: 800, height: 480 });
  const server = await startServer(t, { rooms: { [ROOM]: {} } });
  const ada = await join(t, server, 'Ada', {
    ...{ environment: screens.environment, meetingGuid: 'guid of Ada' },
  });
  const zoe = await join(t, server, 'Zoë');
  assert.deepEqual(await ada.does('monitors', 2), [
    { x: 0, y: 0, width: 640, height: 480 },
    { x: 640, y: 0, width: 800, height: 480 },
  ]);
  assert.equal(await requestToken(ada), 'token_granted');
  await ada.does('call', 'startPresentation', { type: 'screen', screenId: 1 });
  await status(ada, 'started');
  for (const member of [ada, zoe]) {
    assert.deepEqual(await member.does('shows', CONTENT, all(GREEN)), { width: 800, height: 480 });
    await member.does('knows', 'Ada', { presenting: true });
  }
  const told = { isReceiving: true, presenterGuid: 'guid of Ada' };
  await zoe.does('seen', 'contentReceive', told);
  assert.equal(await requestToken(zoe), 'token_denied');

  await ada.does('call', 'startPresentation', { type: 'screen', screenId: 0 });
  assert.deepEqual(await zoe.does('shows', CONTENT, all(GREY)), { width: 640, height: 480 });

  await ada.does('call', 'stopPresentation');
  await status(ada, 'stopped');
  await zoe.does('seen', 'contentReceive', { ...told, isReceiving: false });
  await zoe.does('seen', 'streamRemoved', CONTENT);
  await zoe.does('knows', 'Ada', { presenting: false });
});
