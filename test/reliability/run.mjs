// node test/reliability/run.mjs [NAME...] [--count N] [--minutes N] [--seed N] [--short]
//
// Runs trials in their long form, or only those named, one after the other, and prints a table in
// Markdown. --count is how often the thing is tried instead; --minutes, for the soak, how long.
// What the trials promise is told in docs/reliability.md.

import { parseArgs } from 'node:util';

import { runTrial, trials } from './trials.mjs';

const { values, positionals: named } = parseArgs({
  allowPositionals: true,
  options: {
    count: { type: 'string' },
    minutes: { type: 'string' },
    seed: { type: 'string' },
    short: { type: 'boolean', default: false },
  },
});

const SECONDS_PER_MINUTE = 60;

function refuse(...lines) {
  for (const line of lines) console.error(line);
  process.exit(2);
}

// The soak takes hours: it runs only when it is named.
const chosen = trials.filter(({ name, short }) => {
  if (values.short && short === undefined) return false;
  return named.length > 0 ? named.includes(name) : name !== 'soak';
});
const unknown = named.filter((name) => !trials.some((trial) => trial.name === name));
if (unknown.length > 0) {
  refuse(
    `unknown: ${unknown.join(', ')}; there are`,
    ...trials.map(({ name, tried }) => `  ${name.padEnd(22)} ${tried}`),
  );
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

function countOf(trial) {
  if (values.count !== undefined) return Number(values.count);
  if (values.minutes !== undefined) return Number(values.minutes) * SECONDS_PER_MINUTE;
  return values.short ? trial.short : trial.long;
}

const written = (value) => (typeof value === 'number' ? value.toLocaleString('en-US') : value);

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
