// Frames on a host that refuses external array buffers: the planes are copied once, with no other
// difference.

import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import path from 'node:path';
import { after, beforeEach, test } from 'node:test';
import { Worker } from 'node:worker_threads';

import { build } from '../../support/build.mjs';
import { collectUntil } from '../../support/collector.mjs';
import {
  assertPicture,
  assertStale,
  newStream,
  patternedPicture,
  planesOf,
  testFrameObjects,
} from '../../support/scripted/frame_objects.mjs';
import { makeWrapper } from '../../support/make_wrapper.mjs';
import { countOf, entryOf } from '../../support/shared_memory/handmade_segments.mjs';
import { fileOfSegment } from '../../support/shared_memory/shared_memory_names.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';

const { TesselWrapper, TesselWrapperProxy } = createRequire(import.meta.url)(
  path.join(build, 'test/addons/refusing/tesselWrapper.node'),
);
const { wrapper } = makeWrapper(TesselWrapper);

beforeEach(() => engine.reset());
after(() => wrapper.destroy());

const SIZE = { width: 64, height: 48 };
const buffersOf = (frame) => planesOf(frame).map(({ buffer }) => buffer);

testFrameObjects(wrapper, { arePlanesLent: false });

test("the arrays are not views of the engine's memory", () => {
  const stream = newStream();
  const answer = { ...SIZE, frameId: 1 };
  engine.setFrame(stream, { ...answer, always: true });
  for (const array of planesOf(wrapper.getFrame(stream, 0))) array.fill(100);
  // The engine returns the same picture again.
  assertPicture(wrapper.getFrame(stream, 0), patternedPicture(stream, answer));
});

test('the planes are copied once for all frame objects of a picture', () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 1, fresh: true });
  const frame = wrapper.getFrame(stream, 0);
  for (const array of planesOf(frame)) array.fill(100);
  for (let i = 0; i < 2; ++i) {
    const last = wrapper.getLastFrame(stream);
    buffersOf(last).forEach((buffer, k) => assert.equal(buffer, buffersOf(frame)[k]));
    assert.ok(planesOf(last).every((array) => array.every((byte) => byte === 100)));
  }
});

test('planes that JavaScript transfers are copied again for the next frame object', async () => {
  const stream = newStream();
  const answer = { ...SIZE, frameId: 1 };
  const picture = patternedPicture(stream, answer);
  engine.setFrame(stream, { ...answer, fresh: true });
  const frame = wrapper.getFrame(stream, 0);
  const live = engine.liveFrames();

  const worker = new Worker('require("worker_threads").parentPort.on("message", () => {})', {
    eval: true,
  });
  worker.postMessage(frame, [frame.uPlaneBuffer.buffer]);
  await worker.terminate();
  assert.equal(frame.uPlaneBuffer.length, 0);
  assertPicture(wrapper.getLastFrame(stream), picture);

  const last = wrapper.getLastFrame(stream);
  const moved = structuredClone(last, { transfer: buffersOf(last) });
  assertPicture(wrapper.getLastFrame(stream), picture);
  assertPicture(wrapper.getFrame(stream, 0), patternedPicture(stream, { ...SIZE, frameId: 2 }));
  // What was moved is JavaScript's own, and the engine's frame is no longer held.
  planesOf(moved).forEach((array, i) => {
    assert.equal(Buffer.compare(array, Object.values(picture.planes)[i].bytes), 0);
  });
  assert.equal(engine.liveFrames(), live);
});

test('a failure to build a frame object throws, unlocks the segment and does not stop the stream', () => {
  const stream = newStream();
  engine.setStream(stream);
  const key = wrapper.getSharedDataInfo();
  wrapper.enterWidgetMode(stream);
  const { sem_name: lock } = entryOf(fileOfSegment(key.shm_name), stream.streamIndex);
  const proxy = new TesselWrapperProxy(key);
  for (const method of ['getFrame', 'getLastFrame']) {
    // The second frame of all is the first one that getLastFrame shows.
    for (let i = 0; i < 2; ++i) engine.pushFrame(stream, { width: 13, height: 7 });
    assert.throws(() => proxy[method](stream, -1), { name: 'Error' });
    assert.equal(countOf(lock), 1);
    assert.ok(engine.pushFrame(stream, { width: 64, height: 36 }));
    assert.equal(proxy[method](stream, -1).width, 64);
    proxy.releaseFrame(stream);
  }
  proxy.removeVideo(stream);
  wrapper.exitWidgetMode(stream);
});

// The last one: a second wrapper of one second has the names of the first, and takes them with it.
test('the copies are released with their wrapper', async () => {
  const stream = newStream();
  const before = engine.liveFrames();
  const owner = makeWrapper(TesselWrapper);
  engine.setFrame(stream, { ...SIZE, frameId: 5, fresh: true });
  const frame = owner.wrapper.getFrame(stream, 0);
  owner.wrapper.destroy();
  assertPicture(frame, patternedPicture(stream, { ...SIZE, frameId: 5 }));
  engine.dropCallback();
  delete owner.wrapper;
  await collectUntil(() => engine.liveFrames() === before);
  assertStale(frame);
});
