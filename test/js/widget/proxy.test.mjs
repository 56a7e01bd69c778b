// Reading the frames of streams in widget mode through TesselWrapperProxy. The proxy and the
// wrapper are in one process here: each has its own mapping and its own hold of the semaphores, as
// two processes have. Processes of their own are in processes.test.mjs.

import assert from 'node:assert/strict';
import { closeSync, openSync, writeSync } from 'node:fs';
import { afterEach, beforeEach, test } from 'node:test';

import { construct, engine } from '../../support/scripted/wrapper_kit.mjs';
import { runInChild } from '../../support/child.mjs';
import { entryOf, writeHeader } from '../../support/shared_memory/handmade_segments.mjs';
import { fileOfSegment } from '../../support/shared_memory/shared_memory_names.mjs';
import { WAYS_OUT_OF_REACH } from '../../support/scripted/out_of_reach.mjs';
import { remote } from '../../support/streams.mjs';

const { TesselWrapperProxy } = engine.loadAddon();

const STREAM = remote(3);
const NULL_FRAME = { noUpdate: true, clearFrame: false, frameId: 0, csrc: 0 };
const ODD = { width: 641, height: 361 };

let wrapper;
let proxy;

beforeEach(() => {
  engine.reset();
  wrapper = construct();
  engine.setStream(STREAM);
  proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
});

afterEach(() => {
  for (const type of ['local', 'remote', 'content']) {
    proxy.removeVideo({ type, streamIndex: type === 'remote' ? 3 : 0 });
  }
  wrapper.exitWidgetMode(STREAM);
  wrapper.destroy();
  engine.reset();
});

// Puts the stream into widget mode and pushes `count` frames.
function share(count = 1, frame = ODD) {
  wrapper.enterWidgetMode(STREAM);
  for (let number = 1; number <= count; ++number) push(number, frame);
}

const push = (number, frame = ODD) =>
  engine.pushFrame(STREAM, { csrc: 4_000_000_000, number, ...frame });

// Does to a named semaphore what a process does that takes it (0) or gives it back (1): its count
// is the first thing in its file.
function setSemaphore(name, count) {
  const file = openSync(`/dev/shm/sem.${name.slice(1)}`, 'r+');
  writeSync(file, Uint32Array.of(count), 0, 4, 0);
  closeSync(file);
}

test('construction checks its argument, then shm_name, then sem_name', () => {
  for (const [args, message] of [
    [[], 'Wrong number of arguments, expected 1'],
    [['x'], 'Wrong argument type for argument 0, expected Object'],
    [[null], 'Wrong argument type for argument 0, expected Object'],
    [[{}], 'Missing property shm_name on object SharedData'],
    [[{ shm_name: 1 }], 'Wrong type for property shm_name on object SharedData, expected String'],
    [[{ shm_name: '/x' }], 'Missing property sem_name on object SharedData'],
    [
      [{ shm_name: '/x', sem_name: {} }],
      'Wrong type for property sem_name on object SharedData, expected String',
    ],
    [[() => {}], 'Missing property shm_name on object SharedData'],
  ]) {
    assert.throws(() => new TesselWrapperProxy(...args), { name: 'TypeError', message });
  }
});

test('a proxy called without new throws', () => {
  assert.throws(() => TesselWrapperProxy({}), {
    name: 'TypeError',
    message: "Class constructors cannot be invoked without 'new'",
  });
});

test('the prototype of the proxy has the four methods, none enumerable', () => {
  const methods = Object.getOwnPropertyNames(TesselWrapperProxy.prototype).filter(
    (name) => name !== 'constructor',
  );
  assert.deepEqual(methods, ['getFrame', 'getLastFrame', 'releaseFrame', 'removeVideo']);
  assert.deepEqual(Object.keys(TesselWrapperProxy.prototype), []);
});

for (const method of ['getFrame', 'getLastFrame', 'releaseFrame', 'removeVideo']) {
  test(`${method} checks the stream key`, () => {
    for (const [args, name, message] of [
      [[], 'TypeError', 'Wrong argument type for argument 0, expected Object'],
      [[{}], 'TypeError', 'Missing property type on object streamIndex'],
      [
        [{ type: 'Local', streamIndex: 0 }],
        'Error',
        'Invalid value for type StreamIndex, expected local|remote|content',
      ],
      [[{ type: 'local' }], 'TypeError', 'Missing property streamIndex on object streamIndex'],
    ]) {
      assert.throws(() => proxy[method](...args), { name, message });
    }
  });
}

