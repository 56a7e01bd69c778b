// The readers of arguments and properties that all methods share, called directly.

import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';
import { Worker } from 'node:worker_threads';

import { WRONG_VALUES } from '../../support/scripted/records.mjs';
import { addonFile, build } from '../../support/build.mjs';

const require = createRequire(import.meta.url);
const readers = require(path.join(build, 'test/addons/readers.node'));
const { napiCheckArgLength, napiGetArgAsBoolean, napiGetArgAsInt64 } = readers;
const { napiGetArgAsObject, napiGetArgAsString } = readers;
const { getAsArray, getAsBoolean, getAsInt, getAsObject, getAsString, has } = readers;

function assertThrows(call, type, message) {
  assert.throws(call, (error) => {
    assert.deepEqual([error.constructor, error.message], [type, message]);
    return true;
  });
}

// Whatever it is, or 'nothing'.
function thrownBy(call) {
  try {
    call();
  } catch (thrown) {
    return thrown;
  }
  return 'nothing';
}

const withGetter = (get) => Object.defineProperty({}, 'a', { get });

// A property that is `first` when it is read for the first time and `second` after that.
function changing(first, second) {
  let readings = 0;
  return withGetter(() => (readings++ === 0 ? first : second));
}

function revokedProxy() {
  const { proxy, revoke } = Proxy.revocable([], {});
  revoke();
  return proxy;
}

// ---- The number of arguments

test('the required number of arguments is accepted, and so are more', () => {
  assert.equal(napiCheckArgLength(2)(1, 2), undefined);
  assert.equal(napiCheckArgLength(2)(1, 2, 3), undefined);
  assert.equal(napiCheckArgLength(0)(), undefined);
});

test('an argument that is passed as undefined counts', () => {
  assert.equal(napiCheckArgLength(2)(undefined, undefined), undefined);
});

test('fewer arguments than required are refused', () => {
  assertThrows(() => napiCheckArgLength(2)(1), TypeError, 'Wrong number of arguments, expected 2');
  assertThrows(() => napiCheckArgLength(1)(), TypeError, 'Wrong number of arguments, expected 1');
});

test('the number of arguments in the message is unsigned', () => {
  assertThrows(
    () => napiCheckArgLength(4294967295)(1),
    TypeError,
    'Wrong number of arguments, expected 4294967295',
  );
});

// ---- An argument's type

const ARGUMENT_READERS = [
  {
    type: 'Object',
    read: napiGetArgAsObject,
    good: [{}, [], () => {}, new Proxy([], {}), Object(1)],
  },
  { type: 'Boolean', read: napiGetArgAsBoolean, good: [true, false] },
  { type: 'String', read: napiGetArgAsString, good: ['', 'text'] },
  { type: 'Number', read: napiGetArgAsInt64, good: [0, -7] },
];

for (const { type, read, good } of ARGUMENT_READERS) {
  test(`an argument of type ${type} is read`, () => {
    for (const value of good) {
      assert.equal(read(0)(value), value);
      assert.equal(read(2)('first', null, value), value);
    }
  });

  test(`an argument not of type ${type} is refused with its position, counted from 0`, () => {
    for (const wrong of WRONG_VALUES[type]) {
      const text = (index) => `Wrong argument type for argument ${index}, expected ${type}`;
      assertThrows(() => read(0)(wrong), TypeError, text(0));
      assertThrows(() => read(1)(good[0], wrong), TypeError, text(1));
    }
  });

  test(`a missing argument is not of type ${type}`, () => {
    const text = (index) => `Wrong argument type for argument ${index}, expected ${type}`;
    assertThrows(() => read(0)(), TypeError, text(0));
    assertThrows(() => read(3)(good[0]), TypeError, text(3));
    assertThrows(() => read(4294967295)(good[0]), TypeError, text(4294967295));
  });
}

test('a number argument is truncated to an integer, and saturates at 64 bits', () => {
  for (const [number, expected] of [
    [3.9, 3],
    [-3.9, -3],
    [-0, 0],
    [NaN, 0],
    [Infinity, 0],
    [-Infinity, 0],
    [2 ** 53 - 1, 2 ** 53 - 1],
    [1e300, 2 ** 63],
    [-1e300, -(2 ** 63)],
  ]) {
    assert.equal(napiGetArgAsInt64(0)(number), expected);
  }
});

// ---- Properties

const PROPERTY_READERS = [
  { type: 'String', read: getAsString, good: ['', 'text'] },
  { type: 'Boolean', read: getAsBoolean, good: [true, false] },
  { type: 'Object', read: getAsObject, good: [{}, [], () => {}, new Proxy([], {})] },
  { type: 'Array', read: getAsArray, good: [[], [1, 2], new Array(3)] },
  { type: 'Number', read: getAsInt, good: [0, 7, -7] },
];

