// Which remote videos arrive on the embedded engine, and how well: what updateVideoStreamsState
// asks for is seen in the frames, in the statistics and as streamUpdated.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { Meeting } from '../../support/embedded_meeting.mjs';
import { remote } from '../../support/streams.mjs';

// Wishes for the streams of these sources, the larger `priority` the more, with one row of
// constraints for each number of tiles.
const wishes = (streams, VideoOccupancyConstraints) => ({
  VideoStreamState: {
    VideoStreamInfos: streams.map(({ csrc, priority = 0 }) => ({
      ssrc: csrc,
      participantSsrc: csrc,
      speakerGroup: 0,
      priority,
    })),
    VideoOccupancyConstraints,
  },
});

const sizeOf = ({ width, height }) => `${width}x${height}`;

const isStream = (index) => (payload) => payload.type === 'remote' && payload.streamIndex === index;

// A meeting with the sources of its first `count` participants.
async function joined(t, uri, count) {
  const meeting = new Meeting(t);
  await meeting.join(uri);
  const sources = [];
  for (let index = 0; index < count; index++) {
    sources.push((await meeting.seen('streamAdded', isStream(index))).csrc);
  }
  return { meeting, sources };
}

// Settles when so many frames of the only stream arrived in a second. The window begins anywhere
// between two frames, so there may be one more or less.
async function measured(meeting, framesPerSecond) {
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 1000 });
  await meeting.until(() => {
    const [stream] = meeting.wrapper.getMeetingStats().video_recv_stats;
    return stream && Math.abs(stream.fps - framesPerSecond) <= 1;
  });
}

test('a stream arrives in the requested quality of the ladder, and every change is notified', async (t) => {
  const { meeting, sources } = await joined(t, 'tessel:room?participants=1&size=641x361', 1);
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '641x361');
  for (const [maxquality, size] of [
    [720, '1280x720'],
    [360, '640x360'],
    [180, '320x180'],
    [90, '160x90'],
    [45, '80x45'],
  ]) {
    meeting.forget();
    meeting.wrapper.updateVideoStreamsState(wishes([{ csrc: sources[0] }], [[{ maxquality }]]));
    await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === size);
    await meeting.seen('streamUpdated', isStream(0));
    assert.deepEqual(meeting.payloads('streamUpdated').length, 1);
  }
  meeting.wrapper.updateVideoStreamsState(wishes([{ csrc: sources[0] }], []));
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '641x361');
});

test('without a maximum the minimum determines the quality', async (t) => {
  const { meeting, sources } = await joined(t, 'tessel:room?participants=1&size=64x36', 1);
  const ask = (limits) =>
    meeting.wrapper.updateVideoStreamsState(wishes([{ csrc: sources[0] }], [[limits]]));
  ask({ minquality: 180 });
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '320x180');
  ask({ minquality: 180, maxquality: 90 });
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '160x90');
});

for (const maxfps of [15, 7, 3]) {
  test(`at most ${maxfps} frames per second arrive when that maximum is requested`, async (t) => {
    const { meeting, sources } = await joined(t, 'tessel:room?participants=1&size=64x36', 1);
    const { frameId: before } = await meeting.nextFrame(remote(0));
    meeting.wrapper.updateVideoStreamsState(wishes([{ csrc: sources[0] }], [[{ maxfps }]]));
    await meeting.seen('streamUpdated');
    // The first frame after the change may follow closely on one before it.
    let { frameId } = await meeting.nextFrame(remote(0), before);
    ({ frameId } = await meeting.nextFrame(remote(0), frameId));
    for (let count = 0; count < 3; count++) {
      const next = await meeting.nextFrame(remote(0), frameId);
      const leftOut = next.frameId - frameId - 1;
      assert.ok(leftOut >= Math.floor(30 / maxfps) - 1, `${leftOut} were left out`);
      frameId = next.frameId;
    }
    await measured(meeting, maxfps);
  });
}

test('a rate below the maximum is not changed', async (t) => {
  const { meeting, sources } = await joined(t, 'tessel:room?participants=1&size=64x36&fps=5', 1);
  meeting.wrapper.updateVideoStreamsState(
    wishes([{ csrc: sources[0] }], [[{ maxquality: 45, maxfps: 30 }]]),
  );
  await measured(meeting, 5);
});

