// The commands of the meeting application's room, without a page.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { videoStreamsState } from '../../../examples/meeting/layout.mjs';
import { logIn, openRoom, stateIs } from '../../support/meeting_app/open_room.mjs';

const NAME = 'remote-0';
const SCREEN = { what: { type: 'screen', screenId: 0 } };

async function joinRoom(t, uri = 'tessel:test?participants=1') {
  const opened = await openRoom(t, uri);
  await opened.room.join();
  await stateIs(opened.room, ({ streams }) => streams.some(({ name }) => name === NAME));
  return opened;
}

test('a join that is requested twice is performed once', async (t) => {
  const { room } = await openRoom(t, 'tessel:test');
  await Promise.all([room.commands.join(), room.commands.join()]);
  await room.commands.join();
  assert.deepEqual(room.state.call, { phase: 'joined', reason: '' });
});

test('a join whose request fails may be repeated', async (t) => {
  const { room, meeting } = await openRoom(t, 'tessel:test');
  meeting.join = () => Promise.reject(new TypeError('no such uri'));
  await assert.rejects(room.join(), { message: 'no such uri' });
  assert.deepEqual(room.state.call, { phase: 'notJoined', reason: 'no such uri' });
  delete meeting.join;
  await room.join();
  assert.equal(room.state.call.phase, 'joined');
});

test('a failed join and an ended call are reported differently, each with its reason', async (t) => {
  for (const [parameters, expected] of [
    ['refuse=403', { phase: 'notJoined', reason: 'the meeting refused the join (403)' }],
    ['drop=0', { phase: 'left', reason: 'the call was dropped (503)' }],
  ]) {
    const { room } = await openRoom(t, `tessel:test?${parameters}`);
    assert.equal(room.state.call.phase, 'notJoined');
    const refusal = await room.join();
    assert.equal(refusal, expected.phase === 'notJoined' ? expected.reason : undefined);
    await stateIs(room, ({ call }) => call.reason !== '');
    assert.deepEqual(room.state.call, expected);
  }
});

test('a join may be cancelled, which does not count as refused, and repeated', async (t) => {
  const { room, meeting } = await openRoom(t, 'tessel:test?join=3600');
  const joining = room.join();
  await room.commands.leave();
  assert.equal(await joining, '');
  assert.deepEqual(room.state.call, { phase: 'notJoined', reason: '' });
  meeting.join = () => Promise.resolve();
  room.join();
  assert.equal(room.state.call.phase, 'joining');
});

test('closing a room during a join reports no failure', async (t) => {
  const { room } = await openRoom(t, 'tessel:test?join=3600');
  const joining = room.join();
  room.close();
  assert.equal(await joining, undefined);
});

test('leaving during a share request shares nothing and reports no refusal', async (t) => {
  const { room } = await joinRoom(t);
  const asking = room.commands.share(SCREEN);
  assert.equal(room.state.share.phase, 'asking');
  await Promise.all([assert.rejects(asking), room.commands.leave()]);
  assert.deepEqual(room.state.call, { phase: 'left', reason: '' });
  assert.deepEqual(room.state.share, { phase: 'none', text: '' });
});

test('a share that is requested outside a meeting leaves no refusal to show later', async (t) => {
  const { room } = await openRoom(t, 'tessel:test');
  await assert.rejects(room.commands.share(SCREEN));
  assert.deepEqual(room.state.share, { phase: 'none', text: '' });
});

test('a second share cannot be requested while the first request is pending', async (t) => {
  const { room } = await joinRoom(t);
  const asking = room.commands.share(SCREEN);
  await assert.rejects(room.commands.share(SCREEN), {
    message: 'A share is being asked for already',
  });
  await asking;
  assert.deepEqual(room.state.share, { phase: 'sharing', text: 'Screen 1' });
  const statuses = await logIn(room, 'screenShareStatus', 2);
  assert.deepEqual(
    statuses.map(({ status }) => status),
    ['token_granted', 'started'],
  );
});

const isPlugged = ({ devices }, id) =>
  Object.values(devices)
    .flat()
    .find((device) => device.id === id).isPlugged;

test('unplugged and unknown devices cannot be selected', async (t) => {
  const { room } = await openRoom(t, 'tessel:test');
  for (const [kind, id, message] of [
    ['camera', 'camera-2', 'Camera 3 is not plugged in'],
    ['microphone', 'microphone-2', 'Microphone 3 is not plugged in'],
    ['speaker', 'speaker-2', 'Speaker 3 is not plugged in'],
    ['camera', 'speaker-0', 'no such device: camera speaker-0'],
    ['toString', 'camera-0', 'no such device: toString camera-0'],
  ]) {
    assert.throws(() => room.commands.device({ kind, id }), { message });
  }
  assert.deepEqual(room.state.selected, {
    camera: 'camera-0',
    microphone: 'microphone-0',
    speaker: 'speaker-0',
  });
});

