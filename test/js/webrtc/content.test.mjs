// Sharing of content between participants in rooms of a real SFU. What is shared is on an X server of
// the test's own, and is recognised at the others by its colours.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { JanusAdministrator } from '../../support/janus_administrator.mjs';
import { startMonitoredServer } from '../../support/janus_monitor.mjs';
import { ScreenServer, yuvOf } from '../../support/screen_server.mjs';
import { CONTENT, LOCAL, remote } from '../../support/streams.mjs';
import { openMember, startServer } from '../../support/webrtc_room.mjs';

const ROOM = 'meeting';
const MONITORS = [
  [640, 480],
  [800, 480],
];
const [GREY, GREEN, RED, BLUE] = ['#808080', '#20c040', '#c02020', '#3030d0'];
const EVERYTHING = {
  ...{ contentStreamEnabled: true, incomingAudioEnabled: true, incomingVideoEnabled: true },
  ...{ outgoingAudioMuted: false, outgoingVideoMuted: false },
};
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

test('a killed presenter leaves the token to another participant at once', async (t) => {
  const screens = await ScreenServer.start(t, MONITORS);
  await screens.paint(GREY);
  const server = await startServer(t, { rooms: { [ROOM]: {} } });
  const ada = await join(t, server, 'Ada', { environment: screens.environment });
  const zoe = await join(t, server, 'Zoë');
  assert.equal(await requestToken(ada), 'token_granted');
  await ada.does('call', 'startPresentation', { type: 'screen' });
  await zoe.does('shows', CONTENT, all(GREY));
  await ada.kill();
  const killed = performance.now();
  for (;;) {
    if ((await requestToken(zoe)) === 'token_granted') break;
  }
  const seconds = (performance.now() - killed) / 1000;
  assert.ok(seconds < 5, `after ${seconds} s`);
});

test('without a room for content that clients may create, nothing is shared, and the log says why', async (t) => {
  const adminKey = crypto.randomUUID();
  const server = await startServer(t, { rooms: { [ROOM]: {} }, adminKey });
  const ada = await join(t, server, 'Ada');
  assert.equal(await requestToken(ada), 'token_denied');
  await ada.does('call', 'startPresentation', { type: 'screen' });
  await status(ada, 'denied');
  await ada.does('logged', 'no content can be shared: the server creates no room for it');
});

test('the second of two monitors is shown to the others', async (t) => {
  const screens = await ScreenServer.start(t, MONITORS);
  await screens.paint(GREY);
  await screens.openWindow(GREEN, { x: 640, y: 0, width: 800, height: 480 });
  const { server, monitor } = await startMonitoredServer(t, { rooms: { [ROOM]: {} } });
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

  for (const [member, name] of [
    [ada, 'content_send_stats'],
    [zoe, 'content_recv_stats'],
  ]) {
    await member.does('call', 'configureMeetingStats', { enable: true, timerDuration: 1000 });
    const { [name]: measured } = await member.does('statistics');
    assert.deepEqual([measured.width, measured.height], [800, 480], name);
    assert.ok(measured.fps > 0, name);
    assert.ok(measured.total_bitrate_bps > 0, name);
  }

  const [others, pictures] = [monitor.in(`${ROOM}-content`), await zoe.does('picture', CONTENT)];
  await zoe.does('call', 'updateMediaStreamState', { ...EVERYTHING, contentStreamEnabled: false });
  await zoe.does('cleared', CONTENT);
  await zoe.does('seen', 'streamUpdated', { ...CONTENT, csrc: pictures.csrc });
  await others.standsStill('Ada', 'video', zoe);
  await zoe.does('picture', remote(0));
  await zoe.does('call', 'updateMediaStreamState', EVERYTHING);
  await zoe.does('shows', CONTENT, all(GREEN));

  await ada.does('call', 'startPresentation', { type: 'screen', screenId: 0 });
  assert.deepEqual(await zoe.does('shows', CONTENT, all(GREY)), { width: 640, height: 480 });

  await ada.does('call', 'stopPresentation');
  await status(ada, 'stopped');
  await zoe.does('seen', 'contentReceive', { ...told, isReceiving: false });
  await zoe.does('seen', 'streamRemoved', CONTENT);
  await zoe.does('knows', 'Ada', { presenting: false });
});

