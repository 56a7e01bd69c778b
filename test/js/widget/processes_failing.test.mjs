// Failures between a main process and its widgets: one of them is killed or stalls, /dev/shm is
// full, or the content of the shared memory is invalid.

import assert from 'node:assert/strict';
import { existsSync, mkdirSync, rmSync, truncateSync, writeFileSync } from 'node:fs';
import { describe, test } from 'node:test';

import { remotePattern } from '../../support/scripted/described_frames.mjs';
import {
  FRAME_SEGMENT_SIZE,
  MAIN_SEGMENT_SIZE,
  list,
  makeSegment,
  setCount,
  writeHeader,
  writeToSegment,
} from '../../support/shared_memory/handmade_segments.mjs';
import { limitedSharedMemory } from '../../support/shared_memory/limited_shared_memory.mjs';
import {
  filesNamedIn,
  fileOfSegment,
  fileOfSemaphore,
  frameSegmentsOf,
} from '../../support/shared_memory/shared_memory_names.mjs';
import { TIMED_OUT, stopHolding } from '../../support/shared_memory/lock_moments.mjs';
import {
  startMain,
  startMainWithoutWrapper,
  startWidget,
} from '../../support/widget_mode_processes.mjs';
import { remote } from '../../support/streams.mjs';

const SMALL = { width: 64, height: 48, csrc: 7 };
const A = remote(3);
const B = remote(4);
const UPDATE_MISSING = { noUpdate: true, csrc: 0 };

const frame = (number) => ({ ...SMALL, number });
const patternOf = ({ streamIndex }, number) => remotePattern(streamIndex, frame(number));

