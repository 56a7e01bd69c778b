// What is sent and received, and which devices are used.

import assert from 'node:assert/strict';
import { after, beforeEach, test } from 'node:test';

import { stepsApart } from '../../support/scripted/captured_lines.mjs';
import {
  assertCalls,
  assertPassesOn,
  assertRefused,
  testArgument,
  testEngineFailures,
  testPrintsNothing,
  testRecord,
} from '../../support/scripted/method_tests.mjs';
import { records } from '../../support/scripted/records.mjs';
import * as engine from '../../support/scripted/scripted_engine.mjs';
import { goodArguments } from '../../support/scripted/good_arguments.mjs';
import { construct } from '../../support/scripted/wrapper_kit.mjs';

const wrapper = construct();

beforeEach(engine.reset);
after(() => wrapper.destroy());

const good = Object.fromEntries(
  Object.keys(records).map((method) => [method, () => goodArguments[method]()[0]]),
);

// The arguments of the one call that the engine receives.
function received(method, argument) {
  engine.clearCalls();
  wrapper[method](argument);
  const calls = engine.takeCalls();
  assert.equal(calls.length, 1);
  return calls[0].args;
}

// ---- Flags

const FLAGS = [
  ['muteLocalVideo', 'MuteLocalVideo', 'mute'],
  ['muteLocalAudio', 'MuteLocalAudio', 'mute'],
  ['setRemoteAudioMute', 'SetRemoteAudioMute', 'mute'],
  ['setAudioDebug', 'SetAudioDebug', 'enable'],
];

for (const [method, operation, name] of FLAGS) {
  test(`${method} passes its flag to the engine`, () => {
    for (const flag of [true, false]) {
      const expected = { operation, args: { [name]: flag } };
      assertCalls(() => wrapper[method](flag), expected);
      assertCalls(() => wrapper[method](flag, 'x'), expected);
    }
  });

  testArgument({ wrapper, method, type: 'Boolean', args: () => [true] });
  testEngineFailures({ wrapper, method, args: () => [true], operations: [operation] });
}

// ---- The camera

const LOCAL = { kind: 0, index: 0 };

test('enableCameraCapture starts the camera, then the frames of local stream 0', () => {
  engine.setStream(LOCAL);
  assertCalls(
    () => wrapper.enableCameraCapture(true),
    { operation: 'EnableCameraCapture', args: { enable: true } },
    { operation: 'GetFrameManager', args: { key: LOCAL } },
    { operation: 'EnableFrameCapture', args: { key: LOCAL } },
  );
});

test('enableCameraCapture stops the camera, then the frames, also if they never started', () => {
  engine.setStream(LOCAL);
  assertCalls(
    () => wrapper.enableCameraCapture(false),
    { operation: 'EnableCameraCapture', args: { enable: false } },
    { operation: 'GetFrameManager', args: { key: LOCAL } },
    { operation: 'DisableFrameCapture', args: { key: LOCAL } },
  );
});

test('enableCameraCapture works when the local stream has no frame manager', () => {
  for (const enable of [true, false]) {
    assertCalls(
      () => wrapper.enableCameraCapture(enable),
      { operation: 'EnableCameraCapture', args: { enable } },
      { operation: 'GetFrameManager', args: { key: LOCAL } },
    );
  }
});

test('enableCameraCapture does not touch the frames when the engine throws', () => {
  engine.setStream(LOCAL);
  engine.failOperation('EnableCameraCapture', { throws: 'no camera' });
  assert.throws(() => wrapper.enableCameraCapture(true), { name: 'Error', message: 'no camera' });
  assert.deepEqual(engine.operations(), ['EnableCameraCapture']);
});

testArgument({ wrapper, method: 'enableCameraCapture', type: 'Boolean', args: () => [true] });
testEngineFailures({
  wrapper,
  method: 'enableCameraCapture',
  args: () => [true],
  operations: ['EnableCameraCapture', 'GetFrameManager'],
});

// ---- Records

const audioIn = { id: 'in id', name: 'in name', sourceName: 'in source' };
const audioOut = { id: 'out id', name: 'out name', sourceName: 'out source' };
const camera = { id: 'camera id', name: 'camera name', width: 640, height: 480, maxFps: 15 };

const RECORDS = [
  {
    method: 'updateMediaStreamState',
    operation: 'UpdateMediaStreamState',
    args: {
      state: {
        outgoingAudioMuted: false,
        outgoingVideoMuted: true,
        incomingAudioEnabled: false,
        incomingVideoEnabled: true,
        contentStreamEnabled: true,
      },
    },
  },
  { method: 'setAudioInDevice', operation: 'SetAudioInDevice', args: { device: audioIn } },
  { method: 'setAudioOutDevice', operation: 'SetAudioOutDevice', args: { device: audioOut } },
  { method: 'setVideoDevice', operation: 'SetVideoDevice', args: { device: camera } },
  {
    method: 'selectDevices',
    operation: 'SelectDevices',
    args: { params: { videoDevice: camera, audioInDevice: audioIn, audioOutDevice: audioOut } },
  },
  {
    method: 'sendAudioDeviceStats',
    operation: 'SendAudioDeviceStats',
    args: { stats: { isSpeakerMuted: true, speakerVolume: 70, isMicMuted: false, micVolume: 80 } },
  },
];

