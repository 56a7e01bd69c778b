// Each system call that the shared memory needs fails once, again and again: a native test. What it
// expects is told in test/native/sharedmem/each_failing_system_call_test.cc.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { build } from '../../support/build.mjs';

export function run(count, { after }) {
  const folder = mkdtempSync(path.join(tmpdir(), 'tessel_calls_'));
  after(() => rmSync(folder, { recursive: true }));
  const results = path.join(folder, 'results.json');
  const { status, signal, stdout } = spawnSync(
    path.join(build, 'test/native/sharedmem/sharedmem_failures_test'),
    [
      ...['--gtest_filter=EachFailing*', '--gtest_brief=1'],
      ...[`--gtest_repeat=${count}`, `--gtest_output=json:${results}`],
    ],
    { encoding: 'utf8', maxBuffer: Infinity },
  );
  assert.deepEqual({ status, signal }, { status: 0, signal: null }, stdout);
  const calls = JSON.parse(readFileSync(results, 'utf8'))
    .testsuites.flatMap(({ testsuite }) => testsuite)
    .reduce((sum, { failed_calls: failed = 0 }) => sum + Number(failed), 0);
  return { 'calls of each round': calls };
}
