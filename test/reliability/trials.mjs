// The list of the trials, and the function that runs one.
//
// Each is a module of its own in trials/, run in a process of its own. The module exports
//   run(count, { random, after, judgesTimes })
// which runs the trial `count` times, throws when it fails, and returns the measured figures by
// their names. `random` is seeded; `after` registers a function for the end of the trial; durations
// are checked only if `judgesTimes` says that the machine is otherwise idle.

import { spawn } from 'node:child_process';
import { randomInt } from 'node:crypto';
import { once } from 'node:events';
import { text } from 'node:stream/consumers';
import { fileURLToPath } from 'node:url';

const SECONDS_OF_4_HOURS = 4 * 3600;

// `short` is the count in `npm test`, `long` that in `npm run torture`. A trial without `short` is
// a separate test of the release build.
export const trials = [
  {
    name: 'random-arguments',
    tried: 'random arguments to every method and constructor of both classes',
    unit: 'calls of each',
    short: 1000,
    long: 100_000,
  },
  {
    name: 'events',
    tried: 'events from 8 threads, all 14 notifications',
    unit: 'events',
    short: 200_000,
    long: 10_000_000,
  },
  {
    name: 'throwing-listeners',
    tried: 'listeners that throw, one call in a hundred',
    unit: 'events',
    short: 1000,
    long: 100_000,
  },
  {
    name: 'collected-emitter',
    tried: 'emitter collected while events flow',
    unit: 'emitters',
    short: 20,
    long: 1000,
  },
  {
    name: 'create-and-destroy',
    tried: 'create, use, destroy, collect',
    unit: 'wrappers',
    short: 200,
    long: 10_000,
  },
  {
    name: 'ends',
    tried: 'seven ways to end under load',
    unit: 'processes for each way',
    short: 5,
    long: 200,
  },
  {
    name: 'stale-frames',
    tried: 'arrays kept past their time and read',
    unit: 'frames',
    short: 10_000,
    long: 1_000_000,
  },
  {
    name: 'widget-frames',
    tried: 'frames of 1280x720 from main process to widget',
    unit: 'frames',
    short: 5000,
    long: 1_000_000,
  },
  {
    name: 'killed-widget',
    tried: 'widget killed at a random moment, and while it holds the lock',
    unit: 'widgets',
    short: 40,
    long: 1000,
  },
  {
    name: 'killed-main',
    tried: 'main process killed',
    unit: 'main processes',
    short: 8,
    long: 200,
  },
  {
    name: 'output',
    tried: 'standard output closed, full, or a slow pipe',
    unit: 'processes',
    short: 20,
    long: 1000,
  },
  {
    name: 'misbehaving-engine',
    tried: 'engine misbehaving in every operation',
    unit: 'rounds through all of them',
    short: 1,
    long: 100,
  },
  {
    name: 'failing-calls',
    tried: 'each system call that the shared memory needs made to fail in turn',
    unit: 'rounds through every call site',
    short: 1,
    long: 100,
  },
  {
    name: 'fuzzers',
    tried: 'hostile segment contents',
    unit: 'seconds for each fuzzer',
    long: 600,
  },
  {
    name: 'soak',
    tried: 'soak: main process and widget, 4 streams at 30 fps, 100 events a second',
    unit: 'seconds',
    short: 60,
    long: SECONDS_OF_4_HOURS,
  },
];

const moduleOf = (name) => new URL(`trials/${name.replaceAll('-', '_')}.mjs`, import.meta.url);

// Memory that is freed goes back at once, and young objects get no more room than at the start, so
// that what a process has is what it uses.
const FRUGAL = {
  MALLOC_ARENA_MAX: '1',
  MALLOC_TRIM_THRESHOLD_: '65536',
  NODE_OPTIONS: `${process.env.NODE_OPTIONS ?? ''} --max-semi-space-size=1`,
};

// A trial ends by itself, so that the leak check at its end is reliable.
const LEAK_CHECK = process.env.ASAN_OPTIONS && {
  ASAN_OPTIONS: `${process.env.ASAN_OPTIONS}:detect_leaks=1`,
};

// Far longer than a trial takes, even under a sanitizer or on a busy machine: they end a process
// that hangs.
const LEAST_LIMIT_SECONDS = 300;
const SECONDS_FOR_EACH_SHORT_FORM = 120;

const limitOf = ({ short = 1 }, count) =>
  Math.max(LEAST_LIMIT_SECONDS, Math.ceil((count / short) * SECONDS_FOR_EACH_SHORT_FORM));

// Ends the trial and all processes of its process group.
function endGroup(leader) {
  try {
    process.kill(-leader, 'SIGKILL');
  } catch (error) {
    if (error.code !== 'ESRCH') throw error;
  }
}

// Runs a trial in a process of its own: { figures, error, seconds, seed }, one of the first two.
// The error has the seed that repeats the run. When the trial has not ended within the limit, it is
// ended with all the processes that it has started.
export async function runTrial(
  trial,
  { count, seed = randomInt(2 ** 32), judgesTimes = false, limitSeconds = limitOf(trial, count) },
) {
  const start = performance.now();
  const program = fileURLToPath(new URL('trial_process.mjs', import.meta.url));
  const child = spawn(
    process.execPath,
    [program, moduleOf(trial.name).href, JSON.stringify({ count, seed: `${seed}`, judgesTimes })],
    {
      stdio: ['ignore', 'ignore', 'pipe', 'pipe'],
      env: { ...process.env, ...FRUGAL, ...LEAK_CHECK },
      detached: true,
    },
  );
  const end = () => endGroup(child.pid);
  process.once('exit', end);
  let isLate = false;
  const limit = setTimeout(() => {
    isLate = true;
    end();
  }, limitSeconds * 1000);
  const written = Promise.all([text(child.stderr), text(child.stdio[3])]);
  const [code, signal] = await once(child, 'exit');
  clearTimeout(limit);
  end();
  process.off('exit', end);
  const [stderr, answer] = await written;
  const seconds = (performance.now() - start) / 1000;
  const held = code === 0 && stderr === '' && answer !== '';
  if (held) return { figures: JSON.parse(answer), seconds, seed };
  const how = signal ? `was ended by ${signal}` : `ended with exit code ${code}`;
  const why = isLate ? `, after its limit of ${limitSeconds} s` : '';
  return { error: `${trial.name} with --seed ${seed} ${how}${why}\n${stderr}`, seconds, seed };
}
