// The emitter goes while events flow.

import assert from 'node:assert/strict';

import {
  collect,
  collectGarbage,
  engine,
  EventEmitter,
  nextTurn,
  PARAMS,
} from '../../js/fixtures/wrapper_kit.mjs';

const THREADS = 4;
const EVENTS = 500; // of each thread, before and after

// That pass before the collection, while the events of some are taken.
const MOST_TURNS = 4;

const post = () =>
  engine.fireManyAsync({
    threads: THREADS,
    count: EVENTS,
    notification: 'NotifyEvent',
    args: ['name', 'body'],
  });

export async function run(count, { random }) {
  engine.recordCalls(false);
  const { TesselWrapper } = engine.loadAddon();
  let arrived = 0;
  let late = 0;
  const errors = [];
  process.on('uncaughtException', (error) => errors.push(error));

  // Nobody but the listener's closure holds the emitter when this returns.
  function constructOnce() {
    let emitter = new EventEmitter().on('eventNotify', () => ++arrived);
    TesselWrapper._internal_setEmitterFactory(() => emitter);
    const wrapper = new TesselWrapper(PARAMS);
    const made = new WeakRef(emitter);
    emitter = null;
    return { wrapper, made };
  }

  for (let round = 0; round < count; ++round) {
    const { wrapper, made } = constructOnce();
    const already = arrived;
    post().join();
    await nextTurn();
    assert.equal(arrived - already, THREADS * EVENTS);
    const running = post();
    for (let turns = random.below(MOST_TURNS); turns > 0; --turns) await nextTurn();
    collectGarbage();
    await nextTurn();
    running.join();
    collectGarbage();
    await nextTurn();
    assert.equal(made.deref(), undefined);
    late += arrived - already - THREADS * EVENTS;
    // Now there is no emitter at all.
    const atLast = arrived;
    post().join();
    await nextTurn();
    assert.equal(arrived, atLast);
    assert.throws(() => wrapper.on('eventNotify', () => {}), {
      message: 'The event emitter was garbage-collected',
    });
    wrapper.destroy();
    engine.dropCallback();
    await collect();
  }
  assert.deepEqual(errors, []);
  engine.reset();
  return { arrived, 'of them around the collection': late, errors: errors.length };
}
