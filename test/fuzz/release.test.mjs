// What a process reads from segments that another one wrote, tried with very many inputs. Only
// where clang's fuzzers are built: beside the release build.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { test } from 'node:test';

const RUNS = 100_000;

const FUZZERS = [
  ['frame_segment_fuzzer', 'no header of a frame segment leads a reader beyond the segment'],
  ['stream_table_fuzzer', 'no table of the main segment harms the widget that reads it'],
];

for (const [fuzzer, statement] of FUZZERS) {
  test(`${statement} (${RUNS} inputs)`, () => {
    const artifacts = mkdtempSync(path.join(tmpdir(), 'tessel_fuzz_'));
    try {
      const { status, signal, stderr } = spawnSync(
        path.resolve('build/fuzz/test/fuzz', fuzzer),
        // The lines that the code under test prints on standard output are left out.
        [`-runs=${RUNS}`, '-close_fd_mask=1', `-artifact_prefix=${artifacts}/`],
        { encoding: 'utf8' },
      );
      assert.deepEqual({ status, signal }, { status: 0, signal: null }, stderr);
      assert.match(stderr, new RegExp(`Done ${RUNS} runs`));
    } finally {
      rmSync(artifacts, { recursive: true });
    }
  });
}