// Most of these wait for the five seconds of a lock, and may do so together.
describe('when something goes wrong', { concurrency: 6 }, () => {
  // ---- Widgets that are killed or stall

  for (const [what, stall, recover] of [
    [
      'is killed while it holds a frame loses the stream until it leaves and enters widget mode',
      ({ holder }) => holder.kill(),
      async ({ main }) => {
        await main.does('exit', A);
        await main.does('stopPushing', A);
        await main.does('enter', A);
      },
    ],
    [
      'does not release its frame stops the stream until it releases it',
      () => {},
      async ({ main, holder }) => {
        await holder.does('release', A);
        await main.does('stopPushing', A);
      },
    ],
  ]) {
    test(`a widget that ${what}`, async (t) => {
      const { main, key } = await startMain(t);
      const holder = await startWidget(t, key);
      const other = await startWidget(t, key);
      for (const stream of [A, B]) await main.does('enter', stream);
      await main.does('push', A, frame(1));
      assert.deepEqual(await holder.does('look', A), patternOf(A, 1));
      await stall({ holder });

      const started = performance.now();
      for (const stream of [A, B]) await main.does('startPushing', stream, { ...SMALL, fps: 60 });
      await other.does('keepReading', [B]);
      await main.seen(() => main.count(TIMED_OUT) === 1);
      const framesOfB = other.reports.length;
      await main.seen(() => main.count(TIMED_OUT) === 2);
      // A dropped frame costs five seconds of that stream alone.
      assert.ok(performance.now() - started > 9_900);
      assert.ok(other.reports.length > framesOfB);
      await other.does('stopReading');
      await main.does('stopPushing', B);
      assert.ok(other.reports.every(({ index, whole }) => index === B.streamIndex && whole));

      await recover({ main, holder });
      const dropped = main.count(TIMED_OUT);
      await main.does('push', A, frame(1000));
      assert.deepEqual(await other.does('read', A), patternOf(A, 1000));
      assert.equal(main.count(TIMED_OUT), dropped);
      await other.ends();
      await main.ends();
    });
  }

  test('a widget that is killed while it reads the main segment makes that segment unusable', async (t) => {
    const FAILED = 'Shared mem lock failed, something is wrong!';
    const { main, key } = await startMain(t);
    const widget = await startWidget(t, key);
    await main.does('enter', A);
    await main.does('push', A, frame(1));
    assert.deepEqual(await widget.does('read', A), patternOf(A, 1));
    setCount(key.sem_name, 0); // as the killed one would leave it

    await Promise.all([
      main.does('enter', B),
      widget.does('look', A).then((seen) => assert.deepEqual(seen, UPDATE_MISSING)),
    ]);
    assert.equal(main.count(`enableSharedMemory: ${FAILED}`), 1);
    assert.equal(widget.count(`getVideoFrameSource: ${FAILED}`), 1);
    // The writer takes the frame segment's lock only.
    const timedOut = main.count(TIMED_OUT);
    assert.equal(await main.does('push', A, frame(2)), true);
    assert.equal(main.count(TIMED_OUT), timedOut);
    await main.does('exit', A);
    assert.equal(main.count(`disableSharedMemory: ${FAILED}`), 1);
    await widget.ends();
    await main.ends();
  });

  // ---- A main process that is killed

  test('when the main process is killed, widgets keep the last frame and can read it again', async (t) => {
    const { main, key } = await startMain(t);
    const widget = await startWidget(t, key);
    await main.does('enter', A);
    await main.does('push', A, frame(5));
    assert.deepEqual(await widget.does('look', A), patternOf(A, 5));
    await main.kill();
    assert.deepEqual(await widget.does('look', A), patternOf(A, 5));
    await widget.does('release', A);
    assert.deepEqual(await widget.does('read', A), patternOf(A, 5));
    const files = filesNamedIn(main.lines);
    assert.deepEqual(files.map(existsSync), [true, true, true, true]);
    await widget.ends();
    assert.deepEqual(files.map(existsSync), [false, false, false, false]);
  });

  test('when the main process is killed while it writes, reading gives up after five seconds', async (t) => {
    const { main, key } = await startMain(t);
    const widget = await startWidget(t, key);
    const large = { width: 1600, height: 864 };
    for (const stream of [A, B]) await main.does('enter', stream);
    for (const stream of [A, B]) await main.does('push', stream, { ...large, number: 1 });
    for (const stream of [A, B]) await widget.does('read', stream);
    const [{ sem_name: lock }] = frameSegmentsOf(main);
    await main.does('startPushing', A, { ...large, recycled: true });
    await stopHolding(main, lock);
    await main.kill();
    assert.deepEqual(await widget.does('read', A), UPDATE_MISSING);
    assert.equal(widget.count(TIMED_OUT), 1);
    assert.equal(widget.count('getVideoFrame: Failed to get lock on video frame object'), 1);
    const sent = { ...large, number: 1 };
    assert.deepEqual(await widget.does('read', B), remotePattern(B.streamIndex, sent));
    await widget.ends();
  });

  for (const [what, end] of [
    ['the main process ends', (main) => main.ends()],
    ['the stream leaves widget mode', (main) => main.does('exit', A)],
  ]) {
    test(`a frame that a widget reads stays valid while ${what}`, async (t) => {
      const { main, key } = await startMain(t);
      const widget = await startWidget(t, key);
      await main.does('enter', A);
      await main.does('push', A, frame(5));
      const first = await widget.does('look', A);
      await end(main);
      assert.deepEqual(first, patternOf(A, 5));
      assert.deepEqual(await widget.does('lookAgain'), patternOf(A, 5));
      await widget.ends();
      if (!main.outcome) await main.ends();
    });
  }

  // ---- Names

  test('a widget with names that do not exist sees no stream, and keeps working', async (t) => {
    const widget = await startWidget(t, { shm_name: '/SHMnobody', sem_name: '/SEMnobody' });
    assert.ok(widget.lines.includes('shm_open failed, error:2'));
    assert.deepEqual(await widget.does('read', A), UPDATE_MISSING);
    const { main, key } = await startMain(t);
    await main.does('enter', A);
    await main.does('push', A, frame(1));
    await widget.does('open', key);
    assert.deepEqual(await widget.does('read', A), patternOf(A, 1));
    await widget.ends();
    await main.ends();
  });

  test('an unlinked main segment works for processes that have opened it, and for no others', async (t) => {
    const { main, key } = await startMain(t);
    const widget = await startWidget(t, key);
    for (const file of filesNamedIn(main.lines)) rmSync(file);
    for (const [stream, number] of [
      [A, 1],
      [B, 2],
    ]) {
      await main.does('enter', stream);
      await main.does('push', stream, frame(number));
      assert.deepEqual(await widget.does('read', stream), patternOf(stream, number));
    }
    const late = await startWidget(t, key);
    assert.ok(late.lines.includes('shm_open failed, error:2'));
    assert.deepEqual(await late.does('read', A), UPDATE_MISSING);
    for (const one of [late, widget, main]) await one.ends();
  });

  // ---- A full /dev/shm

  test('a full /dev/shm refuses a stream, and the others continue', async (t) => {
    const room = limitedSharedMemory();
    const { main, key } = await startMain(t, { command: room.command });
    const widget = await startWidget(t, key, { command: room.commandBeside(main) });
    await main.does('enter', A);
    room.fill(main);
    await main.does('enter', B);
    assert.equal(main.count(`initialize: posix_fallocate failed, error:${room.error}`), 1);
    for (const number of [1, 2, 3]) {
      assert.equal(await main.does('push', A, frame(number)), true);
      assert.equal(await main.does('push', B, frame(number)), false, 'no receiver was registered');
      assert.deepEqual(await widget.does('read', A), patternOf(A, number));
      assert.deepEqual(await widget.does('read', B), UPDATE_MISSING);
    }
    // Once there is space again, leaving and entering widget mode creates the segment.
    room.empty(main);
    await main.does('exit', B);
    await main.does('enter', B);
    await main.does('push', B, frame(9));
    assert.deepEqual(await widget.does('read', B), patternOf(B, 9));
    await widget.ends();
    await main.ends();
  });

  test('a full /dev/shm refuses the main segment, and the wrapper works without widget mode', async (t) => {
    const room = limitedSharedMemory();
    const main = startMainWithoutWrapper(t, { command: room.command });
    await main.does('holdings'); // it is there
    room.fill(main);
    const key = await main.does('construct');
    assert.equal(main.count(`initialize: posix_fallocate failed, error:${room.error}`), 1);
    await main.does('enter', A);
    room.empty(main);
    await main.does('enter', B);
    assert.equal(main.count('enableSharedMemory: Shared mem lock failed, something is wrong!'), 1);
    for (const stream of [A, B]) assert.equal(await main.does('push', stream, frame(1)), false);
    assert.match(key.shm_name, /^\/SHM/);
    await main.ends();
  });

  // ---- Invalid contents

  for (const size of [0, 511, MAIN_SEGMENT_SIZE - 1]) {
    test(`a main segment of ${size} bytes is refused`, async (t) => {
      const widget = await startWidget(t, makeSegment(t, size));
      assert.ok(widget.lines.includes('initialize: mmap failed, error:6'));
      assert.deepEqual(await widget.does('read', A), UPDATE_MISSING);
      await widget.ends();
    });
  }

  // A main segment with stream A listed, and its frame segment with a picture of 64x48.
  function makeSharedStream(t) {
    const main = makeSegment(t, MAIN_SEGMENT_SIZE);
    const stream = makeSegment(t, FRAME_SEGMENT_SIZE);
    list(main.shm_name, A.streamIndex, stream);
    writeHeader(stream.shm_name, SMALL);
    return { main, stream };
  }

  // The widget's result for stream A. The widget must then still be able to read another one.
  async function readA(t, main) {
    const good = makeSegment(t, FRAME_SEGMENT_SIZE);
    list(main.shm_name, B.streamIndex, good);
    writeHeader(good.shm_name, SMALL);
    const widget = await startWidget(t, main);
    const seen = await widget.does('read', A);
    const { width, height } = await widget.does('read', B);
    assert.deepEqual([width, height], [64, 48]);
    await widget.ends();
    return { seen, lines: widget.lines };
  }

  test('a segment written by the test is read like any other', async (t) => {
    const { main, stream } = makeSharedStream(t);
    writeToSegment(stream.shm_name, Buffer.alloc(4608, 9), 40);
    const { seen } = await readA(t, main);
    assert.deepEqual([seen.width, seen.height, seen.csrc], [64, 48, 7]);
  });

  for (const size of [0, 40, FRAME_SEGMENT_SIZE - 1]) {
    test(`a frame segment of ${size} bytes is refused`, async (t) => {
      const { main, stream } = makeSharedStream(t);
      truncateSync(fileOfSegment(stream.shm_name), size);
      const { seen, lines } = await readA(t, main);
      assert.deepEqual(seen, UPDATE_MISSING);
      assert.ok(lines.includes('initialize: mmap failed, error:6'));
    });
  }

  for (const size of [0, 1, 31]) {
    test(`a semaphore of ${size} bytes is refused`, async (t) => {
      const { main, stream } = makeSharedStream(t);
      truncateSync(fileOfSemaphore(stream.sem_name), size);
      const { seen, lines } = await readA(t, main);
      assert.deepEqual(seen, UPDATE_MISSING);
      assert.ok(lines.includes('initialize: sem_open failed, error:22'));
    });
  }

  for (const [what, bytes] of [
    ['text', 'no semaphore, but what somebody has written down'],
    ['zeros', Buffer.alloc(32)],
    ['ones', Buffer.alloc(32, 255)],
  ]) {
    test(`a semaphore of ${what} is refused`, async (t) => {
      const { main, stream } = makeSharedStream(t);
      writeFileSync(fileOfSemaphore(stream.sem_name), bytes);
      const { seen, lines } = await readA(t, main);
      assert.deepEqual(seen, UPDATE_MISSING);
      assert.ok(lines.includes('initialize: sem_open failed, error:22'));
    });
  }

  const MOST = 2 ** 32 - 1;
  for (const [width, height] of [
    [1920, 1080],
    [1601, 864],
    [2_073_600, 1],
    [1, 2_073_600],
    [65_536, 65_536], // 2 to the 32nd
    [65_535, 65_537], // one less
    [2 ** 31, 2],
    [MOST, 1],
    [1, MOST],
    [MOST, MOST],
  ]) {
    test(`a header with the size ${width}x${height} is answered with no update`, async (t) => {
      const { main, stream } = makeSharedStream(t);
      writeHeader(stream.shm_name, { width, height });
      const { seen } = await readA(t, main);
      assert.deepEqual(seen, { noUpdate: true, csrc: 0 });
    });
  }

  for (const [width, height] of [
    [0, MOST],
    [MOST, 0],
  ]) {
    test(`a header with the size ${width}x${height} is answered with a picture without pixels`, async (t) => {
      const { main, stream } = makeSharedStream(t);
      writeHeader(stream.shm_name, { width, height });
      const { seen } = await readA(t, main);
      assert.deepEqual(seen, { csrc: 0, width, height, pixels: 0 });
    });
  }

  const filled = Buffer.alloc(255, 'x');
  for (const [what, change, line] of [
    ['a name without an end', { shm_name: filled }, 'shm_open failed, error:2'],
    ['a name with a slash', { shm_name: '/SHM/../../etc/passwd' }, 'shm_open failed, error:22'],
    ['a name that does not exist', { shm_name: '/SHMnobody' }, 'shm_open failed, error:2'],
    ['the name of another object', { shm_name: '%s%n' }, 'shm_open failed, error:2'],
    ['an empty object name', { shm_name: '' }, null],
    ['an empty semaphore name', { sem_name: '' }, null],
    [
      'a semaphore name without an end',
      { sem_name: filled },
      'initialize: sem_open failed, error:36',
    ],
    [
      'a semaphore name that does not exist',
      { sem_name: '/SEMnobody' },
      'initialize: sem_open failed, error:2',
    ],
  ]) {
    test(`an entry with ${what} has a null frame`, async (t) => {
      const { main, stream } = makeSharedStream(t);
      list(main.shm_name, A.streamIndex, { ...stream, ...change });
      const { seen, lines } = await readA(t, main);
      assert.deepEqual(seen, UPDATE_MISSING);
      assert.ok(line === null || lines.includes(line), lines.join('\n'));
    });
  }

  test('an entry that names a directory has a null frame', async (t) => {
    const { main, stream } = makeSharedStream(t);
    rmSync(fileOfSegment(stream.shm_name));
    mkdirSync(fileOfSegment(stream.shm_name));
    const { seen, lines } = await readA(t, main);
    assert.deepEqual(seen, UPDATE_MISSING);
    assert.ok(lines.includes('shm_open failed, error:22'));
  });

  test('an entry that names the main segment has a null frame', async (t) => {
    const { main } = makeSharedStream(t);
    list(main.shm_name, A.streamIndex, main);
    const { seen, lines } = await readA(t, main);
    assert.deepEqual(seen, UPDATE_MISSING);
    assert.ok(lines.includes('initialize: mmap failed, error:6'));
  });

  test('any value other than 0 lists a stream', async (t) => {
    const { main, stream } = makeSharedStream(t);
    list(main.shm_name, A.streamIndex, { ...stream, valid: 255 });
    const { seen } = await readA(t, main);
    assert.deepEqual([seen.width, seen.height], [64, 48]);
  });

  test('a table filled with ones gives null frames only', async (t) => {
    const main = makeSegment(t, MAIN_SEGMENT_SIZE);
    writeToSegment(main.shm_name, Buffer.alloc(MAIN_SEGMENT_SIZE, 255), 0);
    const widget = await startWidget(t, main);
    for (const type of ['local', 'remote', 'content']) {
      for (const streamIndex of [0, 49]) {
        assert.deepEqual(await widget.does('read', { type, streamIndex }), UPDATE_MISSING);
      }
    }
    await widget.ends();
  });

  test('a semaphore whose count is too high locks no process out, and stays held when it overflows', async (t) => {
    const { main, key } = await startMain(t);
    const widget = await startWidget(t, key);
    await main.does('enter', A);
    const [{ sem_name: lock }] = frameSegmentsOf(main);
    setCount(lock, 2 ** 31); // one more than there may be
    const overflows = 'unlockDataAccess sem_post failed, error:75';
    assert.equal(await main.does('push', A, frame(1)), true);
    assert.equal(main.count(overflows), 1);
    assert.equal(await main.does('push', A, frame(2)), true);
    assert.equal(main.count('lockDataAccess, already locked!') >= 1, true);
    assert.deepEqual(await widget.does('read', A), patternOf(A, 2));
    await widget.ends();
    await main.ends();
  });

  test('a semaphore whose count is 0 makes each request of a widget wait five seconds', async (t) => {
    const { main, stream } = makeSharedStream(t);
    setCount(stream.sem_name, 0);
    const widget = await startWidget(t, main);
    assert.deepEqual(await widget.does('read', A), UPDATE_MISSING);
    assert.equal(widget.count(TIMED_OUT), 1);
    setCount(stream.sem_name, 1);
    assert.equal((await widget.does('read', A)).width, 64);
    await widget.ends();
  });
});
