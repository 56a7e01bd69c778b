// The engine's notifications as events of the emitter that JavaScript supplied.

import assert from 'node:assert/strict';
import { EventEmitter, once } from 'node:events';
import { createRequire } from 'node:module';
import path from 'node:path';
import { after, beforeEach, test } from 'node:test';
import { getHeapStatistics } from 'node:v8';

import { build } from '../../support/build.mjs';
import { runInChild } from '../../support/child.mjs';
import { collectUntil } from '../../support/collector.mjs';
import { makeWrapper } from '../../support/make_wrapper.mjs';
import { patchGlobals, withPatchedGlobals } from '../../support/patched_globals.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';

const { defineProperty } = Object;
const { TesselWrapper } = engine.loadAddon();
const { EventHandler } = createRequire(import.meta.url)(
  path.join(build, 'test/addons/event_handler.node'),
);

const emitter = new EventEmitter();
const { wrapper } = makeWrapper(TesselWrapper, { emitter });
const ownEngine = engine.calls().at(-1).engine;

beforeEach(() => {
  engine.selectEngine(ownEngine);
  delete emitter.emit;
  emitter.removeAllListeners();
});
after(() => wrapper.destroy());

// Records each call of `emitter.emit`, as [this, arguments].
function noteEmits(target = emitter) {
  const emits = [];
  target.emit = function emit(...args) {
    emits.push([this, args]);
  };
  return emits;
}

// Events are emitted in the order in which they were posted: when this one has arrived, so have all
// that were posted before.
const SENTINEL = 'the last of the events';
const fireSentinel = () => engine.fire('NotifyGracefulEvent', SENTINEL, true);

function sentinelComes(target = emitter) {
  return new Promise((resolve) => {
    const { emit } = target;
    target.emit = function emitUnlessSentinel(name, payload) {
      if (payload.event !== SENTINEL) return Reflect.apply(emit, this, arguments);
      resolve();
      return true;
    };
  });
}

// The events that `post` makes the emitter emit: [this, arguments] for each.
async function emitsOf(post) {
  const emits = noteEmits();
  const comes = sentinelComes();
  post();
  fireSentinel();
  await comes;
  return emits;
}

// The same, as [name, payload].
const eventsOf = async (post) => (await emitsOf(post)).map(([, args]) => args);

// ---- The events and their payloads

const INT_MIN = -2147483648;
const INT_MAX = 2147483647;
const UINT_MAX = 4294967295;

const streamEvents = (notification, event) =>
  [
    [0, 'local'],
    [1, 'remote'],
    [2, 'content'],
    [3, 'unknown'],
    [7, 'unknown'],
    [-1, 'unknown'],
    [INT_MAX, 'unknown'],
    [INT_MIN, 'unknown'],
  ]
    .map(([kind, type]) => [
      notification,
      [{ kind, index: 5 }, 77],
      event,
      { type, streamIndex: 5, csrc: 77 },
    ])
    .concat(
      [
        [0, 0],
        [-1, 1],
        [INT_MIN, 2147483648],
        [INT_MAX, UINT_MAX],
      ].map(([index, csrc]) => [
        notification,
        [{ kind: 1, index }, csrc],
        event,
        { type: 'remote', streamIndex: index, csrc },
      ]),
    );

const withValues = (values, make) => values.map(([value, text]) => make(value, text));

