import assert from 'node:assert';
import { spawnSync } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const SEEDED_BUG = fileURLToPath(new URL('seeded_bug.mjs', import.meta.url));

// Commits a bug in a process of its own, with the options that the run's other processes have but
// for `log_path`: the report is wanted here, and is no failure of the run.
export function expectReport(bug, text) {
  const environment = { ...process.env };
  for (const name of ['ASAN_OPTIONS', 'UBSAN_OPTIONS', 'TSAN_OPTIONS']) {
    environment[name] += ':log_path=stderr';
  }
  environment.ASAN_OPTIONS += ':detect_leaks=1';
  const { status, stderr } = spawnSync(process.execPath, [SEEDED_BUG, bug], {
    env: environment,
    encoding: 'utf8',
  });
  assert.match(stderr, text);
  assert.match(stderr, /canary\.cc:\d+/);
  assert.strictEqual(status, 66);
}
