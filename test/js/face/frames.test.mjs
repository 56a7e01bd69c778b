// A meeting's frames: their rate, their end, their counters, and their copies.

import assert from 'node:assert/strict';
import { setImmediate } from 'node:timers/promises';
import { after, afterEach, before, beforeEach, describe, test } from 'node:test';

import * as engine from '../../support/scripted/scripted_engine.mjs';
import { face, mockClocks, openMeeting, requireFace } from '../../support/face.mjs';
import { remote } from '../../support/streams.mjs';

const { copyI420, copyRgba, frameCounters } = face;
const { Pace } = requireFace('./pace.js');

const STREAM = remote(3);
const SIZE = { width: 64, height: 36 };

describe('the frames of a meeting', () => {
  // One for all tests: a second one would have to wait for the next second.
  let meeting;

  before(async () => {
    meeting = await openMeeting();
  });

  after(() => meeting.close());

  const notify = async (name, stream = STREAM) => {
    const event = name === 'NotifyStreamAdded' ? 'streamAdded' : 'streamRemoved';
    const seen = meeting.waitFor(event);
    engine.fire(name, stream, 7);
    await seen;
  };

  beforeEach(() => notify('NotifyStreamAdded'));
  afterEach(() => notify('NotifyStreamRemoved'));

  const show = (frameId, answer = {}) =>
    engine.setFrame(STREAM, { ...SIZE, frameId, noUpdate: false, ...answer });
  const clear = () => engine.setFrame(STREAM, { noUpdate: true, clearFrame: true });

  // Requests the next frame, which arrives after it is shown and not before; ends the loop.
  async function expectNothingUntilShown(frames, frameId) {
    engine.clearCalls();
    const next = frames.next();
    while (engine.operations().filter((name) => name === 'GetFrame').length < 3)
      await setImmediate();
    show(frameId);
    assert.equal((await next).value.frameId, frameId);
    await frames.return();
  }

  // The counters of the stream, as numbers of what happens in `step`.
  async function counted(step) {
    const counters = () => {
      const { delivered, skipped, released } = meeting
        .counters()
        .find(({ stream }) => stream === 'remote-3') ?? { delivered: 0, skipped: 0, released: 0 };
      return [delivered, skipped, released];
    };
    const before = counters();
    await step();
    return counters().map((count, index) => count - before[index]);
  }

  test('each frame is the newest one, and the missed ones are counted as skipped', async () => {
    const ids = [];
    const counts = await counted(async () => {
      show(5);
      for await (const frame of meeting.frames(STREAM, { rate: 500 })) {
        ids.push(frame.frameId);
        if (frame.frameId === 10) break;
        // Two more frames arrive before the next one is requested.
        show(frame.frameId === 5 ? 6 : 9);
        show(frame.frameId === 5 ? 7 : 10);
      }
    });
    assert.deepEqual(ids, [5, 7, 10]);
    assert.deepEqual(counts, [3, 3, 3]);
  });

  test('a frame has the time at which the loop got it, as performance.now() measures it', async () => {
    show(1);
    let last = performance.now();
    for await (const { frameId, receivedAt } of meeting.frames(STREAM, { rate: 1000 })) {
      assert.ok(last < receivedAt && receivedAt <= performance.now());
      if (frameId === 3) break;
      await setImmediate();
      last = performance.now();
      assert.ok(last > receivedAt);
      show(frameId + 1);
    }
  });

  test('a frame is delivered once', async () => {
    show(1);
    const frames = meeting.frames(STREAM, { rate: 1000 });
    assert.equal((await frames.next()).value.frameId, 1);
    await expectNothingUntilShown(frames, 2);
  });

  test('a frame counts as held until the next is requested, even when the loop is left', async () => {
    show(1);
    const counts = await counted(async () => {
      const loop = (async () => {
        for await (const frame of meeting.frames(STREAM)) throw new Error(`at ${frame.frameId}`);
      })();
      await assert.rejects(loop, { message: 'at 1' });
    });
    assert.deepEqual(counts, [1, 0, 1]);
    const inHand = await counted(async () => {
      const frames = meeting.frames(STREAM);
      await frames.next();
    });
    assert.deepEqual(inHand, [1, 0, 0]);
  });

  test('the planes are valid in the loop body, even after an await', async () => {
    show(4);
    for await (const frame of meeting.frames(STREAM)) {
      await setImmediate();
      assert.ok(engine.isWholeFrame(copyI420(frame)));
      break;
    }
  });

  test('a stream without a picture is reported once after a picture, and never before the first', async () => {
    clear();
    const frames = meeting.frames(STREAM, { rate: 1000 });
    const first = frames.next();
    while (!engine.operations().includes('GetFrame')) await setImmediate();
    show(1);
    assert.equal((await first).value.frameId, 1);
    clear();
    const { receivedAt, ...frame } = (await frames.next()).value;
    assert.deepEqual(frame, { noUpdate: true, clearFrame: true, frameId: 0, csrc: 0 });
    assert.equal(typeof receivedAt, 'number');
    await expectNothingUntilShown(frames, 2);
  });

  test('the loop ends when its stream is removed', async () => {
    show(1);
    const counts = await counted(async () => {
      for await (const frame of meeting.frames(STREAM)) {
        assert.equal(frame.frameId, 1);
        await notify('NotifyStreamRemoved');
      }
    });
    assert.deepEqual(counts, [1, 0, 1]);
  });

  test('the loop ends when another stream replaces its own', async () => {
    show(50);
    const counts = await counted(async () => {
      for await (const frame of meeting.frames(STREAM)) {
        assert.equal(frame.frameId, 50);
        await notify('NotifyStreamRemoved');
        await notify('NotifyStreamAdded');
        show(51);
      }
    });
    assert.deepEqual(counts, [1, 0, 1]);
  });

  test('the engine is asked once for a missing stream, until it is added', async (t) => {
    mockClocks(t, { apis: ['setTimeout'] });
    const other = { type: 'remote', streamIndex: 9 };
    const frames = meeting.frames(other);
    const ended = frames.next();
    engine.clearCalls();
    const pass = async () => {
      t.mock.timers.tick(1000);
      await setImmediate();
    };
    for (let round = 0; round < 10; round++) await pass();
    const asked = () => engine.operations().filter((name) => name === 'GetFrameManager').length;
    assert.equal(asked(), 1);
    await notify('NotifyStreamAdded'); // another one
    for (let round = 0; round < 10; round++) await pass();
    assert.equal(asked(), 1);
    await notify('NotifyStreamAdded', other);
    await pass();
    assert.equal(asked(), 2);
    await notify('NotifyStreamRemoved', other);
    await pass();
    assert.deepEqual(await ended, { done: true, value: undefined });
  });

  test('the loop waits for a missing stream until its signal is aborted', async () => {
    const controller = new AbortController();
    const other = { type: 'remote', streamIndex: 9 };
    const next = meeting.frames(other, { signal: controller.signal, rate: 1000 }).next();
    engine.clearCalls();
    while (!engine.operations().includes('GetFrameManager')) await setImmediate();
    controller.abort(new Error('enough'));
    await assert.rejects(next, { message: 'enough' });
  });

  test('the local stream has frames without a stream event', async () => {
    const local = { type: 'local', streamIndex: 0 };
    const frames = meeting.frames(local, { rate: 1000 });
    const next = frames.next();
    engine.clearCalls();
    while (!engine.operations().includes('GetFrameManager')) await setImmediate();
    engine.setFrame(local, { ...SIZE, frameId: 1 });
    assert.equal((await next).value.frameId, 1);
    await frames.return();
  });

  test('the loop waits for a stream that is added later', async () => {
    const other = { type: 'content', streamIndex: 0 };
    const frames = meeting.frames(other, { rate: 1000 });
    const first = frames.next();
    engine.clearCalls();
    while (!engine.operations().includes('GetFrameManager')) await setImmediate();
    await notify('NotifyStreamAdded', other);
    engine.setFrame(other, { ...SIZE, frameId: 1 });
    assert.equal((await first).value.frameId, 1);
    await notify('NotifyStreamRemoved', other);
    assert.deepEqual(await frames.next(), { done: true, value: undefined });
  });

  test('the loop throws the reason of its signal', async () => {
    show(1);
    const controller = new AbortController();
    const loop = (async () => {
      for await (const frame of meeting.frames(STREAM, { signal: controller.signal })) {
        assert.equal(frame.frameId, 1);
        controller.abort(new Error('enough'));
      }
    })();
    await assert.rejects(loop, { message: 'enough' });
    const aborted = meeting.frames(STREAM, { signal: AbortSignal.abort(new Error('never')) });
    await assert.rejects(aborted.next(), { message: 'never' });
  });

  test('a rate that is not a positive number is rejected at once', () => {
    for (const rate of [0, -1, Number.NaN]) {
      assert.throws(() => meeting.frames(STREAM, { rate }), {
        name: 'RangeError',
        message: `rate ${rate}: not a positive number`,
      });
    }
    for (const [rate, shown] of [
      ['30', "'30'"],
      [null, 'null'],
    ]) {
      assert.throws(() => meeting.frames(STREAM, { rate }), {
        name: 'TypeError',
        message: `rate ${shown}: not a number`,
      });
    }
  });

  for (const [name, end, outcome] of [
    ['return', (frames) => frames.return(), { done: true, value: undefined }],
    ['throw', (frames) => frames.throw(new Error('mine')), 'mine'],
  ]) {
    test(`${name} ends at once a loop that waits for its stream or a frame`, async () => {
      for (const stream of [{ type: 'remote', streamIndex: 9 }, STREAM]) {
        clear();
        engine.clearCalls();
        const frames = meeting.frames(stream, { rate: 1000 });
        const next = frames.next();
        while (!engine.operations().includes('GetFrameManager')) await setImmediate();
        const ended = end(frames).catch(({ message }) => message);
        assert.deepEqual(await next, { done: true, value: undefined });
        assert.deepEqual(await ended, outcome);
        assert.deepEqual(await frames.next(), { done: true, value: undefined });
      }
    });
  }

  test('frameCounters() lists the counters of the process', async () => {
    show(1);
    for await (const frame of meeting.frames(STREAM)) {
      assert.equal(frame.frameId, 1);
      break;
    }
    const rows = meeting.counters();
    assert.deepEqual(frameCounters(), rows);
    const [row] = rows;
    assert.deepEqual(Object.keys(row), ['owner', 'stream', 'delivered', 'skipped', 'released']);
    assert.deepEqual([row.owner, row.stream], ['meeting 1', 'remote-3']);
  });

  test('copying a frame whose planes are no longer valid is rejected', async () => {
    show(1);
    const first = meeting.wrapper.getFrame(STREAM, 0);
    show(2);
    meeting.wrapper.getFrame(STREAM, 1);
    for (const copy of [copyI420, copyRgba]) {
      assert.throws(() => copy(first), {
        message: 'The planes of the frame are no longer valid: copy it before the next is read',
      });
    }
  });
});