test('a stream that is not shared has a null frame', () => {
  for (const type of ['local', 'remote', 'content']) {
    const stream = { type, streamIndex: 0 };
    assert.deepEqual(proxy.getFrame(stream, 0), NULL_FRAME);
    assert.deepEqual(proxy.getLastFrame(stream), NULL_FRAME);
    assert.equal(proxy.releaseFrame(stream), undefined);
    assert.equal(proxy.removeVideo(stream), undefined);
  }
});

test('a remote index outside the table has a null frame', () => {
  for (const streamIndex of [-1, 50, 2 ** 31 - 1, -(2 ** 31)]) {
    assert.deepEqual(proxy.getFrame({ type: 'remote', streamIndex }, 0), NULL_FRAME);
  }
});

test('a shared frame is read in place, whole, with the planes of an odd size', () => {
  share(2);
  const frame = proxy.getFrame(STREAM, -1);
  const { yPlaneBuffer: y, uPlaneBuffer: u, vPlaneBuffer: v } = frame;
  assert.equal(frame.noUpdate, false);
  assert.equal(frame.clearFrame, false);
  assert.equal(frame.csrc, 4_000_000_000);
  assert.deepEqual([frame.width, frame.height], [641, 361]);
  assert.deepEqual([y.length, u.length, v.length], [231_401, 58_101, 58_101]);
  assert.deepEqual([frame.yPlaneBufferStride, frame.uPlaneBufferStride], [641, 321]);
  assert.deepEqual([frame.vPlaneBufferWidth, frame.vPlaneBufferHeight], [321, 181]);
  assert.deepEqual(engine.frameIdentity(y), { kind: 1, index: 3, number: 2 });
  assert.ok(engine.isWholeFrame(y, u, v));
  proxy.releaseFrame(STREAM);
});

test('before the first frame a request gives a picture of size 0', () => {
  share(0);
  const frame = proxy.getFrame(STREAM, 5);
  assert.deepEqual([frame.noUpdate, frame.width, frame.height], [false, 0, 0]);
  assert.equal(frame.yPlaneBuffer.length, 0);
  proxy.releaseFrame(STREAM);
});

test('getLastFrame gives no update until the second frame', () => {
  share(1);
  assert.deepEqual(proxy.getLastFrame(STREAM), NULL_FRAME);
  proxy.releaseFrame(STREAM);
  push(2);
  assert.equal(proxy.getLastFrame(STREAM).noUpdate, false);
  proxy.releaseFrame(STREAM);
});

test('an answer without an update has the frame id of the request', () => {
  share(3);
  assert.deepEqual(proxy.getFrame(STREAM, 2), { ...NULL_FRAME, frameId: 2 });
  proxy.releaseFrame(STREAM);
});

test('a frame id is compared with all of its 64 bits', () => {
  share(1, { width: 64, height: 36 });
  const main = fileOfSegment(wrapper.getSharedDataInfo().shm_name);
  const { shm_name: segment } = entryOf(main, STREAM.streamIndex);
  const isNew = (frameId) => {
    const { noUpdate } = proxy.getFrame(STREAM, frameId);
    proxy.releaseFrame(STREAM);
    return !noUpdate;
  };
  for (const sequence of [5, 2 ** 32 + 5, 2 ** 40, 2 ** 52 + 1]) {
    writeHeader(segment, { width: 64, height: 36, sequence: BigInt(sequence) });
    assert.equal(isNew(sequence), false);
    assert.equal(isNew(sequence + 2 ** 32), true);
    assert.equal(isNew(sequence % 2 ** 32), sequence >= 2 ** 32);
  }
  // A negative number is converted to its unsigned counterpart.
  writeHeader(segment, { width: 64, height: 36, sequence: 2n ** 64n - 1n });
  assert.equal(isNew(-1), false);
  assert.equal(isNew(2 ** 32 - 1), true);
});

test('passing a frame id back gives the current frame again', () => {
  share(2);
  const { frameId } = proxy.getFrame(STREAM, 0);
  assert.ok(frameId > 0);
  proxy.releaseFrame(STREAM);
  assert.equal(proxy.getFrame(STREAM, frameId).noUpdate, false);
  proxy.releaseFrame(STREAM);
});

test('getFrame without a numeric frame id throws the error of the conversion', () => {
  share(1);
  for (const args of [[], [undefined], ['1'], [1n], [null]]) {
    assert.throws(
      () => proxy.getFrame(STREAM, ...args),
      (error) =>
        Object.getPrototypeOf(error) === Error.prototype &&
        error.message === 'A number was expected',
    );
  }
});

test('getFrame of a stream that is not shared does not read the frame id', () => {
  assert.deepEqual(proxy.getFrame(STREAM), NULL_FRAME);
});