for (const { method, operation, args } of RECORDS) {
  test(`${method} passes every field to the engine`, () => {
    assertCalls(() => wrapper[method](good[method]()), { operation, args });
  });

  testArgument({ wrapper, method, type: 'Object', args: goodArguments[method] });
  testRecord({
    method,
    record: records[method],
    good: good[method],
    call: (value) => wrapper[method](value),
  });
  testEngineFailures({ wrapper, method, args: goodArguments[method], operations: [operation] });
}

for (const name of Object.keys(good.updateMediaStreamState())) {
  test(`updateMediaStreamState passes on ${name} alone`, () => {
    const off = Object.fromEntries(
      Object.keys(good.updateMediaStreamState()).map((each) => [each, false]),
    );
    const { state } = received('updateMediaStreamState', { ...off, [name]: true });
    assert.deepEqual(state, { ...off, [name]: true });
  });
}

test('device names and identifiers are passed on unchanged', () => {
  for (const [text, expected = text] of [[''], ['a\0b'], ['é€😀'], ['\udc00', '\ufffd']]) {
    const device = { audioInId: text, audioInName: text, audioInSourceName: text };
    assert.deepEqual(received('setAudioInDevice', device), {
      device: { id: expected, name: expected, sourceName: expected },
    });
  }
});

// ---- The capture of a video device

const DEFAULTS = { id: 'a', name: 'b', width: 1280, height: 720, maxFps: 30 };

for (const [what, capability, expected] of [
  ['nothing', {}, DEFAULTS],
  ['a width', { width: 640 }, { ...DEFAULTS, width: 640 }],
  ['a height', { height: 480 }, { ...DEFAULTS, height: 480 }],
  ['a frame rate', { maxFPS: 15 }, { ...DEFAULTS, maxFps: 15 }],
  ['an inherited height', Object.create({ height: 480 }), { ...DEFAULTS, height: 480 }],
  [
    'fractions and numbers of more than 32 bits',
    { width: 640.9, height: 4294967297, maxFPS: -1.5 },
    { ...DEFAULTS, width: 640, height: 1, maxFps: -1 },
  ],
  [
    'what is no number for an engine',
    { width: NaN, height: -Infinity, maxFPS: 2147483648 },
    { ...DEFAULTS, width: 0, height: 0, maxFps: -2147483648 },
  ],
]) {
  test(`a capability with ${what} leaves the other capture settings at their defaults`, () => {
    const device = { videoDeviceId: 'a', videoDeviceName: 'b', capability };
    assert.deepEqual(received('setVideoDevice', device), { device: expected });
    const params = { ...good.selectDevices(), videoDevice: device };
    assert.deepEqual(received('selectDevices', params).params.videoDevice, expected);
  });
}

test('without a capability the capture is 1280 x 720 at 30 frames per second', () => {
  const device = { videoDeviceId: 'a', videoDeviceName: 'b' };
  assert.deepEqual(received('setVideoDevice', device), { device: DEFAULTS });
  const params = { ...good.selectDevices(), videoDevice: device };
  assert.deepEqual(received('selectDevices', params).params.videoDevice, DEFAULTS);
});

test('an absent capability, or an absent member of it, is asked for and not read', () => {
  const readsOf = (object) => {
    const log = [];
    const handler = {
      has: (target, name) => {
        log.push(`has ${name}`);
        return name in target;
      },
      get: (target, name) => {
        log.push(`get ${name}`);
        return target[name];
      },
    };
    return { log, watched: new Proxy(object, handler) };
  };
  const device = readsOf({ videoDeviceId: 'a', videoDeviceName: 'b' });
  wrapper.setVideoDevice(device.watched);
  assert.equal(device.log.at(-1), 'has capability');
  const capability = readsOf({ height: 1 });
  wrapper.setVideoDevice({
    videoDeviceId: 'a',
    videoDeviceName: 'b',
    capability: capability.watched,
  });
  assert.deepEqual(capability.log, [
    'has width',
    'has height',
    'has height',
    'get height',
    'get height',
    'has maxFPS',
  ]);
});

