// Fetching frames: stream keys, frame objects, and how long their pixels are valid.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';
import { setImmediate } from 'node:timers/promises';

import { runInChild } from '../../support/child.mjs';
import { collectUntil } from '../../support/collector.mjs';
import {
  ABSENT,
  FRAME_PROPERTIES,
  assertHeader,
  assertPicture,
  assertStale,
  assertWhole,
  keyOf,
  newStream,
  patternedPicture,
  planesOf,
  testFrameObjects,
} from '../../support/scripted/frame_objects.mjs';
import { makeWrapper } from '../../support/make_wrapper.mjs';
import { WAYS_OUT_OF_REACH } from '../../support/scripted/out_of_reach.mjs';
import { withPatchedGlobals } from '../../support/patched_globals.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';

const { TesselWrapper, TesselWrapperProxy } = engine.loadAddon();
const { wrapper } = makeWrapper(TesselWrapper);

beforeEach(() => engine.reset());
after(() => wrapper.destroy());

const SIZE = { width: 64, height: 64 };

// For a script in a child process.
const FRAME_MODULES = [
  './support/scripted/scripted_engine.mjs',
  './support/make_wrapper.mjs',
  './support/scripted/frame_objects.mjs',
];

// Asserts that `call` throws an error of exactly this class and text, and does not call the engine.
function assertRefused(call, type, message) {
  engine.clearCalls();
  assert.throws(call, (error) => {
    assert.deepEqual([error.constructor, error.message], [type, message]);
    return true;
  });
  assert.deepEqual(engine.takeCalls(), []);
}

// ---- Stream keys

const WITH_STREAM = [
  ['getFrame', (stream) => wrapper.getFrame(stream, 0)],
  ['getLastFrame', (stream) => wrapper.getLastFrame(stream)],
];

// The same object with each look and each reading noted.
function watched(object, log) {
  return new Proxy(object, {
    has: (target, name) => log.push(`has ${String(name)}`) && name in target,
    get: (target, name) => log.push(`get ${String(name)}`) && target[name],
  });
}

const READS = [
  ...['has type', 'get type', 'get type'],
  ...['has streamIndex', 'get streamIndex', 'get streamIndex'],
];

// The key under which the engine is asked for the stream's frame manager.
function askedKey(stream) {
  engine.clearCalls();
  wrapper.getFrame(stream, 0);
  return engine.takeCalls()[0].args.key;
}

test('a call without arguments is refused', () => {
  const proxy = new TesselWrapperProxy({ shm_name: '/tessel_none', sem_name: '/tessel_none' });
  assertRefused(
    () => proxy.getFrame(),
    TypeError,
    'Wrong argument type for argument 0, expected Object',
  );
});

const UNKNOWN_TYPES = [
  ...['', 'local', 'remote', 'content'].flatMap((type) => [` ${type}`, `${type} `, `${type}\0`]),
  ...['Local', 'REMOTE', 'loca', 'emote', 'unknown', '1'],
];

