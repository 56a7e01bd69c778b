// The process of one trial: node trial_process.mjs MODULE {count, seed, judgesTimes}. The figures go
// to descriptor 3; who did not keep the promise, to the standard error.

import { writeSync } from 'node:fs';

import { Random } from './support/random.mjs';

const [module, settings] = process.argv.slice(2);
const { count, seed, judgesTimes } = JSON.parse(settings);
const { run } = await import(module);

const steps = [];
const after = (step) => steps.unshift(step);
let figures;
try {
  figures = await run(count, { random: new Random(seed), after, judgesTimes });
} finally {
  for (const step of steps) await step();
}
// Whoever keeps the loop alive from here on, or ends the process with an error, has failed.
writeSync(3, JSON.stringify(figures));
