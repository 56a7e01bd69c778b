// The life of a wrapper: construction, the emitter, subscribing, destroy() and collection.

import assert from 'node:assert/strict';
import { createHook } from 'node:async_hooks';
import { readFileSync } from 'node:fs';
import { afterEach, beforeEach, test } from 'node:test';

import { METHODS } from '../../support/scripted/method_table.mjs';
import {
  EventEmitter,
  PARAMS,
  collect,
  construct,
  engine,
  nextTurn,
} from '../../support/scripted/wrapper_kit.mjs';
import { runInChild } from '../../support/child.mjs';
import { remote } from '../../support/streams.mjs';

const { TesselWrapper } = engine.loadAddon();

let made = [];

function make(options) {
  const wrapper = construct(options);
  made.push(wrapper);
  return wrapper;
}

function makeWithFactory(factory) {
  TesselWrapper._internal_setEmitterFactory(factory);
  const wrapper = new TesselWrapper(PARAMS);
  made.push(wrapper);
  return wrapper;
}

beforeEach(() => engine.reset());

afterEach(() => {
  engine.reset();
  for (const wrapper of made) wrapper.destroy();
  made = [];
});

// Whatever `work` throws, also where that is no Error.
function thrownBy(work) {
  try {
    work();
  } catch (thrown) {
    return thrown;
  }
  return assert.fail('nothing was thrown');
}

function assertPlainError(error, message) {
  assert.equal(Object.getPrototypeOf(error), Error.prototype);
  assert.equal(error.message, message);
}

// ---- What a process prints

const KIT = ['./support/scripted/wrapper_kit.mjs'];

// A child that ended by itself.
function run(script, ...args) {
  const child = runInChild(script, { modules: KIT, args: args.map((arg) => JSON.stringify(arg)) });
  const { code, signal, stderr } = child;
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  return child;
}

const PARAM_LINES = [
  'TesselWrapper::TesselWrapper Params params.szAppVersion: 1.2.3',
  'TesselWrapper::TesselWrapper Params params.szConfigPath: /etc/tessel',
  'TesselWrapper::TesselWrapper Params params.szLogPath: /var/log/tessel',
  'TesselWrapper::TesselWrapper Params params.szLogPrefix: client',
  'TesselWrapper::TesselWrapper Params params.szUserAgent: Agent/4.5',
];
const SHARED_MEMORY = 'CreateSharedMemoryManager';
const COMPLETED = 'TesselEventHandler::NotifyInitCompleted received';
const WAITING = 'TesselEventHandler::WaitForInitEvent';
const LIVE = 'TesselWrapper: Pid:<pid>, obj:<address>';
const DESTROYED = 'TesselWrapper::destroy: <address>';
const COLLECTED = '~TesselWrapper: Pid:<pid>, obj:<address>';

// The lines with what differs from run to run left out, and of the shared memory only the beginning
// of its set-up.
function course({ lines }) {
  return lines
    .filter((line) => !/^(initialize|~?SharedMemory|lockDataAccess)/.test(line))
    .map((line) =>
      line
        .replace(/^(CreateSharedMemoryManager): .*/, '$1')
        .replace(/Pid:[0-9a-f]+/, 'Pid:<pid>')
        .replace(/0x[0-9a-f]+/, '<address>'),
    );
}

// ---- The argument of the constructor

const without = (name) =>
  Object.fromEntries(Object.entries(PARAMS).filter(([key]) => key !== name));

const BAD_ARGUMENTS = [
  [[], 'Wrong number of arguments, expected 1'],
  ...[undefined, null, 'x', 1, true, 1n].map((argument) => [
    [argument, PARAMS],
    'Wrong argument type for argument 0, expected Object',
  ]),
  [[{}], 'Missing property appVersion on object CreateParams'],
  ...Object.keys(PARAMS).flatMap((name) => [
    [[without(name)], `Missing property ${name} on object CreateParams`],
    ...[undefined, null, 5, true, {}, ['x']].map((value) => [
      [{ ...PARAMS, [name]: value }],
      `Wrong type for property ${name} on object CreateParams, expected String`,
    ]),
  ]),
  // What is read first decides.
  ...[
    ['appVersion', 'configPath'],
    ['configPath', 'logPath'],
    ['logPath', 'logPrefix'],
    ['logPrefix', 'userAgent'],
  ].map(([first, second]) => [
    [{ ...without(first), [second]: 5 }],
    `Missing property ${first} on object CreateParams`,
  ]),
];

