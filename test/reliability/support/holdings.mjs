// What this process holds, for trials that compare two moments.

import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';

import { collect } from '../../js/support/collector.mjs';

// A sanitizer keeps memory that was freed, and has threads of its own.
const isSanitized = Boolean(process.env.LD_PRELOAD);

const BYTES_PER_KILOBYTE = 1024;
const PARTS = 4;
// A part in which the memory rises by less.
const STANDS_STILL_KB = { process: 1024, heap: 256 };

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

// Both, once nothing is left to collect, and the size of what JavaScript holds.
async function settled() {
  // What a finalizer lets go of may be collected in its turn.
  for (let round = 0; round < 3; ++round) await collect();
  const { heapUsed } = process.memoryUsage();
  return {
    memory: { process: privateKilobytes(), heap: Math.round(heapUsed / BYTES_PER_KILOBYTE) },
    counts: counted(),
  };
}

// Does `work` in four parts, and fails when this process holds more behind a later part than behind
// the first. Memory may rise in steps, as heaps do that make room and functions that are compiled:
// but what leaks makes it rise in every part. Answers with what is held, and with how much the
// memory has grown in the last three.
export async function withoutGrowth(work) {
  const moments = [];
  for (let part = 0; part < PARTS; ++part) {
    await work(part);
    moments.push(await settled());
  }
  const [first, ...later] = moments;
  for (const { counts } of later) assert.deepEqual(counts, first.counts);
  for (const [kind, limit] of Object.entries(isSanitized ? {} : STANDS_STILL_KB)) {
    const rises = later.map(({ memory }, i) => memory[kind] - moments[i].memory[kind]);
    assert.ok(Math.min(...rises) < limit, `memory of the ${kind} rises by ${rises} kB`);
  }
  return {
    'growth after the first quarter, kB': later.at(-1).memory.process - first.memory.process,
    ...first.counts,
  };
}
