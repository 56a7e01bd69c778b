// What this process holds, for trials that compare two moments.

import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';

import { collect } from './collect.mjs';

// A sanitizer keeps memory that was freed, and has threads of its own.
const isSanitized = Boolean(process.env.LD_PRELOAD);

// Memory that no other process shares.
export function privateKilobytes(pid = 'self') {
  const rollup = readFileSync(`/proc/${pid}/smaps_rollup`, 'latin1');
  const lines = [...rollup.matchAll(/^Private_(?:Clean|Dirty):\s+(\d+) kB$/gm)];
  return lines.reduce((sum, [, kilobytes]) => sum + Number(kilobytes), 0);
}

// What is to be exactly as many before and after.
export function counted() {
  const { libuv } = process.report.getReport();
  return {
    descriptors: readdirSync('/proc/self/fd').length,
    threads: readdirSync('/proc/self/task').length,
    handles: libuv.filter(({ type }) => type !== 'loop').length,
    segments: readFileSync('/proc/self/maps', 'latin1').match(/\/dev\/shm\/\S+/g)?.length ?? 0,
  };
}

// Both, once nothing is left to collect.
async function settled() {
  // What a finalizer lets go of may be collected in its turn.
  for (let round = 0; round < 3; ++round) await collect();
  return { kilobytes: privateKilobytes(), ...counted() };
}

const PARTS = 4;
const STANDS_STILL_KB = 256;

// Does `work` in four parts, and fails when this process holds more behind a later part than behind
// the first. Memory may rise in steps, as heaps do that make room: but what leaks makes it rise in
// every part. Answers with what is held, and with how much the memory has grown in the last three.
export async function withoutGrowth(work) {
  const moments = [];
  for (let part = 0; part < PARTS; ++part) {
    await work(part);
    moments.push(await settled());
  }
  const [{ kilobytes: first, ...counts }, ...later] = moments;
  for (const { kilobytes: _, ...laterCounts } of later) assert.deepEqual(laterCounts, counts);
  const rises = later.map(({ kilobytes }, i) => kilobytes - moments[i].kilobytes);
  if (!isSanitized) {
    assert.ok(Math.min(...rises) < STANDS_STILL_KB, `private memory rises by ${rises} kB`);
  }
  return { counts, growth: later.at(-1).kilobytes - first };
}
