// The short form of a reliability trial as a test.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { runTrial } from '../../reliability/trials.mjs';

// A sanitizer makes everything ten times slower.
const PART = process.env.LD_PRELOAD ? 0.1 : 1;

export function testShortForm(trial) {
  test(`${trial.tried} (${trial.name})`, async (t) => {
    const count = Math.ceil(trial.short * PART);
    const { figures, error, seed } = await runTrial(trial, { count });
    assert.equal(error, undefined, error);
    t.diagnostic(`${count} ${trial.unit}, seed ${seed}: ${JSON.stringify(figures)}`);
  });
}