test('a missing or invalid argument throws before the engine is created', () => {
  construct().destroy();
  engine.clearCalls();
  for (const [args, message] of BAD_ARGUMENTS) {
    assert.throws(() => new TesselWrapper(...args), { name: 'TypeError', message });
  }
  assert.throws(() => new TesselWrapper(Symbol('params')), {
    name: 'TypeError',
    message: 'Wrong argument type for argument 0, expected Object',
  });
  assert.throws(() => new TesselWrapper({ ...PARAMS, userAgent: new String('agent') }), {
    name: 'TypeError',
    message: 'Wrong type for property userAgent on object CreateParams, expected String',
  });
  assert.deepEqual(engine.calls(), []);
});

test('a missing or invalid argument prints nothing', () => {
  const { lines } = run(
    ({ engine, say }) => {
      const { TesselWrapper } = engine.loadAddon();
      for (const args of JSON.parse(process.argv[1])) {
        try {
          new TesselWrapper(...args);
        } catch ({ message }) {
          say(message);
        }
      }
      say(`engine calls: ${engine.operations()}`);
    },
    [[], ['x'], [without('appVersion')], [{ ...PARAMS, userAgent: 5 }]],
  );
  assert.deepEqual(lines, [
    '> Wrong number of arguments, expected 1',
    '> Wrong argument type for argument 0, expected Object',
    '> Missing property appVersion on object CreateParams',
    '> Wrong type for property userAgent on object CreateParams, expected String',
    '> engine calls: ',
  ]);
});

// An argument that logs what is done to it.
function logged(params, log) {
  return new Proxy(params, {
    has(target, key) {
      log.push(['has', key]);
      return Reflect.has(target, key);
    },
    get(target, key) {
      log.push(['get', key]);
      return Reflect.get(target, key);
    },
  });
}

const READS = ['appVersion', 'configPath', 'logPath', 'logPrefix', 'userAgent'].flatMap((name) => [
  ['has', name],
  ['get', name],
  ['get', name],
]);

test('each property is asked for and read twice, in order, and no other is', () => {
  const log = [];
  make({ params: logged(PARAMS, log) });
  assert.deepEqual(log, READS);
});

test('reading stops at the first property that is missing or invalid', () => {
  construct().destroy();
  const log = [];
  assert.throws(() => new TesselWrapper(logged(without('logPath'), log)));
  assert.deepEqual(log, READS.slice(0, 7));
  log.length = 0;
  assert.throws(() => new TesselWrapper(logged({ ...PARAMS, logPath: 5 }, log)));
  assert.deepEqual(log, READS.slice(0, 8));
});

const createParams = () =>
  engine.calls().find(({ operation }) => operation === 'CreateTSLMManager').args.params;

test('the engine gets the five strings, each in its field', () => {
  make();
  assert.deepEqual(createParams(), {
    szUserAgent: 'Agent/4.5',
    szAppVersion: '1.2.3',
    szConfigPath: '/etc/tessel',
    szLogPath: '/var/log/tessel',
    szLogPrefix: 'client',
  });
});

test('the strings are UTF-8, may be empty and are not used as format strings', () => {
  const params = { ...PARAMS, appVersion: '', configPath: '/größe/🎥', logPath: '%s%n%d' };
  make({ params });
  const { szAppVersion, szConfigPath, szLogPath } = createParams();
  assert.deepEqual([szAppVersion, szConfigPath, szLogPath], ['', '/größe/🎥', '%s%n%d']);
  const { lines } = run(
    ({ construct }) => construct({ params: JSON.parse(process.argv[1]) }).destroy(),
    params,
  );
  assert.deepEqual(lines.slice(0, 3), [
    'TesselWrapper::TesselWrapper Params params.szAppVersion: ',
    'TesselWrapper::TesselWrapper Params params.szConfigPath: /größe/🎥',
    'TesselWrapper::TesselWrapper Params params.szLogPath: %s%n%d',
  ]);
});

