import assert from 'node:assert';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const SEEDED_BUG = fileURLToPath(new URL('./processes/seeded_bug.mjs', import.meta.url));

// Runs a bug of the addon in a separate process, with the options of every process of the run, except
// that the report is written to another place, where it does not fail the run.
export function expectReport(bug, text, { addon = 'canary' } = {}) {
  const reports = mkdtempSync(path.join(tmpdir(), 'tessel_canary_'));
  try {
    const environment = { ...process.env };
    for (const name of ['ASAN_OPTIONS', 'UBSAN_OPTIONS', 'TSAN_OPTIONS']) {
      environment[name] += `:log_path="${reports}/report"`;
    }
    environment.ASAN_OPTIONS += ':detect_leaks=1';
    const { status } = spawnSync(process.execPath, [SEEDED_BUG, addon, bug], { env: environment });

    const files = readdirSync(reports);
    assert.strictEqual(files.length, 1);
    const report = readFileSync(path.join(reports, files[0]), 'utf8');
    assert.match(report, text);
    assert.ok(new RegExp(`/${addon}\\.cc:\\d+`).test(report), report);
    assert.strictEqual(status, 66);
  } finally {
    rmSync(reports, { recursive: true });
  }
}