const EVENTS = [
  ...streamEvents('NotifyStreamAdded', 'streamAdded'),
  ...streamEvents('NotifyStreamRemoved', 'streamRemoved'),
  ...streamEvents('NotifyStreamUpdated', 'streamUpdated'),
  ...[true, false].map((enable) => [
    ...['NotifyGracefulEvent', ['feature', enable], 'gracefulEvent'],
    { event: 'feature', enable },
  ]),
  ...[true, false].map((connected) => [
    ...['NotifyCallConnectionStatus', [connected], 'callConnectionStatus'],
    { connected },
  ]),
  ...withValues(
    [
      [0, 'started'],
      [1, 'failed'],
      [2, 'denied'],
      [3, 'token_granted'],
      [4, 'token_denied'],
      [5],
      [6, 'stopped'],
      [7, 'token_relinquished'],
      [8],
      [-1],
      [INT_MIN],
      [INT_MAX],
    ],
    (status, text) => [
      ...['NotifyScreenShareStatus', [status], 'screenShareStatus'],
      text === undefined ? {} : { status: text },
    ],
  ),
  ...[true, false].map((isReceiving) => [
    ...['NotifyContentReceiveStatus', [isReceiving, 'guid'], 'contentReceive'],
    { isReceiving, presenterGuid: 'guid' },
  ]),
  ...[
    [1, 2],
    [0, 0],
    [-1, -2],
    [INT_MIN, INT_MAX],
    [INT_MAX, INT_MIN],
  ].map(([callId, code]) => [
    ...['NotifyCallDisconnect', [callId, 'reason', code], 'callDisconnect'],
    { callId, reason: 'reason', code },
  ]),
  ...withValues([[0, 'video'], [1, 'audio'], [2], [3], [-1], [INT_MAX]], (type, mediaType) => [
    ...['NotifyMediaMuteState', [type, type !== 0], 'mediaMuteState'],
    mediaType === undefined ? { muted: true } : { mediaType, muted: type !== 0 },
  ]),
  ...[0, 1, 50, 100, 2147483648, UINT_MAX].map((level) => [
    ...['NotifyMicLevel', [level], 'micLevel'],
    { level },
  ]),
  ...withValues(
    [[0, 'video'], [1, 'audio'], [2, 'content'], [3], [-1], [INT_MIN]],
    (type, mediaType) => [
      ...['NotifyRtpMediaState', [type, type !== 0], 'noRtpMedia'],
      mediaType === undefined ? { up: true } : { mediaType, up: type !== 0 },
    ],
  ),
  ...withValues(
    [[0], [1, 'video'], [2, 'audioIn'], [3, 'audioOut'], [4], [-1], [INT_MAX]],
    (type, text) => [
      ...['NotifyDeviceChange', ['device', type], 'deviceChange'],
      text === undefined ? { id: 'device' } : { id: 'device', type: text },
    ],
  ),
  [
    ...['NotifyEvent', ['name', '{"not":"parsed"}'], 'eventNotify'],
    { eventName: 'name', eventBody: '{"not":"parsed"}' },
  ],
  ...[0, 1, 2, 3, 4, 5, -1, INT_MIN, INT_MAX].map((index) => [
    ...['NotifyUpdateVOQualityIndex', [index], 'vspUpdateVOQI'],
    { VSPVOQI: index },
  ]),
];

test('all 14 notifications are among those tested', () => {
  assert.equal(new Set(EVENTS.map(([notification]) => notification)).size, 14);
});

for (const [notification, args, event, payload] of EVENTS) {
  test(`${notification}(${JSON.stringify(args).slice(1, -1)}) emits "${event}"`, async () => {
    const emits = await emitsOf(() => engine.fire(notification, ...args));
    assert.equal(emits.length, 1);
    const [receiver, given] = emits[0];
    assert.equal(receiver, emitter);
    assert.deepEqual(given, [event, payload]);
    assert.deepEqual(Object.keys(given[1]), Object.keys(payload));
    assert.equal(Object.getPrototypeOf(given[1]), Object.prototype);
    for (const [name, property] of Object.entries(Object.getOwnPropertyDescriptors(given[1]))) {
      const { writable, enumerable, configurable } = property;
      assert.deepEqual([writable, enumerable, configurable], [true, true, true], name);
    }
  });
}

const BAD_BYTES = Buffer.from([0x61, 0xff, 0x62, 0xc3, 0x28, 0xe2, 0x82, 0x63]);

const TEXTS = [
  ['an empty text', ''],
  ['a text beyond ASCII', 'Grüße, 你好, 👋🏽, \u0000 and \ud7ff'],
  ['a text that looks like JavaScript', '"});process.exit(1);({"\\u0000${1}`\u2028'],
  ['a text of a megabyte', 'x€'.repeat(1 << 18)],
  ['a text with a NUL in the middle and at its end', 'a\0b\0'],
  ['a byte order mark', '\ufeffbom'],
  ['a text that is not UTF-8', BAD_BYTES, new TextDecoder().decode(BAD_BYTES)],
  ['a megabyte that is not UTF-8', Buffer.alloc(1 << 20, 0x80), '\ufffd'.repeat(1 << 20)],
];

