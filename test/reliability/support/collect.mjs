// Garbage collection, also beside the embedded engine.

import { setFlagsFromString } from 'node:v8';
import { runInNewContext } from 'node:vm';

import { nextTurn } from '../../js/fixtures/next_turn.mjs';

setFlagsFromString('--expose-gc');
export const collectGarbage = runInNewContext('gc');

// Resolves when all that was unreachable at the call has been collected and finalized.
export async function collect() {
  await nextTurn();
  collectGarbage();
  await nextTurn();
}
