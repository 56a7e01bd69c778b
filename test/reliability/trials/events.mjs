// Events from several threads at once.

import assert from 'node:assert/strict';

import { construct, engine, nextTurn, EventEmitter } from '../../support/scripted/wrapper_kit.mjs';
import { withoutGrowth } from '../../support/reliability/holdings.mjs';
import { NOTIFICATIONS } from '../../support/reliability/notifications.mjs';

const THREADS = 8;
const PARTS = 4;
// V8 takes some megabytes once when it has compiled what runs often, in Node.js 24 and newer after
// 20,000 events. With a sanitizer memory is not judged, and all of it takes long.
const WARM_UP = process.env.LD_PRELOAD ? 0 : 50_000;

// The sequence of events that each thread repeats.
const TURNS = 25;
const LENGTH = TURNS * NOTIFICATIONS.length;

const keyOf = (event, payload) => `${event} ${JSON.stringify(payload)}`;

// Event i of a thread: { notification, args, key }, and its `number` if it has one.
function itemOf(thread, i) {
  const turn = Math.floor(i / NOTIFICATIONS.length);
  const { notification, event, args, payload, isNumbered } =
    NOTIFICATIONS[i % NOTIFICATIONS.length];
  const number = thread * LENGTH + i;
  const shown = isNumbered ? number : thread + turn;
  const key = keyOf(event, payload(shown));
  return { notification, args: args(shown), key, number: isNumbered ? number : undefined };
}

const ITEMS = Array.from({ length: THREADS }, (_, thread) =>
  Array.from({ length: LENGTH }, (_unused, i) => itemOf(thread, i)),
);

// Checks each event against what its thread has sent before. One without a number may be of any
// thread that is to send such a one next; whose it was shows at that thread's next number.
class Ledger {
  #numbers = new Map(ITEMS.flat().map(({ key, number }) => [key, number]));
  // By thread, the next expected event with a number.
  #next = Array.from({ length: THREADS }, () => 0);
  // By key, how many threads are to send such a one, and how many of these have.
  #awaited = new Map(ITEMS.flat().map(({ key }) => [key, 0]));
  #arrived = new Map(this.#awaited);

  take(event, payload) {
    const key = keyOf(event, payload);
    assert.ok(this.#numbers.has(key), `nobody has sent ${key}`);
    const number = this.#numbers.get(key);
    if (number === undefined) {
      this.#add(this.#arrived, key, 1);
      assert.ok(this.#arrived.get(key) <= this.#awaited.get(key), `${key} is one too many`);
      return;
    }
    const thread = Math.floor(number / LENGTH);
    const i = number % LENGTH;
    if (i !== this.#next[thread]) {
      assert.fail(`${key} instead of ${ITEMS[thread][this.#next[thread]].key}`);
    }
    const before = ITEMS[thread].at(i - 1);
    if (before.number === undefined) this.#settle(before.key);
    const after = ITEMS[thread][(i + 1) % LENGTH];
    if (after.number === undefined) this.#add(this.#awaited, after.key, 1);
    this.#next[thread] = (i + (after.number === undefined ? 2 : 1)) % LENGTH;
  }

  assertComplete() {
    assert.deepEqual(new Set(this.#next), new Set([0]));
    assert.deepEqual(new Set(this.#awaited.values()), new Set([0]));
  }

  #settle(key) {
    assert.ok(this.#arrived.get(key) > 0, `${key} is missing`);
    this.#add(this.#arrived, key, -1);
    this.#add(this.#awaited, key, -1);
  }

  #add(counts, key, count) {
    counts.set(key, counts.get(key) + count);
  }
}

export async function run(count) {
  engine.recordCalls(false);
  const ledger = new Ledger();
  const emitter = new EventEmitter();
  let arrived = 0;
  for (const { event } of NOTIFICATIONS) {
    emitter.on(event, (payload) => {
      ++arrived;
      ledger.take(event, payload);
    });
  }
  const wrapper = construct({ emitter });
  let sent = 0;
  const send = async (events) => {
    const repeats = Math.ceil(events / THREADS / LENGTH);
    for (let repeat = 0; repeat < repeats; ++repeat) {
      const running = engine.fireManyAsync({
        threads: THREADS,
        count: LENGTH,
        notification: (thread, i) => ITEMS[thread][i].notification,
        args: (thread, i) => ITEMS[thread][i].args,
      });
      // Now events arrive while the threads go on, now they wait until the threads have ended.
      if (repeat % 2 === 0) await nextTurn();
      sent += running.join();
    }
    await nextTurn();
    assert.equal(arrived, sent);
    ledger.assertComplete();
  };

  await send(WARM_UP);
  arrived = sent = 0;
  const held = await withoutGrowth(() => send(count / PARTS));
  wrapper.destroy();
  engine.reset();
  const added = arrived - count;
  return { arrived, 'beyond what was asked (each part is of whole rounds)': added, ...held };
}