test('a second read before the release gives the same memory without waiting', () => {
  share(2);
  const first = proxy.getFrame(STREAM, 0);
  const second = proxy.getFrame(STREAM, 0);
  assert.equal(first.yPlaneBuffer.buffer, second.yPlaneBuffer.buffer);
  assert.equal(first.yPlaneBuffer.length, 231_401);
  proxy.releaseFrame(STREAM);
});

for (const [how, end] of [
  ['releaseFrame', () => proxy.releaseFrame(STREAM)],
  ['removeVideo', () => proxy.removeVideo(STREAM)],
]) {
  test(`after ${how} the typed arrays of a frame are empty`, () => {
    share(2);
    const { yPlaneBuffer: y, uPlaneBuffer: u, vPlaneBuffer: v } = proxy.getFrame(STREAM, 0);
    end();
    assert.deepEqual([y.length, u.length, v.length], [0, 0, 0]);
  });
}

test('after the stream has left widget mode its frame is empty and the next one null', () => {
  share(2);
  const { yPlaneBuffer } = proxy.getFrame(STREAM, 0);
  proxy.releaseFrame(STREAM);
  wrapper.exitWidgetMode(STREAM);
  assert.deepEqual(proxy.getFrame(STREAM, 0), NULL_FRAME);
  assert.equal(yPlaneBuffer.length, 0);
  share(1, { width: 16, height: 16 });
  assert.equal(proxy.getFrame(STREAM, 9).width, 16, 'the stream may be shared again');
  proxy.releaseFrame(STREAM);
});

test('a frame does not change while another process holds the lock of the table of streams', () => {
  share(2);
  const { yPlaneBuffer } = proxy.getFrame(STREAM, 0);
  const table = wrapper.getSharedDataInfo().sem_name;
  setSemaphore(table, 0);
  assert.deepEqual(proxy.getFrame(STREAM, 0), NULL_FRAME);
  proxy.releaseFrame(STREAM);
  setSemaphore(table, 1);
  assert.equal(yPlaneBuffer.length, 231_401);
  assert.deepEqual(engine.frameIdentity(yPlaneBuffer), { kind: 1, index: 3, number: 2 });
  proxy.releaseFrame(STREAM);
  assert.equal(yPlaneBuffer.length, 0);
});

for (const [what, putOutOfReach] of Object.entries(WAYS_OUT_OF_REACH)) {
  for (const [how, end] of [
    ['removeVideo', () => proxy.removeVideo(STREAM)],
    ['exitWidgetMode', () => wrapper.exitWidgetMode(STREAM)],
  ]) {
    test(`memory that JavaScript keeps as ${what} stays mapped after ${how}`, () => {
      const size = { width: 256, height: 256 };
      share(2, size);
      const { yPlaneBuffer } = proxy.getFrame(STREAM, 0);
      const bytes = Uint8Array.from(yPlaneBuffer);
      const kept = putOutOfReach(yPlaneBuffer.buffer);
      proxy.releaseFrame(STREAM);
      end();
      proxy.getFrame(STREAM, 0);
      proxy.releaseFrame(STREAM);
      assert.equal(kept.length(), bytes.length);
      for (let i = 0; i < bytes.length; ++i) assert.equal(kept.byteAt(i), bytes[i]);
    });
  }
}

test('a frame that does not fit the segment is dropped and the previous one stays', () => {
  share(2);
  push(3, { width: 1920, height: 1080 });
  const { yPlaneBuffer } = proxy.getFrame(STREAM, 0);
  assert.equal(engine.frameIdentity(yPlaneBuffer).number, 2);
  proxy.releaseFrame(STREAM);
});

test('an empty frame keeps the pixels and counts as new', () => {
  share(1);
  engine.pushFrame(STREAM, { empty: true, csrc: 5 });
  const frame = proxy.getLastFrame(STREAM);
  assert.deepEqual([frame.noUpdate, frame.csrc, frame.width], [false, 5, 641]);
  proxy.releaseFrame(STREAM);
});

// ---- The lines of the two classes

// Runs `script` in a child and answers with its lines, addresses and random names replaced.
function linesOf(script) {
  const child = runInChild(script, { modules: ['./support/scripted/wrapper_kit.mjs'] });
  assert.deepEqual([child.code, child.signal, child.stderr], [0, null, '']);
  const lines = child.lines.map((line) =>
    line
      .replace(/0x[0-9a-f]+/g, '<address>')
      .replace(/\/(SHM|SEM)[0-9A-Za-z]+/g, '<$1>')
      .replace(new RegExp(`\\b${child.pid}\\b`), '<pid>')
      .replace(new RegExp(`\\b${child.pid.toString(16)}\\b`), '<hexadecimal pid>'),
  );
  return lines;
}