// ---- The pace

test('a rate of one frame in years waits for the longest delay of a timer', () => {
  assert.equal(new Pace(1e-10).next(true), 2 ** 31 - 1);
});

test('a frame is due one period after the previous one, or at once when that time has passed', (t) => {
  let now = 1000;
  t.mock.method(requireFace('./clocks.js'), 'monotonicTime', () => now);
  const pace = new Pace(10);
  assert.equal(pace.next(false), 25);
  now = 1025;
  assert.equal(pace.next(true), 100);
  now = 1130; // 5 ms late
  assert.equal(pace.next(true), 95);
  now = 1225.5;
  assert.equal(pace.next(false), 25);
  now = 1250.5;
  assert.equal(pace.next(true), 100);
  now = 2000;
  assert.equal(pace.next(true), 0);
  now = 2001.5;
  assert.equal(pace.next(true), 99);
});

// ---- Copying frames

// A frame of 3 by 3 with rows of 4 bytes, 2 by 2 chroma with rows of 3.
const odd = () => ({
  noUpdate: false,
  width: 3,
  height: 3,
  ...planeOf('y', 3, 4, [1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0]),
  ...planeOf('u', 2, 3, [10, 11, 0, 12, 13, 0]),
  ...planeOf('v', 2, 2, [20, 21, 22, 23]),
});

