// node event_rate.mjs WAY THREADS: threads post notifications as fast as they can, a listener on an
// emitter counts them. Prints {"eventsPerSecond"} of a warm process.
//
// node event_rate.mjs WAY THREADS QUEUED: the same, but nothing is delivered before QUEUED events
// are queued. Prints {"nanoseconds"} for the delivery of one event.

import { EventEmitter } from 'node:events';
import { loadAddon } from './addon.mjs';
import { median } from './statistics.mjs';

const EVENTS = 1_000_000;
const BATCHES = 3;

const bench = loadAddon('event_bench');
const [way, threads, queued] = [process.argv[2], ...process.argv.slice(3).map(Number)];

const emitter = new EventEmitter();
const ways = {
  tessel: () => bench.useTessel(emitter),
  threadSafeFunction: () => bench.useThreadSafeFunction(emitter),
  threadSafeFunctionWithCallback: () =>
    bench.useThreadSafeFunction(emitter, (type, streamIndex, csrc) => {
      emitter.emit('streamAdded', { type, streamIndex, csrc });
    }),
};
ways[way]();

let left = 0;
let firstArrived = 0;
let lastArrived;
emitter.on('streamAdded', ({ type, streamIndex, csrc }) => {
  if (type !== 'remote' || streamIndex !== 3 || csrc !== 7) throw new Error('a wrong event');
  if (firstArrived === 0) firstArrived = performance.now();
  left -= 1;
  if (left === 0) lastArrived();
});

// Posts `count` events and resolves with their duration in milliseconds: from the first post,
// or, when all of them are queued first, from the first delivery.
async function deliver(count, { queueFirst }) {
  left = count;
  firstArrived = 0;
  const arrived = new Promise((resolve) => {
    lastArrived = () => resolve(performance.now());
  });
  const started = performance.now();
  bench.startPosting(threads, count / threads);
  if (queueFirst) bench.join();
  const ended = await arrived;
  bench.join();
  return ended - (queueFirst ? firstArrived : started);
}

async function eventsPerSecond() {
  const rates = [];
  for (let batch = 0; batch < BATCHES; ++batch) {
    const milliseconds = await deliver(EVENTS, { queueFirst: false });
    rates.push((EVENTS / milliseconds) * 1000);
  }
  return { eventsPerSecond: median(rates) };
}

async function nanosecondsOfDelivery() {
  const times = [];
  for (let batch = 0; batch < BATCHES; ++batch) {
    let milliseconds = 0;
    for (let delivered = 0; delivered < EVENTS; delivered += queued) {
      milliseconds += await deliver(queued, { queueFirst: true });
    }
    times.push((milliseconds / EVENTS) * 1e6);
  }
  return { nanoseconds: median(times) };
}

// The same for every measurement, so that all find the same optimised code and heap.
for (let delivered = 0; delivered < EVENTS; delivered += 10_000) {
  await deliver(10_000, { queueFirst: true });
}
console.log(JSON.stringify(await (queued ? nanosecondsOfDelivery() : eventsPerSecond())));
process.exit();
