// Sharing local content, its token, and the monitors to choose from.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import {
  assertCalls,
  assertPassesOn,
  assertRefused,
  testArgument,
  testEngineFailures,
  testPrintsNothing,
  testRecord,
  testSetterThrows,
} from '../../support/scripted/method_tests.mjs';
import { records } from '../../support/scripted/records.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const wrapper = construct();

beforeEach(engine.reset);
after(() => wrapper.destroy());

// ---- startPresentation

const args = goodArguments.startPresentation;

testArgument({ wrapper, method: 'startPresentation', type: 'Object', args });
testRecord({
  method: 'startPresentation',
  record: records.startPresentation,
  good: () => args()[0],
  call: (params) => wrapper.startPresentation(params),
});
testEngineFailures({
  wrapper,
  method: 'startPresentation',
  args,
  operations: ['StartPresentation'],
});

const NO_IDS = { screenId: -1, applicationId: -1, windowId: -1, engineFlag: true };

for (const [what, given, expected] of [
  ['a screen', { type: 'screen' }, { type: 0, ...NO_IDS }],
  ['an application', { type: 'application' }, { type: 1, ...NO_IDS }],
  ['a window', { type: 'window' }, { type: 2, ...NO_IDS }],
  ['a window by its id', { type: 'window', windowId: 42 }, { type: 2, ...NO_IDS, windowId: 42 }],
  ['a screen by its id', { type: 'screen', screenId: 0 }, { type: 0, ...NO_IDS, screenId: 0 }],
  [
    'an application, with the id of a screen as well',
    { type: 'application', screenId: 3, applicationId: 7 },
    { type: 1, ...NO_IDS, screenId: 3, applicationId: 7 },
  ],
  [
    'with all ids',
    { type: 'screen', screenId: 1, applicationId: 2, windowId: 3 },
    { type: 0, ...NO_IDS, screenId: 1, applicationId: 2, windowId: 3 },
  ],
  [
    'with inherited properties',
    Object.create({ type: 'window', windowId: 5 }),
    { type: 2, ...NO_IDS, windowId: 5 },
  ],
  [
    'with fractions and numbers of more than 32 bits',
    { type: 'screen', screenId: -3.9, applicationId: 4294967297, windowId: 2147483648 },
    { type: 0, ...NO_IDS, screenId: -3, applicationId: 1, windowId: -2147483648 },
  ],
  [
    'with what is no number for an engine',
    { type: 'screen', screenId: NaN, applicationId: Infinity, windowId: 1e300 },
    { type: 0, ...NO_IDS, screenId: 0, applicationId: 0, windowId: 0 },
  ],
]) {
  test(`startPresentation shares ${what}`, () => {
    assertCalls(() => wrapper.startPresentation(given), {
      operation: 'StartPresentation',
      args: { params: expected },
    });
  });
}

test('startPresentation accepts three types, by their exact names', () => {
  const text = 'Invalid value for type ShareType, expected screen|application|window';
  for (const type of ['Screen', 'SCREEN', '', 'screen ', ' screen', 'screen\0', 'windows', 'win']) {
    assertRefused(() => wrapper.startPresentation({ type }), TypeError, text, type);
  }
});

test('startPresentation reads the type before it asks for an id', () => {
  const looked = [];
  const params = new Proxy(
    { type: 'Screen', screenId: '1' },
    {
      has: (target, name) => {
        looked.push(name);
        return name in target;
      },
    },
  );
  assertRefused(
    () => wrapper.startPresentation(params),
    TypeError,
    'Invalid value for type ShareType, expected screen|application|window',
  );
  assert.deepEqual(looked, ['type']);
});

test('startPresentation asks for an absent id once', () => {
  const looked = [];
  const has = (target, name) => {
    looked.push(name);
    return name in target;
  };
  wrapper.startPresentation(new Proxy({ type: 'screen', applicationId: 1 }, { has }));
  assert.deepEqual(looked, ['type', 'screenId', 'applicationId', 'applicationId', 'windowId']);
});

