// The dispatcher alone, driven from real threads. Cases that end the process or cause an
// 'uncaughtException' run in child processes (test/support/processes/dispatcher_process.mjs).

import assert from 'node:assert';
import { spawnSync } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { setFlagsFromString } from 'node:v8';
import { runInNewContext } from 'node:vm';
import { Channel, Dispatcher, closuresAlive } from '../../support/dispatcher_probe.mjs';
import { nextTurn } from '../../support/next_turn.mjs';

setFlagsFromString('--expose-gc');
const collectGarbage = runInNewContext('gc');

function openDispatcher(t, listener) {
  const dispatcher = new Dispatcher(listener);
  t.after(() => dispatcher.close());
  return dispatcher;
}

function openChannel(t, listener) {
  const channel = new Channel(listener);
  t.after(() => channel.close());
  return channel;
}

// Starts a thread that calls sync() and keeps this thread from its event loop until that one waits.
function startBlockedSync(dispatcher, value) {
  const caller = dispatcher.startSync(value);
  while (!dispatcher.isBlocked(caller)) {
    assert.ok(!dispatcher.hasReturned(caller), 'sync returned before the loop had a chance to run');
  }
  return caller;
}

function numbers(count) {
  return Array.from({ length: count }, (_, number) => number);
}

// [address, is referenced] of each async handle of the event loop.
function asyncHandles() {
  process.report.excludeNetwork = true;
  return process.report
    .getReport()
    .libuv.filter(({ type }) => type === 'async')
    .map(({ address, is_referenced: isReferenced }) => [address, isReferenced]);
}

// The state of the loop's async handles that `before` does not list: whether each of them is
// referenced.
function referencesSince(before) {
  const known = new Map(before);
  return asyncHandles()
    .filter(([address]) => !known.has(address))
    .map(([, isReferenced]) => isReferenced);
}

const THREADS = 4;
const PER_THREAD = 5000;

test('items that threads post before the loop runs arrive once each, in the order of each thread', async (t) => {
  const received = numbers(THREADS).map(() => []);
  const dispatcher = openDispatcher(t, (thread, number) => received[thread].push(number));
  dispatcher.startPosting(THREADS, PER_THREAD);
  dispatcher.join();
  assert.deepStrictEqual(received.flat(), []);
  await nextTurn();
  for (const ofThread of received) assert.deepStrictEqual(ofThread, numbers(PER_THREAD));
  assert.strictEqual(closuresAlive(), 0);
});

test('items that threads post while others are delivered arrive once each, in the order of each thread', async (t) => {
  const received = numbers(THREADS).map(() => []);
  const allArrived = new EventEmitter();
  let left = THREADS * PER_THREAD;
  const dispatcher = openDispatcher(t, (thread, number) => {
    received[thread].push(number);
    left -= 1;
    if (left === 0) allArrived.emit('last');
  });
  dispatcher.startPosting(THREADS, PER_THREAD);
  await once(allArrived, 'last');
  dispatcher.join();
  await nextTurn();
  for (const ofThread of received) assert.deepStrictEqual(ofThread, numbers(PER_THREAD));
  assert.strictEqual(closuresAlive(), 0);
});

test('an item that posts another one completes before that one runs', async (t) => {
  const log = [];
  const dispatcher = openDispatcher(t, (value) => {
    log.push(`begin ${value}`);
    if (value < 3) dispatcher.async(value + 1);
    log.push(`end ${value}`);
  });
  dispatcher.async(1);
  await nextTurn();
  assert.deepStrictEqual(log, ['begin 1', 'end 1', 'begin 2', 'end 2', 'begin 3', 'end 3']);
});

test('an item that is posted by an item runs after those queued before', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => {
    received.push(value);
    if (value === 1) dispatcher.async(3);
  });
  dispatcher.async(1);
  dispatcher.async(2);
  await nextTurn();
  assert.deepStrictEqual(received, [1, 2, 3]);
});

test('sync returns only after its closure has completed', async (t) => {
  const blockedWhileItRan = [];
  const dispatcher = openDispatcher(t, () => {
    blockedWhileItRan.push(dispatcher.isBlocked(caller));
  });
  const caller = startBlockedSync(dispatcher, 1);
  await nextTurn();
  assert.deepStrictEqual(blockedWhileItRan, [true]);
  dispatcher.join();
  assert.strictEqual(closuresAlive(), 0);
});

test('the closures of several sync callers run in posting order', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => received.push(value));
  for (const value of [1, 2, 3]) startBlockedSync(dispatcher, value);
  await nextTurn();
  assert.deepStrictEqual(received, [1, 2, 3]);
});