test('what cannot be captured is refused, and a window ends its share when it closes', async (t) => {
  const screens = await ScreenServer.start(t, MONITORS.slice(0, 1));
  await screens.paint(GREY);
  const place = { x: 40, y: 30, width: 320, height: 200 };
  const [below, above, other] = [
    await screens.openWindow(RED, place),
    await screens.openWindow(GREEN, { ...place, y: 20 }),
    await screens.openWindow(BLUE, { x: 400, y: 0, width: 160, height: 120 }),
  ];
  await screens.list([other, below, above]);
  const server = await startServer(t, { rooms: { [ROOM]: {} } });
  const ada = await join(t, server, 'Ada', { environment: screens.environment });
  const zoe = await join(t, server, 'Zoë');
  const present = async (source) => {
    await ada.does('forget');
    await ada.does('call', 'startPresentation', source);
    const { status: answer } = await ada.does('seen', 'screenShareStatus');
    return answer;
  };
  assert.equal(await present({ type: 'window', windowId: below.id }), 'denied');
  assert.equal(await requestToken(ada), 'token_granted');
  for (const [source, reason] of [
    [{ type: 'screen', screenId: 1 }, 'screen 1 cannot be captured: there is no such screen'],
    [{ type: 'window', windowId: 1 }, 'window 1 cannot be captured: the window is not there'],
    [{ type: 'window' }, 'window -1 cannot be captured: the window is not there'],
    [{ type: 'application', applicationId: 1 }, 'the application has no window'],
  ]) {
    assert.equal(await present(source), 'failed');
    await ada.does('logged', reason);
  }

  assert.equal(await present({ type: 'window', windowId: below.id }), 'started');
  const size = { width: place.width, height: place.height };
  assert.deepEqual(await zoe.does('shows', CONTENT, all(RED)), size, 'the covered window');
  assert.equal(await present({ type: 'window', windowId: 1 }), 'failed');
  await zoe.does('shows', CONTENT, all(RED));
  assert.equal(await present({ type: 'application', applicationId: other.pid }), 'started');
  assert.deepEqual(await zoe.does('shows', CONTENT, all(BLUE)), { width: 160, height: 120 });

  await other.close();
  await status(ada, 'stopped');
  await zoe.does('seen', 'streamRemoved', CONTENT);
  assert.equal(await requestToken(ada), 'token_granted');
  assert.equal(await present({ type: 'window', windowId: above.id }), 'started');
  assert.deepEqual(await zoe.does('shows', CONTENT, all(GREEN)), size);
  assert.equal(await present({ type: 'window', windowId: 1 }), 'failed');
  await screens.stop();
  await status(ada, 'stopped');
  await ada.does('call', 'releaseContentShareToken');
  await status(ada, 'token_relinquished');
});

test('the share ends with the call, and who joins during it sees it', async (t) => {
  const screens = await ScreenServer.start(t, MONITORS.slice(0, 1));
  await screens.paint(GREY);
  const server = await startServer(t, { rooms: { [ROOM]: {} } });
  const ada = await join(t, server, 'Ada', { environment: screens.environment });
  assert.equal(await requestToken(ada), 'token_granted');
  await ada.does('call', 'startPresentation', { type: 'screen' });
  await status(ada, 'started');
  const zoe = await join(t, server, 'Zoë');
  await zoe.does('shows', CONTENT, all(GREY));

  await ada.does('forget');
  await ada.does('leave');
  const told = await ada.does('events');
  const ends = told.flatMap(([name, { status: value }]) =>
    name === 'screenShareStatus' ? [value] : name === 'callDisconnect' ? [name] : [],
  );
  assert.deepEqual(ends, ['stopped', 'token_relinquished', 'callDisconnect']);
  await zoe.does('seen', 'streamRemoved', CONTENT);
});

test('a room for content that is destroyed is made again, without its token', async (t) => {
  const server = await startServer(t, { rooms: { [ROOM]: {} } });
  const administrator = await JanusAdministrator.connect(t, server);
  const [ada, zoe] = [await join(t, server, 'Ada'), await join(t, server, 'Zoë')];
  assert.equal(await requestToken(ada), 'token_granted');
  const room = `${ROOM}-content`;
  await administrator.ask({ request: 'destroy', room });
  await status(ada, 'token_relinquished');
  // A token of the old room would be lost with it.
  const present = () =>
    administrator.ask({ request: 'listparticipants', room }).then(
      ({ participants }) => participants.length,
      () => 0, // the room is not there yet
    );
  while ((await present()) < 2);
  assert.equal(await requestToken(zoe), 'token_granted');
  assert.equal(await requestToken(ada), 'token_denied');
});

test('an X server that does not answer holds up neither the call nor the engine', async (t) => {
  const screens = await ScreenServer.start(t, MONITORS.slice(0, 1));
  await screens.paint(GREY);
  const server = await startServer(t, { rooms: { [ROOM]: {} } });
  const ada = await join(t, server, 'Ada', { environment: screens.environment });
  assert.equal(await requestToken(ada), 'token_granted');
  await ada.does('call', 'startPresentation', { type: 'screen' });
  await status(ada, 'started');
  screens.freeze();
  // Time enough for the next picture to be asked for.
  await ada.does('pictures', LOCAL, 30);
  await ada.does('call', 'stopPresentation');
  await status(ada, 'stopped');
  await ada.does('call', 'destroy');
  await ada.does('threadsGone');
});