for (const [what, text, expected = text] of TEXTS) {
  test(`${what} arrives in every payload`, async () => {
    const events = await eventsOf(() => {
      engine.fire('NotifyGracefulEvent', text, true);
      engine.fire('NotifyContentReceiveStatus', false, text);
      engine.fire('NotifyCallDisconnect', 1, text, 2);
      engine.fire('NotifyDeviceChange', text, 1);
      engine.fire('NotifyEvent', text, text);
    });
    assert.deepEqual(events, [
      ['gracefulEvent', { event: expected, enable: true }],
      ['contentReceive', { isReceiving: false, presenterGuid: expected }],
      ['callDisconnect', { callId: 1, reason: expected, code: 2 }],
      ['deviceChange', { id: expected, type: 'video' }],
      ['eventNotify', { eventName: expected, eventBody: expected }],
    ]);
  });
}

test('each event has a payload of its own', async () => {
  const emits = await emitsOf(() => {
    engine.fireMany({ threads: 1, count: 3, notification: 'NotifyMicLevel', args: [1] });
  });
  assert.equal(new Set(emits.map(([, [, payload]]) => payload)).size, 3);
});

// ---- The emitter's "emit"

test('listeners get events through the emitter', async () => {
  const arrives = once(emitter, 'micLevel');
  engine.fire('NotifyMicLevel', 7);
  assert.deepEqual(await arrives, [{ level: 7 }]);
});

test('"emit" is read again for each event', async () => {
  const log = [];
  const done = new Promise((resolve) => {
    emitter.emit = (name, { level }) => {
      log.push(['first', level]);
      emitter.emit = (...second) => {
        log.push(['second', second[1].level]);
        delete emitter.emit;
      };
    };
    emitter.on('micLevel', ({ level }) => {
      log.push(['inherited', level]);
      resolve();
    });
  });
  const args = (_thread, sequence) => [sequence];
  engine.fireMany({ threads: 1, count: 3, notification: 'NotifyMicLevel', args });
  await done;
  assert.deepEqual(log, [
    ['first', 0],
    ['second', 1],
    ['inherited', 2],
  ]);
});

test('"emit" may be a getter, which runs once for each event with the emitter as this', async () => {
  const log = [];
  const done = new Promise((resolve) => {
    Object.defineProperty(emitter, 'emit', {
      configurable: true,
      get() {
        log.push(['get', this]);
        return function emit(...args) {
          log.push(['emit', this, ...args]);
          if (args[1].level === 2) resolve();
        };
      },
    });
  });
  engine.fire('NotifyMicLevel', 1);
  engine.fire('NotifyMicLevel', 2);
  await done;
  assert.deepEqual(log, [
    ['get', emitter],
    ['emit', emitter, 'micLevel', { level: 1 }],
    ['get', emitter],
    ['emit', emitter, 'micLevel', { level: 2 }],
  ]);
});

for (const [what, makeEmitter] of [
  ['an object that inherits it', (emit) => Object.create({ emit })],
  ['a function', (emit) => Object.assign(() => {}, { emit })],
  ['an array', (emit) => Object.assign([], { emit })],
  ['a proxy', (emit) => new Proxy({ emit }, {})],
  ['an object without a prototype', (emit) => Object.assign(Object.create(null), { emit })],
]) {
  test(`the emitter may be ${what}`, async () => {
    const handler = new EventHandler();
    try {
      await new Promise((resolve, reject) => {
        const target = makeEmitter(function emit(...args) {
          try {
            assert.equal(this, target);
            assert.deepEqual(args, ['micLevel', { level: 9 }]);
            resolve();
          } catch (error) {
            reject(error);
          }
        });
        handler.setEmitter(target);
        handler.notifyMicLevel(9);
      });
    } finally {
      handler.close();
    }
  });
}

