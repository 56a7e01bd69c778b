// Garbage collection on request of a test.

import { setFlagsFromString } from 'node:v8';
import { runInNewContext } from 'node:vm';

import { nextTurn } from './next_turn.mjs';

setFlagsFromString('--expose-gc');
export const collectGarbage = runInNewContext('gc');

const MOST_ROUNDS = 100;

// Resolves when all that was unreachable at the call has been collected and finalized. What the
// caller took from a WeakRef stays alive until its turn ends.
export async function collect() {
  await nextTurn();
  collectGarbage();
  await nextTurn();
}

// Collects until `isDone()`, which finalizers cause in later turns of the event loop. Throws when
// it does not become true.
export async function collectUntil(isDone) {
  for (let round = 0; round < MOST_ROUNDS; ++round) {
    if (isDone()) return;
    await collect();
  }
  throw new Error('what was to be collected is still there');
}