for (const [capability, message] of [
  [
    { width: '640' },
    'Wrong type for property width on object CaptureCaptureCapability, expected Number',
  ],
  [5, 'Wrong type for property capability on object VideoDevice, expected Object'],
  [undefined, 'Wrong type for property capability on object VideoDevice, expected Object'],
]) {
  test(`setVideoDevice refuses the capability ${JSON.stringify(capability)}`, () => {
    const device = { videoDeviceId: 'a', videoDeviceName: 'b', capability };
    assertRefused(() => wrapper.setVideoDevice(device), TypeError, message);
  });
}

test('an inherited capability of the wrong type is refused', () => {
  const device = Object.create({ capability: null });
  Object.assign(device, { videoDeviceId: 'a', videoDeviceName: 'b' });
  assertRefused(
    () => wrapper.setVideoDevice(device),
    TypeError,
    'Wrong type for property capability on object VideoDevice, expected Object',
  );
});

test('an exception from asking for a capability is passed on', () => {
  const thrown = new Error('thrown by a trap');
  const has = (target, name) => {
    if (name === 'capability') throw thrown;
    return name in target;
  };
  const device = new Proxy({ videoDeviceId: 'a', videoDeviceName: 'b' }, { has });
  assertPassesOn(() => wrapper.setVideoDevice(device), thrown);
});

// ---- Volumes

for (const [volume, expected] of [
  [0, 0],
  [50.7, 50],
  [-1, 4294967296],
  [-0.9, 0],
  [-2147483648, 2147483648],
  [-256, 4294967040],
  [2147483647, 2147483648],
  [16777217, 16777216],
  [16777219, 16777220],
  [4294967297, 1],
  [NaN, 0],
  [Infinity, 0],
]) {
  test(`a volume of ${volume} arrives as ${expected}`, () => {
    const stats = { isSpeakerMuted: false, isMicMuted: true };
    for (const volumes of [
      { speakerVolume: volume, micVolume: 80 },
      { speakerVolume: 80, micVolume: volume },
    ]) {
      const expectedVolumes = Object.fromEntries(
        Object.entries(volumes).map(([name, each]) => [name, each === 80 ? 80 : expected]),
      );
      assert.deepEqual(received('sendAudioDeviceStats', { ...stats, ...volumes }), {
        stats: { ...stats, ...expectedVolumes },
      });
    }
  });
}

// ---- What is printed

test('selectDevices prints one line with the three identifiers before it calls the engine', () => {
  const outcomes = stepsApart(({ wrapper: apart, goodArguments: all, engine: scripted }) => {
    const withIds = (video, audioIn, audioOut) => {
      const [params] = all.selectDevices();
      params.videoDevice.videoDeviceId = video;
      params.audioInDevice.audioInId = audioIn;
      params.audioOutDevice.audioOutId = audioOut;
      return params;
    };
    return [
      () => apart.selectDevices(...all.selectDevices()),
      () => apart.selectDevices(withIds('', '', '')),
      () => apart.selectDevices(withIds('%s%n%d', '100%', '%')),
      () => apart.selectDevices(withIds('é', '😀', '\ud800')),
      () => apart.selectDevices(withIds('a\0b', '\0', 'c\0')),
      () => scripted.failOperation('SelectDevices', { throws: 'no device' }),
      () => apart.selectDevices(...all.selectDevices()),
    ];
  });
  const line = (video, audioIn, audioOut) =>
    `TesselWrapper::selectDevices: called, video device: ${video}, ` +
    `audio in device: ${audioIn}, audio out device: ${audioOut}`;
  assert.deepEqual(outcomes, [
    { lines: [line('camera id', 'in id', 'out id')], error: null },
    { lines: [line('', '', '')], error: null },
    { lines: [line('%s%n%d', '100%', '%')], error: null },
    { lines: [line('é', '😀', '\ufffd')], error: null },
    { lines: [line('a', '', 'c')], error: null },
    { lines: [], error: null },
    { lines: [line('camera id', 'in id', 'out id')], error: 'no device' },
  ]);
});

test('selectDevices reports a missing audioOutName, and prints nothing', () => {
  const text = 'Missing property audioOutName on object AudioOutDevice';
  const params = good.selectDevices();
  delete params.audioOutDevice.audioOutName;
  assertRefused(() => wrapper.selectDevices(params), TypeError, text);
  const outcomes = stepsApart(({ wrapper: apart, goodArguments: all }) => {
    const [incomplete] = all.selectDevices();
    delete incomplete.audioOutDevice.audioOutName;
    return [() => apart.selectDevices(incomplete)];
  });
  assert.deepEqual(outcomes, [{ lines: [], error: text }]);
});

testPrintsNothing({
  methods: [
    ...FLAGS.map(([method]) => method),
    'enableCameraCapture',
    ...RECORDS.map(({ method }) => method).filter((method) => method !== 'selectDevices'),
  ],
  onlyRefused: ['selectDevices'],
});