test('the return value of "emit" is ignored', async () => {
  const looks = [];
  const result = new Proxy(() => {}, {
    get: (_target, name) => looks.push(name),
    apply: () => looks.push('apply'),
    has: (_target, name) => looks.push(name),
  });
  const comes = new Promise((resolve) => {
    emitter.emit = (name, { level }) => {
      if (level === 2) resolve();
      return result;
    };
  });
  engine.fire('NotifyMicLevel', 1);
  engine.fire('NotifyMicLevel', 2);
  await comes;
  assert.deepEqual(looks, []);
});

// ---- Order

const MILLION = 1_000_000;

// Each notification: its event, its arguments by thread and sequence number, and, if the payload
// contains these, a function that reads them.
const STEPS = [
  ['NotifyStreamAdded', 'streamAdded', (t) => [{ kind: t, index: 0 }, 0]],
  [
    ...['NotifyStreamRemoved', 'streamRemoved', (t, s) => [{ kind: 1, index: s }, t]],
    ({ csrc, streamIndex }) => [csrc, streamIndex],
  ],
  [
    ...['NotifyStreamUpdated', 'streamUpdated', (t, s) => [{ kind: 2, index: t }, s]],
    ({ csrc, streamIndex }) => [streamIndex, csrc],
  ],
  [
    ...['NotifyGracefulEvent', 'gracefulEvent', (t, s) => [`${t}-${s}`, true]],
    ({ event }) => event.split('-').map(Number),
  ],
  ['NotifyCallConnectionStatus', 'callConnectionStatus', (t) => [t % 2 === 0]],
  ['NotifyScreenShareStatus', 'screenShareStatus', (t) => [t]],
  [
    ...['NotifyContentReceiveStatus', 'contentReceive', (t, s) => [true, `${t}-${s}`]],
    ({ presenterGuid }) => presenterGuid.split('-').map(Number),
  ],
  [
    ...['NotifyCallDisconnect', 'callDisconnect', (t, s) => [t, 'reason', s]],
    ({ callId, code }) => [callId, code],
  ],
  ['NotifyMediaMuteState', 'mediaMuteState', (t) => [t, true]],
  [
    ...['NotifyMicLevel', 'micLevel', (t, s) => [t * MILLION + s]],
    ({ level }) => [Math.floor(level / MILLION), level % MILLION],
  ],
  ['NotifyRtpMediaState', 'noRtpMedia', (t) => [t, false]],
  [
    ...['NotifyDeviceChange', 'deviceChange', (t, s) => [`${t}-${s}`, 3]],
    ({ id }) => id.split('-').map(Number),
  ],
  [
    ...['NotifyEvent', 'eventNotify', (t, s) => [`${t}`, `${s}`]],
    ({ eventName, eventBody }) => [Number(eventName), Number(eventBody)],
  ],
  [
    ...['NotifyUpdateVOQualityIndex', 'vspUpdateVOQI', (t, s) => [t * MILLION + s]],
    ({ VSPVOQI }) => [Math.floor(VSPVOQI / MILLION), VSPVOQI % MILLION],
  ],
].map(([notification, event, args, origin]) => ({ notification, event, args, origin }));

test('every event of 8 threads arrives once, in the order of its thread', async () => {
  const [threads, rounds] = [8, 40];
  const count = rounds * STEPS.length;
  const stepOf = (sequence) => STEPS[sequence % STEPS.length];
  const events = await eventsOf(() => {
    const sent = engine.fireMany({
      threads,
      count,
      notification: (_thread, sequence) => stepOf(sequence).notification,
      args: (thread, sequence) => stepOf(sequence).args(thread, sequence),
    });
    assert.equal(sent, threads * count);
  });

  for (const { event } of STEPS) {
    assert.equal(events.filter(([name]) => name === event).length, threads * rounds, event);
  }
  assert.equal(events.length, threads * count);
  const arrived = Array.from({ length: threads }, () => []);
  for (const [name, payload] of events) {
    const { origin } = STEPS.find(({ event }) => event === name);
    if (!origin) continue;
    const [thread, sequence] = origin(payload);
    arrived[thread].push(sequence);
  }
  const posted = Array.from({ length: count }, (_, i) => i).filter((i) => stepOf(i).origin);
  for (const sequences of arrived) assert.deepEqual(sequences, posted);
});

