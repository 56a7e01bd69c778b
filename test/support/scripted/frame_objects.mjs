// The properties of frame objects, and tests for the frames of every build of the addon.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import * as engine from './scripted_engine.mjs';

const HEADER = ['noUpdate', 'clearFrame', 'frameId', 'csrc'];
const PLANES = ['y', 'u', 'v'];
export const FRAME_PROPERTIES = [
  ...HEADER,
  'width',
  'height',
  'yPlaneBuffer',
  'yPlaneBufferWidth',
  'yPlaneBufferHeight',
  'yPlaneBufferSize',
  'yPlaneBufferStride',
  'uPlaneBuffer',
  'uPlaneBufferWidth',
  'uPlaneBufferHeight',
  'uPlaneBufferSize',
  'uPlaneBufferStride',
  'vPlaneBuffer',
  'vPlaneBufferWidth',
  'vPlaneBufferHeight',
  'vPlaneBufferSize',
  'vPlaneBufferStride',
];

let lastIndex = 0;
// A stream that no test has used: what a wrapper retains of one it retains for good.
export const newStream = (type = 'remote') => ({ type, streamIndex: ++lastIndex });

const KINDS = { local: 0, remote: 1, content: 2 };
export const keyOf = ({ type, streamIndex }) => ({ kind: KINDS[type], index: streamIndex });

export const planesOf = (frame) => PLANES.map((plane) => frame[`${plane}PlaneBuffer`]);

const numbersOf = (frame) =>
  Object.fromEntries(Object.entries(frame).filter(([, value]) => !ArrayBuffer.isView(value)));

function assertPlainObject(object, keys) {
  assert.deepEqual(Object.keys(object), keys);
  assert.equal(Object.getPrototypeOf(object), Object.prototype);
  for (const [name, property] of Object.entries(Object.getOwnPropertyDescriptors(object))) {
    const { writable, enumerable, configurable } = property;
    assert.deepEqual([writable, enumerable, configurable], [true, true, true], name);
  }
}

// A frame without a picture: these values and no others.
export function assertHeader(frame, { noUpdate, clearFrame, frameId, csrc }) {
  assertPlainObject(frame, HEADER);
  assert.deepEqual(frame, { noUpdate, clearFrame, frameId, csrc });
}

// A frame with a picture. `planes.y`, `.u` and `.v` are { width, height, size, stride, bytes }.
export function assertPicture(frame, { clearFrame, frameId, csrc, width, height, planes }) {
  assertPlainObject(frame, FRAME_PROPERTIES);
  assert.deepEqual(numbersOf(frame), {
    ...{ noUpdate: false, clearFrame, frameId, csrc, width, height },
    ...Object.fromEntries(
      PLANES.flatMap((plane) => [
        [`${plane}PlaneBufferWidth`, planes[plane].width],
        [`${plane}PlaneBufferHeight`, planes[plane].height],
        [`${plane}PlaneBufferSize`, planes[plane].size],
        [`${plane}PlaneBufferStride`, planes[plane].stride],
      ]),
    ),
  });
  const arrays = planesOf(frame);
  arrays.forEach((array, i) => {
    const { bytes } = planes[PLANES[i]];
    assert.equal(Object.getPrototypeOf(array), Uint8Array.prototype);
    assert.equal(Object.getPrototypeOf(array.buffer), ArrayBuffer.prototype);
    assert.deepEqual(
      [array.byteOffset, array.byteLength, array.buffer.byteLength],
      [0, bytes.length, bytes.length],
    );
    assert.equal(Buffer.compare(array, bytes), 0, `${PLANES[i]} plane`);
  });
  assert.equal(new Set(arrays.map(({ buffer }) => buffer)).size, 3);
}

