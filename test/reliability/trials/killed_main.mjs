// Main processes that are killed while a widget reads.

import assert from 'node:assert/strict';
import { setTimeout } from 'node:timers/promises';

import { remote, startMain, startWidget } from '../support/processes.mjs';
import { inParallel } from '../support/in_parallel.mjs';

const STREAM = remote(3);
const RATES = [0, 500, 30]; // 0: as fast as the widget's lock lets it
const LONGEST_MS = 30;
const CALLS_AFTER = 3;
// How long a lock is waited for. Each call of the widget's waits for two at most: that of the main
// segment, and that of the stream's; and one reading is two calls.
const LOCK_LIMIT_MS = 5000;
const MARGIN_MS = 500;
const LONGEST_READING_MS = 2 * LOCK_LIMIT_MS + MARGIN_MS;
// The reading that is under way and those that follow; who does not answer by then never will.
const LONGEST_ANSWER_MS = (1 + CALLS_AFTER) * LONGEST_READING_MS;
const TIMED_OUT = /timedout/;

const AT_ONCE = 4;

export async function run(count, { after, random, judgesTimes }) {
  let slowest = 0;
  let calls = 0;
  let locksLost = 0;
  const killOne = async (number) => {
    const { main, key } = await startMain(after);
    const widget = await startWidget(after, key);
    await main.does('enter', STREAM);
    const fps = RATES[number % RATES.length];
    await main.does('startPushing', STREAM, { width: 1280, height: 720, csrc: 5, fps });
    await widget.does('read', STREAM, 1);
    await widget.does('keepReading', STREAM);
    await setTimeout(random.number() * LONGEST_MS);
    await main.kill();
    const silence = new AbortController();
    const seen = await Promise.race([
      widget.does('stopReading').then(() => widget.does('readSome', STREAM, CALLS_AFTER)),
      setTimeout(LONGEST_ANSWER_MS, undefined, silence).then(() => assert.fail('no answer')),
    ]);
    silence.abort();
    assert.deepEqual([seen.broken, seen.outOfOrder], [0, 0]);
    slowest = Math.max(slowest, seen.slowestMs);
    calls += seen.calls;
    await widget.ends();
    if (widget.lines.some((line) => TIMED_OUT.test(line))) ++locksLost;
  };
  await inParallel(
    Array.from({ length: count }, (_, number) => () => killOne(number)),
    AT_ONCE,
  );
  if (judgesTimes) assert.ok(slowest <= LONGEST_READING_MS, `${slowest} ms`);
  return {
    'readings by the widgets': calls,
    'slowest, ms': slowest,
    'died with a lock': locksLost,
  };
}
