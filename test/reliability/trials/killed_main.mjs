// Main processes that are killed while a widget reads: while they hold the lock of a stream or of
// the main segment, or at a random moment.

import assert from 'node:assert/strict';
import { setImmediate, setTimeout } from 'node:timers/promises';

import { countOf, openSemaphore } from '../../support/shared_memory/handmade_segments.mjs';
import { frameSegmentsOf } from '../../support/shared_memory/shared_memory_names.mjs';
import { TIMED_OUT, stopHolding } from '../../support/shared_memory/lock_moments.mjs';
import { inParallel } from '../../support/in_parallel.mjs';
import { startMain, startWidget } from '../../support/reliability/processes.mjs';
import { remote } from '../../support/streams.mjs';

const STREAM = remote(3);
const UNREAD = remote(4); // has a frame, which the widget asks for only when the main process is dead
const CHANGED = remote(5); // enters and leaves, again and again
const FRAME = { width: 1280, height: 720, csrc: 5 };
const RATES = [0, 500, 30]; // 0: as fast as the widget's lock lets it
const LONGEST_MS = 30;
// A call waits for one lost lock at most: without the main segment's lock it requests no other.
const LOCK_LIMIT_MS = 5000;
const MARGIN_MS = 1000;

// Run in parallel: a lost lock costs an idle wait of five seconds for a call.
const AT_ONCE = 16;

async function someoneWaitsFor(semName) {
  const semaphore = openSemaphore(semName);
  while (semaphore.waiters() === 0) await setImmediate();
  semaphore.close();
}

// Calls the proxy: whether that gave the frame that it should, and how often a lock was waited for
// in vain.
async function ask(widget, method, stream) {
  const before = widget.count(TIMED_OUT);
  const isFrame = await widget.does('isFrame', method, stream);
  return { isFrame, gaveUp: widget.count(TIMED_OUT) - before };
}

// Stops the main process while it holds the lock, and kills it while the widget waits for that
// lock.
async function killHolding(semName, { main, widget }) {
  await stopHolding(main, semName);
  const answer = ask(widget, 'getFrame', STREAM);
  await Promise.race([
    someoneWaitsFor(semName),
    answer.then(() => assert.fail('answered without the lock')),
  ]);
  await main.kill();
  return answer;
}

const WRITING = 'while it wrote';
const CHANGING = 'while it changed the table';
const AT_RANDOM = 'at random';
const WAYS = [WRITING, AT_RANDOM, WRITING, CHANGING];

// Each returns the result of the first getFrame after the death of the main process.
const kills = {
  async [WRITING]({ main, widget, streamLock }) {
    await main.does('startPushing', STREAM, { ...FRAME, fps: 0 });
    return killHolding(streamLock, { main, widget });
  },
  async [CHANGING]({ main, widget, mainLock }) {
    await main.does('keepEntering', CHANGED);
    return killHolding(mainLock, { main, widget });
  },
  async [AT_RANDOM]({ main, widget, random }) {
    await main.does('startPushing', STREAM, { ...FRAME, fps: random.of(RATES) });
    if (random.chance(0.5)) await main.does('keepEntering', CHANGED);
    await widget.does('keepReading', STREAM);
    await setTimeout(random.number() * LONGEST_MS);
    await main.kill();
    await widget.does('stopReading');
    return ask(widget, 'getFrame', STREAM);
  },
};

const frame = { isFrame: true, gaveUp: 0 };
const nothing = { isFrame: false, gaveUp: 0 };
const gaveUp = { isFrame: false, gaveUp: 1 };

// The expected results, by the lock that the main process held when it was killed.
const EXPECTED = {
  none: { first: frame, release: nothing, last: frame, unread: frame },
  stream: { first: gaveUp, release: nothing, last: gaveUp, unread: frame },
  main: { first: gaveUp, release: gaveUp, last: gaveUp, unread: gaveUp },
};
const LOST = { [WRITING]: ['stream'], [CHANGING]: ['main'], [AT_RANDOM]: Object.keys(EXPECTED) };

export async function run(count, { after, random, judgesTimes }) {
  const total = { calls: 0, 'slowest, ms': 0 };
  for (const way of WAYS) total[way] = 0;
  for (const lock of ['stream', 'main']) total[`at random, with the lock: ${lock}`] = 0;

  const killOne = async (way) => {
    const { main, key } = await startMain(after);
    const widget = await startWidget(after, key, FRAME);
    for (const stream of [STREAM, UNREAD]) {
      await main.does('enter', stream);
      // getLastFrame does not report a stream's first frame.
      for (let frame = 0; frame < 2; ++frame) {
        await main.does('push', stream, { ...FRAME, number: 0 });
      }
    }
    const streamLock = frameSegmentsOf(main)[0].sem_name;
    const mainLock = key.sem_name;
    const { frames } = await widget.does('read', STREAM, 1);
    assert.equal(frames, 1);

    const first = await kills[way]({ main, widget, streamLock, mainLock, random });
    const release = await ask(widget, 'releaseFrame', STREAM);
    // The widget has released its frame.
    let lost = countOf(streamLock) === 0 ? 'stream' : 'none';
    if (countOf(mainLock) === 0) lost = 'main';
    const last = await ask(widget, 'getLastFrame', STREAM);
    await ask(widget, 'removeVideo', STREAM);
    await widget.does('open', key);
    const unread = await ask(widget, 'getFrame', UNREAD);
    assert.deepEqual({ first, release, last, unread }, EXPECTED[lost]);
    assert.ok(LOST[way].includes(lost), `${lost} ${way}`);

    const seen = await widget.does('seen');
    assert.deepEqual([seen.broken, seen.outOfOrder], [0, 0]);
    await widget.ends();
    total.calls += seen.calls;
    total['slowest, ms'] = Math.max(total['slowest, ms'], seen.slowestMs);
    ++total[way];
    if (way === AT_RANDOM && lost !== 'none') ++total[`at random, with the lock: ${lost}`];
  };
  await inParallel(
    Array.from({ length: count }, (_, number) => () => killOne(WAYS[number % WAYS.length])),
    AT_ONCE,
  );
  if (judgesTimes) {
    const slowest = total['slowest, ms'];
    assert.ok(Math.abs(slowest - LOCK_LIMIT_MS) <= MARGIN_MS, `${slowest} ms`);
  }
  return total;
}
