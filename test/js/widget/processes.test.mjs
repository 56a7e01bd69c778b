// Frames from a main process to widgets in separate processes. Every frame that a widget reads is
// compared, byte for byte, with the sent one.

import assert from 'node:assert/strict';
import { existsSync, utimesSync } from 'node:fs';
import { test } from 'node:test';

import { remotePattern } from '../../support/scripted/described_frames.mjs';
import { makeSegment } from '../../support/shared_memory/handmade_segments.mjs';
import {
  fileOfSegment,
  fileOfSemaphore,
  filesNamedIn,
  removeLeftovers,
} from '../../support/shared_memory/shared_memory_names.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { startEmbeddedMain, startMain, startWidget } from '../../support/widget_mode_processes.mjs';
import { remote } from '../../support/streams.mjs';

const SMALL = { width: 64, height: 48 };
const namesExist = ({ shm_name: shm, sem_name: sem }) => [
  existsSync(fileOfSegment(shm)),
  existsSync(fileOfSemaphore(sem)),
];

for (const [width, height] of [
  [641, 361],
  [1280, 720],
  [1600, 864],
  [320, 181],
  [17, 1],
]) {
  test(`a widget sees a frame of ${width}x${height} as the engine made it`, async (t) => {
    const { main, key } = await startMain(t);
    const widget = await startWidget(t, key);
    await main.does('enter', remote(3));
    for (const number of [1, 2, 3]) {
      const frame = { width, height, number, csrc: 4_000_000_000 + number };
      assert.equal(await main.does('push', remote(3), frame), true);
      assert.deepEqual(await widget.does('read', remote(3)), remotePattern(3, frame));
    }
    await widget.ends();
    await main.ends();
  });
}

test('a frame does not change while a widget reads it, and the next one follows', async (t) => {
  const { main, key } = await startMain(t);
  const widget = await startWidget(t, key);
  const [first, second] = [1, 2].map((number) => ({ ...SMALL, number, csrc: number }));
  await main.does('enter', remote(0));
  await main.does('push', remote(0), first);
  await widget.does('look', remote(0));
  await main.does('beginPush', remote(0), second);
  // The writer waits, and the held frame is the first one.
  assert.deepEqual(await widget.does('look', remote(0)), remotePattern(0, first));
  await widget.does('release', remote(0));
  assert.equal(await main.does('endPush', remote(0)), 1);
  assert.deepEqual(await widget.does('read', remote(0)), remotePattern(0, second));
  assert.equal(main.lines.filter((line) => line.includes('timedout')).length, 0);
  await widget.ends();
  await main.ends();
});

test('frames that are written and read continuously are whole, and advance', async (t) => {
  const FRAMES = 60;
  const { main, key } = await startMain(t);
  const widget = await startWidget(t, key);
  const streams = [remote(0), remote(1), remote(49)];
  for (const stream of streams) {
    await main.does('enter', stream);
    await main.does('startPushing', stream, { width: 641, height: 361, fps: 100 });
  }
  await widget.does('keepReading', streams);
  await widget.seen(({ reports }) =>
    streams.every(
      ({ streamIndex }) => reports.filter(({ index }) => index === streamIndex).length >= FRAMES,
    ),
  );
  await widget.does('stopReading');
  for (const { streamIndex } of streams) {
    const seen = widget.reports.filter(({ index }) => index === streamIndex);
    for (const [i, frame] of seen.entries()) {
      assert.equal(frame.whole, true);
      assert.ok(i === 0 || frame.number > seen[i - 1].number);
    }
    const { csrc, number } = seen[FRAMES - 1];
    const sent = { width: 641, height: 361, number, csrc };
    assert.deepEqual(seen[FRAMES - 1], remotePattern(streamIndex, sent));
  }
  for (const stream of streams) await main.does('stopPushing', stream);
  await widget.ends();
  await main.ends();
});

test('a widget sees the same pictures as the main process', async (t) => {
  const COMMON = 20;
  const streams = [remote(0), remote(1)];
  const { main, key } = await startEmbeddedMain(t, temporaryDirectory(t));
  const widget = await startWidget(t, key);
  const added = await main.does('join', 'tessel:demo?participants=2&size=641x361&fps=60', 2);
  assert.deepEqual(added, streams);
  for (const stream of streams) await main.does('enter', stream);
  await main.does('keepReading', streams);
  await widget.does('keepReading', streams, { kind: 'card' });

  // Each process may have missed a frame that the other one has received.
  const nameOf = ({ streamIndex, number }) => `${streamIndex}:${number}`;
  const seenByMain = () => new Map(main.reports.map((frame) => [nameOf(frame), frame]));
  const common = () => {
    const known = seenByMain();
    return widget.reports.filter((frame) => known.has(nameOf(frame)));
  };
  await widget.seen(() =>
    streams.every(
      ({ streamIndex }) => common().filter((f) => f.streamIndex === streamIndex).length >= COMMON,
    ),
  );
  await widget.does('stopReading');
  const known = seenByMain();
  for (const frame of common()) {
    assert.deepEqual([frame.width, frame.height], [641, 361]);
    assert.deepEqual(frame, known.get(nameOf(frame)));
  }
  await widget.ends();
  await main.ends();
});