test('closing releases every caller of sync, and their closures never run', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => received.push(value));
  for (const value of [1, 2, 3]) startBlockedSync(dispatcher, value);
  dispatcher.close();
  dispatcher.join();
  await nextTurn();
  assert.deepStrictEqual(received, []);
  assert.strictEqual(closuresAlive(), 0);
});

test('an item that closes the dispatcher releases the callers of sync', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => {
    received.push(value);
    dispatcher.close();
  });
  dispatcher.async(0);
  startBlockedSync(dispatcher, 1);
  await nextTurn();
  dispatcher.join();
  assert.deepStrictEqual(received, [0]);
});

test('sync on a closed dispatcher returns at once and drops its closure', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => received.push(value));
  dispatcher.close();
  dispatcher.startSync(1);
  dispatcher.join();
  await nextTurn();
  assert.deepStrictEqual(received, []);
  assert.strictEqual(closuresAlive(), 0);
});

test('async and sync items do not wait for each other', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => received.push(value));
  startBlockedSync(dispatcher, 1);
  dispatcher.async(2);
  await nextTurn();
  dispatcher.join();
  assert.deepStrictEqual(received.sort(), [1, 2]);
});

test('each item runs in a handle scope of its own', async (t) => {
  let last;
  const collected = [];
  const dispatcher = openDispatcher(t, (object) => {
    collectGarbage();
    collected.push(last?.deref() === undefined);
    last = new WeakRef(object);
  });
  for (let i = 0; i < 3; ++i) dispatcher.asyncObject();
  await nextTurn();
  assert.deepStrictEqual(collected, [true, true, true]);
});

test('the ticks and promises of one item settle before the next item', async (t) => {
  const log = [];
  const dispatcher = openDispatcher(t, (value) => {
    log.push(`item ${value}`);
    process.nextTick(() => log.push(`tick ${value}`));
    Promise.resolve().then(() => log.push(`promise ${value}`));
  });
  dispatcher.async(1);
  dispatcher.async(2);
  await nextTurn();
  assert.deepStrictEqual(log, ['item 1', 'tick 1', 'promise 1', 'item 2', 'tick 2', 'promise 2']);
});

test('a function that awaits one event after the other misses none that were queued together', async (t) => {
  const emitter = new EventEmitter();
  const dispatcher = openDispatcher(t, (value) => emitter.emit(value === 1 ? 'first' : 'second'));
  const seen = [];
  const follow = async () => {
    await once(emitter, 'first');
    seen.push('first');
    await once(emitter, 'second');
    seen.push('second');
  };
  follow();
  dispatcher.async(1);
  dispatcher.async(2);
  await nextTurn();
  assert.deepStrictEqual(seen, ['first', 'second']);
});

test('closing frees queued items without running them', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (...values) => received.push(values));
  dispatcher.startPosting(THREADS, 10);
  dispatcher.join();
  assert.strictEqual(closuresAlive(), THREADS * 10);
  dispatcher.close();
  assert.strictEqual(closuresAlive(), 0);
  await nextTurn();
  assert.deepStrictEqual(received, []);
});

test('items that threads post after closing are dropped and freed', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (...values) => received.push(values));
  dispatcher.close();
  dispatcher.startPosting(THREADS, 10);
  dispatcher.join();
  assert.strictEqual(closuresAlive(), 0);
  await nextTurn();
  assert.deepStrictEqual(received, []);
});

test('threads may post while an item closes the dispatcher', async () => {
  let delivered = 0;
  const dispatcher = new Dispatcher(() => {
    delivered += 1;
    dispatcher.close();
  });
  dispatcher.startPosting(THREADS, PER_THREAD);
  while (delivered === 0) await nextTurn();
  dispatcher.join();
  assert.strictEqual(closuresAlive(), 0);
  await nextTurn();
  assert.strictEqual(delivered, 1);
});

test('closing a second time does nothing', async (t) => {
  const dispatcher = openDispatcher(t, () => {});
  dispatcher.close();
  dispatcher.close();
  await nextTurn();
  dispatcher.close();
  dispatcher.releaseEventLoop();
  assert.strictEqual(closuresAlive(), 0);
});

test('no item runs after one that closes the dispatcher', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => {
    received.push(value);
    if (value === 1) dispatcher.close();
  });
  for (const value of [0, 1, 2, 3]) dispatcher.async(value);
  await nextTurn();
  assert.deepStrictEqual(received, [0, 1]);
  assert.strictEqual(closuresAlive(), 0);
});

