// Moments at which a commanded process holds a lock between processes.

import { readFileSync, readdirSync } from 'node:fs';
import { setImmediate } from 'node:timers/promises';

import { countOf } from './handmade_segments.mjs';

// What a process writes when it has waited for a lock until the limit.
export const TIMED_OUT = 'sem_timedwait timedout, error:110';

// Whether all threads of a process have been stopped by a signal.
const hasStopped = ({ pid }) =>
  readdirSync(`/proc/${pid}/task`).every((thread) =>
    / T /.test(readFileSync(`/proc/${pid}/task/${thread}/stat`, 'latin1').replace(/\(.*\)/, '')),
  );

// Stops a commanded process at a moment at which it holds this lock, which no other process takes
// meanwhile.
export async function stopHolding(commanded, semName) {
  for (;;) {
    commanded.signal('SIGSTOP');
    while (!hasStopped(commanded)) await setImmediate();
    if (countOf(semName) === 0) return;
    commanded.signal('SIGCONT');
  }
}
