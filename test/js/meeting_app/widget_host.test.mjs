// The widget process: how it is kept running, and the content of its windows.

import assert from 'node:assert/strict';
import { fork } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync, readdirSync } from 'node:fs';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { WebSocket } from 'ws';

import { decodeFrame } from '../../../examples/meeting/frame_message.mjs';
import { WidgetHost } from '../../../examples/meeting/widget_host.mjs';
import clocks from '../../../js/clocks.js';
import { logIn, openRoom, stateIs } from '../../support/meeting_app/open_room.mjs';

const WIDGET_PROCESS = fileURLToPath(
  new URL('../../../examples/meeting/widget_process.mjs', import.meta.url),
);
const NAME = 'remote-0';
const URI = 'tessel:test?participants=1';

const isRunning = ({ widget }) => widget.phase === 'running';
const isThere = ({ streams }) => streams.some(({ name }) => name === NAME);
const isInWindow = ({ streams }) => streams.some(({ inWindow }) => inWindow);

// A host for `room`, until the test ends.
function hostFor(t, room) {
  const host = new WidgetHost(room);
  t.after(() => host.close());
  return host;
}

// A joined room with one participant, and a host whose process runs.
async function openHost(t) {
  const { room, meeting } = await openRoom(t, URI);
  const host = hostFor(t, room);
  await room.join();
  await stateIs(room, (state) => isThere(state) && isRunning(state));
  return { room, meeting, host };
}

// Simulates the page of a window. Emits 'frame' with each received frame, null when the picture is
// cleared.
function openWindow({ room }) {
  const { origin, host, pathname } = new URL(room.state.widget.address);
  const window = new WebSocket(`ws://${host}${pathname}socket`, { origin });
  window.binaryType = 'arraybuffer';
  const say = (type, request) => window.send(JSON.stringify({ type, ...request }));
  window.on('open', () => say('show', { stream: NAME, height: 90 }));
  window.on('message', (data) => {
    window.emit('frame', decodeFrame(data).frame);
    say('drawn', { streams: [NAME] });
  });
  return window;
}

async function frameIn(window, isWanted) {
  for (;;) {
    const [frame] = await once(window, 'frame');
    if (isWanted(frame)) return;
  }
}

// Returns when all threads of a process of this one's have ended, which it has not been told yet.
function waitForDeath(pid) {
  const isDead = () =>
    readdirSync(`/proc/${pid}/task`).length === 1 &&
    /\) Z /.test(readFileSync(`/proc/${pid}/stat`, 'latin1'));
  while (!isDead());
}

test('a window is empty while its stream has no picture', async (t) => {
  const opened = await openHost(t);
  const window = openWindow(opened);
  await frameIn(window, (frame) => frame !== null);
  const receive = (incomingVideoEnabled) =>
    opened.meeting.wrapper.updateMediaStreamState({
      contentStreamEnabled: true,
      incomingAudioEnabled: true,
      incomingVideoEnabled,
      outgoingAudioMuted: false,
      outgoingVideoMuted: false,
    });
  receive(false);
  await frameIn(window, (frame) => frame === null);
  const next = openWindow(opened);
  const [first] = await once(next, 'frame');
  assert.equal(first, null);
  receive(true);
  await frameIn(next, (frame) => frame !== null);
});

test('a stream has one window only, the newest', async (t) => {
  const opened = await openHost(t);
  const first = openWindow(opened);
  await frameIn(first, (frame) => frame !== null);
  const second = openWindow(opened);
  const [code, reason] = await once(first, 'close');
  assert.deepEqual([code, `${reason}`], [1000, 'This picture is in another window.']);
  await frameIn(second, (frame) => frame !== null);
});

test('a stream that is removed while its window waits for memory can have a window again later', async (t) => {
  const opened = await openHost(t);
  const { room, meeting } = opened;
  const { enterWidgetMode } = meeting;
  let entering;
  meeting.enterWidgetMode = (stream) => (entering = enterWidgetMode.call(meeting, stream));
  // A second segment in one second waits for the next second: for ever here, where the clock does
  // not advance.
  const now = Date.now() + 10_000;
  const clock = t.mock.method(clocks, 'wallTime', () => now);
  const first = openWindow(opened);
  await frameIn(first, (frame) => frame !== null);
  first.close();
  await stateIs(room, (state) => !isInWindow(state));
  openWindow(opened);
  await stateIs(room, isInWindow);
  await room.commands.leave();
  await assert.rejects(entering);
  clock.mock.restore();
  await room.join();
  await stateIs(room, isThere);
  await frameIn(openWindow(opened), (frame) => frame !== null);
});

