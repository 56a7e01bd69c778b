// The output of console.log for meetings, widgets, event loops and frames, and how to find a
// meeting that was not closed.

import assert from 'node:assert/strict';
import { test } from 'node:test';
import { inspect } from 'node:util';

import { runInChild } from '../../support/child.mjs';
import { face, joinMeeting, openMeeting } from '../../support/face.mjs';

const REMOTE = { type: 'remote', streamIndex: 0 };

// The lines of an inspection without the numbers that differ from run to run.
const shown = (value) =>
  inspect(value)
    .split('\n')
    .map((line) => line.trim().replace(/(csrc|receivedAt|frameId): [\d.]+/, '$1: N'));

test('an inspected meeting shows its call, its streams and its counters', async (t) => {
  const meeting = await openMeeting(t);
  const owner = /owner: '(meeting \d+)'/.exec(inspect(meeting))[1];
  assert.deepEqual(shown(meeting), [
    'Meeting {',
    `owner: '${owner}',`,
    'isClosed: false,',
    "call: 'none',",
    'streams: [],',
    'inWidgetMode: [],',
    'frames: {}',
    '}',
  ]);
  const added = meeting.waitFor('streamAdded');
  await meeting.join({ uri: 'tessel:demo?participants=1' });
  await added;
  await meeting.enterWidgetMode(REMOTE);
  for await (const frame of meeting.frames(REMOTE)) if (!frame.noUpdate) break;
  const frames = { delivered: 1, skipped: 0, released: 1 };
  assert.deepEqual(meeting.counters(), [{ owner, stream: 'remote-0', ...frames }]);
  const properties = [
    `owner: '${owner}',`,
    'isClosed: false,',
    "call: 'joined',",
    "streams: [ 'remote-0' ],",
    "inWidgetMode: [ 'remote-0' ],",
    'frames: {',
    "'remote-0': FrameCounters { delivered: 1, skipped: 0, released: 1 }",
  ];
  assert.deepEqual(shown(meeting), ['Meeting {', ...properties, '}', '}']);
  assert.equal(inspect({ a: meeting }, { depth: 0 }), '{ a: [Meeting] }');
  meeting.close();
  assert.deepEqual(shown(meeting).slice(2), ['isClosed: true,', ...properties.slice(5), '}', '}']);
});

test('an inspected widget shows its counters', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1', 1);
  const widget = new face.Widget(await meeting.enterWidgetMode(REMOTE));
  t.after(() => widget.close());
  let picture;
  while (!picture) {
    picture = widget.read(REMOTE, (frame) => shown(frame));
    await new Promise(setImmediate);
  }
  assert.deepEqual(picture.slice(0, 4), [
    'PictureFrame {',
    'noUpdate: false,',
    'clearFrame: false,',
    'frameId: N,',
  ]);
  assert.deepEqual(picture.slice(-4), PLANES);
  const { owner } = widget.counters()[0];
  assert.deepEqual(shown(widget), [
    'Widget {',
    `owner: '${owner}',`,
    'isClosed: false,',
    'frames: {',
    "'remote-0': FrameCounters { delivered: 1, skipped: 0, released: 1 }",
    '}',
    '}',
  ]);
});

const PLANES = [
  "yPlane: '640 x 360, stride 640, 230400 bytes',",
  "uPlane: '320 x 180, stride 320, 57600 bytes',",
  "vPlane: '320 x 180, stride 320, 57600 bytes'",
  '}',
];

test('an inspected event loop shows its event names and its queued events', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo?participants=0');
  const events = meeting.events(['micLevel', 'callDisconnect', 'micLevel']);
  await meeting.leave();
  assert.match(
    inspect(events),
    /^EventQueue \{ names: \[ 'micLevel', 'callDisconnect' \], arrived: [1-9]\d*, isEnded: false \}$/,
  );
  await events.return();
  assert.match(inspect(events), /arrived: 0, isEnded: true \}$/);
});

test('an inspected frame shows the sizes of its planes, or that they are no longer valid', async (t) => {
  const meeting = await joinMeeting(t, 'tessel:demo?participants=1&videomute=0@0.3');
  let first;
  for await (const frame of meeting.frames(REMOTE)) {
    if (frame.noUpdate) {
      assert.deepEqual(shown(frame), [
        'ClearFrame {',
        'noUpdate: true,',
        'clearFrame: true,',
        'frameId: N,',
        'csrc: N,',
        'receivedAt: N',
        '}',
      ]);
      break;
    }
    const lines = shown(frame);
    assert.deepEqual(lines, [
      'PictureFrame {',
      'noUpdate: false,',
      'clearFrame: false,',
      'frameId: N,',
      'csrc: N,',
      'width: 640,',
      'height: 360,',
      'receivedAt: N,',
      ...PLANES,
    ]);
    if (first) assert.ok(shown(first).includes("yPlane: 'no longer valid',"));
    first ??= frame;
  }
  // What the addon's class answers with is as it was.
  const frame = meeting.wrapper.getLastFrame(REMOTE);
  assert.deepEqual(Object.getOwnPropertySymbols(frame), []);
  assert.equal('receivedAt' in frame, false);
});

test('an open meeting is an active resource that shows where it was opened', () => {
  const child = runInChild(
    async ({ openMeeting: open }, { say }) => {
      const { createHook } = require('node:async_hooks');
      Error.stackTraceLimit = 50;
      const opened = new Map();
      createHook({
        init(id, type) {
          if (type === 'TesselMeeting') opened.set(id, new Error().stack);
        },
        destroy: (id) => opened.delete(id),
      }).enable();
      async function application() {
        return await open();
      }
      const meetings = [await application(), await application()];
      for (const stack of opened.values()) say(/at (async )?application /.test(stack));
      for (const meeting of meetings) meeting.close();
      await new Promise(setImmediate);
      say(opened.size);
    },
    { modules: ['./support/face.mjs', './support/child.mjs'] },
  );
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  assert.deepEqual(child.said, ['true', 'true', '0']);
});
