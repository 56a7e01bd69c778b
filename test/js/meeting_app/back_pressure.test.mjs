// Flow control for a slow page: counts the messages to pages that do not answer or do not read.

import assert from 'node:assert/strict';
import { EventEmitter, once } from 'node:events';
import { test } from 'node:test';
import { WebSocket } from 'ws';

import { FrameLane } from '../../../examples/meeting/frame_lane.mjs';
import { decodeFrame } from '../../../examples/meeting/frame_message.mjs';
import { PageServer } from '../../../examples/meeting/page_server.mjs';
import { PageSession } from '../../../examples/meeting/page_session.mjs';
import { StateSender } from '../../../examples/meeting/state_sender.mjs';
import { readCard } from '../../support/card_code.mjs';
import { openRoom } from '../../support/meeting_app/open_room.mjs';
import { remote } from '../../support/streams.mjs';

const STREAM = remote(3);

// A socket whose transmissions end when a test says so.
class SlowSocket {
  sent = [];
  #unfinished = [];

  send(data, done) {
    this.sent.push(data);
    this.#unfinished.push(done);
  }

  finish(error) {
    this.#unfinished.shift()(error);
  }
}

// A 4x2 frame object with padded rows, each plane of one value.
const frameOf = (value) => ({
  noUpdate: false,
  width: 4,
  height: 2,
  yPlaneBuffer: new Uint8Array(12).fill(value),
  yPlaneBufferStride: 6,
  uPlaneBuffer: new Uint8Array(3).fill(value + 1),
  uPlaneBufferStride: 3,
  vPlaneBuffer: new Uint8Array(2).fill(value + 2),
  vPlaneBufferStride: 2,
});

const decoded = (message) =>
  decodeFrame(message.buffer.slice(message.byteOffset, message.byteOffset + message.byteLength));

test('a frame arrives with its stream, its size, its planes and their strides', () => {
  const socket = new SlowSocket();
  new FrameLane(socket, STREAM).send(frameOf(7));
  const { stream, frame } = decoded(socket.sent[0]);
  assert.deepEqual(stream, STREAM);
  const { noUpdate, ...sent } = frameOf(7);
  assert.equal(noUpdate, false);
  assert.deepEqual(frame, sent);
});

test('a frame that clears the picture arrives as an empty one', () => {
  const socket = new SlowSocket();
  new FrameLane(socket, STREAM).send({ noUpdate: true, clearFrame: true });
  assert.deepEqual(decoded(socket.sent[0]), { stream: STREAM, frame: null });
});

test('a lane is free when the frame has been transmitted and drawn, in any order', async () => {
  for (const order of [
    ['finish', 'drawn'],
    ['drawn', 'finish'],
  ]) {
    const socket = new SlowSocket();
    const lane = new FrameLane(socket, STREAM);
    assert.ok(lane.isFree);
    lane.send(frameOf(1));
    const free = lane.free(new AbortController().signal);
    for (const step of order) {
      assert.equal(lane.isFree, false, `before ${step}`);
      if (step === 'finish') socket.finish();
      else lane.drawn();
    }
    assert.ok(lane.isFree);
    await free;
  }
});

test('extra "drawn" messages of a page do not give it a second frame before the first is transmitted', () => {
  const socket = new SlowSocket();
  const lane = new FrameLane(socket, STREAM);
  lane.drawn();
  lane.send(frameOf(1));
  lane.drawn();
  lane.drawn();
  assert.equal(lane.isFree, false);
});

test('waiting for a free lane ends when the signal is aborted', async () => {
  const lane = new FrameLane(new SlowSocket(), STREAM);
  const stopping = new AbortController();
  lane.send(frameOf(1));
  const waiting = lane.free(stopping.signal);
  stopping.abort();
  await assert.rejects(waiting, { name: 'AbortError' });
});

test('all frames of a stream use one buffer, until a larger one is needed', () => {
  const socket = new SlowSocket();
  const lane = new FrameLane(socket, STREAM);
  for (const value of [1, 2, 3]) lane.send(frameOf(value));
  lane.send({ ...frameOf(4), yPlaneBuffer: new Uint8Array(100) });
  lane.send(frameOf(5));
  const memories = new Set(socket.sent.map(({ buffer }) => buffer));
  assert.equal(memories.size, 2);
});

test('unsent state messages are replaced by newer ones', () => {
  const socket = new SlowSocket();
  const sender = new StateSender(socket);
  for (let level = 0; level < 1000; level++) sender.say({ level, other: 'x' });
  assert.deepEqual(socket.sent.map(JSON.parse), [{ level: 0, other: 'x' }]);
  socket.finish();
  assert.deepEqual(JSON.parse(socket.sent[1]), { level: 999, other: 'x' });
  socket.finish();
  assert.equal(socket.sent.length, 2);
  assert.equal(sender.messagesSent, 2);
});

test('unsent log entries are collected, at most the last 200', () => {
  const socket = new SlowSocket();
  const sender = new StateSender(socket);
  sender.say({ state: 1 });
  for (let number = 1; number <= 1000; number++) sender.sayLog([{ number }]);
  socket.finish();
  const { log } = JSON.parse(socket.sent[1]);
  assert.deepEqual([log.length, log[0].number, log.at(-1).number], [200, 801, 1000]);
});

test('nothing more is sent to a broken socket', () => {
  const socket = new SlowSocket();
  const sender = new StateSender(socket);
  sender.say({ level: 1 });
  sender.say({ level: 2 });
  socket.finish(new Error('gone'));
  assert.equal(socket.sent.length, 1);
});