test('events that a listener causes arrive after it has returned, in their order', async () => {
  const log = [];
  let depth = 0;
  const done = new Promise((resolve) => {
    emitter.on('micLevel', ({ level }) => {
      assert.equal(depth, 0);
      depth += 1;
      // The engine's threads post while JavaScript runs: nothing is locked.
      if (level < 3) {
        engine.fire('NotifyMicLevel', level * 10);
        engine.fire('NotifyMicLevel', level * 10 + 1);
      }
      log.push(level);
      depth -= 1;
      if (log.length === 6) resolve();
    });
  });
  engine.fire('NotifyMicLevel', 1);
  engine.fire('NotifyMicLevel', 2);
  await done;
  assert.deepEqual(log, [1, 2, 10, 11, 20, 21]);
});

test('a listener may await one event and then the next, even when both were already posted', async () => {
  const received = (async () => {
    const first = await once(emitter, 'callConnectionStatus');
    const second = await once(emitter, 'micLevel');
    const third = await once(emitter, 'callConnectionStatus');
    return [first, second, third];
  })();
  engine.fire('NotifyCallConnectionStatus', true);
  engine.fire('NotifyMicLevel', 5);
  engine.fire('NotifyCallConnectionStatus', false);
  assert.deepEqual(await received, [[{ connected: true }], [{ level: 5 }], [{ connected: false }]]);
});

test('ticks and promises of one event settle before the next event', async () => {
  const log = [];
  const done = new Promise((resolve) => {
    emitter.on('micLevel', ({ level }) => {
      log.push(`event ${level}`);
      Promise.resolve().then(() => log.push(`promise ${level}`));
      process.nextTick(() => {
        log.push(`tick ${level}`);
        queueMicrotask(() => log.push(`microtask of tick ${level}`));
        if (level === 2) setImmediate(resolve);
      });
    });
  });
  engine.fire('NotifyMicLevel', 1);
  engine.fire('NotifyMicLevel', 2);
  await done;
  assert.deepEqual(
    log,
    [1, 2].flatMap((level) => [
      `event ${level}`,
      `tick ${level}`,
      `promise ${level}`,
      `microtask of tick ${level}`,
    ]),
  );
});

test('notifications return while JavaScript is busy and takes no events', async () => {
  const events = await eventsOf(() => {
    const sent = engine.fireMany({
      threads: 4,
      count: 500,
      notification: 'NotifyMicLevel',
      args: [1],
    });
    assert.equal(sent, 2000);
  });
  assert.equal(events.length, 2000);
});

// ---- Errors

const EVENT_MODULES = [
  './support/child.mjs',
  './support/scripted/scripted_engine.mjs',
  './support/make_wrapper.mjs',
];

test('an exception from "emit" is an uncaught exception, and later events arrive', () => {
  const { code, signal, stderr, said } = runInChild(
    ({ say }, scripted, { makeWrapper: make }) => {
      const { wrapper: own, emitter: target } = make(scripted.loadAddon().TesselWrapper);
      const revoked = Proxy.revocable({}, {});
      revoked.revoke();
      const trapped = () => {
        throw new Error('a trap ran');
      };
      const thrown = {
        error: new TypeError('thrown by a listener'),
        undefined,
        null: null,
        number: 42,
        text: 'text',
        symbol: Symbol('symbol'),
        bigint: 1n,
        function: () => {},
        object: {},
        'revoked proxy': revoked.proxy,
        'hostile proxy': new Proxy({}, { has: trapped, get: trapped, getPrototypeOf: trapped }),
        'proxy that has all': new Proxy({}, { has: () => true, get: trapped }),
      };
      const names = Object.keys(thrown);
      process.on('uncaughtException', (error, origin) => {
        const name = names.find((each) => Object.is(thrown[each], error));
        say(`${origin}: ${name}`);
      });
      target.emit = (event, { level }) => {
        if (level < names.length) throw thrown[names[level]];
        say(`${event} ${level}`);
        own.destroy();
      };
      const args = (_thread, sequence) => [sequence];
      const count = names.length + 1;
      scripted.fireMany({ threads: 1, count, notification: 'NotifyMicLevel', args });
      say(`${names.length}`);
    },
    { modules: EVENT_MODULES },
  );
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  assert.deepEqual(
    said,
    [
      '12',
      ...['error', 'undefined', 'null', 'number', 'text', 'symbol', 'bigint', 'function', 'object'],
      ...['revoked proxy', 'hostile proxy', 'proxy that has all', 'micLevel 12'],
    ].map((text, i) => (i === 0 || i === 13 ? text : `uncaughtException: ${text}`)),
  );
});