for (const [method, call] of WITH_STREAM) {
  test(`${method} refuses a stream that is not an object`, () => {
    for (const stream of [undefined, null, 1, 'remote', true, 1n, Symbol('remote')]) {
      assertRefused(
        () => call(stream),
        TypeError,
        'Wrong argument type for argument 0, expected Object',
      );
    }
  });

  test(`${method} refuses a stream without a type`, () => {
    for (const stream of [{}, { streamIndex: 0 }, [], () => {}, { Type: 'remote' }]) {
      assertRefused(() => call(stream), TypeError, 'Missing property type on object streamIndex');
    }
  });

  test(`${method} refuses a type that is not a string`, () => {
    for (const type of [
      undefined,
      null,
      1,
      true,
      1n,
      Symbol('s'),
      {},
      Object('remote'),
      ['remote'],
    ]) {
      assertRefused(
        () => call({ type, streamIndex: 0 }),
        TypeError,
        'Wrong type for property type on object streamIndex, expected String',
      );
    }
  });

  test(`${method} refuses an unknown type`, () => {
    for (const type of ['', ...UNKNOWN_TYPES]) {
      assertRefused(
        () => call({ type, streamIndex: 0 }),
        Error,
        'Invalid value for type StreamIndex, expected local|remote|content',
      );
    }
  });

  test(`${method} does not read the index when the type is unknown`, () => {
    const log = [];
    assert.throws(() => call(watched({ type: 'other', streamIndex: 0 }, log)));
    assert.deepEqual(log, READS.slice(0, 3));
  });

  test(`${method} refuses a stream without an index`, () => {
    assertRefused(
      () => call({ type: 'remote' }),
      TypeError,
      'Missing property streamIndex on object streamIndex',
    );
  });

  test(`${method} refuses an index that is not a number`, () => {
    for (const streamIndex of [undefined, null, '3', true, 3n, Symbol('s'), {}, Object(3)]) {
      assertRefused(
        () => call({ type: 'remote', streamIndex }),
        TypeError,
        'Wrong type for property streamIndex on object streamIndex, expected Number',
      );
    }
  });

  test(`${method} asks for each property of a stream in order, and reads it twice`, () => {
    const log = [];
    call(watched({ type: 'remote', streamIndex: 0 }, log));
    assert.deepEqual(log, READS);
  });

  test(`${method} throws any value that a trap of the stream throws, at each step`, () => {
    const revoked = Proxy.revocable({}, {});
    revoked.revoke();
    for (const thrown of [new RangeError('trap'), undefined, 'text', revoked.proxy]) {
      for (let step = 0; step < READS.length; ++step) {
        let steps = 0;
        const throwing = (answer) => (target, name) => {
          if (steps++ === step) throw thrown;
          return answer(target, name);
        };
        const stream = new Proxy(newStream(), {
          has: throwing((target, name) => name in target),
          get: throwing((target, name) => target[name]),
        });
        engine.clearCalls();
        let caught = 'nothing';
        try {
          call(stream);
        } catch (error) {
          caught = error;
        }
        assert.equal(caught, thrown);
        assert.deepEqual(engine.takeCalls(), []);
      }
    }
  });
}

test('a stream key is made of the type and the index', () => {
  ['local', 'remote', 'content'].forEach((type, kind) => {
    assert.deepEqual(askedKey({ type, streamIndex: 20 + kind }), { kind, index: 20 + kind });
  });
});

test('an index is read as a signed 32-bit integer', () => {
  for (const [streamIndex, index] of [
    [0, 0],
    [-0, 0],
    [3.9, 3],
    [-3.9, -3],
    [0.5, 0],
    [NaN, 0],
    [Infinity, 0],
    [-Infinity, 0],
    [-1, -1],
    [2147483647, 2147483647],
    [2147483648, -2147483648],
    [4294967297, 1],
    [-4294967297, -1],
  ]) {
    assert.deepEqual(askedKey({ type: 'remote', streamIndex }), { kind: 1, index });
  }
});

test('a stream may be any object, with own or inherited properties', () => {
  const stream = { type: 'content', streamIndex: 4 };
  for (const object of [
    Object.assign(() => {}, stream),
    Object.assign([], stream),
    Object.create(Object.create(stream)),
    Object.freeze({ ...stream, further: 1 }),
    new (class {
      get type() {
        return 'content';
      }
      get streamIndex() {
        return 4;
      }
    })(),
  ]) {
    assert.deepEqual(askedKey(object), { kind: 2, index: 4 });
  }
});

// ---- Arguments

test('getFrame counts its arguments before it reads them', () => {
  const log = [];
  for (const args of [[], [undefined], ['x'], [watched({}, log)]]) {
    assertRefused(
      () => wrapper.getFrame(...args),
      TypeError,
      'Wrong number of arguments, expected 2',
    );
  }
  assert.deepEqual(log, []);
});

