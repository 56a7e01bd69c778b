// The engine's configuration data and its registered events.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import {
  assertCalls,
  assertRefused,
  testArgument,
  testEngineFailures,
  testPrintsNothing,
  testRecord,
  testSetterThrows,
} from '../../support/scripted/method_tests.mjs';
import { records, without } from '../../support/scripted/records.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const wrapper = construct();

beforeEach(engine.reset);
after(() => wrapper.destroy());

const TEXTS = [[''], ['a\0b'], ['é€😀'], ['%s%n'], ['\ud800x', '\ufffdx'], ['x'.repeat(1_000_000)]];

// ---- getConfigData

test('getConfigData returns two properties, and asks for the first one first', () => {
  for (const [isVesperCapable, maxVOQualityIndex] of [
    [true, 4],
    [false, 0],
    [true, -2147483648],
    [false, 2147483647],
  ]) {
    engine.setResults({ isVesperCapable, maxVOQualityIndex });
    const data = wrapper.getConfigData();
    assert.deepEqual(data, { isVesperCapable, maxVOQualityIndex });
    assert.deepEqual(Object.keys(data), ['isVesperCapable', 'maxVOQualityIndex']);
    assert.deepEqual(engine.takeCalls(), [
      { operation: 'GetConfigDataPtr', args: {} },
      { operation: 'isVesperCapable', args: {} },
      { operation: 'maxVOQualityIndex', args: {} },
    ]);
  }
});

test('getConfigData ignores arguments', () => {
  engine.setResults({ isVesperCapable: true, maxVOQualityIndex: 3 });
  assert.deepEqual(wrapper.getConfigData(null, 'text'), {
    isVesperCapable: true,
    maxVOQualityIndex: 3,
  });
});

for (const key of ['isVesperCapable', 'maxVOQualityIndex']) {
  testSetterThrows({ wrapper, method: 'getConfigData', prototype: Object.prototype, key });
}

testEngineFailures({
  wrapper,
  method: 'getConfigData',
  args: () => [],
  operations: ['GetConfigDataPtr', 'isVesperCapable', 'maxVOQualityIndex'],
});

// ---- updateConfigData

testArgument({
  wrapper,
  method: 'updateConfigData',
  type: 'Object',
  args: goodArguments.updateConfigData,
});
testRecord({
  method: 'updateConfigData',
  record: records.updateConfigData,
  good: () => goodArguments.updateConfigData()[0],
  call: (params) => wrapper.updateConfigData(params),
});
testEngineFailures({
  wrapper,
  method: 'updateConfigData',
  args: goodArguments.updateConfigData,
  operations: ['GetConfigDataPtr', 'update'],
});

test('updateConfigData passes the text on unchanged', () => {
  for (const [configData, configText = configData] of [...TEXTS, ['{"not": json']]) {
    assertCalls(
      () => wrapper.updateConfigData({ configData }),
      { operation: 'GetConfigDataPtr', args: {} },
      { operation: 'update', args: { configText } },
    );
  }
});

test('updateConfigData refuses a number', () => {
  assertRefused(
    () => wrapper.updateConfigData({ configData: 5 }),
    TypeError,
    'Wrong type for property configData on object ConfigDataHelper, expected String',
  );
});

// ---- Both

test('every call releases the configuration data, even one that fails', () => {
  const update = () => wrapper.updateConfigData({ configData: 'text' });
  const get = () => wrapper.getConfigData();
  for (const [call, operation] of [
    [get, 'isVesperCapable'],
    [get, 'maxVOQualityIndex'],
    [update, 'update'],
  ]) {
    call();
    assert.equal(engine.live().configurations, 0);
    engine.failOperation(operation, { throws: 'no luck' });
    assert.throws(call, { name: 'Error', message: 'no luck' });
    assert.equal(engine.live().configurations, 0);
    engine.failOperation(operation, null);
  }
  Object.defineProperty(Object.prototype, 'isVesperCapable', {
    set: assert.fail,
    configurable: true,
  });
  try {
    assert.throws(get, { name: 'AssertionError' });
  } finally {
    delete Object.prototype.isVesperCapable;
  }
  assert.equal(engine.live().configurations, 0);
});

test('getConfigData throws an Error when the engine has no configuration data', () => {
  engine.failOperation('GetConfigDataPtr', { returnsNull: true });
  for (const call of [
    () => wrapper.getConfigData(),
    () => wrapper.updateConfigData({ configData: 'text' }),
  ]) {
    assert.throws(call, (error) => {
      assert.equal(error.constructor, Error);
      assert.equal(error.message, 'The engine has no configuration data');
      return true;
    });
    assert.deepEqual(engine.takeCalls(), [{ operation: 'GetConfigDataPtr', args: {} }]);
  }
});

// ---- registerEvent and unregisterEvent

for (const [method, operation] of [
  ['registerEvent', 'RegisterEvent'],
  ['unregisterEvent', 'UnregisterEvent'],
]) {
  const args = goodArguments[method];
  testArgument({ wrapper, method, type: 'Object', args });
  testRecord({
    method,
    record: records[method],
    good: () => args()[0],
    call: (params) => wrapper[method](params),
  });
  testEngineFailures({ wrapper, method, args, operations: [operation] });
}

const event = {
  eventName: 'x',
  expires: 3600,
  mimeType: 'application',
  mimeSubType: 'json',
};

for (const [given, expires] of [
  [3600, 3600],
  [0, 0],
  [-1, 4294967295],
  [-2147483648, 2147483648],
  [2147483648, 2147483648],
  [4294967295, 4294967295],
  [4294967297, 1],
  [59.9, 59],
  [-0.9, 0],
  [NaN, 0],
  [-Infinity, 0],
]) {
  test(`registerEvent passes an expiry of ${given} on as ${expires}`, () => {
    assertCalls(() => wrapper.registerEvent({ ...event, expires: given }), {
      operation: 'RegisterEvent',
      args: { ...event, expires },
    });
  });
}

for (const name of ['eventName', 'mimeType', 'mimeSubType']) {
  test(`registerEvent accepts any string for ${name}`, () => {
    for (const [text, expected = text] of TEXTS) {
      assertCalls(() => wrapper.registerEvent({ ...event, [name]: text }), {
        operation: 'RegisterEvent',
        args: { ...event, [name]: expected },
      });
    }
  });
}

test('registerEvent reports a missing mimeSubType, and registers nothing', () => {
  assertRefused(
    () => wrapper.registerEvent(without(event, 'mimeSubType')),
    TypeError,
    'Missing property mimeSubType on object RegisterEventParams',
  );
});

test('unregisterEvent passes the name to the engine', () => {
  for (const [eventName, expected = eventName] of TEXTS) {
    assertCalls(() => wrapper.unregisterEvent({ eventName }), {
      operation: 'UnregisterEvent',
      args: { eventName: expected },
    });
  }
});

test('unregisterEvent reports a missing eventName', () => {
  assertRefused(
    () => wrapper.unregisterEvent({}),
    TypeError,
    'Missing property eventName on object UnregisterEventParams',
  );
});

testPrintsNothing({
  methods: ['getConfigData', 'updateConfigData', 'registerEvent', 'unregisterEvent'],
});
