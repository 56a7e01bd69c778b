// Arguments of every kind, on every method and constructor of both classes.

import assert from 'node:assert/strict';

import {
  EventEmitter,
  PARAMS,
  collect,
  collectGarbage,
  construct,
  engine,
} from '../../js/fixtures/wrapper_kit.mjs';
import { goodArguments } from '../../js/support/wrapper.mjs';

const { TesselWrapper, TesselWrapperProxy } = engine.loadAddon();

// What the system throws, and Node.js for it.
const ERRORS = [
  /^Wrong number of arguments, expected \d+$/,
  /^Wrong argument type for argument \d+, expected \w+$/,
  /^Missing property \w+ on object \w*$/,
  /^Wrong type for property \w+ on object \w*, expected \w+$/,
  /^Invalid value for type \w+, expected [\w|]+$/,
  /^Video(StreamInfos|OccupancyConstraints) object (is )?(missing|not an Array)$/i,
  /^VideoOccupancyConstraintValue object is not an Array$/i,
  // Node-API's own.
  /^An? \w+ was expected$/,
  /^Invalid argument$/,
  // JavaScript's own.
  /^Illegal invocation$/,
  /^Class constructors cannot be invoked without 'new'$/,
  /^Cannot convert undefined or null to object$/,
  /^Cannot perform '\w+' on a proxy that has been revoked$/,
  /^'\w+' on proxy: /,
];

const calls = { made: 0, refused: 0, passed: 0 };

// ---- Values

// What a getter, a trap or a function given by the trial throws.
class OwnThrow extends Error {}
const throwOwn = () => {
  throw new OwnThrow('own');
};

const revoked = () => {
  const { proxy, revoke } = Proxy.revocable({}, {});
  revoke();
  return proxy;
};

// A Proxy whose traps answer, throw, or lie.
function trapped(target, random) {
  const trap =
    (operation) =>
    (inner, ...rest) => {
      if (random.chance(0.05)) throwOwn();
      if (random.chance(0.05)) return random.of([undefined, null, true, false, 5, 'text', {}]);
      if (random.chance(0.01)) collectGarbage();
      return Reflect[operation](inner, ...rest);
    };
  return new Proxy(target, {
    get: trap('get'),
    has: trap('has'),
    getOwnPropertyDescriptor: (inner, key) => Reflect.getOwnPropertyDescriptor(inner, key),
    ownKeys: trap('ownKeys'),
    getPrototypeOf: trap('getPrototypeOf'),
  });
}

const PRIMITIVES = [
  ...[undefined, null, true, false, 0, -0, 1, -1, 0.5, NaN, Infinity, -Infinity],
  ...[2 ** 31, -(2 ** 31) - 1, 2 ** 32, 2 ** 53, 1e300, 5n, -(2n ** 70n), Symbol('symbol')],
  ...['', 'text', 'remote', 'local', 'content', 'screen', '\0', '\ud800', 'é€😀', '%s%n%p'],
];

const MAKERS = [
  (random) => random.of(PRIMITIVES),
  (random) => random.of(PRIMITIVES),
  () => 'x'.repeat(100_000),
  () => ({}),
  () => [],
  () => Object.create(null),
  () => new Array(2 ** 32 - 1),
  () => new Array(1000).fill('text'),
  () => Array.from({ length: 1000 }, () => ({})),
  () => new Uint8Array(10),
  () => new Date(),
  () => new Map(),
  () => Object(5),
  () => Object('text'),
  () => Promise.resolve(),
  () => () => {},
  () => throwOwn,
  () => class {},
  () => revoked(),
  () => Object.freeze({ type: 'remote', streamIndex: 1 }),
  () => ({ type: 'remote', streamIndex: 1 }),
  (random) => trapped({}, random),
  (random) => trapped([], random),
  (random) => trapped(() => {}, random),
];

const anything = (random) => random.of(MAKERS)(random);

// A property that is something else, or throws, when it is read for the second time.
function fickle(object, key, random) {
  const first = object[key];
  let readings = 0;
  const later = random.of([() => anything(random), throwOwn, () => first]);
  Object.defineProperty(object, key, {
    configurable: true,
    enumerable: true,
    get() {
      if (random.chance(0.02)) collectGarbage();
      if (random.chance(0.2)) delete object[random.of(Object.keys(object))];
      return readings++ === 0 && random.chance(0.9) ? first : later();
    },
  });
}

