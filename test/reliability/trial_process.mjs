// The process of one trial: node trial_process.mjs MODULE {count, seed, judgesTimes}. The figures
// go to descriptor 3; the reason of a failure, to the standard error.

// Looks for leaks in this process, and not in those that it starts.
import '../../scripts/child_environment.mjs';

import { writeSync } from 'node:fs';

import { Random } from '../support/reliability/random.mjs';

const [module, settings] = process.argv.slice(2);
const { count, seed, judgesTimes } = JSON.parse(settings);
const { run } = await import(module);

const steps = [];
const after = (step) => steps.unshift(step);
try {
  const figures = await run(count, { random: new Random(seed), after, judgesTimes });
  for (const step of steps) await step();
  // From here on, a handle that keeps the loop alive, or an error at the end, is a failure.
  writeSync(3, JSON.stringify(figures));
} catch (error) {
  // A trial may have taken to itself what is uncaught, and have left a wrapper that is alive.
  writeSync(2, `${error.stack}\n`);
  for (const step of steps) await step();
  process.exit(1);
}
