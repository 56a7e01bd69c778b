// connectCall and disconnectCall.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import {
  assertCalls,
  assertRefused,
  testArgument,
  testEngineFailures,
  testPrintsNothing,
  testRecord,
} from '../../support/scripted/method_tests.mjs';
import { records, resizedByItsFirst } from '../../support/scripted/records.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const wrapper = construct();

beforeEach(engine.reset);
after(() => wrapper.destroy());

const args = goodArguments.connectCall;
const [turnServer] = args()[0].turnServers;

// Connects with good parameters, these exchanged, and answers with the engine's record.
function connected(parameters) {
  engine.clearCalls();
  wrapper.connectCall({ ...args()[0], ...parameters });
  const [call, ...more] = engine.takeCalls();
  assert.deepEqual([call.operation, more], ['ConnectCall', []]);
  return call.args.params;
}

function assertConnectRefused(parameters, type, message) {
  assertRefused(() => wrapper.connectCall({ ...args()[0], ...parameters }), type, message);
}

testArgument({ wrapper, method: 'connectCall', type: 'Object', args });
testRecord({
  method: 'connectCall',
  record: records.connectCall,
  good: () => args()[0],
  call: (params) => wrapper.connectCall(params),
});
testEngineFailures({ wrapper, method: 'connectCall', args, operations: ['ConnectCall'] });

test('connectCall passes every field to the engine, with the reserved strings empty', () => {
  const params = {
    uri: 'tessel:demo',
    meetingGuid: 'guid',
    endpointName: 'endpoint',
    reservedText: '',
    meetingFeatures: ['first feature', 'second feature'],
    gracefulEvents: [
      ['first event', true],
      ['second event', false],
    ],
    maxBandwidth: 2048,
    mediaStreamState: {
      outgoingAudioMuted: false,
      outgoingVideoMuted: true,
      incomingAudioEnabled: false,
      incomingVideoEnabled: true,
      contentStreamEnabled: true,
    },
    forceTurn: true,
    turnServers: [
      {
        protocol: 'protocol 1',
        address: 'address 1',
        username: 'username 1',
        password: 'secret 1',
        reservedText: '',
        fqdn: 'fqdn 1',
        port: 101,
        priority: 201,
        bandwidth: 301,
      },
      {
        protocol: 'protocol 2',
        address: 'address 2',
        username: 'username 2',
        password: 'secret 2',
        reservedText: '',
        fqdn: 'fqdn 2',
        port: 102,
        priority: 202,
        bandwidth: 302,
      },
    ],
    enableRdc: false,
    isVesperMeeting: true,
    enableClientDrivenLayouts: false,
    enableClientLayoutOrdering: true,
    meetingAttributes: 'attributes',
  };
  assertCalls(() => wrapper.connectCall(...args()), { operation: 'ConnectCall', args: { params } });
});

for (const flag of [
  'forceTurn',
  'enableRdc',
  'isVesperMeeting',
  'enableClientDrivenLayouts',
  'enableClientLayoutOrdering',
]) {
  test(`connectCall passes on ${flag} alone`, () => {
    const flags = {
      forceTurn: false,
      enableRdc: false,
      isVesperMeeting: false,
      enableClientDrivenLayouts: false,
      enableClientLayoutOrdering: false,
    };
    const params = connected({ ...flags, [flag]: true });
    for (const name of Object.keys(flags)) assert.equal(params[name], name === flag);
  });
}

for (const name of ['uri', 'endpointName', 'meetingGuid', 'meetingAttributes']) {
  test(`connectCall accepts any string for ${name}`, () => {
    for (const [text, expected = text] of [[''], ['a\0b'], ['é€😀'], ['\ud800', '\ufffd']]) {
      assert.equal(connected({ [name]: text })[name], expected);
    }
  });
}

test('connectCall uses the second read of endpointName', () => {
  let readings = 0;
  const parameters = args()[0];
  Object.defineProperty(parameters, 'endpointName', { get: () => `reading ${++readings}` });
  engine.clearCalls();
  wrapper.connectCall(parameters);
  const [{ args: received }] = engine.takeCalls();
  assert.deepEqual([received.params.endpointName, received.params.reservedText], ['reading 4', '']);
});

test('connectCall keeps the low 32 bits of integers', () => {
  for (const [given, expected] of [
    [3.9, 3],
    [-3.9, -3],
    [NaN, 0],
    [2147483648, -2147483648],
    [4294967297, 1],
  ]) {
    assert.equal(connected({ maxBandwidth: given }).maxBandwidth, expected);
    for (const name of ['port', 'priority', 'bandwidth']) {
      const { turnServers } = connected({ turnServers: [{ ...turnServer, [name]: given }] });
      assert.equal(turnServers[0][name], expected);
    }
  }
});

// ---- Lists

test('connectCall accepts empty lists', () => {
  const params = connected({ meetingFeatures: [], gracefulEvents: [], turnServers: [] });
  assert.deepEqual(
    [params.meetingFeatures, params.gracefulEvents, params.turnServers],
    [[], [], []],
  );
});

test('connectCall passes each meeting feature once', () => {
  assert.deepEqual(connected({ meetingFeatures: ['x', 'y', 'x'] }).meetingFeatures, ['x', 'y']);
  assert.deepEqual(connected({ meetingFeatures: ['\ud800', '\ufffd', ''] }).meetingFeatures, [
    '',
    '\ufffd',
  ]);
});