test('a string with a NUL is printed up to the NUL, and reaches the engine whole', () => {
  const params = { ...PARAMS, appVersion: '1.2\0.3' };
  make({ params });
  assert.equal(createParams().szAppVersion, '1.2\0.3');
  const { lines } = run(({ construct, PARAMS: given }) => {
    construct({ params: { ...given, appVersion: '1.2\0.3' } }).destroy();
  });
  assert.equal(lines[0], 'TesselWrapper::TesselWrapper Params params.szAppVersion: 1.2');
});

test('functions and arrays are accepted, with inherited properties, and further arguments are ignored', () => {
  const { destroy } = TesselWrapper.prototype;
  make();
  for (const args of [
    [Object.assign(() => {}, PARAMS)],
    [Object.assign([], PARAMS)],
    [Object.create(PARAMS), 'more'],
  ]) {
    engine.clearCalls();
    destroy.call(new TesselWrapper(...args));
    assert.equal(createParams().szLogPrefix, 'client');
  }
});

test('the second read of a property supplies its value', () => {
  let read = 0;
  const params = {
    ...PARAMS,
    get logPath() {
      return `reading ${++read}`;
    },
  };
  make({ params });
  assert.equal(createParams().szLogPath, 'reading 2');
});

test('a property that is not a string on the second read throws a plain Error', () => {
  construct().destroy();
  engine.clearCalls();
  let read = 0;
  const params = {
    ...PARAMS,
    get logPath() {
      return ++read === 1 ? 'text' : 5;
    },
  };
  assertPlainError(
    thrownBy(() => new TesselWrapper(params)),
    'A string was expected',
  );
  assert.deepEqual(engine.calls(), []);
});

// What applications throw.
const THROWN = [new RangeError('mine'), 'text', 5, null, undefined, Symbol('mine'), { own: true }];

test('the constructor throws what the argument throws while it is read', () => {
  construct().destroy();
  engine.clearCalls();
  for (const thrown of THROWN) {
    const fail = () => {
      throw thrown;
    };
    const throwing = [
      new Proxy(PARAMS, { has: fail }),
      new Proxy(PARAMS, { get: fail }),
      Object.defineProperty({ ...PARAMS }, 'userAgent', { get: fail }),
    ];
    for (const params of throwing) {
      assert.equal(
        thrownBy(() => new TesselWrapper(params)),
        thrown,
      );
    }
  }
  assert.deepEqual(engine.calls(), []);
});

// ---- The order of construction

test('the engine is created, given a callback and initialised, all on the JavaScript thread', () => {
  make();
  const calls = engine.calls();
  assert.deepEqual(
    calls.map(({ operation, onJsThread }) => [operation, onJsThread]),
    [
      ['CreateTSLMManager', true],
      ['RegisterNotifyCallback', true],
      ['Initialize', true],
    ],
  );
  assert.deepEqual(calls[1].args, { callback: true });
  assert.equal(new Set(calls.map(({ engine: number }) => number)).size, 1);
});

for (const [mode, handshake] of [
  ['inside', [COMPLETED, WAITING]],
  ['before-wait', [COMPLETED, WAITING]],
  ['when-waiting', [WAITING, COMPLETED]],
  // The engine's thread and the waiting one print when they get to it.
  ['later', null],
]) {
  test(`a construction prints its lines in order when the engine is ready '${mode}'`, () => {
    const child = run(({ EventEmitter, PARAMS, engine, say }) => {
      engine.setInitialisation(JSON.parse(process.argv[1]));
      const { TesselWrapper } = engine.loadAddon();
      TesselWrapper._internal_setEmitterFactory(() => {
        say(`factory, after ${engine.operations().join(', ')}`);
        return new EventEmitter();
      });
      const wrapper = new TesselWrapper(PARAMS);
      say('constructed');
      wrapper.destroy();
    }, mode);
    const lines = course(child);
    assert.deepEqual(lines.slice(0, 6), [...PARAM_LINES, SHARED_MEMORY]);
    if (handshake) assert.deepEqual(lines.slice(6, 8), handshake);
    else assert.deepEqual(lines.slice(6, 8).sort(), [COMPLETED, WAITING].sort());
    assert.deepEqual(lines.slice(8, 12), [
      '> factory, after CreateTSLMManager, RegisterNotifyCallback, Initialize',
      LIVE,
      '> constructed',
      DESTROYED,
    ]);
  });

  test(`notifications from before the engine was ready '${mode}' are delivered after the constructor has returned`, async () => {
    const log = [];
    engine.setInitialisation(mode, {
      notifications: [
        ['NotifyMicLevel', 1],
        ['NotifyMicLevel', 2],
      ],
    });
    make({ emitter: { emit: (name, { level }) => log.push(`${name} ${level}`) } });
    log.push('constructed');
    await nextTurn();
    assert.deepEqual(log, ['constructed', 'micLevel 1', 'micLevel 2']);
  });
}

