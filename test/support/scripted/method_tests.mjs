// Tests that are the same for many of the wrapper's methods.

import assert from 'node:assert/strict';
import { test } from 'node:test';

import { stepsApart } from './captured_lines.mjs';
import {
  exchanged,
  expectedReads,
  holderOf,
  missingText,
  pathText,
  placesOf,
  refusalsAt,
  watched,
  WRONG_VALUES,
  wrongTypeText,
} from './records.mjs';
import * as engine from './scripted_engine.mjs';

const assertNothingAsked = (what) =>
  assert.deepEqual({ what, calls: engine.takeCalls() }, { what, calls: [] });

// Asserts that `call` throws an error of exactly this class and text and does not call the engine.
export function assertRefused(call, type, message, what = message) {
  engine.clearCalls();
  assert.throws(
    call,
    (error) => {
      assert.deepEqual(
        { what, type: error.constructor, message: error.message },
        { what, type, message },
      );
      return true;
    },
    what,
  );
  assertNothingAsked(what);
}

// Asserts that `call` throws `thrown` itself and does not call the engine.
export function assertPassesOn(call, thrown, what) {
  engine.clearCalls();
  let caught = 'nothing';
  try {
    call();
  } catch (error) {
    caught = error;
  }
  assert.equal(caught, thrown, what);
  assertNothingAsked(what);
}

// Asserts that `call` returns undefined and makes exactly these calls, { operation, args } each, on
// the calling thread.
export function assertCalls(call, ...expected) {
  engine.clearCalls();
  assert.equal(call(), undefined);
  const calls = engine.takeCalls();
  assert.deepEqual(calls, expected);
  assert.equal(
    calls.every(({ onJsThread }) => onJsThread),
    true,
  );
}

// ---- The one argument

// Tests the check of a method's only argument, an 'Object' or a 'Boolean'. `args` is a valid list.
// `counted: false` is for a method that does not count its arguments.
export function testArgument({ wrapper, method, type, args, counted = true }) {
  const typeText = `Wrong argument type for argument 0, expected ${type}`;

  test(`${method} wants an argument`, () => {
    const text = counted ? 'Wrong number of arguments, expected 1' : typeText;
    assertRefused(() => wrapper[method](), TypeError, text);
  });

  test(`${method} refuses an argument that is no ${type}`, () => {
    for (const wrong of WRONG_VALUES[type]) {
      assertRefused(() => wrapper[method](wrong), TypeError, typeText, `given a ${typeof wrong}`);
    }
  });

  test(`${method} ignores further arguments`, () => {
    engine.clearCalls();
    wrapper[method](...args());
    const expected = engine.takeCalls();
    wrapper[method](...args(), 'further', null);
    assert.deepEqual(engine.takeCalls(), expected);
  });
}

// ---- A record

// Tests how a record is read: `good()` makes a complete value of it, every array with elements, and
// `call(value)` hands it to the method. `reads` is for a method that reads more than the record.
export function testRecord({ method, record, good, call, reads = expectedReads(record, good()) }) {
  const places = placesOf(record, good());
  // What the engine receives for the good value.
  const goodCalls = () => {
    engine.clearCalls();
    call(good());
    const calls = engine.takeCalls();
    assert.notDeepEqual(calls, []);
    return calls;
  };
  const assertSameCalls = (value) => {
    const expected = goodCalls();
    call(value);
    assert.deepEqual(engine.takeCalls(), expected);
  };

  test(`${method} looks for each property, in its order, and reads it twice`, () => {
    const log = [];
    assertSameCalls(watched(good(), log));
    assert.deepEqual(log, reads);
  });

  for (const place of places) {
    test(`${method} refuses a bad ${pathText(place.path)}`, () => {
      for (const { what, value, message } of refusalsAt(place, good)) {
        assertRefused(() => call(value), TypeError, message, what);
      }
    });
  }

  test(`${method} names the first of several missing properties`, () => {
    places.forEach((place, i) => {
      if (place.optional) return;
      const value = good();
      for (const { path, name } of places.slice(i).reverse()) delete holderOf(value, path)[name];
      assertRefused(() => call(value), TypeError, missingText(place));
    });
  });

  test(`${method} names the first of several properties of the wrong type`, () => {
    places.forEach((place, i) => {
      const value = good();
      for (const { path } of places.slice(i).reverse()) exchanged(value, path, () => Symbol('bad'));
      assertRefused(() => call(value), TypeError, wrongTypeText(place));
    });
  });

  test(`${method} takes inherited properties`, () => {
    const value = good();
    for (const { path, name } of places.toReversed()) {
      const holder = holderOf(value, path);
      const inherited = { [name]: holder[name] };
      delete holder[name];
      Object.setPrototypeOf(inherited, Object.getPrototypeOf(holder));
      Object.setPrototypeOf(holder, inherited);
    }
    assertSameCalls(value);
  });

  test(`${method} takes a function and an array for an object`, () => {
    const objects = [[], ...places.filter(({ type }) => type === 'Object').map(({ path }) => path)];
    for (const make of [() => () => {}, () => []]) {
      for (const path of objects) {
        assertSameCalls(
          exchanged({ value: good() }, ['value', ...path], (object) =>
            Object.assign(make(), object),
          ).value,
        );
      }
    }
  });

  test(`${method} passes on what a getter throws, at either reading`, () => {
    for (const { path, name } of places) {
      for (const reading of [1, 2]) {
        const value = good();
        const holder = holderOf(value, path);
        const inner = holder[name];
        const thrown = new RangeError('thrown by a getter');
        let readings = 0;
        const get = () => {
          readings += 1;
          if (readings === reading) throw thrown;
          return inner;
        };
        Object.defineProperty(holder, name, { get });
        assertPassesOn(() => call(value), thrown, `reading ${reading} of ${pathText(path)}`);
        assert.equal(readings, reading);
      }
    }
  });

  test(`${method} passes on what the look for a property throws`, () => {
    for (const { path, name } of places) {
      const thrown = new RangeError('thrown by a trap');
      const has = (target, key) => {
        if (key === name) throw thrown;
        return key in target;
      };
      const { value } = exchanged(
        { value: good() },
        ['value', ...path].slice(0, -1),
        (holder) => new Proxy(holder, { has }),
      );
      assertPassesOn(() => call(value), thrown, pathText(path));
    }
  });

  const REFUSED_BY_NODE = {
    String: 'A string was expected',
    Boolean: 'A boolean was expected',
    Number: 'A number was expected',
    Array: 'An array was expected',
  };

  const simplePlaces = places.filter(({ type }) => type in REFUSED_BY_NODE);
  if (simplePlaces.length === 0) return;
  test(`${method} fails as Node-API does when a property changes its type between readings`, () => {
    for (const { path, name, type } of simplePlaces) {
      const value = good();
      const holder = holderOf(value, path);
      const inner = holder[name];
      let readings = 0;
      const get = () => {
        readings += 1;
        return readings === 1 ? inner : undefined;
      };
      Object.defineProperty(holder, name, { get });
      assertRefused(() => call(value), Error, REFUSED_BY_NODE[type], pathText(path));
    }
  });
}