test('getLastFrame counts its arguments', () => {
  assertRefused(() => wrapper.getLastFrame(), TypeError, 'Wrong number of arguments, expected 1');
});

test('getFrame refuses a frame id that is not a number', () => {
  const converted = () => assert.fail('the frame id was converted');
  const object = { valueOf: converted, toString: converted, [Symbol.toPrimitive]: converted };
  for (const id of [undefined, null, '1', '', true, 1n, Symbol('1'), {}, [], Object(1), object]) {
    assertRefused(
      () => wrapper.getFrame(newStream(), id),
      TypeError,
      'Wrong argument type for argument 1, expected Number',
    );
  }
});

test('getFrame reads the whole stream before the frame id', () => {
  assertRefused(
    () => wrapper.getFrame({ type: 'remote' }, 'x'),
    TypeError,
    'Missing property streamIndex on object streamIndex',
  );
  const log = [];
  assertRefused(
    () => wrapper.getFrame(watched(newStream(), log), 'x'),
    TypeError,
    'Wrong argument type for argument 1, expected Number',
  );
  assert.deepEqual(log, READS);
});

test('getFrame asks the frame manager of the stream, on the calling thread', () => {
  const stream = newStream();
  engine.setStream(stream);
  wrapper.getFrame(stream, 8, 'further', null);
  const key = keyOf(stream);
  const calls = engine.takeCalls();
  assert.deepEqual(calls, [
    { operation: 'GetFrameManager', args: { key } },
    { operation: 'GetFrame', args: { key, frameId: 8 } },
  ]);
  assert.ok(calls.every(({ onJsThread }) => onJsThread));
  assert.equal(engine.live().frameManagers, 0);
});

test('getFrame asks for a frame by the low 32 bits of the id', () => {
  const stream = newStream();
  engine.setStream(stream);
  for (const [frameId, asked] of [
    [0, 0],
    [-0, 0],
    [5, 5],
    [2.9, 2],
    [-2.9, 4294967294],
    [0.9, 0],
    [4294967295, 4294967295],
    [4294967296, 0],
    [4294967301, 5],
    [-1, 4294967295],
    [-4294967291, 5],
    [9007199254740991, 4294967295],
    [9007199254740994, 2],
    [NaN, 0],
    [Infinity, 0],
    [-Infinity, 0],
    [Number.MIN_VALUE, 0],
    [2 ** 63, 4294967295],
    [-(2 ** 63), 0],
    [1e300, 4294967295],
    [-1e300, 0],
  ]) {
    engine.clearCalls();
    wrapper.getFrame(stream, frameId);
    assert.equal(engine.takeCalls()[1].args.frameId, asked, `${frameId}`);
  }
});

test('getLastFrame does not call the engine', () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 1 });
  wrapper.getLastFrame(stream);
  wrapper.getFrame(stream, 0);
  engine.clearCalls();
  wrapper.getLastFrame(stream, 'further', null);
  assert.deepEqual(engine.takeCalls(), []);
});

test('releaseFrame does nothing, with any arguments', () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 1, fresh: true });
  const frame = wrapper.getFrame(stream, 0);
  const log = [];
  const proxy = watched(stream, log);
  engine.clearCalls();
  for (const args of [
    [],
    [stream],
    [stream, 1],
    [stream, frame.frameId, 'further'],
    [null, null],
    ['x'],
    [frame],
    [proxy, proxy],
  ]) {
    assert.equal(wrapper.releaseFrame(...args), undefined);
  }
  assert.deepEqual(engine.takeCalls(), []);
  assert.deepEqual(log, []);
  assertPicture(frame, patternedPicture(stream, { ...SIZE, frameId: 1 }));
  assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, { ...SIZE, frameId: 1 }));
});

// ---- Frame objects

testFrameObjects(wrapper, { arePlanesLent: true });