const planeOf = (name, side, stride, bytes) => ({
  [`${name}PlaneBuffer`]: Uint8Array.from(bytes),
  [`${name}PlaneBufferWidth`]: side,
  [`${name}PlaneBufferHeight`]: side,
  [`${name}PlaneBufferSize`]: bytes.length,
  [`${name}PlaneBufferStride`]: stride,
});

test('copyI420 packs the planes tightly', () => {
  const packed = [1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 20, 21, 22, 23];
  assert.deepEqual([...copyI420(odd())], packed);
});

test("both copy functions fill the first bytes of a target, and return that part in the target's class", () => {
  for (const copy of [copyI420, copyRgba]) {
    const expected = [...copy(odd())];
    const size = expected.length;
    for (const view of [
      (...part) => new Uint8Array(...part),
      (...part) => new Uint8ClampedArray(...part),
      (...part) => Buffer.from(...part),
    ]) {
      const target = view(new ArrayBuffer(size + 5), 2, size + 1);
      target[size] = 77;
      const part = copy(odd(), target);
      assert.equal(part.constructor, target.constructor);
      assert.equal(part.buffer, target.buffer);
      assert.equal(part.byteOffset, 2);
      assert.deepEqual([...part], expected);
      assert.deepEqual([...target], [...expected, 77]);
      assert.throws(() => copy(odd(), view(new ArrayBuffer(size - 1))), {
        name: 'RangeError',
        message: `The target has ${size - 1} bytes, the frame needs ${size}`,
      });
    }
  }
});