for (const { type, read, good } of PROPERTY_READERS) {
  test(`a property of type ${type} is read, own or inherited`, () => {
    for (const value of good) {
      assert.equal(read({ a: value }, 'X', 'a'), value);
      assert.equal(read(Object.create({ a: value }), 'X', 'a'), value);
    }
  });

  test(`a missing property and one not of type ${type} have different messages`, () => {
    assertThrows(
      () => read({ a: undefined }, 'X', 'b'),
      TypeError,
      'Missing property b on object X',
    );
    const text = `Wrong type for property a on object X, expected ${type}`;
    for (const wrong of WRONG_VALUES[type]) {
      assertThrows(() => read({ a: wrong }, 'X', 'a'), TypeError, text);
      assertThrows(() => read(Object.create({ a: wrong }), 'X', 'a'), TypeError, text);
    }
  });

  test(`a property expected to be a ${type} is asked for once and read twice`, () => {
    const log = [];
    const handler = new Proxy(
      {},
      {
        get:
          (_, operation) =>
          (...args) => {
            log.push([operation, args[1]]);
            return Reflect[operation](...args);
          },
      },
    );
    assert.equal(read(new Proxy({ a: good[0] }, handler), 'X', 'a'), good[0]);
    assert.deepEqual(log, [
      ['has', 'a'],
      ['get', 'a'],
      ['get', 'a'],
    ]);
  });

  test(`a property not of type ${type} is read once`, () => {
    let readings = 0;
    const object = withGetter(() => void (readings += 1));
    const text = `Wrong type for property a on object X, expected ${type}`;
    assertThrows(() => read(object, 'X', 'a'), TypeError, text);
    assert.equal(readings, 1);
  });
}

test('the second read of a property supplies its value', () => {
  assert.equal(getAsString(changing('first', 'second'), 'X', 'a'), 'second');
  assert.equal(getAsInt(changing(1, 2), 'X', 'a'), 2);
  assert.equal(getAsBoolean(changing(true, false), 'X', 'a'), false);
  const second = {};
  assert.equal(getAsObject(changing({}, second), 'X', 'a'), second);
});

for (const [read, first, message] of [
  [getAsString, 'text', 'A string was expected'],
  [getAsBoolean, true, 'A boolean was expected'],
  [getAsInt, 1, 'A number was expected'],
]) {
  test(`${read.name} throws the error of Node-API when the second read has another type`, () => {
    for (const second of [undefined, null, {}, Symbol('second'), 1n]) {
      assertThrows(() => read(changing(first, second), 'X', 'a'), Error, message);
    }
  });
}

test('an object and an array are those of the second read', () => {
  assert.equal(getAsObject(changing({}, 5), 'X', 'a'), 5);
  assert.equal(getAsArray(changing([], 'text'), 'X', 'a'), 'text');
});

test('the messages contain the names of objects and properties unchanged', () => {
  assertThrows(() => getAsInt({}, '', 'ssrc'), TypeError, 'Missing property ssrc on object ');
  assertThrows(
    () => getAsInt({}, 'Ö %s', '%d é'),
    TypeError,
    'Missing property %d é on object Ö %s',
  );
  assertThrows(
    () => getAsInt({ '%n': '' }, '%n', '%n'),
    TypeError,
    'Wrong type for property %n on object %n, expected Number',
  );
});

test('a primitive value is read as its wrapper object', () => {
  assert.equal(getAsInt('four', 'X', 'length'), 4);
  assert.equal(has(5, 'X', 'toFixed'), true);
  assertThrows(() => getAsInt(5, 'X', 'a'), TypeError, 'Missing property a on object X');
});

test('a revoked proxy counts as an unreadable object, and not as an array', () => {
  const cannotLook = "Cannot perform 'has' on a proxy that has been revoked";
  assertThrows(() => getAsInt(revokedProxy(), 'X', 'a'), TypeError, cannotLook);
  assert.throws(() => getAsArray({ a: revokedProxy() }, 'X', 'a'), {
    message: 'Wrong type for property a on object X, expected Array',
  });
});

test('null and undefined have no properties', () => {
  for (const nothing of [null, undefined]) {
    assertThrows(
      () => getAsInt(nothing, 'X', 'a'),
      TypeError,
      'Cannot convert undefined or null to object',
    );
  }
});

test('a property with any value counts as present', () => {
  assert.equal(has({ a: undefined }, 'X', 'a'), true);
  assert.equal(has(Object.create({ a: null }), 'X', 'a'), true);
  assert.equal(has({}, 'X', 'a'), false);
  assert.equal(has({}, 'X', 'toString'), true);
});

// ---- Numbers and texts

