// Random values, and arguments that are invalid in a random way.

import { collectGarbage } from '../collector.mjs';

// What a getter, a trap or a function of these throws.
export class OwnThrow extends Error {}
export const throwOwn = () => {
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

export const anything = (random) => random.of(MAKERS)(random);

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

// The list that `good()` makes, usually made invalid.
export function randomArguments(good, random) {
  const args = good();
  if (random.chance(0.1)) return args;
  if (random.chance(0.1)) return Array.from({ length: random.below(5) }, () => anything(random));
  if (random.chance(0.1)) args.length = random.below(args.length + 1);
  return args.map((arg) => (random.chance(0.7) ? spoiled(arg, random) : arg));
}
