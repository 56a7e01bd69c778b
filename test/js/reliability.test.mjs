// What docs/reliability.md promises, each in its short form. `npm run torture` and `npm run soak` run
// the long ones.

import assert from 'node:assert/strict';
import { describe, test } from 'node:test';

import { runTrial, trials } from '../reliability/trials.mjs';

// A sanitizer makes everything ten times slower.
const PART = process.env.LD_PRELOAD ? 0.1 : 1;

// The soak mostly waits: the others run beside it.
describe('reliability', { concurrency: 2 }, () => {
  for (const trial of [...trials].reverse()) {
    test(`${trial.tried} (${trial.name})`, async (t) => {
      const count = Math.ceil(trial.short * PART);
      const { figures, error } = await runTrial(trial, { count });
      assert.equal(error, undefined, error);
      t.diagnostic(`${count} ${trial.unit}: ${JSON.stringify(figures)}`);
    });
  }
});