test('when a step of construction fails, the engine is deleted and the process ends', () => {
  const created = ['CreateTSLMManager'];
  const registered = [...created, 'RegisterNotifyCallback'];
  const initialised = [...registered, 'Initialize'];
  const noLuck = [{ throws: 'no luck' }, 'Error: no luck'];
  const noException = [{ throwsInt: true }, 'Error: A native exception was thrown'];
  const noEngine = [{ returnsNull: true }, 'Error: The engine library made no engine'];
  for (const [[failure, error], operations, lines] of [
    [noLuck, created, PARAM_LINES],
    [noException, created, PARAM_LINES],
    [noEngine, created, PARAM_LINES],
    [noLuck, registered, PARAM_LINES],
    [noException, registered, PARAM_LINES],
    [noLuck, initialised, [...PARAM_LINES, SHARED_MEMORY]],
    [noException, initialised, [...PARAM_LINES, SHARED_MEMORY]],
  ]) {
    const child = run(
      async ({ construct, collect, engine, say }) => {
        const [operation, failure] = process.argv.slice(1).map(JSON.parse);
        engine.failOperation(operation, failure);
        try {
          construct();
        } catch (error) {
          say(error);
        }
        say(engine.operations().join(', '));
        say(`${engine.live().engines} engines`);
        await collect();
      },
      operations.at(-1),
      failure,
    );
    const deleted = operations === created ? [] : ['~TSLMManager'];
    assert.deepEqual(course(child), [
      ...lines,
      `> ${error}`,
      `> ${[...operations, ...deleted].join(', ')}`,
      '> 0 engines',
    ]);
  }
});

test('the channel to the event loop is created before the engine', (t) => {
  const seen = [];
  const hook = createHook({
    init(_id, type) {
      if (type === 'TesselWrapper') seen.push(engine.operations());
    },
  });
  hook.enable();
  t.after(() => hook.disable());
  make();
  // One for each of the two channels.
  assert.deepEqual(seen, [[], []]);
  assert.equal(engine.operations()[0], 'CreateTSLMManager');
});

// ---- The emitter factory

test('the emitter factory must be a function', () => {
  for (const args of [[], [42], [undefined], [null], ['x'], [{}], [[]], [42, () => {}]]) {
    assert.throws(() => TesselWrapper._internal_setEmitterFactory(...args), {
      name: 'TypeError',
      message: 'Wrong argument type for argument 1, expected Function',
    });
  }
});

test('a refused factory does not replace the present one', () => {
  const emitter = new EventEmitter();
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  assert.throws(() => TesselWrapper._internal_setEmitterFactory(42));
  const wrapper = new TesselWrapper(PARAMS);
  made.push(wrapper);
  wrapper.on('micLevel', () => {});
  assert.equal(emitter.listenerCount('micLevel'), 1);
});

test('the factory is called once for each wrapper, with this undefined and no arguments', () => {
  const emitter = new EventEmitter();
  const calls = [];
  function factory(...args) {
    calls.push([this, args]);
    return emitter;
  }
  makeWithFactory(factory);
  assert.deepEqual(calls, [[undefined, []]]);
  made.push(new TesselWrapper(PARAMS));
  assert.deepEqual(calls, [
    [undefined, []],
    [undefined, []],
  ]);
});

test('a new factory applies to later wrappers only', async () => {
  const log = [];
  const emitterNamed = (emitter) => ({
    on: (event) => log.push(`${emitter} on ${event}`),
    emit: (event) => log.push(`${emitter} emit ${event}`),
  });
  const [first, second] = [emitterNamed('first'), emitterNamed('second')];
  const ofFirst = makeWithFactory(() => first);
  engine.fire('NotifyMicLevel', 1);
  const ofSecond = makeWithFactory(() => second);
  engine.fire('NotifyMicLevel', 2);
  ofFirst.on('a', () => {});
  ofSecond.on('b', () => {});
  await nextTurn();
  assert.deepEqual(log, [
    'first on a',
    'second on b',
    'first emit micLevel',
    'second emit micLevel',
  ]);
});

