// Short runs of the fuzzers: data that a process reads from segments of another one, and
// configurations and what an SFU says. Only with the release build, beside which clang builds them.

import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { test } from 'node:test';

import { FUZZERS, fuzz } from '../support/fuzz.mjs';

const RUNS = 100_000;

for (const [fuzzer, statement] of FUZZERS) {
  test(`${statement} (${RUNS} inputs)`, () => {
    const { status, signal, stderr } = fuzz(fuzzer, { runs: RUNS });
    assert.deepEqual({ status, signal }, { status: 0, signal: null }, stderr);
    assert.match(stderr, new RegExp(`Done ${RUNS} runs`));
  });
}

const BUGS = [
  ['a', 'a read beyond the end', /AddressSanitizer: heap-buffer-overflow/],
  ['u', 'an integer that overflows', /runtime error: signed integer overflow/],
  ['r', 'a requirement that does not hold', /libFuzzer: deadly signal/],
];

for (const [letter, bug, report] of BUGS) {
  test(`the fuzzers report ${bug}`, () => {
    const folder = mkdtempSync(path.join(tmpdir(), 'tessel_canary_'));
    try {
      const input = path.join(folder, 'input');
      writeFileSync(input, `bug${letter}`);
      const { status, stderr } = fuzz('canary_fuzzer', { files: [input] });
      assert.match(stderr, report);
      assert.match(stderr, /canary_fuzzer\.cc:\d+/);
      assert.notEqual(status, 0);
    } finally {
      rmSync(folder, { recursive: true });
    }
  });
}

test('coverage leads the fuzzers to an input that chance alone would hardly reach', () => {
  // Chance alone finds it about once in a billion inputs.
  const { status, stderr } = fuzz('canary_fuzzer', { runs: 10_000_000, seed: 1 });
  assert.match(stderr, /Test unit written to/);
  assert.notEqual(status, 0);
});
