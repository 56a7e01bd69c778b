// Processes that end while engine threads notify and deliver frames.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

import { filesNamedIn } from '../../support/shared_memory/shared_memory_names.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { inParallel } from '../../support/in_parallel.mjs';
import { WAYS_TO_END } from '../../support/ways_to_end.mjs';

const MOST_MS = 2000;
// Far longer than any process takes: it ends a process that hangs.
const TIME_LIMIT_MS = 120_000;

const program = fileURLToPath(
  new URL('../../support/processes/ending_process.mjs', import.meta.url),
);

// How long the process took to end, in milliseconds, and how many events it left.
async function endedBy(way, directory) {
  const child = spawn(process.execPath, [program, way, directory], {
    stdio: ['ignore', 'pipe', 'pipe', 'pipe'],
    timeout: TIME_LIMIT_MS,
    killSignal: 'SIGKILL',
  });
  let start;
  child.stdio[3].once('data', () => {
    start = performance.now();
  });
  let end;
  child.once('exit', () => {
    end = performance.now();
  });
  const [stdout, stderr, said, [code, signal]] = await Promise.all([
    text(child.stdout),
    text(child.stderr),
    text(child.stdio[3]),
    once(child, 'close'),
  ]);
  const expected = WAYS_TO_END[way];
  assert.deepEqual({ way, code, signal }, { way, code: expected.code, signal: null }, stderr);
  if (expected.error) assert.ok(stderr.includes(expected.error), stderr);
  else assert.equal(stderr, '');
  const { eventsLeft } = JSON.parse(said);
  assert.ok(eventsLeft > 0, `${way}: all events had arrived before the end`);
  // Wrappers that one process makes in the same second have the same names.
  const files = new Set(filesNamedIn(stdout.split('\n')));
  assert.ok(files.size >= 4, 'a segment and a semaphore each for the meeting and the stream');
  assert.deepEqual([...files].filter(existsSync), []);
  return { took: end - start, eventsLeft };
}

export async function run(count, { after, judgesTimes }) {
  const directory = temporaryDirectory({ after });
  const slowest = {};
  let leastLeft = Infinity;
  const endOnce = async (way) => {
    const { took, eventsLeft } = await endedBy(way, directory);
    if (judgesTimes) assert.ok(took <= MOST_MS, `${way} took ${took} ms`);
    slowest[way] = Math.max(slowest[way] ?? 0, Math.round(took));
    leastLeft = Math.min(leastLeft, eventsLeft);
  };
  await inParallel(
    Array.from({ length: count }).flatMap(() =>
      Object.keys(WAYS_TO_END).map((way) => () => endOnce(way)),
    ),
  );
  return {
    'events that had not arrived, at least': leastLeft,
    ...Object.fromEntries(
      Object.entries(slowest).map(([way, took]) => [`slowest ${way}, ms`, took]),
    ),
  };
}
