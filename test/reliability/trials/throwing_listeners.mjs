// Listeners that throw.

import assert from 'node:assert/strict';

import { construct, engine, nextTurn, EventEmitter } from '../../support/scripted/wrapper_kit.mjs';
import { NOTIFICATIONS } from '../../support/reliability/notifications.mjs';

const THREADS = 4;
// Not a multiple of a divisor of the number of events: it is every event's turn.
const ONE_IN = 99;
const MOST_AT_ONCE = 1000; // for each thread
// After so many it has been every event's turn, whatever the threads' order.
const MANY_THROWN = 500;

// All kinds of values that can be thrown, each a new value if possible.
const THROWN = [
  (number) => new RangeError(`event ${number}`),
  () => undefined,
  () => null,
  (number) => `event ${number}`,
  (number) => Symbol(number),
  (number) => Object.freeze({ number }),
  (number) => Object.freeze(new Error(`event ${number}`)),
  (number) => new Proxy({ number }, {}),
  (number) => number,
  (number) => BigInt(number),
  () => false,
  () => NaN,
  (number) => () => number,
];

class Listeners {
  arrived = new Map(NOTIFICATIONS.map(({ event }) => [event, 0]));
  // What was thrown, in order, and at which events.
  thrown = [];
  threwAt = new Set();
  #all = 0;
  #isThrowing = false;

  constructor(emitter) {
    for (const { event } of NOTIFICATIONS) {
      emitter.on(event, () => this.#count(event));
      emitter.on(event, () => this.#throwSometimes(event));
      // No listener is called after one that throws.
      emitter.on(event, () => assert.equal(this.#isThrowing, false));
    }
  }

  #count(event) {
    this.arrived.set(event, this.arrived.get(event) + 1);
  }

  #throwSometimes(event) {
    this.#isThrowing = ++this.#all % ONE_IN === 0;
    if (!this.#isThrowing) return;
    const value = THROWN[this.thrown.length % THROWN.length](this.#all);
    this.thrown.push(value);
    this.threwAt.add(event);
    throw value;
  }
}

export async function run(count) {
  engine.recordCalls(false);
  const emitter = new EventEmitter();
  const wrapper = construct({ emitter });
  const listeners = new Listeners(emitter);
  const caught = [];
  process.on('uncaughtException', (error) => caught.push(error));

  const sent = new Map(NOTIFICATIONS.map(({ event }) => [event, 0]));
  let all = 0;
  while (all < count) {
    const each = Math.ceil(Math.min(MOST_AT_ONCE, (count - all) / THREADS));
    const kindOf = (sequence) => NOTIFICATIONS[sequence % NOTIFICATIONS.length];
    all += engine.fireMany({
      threads: THREADS,
      count: each,
      notification: (_thread, sequence) => kindOf(sequence).notification,
      args: (_thread, sequence) => kindOf(sequence).args(sequence),
    });
    for (let i = 0; i < each; ++i) {
      const { event } = kindOf(i);
      sent.set(event, sent.get(event) + THREADS);
    }
    await nextTurn();
    assert.deepEqual(listeners.arrived, sent);
  }

  const { thrown, threwAt } = listeners;
  assert.equal(thrown.length, Math.floor(all / ONE_IN));
  assert.ok(thrown.length > 0);
  if (thrown.length > MANY_THROWN) assert.equal(threwAt.size, NOTIFICATIONS.length);
  assert.equal(caught.length, thrown.length);
  caught.forEach((error, i) => assert.ok(Object.is(error, thrown[i]), `${i}`));
  wrapper.destroy();
  engine.reset();
  return {
    arrived: all,
    thrown: thrown.length,
    'kinds of what was thrown': Math.min(thrown.length, THROWN.length),
    uncaughtExceptions: caught.length,
  };
}