test('startPresentation refuses an id that is a string', () => {
  assertRefused(
    () => wrapper.startPresentation({ type: 'screen', screenId: '1' }),
    TypeError,
    'Wrong type for property screenId on object ContentShareParams, expected Number',
  );
});

// ---- Methods without arguments

for (const [method, operation] of [
  ['stopPresentation', 'StopPresentation'],
  ['requestContentShareToken', 'RequestContentShareToken'],
  ['releaseContentShareToken', 'ReleaseContentShareToken'],
]) {
  test(`${method} calls the engine, and ignores arguments`, () => {
    assertCalls(() => wrapper[method](), { operation, args: {} });
    assertCalls(() => wrapper[method](1, 2, 3), { operation, args: {} });
  });

  testEngineFailures({ wrapper, method, args: () => [], operations: [operation] });
}

// ---- Monitors

const MONITORS = [
  { x: -1920, y: 0, width: 1920, height: 1080, engineValue: 5 },
  { x: 1, y: 2, width: 3, height: 4, engineValue: 6 },
  { x: 2147483647, y: -2147483648, width: 0, height: -1, engineValue: 7 },
];

test('getScreenMonitorDetails lists a monitor left of the first one, with a negative position', () => {
  engine.setResults({ screenMonitors: [{ x: -1920, y: 0, width: 1920, height: 1080 }] });
  assert.deepEqual(wrapper.getScreenMonitorDetails(), [
    { x: -1920, y: 0, width: 1920, height: 1080 },
  ]);
});

test("getScreenMonitorDetails lists monitors in the engine's order, without the field of the engine alone", () => {
  engine.setResults({ screenMonitors: MONITORS });
  const monitors = wrapper.getScreenMonitorDetails();
  assert.equal(Array.isArray(monitors), true);
  assert.deepEqual(
    monitors,
    MONITORS.map(({ x, y, width, height }) => ({ x, y, width, height })),
  );
  for (const monitor of monitors) {
    assert.deepEqual(Object.keys(monitor), ['x', 'y', 'width', 'height']);
  }
  assert.deepEqual(engine.calls(), [{ operation: 'GetScreenMonitorDetails', args: {} }]);
});

test('getScreenMonitorDetails ignores arguments', () => {
  engine.setResults({ screenMonitors: MONITORS });
  assert.equal(wrapper.getScreenMonitorDetails(null, 1, {}).length, 3);
});

test('getScreenMonitorDetails returns an empty array when there is no monitor', () => {
  assert.deepEqual(wrapper.getScreenMonitorDetails(), []);
  engine.setResults({ screenMonitors: MONITORS });
  engine.failOperation('GetScreenMonitorDetails', { returnsNull: true });
  assert.deepEqual(wrapper.getScreenMonitorDetails(), []);
});

test('getScreenMonitorDetails lists a large number of monitors', () => {
  const screenMonitors = Array.from({ length: 20_000 }, (_, x) => ({
    x,
    y: 0,
    width: 1,
    height: 1,
  }));
  engine.setResults({ screenMonitors });
  assert.deepEqual(wrapper.getScreenMonitorDetails(), screenMonitors);
});

for (const [prototype, key] of [
  [Object.prototype, 'height'],
  [Array.prototype, '1'],
]) {
  const prepare = () => engine.setResults({ screenMonitors: MONITORS });
  testSetterThrows({ wrapper, method: 'getScreenMonitorDetails', prototype, key, prepare });
}

testEngineFailures({
  wrapper,
  method: 'getScreenMonitorDetails',
  args: () => [],
  operations: ['GetScreenMonitorDetails'],
});

test('an exception from asking for an id is passed on', () => {
  for (const id of ['screenId', 'applicationId', 'windowId']) {
    const thrown = new Error('thrown by a trap');
    const has = (target, name) => {
      if (name === id) throw thrown;
      return name in target;
    };
    const params = new Proxy({ type: 'screen' }, { has });
    assertPassesOn(() => wrapper.startPresentation(params), thrown, id);
  }
});

testPrintsNothing({
  methods: [
    'startPresentation',
    'stopPresentation',
    'requestContentShareToken',
    'releaseContentShareToken',
    'getScreenMonitorDetails',
  ],
});
