// node wake_up.mjs WAY: a thread wakes the idle event loop with one event at a time. Prints {"p50",
// "p99"} of the microseconds from the post to the listener, or with the bare handle to its native
// callback.

import { EventEmitter } from 'node:events';
import { loadAddon } from './addon.mjs';
import { quantile } from './statistics.mjs';

const WARM_UP = 500;
const WAKE_UPS = 2000;

const bench = loadAddon('event_bench');
const emitter = new EventEmitter();
const ways = {
  tessel() {
    emitter.on('streamAdded', () => bench.arrived());
    bench.useTessel(emitter);
  },
  bareHandle: () => bench.useBareHandle(),
};
ways[process.argv[2]]();

bench.startWaking(WARM_UP + WAKE_UPS);
// Checks rarely, so that the loop is idle.
const look = setInterval(() => {
  const times = bench.wakeUpTimes();
  if (times.length < WARM_UP + WAKE_UPS) return;
  clearInterval(look);
  bench.join();
  const measured = times.slice(WARM_UP);
  console.log(JSON.stringify({ p50: quantile(measured, 0.5), p99: quantile(measured, 0.99) }));
  process.exit();
}, 500);
