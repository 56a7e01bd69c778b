// Listeners that throw.

import assert from 'node:assert/strict';

import { construct, engine, nextTurn, EventEmitter } from '../../js/fixtures/wrapper_kit.mjs';

const THREADS = 4;
const ONE_IN = 100;
const MOST_AT_ONCE = 1000; // for each thread

export async function run(count) {
  engine.recordCalls(false);
  const emitter = new EventEmitter();
  const wrapper = construct({ emitter });
  const thrown = [];
  const caught = [];
  const arrived = new Set();
  process.on('uncaughtException', (error) => caught.push(error));
  emitter.on('micLevel', ({ level }) => {
    assert.ok(!arrived.has(level));
    arrived.add(level);
    if (level % ONE_IN !== 0) return;
    thrown.push(new RangeError(`level ${level}`));
    throw thrown.at(-1);
  });

  for (let sent = 0; sent < count;) {
    const each = Math.ceil(Math.min(MOST_AT_ONCE, (count - sent) / THREADS));
    const first = sent;
    sent += engine.fireMany({
      threads: THREADS,
      count: each,
      notification: 'NotifyMicLevel',
      args: (thread, sequence) => [first + thread * each + sequence],
    });
    await nextTurn();
    assert.equal(arrived.size, sent);
  }
  assert.ok(thrown.length > 0);
  assert.equal(caught.length, thrown.length);
  caught.forEach((error, i) => assert.equal(error, thrown[i]));
  wrapper.destroy();
  engine.reset();
  return { arrived: arrived.size, thrown: thrown.length, uncaughtExceptions: caught.length };
}