test('a stream that is not requested does not arrive', async (t) => {
  const { meeting, sources } = await joined(t, 'tessel:room?participants=3&size=64x36', 3);
  for (const index of [0, 1, 2]) await meeting.nextFrame(remote(index));
  meeting.wrapper.updateVideoStreamsState(wishes([{ csrc: sources[1] }], []));
  for (const index of [0, 2]) {
    await meeting.seen('streamUpdated', isStream(index));
    assert.ok(meeting.showsNothing(remote(index)));
  }
  await meeting.passes(remote(1), 15);
  for (const index of [0, 2]) assert.ok(meeting.showsNothing(remote(index)));
  assert.deepEqual(meeting.payloads('streamUpdated').filter(isStream(1)), []);
  meeting.wrapper.configureMeetingStats({ enable: true, timerDuration: 200 });
  const streams = () => meeting.wrapper.getMeetingStats().video_recv_stats;
  await meeting.until(() => streams().length > 0);
  assert.deepEqual(
    streams().map(({ ssrc }) => ssrc),
    [sources[1]],
  );
  meeting.wrapper.updateVideoStreamsState(wishes([], []));
  await meeting.seen('streamUpdated', isStream(1));
  assert.ok(meeting.showsNothing(remote(1)), 'nobody is wanted');
});

test('the streams with the highest priorities get the tiles', async (t) => {
  const { meeting, sources } = await joined(t, 'tessel:room?participants=3', 3);
  const table = [[], [{ maxquality: 720 }, { maxquality: 90 }]];
  const place = (...priorities) =>
    meeting.wrapper.updateVideoStreamsState(
      wishes(
        priorities.map((priority, i) => ({ csrc: sources[i], priority })),
        table,
      ),
    );
  for (const [priorities, sizes] of [
    [
      [1, 2, 3],
      [null, '160x90', '1280x720'],
    ],
    [
      [3, 1, 2],
      ['1280x720', null, '160x90'],
    ],
    [
      [5, 5, 5],
      ['1280x720', '160x90', null],
    ],
  ]) {
    place(...priorities);
    for (const [index, size] of sizes.entries()) {
      if (size === null) await meeting.until(() => meeting.showsNothing(remote(index)));
      else await meeting.frameWhere(remote(index), (frame) => sizeOf(frame) === size);
    }
  }
});

test('the constraints for the present number of tiles apply', async (t) => {
  // The sources depend on the seed: this meeting has the same ones as the next.
  const { sources } = await joined(t, 'tessel:room?participants=2&size=64x36', 2);
  const meeting = new Meeting(t);
  meeting.connect('tessel:room?participants=1&come=1@2&leave=1@5');
  meeting.wrapper.updateVideoStreamsState(
    wishes(
      sources.map((csrc) => ({ csrc })),
      [[{ maxquality: 720 }], [{ maxquality: 180 }, { maxquality: 90 }]],
    ),
  );
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '1280x720');
  await meeting.seen('streamAdded', isStream(1));
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '320x180');
  await meeting.frameWhere(remote(1), (frame) => sizeOf(frame) === '160x90');
  await meeting.seen('streamRemoved', isStream(1));
  await meeting.frameWhere(remote(0), (frame) => sizeOf(frame) === '1280x720');
  await meeting.until(() => meeting.payloads('streamUpdated').filter(isStream(0)).length >= 2);
});

test('the configured quality index limits every stream', async (t) => {
  const { meeting } = await joined(t, 'tessel:room?participants=2', 2);
  for (const [maxVOQualityIndex, size] of [
    [0, '80x45'],
    [1, '160x90'],
    [2, '320x180'],
    [3, '640x360'],
    [4, '640x360'],
  ]) {
    meeting.wrapper.updateConfigData({ configData: JSON.stringify({ maxVOQualityIndex }) });
    for (const index of [0, 1]) {
      await meeting.frameWhere(remote(index), (frame) => sizeOf(frame) === size);
    }
  }
});

test('a new call begins without requests of the previous one', async (t) => {
  const { meeting } = await joined(t, 'tessel:room?participants=1&size=64x36', 1);
  meeting.wrapper.updateVideoStreamsState(wishes([], []));
  await meeting.until(() => meeting.showsNothing(remote(0)));
  await meeting.leave();
  meeting.forget();
  await meeting.join('tessel:room?participants=1&size=64x36');
  await meeting.nextFrame(remote(0));
});
