// Garbage collection at a test's will.

import { setImmediate } from 'node:timers/promises';
import v8 from 'node:v8';
import vm from 'node:vm';

v8.setFlagsFromString('--expose-gc');
const collect = vm.runInNewContext('gc');

const MOST_ROUNDS = 100;

// Collects until `isDone()`, which finalizers bring about in later turns of the event loop. Throws
// when it does not come.
export async function collectUntil(isDone) {
  for (let round = 0; round < MOST_ROUNDS; ++round) {
    if (isDone()) return;
    // What isDone() took from a WeakRef stays alive until the turn ends.
    await setImmediate();
    collect();
    await setImmediate();
  }
  throw new Error('what was to be collected is still there');
}