// What an I420 picture of the scripted engine is to look like.
export function patternedPicture(stream, { width, height, frameId, csrc = 0, clearFrame = false }) {
  const half = (length) => Math.ceil(length / 2);
  const layout = (w, h) => ({ width: w, height: h, size: w * h, stride: w });
  const luma = layout(width, height);
  const chroma = layout(half(width), half(height));
  const memory = engine.patternBytes(
    { ...keyOf(stream), number: frameId },
    luma.size + 2 * chroma.size,
  );
  const [u, v] = [luma.size, luma.size + chroma.size];
  return {
    ...{ clearFrame, frameId, csrc, width, height },
    planes: {
      y: { ...luma, bytes: memory.subarray(0, u) },
      u: { ...chroma, bytes: memory.subarray(u, v) },
      v: { ...chroma, bytes: memory.subarray(v) },
    },
  };
}

// Every array reads as empty.
export function assertStale(frame) {
  assert.deepEqual(
    planesOf(frame).map(({ length, byteLength, buffer }) => [
      length,
      byteLength,
      buffer.byteLength,
    ]),
    [
      [0, 0, 0],
      [0, 0, 0],
      [0, 0, 0],
    ],
  );
}

export const assertWhole = (frame) => assert.ok(engine.isWholeFrame(...planesOf(frame)));

const SIZE = { width: 64, height: 48 };

// Node.js 20 copies the bytes instead.
const REFUSES_TO_TRANSFER_LENT = Number.parseInt(process.versions.node, 10) >= 22;

