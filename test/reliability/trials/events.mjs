// Events from several threads at once.

import assert from 'node:assert/strict';

import { construct, engine, nextTurn, EventEmitter } from '../../js/fixtures/wrapper_kit.mjs';
import { withoutGrowth } from '../support/holdings.mjs';

const THREADS = 8;
const PARTS = 4;

// Each with `args` that carry a number and `numberIn` that gets it out of the payload. A few carry
// nothing but a boolean or an enumeration: these are counted only.
const text = (number) => `${number}, as a text that is too long to stand in the object itself`;
const numberOf = (string) => parseInt(string, 10);
const NOTIFICATIONS = [
  ['NotifyStreamAdded', 'streamAdded', (n) => [{ kind: 1, index: 3 }, n], ({ csrc }) => csrc],
  ['NotifyStreamRemoved', 'streamRemoved', (n) => [{ kind: 0, index: 3 }, n], ({ csrc }) => csrc],
  ['NotifyStreamUpdated', 'streamUpdated', (n) => [{ kind: 2, index: 3 }, n], ({ csrc }) => csrc],
  ['NotifyGracefulEvent', 'gracefulEvent', (n) => [text(n), true], ({ event }) => numberOf(event)],
  ['NotifyCallConnectionStatus', 'callConnectionStatus', () => [true]],
  ['NotifyScreenShareStatus', 'screenShareStatus', () => [1]],
  [
    'NotifyContentReceiveStatus',
    'contentReceive',
    (n) => [true, text(n)],
    ({ presenterGuid }) => numberOf(presenterGuid),
  ],
  ['NotifyCallDisconnect', 'callDisconnect', (n) => [n, text(n), 0], ({ callId }) => callId],
  ['NotifyMediaMuteState', 'mediaMuteState', () => [1, true]],
  ['NotifyMicLevel', 'micLevel', (n) => [n], ({ level }) => level],
  ['NotifyRtpMediaState', 'noRtpMedia', () => [1, false]],
  ['NotifyDeviceChange', 'deviceChange', (n) => [text(n), 1], ({ id }) => numberOf(id)],
  [
    'NotifyEvent',
    'eventNotify',
    (n) => [text(n), text(n)],
    ({ eventName, eventBody }) => (eventName === eventBody ? numberOf(eventBody) : NaN),
  ],
  ['NotifyUpdateVOQualityIndex', 'vspUpdateVOQI', (n) => [n], ({ VSPVOQI }) => VSPVOQI],
].map(([notification, event, args, numberIn]) => ({ notification, event, args, numberIn }));

// What a thread sends again and again: item i carries the number thread * LENGTH + i.
const LENGTH = 25 * NOTIFICATIONS.length;
const kindOf = (sequence) => NOTIFICATIONS[sequence % NOTIFICATIONS.length];

// Checks each event against the one that the thread sent before.
class Ledger {
  counts = new Map(NOTIFICATIONS.map(({ event }) => [event, 0]));
  #numberIn = new Map(NOTIFICATIONS.map(({ event, numberIn }) => [event, numberIn]));
  #next = Array.from({ length: THREADS }, () => 0);

  take(event, payload) {
    this.counts.set(event, this.counts.get(event) + 1);
    const numberIn = this.#numberIn.get(event);
    if (!numberIn) return;
    const number = numberIn(payload);
    const thread = Math.floor(number / LENGTH);
    if (number % LENGTH !== this.#next[thread]) {
      assert.fail(`${event} ${number} instead of ${this.#next[thread]} of thread ${thread}`);
    }
    do this.#next[thread] = (this.#next[thread] + 1) % LENGTH;
    while (!kindOf(this.#next[thread]).numberIn);
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
  const repeats = Math.ceil(count / PARTS / THREADS / LENGTH);
  const list = (thread, sequence) => kindOf(sequence).args(thread * LENGTH + (sequence % LENGTH));

  let sent = 0;
  const held = await withoutGrowth(async () => {
    for (let repeat = 0; repeat < repeats; ++repeat) {
      const running = engine.fireManyAsync({
        threads: THREADS,
        count: LENGTH,
        notification: (_thread, sequence) => kindOf(sequence).notification,
        args: list,
      });
      // Now events arrive while the threads go on, now they wait until the threads have ended.
      if (repeat % 2 === 0) await nextTurn();
      sent += running.join();
    }
    await nextTurn();
    assert.equal(arrived, sent);
  });
  for (const [event, times] of ledger.counts) {
    assert.equal(times, sent / NOTIFICATIONS.length, event);
  }
  wrapper.destroy();
  engine.reset();
  return { arrived, ...held };
}