test('an emitter without a callable "emit" is an uncaught exception for each event', () => {
  const { code, signal, stderr, said } = runInChild(
    ({ say }, scripted, { makeWrapper: make }) => {
      const { wrapper: own, emitter: target } = make(scripted.loadAddon().TesselWrapper);
      const values = [undefined, null, 1, 'emit', {}];
      process.on('uncaughtException', (error) => {
        say(`${error.constructor === TypeError} ${error.message}`);
        target.emit = values.shift();
        if (values.length === 0) own.destroy();
      });
      target.emit = values.shift();
      const count = values.length + 1;
      scripted.fireMany({ threads: 1, count, notification: 'NotifyMicLevel', args: [1] });
    },
    { modules: EVENT_MODULES },
  );
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  assert.deepEqual(said, Array(5).fill('true emitter.emit is not a function'));
});

test('an uncaught exception of a listener has the listener in its stack', () => {
  const { code, signal, stderr, said } = runInChild(
    ({ say }, scripted, { makeWrapper: make }) => {
      const { wrapper: own, emitter: target } = make(scripted.loadAddon().TesselWrapper);
      process.on('uncaughtException', (error) => {
        say(error.stack.split('\n')[0]);
        say(error.stack.split('\n')[1]);
        own.destroy();
      });
      target.on('micLevel', function listenerThatFails() {
        throw new RangeError('from the listener');
      });
      scripted.fire('NotifyMicLevel', 1);
    },
    { modules: EVENT_MODULES },
  );
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  assert.equal(said[0], 'RangeError: from the listener');
  assert.match(said[1], /at .*listenerThatFails/);
});

test('an uncaught exception of a listener ends the process like any other', () => {
  const { code, signal, stderr } = runInChild(
    (_child, scripted, { makeWrapper: make }) => {
      globalThis.live = make(scripted.loadAddon().TesselWrapper);
      globalThis.live.emitter.on('micLevel', () => {
        throw new RangeError('from the listener');
      });
      scripted.fire('NotifyMicLevel', 1);
    },
    { modules: EVENT_MODULES },
  );
  assert.deepEqual({ code, signal }, { code: 1, signal: null });
  assert.match(stderr, /RangeError: from the listener\n {4}at /);
});

test('a listener may end the process', () => {
  const { code, signal, stderr, said } = runInChild(
    ({ say }, scripted, { makeWrapper: make }) => {
      globalThis.live = make(scripted.loadAddon().TesselWrapper);
      globalThis.live.emitter.on('micLevel', ({ level }) => {
        say(`${level}`);
        process.exit(3);
      });
      scripted.fireMany({ threads: 2, count: 100, notification: 'NotifyMicLevel', args: [1] });
    },
    { modules: EVENT_MODULES },
  );
  assert.deepEqual(
    { code, signal, stderr, said },
    { code: 3, signal: null, stderr: '', said: ['1'] },
  );
});

// ---- No emitter, and another one

test('events without an emitter are dropped silently', async () => {
  const handler = new EventHandler();
  try {
    handler.notifyMicLevel(1);
    await handler.delivered();
    const target = { emit: () => {} };
    const emits = noteEmits(target);
    handler.setEmitter(target);
    handler.notifyMicLevel(2);
    await handler.delivered();
    assert.deepEqual(emits, [[target, ['micLevel', { level: 2 }]]]);
  } finally {
    handler.close();
  }
});