test('destroying an open dispatcher frees the queued items', async () => {
  const before = asyncHandles();
  const received = [];
  const dispatcher = new Dispatcher((value) => received.push(value));
  dispatcher.async(1);
  dispatcher.release();
  assert.strictEqual(closuresAlive(), 0);
  await nextTurn();
  assert.deepStrictEqual(received, []);
  assert.deepStrictEqual(referencesSince(before), []);
});

test('an item may destroy its dispatcher', async () => {
  const received = [];
  const dispatcher = new Dispatcher((value) => {
    received.push(value);
    dispatcher.release();
  });
  dispatcher.async(1);
  dispatcher.async(2);
  await nextTurn();
  assert.deepStrictEqual(received, [1]);
  assert.strictEqual(closuresAlive(), 0);
});

test('another thread may release the last share of a closed dispatcher', async () => {
  const received = [];
  const dispatcher = new Dispatcher((value) => received.push(value));
  dispatcher.async(1);
  await nextTurn();
  dispatcher.async(2);
  dispatcher.close();
  dispatcher.releaseOnThread();
  await nextTurn();
  assert.deepStrictEqual(received, [1]);
  assert.strictEqual(closuresAlive(), 0);
});

test('an open dispatcher holds the event loop until releaseEventLoop was called and the queued items have arrived', async (t) => {
  const before = asyncHandles();
  const referencesAtItem = [];
  const dispatcher = openDispatcher(t, () => referencesAtItem.push(referencesSince(before)));
  assert.deepStrictEqual(referencesSince(before), [true, true]);
  dispatcher.async(1);
  dispatcher.releaseEventLoop();
  assert.deepStrictEqual(referencesSince(before), [true, true]);
  await nextTurn();
  assert.deepStrictEqual(referencesAtItem, [[true, true]]);
  assert.deepStrictEqual(referencesSince(before), [false, false]);
});

test('closing closes the handles of the event loop', async (t) => {
  const before = asyncHandles();
  const dispatcher = openDispatcher(t, () => {});
  dispatcher.close();
  await nextTurn();
  assert.deepStrictEqual(referencesSince(before), []);
});

test('items posted after releaseEventLoop arrive for as long as the loop runs', async (t) => {
  const received = [];
  const dispatcher = openDispatcher(t, (value) => received.push(value));
  dispatcher.releaseEventLoop();
  await nextTurn();
  dispatcher.async(1);
  await nextTurn();
  assert.deepStrictEqual(received, [1]);
});

test('a channel delivers each posted pointer once, in posting order', async (t) => {
  const received = [];
  const channel = openChannel(t, (number) => received.push(number));
  channel.callFromThread(0, 499);
  channel.callFromThread(500, 999);
  assert.deepStrictEqual(received, []);
  await nextTurn();
  assert.deepStrictEqual(received, numbers(1000));
  assert.deepStrictEqual(channel.discarded(), []);
});

test('a closing channel discards each queued pointer once, and each one posted later', async (t) => {
  const received = [];
  const channel = openChannel(t, (number) => received.push(number));
  channel.callFromThread(0, 2);
  channel.close();
  assert.deepStrictEqual(channel.discarded(), [0, 1, 2]);
  channel.callFromThread(3, 4);
  channel.close();
  await nextTurn();
  assert.deepStrictEqual(channel.discarded(), [0, 1, 2, 3, 4]);
  assert.deepStrictEqual(received, []);
});

test('two channels are independent: one keeps working when the other is released and closed', async (t) => {
  const before = asyncHandles();
  const received = { one: [], other: [] };
  const one = openChannel(t, (number) => received.one.push(number));
  const other = openChannel(t, (number) => received.other.push(number));
  one.callFromThread(0, 2);
  other.callFromThread(5, 7);
  one.unref();
  assert.deepStrictEqual(referencesSince(before).sort(), [false, true]);
  one.close();
  await nextTurn();
  other.callFromThread(8, 8);
  await nextTurn();
  assert.deepStrictEqual(received, { one: [], other: [5, 6, 7, 8] });
  assert.deepStrictEqual(referencesSince(before), [true]);
  assert.deepStrictEqual(other.discarded(), []);
});

// Far longer than any scenario takes: it ends a process that hangs.
const HANG_MILLISECONDS = 120_000;