// `value`, with something in it exchanged.
function spoiled(value, random) {
  const keys = typeof value === 'object' && value !== null ? Object.keys(value) : [];
  if (keys.length === 0 || random.chance(0.1)) {
    return random.chance(0.5) && typeof value === 'object' && value !== null
      ? trapped(value, random)
      : anything(random);
  }
  const key = random.of(keys);
  const choice = random.number();
  if (choice < 0.5) value[key] = spoiled(value[key], random);
  else if (choice < 0.7) fickle(value, key, random);
  else if (choice < 0.8) delete value[key];
  else if (choice < 0.9) value[key] = trapped(Object(value[key]), random);
  else Object.defineProperty(value, key, { get: throwOwn });
  return value;
}

function randomArguments(good, random) {
  const args = good();
  if (random.chance(0.1)) return args;
  if (random.chance(0.1)) return Array.from({ length: random.below(5) }, () => anything(random));
  if (random.chance(0.1)) args.length = random.below(args.length + 1);
  return args.map((arg) => (random.chance(0.7) ? spoiled(arg, random) : arg));
}

// ---- Calls

function assertAllowed(error, target) {
  if (error instanceof OwnThrow) return;
  assert.ok(error instanceof Error, `${target} threw ${String(error)}`);
  assert.ok(
    ERRORS.some((text) => text.test(error.message)),
    `${target} threw ${error.stack}`,
  );
}

// Calls it, and looks at what came of it and at what the engine was told.
function tryCall(target, call) {
  engine.clearCalls();
  ++calls.made;
  let made;
  try {
    made = call();
    ++calls.passed;
  } catch (error) {
    ++calls.refused;
    assertAllowed(error, target);
    // What is refused has not reached the engine, not in part either.
    if (!target.startsWith('new ')) assert.deepEqual(engine.operations(), [], target);
  }
  return made;
}

const stream = () => ({ type: 'remote', streamIndex: 3 });
const PROXY_ARGUMENTS = {
  getFrame: () => [stream(), 0],
  getLastFrame: () => [stream()],
  releaseFrame: () => [stream()],
  removeVideo: () => [stream()],
};

function methodTargets(kind, object, goodOnes) {
  return Object.entries(goodOnes).map(([name, good]) => ({
    name: `${kind}.${name}`,
    call(random) {
      const args = randomArguments(good, random);
      const receiver = random.chance(0.05) ? anything(random) : object;
      return Reflect.apply(object[name], receiver, args);
    },
  }));
}

function setRandomFactory(random) {
  TesselWrapper._internal_setEmitterFactory(() => {
    if (random.chance(0.2)) throwOwn();
    return random.chance(0.5) ? anything(random) : new EventEmitter();
  });
}

export async function run(count, { random }) {
  engine.setStream(stream());
  engine.setFrame({ type: 'remote', streamIndex: 1 }, { width: 64, height: 36, frameId: 1 });
  const wrapper = construct({ emitter: new EventEmitter().setMaxListeners(0) });
  const proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
  const names = Object.getOwnPropertyNames(TesselWrapper.prototype);
  assert.deepEqual(
    Object.keys(goodArguments).sort(),
    names.filter((n) => n !== 'constructor').sort(),
  );

  const targets = [
    ...methodTargets('TesselWrapper', wrapper, goodArguments),
    ...methodTargets('TesselWrapperProxy', proxy, PROXY_ARGUMENTS),
    {
      name: 'TesselWrapper._internal_setEmitterFactory',
      call: (random_) =>
        TesselWrapper._internal_setEmitterFactory(
          ...randomArguments(() => [() => anything(random_)], random_),
        ),
    },
  ];
  for (const { name, call } of targets) {
    for (let round = 0; round < count; ++round) tryCall(name, () => call(random));
    await collect();
  }

  const classes = [
    [TesselWrapper, () => [{ ...PARAMS }]],
    [TesselWrapperProxy, () => [wrapper.getSharedDataInfo()]],
  ];
  for (const [constructor, good] of classes) {
    for (let round = 0; round < count; ++round) {
      const made = tryCall(`new ${constructor.name}`, () => {
        const args = randomArguments(good, random);
        if (random.chance(0.1)) setRandomFactory(random);
        if (random.chance(0.05)) return Reflect.apply(constructor, anything(random), args);
        const newTarget = random.chance(0.05) ? class extends constructor {} : constructor;
        return Reflect.construct(constructor, args, newTarget);
      });
      if (made instanceof TesselWrapper) made.destroy();
      engine.dropCallback();
      if (round % 50 === 0) await collect();
    }
  }
  wrapper.destroy();
  engine.reset();
  return calls;
}