test('devices are plugged and unplugged during a meeting, and restored after it', async (t) => {
  const changes = 'unplug=camera-0@0.2,camera-1@0.4&plug=camera-2@0.6,camera-0@0.8';
  const { room } = await openRoom(t, `tessel:test?participants=0&${changes}`);
  const used = [];
  room.on('log', ({ name }) => name === 'deviceChange' && used.push(room.state.selected.camera));
  await room.join();
  await logIn(room, 'deviceChange', 4);
  assert.deepEqual(used, ['camera-1', '', 'camera-2', 'camera-2']);
  room.commands.device({ kind: 'camera', id: 'camera-0' });
  assert.equal(room.state.selected.camera, 'camera-0');
  assert.throws(() => room.commands.device({ kind: 'camera', id: 'camera-1' }));

  await room.commands.leave();
  await stateIs(room, (state) => isPlugged(state, 'camera-1') && !isPlugged(state, 'camera-2'));
  assert.equal(isPlugged(room.state, 'camera-0'), true);
});

// This process has the segment of the remote stream 0.
const isShared = () => /\/dev\/shm\/SHM\w{25}10$/m.test(readFileSync('/proc/self/maps', 'latin1'));

test('a window that is closed before it shows a frame takes its stream out of widget mode', async (t) => {
  const { room } = await joinRoom(t);
  await room.enterWindow(NAME, 90);
  assert.equal(isShared(), true);
  room.leaveWindow(NAME);
  assert.equal(isShared(), false);
  // It waits for the next second.
  const entering = room.enterWindow(NAME, 90);
  room.leaveWindow(NAME);
  await entering;
  assert.equal(isShared(), false);
});

test('a stream whose window fails to open has no window', async (t) => {
  const { room, meeting } = await joinRoom(t);
  meeting.enterWidgetMode = () => Promise.reject(new Error('no memory'));
  await assert.rejects(room.enterWindow(NAME, 90), { message: 'no memory' });
  assert.ok(room.state.streams.every(({ inWindow }) => !inWindow));
});

test('a stream is called after its participant, and the others are told our name', async (t) => {
  const { room, meeting } = await openRoom(t, 'tessel:test?participants=2&name=1:Zo%C3%AB');
  const told = meeting.waitFor('participants', { where: ({ length }) => length === 3 });
  await room.join();
  const [me, first] = await told;
  assert.equal(me.name, 'Tester');
  await stateIs(room, ({ streams }) => streams.length === 3);
  const titles = () =>
    Object.fromEntries(room.state.streams.map(({ name, title }) => [name, title]));
  assert.deepEqual(titles(), { 'local-0': 'You', 'remote-0': first.name, 'remote-1': 'Zoë' });
  Object.defineProperty(meeting, 'participants', { value: [{ ...first, name: '' }] });
  assert.deepEqual(titles(), { 'local-0': 'You', 'remote-0': 'Guest 1', 'remote-1': 'Guest 2' });
});

test('streams that have no name here are not shown', async (t) => {
  const { room, meeting } = await openRoom(t, 'tessel:test');
  const value = [
    { type: 'unknown', streamIndex: 3, csrc: 1 },
    { type: 'remote', streamIndex: 99, csrc: 2 },
    { type: 'remote', streamIndex: 100, csrc: 3 },
  ];
  Object.defineProperty(meeting, 'streams', { value });
  assert.deepEqual(
    room.state.streams.map(({ name }) => name),
    ['remote-99', 'local-0'],
  );
});

test('a tile requests the smallest sufficient size and rate', () => {
  const tiles = [
    { csrc: 7, height: 91, frameRate: 15 },
    { csrc: 8, height: 2000, frameRate: 60 },
  ];
  const stream = (csrc, priority) => ({
    ssrc: csrc,
    participantSsrc: csrc,
    speakerGroup: 0,
    priority,
  });
  const [first, second] = [
    { maxquality: 180, maxfps: 15 },
    { maxquality: 720, maxfps: 30 },
  ];
  assert.deepEqual(videoStreamsState(tiles), {
    VideoStreamState: {
      VideoStreamInfos: [stream(7, 2), stream(8, 1)],
      VideoOccupancyConstraints: [[first], [first, second]],
    },
  });
});