// `arePlanesLent` says whether the planes are views of memory that is not JavaScript's.
export function testFrameObjects(wrapper, { arePlanesLent }) {
  for (const [width, height] of [
    [1280, 720],
    [641, 361],
    [4, 4],
    [1, 1],
    [0, 0],
  ]) {
    test(`a picture of ${width}x${height} has its 21 properties`, () => {
      const stream = newStream();
      const answer = { width, height, frameId: 7, csrc: 12345 };
      engine.setFrame(stream, answer);
      assertPicture(wrapper.getFrame(stream, 0), patternedPicture(stream, answer));
      assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, answer));
    });
  }

  test('the planes have the numbers and the bytes that the engine tells, each its own', () => {
    const stream = newStream('content');
    const bytes = (size, seed) => Buffer.from(Array.from({ length: size }, (_, i) => seed + i));
    const planes = {
      y: { width: 3, height: 2, size: 10, stride: 5, bytes: bytes(10, 1) },
      u: { width: 4294967295, height: 0, size: 7, stride: 4294967294, bytes: bytes(7, 50) },
      v: { width: 9, height: 4294967293, size: 1, stride: 0, bytes: bytes(1, 200) },
    };
    const answer = { width: 4294967295, height: 4294967292, frameId: 1, csrc: 4294967295 };
    engine.setFrame(stream, { ...answer, planes });
    assertPicture(wrapper.getFrame(stream, 0), { ...answer, clearFrame: false, planes });
  });

  for (const clearFrame of [false, true]) {
    test(`a frame without an update has four properties, clearFrame ${clearFrame}`, () => {
      const stream = newStream('local');
      const answer = { noUpdate: true, clearFrame, frameId: 4294967301, csrc: 4294967295 };
      engine.setFrame(stream, { ...SIZE, ...answer });
      assertHeader(wrapper.getFrame(stream, 0), answer);
    });
  }

  test('a frame with clearFrame and a picture has all properties', () => {
    const stream = newStream();
    const answer = { ...SIZE, clearFrame: true, frameId: 3, csrc: 4 };
    engine.setFrame(stream, answer);
    assertPicture(wrapper.getFrame(stream, 0), patternedPicture(stream, answer));
  });

  test('a frame id beyond 32 bits is the number nearest to it', () => {
    for (const [frameId, expected] of [
      [0, 0],
      [4294967295, 4294967295],
      [4294967301, 4294967301],
      [9007199254740991n, 9007199254740991],
      [9007199254740993n, 9007199254740992],
      [9007199254740995n, 9007199254740996],
      [9223372036854775808n, 9223372036854775808],
      [18446744073709551615n, 18446744073709551616],
    ]) {
      const stream = newStream();
      engine.setFrame(stream, { ...SIZE, frameId, always: true });
      assert.equal(wrapper.getFrame(stream, 0).frameId, expected);
      assert.equal(wrapper.getLastFrame(stream).frameId, expected);
      engine.setFrame(stream, { noUpdate: true, frameId });
      assert.equal(wrapper.getFrame(stream, 0).frameId, expected);
    }
  });

  test('a plane of size 0 is an empty array', () => {
    const stream = newStream();
    const plane = { width: 5, height: 6, size: 0, stride: 7, bytes: Buffer.alloc(0) };
    const planes = {
      y: plane,
      u: { ...plane, nullData: true },
      v: { width: 1, height: 1, size: 1, stride: 1, bytes: Buffer.from([9]) },
    };
    const answer = { width: 5, height: 6, frameId: 1, csrc: 2 };
    engine.setFrame(stream, {
      ...answer,
      planes: { ...planes, u: { ...planes.u, bytes: undefined } },
    });
    const expected = { ...answer, clearFrame: false, planes };
    assertPicture(wrapper.getFrame(stream, 0), expected);
    assertPicture(wrapper.getLastFrame(stream), expected);
  });

  test('a plane of no memory is an empty array beside the size that the engine tells', () => {
    const stream = newStream();
    const lost = { width: 2, height: 3, size: 4294967295, stride: 2, nullData: true };
    const answer = { width: 2, height: 3, frameId: 1, csrc: 2 };
    engine.setFrame(stream, { ...answer, planes: { y: lost, u: lost, v: lost } });
    const plane = { width: 2, height: 3, size: 4294967295, stride: 2, bytes: Buffer.alloc(0) };
    const expected = { ...answer, clearFrame: false, planes: { y: plane, u: plane, v: plane } };
    assertPicture(wrapper.getFrame(stream, 0), expected);
    assertPicture(wrapper.getLastFrame(stream), expected);
  });

  test('a record that the engine leaves unfilled is a picture of nothing', () => {
    const stream = newStream();
    engine.setStream(stream);
    engine.failOperation('GetFrame', { returnsNull: true });
    const picture = patternedPicture(stream, { width: 0, height: 0, frameId: 0 });
    assertPicture(wrapper.getFrame(stream, 0), picture);
    assertPicture(wrapper.getLastFrame(stream), picture);
  });

  // ---- Retained frames

  test('a fresh frame stays whole until the next fresh one of its stream', () => {
    const stream = newStream();
    engine.setFrame(stream, { ...SIZE, frameId: 10, fresh: true });
    const before = engine.liveFrames();
    let previous = wrapper.getFrame(stream, 0);
    for (let number = 11; number < 20; ++number) {
      assert.equal(engine.liveFrames(), before + 1);
      assertPicture(previous, patternedPicture(stream, { ...SIZE, frameId: number - 1 }));
      const next = wrapper.getFrame(stream, 0);
      assertPicture(next, patternedPicture(stream, { ...SIZE, frameId: number }));
      assertStale(previous);
      previous = next;
    }
    assert.equal(engine.liveFrames(), before + 1);
  });

  test('the last frame is the same memory as often as it is asked for', () => {
    const stream = newStream();
    const answer = { ...SIZE, frameId: 5, csrc: 6 };
    engine.setFrame(stream, { ...answer, fresh: true });
    const before = engine.liveFrames();
    const frame = wrapper.getFrame(stream, 0);
    const lasts = Array.from({ length: 3 }, () => wrapper.getLastFrame(stream));
    for (const last of lasts) {
      assertPicture(last, patternedPicture(stream, answer));
      assert.notEqual(last, frame);
      planesOf(last).forEach((array, i) => assert.equal(array.buffer, planesOf(frame)[i].buffer));
    }
    assert.equal(engine.liveFrames(), before + 1);
    wrapper.getFrame(stream, 0);
    for (const last of [frame, ...lasts]) assertStale(last);
  });

  test('an answer without an update leaves the last frame as it is', () => {
    const stream = newStream();
    const answer = { ...SIZE, frameId: 5 };
    engine.setFrame(stream, answer);
    const frame = wrapper.getFrame(stream, 0);
    assertHeader(wrapper.getFrame(stream, 5), {
      ...{ noUpdate: true, clearFrame: false, frameId: 5, csrc: 0 },
    });
    for (const clearFrame of [false, true]) {
      engine.setFrame(stream, { noUpdate: true, clearFrame, frameId: 6 });
      assertHeader(wrapper.getFrame(stream, 0), {
        noUpdate: true,
        clearFrame,
        frameId: 6,
        csrc: 0,
      });
      assertPicture(frame, patternedPicture(stream, answer));
      assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, answer));
    }
  });

  test('a stream that loses its frame manager is to be cleared and keeps its last frame', () => {
    const stream = newStream();
    const answer = { ...SIZE, frameId: 5 };
    engine.setFrame(stream, answer);
    const frame = wrapper.getFrame(stream, 0);
    engine.setStream(stream, { frameManager: false });
    assertHeader(wrapper.getFrame(stream, 5), ABSENT);
    assertPicture(frame, patternedPicture(stream, answer));
    assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, answer));
  });

  test('streams are independent of each other', () => {
    const streams = [
      { type: 'local', streamIndex: 1000 },
      { type: 'remote', streamIndex: 1000 },
      { type: 'content', streamIndex: 1000 },
      { type: 'remote', streamIndex: -1000 },
    ];
    const answer = { ...SIZE, frameId: 5 };
    const pictureOf = (stream, frameId) => patternedPicture(stream, { ...SIZE, frameId });
    const before = engine.liveFrames();
    const frames = streams.map((stream) => {
      engine.setFrame(stream, { ...answer, fresh: true });
      return wrapper.getFrame(stream, 0);
    });
    assert.equal(engine.liveFrames(), before + streams.length);
    streams.forEach((stream, i) => {
      const next = wrapper.getFrame(stream, 0);
      assertPicture(next, pictureOf(stream, 6));
      assertStale(frames[i]);
      frames.slice(i + 1).forEach((frame, k) => {
        assertPicture(frame, pictureOf(streams[i + 1 + k], 5));
        assertPicture(wrapper.getLastFrame(streams[i + 1 + k]), pictureOf(streams[i + 1 + k], 5));
      });
      streams.slice(0, i).forEach((earlier) => {
        assertPicture(wrapper.getLastFrame(earlier), pictureOf(earlier, 6));
      });
    });
  });

  // ---- Frames with clearFrame

  // A stream with a retained frame 5 and then a frame 8 to be cleared, with the frames of both.
  function clearedStream() {
    const stream = newStream();
    engine.setFrame(stream, { ...SIZE, frameId: 5 });
    const retained = wrapper.getFrame(stream, 0);
    engine.setFrame(stream, { ...SIZE, frameId: 8, clearFrame: true, fresh: true });
    return { stream, retained, cleared: wrapper.getFrame(stream, 0) };
  }
  const retainedPicture = (stream) => patternedPicture(stream, { ...SIZE, frameId: 5 });
  const clearedPicture = (stream, frameId = 8) =>
    patternedPicture(stream, { ...SIZE, frameId, clearFrame: true });

  test('a frame to be cleared is not the last frame, and leaves that one whole', () => {
    const { stream, retained, cleared } = clearedStream();
    assertPicture(cleared, clearedPicture(stream));
    assertPicture(retained, retainedPicture(stream));
    assertPicture(wrapper.getLastFrame(stream), retainedPicture(stream));
    assertPicture(cleared, clearedPicture(stream));
  });

  test('a frame to be cleared is no last frame of a stream without another', () => {
    const stream = newStream();
    engine.setFrame(stream, { ...SIZE, frameId: 5, clearFrame: true });
    wrapper.getFrame(stream, 0);
    assertHeader(wrapper.getLastFrame(stream), ABSENT);
  });

  test('a frame to be cleared stays whole while there is no update', () => {
    const { stream, cleared } = clearedStream();
    engine.setFrame(stream, { noUpdate: true, clearFrame: true });
    wrapper.getFrame(stream, 0);
    engine.setStream(stream, { frameManager: false });
    wrapper.getFrame(stream, 0);
    assertPicture(cleared, clearedPicture(stream));
  });

  test('a frame to be cleared ends with the next one to be cleared', () => {
    const { stream, retained, cleared } = clearedStream();
    const next = wrapper.getFrame(stream, 0);
    assertStale(cleared);
    assertPicture(next, clearedPicture(stream, 9));
    assertPicture(retained, retainedPicture(stream));
  });

  test('a frame to be cleared ends, as the retained one does, with the next fresh frame', () => {
    const { stream, retained, cleared } = clearedStream();
    engine.setFrame(stream, { ...SIZE, frameId: 10 });
    const next = wrapper.getFrame(stream, 0);
    assertStale(cleared);
    assertStale(retained);
    assertPicture(next, patternedPicture(stream, { ...SIZE, frameId: 10 }));
  });

  test('the memory of a frame to be cleared is given back with its end', () => {
    const stream = newStream();
    const before = engine.liveFrames();
    const liveAfter = (clearFrame) => {
      engine.setFrame(stream, { ...SIZE, clearFrame, fresh: true });
      wrapper.getFrame(stream, 0);
      return engine.liveFrames() - before;
    };
    assert.deepEqual([false, true, true, false, true].map(liveAfter), [1, 2, 2, 1, 2]);
  });

  test('a frame to be cleared leaves the frames of other streams alone', () => {
    const { stream, retained, cleared } = clearedStream();
    const other = clearedStream();
    wrapper.getFrame(other.stream, 0);
    assertPicture(cleared, clearedPicture(stream));
    assertPicture(retained, retainedPicture(stream));
  });

  // ---- What JavaScript does with its arrays

  test('arrays that JavaScript tries to transfer do no harm', () => {
    const stream = newStream();
    const pictureOf = (frameId) => patternedPicture(stream, { ...SIZE, frameId });
    engine.setFrame(stream, { ...SIZE, frameId: 5, fresh: true });
    let frame = wrapper.getFrame(stream, 0);
    for (let i = 0; i < 2; ++i) {
      const transfer = planesOf(frame).map(({ buffer }) => buffer);
      const clone = () => structuredClone(frame, { transfer });
      if (arePlanesLent && REFUSES_TO_TRANSFER_LENT) {
        assert.throws(clone, { name: 'DataCloneError' });
      } else {
        assertPicture(clone(), pictureOf(5));
      }
      if (arePlanesLent) assertPicture(frame, pictureOf(5));
      else assertStale(frame);
      frame = wrapper.getLastFrame(stream);
      assertPicture(frame, pictureOf(5));
    }
    assertPicture(wrapper.getFrame(stream, 0), pictureOf(6));
  });

  test('empty arrays that JavaScript transfers do no harm', () => {
    const stream = newStream();
    const frameOf = { width: 0, height: 0, frameId: 5 };
    engine.setFrame(stream, { ...frameOf, fresh: true });
    const frame = wrapper.getFrame(stream, 0);
    structuredClone(frame, { transfer: planesOf(frame).map(({ buffer }) => buffer) });
    assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, frameOf));
    wrapper.getFrame(stream, 0);
  });
}

// The answer for a stream that has no frame.
export const ABSENT = Object.freeze({ noUpdate: true, clearFrame: true, frameId: 0, csrc: 0 });