test('neither copy function accepts a target whose elements are not bytes', () => {
  const others = [new Float32Array(99), new Int8Array(99), new ArrayBuffer(99), [1], null, {}, 'a'];
  for (const copy of [copyI420, copyRgba]) {
    for (const target of others) {
      assert.throws(() => copy(odd(), target), {
        name: 'TypeError',
        message: /^target .*: not a Uint8Array or Uint8ClampedArray$/s,
      });
    }
  }
});

test('without a target copyI420 returns a Uint8Array, and copyRgba an array for ImageData', () => {
  assert.equal(copyI420(odd(), undefined).constructor, Uint8Array);
  assert.equal(copyRgba(odd(), undefined).constructor, Uint8ClampedArray);
});

test('a frame without a picture is rejected', () => {
  const withoutPicture = { noUpdate: true, clearFrame: true, frameId: 0, csrc: 0 };
  const { vPlaneBuffer, ...withoutPlane } = odd();
  assert.equal(vPlaneBuffer.length, 4);
  for (const copy of [copyI420, copyRgba]) {
    for (const given of [{}, withoutPicture, withoutPlane, undefined, null]) {
      assert.throws(() => copy(given), { name: 'TypeError', message: 'The frame has no picture' });
    }
  }
});

test('copyRgba converts limited range BT.601, and clamps into any target', () => {
  const pixel = (y, u, v) => ({
    noUpdate: false,
    width: 1,
    height: 1,
    ...planeOf('y', 1, 1, [y]),
    ...planeOf('u', 1, 1, [u]),
    ...planeOf('v', 1, 1, [v]),
  });
  for (const [yuv, rgba] of [
    [
      [16, 128, 128],
      [0, 0, 0, 255],
    ],
    [
      [235, 128, 128],
      [255, 255, 255, 255],
    ],
    [
      [81, 90, 240],
      [254, 0, 0, 255],
    ],
    [
      [145, 54, 34],
      [0, 255, 1, 255],
    ],
    [
      [41, 240, 110],
      [0, 0, 255, 255],
    ],
  ]) {
    assert.deepEqual([...copyRgba(pixel(...yuv))], rgba, yuv.join());
    assert.deepEqual([...copyRgba(pixel(...yuv), new Uint8Array(4))], rgba, yuv.join());
  }
});

test('copyRgba reads each pixel from its own row, column and chroma', () => {
  const rgba = copyRgba(odd());
  const grey = ({ y, u, v }) =>
    [y + 1.596 * v, y - 0.392 * u - 0.813 * v, y + 2.017 * u].map((value) =>
      Math.max(0, Math.min(255, Math.round(value))),
    );
  const { yPlaneBuffer, uPlaneBuffer, vPlaneBuffer } = odd();
  for (let row = 0; row < 3; row++) {
    for (let column = 0; column < 3; column++) {
      const expected = grey({
        y: 1.164 * (yPlaneBuffer[4 * row + column] - 16),
        u: uPlaneBuffer[3 * (row >> 1) + (column >> 1)] - 128,
        v: vPlaneBuffer[2 * (row >> 1) + (column >> 1)] - 128,
      });
      const at = 4 * (3 * row + column);
      assert.deepEqual([...rgba.subarray(at, at + 3)], expected, `${row}, ${column}`);
    }
  }
});