test('events go to the emitter that was set last, even those posted before that', async () => {
  const handler = new EventHandler();
  try {
    const [first, second] = [{}, {}];
    const [toFirst, toSecond] = [noteEmits(first), noteEmits(second)];
    handler.setEmitter(first);
    handler.notifyMicLevel(1);
    await handler.delivered();
    handler.notifyMicLevel(2);
    handler.setEmitter(second);
    handler.notifyMicLevel(3);
    await handler.delivered();
    assert.deepEqual(
      toFirst.map(([, args]) => args),
      [['micLevel', { level: 1 }]],
    );
    assert.deepEqual(toSecond, [
      [second, ['micLevel', { level: 2 }]],
      [second, ['micLevel', { level: 3 }]],
    ]);
  } finally {
    handler.close();
  }
});

test('an emitter is not kept alive, and without it events are dropped silently', async () => {
  const handler = new EventHandler();
  try {
    const targets = { first: new EventEmitter(), second: new EventEmitter() };
    const [first, second] = [new WeakRef(targets.first), new WeakRef(targets.second)];
    handler.setEmitter(targets.first);
    handler.setEmitter(targets.second);
    delete targets.first;
    await collectUntil(() => first.deref() === undefined);
    assert.notEqual(second.deref(), undefined);
    delete targets.second;
    await collectUntil(() => second.deref() === undefined);
    handler.notifyMicLevel(1);
    await handler.delivered();

    const third = {};
    const emits = noteEmits(third);
    handler.setEmitter(third);
    handler.notifyMicLevel(2);
    await handler.delivered();
    assert.deepEqual(emits, [[third, ['micLevel', { level: 2 }]]]);
  } finally {
    handler.close();
  }
});

test('the reference to the previous emitter is deleted when another one is set', () => {
  const handler = new EventHandler();
  const referenceBytes = () => getHeapStatistics().used_global_handles_size;
  try {
    const targets = Array.from({ length: 1000 }, () => ({}));
    handler.setEmitter({});
    const before = referenceBytes();
    for (const target of targets) handler.setEmitter(target);
    // Less than one byte for each of them.
    assert.ok(referenceBytes() - before < targets.length, `${before} to ${referenceBytes()} bytes`);
  } finally {
    handler.close();
  }
});

test("two wrappers emit their engines' events on their own emitters", async () => {
  const target = new EventEmitter();
  engine.clearCalls();
  const { wrapper: other } = makeWrapper(TesselWrapper, { emitter: target });
  try {
    const otherEngine = engine.calls()[0].engine;
    const [mine, others] = [noteEmits(emitter), noteEmits(target)];
    const comes = [sentinelComes(emitter), sentinelComes(target)];
    for (const [i, number] of [ownEngine, otherEngine].entries()) {
      engine.selectEngine(number);
      engine.fire('NotifyMicLevel', i);
      fireSentinel();
    }
    await Promise.all(comes);
    assert.deepEqual(mine, [[emitter, ['micLevel', { level: 0 }]]]);
    assert.deepEqual(others, [[target, ['micLevel', { level: 1 }]]]);
  } finally {
    other.destroy();
  }
});

test('the notifications without an event emit nothing', async () => {
  const handler = new EventHandler();
  try {
    const target = {};
    const emits = noteEmits(target);
    handler.setEmitter(target);
    handler.notifyWithoutEffect();
    handler.notifyMicLevel(1);
    await handler.delivered();
    assert.deepEqual(emits, [[target, ['micLevel', { level: 1 }]]]);
  } finally {
    handler.close();
  }
});

test('the stream manager is accepted and not kept', () => {
  const handler = new EventHandler();
  try {
    assert.equal(handler.holdsStreamManager(), false);
  } finally {
    handler.close();
  }
});

// ---- The start

test('waiting for an engine that is ready returns at once, every time', () => {
  const handler = new EventHandler();
  try {
    handler.notifyInitCompleted();
    handler.waitForInitEvent();
    handler.notifyInitCompleted();
    handler.waitForInitEvent();
    handler.waitForInitEvent();
  } finally {
    handler.close();
  }
});

