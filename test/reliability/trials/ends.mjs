// Processes that end while engine threads notify and deliver frames.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

import { filesNamedIn } from '../../js/support/shared_memory_names.mjs';
import { temporaryDirectory } from '../../js/support/temporary_directory.mjs';
import { inParallel } from '../support/in_parallel.mjs';

const WAYS = {
  destroyed: { code: 0 },
  exitInListener: { code: 7 },
  thrownInListener: { code: 1, error: 'RangeError: thrown to end' },
  notDestroyed: { code: 0 },
  workerTerminated: { code: 0 },
  loadedTwice: { code: 0 },
  cacheCleared: { code: 0 },
};
const MOST_MS = 2000;
// Far above what any process takes: it ends what would never end.
const TIME_LIMIT_MS = 120_000;

const program = fileURLToPath(new URL('../fixtures/ending_process.mjs', import.meta.url));

// How long the process took to end, in milliseconds.
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
  const [stdout, stderr, [code, signal]] = await Promise.all([
    text(child.stdout),
    text(child.stderr),
    once(child, 'close'),
  ]);
  const expected = WAYS[way];
  assert.deepEqual({ way, code, signal }, { way, code: expected.code, signal: null }, stderr);
  if (expected.error) assert.ok(stderr.includes(expected.error), stderr);
  else assert.equal(stderr, '');
  const files = filesNamedIn(stdout.split('\n'));
  assert.ok(files.length >= 6);
  assert.deepEqual(files.filter(existsSync), []);
  return end - start;
}

export async function run(count, { after, judgesTimes }) {
  const directory = temporaryDirectory({ after });
  const slowest = {};
  const endOnce = async (way) => {
    const took = await endedBy(way, directory);
    if (judgesTimes) assert.ok(took <= MOST_MS, `${way} took ${took} ms`);
    slowest[way] = Math.max(slowest[way] ?? 0, Math.round(took));
  };
  await inParallel(
    Array.from({ length: count }).flatMap(() => Object.keys(WAYS).map((way) => () => endOnce(way))),
  );
  return Object.fromEntries(
    Object.entries(slowest).map(([way, took]) => [`slowest ${way}, ms`, took]),
  );
}