test('without a factory the constructor throws once the engine is ready, and the engine is deleted', () => {
  const child = run(async ({ PARAMS, collect, engine, say }) => {
    const { TesselWrapper } = engine.loadAddon();
    try {
      new TesselWrapper(PARAMS);
    } catch (error) {
      say(error);
      say(Object.getPrototypeOf(error) === Error.prototype);
    }
    say(engine.operations().join(', '));
    await collect();
  });
  assert.deepEqual(course(child), [
    ...PARAM_LINES,
    SHARED_MEMORY,
    COMPLETED,
    WAITING,
    '> Error: No emitter factory: call TesselWrapper._internal_setEmitterFactory first',
    '> true',
    '> CreateTSLMManager, RegisterNotifyCallback, Initialize, ~TSLMManager',
  ]);
});

test('the constructor throws what the factory throws', async () => {
  for (const thrown of THROWN) {
    engine.clearCalls();
    TesselWrapper._internal_setEmitterFactory(() => {
      throw thrown;
    });
    assert.equal(
      thrownBy(() => new TesselWrapper(PARAMS)),
      thrown,
    );
    assert.deepEqual(engine.operations(), [
      'CreateTSLMManager',
      'RegisterNotifyCallback',
      'Initialize',
      '~TSLMManager',
    ]);
  }
  await collect();
  assert.equal(engine.live().engines, 0);
});

test('a factory that returns no object makes the constructor throw a plain Error', () => {
  for (const value of [undefined, null, 5, 'text', true, 5n, Symbol('none'), Symbol.iterator]) {
    TesselWrapper._internal_setEmitterFactory(() => value);
    assertPlainError(
      thrownBy(() => new TesselWrapper(PARAMS)),
      'Invalid argument',
    );
  }
  assert.equal(engine.live().engines, 0);
});

test('any object can be the emitter', async () => {
  const log = [];
  const members = {
    on: (event) => log.push(event),
    emit: (event, { level }) => log.push(`${event} ${level}`),
  };
  const objects = [
    Object.assign(() => {}, members),
    Object.assign([], members),
    Object.assign(Object.create(null), members),
    Object.create(members),
    new Proxy(members, {}),
  ];
  for (const [level, object] of objects.entries()) {
    log.length = 0;
    makeWithFactory(() => object).on('event', () => {});
    engine.fire('NotifyMicLevel', level);
    await nextTurn();
    assert.deepEqual(log, ['event', `micLevel ${level}`]);
  }
});

// ---- Subscribing

test('on checks its arguments in order', () => {
  const emitter = {
    get on() {
      return assert.fail('the emitter was asked');
    },
  };
  const wrapper = make({ emitter });
  const listener = () => {};
  for (const [args, message] of [
    [[], 'Wrong number of arguments, expected 2'],
    [['x'], 'Wrong number of arguments, expected 2'],
    [[1], 'Wrong number of arguments, expected 2'],
    ...[undefined, null, 1, Symbol('x'), {}, new String('x')].flatMap((name) => [
      [[name, listener], 'Wrong argument type for argument 0, expected String'],
      [[name, 1], 'Wrong argument type for argument 0, expected String'],
    ]),
    ...[undefined, null, 1, 'x', {}].map((wrong) => [
      ['x', wrong],
      'Wrong argument type for argument 2, expected Function',
    ]),
  ]) {
    assert.throws(() => wrapper.on(...args), { name: 'TypeError', message });
  }
});

test("on calls the emitter's own on with the name and the listener, and returns nothing", () => {
  const calls = [];
  const emitter = {
    on(...args) {
      calls.push([this, args]);
      return 'dropped';
    },
  };
  const wrapper = make({ emitter });
  const listener = () => {};
  assert.equal(wrapper.on('x', listener, 'more'), undefined);
  const [[receiver, args]] = calls;
  assert.equal(calls.length, 1);
  assert.equal(receiver, emitter);
  assert.equal(args.length, 2);
  assert.equal(args[0], 'x');
  assert.equal(args[1], listener);
});

test('on reads the method of the emitter at every call', () => {
  const log = [];
  const emitter = { on: () => log.push('first') };
  const wrapper = make({ emitter });
  wrapper.on('x', () => {});
  emitter.on = () => log.push('second');
  wrapper.on('x', () => {});
  assert.deepEqual(log, ['first', 'second']);
});

