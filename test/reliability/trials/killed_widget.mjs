// Widgets that are killed: at a random moment, or while they hold a stream's lock. The frames of
// that stream, and of another one, keep arriving.

import assert from 'node:assert/strict';
import { setImmediate, setTimeout } from 'node:timers/promises';

import { openSemaphore, sequenceOf } from '../../support/shared_memory/handmade_segments.mjs';
import { frameSegmentsOf } from '../../support/shared_memory/shared_memory_names.mjs';
import { inParallel } from '../../support/in_parallel.mjs';
import { startMain, startWidget } from '../../support/reliability/processes.mjs';
import { remote } from '../../support/streams.mjs';
import { TIMED_OUT } from '../../support/shared_memory/lock_moments.mjs';

const STREAM = remote(3);
const OTHER = remote(4);
const LARGE = { width: 1280, height: 720, csrc: 5, fps: 0 }; // as fast as the lock lets it
const SMALL = { width: 64, height: 36, csrc: 5, fps: 100 };

// Run in parallel: a lost lock costs five seconds in which its meeting is almost idle.
const MEETINGS = 8;
const KILLS_OF_A_MEETING = 10; // at least, where there are so many
const LONGEST_MS = 20;
const GOES_ON_FRAMES = 5;
// How many killed widgets may hold the main segment's lock: few, unless it is held for too long.
const mostMainLocksLost = (count) => 2 + count / 10;

const TOLD_AS_WRONG = /timedout|dropped|wrong|failed|No mapped/;
const LEAVING_FAILED = 'disableSharedMemory: Shared mem lock failed, something is wrong!';

const READING = 'while reading';
const OPENING = 'while opening';
const HOLDING = 'while holding the lock';

const total = {
  [READING]: 0,
  [OPENING]: 0,
  [HOLDING]: 0,
  "stream's locks lost": 0,
  'of them met by a frame': 0,
  "main segment's locks lost": 0,
  'frames of the other streams': 0,
};

// A meeting with a second stream, read by a widget that is not killed.
async function startMeeting(after) {
  const { main, key } = await startMain(after);
  await main.does('enter', OTHER);
  const [{ shm_name: otherSegment }] = frameSegmentsOf(main);
  await main.does('startPushing', OTHER, SMALL);
  const bystander = await startWidget(after, key, SMALL);
  await bystander.does('read', OTHER, 1);
  await bystander.does('keepReading', OTHER);
  const mainLock = openSemaphore(key.sem_name);
  return { main, key, bystander, otherSegment, mainLock, told: [], isOver: false };
}

// Frames arrive at a new widget of the stream, however the previous widget ended.
async function enterAndRead({ main, key }, after) {
  await main.does('enter', STREAM);
  const segment = frameSegmentsOf(main).at(-1);
  const widget = await startWidget(after, key, LARGE);
  await main.does('startPushing', STREAM, LARGE);
  const { frames } = await widget.does('read', STREAM, 1);
  assert.equal(frames, 1);
  return { widget, segment };
}

async function leave({ main }) {
  await main.does('exit', STREAM);
  await main.does('stopPushing', STREAM);
}

const atRandom = ({ random }) => setTimeout(random.number() * LONGEST_MS);

const kills = {
  async [READING]({ widget, random }) {
    await widget.does('keepReading', STREAM, { pauses: false });
    await atRandom({ random });
    await widget.kill();
  },
  async [OPENING]({ widget, random, meeting }) {
    await widget.does('keepOpening', meeting.key, STREAM);
    await atRandom({ random });
    await widget.kill();
  },
  // The engine's thread waits for the lock across the kill, and the other stream goes on meanwhile.
  async [HOLDING]({ widget, segment, lock, meeting: { main, bystander, told }, judgesTimes }) {
    assert.ok(await widget.does('isFrame', 'getFrame', STREAM));
    const stored = sequenceOf(segment.shm_name);
    while (lock.waiters() === 0) {
      assert.equal(sequenceOf(segment.shm_name), stored, 'stored without the lock');
      await setImmediate();
    }
    await widget.kill();
    await bystander.does('read', OTHER, GOES_ON_FRAMES);
    if (!judgesTimes) return;
    // All of this within the five seconds that the thread waits.
    assert.equal(main.count(TIMED_OUT), told.filter((line) => line === TIMED_OUT).length);
  },
};
const WAYS = [READING, HOLDING, OPENING, HOLDING];