test('a stream without a frame manager gives a frame with clearFrame', () => {
  const stream = newStream();
  assertHeader(wrapper.getFrame(stream, 3), ABSENT);
  engine.setStream(stream, { frameManager: false });
  assertHeader(wrapper.getFrame(stream, 3), ABSENT);
});

test('a stream that was never fetched gives a last frame with clearFrame', () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 1 });
  assertHeader(wrapper.getLastFrame(stream), ABSENT);
});

test('a stream without a fresh frame gives a last frame with clearFrame', () => {
  const stream = newStream();
  for (const answer of [{ noUpdate: true }, { noUpdate: true, clearFrame: true }]) {
    engine.setFrame(stream, { ...SIZE, ...answer, frameId: 7, csrc: 8 });
    wrapper.getFrame(stream, 0);
    assertHeader(wrapper.getLastFrame(stream), ABSENT);
  }
});

test('each frame object belongs to its caller alone', () => {
  const stream = newStream();
  const answer = { ...SIZE, frameId: 1 };
  engine.setFrame(stream, answer);
  const frame = wrapper.getFrame(stream, 0);
  for (const name of Object.keys(frame)) delete frame[name];
  Object.freeze(frame);
  assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, answer));
});

test("the arrays are views of the engine's memory, without a copy", () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 1, always: true });
  planesOf(wrapper.getFrame(stream, 0)).forEach((array, i) => {
    array.fill(100 + i);
  });
  // The engine returns the same picture again.
  for (const frame of [wrapper.getFrame(stream, 0), wrapper.getLastFrame(stream)]) {
    planesOf(frame).forEach((array, i) => {
      assert.ok(array.every((byte) => byte === 100 + i));
    });
  }
});

test('getting the same picture again detaches the previous arrays', () => {
  const stream = newStream();
  const answer = { ...SIZE, frameId: 1 };
  engine.setFrame(stream, { ...answer, always: true });
  const first = wrapper.getFrame(stream, 0);
  const second = wrapper.getFrame(stream, 0);
  assertStale(first);
  assertPicture(second, patternedPicture(stream, answer));
});

test('a frame in recycled memory detaches the arrays over that memory', () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 1, fresh: true, recycled: true });
  const frames = Array.from({ length: 6 }, () => wrapper.getFrame(stream, 0));
  for (const stale of frames.slice(0, -1)) assertStale(stale);
  assert.deepEqual(engine.frameIdentity(planesOf(frames.at(-1))[0]), {
    ...keyOf(stream),
    number: 6,
  });
});

// ---- Lifetimes

test('the last frames are released with their wrapper, and their arrays become empty', async () => {
  const stream = newStream();
  const before = engine.liveFrames();
  const owner = makeWrapper(TesselWrapper);
  engine.setFrame(stream, { ...SIZE, frameId: 5, fresh: true });
  const retained = owner.wrapper.getFrame(stream, 0);
  engine.setFrame(stream, { ...SIZE, frameId: 6, fresh: true, clearFrame: true });
  const cleared = owner.wrapper.getFrame(stream, 0);

  owner.wrapper.destroy();
  assertWhole(retained);
  assertWhole(cleared);
  const picture = patternedPicture(stream, { ...SIZE, frameId: 5 });
  assertPicture(owner.wrapper.getLastFrame(stream), picture);
  engine.dropCallback();
  delete owner.wrapper;
  await collectUntil(() => engine.liveFrames() === before);
  assertStale(retained);
  assertStale(cleared);
});

test('a frame that JavaScript has dropped is released with the next one', async () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 5, fresh: true });
  const before = engine.liveFrames();
  let collected = false;
  const registry = new FinalizationRegistry(() => (collected = true));
  (() => registry.register(wrapper.getFrame(stream, 0), undefined))();
  await collectUntil(() => collected);
  assert.equal(engine.liveFrames(), before + 1);
  assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, { ...SIZE, frameId: 5 }));
  wrapper.getFrame(stream, 0);
  assert.equal(engine.liveFrames(), before + 1);
});