test('connectCall keeps the order of graceful events, and duplicates', () => {
  const gracefulEvents = [
    { event: 'z', enabled: true },
    { event: 'a', enabled: false },
    { event: 'z', enabled: false },
  ];
  assert.deepEqual(connected({ gracefulEvents }).gracefulEvents, [
    ['z', true],
    ['a', false],
    ['z', false],
  ]);
});

test('connectCall passes one graceful event as one pair', () => {
  const gracefulEvents = [{ event: 'e', enabled: true }];
  assert.deepEqual(connected({ gracefulEvents }).gracefulEvents, [['e', true]]);
});

test('connectCall accepts long lists', () => {
  const numbers = Array.from({ length: 5000 }, (_, i) => i);
  const params = connected({
    meetingFeatures: numbers.map(String),
    gracefulEvents: numbers.map((i) => ({ event: `${i}`, enabled: i % 2 === 0 })),
    turnServers: numbers.map((port) => ({ ...turnServer, port })),
  });
  assert.deepEqual(params.meetingFeatures, numbers.map(String).sort());
  assert.deepEqual(
    params.gracefulEvents,
    numbers.map((i) => [`${i}`, i % 2 === 0]),
  );
  assert.deepEqual(
    params.turnServers.map(({ port }) => port),
    numbers,
  );
});

test('connectCall refuses a meeting feature that is not a string', () => {
  for (const feature of [undefined, null, 5, true, 1n, Symbol('feature'), {}, [], Object('text')]) {
    assertConnectRefused({ meetingFeatures: ['x', feature] }, Error, 'A string was expected');
  }
  assertConnectRefused({ meetingFeatures: new Array(1) }, Error, 'A string was expected');
});

const ELEMENTS = [
  { list: 'gracefulEvents', text: 'Missing property enabled on object GracefulEventState' },
  { list: 'turnServers', text: 'Missing property protocol on object TurnServerInfo' },
];

for (const { list, text } of ELEMENTS) {
  test(`connectCall reads properties of any element of ${list}`, () => {
    for (const element of [5, 'text', true, 1n, Symbol('element'), [], () => {}, {}]) {
      assertConnectRefused({ [list]: [element] }, TypeError, text);
    }
  });

  test(`connectCall refuses null and undefined in ${list}, which have no properties`, () => {
    const noObject = 'Cannot convert undefined or null to object';
    for (const elements of [[null], [undefined], new Array(1)]) {
      assertConnectRefused({ [list]: elements }, TypeError, noObject);
    }
  });
}

test('connectCall reports a missing enabled before it reads event', () => {
  const log = [];
  const gracefulEvent = new Proxy(
    {},
    {
      has: (_, name) => {
        log.push(name);
        return false;
      },
    },
  );
  const text = 'Missing property enabled on object GracefulEventState';
  assertConnectRefused({ gracefulEvents: [gracefulEvent] }, TypeError, text);
  assert.deepEqual(log, ['enabled']);
});

test('connectCall reports a TURN port that is a string', () => {
  const turnServers = [turnServer, { ...turnServer, port: '3478' }];
  const text = 'Wrong type for property port on object TurnServerInfo, expected Number';
  assertConnectRefused({ turnServers }, TypeError, text);
});

test('connectCall reports missing turnServers after all other checks', () => {
  const parameters = args()[0];
  delete parameters.turnServers;
  const text = 'Missing property turnServers on object ConnectParams';
  assertRefused(() => wrapper.connectCall(parameters), TypeError, text);
  assertConnectRefused(
    { turnServers: undefined, mediaStreamState: {} },
    TypeError,
    'Missing property contentStreamEnabled on object MediaStreamState',
  );
});

for (const [list, make, expected] of [
  ['meetingFeatures', (i) => `feature ${i}`, (i) => `feature ${i}`],
  ['gracefulEvents', (i) => ({ event: `event ${i}`, enabled: true }), (i) => [`event ${i}`, true]],
  [
    'turnServers',
    (port) => ({ ...turnServer, port }),
    (port) => ({ ...turnServer, reservedText: '', port }),
  ],
]) {
  test(`connectCall uses the current length while ${list} changes its length`, () => {
    for (const after of [[0], [0, 5], [0, 1, 2, 3, 4, 5, 6]]) {
      const changing = resizedByItsFirst([0, 1, 2].map(make), after.map(make));
      assert.deepEqual(connected({ [list]: changing })[list], after.map(expected));
    }
  });
}

test('connectCall accepts a getter that calls the wrapper itself', () => {
  const parameters = args()[0];
  const get = () => {
    wrapper.disconnectCall();
    wrapper.connectCall(...args());
    return 'uri';
  };
  Object.defineProperty(parameters, 'uri', { get });
  wrapper.connectCall(parameters);
  const twice = ['DisconnectCall', 'ConnectCall', 'DisconnectCall', 'ConnectCall'];
  assert.deepEqual(engine.operations(), [...twice, 'ConnectCall']);
});

// Nor the password of a TURN server, therefore.
testPrintsNothing({ methods: ['connectCall', 'disconnectCall'] });

// ---- disconnectCall

test('disconnectCall calls the engine, and ignores arguments', () => {
  const expected = { operation: 'DisconnectCall', args: {} };
  assertCalls(() => wrapper.disconnectCall(), expected);
  assertCalls(() => wrapper.disconnectCall(1, null, {}), expected);
});

testEngineFailures({
  wrapper,
  method: 'disconnectCall',
  args: () => [],
  operations: ['DisconnectCall'],
});
