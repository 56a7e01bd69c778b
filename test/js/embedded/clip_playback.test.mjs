// Clips made by ffmpeg, played through the whole path: the planes that JavaScript receives are,
// byte for byte, ffmpeg's own raw output.

import assert from 'node:assert/strict';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { setImmediate } from 'node:timers/promises';

import { Meeting } from '../../support/embedded_meeting.mjs';
import { ffmpeg } from '../../support/ffmpeg.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { remote } from '../../support/streams.mjs';

const FRAMES = 12;
const STREAM = remote(0);

// A clip of FRAMES pictures as `clip.y4m` and, from the same source, as raw planes.
function makeClip(directory, width, height) {
  const source = ['-f', 'lavfi', '-i', `testsrc2=rate=25,scale=${width}:${height}`];
  const output = (format, file) => {
    const picture = ['-frames:v', `${FRAMES}`, '-pix_fmt', 'yuv420p', '-f', format];
    const target = path.join(directory, file);
    ffmpeg(...source, ...picture, target);
    return target;
  };
  return {
    clip: output('yuv4mpegpipe', 'clip.y4m'),
    raw: readFileSync(output('rawvideo', 'clip.yuv')),
  };
}

const clipUri = (clip) => `tessel:room?participants=1&video=${encodeURIComponent(clip)}`;

for (const [kind, width, height] of [
  ['an even', 320, 180],
  ['an odd', 321, 181],
]) {
  test(`every picture of a clip of ${kind} size arrives byte for byte`, async (t) => {
    const { clip, raw } = makeClip(temporaryDirectory(t), width, height);
    const luma = width * height;
    const chroma = Math.ceil(width / 2) * Math.ceil(height / 2);
    const size = luma + 2 * chroma;
    assert.equal(raw.length, FRAMES * size);

    const meeting = new Meeting(t);
    assert.equal(await meeting.join(clipUri(clip)), true);
    const seen = new Set();
    let frameId = 0;
    // The clip is looped, so a missed picture is shown again.
    while (seen.size < FRAMES) {
      const frame = await meeting.nextFrame(STREAM, frameId);
      frameId = frame.frameId;
      const number = (frameId - 1) % FRAMES;
      const expected = raw.subarray(number * size, (number + 1) * size);
      assert.deepEqual([frame.width, frame.height], [width, height]);
      assert.ok(expected.subarray(0, luma).equals(frame.yPlaneBuffer), `Y of ${number}`);
      assert.ok(
        expected.subarray(luma, luma + chroma).equals(frame.uPlaneBuffer),
        `U of ${number}`,
      );
      assert.ok(expected.subarray(luma + chroma).equals(frame.vPlaneBuffer), `V of ${number}`);
      seen.add(number);
    }
  });
}

test('a clip that is played once stays at its last picture', async (t) => {
  const { clip } = makeClip(temporaryDirectory(t), 64, 36);
  const meeting = new Meeting(t);
  await meeting.join(`${clipUri(clip)}&loop=0&fps=60`);
  let frameId = 0;
  while (frameId < FRAMES) ({ frameId } = await meeting.nextFrame(STREAM, frameId));
  assert.equal(frameId, FRAMES);
  await setImmediate();
  assert.equal(meeting.wrapper.getFrame(STREAM, frameId).noUpdate, true);
});

test('an invalid or incomplete clip is refused with a reason', async (t) => {
  const directory = temporaryDirectory(t);
  const { clip } = makeClip(directory, 64, 36);
  const bytes = readFileSync(clip);
  const header = (text) => Buffer.concat([Buffer.from(`${text}\n`), bytes]);
  for (const [name, content] of [
    ['empty', Buffer.alloc(0)],
    ['text', Buffer.from('no clip at all')],
    ['truncated', bytes.subarray(0, bytes.length - 1)],
    ['without a size', header('YUV4MPEG2 F25:1')],
    ['of another colour space', header('YUV4MPEG2 W64 H36 F25:1 C444')],
    ['of size zero', header('YUV4MPEG2 W0 H36 F25:1')],
    ['of absurd size', header('YUV4MPEG2 W99999999 H36 F25:1')],
  ]) {
    const file = path.join(directory, `${name}.y4m`);
    writeFileSync(file, content);
    const meeting = new Meeting(t);
    assert.equal(await meeting.join(clipUri(file)), false, name);
    const { reason, code } = await meeting.seen('callDisconnect');
    assert.equal(code, 415, name);
    assert.notEqual(reason, '', name);
  }
});
