// The emitter is collected while events are delivered.

import assert from 'node:assert/strict';

import {
  collect,
  collectGarbage,
  engine,
  EventEmitter,
  nextTurn,
  PARAMS,
} from '../../support/scripted/wrapper_kit.mjs';

const THREADS = 4;
const EVENTS = 500; // of each thread, in one lot

const post = () =>
  engine.fireManyAsync({
    threads: THREADS,
    count: EVENTS,
    notification: 'NotifyEvent',
    args: ['name', 'body'],
  });

export async function run(count) {
  engine.recordCalls(false);
  const { TesselWrapper } = engine.loadAddon();
  let arrived = 0;
  let dropped = 0;
  const errors = [];
  process.on('uncaughtException', (error) => errors.push(error));

  // Only the factory holds the emitter when this returns, until it is to be released.
  function constructOnce() {
    let emitter = new EventEmitter().on('eventNotify', () => ++arrived);
    TesselWrapper._internal_setEmitterFactory(() => emitter);
    const wrapper = new TesselWrapper(PARAMS);
    const release = () => (emitter = null);
    return { wrapper, made: new WeakRef(emitter), release };
  }

  for (let round = 0; round < count; ++round) {
    const { wrapper, made, release } = constructOnce();
    const already = arrived;
    post().join();
    await nextTurn();
    assert.equal(arrived - already, THREADS * EVENTS);
    // Events of one lot are taken when the emitter goes, those of another surely wait to be taken,
    // and a third is being posted.
    const taken = post();
    while (arrived === already + THREADS * EVENTS) await nextTurn();
    post().join();
    const posted = post();
    const before = arrived;
    release();
    collectGarbage();
    await nextTurn();
    assert.equal(made.deref(), undefined);
    taken.join();
    posted.join();
    await nextTurn();
    // Now there is no emitter at all.
    post().join();
    await nextTurn();
    assert.equal(arrived, before);
    assert.throws(() => wrapper.on('eventNotify', () => {}), {
      message: 'The event emitter was garbage-collected',
    });
    assert.ok(before - already <= 2 * THREADS * EVENTS);
    dropped += 5 * THREADS * EVENTS - (before - already);
    wrapper.destroy();
    engine.dropCallback();
    await collect();
  }
  assert.deepEqual(errors, []);
  engine.reset();
  return { arrived, 'came too late': dropped, errors: errors.length };
}