test('a stream that leaves and enters widget mode again is found again', async (t) => {
  const { main, key } = await startMain(t);
  const widget = await startWidget(t, key);
  for (const number of [1, 2, 3]) {
    const frame = { ...SMALL, number, csrc: 9 };
    assert.deepEqual((await widget.does('read', remote(7))).noUpdate, true);
    await main.does('enter', remote(7));
    await main.does('push', remote(7), frame);
    assert.deepEqual(await widget.does('read', remote(7)), remotePattern(7, frame));
    await main.does('exit', remote(7));
  }
  await widget.ends();
  await main.ends();
});

test('two widgets read one stream in turns', async (t) => {
  const { main, key } = await startMain(t);
  const first = await startWidget(t, key);
  const second = await startWidget(t, key);
  await main.does('enter', remote(2));
  const frame = { ...SMALL, number: 5, csrc: 1 };
  await main.does('push', remote(2), frame);
  await second.does('read', remote(2)); // opens the segment
  assert.deepEqual(await first.does('look', remote(2)), remotePattern(2, frame));
  const waiting = second.does('read', remote(2));
  await first.does('release', remote(2));
  assert.deepEqual(await waiting, remotePattern(2, frame));
  assert.equal(second.lines.filter((line) => line.includes('timedout')).length, 0);

  await first.ends();
  assert.deepEqual(namesExist(key), [false, false], 'the first to go takes the names along');
  const next = { ...SMALL, number: 6, csrc: 2 };
  await main.does('push', remote(2), next);
  assert.deepEqual(await second.does('read', remote(2)), remotePattern(2, next));
  const third = await startWidget(t, key);
  assert.ok(third.lines.includes('shm_open failed, error:2'));
  assert.equal((await third.does('read', remote(2))).noUpdate, true);
  for (const one of [third, second, main]) await one.ends();
});

test('streams keep delivering while others enter and leave, and those leave no files', async (t) => {
  const ROUNDS = 40;
  const { main, key } = await startMain(t);
  const widget = await startWidget(t, key);
  const lasting = [remote(0), remote(1)];
  const passing = [remote(20), remote(21)];
  const pushed = { ...SMALL, fps: 500 };
  for (const stream of lasting) await main.does('enter', stream);
  for (const stream of [...lasting, ...passing]) await main.does('startPushing', stream, pushed);
  await widget.does('keepReading', lasting);
  const before = await main.does('holdings');
  for (let round = 0; round < ROUNDS; ++round) {
    const already = widget.reports.length;
    for (const stream of passing) await main.does('enter', stream);
    await widget.seen(({ reports }) => reports.length > already);
    for (const stream of passing) await main.does('exit', stream);
  }
  const after = await main.does('holdings');
  assert.deepEqual(after.descriptors, before.descriptors);
  assert.equal(after.mappedSegments, before.mappedSegments);
  await widget.does('stopReading');
  assert.ok(widget.reports.length >= ROUNDS);
  assert.ok(widget.reports.every(({ whole }) => whole));
  assert.deepEqual(
    [...main.lines, ...widget.lines].filter((line) => /wrong|timedout|No mapped/.test(line)),
    [],
  );
  await widget.ends();
  await main.ends();
});

test('the leftovers of killed processes in /dev/shm are removed, and no files in use or new ones', async (t) => {
  const makeOld = (file) => utimesSync(file, 0, 0);
  const filesOf = ({ shm_name: shm, sem_name: sem }) => [fileOfSegment(shm), fileOfSemaphore(sem)];
  const { main } = await startMain(t);
  await main.does('enter', remote(3));
  const used = filesNamedIn(main.lines);
  const left = filesOf(makeSegment(t, 40));
  const fresh = filesOf(makeSegment(t, 40));
  [...used, ...left].forEach(makeOld);
  removeLeftovers();
  assert.deepEqual(left.map(existsSync), [false, false]);
  assert.deepEqual([...used, ...fresh].map(existsSync), [true, true, true, true, true, true]);
  await main.ends();
});