test('a process may end while it holds frames', () => {
  for (const end of ['none', 'exit']) {
    const { code, signal, stderr } = runInChild(
      async (scripted, { makeWrapper: make }) => {
        const { wrapper: own } = make(scripted.loadAddon().TesselWrapper);
        const stream = { type: 'remote', streamIndex: 1 };
        globalThis.frames = [false, true].map((clearFrame) => {
          scripted.setFrame(stream, { width: 64, height: 64, clearFrame, fresh: true });
          return own.getFrame(stream, 0);
        });
        if (process.argv[1] === 'exit') process.exit();
        own.destroy();
      },
      { modules: FRAME_MODULES, args: [end] },
    );
    assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  }
});

// JavaScript can keep an array from being detached. Its memory is then never freed, and the frame
// counts as live for ever.
for (const [what, putOutOfReach] of Object.entries(WAYS_OUT_OF_REACH)) {
  test(`memory that JavaScript keeps as ${what} is never freed`, () => {
    const stream = newStream();
    engine.setFrame(stream, { ...SIZE, frameId: 5, fresh: true });
    const before = engine.liveFrames();
    const { bytes } = patternedPicture(stream, { ...SIZE, frameId: 5 }).planes.y;
    const kept = putOutOfReach(wrapper.getFrame(stream, 0).yPlaneBuffer.buffer);
    const assertKept = () => {
      assert.equal(kept.length(), bytes.length);
      for (let i = 0; i < bytes.length; ++i) assert.equal(kept.byteAt(i), bytes[i]);
    };
    assertKept();
    assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, { ...SIZE, frameId: 5 }));
    assertPicture(wrapper.getFrame(stream, 0), patternedPicture(stream, { ...SIZE, frameId: 6 }));
    assert.equal(engine.liveFrames(), before + 2);
    assertKept();
  });
}

// ---- Engines that throw

for (const operation of ['GetFrameManager', 'GetFrame']) {
  test(`getFrame throws an Error when the engine throws in ${operation}`, () => {
    const stream = newStream();
    const answer = { ...SIZE, frameId: 5 };
    engine.setFrame(stream, { ...answer, fresh: true });
    const frame = wrapper.getFrame(stream, 0);
    const before = engine.live();
    for (const [failure, message] of [
      [{ throws: 'the engine has a problem' }, 'the engine has a problem'],
      [{ throwsInt: true }, 'A native exception was thrown'],
    ]) {
      engine.failOperation(operation, failure);
      assert.throws(
        () => wrapper.getFrame(stream, 0),
        (error) => {
          assert.deepEqual([error.constructor, error.message], [Error, message]);
          return true;
        },
      );
      assertPicture(frame, patternedPicture(stream, answer));
      assertPicture(wrapper.getLastFrame(stream), patternedPicture(stream, answer));
      assert.deepEqual(engine.live(), before);
    }
    engine.failOperation(operation, null);
    assertPicture(wrapper.getFrame(stream, 0), patternedPicture(stream, { ...SIZE, frameId: 6 }));
  });
}

// ---- Patched globals

test('getFrame gives the right frame when getters of its argument call getFrame', () => {
  const stream = newStream();
  engine.setFrame(stream, { ...SIZE, frameId: 5, fresh: true });
  const inner = [];
  const frame = wrapper.getFrame(
    new Proxy(stream, {
      get(target, name) {
        inner.push(wrapper.getFrame(stream, 0), wrapper.getLastFrame(stream));
        return target[name];
      },
    }),
    0,
  );
  assert.equal(inner.length, 8);
  assertPicture(frame, patternedPicture(stream, { ...SIZE, frameId: 9 }));
  for (const stale of inner) assertStale(stale);
});