test('a proxy for names that do not exist is constructed, and prints a line for each request', () => {
  const lines = linesOf(({ engine: scripted }) => {
    const { TesselWrapperProxy: Proxy } = scripted.loadAddon();
    const made = new Proxy({ shm_name: '/no-such-%s', sem_name: '/nor-this-%n' });
    console.log(JSON.stringify(made.getFrame({ type: 'local', streamIndex: 0 }, 0)));
    console.log(JSON.stringify(made.getFrame({ type: 'local', streamIndex: 0 }, 7)));
    console.log(JSON.stringify(made.getLastFrame({ type: 'remote', streamIndex: 1 })));
    made.releaseFrame({ type: 'content', streamIndex: 0 });
  });
  const notFound = (method) => [
    'lockDataAccess, not initialised',
    'getVideoFrameSource: Shared mem lock failed, something is wrong!',
    `${method}: shared memory video frame not found`,
    JSON.stringify(NULL_FRAME),
  ];
  assert.deepEqual(lines.slice(0, 7), [
    'TesselWrapperProxy::TesselWrapperProxy Params shm_name: /no-such-%s, sem_name: /nor-this-%n',
    'CreateSharedMemoryManagerWithKey, size of shared main segment:26572',
    'initialize: Creating shared mem with name:/no-such-%s, SEM name:/nor-this-%n',
    'shm_open failed, error:2',
    'SharedMemoryAllocator:<address>, pid:<hexadecimal pid>, created',
    'SharedMemoryManager:Failed to initialise shared memory for TesselWrapper',
    'TesselWrapperProxy: Pid:<pid>, obj:<address>',
  ]);
  assert.deepEqual(lines.slice(7, 19), [
    ...['getFrame', 'getFrame', 'getLastFrame'].flatMap(notFound),
  ]);
});

test('a proxy prints its line before it releases the segments, in the base of the previous lines', () => {
  const lines = linesOf(async ({ engine: scripted, construct: make, collect }) => {
    const { TesselWrapperProxy: Proxy } = scripted.loadAddon();
    const stream = { type: 'remote', streamIndex: 0 };
    const main = make();
    scripted.setStream(stream);
    main.enterWidgetMode(stream);
    const makeAndForget = () => {
      const widget = new Proxy(main.getSharedDataInfo());
      widget.getLastFrame(stream);
      widget.releaseFrame(stream);
    };
    makeAndForget();
    console.log('--- collect');
    await collect();
    console.log('--- exit');
    main.exitWidgetMode(stream);
    globalThis.kept = new Proxy(main.getSharedDataInfo());
    main.destroy();
    console.log('--- end');
  });
  const between = (from, to) =>
    lines
      .slice(lines.indexOf(from) + 1, to && lines.indexOf(to))
      .map((line) => line.replace(/(?<=^~Shared\w+):.*/, ''));
  assert.deepEqual(between('--- collect', '--- exit'), [
    '~TesselWrapperProxy: Pid:<pid>, obj:<address>',
    '~SharedMemoryVideoFrameSource',
    '~SharedMemoryAllocator',
    '~SharedMemoryAllocator',
  ]);
  assert.deepEqual(between('--- end'), [
    '~TesselWrapperProxy: Pid:<hexadecimal pid>, obj:<address>',
    '~SharedMemoryAllocator',
    '~TesselWrapper: Pid:<hexadecimal pid>, obj:<address>',
    '~SharedMemoryAllocator',
  ]);
});

test('releasing without a frame, and a removed stream, print these lines', () => {
  const lines = linesOf(({ engine: scripted, construct: make }) => {
    const { TesselWrapperProxy: Proxy } = scripted.loadAddon();
    const stream = { type: 'remote', streamIndex: 0 };
    const main = make();
    scripted.setStream(stream);
    main.enterWidgetMode(stream);
    const widget = new Proxy(main.getSharedDataInfo());
    widget.getFrame(stream, 1);
    widget.releaseFrame(stream);
    console.log('--- release again');
    widget.releaseFrame(stream);
    console.log('--- exit');
    main.exitWidgetMode(stream);
    console.log('--- gone');
    widget.getFrame(stream, 1);
    console.log('--- remove');
    widget.removeVideo(stream);
    main.destroy();
  });
  const after = (mark) => lines.slice(lines.indexOf(`--- ${mark}`) + 1);
  assert.equal(
    after('release again')[0],
    'unlockDataAccess failed, trying to unlock without locking!',
  );
  assert.equal(after('exit')[0], 'Exit Widget Mode for : 1, 0');
  const gone = after('gone').slice(0, after('gone').indexOf('--- remove'));
  assert.match(gone[0], /^~SharedMemoryVideoFrameSource:/);
  assert.match(gone[1], /^~SharedMemoryAllocator:/);
  assert.deepEqual(gone.slice(2), ['getFrame: shared memory video frame not found']);
});