test('waiting for the engine returns when it reports that it is ready', () => {
  const handler = new EventHandler();
  try {
    assert.equal(handler.completesBeforeWaitEnds(), true);
  } finally {
    handler.close();
  }
});

for (const mode of ['inside', 'before-wait', 'later']) {
  test(`a wrapper is made when the engine is ready: ${mode}`, () => {
    const { code, signal, stderr, lines } = runInChild(
      ({ say }, scripted, { makeWrapper: make }) => {
        scripted.setInitialisation(process.argv[1], {
          notifications: [
            ['NotifyMicLevel', 1],
            ['NotifyStreamAdded', { kind: 1, index: 2 }, 3],
          ],
        });
        const target = {
          emit(name, payload) {
            say(`${name} ${JSON.stringify(payload)}`);
            if (name === 'streamAdded') own.destroy();
          },
        };
        const { wrapper: own } = make(scripted.loadAddon().TesselWrapper, { emitter: target });
        say('made');
        globalThis.target = target;
      },
      { modules: EVENT_MODULES, args: [mode] },
    );
    assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });

    const WAITS = 'TesselEventHandler::WaitForInitEvent';
    const COMPLETED = 'TesselEventHandler::NotifyInitCompleted received';
    const handshake = lines.filter((line) => line.startsWith('TesselEventHandler'));
    assert.deepEqual(handshake.toSorted(), [COMPLETED, WAITS]);
    if (mode !== 'later') assert.deepEqual(handshake, [COMPLETED, WAITS]);

    const constructed = lines.findIndex((line) => line.startsWith('TesselWrapper: Pid:'));
    assert.ok(lines.indexOf(WAITS) < constructed);
    assert.ok(lines.indexOf(COMPLETED) < constructed);
    // Events from before the end of construction arrive afterwards.
    assert.deepEqual(lines.slice(constructed + 1, constructed + 4), [
      '> made',
      '> micLevel {"level":1}',
      '> streamAdded {"type":"remote","streamIndex":2,"csrc":3}',
    ]);
  });
}

// ---- Patched globals

const PAYLOAD_PROPERTIES = [
  ...['type', 'streamIndex', 'csrc', 'event', 'enable', 'connected', 'status', 'isReceiving'],
  ...['presenterGuid', 'callId', 'reason', 'code', 'mediaType', 'muted', 'level', 'up', 'id'],
  ...['eventName', 'eventBody', 'VSPVOQI', 'emit'],
];

for (const when of ['after', 'before']) {
  test(`globals patched ${when} a wrapper is made do not change its events`, async () => {
    const patches = { properties: PAYLOAD_PROPERTIES };
    const target = {};
    const make = () => makeWrapper(TesselWrapper, { emitter: target }).wrapper;
    const other = when === 'before' ? withPatchedGlobals(patches, make) : make();
    engine.selectEngine(0);
    engine.fire('NotifyStreamAdded', { kind: 1, index: 3 }, 4);
    engine.fire('NotifyScreenShareStatus', 5);
    engine.fire('NotifyDeviceChange', 'device', 1);
    engine.fire('NotifyCallDisconnect', 1, 'reason', 2);
    engine.fire('NotifyMicLevel', 5);

    const emits = [];
    let resolve;
    const done = new Promise((given) => (resolve = given));
    const restore = patchGlobals(patches);
    defineProperty(target, 'emit', {
      value: (...args) => {
        emits[emits.length] = args;
        if (args[0] !== 'micLevel') return;
        restore();
        resolve();
      },
    });
    await done;
    other.destroy();
    assert.deepEqual(emits, [
      ['streamAdded', { type: 'remote', streamIndex: 3, csrc: 4 }],
      ['screenShareStatus', {}],
      ['deviceChange', { id: 'device', type: 'video' }],
      ['callDisconnect', { callId: 1, reason: 'reason', code: 2 }],
      ['micLevel', { level: 5 }],
    ]);
  });
}