test('patched globals do not change the frames of a wrapper', () => {
  const stream = newStream();
  const answer = { ...SIZE, frameId: 5 };
  engine.setFrame(stream, { ...answer, fresh: true });
  const patches = { properties: FRAME_PROPERTIES, elements: true };
  const { frame, last, absent } = withPatchedGlobals(patches, () => ({
    frame: wrapper.getFrame(stream, 0),
    last: wrapper.getLastFrame(stream),
    absent: wrapper.getLastFrame({ type: 'remote', streamIndex: -1 }),
  }));
  assertPicture(frame, patternedPicture(stream, answer));
  assertPicture(last, patternedPicture(stream, answer));
  assertHeader(absent, ABSENT);
});

test('globals patched before a wrapper is made do not change its frames', () => {
  const stream = newStream();
  const answer = { ...SIZE, frameId: 5 };
  engine.setFrame(stream, { ...answer, fresh: true });
  const patches = { properties: FRAME_PROPERTIES, elements: true };
  const { other, frame } = withPatchedGlobals(patches, () => {
    const { wrapper: made } = makeWrapper(TesselWrapper);
    return { other: made, frame: made.getFrame(stream, 0) };
  });
  assertPicture(frame, patternedPicture(stream, answer));
  other.destroy();
});

test('globals patched before the addon is loaded do not change the frames', () => {
  const { code, signal, stderr } = runInChild(
    (scripted, { makeWrapper: make }, frames, { withPatchedGlobals: withPatched }) => {
      const stream = frames.newStream();
      const answer = { width: 64, height: 64, frameId: 5 };
      scripted.setFrame(stream, { ...answer, fresh: true });
      const { own, frame } = withPatched({ properties: frames.FRAME_PROPERTIES }, () => {
        const { wrapper: live } = make(scripted.loadAddon().TesselWrapper);
        return { own: live, frame: live.getFrame(stream, 0) };
      });
      frames.assertPicture(frame, frames.patternedPicture(stream, answer));
      own.destroy();
    },
    { modules: [...FRAME_MODULES, './support/patched_globals.mjs'] },
  );
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
});

test('frames work without code generation from strings', () => {
  const { code, signal, stderr } = runInChild(
    (scripted, { makeWrapper: make }, frames) => {
      const stream = frames.newStream();
      const answer = { width: 64, height: 64, frameId: 5 };
      scripted.setFrame(stream, { ...answer, fresh: true });
      const { wrapper: own } = make(scripted.loadAddon().TesselWrapper);
      frames.assertPicture(own.getFrame(stream, 0), frames.patternedPicture(stream, answer));
      own.destroy();
    },
    {
      modules: FRAME_MODULES,
      environment: { NODE_OPTIONS: '--disallow-code-generation-from-strings' },
    },
  );
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
});

// ---- Memory

test('ten thousand frames of 1280x720 do not increase the memory', async () => {
  const stream = newStream();
  const size = { width: 1280, height: 720 };
  const frameBytes = (size.width * size.height * 3) / 2;
  engine.recordCalls(false);
  engine.setFrame(stream, { ...size, fresh: true, recycled: true });
  wrapper.getFrame(stream, 0);
  const live = engine.liveFrames();
  const before = process.memoryUsage();
  for (let i = 1; i <= 10_000; ++i) {
    wrapper.getFrame(stream, i);
    if (i % 100 !== 0) continue;
    // V8 counts the bytes of buffers that were left to the collector.
    const now = process.memoryUsage();
    const grown = (name) => (now[name] - before[name]) / frameBytes;
    assert.ok(grown('external') < 1, `external memory by ${grown('external')} frames`);
    assert.ok(grown('arrayBuffers') < 1, `array buffers by ${grown('arrayBuffers')} frames`);
    // Allows for changes of Node's own heap; a leak of one frame in a hundred would exceed it.
    assert.ok(grown('rss') < 60, `resident memory by ${grown('rss')} frames`);
    assert.ok(engine.liveFrames() <= live);
    await setImmediate();
  }
});
