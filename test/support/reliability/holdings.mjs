// The resources of this process, for trials that compare two moments.

import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';
import { isDeepStrictEqual } from 'node:util';
import { getHeapStatistics } from 'node:v8';

import { collect } from '../collector.mjs';

// A sanitizer keeps memory that was freed, and has threads of its own.
const isSanitized = Boolean(process.env.LD_PRELOAD);

const BYTES_PER_KILOBYTE = 1024;
const LEAST_COLLECTIONS = 3;
const MOST_COLLECTIONS = 100;
// However much is done: V8 compiles what runs often, and malloc() keeps what was freed.
const ALLOWED_GROWTH_KB = { process: 1024, heap: 512 };

// Memory that no other process shares.
export function privateKilobytes(pid = 'self') {
  const rollup = readFileSync(`/proc/${pid}/smaps_rollup`, 'latin1');
  const lines = [...rollup.matchAll(/^Private_(?:Clean|Dirty):\s+(\d+) kB$/gm)];
  return lines.reduce((sum, [, kilobytes]) => sum + Number(kilobytes), 0);
}

// V8 has a timer on the loop for each task that it puts off.
const COMING_AND_GOING = new Set(['loop', 'timer']);

// What is to be exactly as many before and after.
export function counted() {
  const { libuv } = process.report.getReport();
  return {
    descriptors: readdirSync('/proc/self/fd').length,
    threads: readdirSync('/proc/self/task').length,
    handles: libuv.filter(({ type }) => !COMING_AND_GOING.has(type)).length,
    segments: readFileSync('/proc/self/maps', 'latin1').match(/\/dev\/shm\/\S+/g)?.length ?? 0,
  };
}

// The counts once nothing is left to collect: as `expected`, or after a hundred collections. What a
// finalizer lets go of may be collected in its turn, and a thread that was joined is counted until
// the system has taken it away. Where nothing is expected they are to stay the same.
export async function settledCounts(expected) {
  let counts;
  for (let round = 0; round < MOST_COLLECTIONS; ++round) {
    const before = counts;
    await collect();
    counts = counted();
    if (round < LEAST_COLLECTIONS) continue;
    if (isDeepStrictEqual(counts, expected ?? before)) break;
  }
  return counts;
}

// V8 keeps pages of its heap for later, at times some megabytes of them. What it uses of them is
// judged apart.
const nativeKilobytes = () =>
  privateKilobytes() - getHeapStatistics().total_physical_size / BYTES_PER_KILOBYTE;

function memory(kilobytesOfProcess) {
  const heap = process.memoryUsage().heapUsed / BYTES_PER_KILOBYTE;
  return { process: Math.round(kilobytesOfProcess()), heap: Math.round(heap) };
}

const leastOf = (moments, kind) => Math.min(...moments.map((moment) => moment[kind]));

// Does `work` in so many equal parts, and fails when this process holds more behind one of the
// later parts than behind the first quarter of them, which warms up. Counts are to be the same. Of
// the memory the least in the last quarter is compared with the least in the second: what is held
// for a moment is let go of in another part, but what leaks is in all of them. Answers with what is
// held and with how much the memory has grown. What the process has is its private memory but for V8's
// heap, unless it is measured in another way.
export async function withoutGrowth(
  work,
  { parts = 4, kilobytesOfProcess = nativeKilobytes } = {},
) {
  const quarter = parts / 4;
  const moments = [];
  let counts;
  for (let part = 0; part < parts; ++part) {
    await work(part);
    const isWarm = part >= quarter;
    const held = await settledCounts(isWarm ? counts : undefined);
    if (isWarm) assert.deepEqual(held, counts);
    counts = held;
    moments.push(memory(kilobytesOfProcess));
  }
  const figures = {};
  const [warm, last] = [moments.slice(quarter - 1, 2 * quarter - 1), moments.slice(-quarter)];
  for (const [kind, allowed] of Object.entries(ALLOWED_GROWTH_KB)) {
    const growth = leastOf(last, kind) - leastOf(warm, kind);
    const all = moments.map((moment) => moment[kind]).join(', ');
    if (!isSanitized) assert.ok(growth <= allowed, `memory of the ${kind} grows: ${all} kB`);
    figures[`growth of the ${kind}, kB`] = growth;
  }
  return { ...figures, ...counts };
}