// Kills a widget of the meeting. If it holds the main segment's lock, that segment is unusable, but
// not the process: then the meeting is ended.
async function killOne(way, meeting, { after, random, judgesTimes }) {
  const { main, told } = meeting;
  const { widget, segment } = await enterAndRead(meeting, after);
  const lock = openSemaphore(segment.sem_name);
  await kills[way]({ widget, segment, lock, meeting, random, judgesTimes });
  await leave(meeting);
  // No process uses this lock any more: only a killed one can hold it.
  const isStreamLost = lock.count() === 0;
  lock.close();
  meeting.isOver = main.count(LEAVING_FAILED) > 0;
  if (way === HOLDING) assert.deepEqual([isStreamLost, meeting.isOver], [true, false]);

  // The main process has waited for the locks that were lost, and for no other. At a random moment
  // the stream may be left before its next frame asks for the lock.
  const news = main.lines.filter((line) => TOLD_AS_WRONG.test(line)).slice(told.length);
  const expected = meeting.isOver ? [TIMED_OUT, LEAVING_FAILED] : [];
  const isMet = isStreamLost && (way === HOLDING || news.length > expected.length);
  if (isMet) expected.unshift(TIMED_OUT);
  // On a busy machine the stream may be left so late that further frames have met the dead lock.
  while (!judgesTimes && isMet && news.length > expected.length) expected.unshift(TIMED_OUT);
  assert.deepEqual(news, expected);
  told.push(...news);

  ++total[way];
  if (isStreamLost) ++total["stream's locks lost"];
  if (isMet) ++total['of them met by a frame'];
  if (meeting.isOver) ++total["main segment's locks lost"];
}

// The other stream has lost nothing: each of its frames was stored, and a widget that can still
// read gets the last one.
async function endMeeting({ main, bystander, otherSegment, mainLock, told, isOver }) {
  const delivered = await main.does('stopPushing', OTHER);
  assert.equal(sequenceOf(otherSegment), delivered - 1);
  let seen = await bystander.does('stopReading');
  // Nobody uses the main segment now.
  assert.equal(mainLock.count(), isOver ? 0 : 1);
  mainLock.close();
  if (!isOver) {
    seen = await bystander.does('readOnce', OTHER);
    assert.deepEqual([seen.newest, seen.missing], [delivered - 1, 0]);
  }
  assert.deepEqual([seen.broken, seen.outOfOrder], [0, 0]);
  total['frames of the other streams'] += delivered;
  await main.ends();
  await bystander.ends();
  assert.deepEqual(
    main.lines.filter((line) => TOLD_AS_WRONG.test(line)),
    told,
  );
}

export async function run(count, { after, random, judgesTimes }) {
  const killSome = async (first, times) => {
    let meeting = await startMeeting(after);
    for (let kill = first; kill < first + times; ++kill) {
      await killOne(WAYS[kill % WAYS.length], meeting, { after, random, judgesTimes });
      if (!meeting.isOver) continue;
      await endMeeting(meeting);
      meeting = await startMeeting(after);
    }
    const { widget } = await enterAndRead(meeting, after);
    await leave(meeting);
    await widget.ends();
    await endMeeting(meeting);
  };
  const meetings = Math.min(MEETINGS, Math.ceil(count / KILLS_OF_A_MEETING));
  await inParallel(
    Array.from(
      { length: meetings },
      (_, meeting) => () => killSome(meeting, Math.floor((count + meeting) / meetings)),
    ),
    MEETINGS,
  );
  assert.ok(total["main segment's locks lost"] <= mostMainLocksLost(count));
  return total;
}