// ---- The engine

// Tests the handling of an exception from each of the engine's operations that the method calls.
export function testEngineFailures({ wrapper, method, args, operations }) {
  for (const operation of operations) {
    test(`${method} throws an Error when the engine throws in ${operation}`, () => {
      for (const [failure, message] of [
        [{ throws: 'the engine has a problem' }, 'the engine has a problem'],
        [{ throwsInt: true }, 'A native exception was thrown'],
      ]) {
        engine.failOperation(operation, failure);
        assert.throws(
          () => wrapper[method](...args()),
          (error) => {
            assert.deepEqual([error.constructor, error.message], [Error, message]);
            return true;
          },
        );
        assert.equal(engine.takeCalls().at(-1).operation, operation);
        engine.failOperation(operation, null);
        wrapper[method](...args());
      }
    });
  }
}

// ---- What is returned

// Tests that a failure to set a property or an element of the method's result is passed on.
// `prepare` gives the engine a result.
export function testSetterThrows({ wrapper, method, prototype, key, prepare = () => {} }) {
  test(`${method} passes on what setting ${key} throws`, () => {
    prepare();
    const thrown = new Error('thrown by a setter');
    const set = () => {
      throw thrown;
    };
    let caught;
    Object.defineProperty(prototype, key, { set, configurable: true });
    try {
      wrapper[method]();
    } catch (error) {
      caught = error;
    } finally {
      delete prototype[key];
    }
    assert.equal(caught, thrown);
  });
}

// ---- What is printed

// Tests that `methods` print nothing, whether a call succeeds or is refused, and those in
// `onlyRefused` when they are refused.
export function testPrintsNothing({ methods, onlyRefused = [] }) {
  const refused = onlyRefused.map((method) => `, nor by a refused ${method}`);
  test(`nothing is printed by ${methods.join(', ')}${refused.join('')}`, () => {
    const outcomes = stepsApart(
      ({ wrapper, goodArguments, records, data }) => {
        const refusedArguments = (method) => {
          const record = records.records[method];
          if (!record) return [[], [Symbol('argument')]];
          const good = () => goodArguments[method]()[0];
          return [[], [null], ...records.refusals(record, good).map(({ value }) => [value])];
        };
        const step = (method, args) => () => wrapper[method](...args);
        return [
          ...data.methods.map((method) => step(method, goodArguments[method]())),
          ...[...data.methods, ...data.onlyRefused]
            .filter((method) => goodArguments[method]().length > 0)
            .flatMap((method) => refusedArguments(method).map((args) => step(method, args))),
        ];
      },
      { methods, onlyRefused },
    );
    assert.deepEqual(
      outcomes.map(({ error }) => error === null),
      outcomes.map((_, i) => i < methods.length),
    );
    for (const { lines, error } of outcomes) assert.deepEqual(lines, [], error);
  });
}
