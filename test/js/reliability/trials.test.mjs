// The short forms of the trials in docs/reliability.md; `npm run torture` and `npm run soak` run
// the long ones. The soak, which mostly waits, has its own file.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { runTrial, trials } from '../../reliability/trials.mjs';
import { testShortForm } from '../../support/reliability/short_form.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';

describe('reliability', { concurrency: 2 }, () => {
  const shorts = trials.filter(({ name, short }) => name !== 'soak' && short !== undefined);
  for (const trial of shorts) testShortForm(trial);
});

// It returns when no process holds the trial's standard error any more.
test('a hanging trial is ended with its child processes, and reported with its seed', async () => {
  const trial = { name: '../../support/processes/hanging-trial', short: 1 };
  const { error, figures } = await runTrial(trial, { count: 1, seed: 7, limitSeconds: 2 });
  assert.equal(figures, undefined);
  assert.equal(
    error,
    '../../support/processes/hanging-trial with --seed 7 was ended by SIGKILL, after its limit of 2 s\n',
  );
});

test('events beyond the expected number are reported', async () => {
  const { figures, error } = await runTrial(
    trials.find(({ name }) => name === 'events'),
    { count: 2000 },
  );
  assert.equal(error, undefined, error);
  const { arrived, 'beyond what was asked (each part is of whole rounds)': added } = figures;
  assert.deepEqual([arrived, added], [11_200, 9_200]);
});

const program = fileURLToPath(new URL('../../reliability/run.mjs', import.meta.url));

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
  'events --bogus': "Unknown option '--bogus'; --help lists the options",
  'events --count': "Option '--count <value>' argument missing; --help lists the options",
})) {
  test(`${words} is refused`, () => {
    const { status, stdout, stderr } = spawnSync(process.execPath, [program, ...words.split(' ')], {
      encoding: 'utf8',
    });
    assert.deepEqual({ status, stdout, stderr }, { status: 2, stdout: '', stderr: `${line}\n` });
  });
}

for (const word of ['--help', '-h']) {
  test(`${word} lists the trials and the options, and runs none`, () => {
    const { status, stdout, stderr } = spawnSync(process.execPath, [program, word], {
      encoding: 'utf8',
    });
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    for (const option of ['count', 'minutes', 'seed', 'short', 'help']) {
      assert.match(stdout, new RegExp(`^  --${option} `, 'm'));
    }
    for (const { name, tried } of trials)
      assert.match(stdout, new RegExp(`^  ${name} .*${tried}`, 'm'));
    assert.doesNotMatch(stdout, /held|FAILED/);
  });
}

// Replaces the shell that runs scripts/setup.sh: records the set-ups, and ends with the code 1 for
// the fuzzers, so that they never run here.
function shellThatTakesDown(t) {
  const directory = temporaryDirectory(t);
  const taken = path.join(directory, 'taken');
  writeFileSync(taken, '');
  const lines = ['#!/bin/sh', 'shift', `echo "$*" >>'${taken}'`, '[ "$1" != fuzz ]', ''];
  writeFileSync(path.join(directory, 'bash'), lines.join('\n'), { mode: 0o755 });
  return {
    // A shell crashes under a sanitizer's runtime.
    env: { ...process.env, PATH: `${directory}:${process.env.PATH}`, LD_PRELOAD: '' },
    setUps: () => readFileSync(taken, 'utf8').split('\n').slice(0, -1),
  };
}

test('npm run torture does not build the fuzzers', (t) => {
  const { env, setUps } = shellThatTakesDown(t);
  const { status, stderr } = spawnSync('npm', ['run', 'torture', '--', '--help'], {
    cwd: path.resolve(path.dirname(program), '../..'),
    env,
    encoding: 'utf8',
  });
  assert.deepEqual({ status, setUps: setUps() }, { status: 0, setUps: ['release'] }, stderr);
});

for (const names of [['fuzzers'], ['events', 'fuzzers'], []]) {
  test(`when building the fuzzers fails, no trial runs for ${names.join(' and ') || 'all trials'}`, (t) => {
    const { env, setUps } = shellThatTakesDown(t);
    const { status, stdout } = spawnSync(process.execPath, [program, ...names, '--count', '1'], {
      env,
      encoding: 'utf8',
    });
    assert.deepEqual(
      { status, stdout, setUps: setUps() },
      { status: 1, stdout: '', setUps: ['fuzz --for fuzz'] },
    );
  });
}

test('the fuzzers are not built for other trials', (t) => {
  const { env, setUps } = shellThatTakesDown(t);
  const { status, stdout, stderr } = spawnSync(
    process.execPath,
    [program, 'failing-calls', '--count', '1'],
    { env: { ...env, LD_PRELOAD: process.env.LD_PRELOAD ?? '' }, encoding: 'utf8' },
  );
  assert.deepEqual({ status, setUps: setUps() }, { status: 0, setUps: [] }, stderr);
  assert.match(stdout, /\| held \|/);
});