test('names of events are converted through UTF-8', () => {
  const names = [];
  const wrapper = make({ emitter: { on: (name) => names.push(name) } });
  const given = ['', 'größe', '視聴 🎥', 'nul\0inside', 'x'.repeat(100_000), 'half \ud83c'];
  for (const name of given) wrapper.on(name, () => {});
  assert.deepEqual(names, [...given.slice(0, -1), 'half \ufffd']);
});

test("on throws what the emitter's on throws", () => {
  for (const thrown of THROWN) {
    const fail = () => {
      throw thrown;
    };
    for (const emitter of [{ on: fail }, Object.defineProperty({}, 'on', { get: fail })]) {
      const wrapper = make({ emitter });
      assert.equal(
        thrownBy(() => wrapper.on('x', () => {})),
        thrown,
      );
    }
  }
});

test('on throws a plain Error when the emitter has no method of that name', () => {
  for (const emitter of [{}, { on: 5 }]) {
    const wrapper = make({ emitter });
    assertPlainError(
      thrownBy(() => wrapper.on('x', () => {})),
      'Invalid argument',
    );
  }
});

test('the emitter alone keeps the subscriptions', async () => {
  const emitter = new EventEmitter();
  const wrapper = make({ emitter });
  const log = [];
  wrapper.on('micLevel', ({ level }) => log.push(level));
  engine.fire('NotifyMicLevel', 1);
  await nextTurn();
  emitter.removeAllListeners();
  engine.fire('NotifyMicLevel', 2);
  await nextTurn();
  assert.deepEqual(log, [1]);
});

test('after the emitter was collected, events are dropped silently and on throws', async () => {
  let emitter;
  const wrapper = makeWithFactory(() => {
    const fresh = new EventEmitter();
    fresh.emit = () => assert.fail('an event was emitted');
    emitter = new WeakRef(fresh);
    return fresh;
  });
  await collect();
  assert.equal(emitter.deref(), undefined);
  engine.fire('NotifyMicLevel', 1);
  await nextTurn();
  assertPlainError(
    thrownBy(() => wrapper.on('x', () => {})),
    'The event emitter was garbage-collected',
  );
});

test('an emitter that JavaScript keeps still gets its events after a garbage collection', async () => {
  const emitter = new EventEmitter();
  const log = [];
  const wrapper = make({ emitter });
  wrapper.on('micLevel', ({ level }) => log.push(level));
  await collect();
  engine.fire('NotifyMicLevel', 1);
  await nextTurn();
  assert.deepEqual(log, [1]);
});

// ---- destroy()

test('destroy calls DeInitialize, then DestroyTSLMManager, and returns nothing', () => {
  const wrapper = make();
  engine.clearCalls();
  assert.equal(wrapper.destroy('ignored'), undefined);
  assert.deepEqual(engine.calls(), [
    { operation: 'DeInitialize', args: {} },
    { operation: 'DestroyTSLMManager', args: {} },
  ]);
  assert.equal(wrapper.destroy(), undefined);
  assert.deepEqual(engine.operations(), [
    ...['DeInitialize', 'DestroyTSLMManager'],
    ...['DeInitialize', 'DestroyTSLMManager'],
  ]);
  assert.equal(
    engine.calls().every(({ onJsThread }) => onJsThread),
    true,
  );
});

test('every method reaches the engine after destroy as it did before', () => {
  const operationsOf = (wrapper) => {
    engine.clearCalls();
    for (const { name, args } of METHODS) wrapper[name](...args);
    return engine.operations();
  };
  const wrapper = make();
  wrapper.destroy();
  engine.setStream({ type: 'remote', streamIndex: 3 });
  const afterDestroy = operationsOf(wrapper);
  const before = operationsOf(make());
  assert.deepEqual(afterDestroy, before);
  assert.equal(afterDestroy.includes('ConnectCall'), true);
});

test('queued and later events arrive after destroy', async () => {
  const emitter = new EventEmitter();
  const levels = [];
  const wrapper = make({ emitter });
  wrapper.on('micLevel', ({ level }) => levels.push(level));
  engine.fire('NotifyMicLevel', 1);
  wrapper.destroy();
  engine.fire('NotifyMicLevel', 2);
  await nextTurn();
  engine.fire('NotifyMicLevel', 3);
  await nextTurn();
  assert.deepEqual(levels, [1, 2, 3]);
});