// Runs one scenario of the fixture to its end. A process that ends by itself is also checked for
// leaks where the sanitizer runs; see scripts/child_environment.mjs.
function runProcess(scenario, { endsByItself }) {
  const environment = { ...process.env };
  if (endsByItself && environment.ASAN_OPTIONS) environment.ASAN_OPTIONS += ':detect_leaks=1';
  const { status, signal, stdout, stderr } = spawnSync(
    process.execPath,
    [
      fileURLToPath(new URL('../../support/processes/dispatcher_process.mjs', import.meta.url)),
      scenario,
    ],
    { encoding: 'utf8', env: environment, timeout: HANG_MILLISECONDS, killSignal: 'SIGKILL' },
  );
  return { end: signal ?? status, lines: stdout.split('\n').slice(0, -1), stderr };
}

const processes = [
  {
    name: 'an item that throws a JavaScript error becomes an uncaught exception with its stack, and the items behind it arrive',
    scenario: 'listenerThrows',
    lines: [
      'item 1',
      'uncaught: Error: thrown by item 2 at throwFromItem',
      'tick of 2',
      'item 3',
      '0 closures alive',
    ],
  },
  {
    name: 'whatever JavaScript throws arrives as it is',
    scenario: 'listenerThrowsAnything',
    lines: [
      'uncaught: string text',
      'uncaught: number 5',
      'uncaught: object null',
      'uncaught: undefined undefined',
      'uncaught: symbol Symbol(mark)',
      'item 6',
    ],
  },
  {
    name: 'what a native closure throws becomes an uncaught Error, and the items behind it arrive',
    scenario: 'closuresThrow',
    lines: [
      'item 1',
      'uncaught: Error: a native exception',
      'item 2',
      'uncaught: Error: A native exception was thrown',
      'item 3',
      'uncaught: Error: bad_function_call',
      'item 4',
      '0 closures alive',
    ],
  },
  {
    name: 'a channel without a callback raises the standard error for each item',
    scenario: 'emptyCallback',
    lines: ['uncaught: Error: bad_function_call', 'uncaught: Error: bad_function_call'],
  },
  {
    name: 'an item that throws leaves no handles behind',
    scenario: 'handleScopesOfThrowingItems',
    lines: ['collected', 'collected', 'collected'],
  },
  {
    name: 'an item for which no scope can be opened is freed, and the items behind it arrive',
    scenario: 'scopesFail',
    lines: [
      'item 2',
      'uncaught: Error: Node-API failed',
      'item 2',
      'uncaught: Error: Node-API failed',
      'the caller has returned',
      '0 closures alive',
    ],
  },
  {
    name: 'a caller of sync is let go when its closure throws',
    scenario: 'syncThrows',
    lines: ['uncaught: Error: thrown by item 1', 'the caller has returned', '0 closures alive'],
  },
  {
    name: 'an item may destroy its dispatcher and then throw',
    scenario: 'destroysAndThrows',
    lines: ['uncaught: Error: thrown after the listener', '0 closures alive'],
  },
  {
    name: 'an item that throws does not stop what another channel delivers',
    scenario: 'otherChannelThrows',
    lines: ['uncaught: Error: thrown by item 1', 'channel item 5'],
  },
  {
    name: 'an open dispatcher keeps the process alive: an item of an idle process arrives, and closing lets it end',
    scenario: 'staysAlive',
    lines: ['item 1', 'beforeExit', 'exit 0'],
  },
  {
    name: 'releaseEventLoop lets what is queued arrive and then the process end by itself',
    scenario: 'endsAfterRelease',
    lines: ['4000 items', 'beforeExit', 'exit 0'],
  },
  {
    name: 'items that are queued when the process ends are freed and do not run',
    scenario: 'postsAtExit',
    lines: ['exit'],
  },
  {
    name: 'process.exit() in an item ends the process with its code, and the items behind do not run',
    scenario: 'exitsInItem',
    endsByItself: false,
    end: 7,
    lines: ['item 1', 'exit 7'],
  },
  {
    name: 'process.exit() is safe while threads post and wait',
    scenario: 'exitsWhileThreadsPost',
    endsByItself: false,
    end: 8,
    lines: ['exit 8'],
  },
];

for (const { name, scenario, lines, end = 0, endsByItself = true } of processes) {
  test(name, () => {
    const result = runProcess(scenario, { endsByItself });
    assert.deepStrictEqual(result, { end, lines, stderr: '' });
  });
}

test('an unhandled error of an item ends the process like any uncaught error', () => {
  const { end, lines, stderr } = runProcess('nobodyHandles', { endsByItself: false });
  assert.deepStrictEqual({ end, lines }, { end: 1, lines: ['exit 1'] });
  assert.match(stderr, /Error: thrown by item 1\n +at .*dispatcher_process\.mjs/);
});
