// A widget that reads frames of one size and compares every frame with the engine's pattern: its
// size, its stream, and every byte. It runs a trial's commands.

import { setImmediate, setTimeout } from 'node:timers/promises';

import addon from '../../../js/index.js';
import { obey } from '../commanded_process.mjs';
import { frameIdentity, IDENTITY_SIZE } from '../scripted/frame_pattern.mjs';

const NO_FRAME = -1;
const CSRC = 5; // of all frames
const KINDS = { local: 0, remote: 1, content: 2 };
const PERIOD = 256;
const LARGEST = 2_100_000;

// A frame's bytes are a part of this, which begins where its seed says.
const PATTERN = Uint8Array.from({ length: LARGEST + PERIOD }, (_, i) => i);

let size;
let proxy;
const formerProxies = [];
let reading = false;
const seen = {
  ...{ frames: 0, missing: 0, broken: 0, outOfOrder: 0, newest: -1 },
  ...{ calls: 0, slowestMs: 0 },
};

function isExpected(frame, stream) {
  const { width, height } = size;
  const planes = [frame.yPlaneBuffer, frame.uPlaneBuffer, frame.vPlaneBuffer];
  const lengths = [width * height, (width * height) / 4, (width * height) / 4];
  if (frame.width !== width || frame.height !== height || frame.csrc !== CSRC) return false;
  if (planes.some((plane, i) => plane.length !== lengths[i])) return false;
  const { kind, index, number } = frameIdentity(frame.yPlaneBuffer);
  if (kind !== KINDS[stream.type] || index !== stream.streamIndex) return false;
  let offset = (7 * kind + 17 * index + 31 * number) % PERIOD;
  let skipped = IDENTITY_SIZE;
  for (const plane of planes) {
    const expected = PATTERN.subarray(offset + skipped, offset + plane.length);
    if (Buffer.compare(plane.subarray(skipped), expected) !== 0) return false;
    offset = (offset + plane.length) % PERIOD;
    skipped = 0;
  }
  return true;
}

// Calls the proxy, and takes the time of that call alone.
function call(method, stream) {
  const start = performance.now();
  const answer = proxy[method](stream, NO_FRAME);
  seen.slowestMs = Math.max(seen.slowestMs, Math.round(performance.now() - start));
  ++seen.calls;
  return answer;
}

function count(frame, stream) {
  if (frame.noUpdate) {
    ++seen.missing;
    return;
  }
  // A segment into which nothing has been stored yet.
  if (frame.width === 0 && seen.frames === 0) return;
  if (!isExpected(frame, stream)) {
    ++seen.broken;
    return;
  }
  const { number } = frameIdentity(frame.yPlaneBuffer);
  if (number < seen.newest) ++seen.outOfOrder;
  if (number !== seen.newest) ++seen.frames;
  seen.newest = number;
}

function readOnce(stream) {
  count(call('getFrame', stream), stream);
  call('releaseFrame', stream);
}

async function repeat(step, pause) {
  reading = true;
  while (reading) {
    step();
    await pause();
  }
}

obey({
  // All frames are to have this size.
  open(key, expected = size) {
    size = expected;
    if (proxy) formerProxies.push(proxy);
    proxy = new addon.TesselWrapperProxy(key);
  },
  // One call: whether it gave the frame that it should.
  isFrame(method, stream) {
    const answer = call(method, stream);
    return answer !== undefined && !answer.noUpdate && isExpected(answer, stream);
  },
  // Reads until so many new frames were seen, or something else than a whole one.
  async read(stream, frames) {
    const until = { ...seen, frames: seen.frames + frames };
    while (
      seen.frames < until.frames &&
      seen.missing === until.missing &&
      seen.broken === until.broken
    ) {
      readOnce(stream);
      await setTimeout(1);
    }
    return seen;
  },
  readOnce(stream) {
    readOnce(stream);
    return seen;
  },
  // Reads on, until told to stop, with a pause of a millisecond or none.
  keepReading(stream, { pauses = true } = {}) {
    repeat(
      () => readOnce(stream),
      () => (pauses ? setTimeout(1) : setImmediate()),
    );
  },
  // Opens everything anew for each reading.
  keepOpening(key, stream) {
    repeat(() => {
      formerProxies.push(proxy);
      proxy = new addon.TesselWrapperProxy(key);
      readOnce(stream);
    }, setImmediate);
  },
  stopReading() {
    reading = false;
    return seen;
  },
  seen: () => seen,
});