// A page that is connected to a real meeting over a real socket, with this number of streams: by
// default two participants' and the camera's. Nobody speaks: who does changes the state.
async function connectPage(t, { participants = '2', present = 3 } = {}) {
  const uri = `tessel:test?size=320x180&participants=${participants}&speak=me@86000-86400`;
  const { room, meeting } = await openRoom(t, uri);
  const arrived = new EventEmitter();
  let session;
  const server = new PageServer({
    files: {},
    onConnection: (socket) => arrived.emit('session', (session = new PageSession(socket, room))),
  });
  await server.listen();
  t.after(() => server.close());
  await room.join();
  const sending = () => room.state.streams.filter(({ isSending }) => isSending);
  while (sending().length < present) await once(room, 'log');
  // Their names come after them.
  while (meeting.participants.length < present) await once(room, 'change');
  const page = new WebSocket(`${server.origin.replace('http', 'ws')}/${server.token}/socket`, {
    origin: server.origin,
  });
  const frames = [];
  page.binaryType = 'arraybuffer';
  page.on('message', (data, isBinary) => {
    if (!isBinary) return;
    frames.push(decodeFrame(data));
    page.emit('frame');
  });
  await once(page, 'open');
  assert.ok(session);
  return { room, meeting, page, session, frames };
}

const LAYOUT = ['remote-0', 'remote-1'].map((stream) => ({ stream, height: 180, frameRate: 30 }));

const DELIVERED = 20;

// Resolves when the engine has delivered `count` frames of a stream to another receiver.
async function engineDelivers(room, stream, count) {
  const stopping = new AbortController();
  let left = count;
  for await (const frame of room.frames(stream, stopping.signal)) {
    if (!frame.noUpdate && (left -= 1) === 0) return;
  }
}

test('a page that never says "drawn" is sent one frame of each stream and no more', async (t) => {
  const { room, page, session, frames } = await connectPage(t);
  page.send(JSON.stringify({ type: 'layout', tiles: LAYOUT }));
  while (frames.length < 2) await once(page, 'frame');
  await engineDelivers(room, { type: 'remote', streamIndex: 0 }, DELIVERED);
  assert.deepEqual(session.framesSent, { 'remote-0': 1, 'remote-1': 1 });
  assert.equal(frames.length, 2);

  // The next frame is the newest one: those in between are skipped.
  page.send(JSON.stringify({ type: 'drawn', streams: ['remote-0'] }));
  while (frames.length < 3) await once(page, 'frame');
  const first = frames.find(({ stream }) => stream.streamIndex === 0);
  assert.ok(readCard(frames[2].frame).number >= readCard(first.frame).number + DELIVERED - 1);
  assert.deepEqual(session.framesSent, { 'remote-0': 2, 'remote-1': 1 });
});

test('streams that a page no longer shows are not sent', async (t) => {
  const { page, session, frames } = await connectPage(t);
  page.send(JSON.stringify({ type: 'layout', tiles: LAYOUT }));
  while (frames.length < 2) await once(page, 'frame');
  page.send(JSON.stringify({ type: 'layout', tiles: LAYOUT.slice(1) }));
  page.send(JSON.stringify({ type: 'drawn', streams: ['remote-0', 'remote-1'] }));
  while (frames.length < 3) await once(page, 'frame');
  assert.deepEqual(session.framesSent, { 'remote-1': 2 });
  assert.equal(frames[2].stream.streamIndex, 1);
});

test('a stream that is added after the layout that names it is sent too', async (t) => {
  const { page, frames } = await connectPage(t, { participants: '1&come=1@1', present: 2 });
  page.send(JSON.stringify({ type: 'layout', tiles: LAYOUT }));
  while (frames.length < 2) await once(page, 'frame');
  assert.deepEqual(frames.map(({ stream }) => stream.streamIndex).sort(), [0, 1]);
});

test('a stream that is removed and added again is sent again without a new layout', async (t) => {
  const opened = await connectPage(t, { participants: '1', present: 2 });
  const { room, meeting, page, frames } = opened;
  const loops = new EventEmitter();
  const framesOfMeeting = meeting.frames;
  meeting.frames = async function* (...args) {
    yield* framesOfMeeting.apply(meeting, args);
    loops.emit('ended');
  };
  page.on('frame', () => page.send(JSON.stringify({ type: 'drawn', streams: ['remote-0'] })));
  page.send(JSON.stringify({ type: 'layout', tiles: [{ ...LAYOUT[0], height: 90 }] }));
  await once(page, 'frame');
  await Promise.all([once(loops, 'ended'), room.commands.leave()]);
  const before = frames.length;
  await room.join();
  // A frame of the previously requested height.
  while (frames.length === before || frames.at(-1).frame?.height !== 90) await once(page, 'frame');
});

for (const [what, text, message] of [
  ['is no JSON', '{', /JSON/],
  ['has an unknown type', '{"type":"constructor"}', /^unknown request: constructor$/],
  ['has a value of the wrong type', '{"type":"muteAudio","muted":1}', /expected Boolean$/],
  ['names no stream', '{"type":"layout","tiles":[{"stream":"x"}]}', /^no such tile: x/],
  ['chooses no device', '{"type":"device","kind":"toString","id":"x"}', /^no such device/],
]) {
  test(`a message that ${what} is logged and changes nothing`, async (t) => {
    const { room, page } = await connectPage(t);
    const before = JSON.stringify(room.state);
    page.send(text);
    let [entry] = await once(room, 'log');
    while (entry.name !== 'error') [entry] = await once(room, 'log');
    assert.match(entry.payload.message, message);
    assert.equal(JSON.stringify(room.state), before);
  });
}