test('destroy throws when the engine fails to shut down, and the process can end', () => {
  for (const [operation, operations] of [
    ['DeInitialize', ['DeInitialize']],
    ['DestroyTSLMManager', ['DeInitialize', 'DestroyTSLMManager']],
  ]) {
    for (const [failure, error] of [
      [{ throws: 'no luck' }, 'Error: no luck'],
      [{ throwsInt: true }, 'Error: A native exception was thrown'],
    ]) {
      const child = run(
        ({ construct, engine, say }) => {
          globalThis.wrapper = construct();
          engine.clearCalls();
          const [operation, failure] = process.argv.slice(1).map(JSON.parse);
          engine.failOperation(operation, failure);
          try {
            globalThis.wrapper.destroy();
          } catch (error) {
            say(error);
          }
          say(engine.operations().join(', '));
        },
        operation,
        failure,
      );
      assert.deepEqual(child.said, [error, operations.join(', ')]);
      assert.equal(course(child).includes(DESTROYED), false);
    }
  }
});

// ---- Process ids and addresses

test('the lines of a wrapper have its address, and the process id once in decimal, then in hexadecimal', () => {
  const { lines, pid } = run(async ({ construct, collect }) => {
    const live = () => {
      const wrappers = [construct(), construct(), construct()];
      for (const wrapper of wrappers) wrapper.destroy();
      wrappers[1].destroy();
    };
    live();
    await collect();
    construct().destroy();
  });
  const ofWrappers = lines.filter((line) =>
    /^(~?TesselWrapper: |TesselWrapper::destroy)/.test(line),
  );
  const hexadecimal = pid.toString(16);
  const constructed = ofWrappers.slice(0, 3);
  const [a, b, c] = constructed.map((line) => line.match(/obj:(0x[0-9a-f]+)$/)[1]);
  assert.equal(new Set([a, b, c]).size, 3);
  assert.deepEqual(constructed, [
    `TesselWrapper: Pid:${pid}, obj:${a}`,
    `TesselWrapper: Pid:${hexadecimal}, obj:${b}`,
    `TesselWrapper: Pid:${hexadecimal}, obj:${c}`,
  ]);
  assert.deepEqual(
    ofWrappers.slice(3, 7),
    [a, b, c, b].map((address) => `TesselWrapper::destroy: ${address}`),
  );
  assert.deepEqual(
    ofWrappers.slice(7, 10).sort(),
    [a, b, c].map((address) => `~TesselWrapper: Pid:${hexadecimal}, obj:${address}`).sort(),
  );
  assert.match(ofWrappers[10], new RegExp(`^TesselWrapper: Pid:${hexadecimal}, obj:0x`));
});

// ---- Collection

test('a wrapper that is collected without destroy only has its engine deleted', () => {
  const child = run(async ({ construct, collect, engine, say }) => {
    construct();
    engine.clearCalls();
    await collect();
    say(engine.operations().join(', '));
    say(`${engine.live().engines} engines`);
  });
  assert.deepEqual(course(child).slice(-4), [LIVE, COLLECTED, '> ~TSLMManager', '> 0 engines']);
});

test('a collected wrapper prints its line before it releases the shared memory', () => {
  const { lines } = run(async ({ construct, collect }) => {
    construct();
    await collect();
  });
  const ends = lines.filter((line) => line.startsWith('~')).map((line) => line.split(':')[0]);
  assert.deepEqual(ends, ['~TesselWrapper', '~SharedMemoryAllocator']);
});

test('at the end of its process a wrapper prints its line before it releases the shared memory', () => {
  const { lines } = run(({ construct }) => construct().destroy());
  const ends = lines.filter((line) => line.startsWith('~')).map((line) => line.split(':')[0]);
  assert.deepEqual(ends, ['~TesselWrapper', '~SharedMemoryAllocator']);
});