test('a failed request of a window is logged', async (t) => {
  const opened = await openHost(t);
  opened.meeting.enterWidgetMode = () => Promise.reject(new Error('no memory'));
  openWindow(opened);
  assert.deepEqual(await logIn(opened.room, 'error'), [{ message: 'no memory' }]);
  assert.equal(isInWindow(opened.room.state), false);
});

test('the windows of a killed process are restored where possible', async (t) => {
  const { room, meeting, host } = await openHost(t);
  const CONTENT = 'content-0';
  await room.commands.share({ what: { type: 'screen', screenId: 0 } });
  for (const name of [NAME, CONTENT]) await room.enterWindow(name, 90);
  const { enterWidgetMode } = meeting;
  meeting.enterWidgetMode = (stream) =>
    stream.type === 'remote'
      ? Promise.reject(new Error('no memory'))
      : enterWidgetMode.call(meeting, stream);
  process.kill(host.pid, 'SIGKILL');
  assert.deepEqual(await logIn(room, 'error'), [{ message: 'no memory' }]);
  const inWindow = room.state.streams.filter((stream) => stream.inWindow);
  assert.deepEqual(
    inWindow.map(({ name }) => name),
    [CONTENT],
  );
});

test('sending to a process that has just died is harmless', async (t) => {
  const { room, host } = await openHost(t);
  await room.enterWindow(NAME, 90);
  const { pid } = host;
  process.kill(pid, 'SIGKILL');
  waitForDeath(pid);
  room.leaveWindow(NAME);
  await stateIs(room, (state) => isRunning(state) && host.pid !== pid);
  assert.deepEqual(await logIn(room, 'error'), [{ message: 'write EPIPE' }]);
});

test('when the process ends by itself its windows are closed, and the host can still be closed', async (t) => {
  const { room } = await openRoom(t, URI);
  await room.join();
  await stateIs(room, isThere);
  await room.enterWindow(NAME, 90);
  Object.defineProperty(room, 'sharedDataInfo', {
    value: { shm_name: '/nothing', sem_name: '/nothing' },
  });
  const host = hostFor(t, room);
  await stateIs(room, ({ widget }) => widget.phase === 'ended');
  await stateIs(room, (state) => !isInWindow(state));
  const [{ payload }] = room.log.filter(({ name }) => name === 'error');
  assert.match(payload.message, /^The widget process: The memory of the meeting is not there/);
  host.close();
});

for (const [moment, sharedDataInfo] of [
  ['before the process has read its memory', { shm_name: '/nothing', sem_name: '/nothing' }],
  ['before the process has listened'],
]) {
  test(`a meeting that ends ${moment} ends the process without a message`, async (t) => {
    const { room } = await openRoom(t, URI);
    const child = fork(WIDGET_PROCESS, { stdio: ['ignore', 'ignore', 'pipe', 'ipc'] });
    const errors = child.stderr.toArray();
    child.send({ type: 'start', sharedDataInfo: sharedDataInfo ?? room.sharedDataInfo });
    child.disconnect();
    const [, signal] = await once(child, 'exit');
    assert.deepEqual([signal, (await errors).join('')], [null, '']);
  });
}

test('a process that is killed before it is ready is not restarted', async (t) => {
  const { room } = await openRoom(t, URI);
  const pids = [];
  room.on('log', ({ name, payload }) => {
    if (name !== 'widgetStarted') return;
    pids.push(payload.pid);
    process.kill(payload.pid, 'SIGKILL');
  });
  hostFor(t, room);
  await logIn(room, 'widgetEnded');
  assert.equal(room.state.widget.phase, 'ended');
  assert.equal(pids.length, 1);
});

test('a process that cannot be started is logged', async (t) => {
  const { room } = await openRoom(t, URI);
  const { execPath } = process;
  process.execPath = '/nothing';
  try {
    hostFor(t, room);
  } finally {
    process.execPath = execPath;
  }
  const [{ message }] = await logIn(room, 'error');
  assert.match(message, /^spawn \/nothing ENOENT$/);
  assert.equal(room.state.widget.phase, 'ended');
});