test('an integer is truncated to its low 32 bits', () => {
  for (const [number, expected] of [
    [3.9, 3],
    [-3.9, -3],
    [0.999, 0],
    [-0.999, 0],
    [-0, 0],
    [NaN, 0],
    [Infinity, 0],
    [-Infinity, 0],
    [Number.MIN_VALUE, 0],
    [2147483647, 2147483647],
    [2147483647.9, 2147483647],
    [2147483648, -2147483648],
    [-2147483648, -2147483648],
    [-2147483648.9, -2147483648],
    [-2147483649, 2147483647],
    [4294967295, -1],
    [4294967296, 0],
    [4294967297, 1],
    [-4294967297, -1],
    [2 ** 53 - 1, -1],
    [2 ** 52 + 5, 5],
    [1e300, 0],
    [-1e300, 0],
    [Number.MAX_VALUE, 0],
  ]) {
    assert.equal(getAsInt({ a: number }, 'X', 'a'), expected, `${number}`);
  }
});

test('a string of digits is not a number', () => {
  assertThrows(
    () => getAsInt({ a: '3' }, 'X', 'a'),
    TypeError,
    'Wrong type for property a on object X, expected Number',
  );
});

for (const [what, text, expected = text] of [
  ['empty', ''],
  ['ASCII', 'text'],
  ['of characters of two, three and four bytes', 'é€😀'],
  ['with a NUL inside', 'a\0b\0'],
  ['that begins with a byte order mark', '\ufefftext'],
  ['with lone surrogates', 'a\ud800b\udc00c\ud800', 'a\ufffdb\ufffdc\ufffd'],
  ['with surrogates the wrong way round', '\udc00\ud800', '\ufffd\ufffd'],
  [
    'that is concatenated in the middle of a surrogate pair',
    `${'a'.repeat(20)}\ud83d` + `\ude00${'b'.repeat(20)}`,
  ],
  ['of almost a million characters', 'é€😀x'.repeat(200_000)],
]) {
  test(`a string ${what} arrives as UTF-8`, () => {
    assert.equal(getAsString({ a: text }, 'X', 'a'), expected);
    assert.equal(napiGetArgAsString(0)(text), expected);
  });
}

// ---- Exceptions from JavaScript

// Accesses of the binding layer to a thrown object must not change what is thrown.
const THROWN = [
  ['an Error', new Error('thrown')],
  ['a frozen Error', Object.freeze(new Error('thrown'))],
  ['an object without a prototype', Object.create(null)],
  ['a function', () => {}],
  ['a number', 42],
  ['NaN', NaN],
  ['a text', 'text'],
  ['a boolean', false],
  ['a BigInt', 1n],
  ['a Symbol', Symbol('thrown')],
  ['null', null],
  ['undefined', undefined],
  ['a revoked proxy', revokedProxy()],
  ['a proxy that has every property', new Proxy({}, { has: () => true, get: () => 'property' })],
];

for (const [what, thrown] of THROWN) {
  test(`${what} that a getter or a trap throws is passed on unchanged`, () => {
    const throwIt = () => {
      throw thrown;
    };
    let readings = 0;
    const throwLater = () => (readings++ === 0 ? 'text' : throwIt());
    for (const object of [
      new Proxy({}, { has: throwIt }),
      new Proxy({ a: 1 }, { get: throwIt }),
      withGetter(throwIt),
      withGetter(throwLater),
    ]) {
      const caught = thrownBy(() => getAsString(object, 'X', 'a'));
      assert.equal(Object.is(caught, thrown), true);
    }
    assert.equal(readings, 2);
  });
}

test('errors are thrown even when Error.prototype is guarded by traps', () => {
  const original = Object.getPrototypeOf(Error.prototype);
  Object.setPrototypeOf(Error.prototype, revokedProxy());
  let thrown;
  try {
    thrown = thrownBy(() => napiGetArgAsObject(0)(5));
  } finally {
    Object.setPrototypeOf(Error.prototype, original);
  }
  assert.equal(thrown.constructor, TypeError);
});

test('a getter that calls the reader recursively causes a stack overflow error', () => {
  const object = withGetter(() => getAsString(object, 'X', 'a'));
  assert.equal(thrownBy(() => getAsString(object, 'X', 'a')).constructor, RangeError);
});

test('a worker can be terminated while its calls are refused', async () => {
  const addon = JSON.stringify(addonFile);
  const program = `
    const { TesselWrapper } = require(${addon});
    require('node:worker_threads').parentPort.postMessage('running');
    for (;;) try { TesselWrapper._internal_setEmitterFactory(42); } catch {}
  `;
  for (let round = 0; round < 5; ++round) {
    const worker = new Worker(program, { eval: true });
    await new Promise((resolve) => {
      worker.once('message', resolve);
    });
    assert.equal(await worker.terminate(), 1);
  }
});