test('a wrapper whose construction failed is not finalised', () => {
  const { lines, said } = run(async ({ PARAMS, collect, engine, say }) => {
    const { TesselWrapper } = engine.loadAddon();
    for (const params of [PARAMS, {}]) {
      try {
        new TesselWrapper(params);
      } catch (error) {
        say(error.name);
      }
    }
    await collect();
    say(engine.operations().filter((operation) => operation === '~TSLMManager'));
  });
  assert.deepEqual(said, ['Error', 'TypeError', '~TSLMManager']);
  assert.deepEqual(
    lines.filter((line) => line.startsWith('~')).map((line) => line.split(':')[0]),
    ['~SharedMemoryAllocator'],
  );
});

// Constructs, and holds nothing but the emitter.
function constructAndLose(emitter) {
  construct({ emitter });
}

test('a wrapper is collected while its emitter and listeners stay alive', async () => {
  const emitter = new EventEmitter();
  const wrapper = (() => {
    const lost = construct({ emitter });
    lost.on('micLevel', () => {});
    return new WeakRef(lost);
  })();
  await collect();
  assert.equal(wrapper.deref(), undefined);
  assert.equal(engine.live().engines, 0);
});

test('notifications after the wrapper was collected are dropped', async () => {
  const emitter = { emit: () => assert.fail('an event was emitted') };
  constructAndLose(emitter);
  await collect();
  assert.equal(engine.live().engines, 0);
  engine.fire('NotifyMicLevel', 1);
  engine.fire('NotifyEvent', 'name', 'body');
  await nextTurn();
});

// Constructs a wrapper that lends a frame and has a stream in widget mode, loses it, and answers with
// the frame.
function useAndLose(stream) {
  const wrapper = construct();
  engine.setFrame(stream, { width: 64, height: 36, frameId: 1, fresh: true });
  wrapper.enterWidgetMode(stream);
  return wrapper.getFrame(stream, 0);
}

test('a wrapper releases its segments, its handler, its streams and its engine in this order', async () => {
  const stream = remote(3);
  engine.setStream(stream, { keepsReceiver: true });
  const seen = engine.watchCalls((operation) => {
    if (operation !== '~TSLMManager') return undefined;
    return {
      ownersOfReceiver: engine.receiverOwners(stream),
      ownersOfHandler: engine.callbackOwners(engine.calls()[0].engine),
      lentBytes: frame.yPlaneBuffer.length,
    };
  });
  const frame = useAndLose(stream);
  assert.equal(frame.yPlaneBuffer.length, 64 * 36);
  await collect();
  // The engine holds the receiver and the handler, and is the last one that does.
  assert.deepEqual(seen, [{ ownersOfReceiver: 1, ownersOfHandler: 1, lentBytes: 0 }]);
});

test('a collected wrapper leaves nothing in shared memory, even when the engine holds its receiver', async () => {
  const segments = () => readFileSync('/proc/self/maps', 'latin1').match(/\/dev\/shm\/S[HE]M\w+/g);
  const stream = remote(3);
  engine.setStream(stream, { keepsReceiver: true });
  useAndLose(stream);
  assert.equal(new Set(segments()).size, 2);
  await collect();
  assert.equal(engine.receiverOwners(stream), 1);
  assert.equal(segments(), null);
  // What the engine goes on delivering is dropped.
  assert.ok(engine.pushFrame(stream, { width: 64, height: 36 }));
});

for (const onEngineThread of [true, false]) {
  const thread = onEngineThread ? 'an engine thread' : 'the JavaScript thread';
  test(`the engine may release the handler last, on ${thread}`, async () => {
    constructAndLose(new EventEmitter());
    await collect();
    assert.equal(engine.live().engines, 0);
    engine.dropCallback({ onEngineThread });
  });

  test(`the engine may release the handler first, on ${thread}`, async () => {
    const emitter = new EventEmitter();
    const levels = [];
    constructAndLose(emitter);
    emitter.on('micLevel', ({ level }) => levels.push(level));
    engine.fire('NotifyMicLevel', 1);
    engine.dropCallback({ onEngineThread });
    await nextTurn();
    assert.deepEqual(levels, [1]);
    await collect();
    assert.equal(engine.live().engines, 0);
  });
}

test('a wrapper may be collected while engine threads send notifications', async () => {
  constructAndLose(new EventEmitter());
  const posting = engine.fireManyAsync({
    threads: 2,
    count: 20_000,
    notification: 'NotifyEvent',
    args: ['name', 'body'],
  });
  await collect();
  assert.equal(engine.live().engines, 0);
  assert.equal(posting.join(), 40_000);
});
