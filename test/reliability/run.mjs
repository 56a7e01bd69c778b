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

// The soak takes hours: it runs only when it is named.
const chosen = trials.filter(({ name }) =>
  named.length > 0 ? named.includes(name) : name !== 'soak',
);
const unknown = named.filter((name) => !trials.some((trial) => trial.name === name));
if (unknown.length > 0) {
  console.error(`unknown: ${unknown.join(', ')}; there are`);
  for (const { name, tried } of trials) console.error(`  ${name.padEnd(22)} ${tried}`);
  process.exit(2);
}

function countOf(trial) {
  if (values.count !== undefined) return Number(values.count);
  if (values.minutes !== undefined) return Number(values.minutes) * SECONDS_PER_MINUTE;
  return values.short ? trial.short : trial.long;
}

const written = (value) => (typeof value === 'number' ? value.toLocaleString('en-US') : value);

console.log('| what was tried | how often | outcome | measured | seconds |');
console.log('| --- | --- | --- | --- | --- |');
for (const trial of chosen) {
  const count = countOf(trial);
  const { figures, error, seconds } = await runTrial(trial, {
    count,
    seed: values.seed,
    judgesTimes: true,
  });
  const measured = Object.entries(figures ?? {}).map(
    ([what, value]) => `${what} ${written(value)}`,
  );
  console.log(
    `| ${trial.tried} | ${written(count)} ${trial.unit} | ${error ? 'FAILED' : 'held'} | ${measured.join(', ')} | ${Math.round(seconds)} |`,
  );
  if (!error) continue;
  console.error(error);
  process.exitCode = 1;
}
