// node test/reliability/run.mjs [NAME...] [--count N] [--minutes N] [--seed N] [--short]
//
// Runs trials in their long form, or only those named, one after the other, and prints a table in
// Markdown. docs/reliability.md describes the guarantees that the trials check.

import { spawnSync } from 'node:child_process';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { runTrial, trials } from './trials.mjs';

const NAMES = trials.map(({ name, tried }) => `  ${name.padEnd(22)} ${tried}`);

const HELP = `npm run torture -- [NAME...] [OPTION...]

Runs the trials in their long form, or only those named: all but the soak.

  --count N    how often the thing is tried instead
  --minutes N  how long, for the soak
  --seed N     repeats a run
  --short      runs the short forms, as npm test does
  --help       prints this

${NAMES.join('\n')}`;

const REPOSITORY = fileURLToPath(new URL('../..', import.meta.url));
const SECONDS_PER_MINUTE = 60;

function refuse(...lines) {
  for (const line of lines) console.error(line);
  process.exit(2);
}

function readArguments() {
  try {
    return parseArgs({
      allowPositionals: true,
      options: {
        count: { type: 'string' },
        minutes: { type: 'string' },
        seed: { type: 'string' },
        short: { type: 'boolean', default: false },
        help: { type: 'boolean', short: 'h', default: false },
      },
    });
  } catch ({ message }) {
    const [reason] = message.split(/\.?\n|\. /); // the rest is advice
    return refuse(`${reason}; --help lists the options`);
  }
}

const { values, positionals: named } = readArguments();
if (values.help) {
  console.log(HELP);
  process.exit();
}

// The soak takes hours: it runs only when it is named.
const chosen = trials.filter(({ name, short }) => {
  if (values.short && short === undefined) return false;
  return named.length > 0 ? named.includes(name) : name !== 'soak';
});
const unknown = named.filter((name) => !trials.some((trial) => trial.name === name));
if (unknown.length > 0) {
  refuse(`unknown: ${unknown.join(', ')}; there are`, ...NAMES);
}
for (const option of ['count', 'minutes', 'seed']) {
  const given = values[option];
  if (given === undefined) continue;
  const isGood = /^\d{1,15}$/.test(given) && (option === 'seed' || Number(given) > 0);
  if (!isGood)
    refuse(`--${option} is no whole number${option === 'seed' ? '' : ' above 0'}: ${given}`);
}
if (values.minutes !== undefined && chosen.some(({ name }) => name !== 'soak')) {
  refuse('--minutes is for the soak alone');
}
if (values.minutes !== undefined && values.count !== undefined) {
  refuse('--count and --minutes say the same');
}
// The trials' processes are no part of the terminal's group, which its Ctrl-C ends.
for (const signal of ['SIGINT', 'SIGTERM']) process.once(signal, () => process.exit(1));

// The fuzzers' compiler and their build take minutes, which other trials need not wait for.
function setUpFuzzers() {
  const { status } = spawnSync('scripts/setup.sh', ['fuzz', '--for', 'fuzz'], {
    cwd: REPOSITORY,
    stdio: 'inherit',
  });
  if (status !== 0) process.exit(1);
}

function countOf(trial) {
  if (values.count !== undefined) return Number(values.count);
  if (values.minutes !== undefined) return Number(values.minutes) * SECONDS_PER_MINUTE;
  return values.short ? trial.short : trial.long;
}

const written = (value) => (typeof value === 'number' ? value.toLocaleString('en-US') : value);

if (chosen.some(({ name }) => name === 'fuzzers')) setUpFuzzers();

console.log('| what was tried | how often | outcome | measured | seconds | seed |');
console.log('| --- | --- | --- | --- | --- | --- |');
for (const trial of chosen) {
  const count = countOf(trial);
  const { figures, error, seconds, seed } = await runTrial(trial, {
    count,
    seed: values.seed,
    judgesTimes: true,
  });
  const measured = Object.entries(figures ?? {}).map(
    ([what, value]) => `${what} ${written(value)}`,
  );
  console.log(
    `| ${trial.tried} | ${written(count)} ${trial.unit} | ${error ? 'FAILED' : 'held'} | ${measured.join(', ')} | ${Math.round(seconds)} | ${seed} |`,
  );
  if (!error) continue;
  console.error(error);
  process.exitCode = 1;
}
