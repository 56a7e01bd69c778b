// What docs/reliability.md promises, each in its short form; `npm run torture` and `npm run soak` run
// the long ones. The soak, which mostly waits, has a file of its own.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { runTrial, trials } from '../reliability/trials.mjs';
import { testShortForm } from './support/short_form.mjs';

describe('reliability', { concurrency: 2 }, () => {
  const shorts = trials.filter(({ name, short }) => name !== 'soak' && short !== undefined);
  for (const trial of shorts) testShortForm(trial);
});

// Its answer comes when nobody holds the trial's standard error any more.
test('a trial that hangs is ended with what it started, and told with its seed', async () => {
  const trial = { name: '../fixtures/hanging-trial', short: 1 };
  const { error, figures } = await runTrial(trial, { count: 1, seed: 7, limitSeconds: 2 });
  assert.equal(figures, undefined);
  assert.equal(
    error,
    '../fixtures/hanging-trial with --seed 7 was ended by SIGKILL, after its limit of 2 s\n',
  );
});

const program = fileURLToPath(new URL('../reliability/run.mjs', import.meta.url));

for (const [words, line] of Object.entries({
  'events --count x': '--count is no whole number above 0: x',
  'events --count 0': '--count is no whole number above 0: 0',
  'events --count=-3': '--count is no whole number above 0: -3',
  'events --count 1.5': '--count is no whole number above 0: 1.5',
  'soak --minutes 0': '--minutes is no whole number above 0: 0',
  'soak events --minutes 2': '--minutes is for the soak alone',
  '--minutes 2': '--minutes is for the soak alone',
  'soak --minutes 1 --count 2': '--count and --minutes say the same',
  'events --seed x': '--seed is no whole number: x',
})) {
  test(`${words} is refused`, () => {
    const { status, stdout, stderr } = spawnSync(process.execPath, [program, ...words.split(' ')], {
      encoding: 'utf8',
    });
    assert.deepEqual({ status, stdout, stderr }, { status: 2, stdout: '', stderr: `${line}\n` });
  });
}
