// Tests of the scripted engine, on which other tests rely.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import path from 'node:path';
import { beforeEach, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import * as engine from '../../support/scripted/scripted_engine.mjs';

const { client } = engine;

const LOCAL = { kind: 0, index: 0 };
const REMOTE = { kind: 1, index: 3 };

beforeEach(() => {
  client.reset();
  engine.reset();
});

// A facade with a registered callback, without recorded calls.
function facadeWithCallback() {
  const facade = client.create({});
  client.registerCallback(facade, true);
  engine.clearCalls();
  return facade;
}

function arrived() {
  return client.takeNotifications().map(({ notification, args }) => [notification, ...args]);
}

// ---- Calls

const PARAMS = {
  CreateTSLMManager: {
    szUserAgent: 'agent',
    szAppVersion: '1.2',
    szConfigPath: '/config',
    szLogPath: '/log',
    szLogPrefix: 'prefix',
  },
  ConnectCall: {
    uri: 'tessel:demo',
    meetingGuid: 'guid',
    endpointName: 'endpoint',
    reservedText: 'reserved',
    meetingFeatures: ['a', 'b', 'c'],
    gracefulEvents: [
      ['first', true],
      ['second', false],
    ],
    maxBandwidth: -5,
    mediaStreamState: {
      outgoingAudioMuted: true,
      outgoingVideoMuted: false,
      incomingAudioEnabled: true,
      incomingVideoEnabled: false,
      contentStreamEnabled: true,
    },
    forceTurn: true,
    turnServers: [
      {
        protocol: 'udp',
        address: '10.0.0.1',
        username: 'user',
        password: 'secret',
        reservedText: 'reserved',
        fqdn: 'turn.example',
        port: 3478,
        priority: 2,
        bandwidth: 512,
      },
    ],
    enableRdc: true,
    isVesperMeeting: false,
    enableClientDrivenLayouts: true,
    enableClientLayoutOrdering: false,
    meetingAttributes: 'attributes',
  },
  device: { id: 'id', name: 'name', sourceName: 'source' },
  videoDevice: { id: 'camera', name: 'Camera', width: 640, height: 480, maxFps: 15 },
};

// Operation of the facade, arguments by position, arguments by name.
const OPERATIONS = [
  ['Initialize', [], {}],
  ['DeInitialize', [], {}],
  ['ConnectCall', [PARAMS.ConnectCall], { params: PARAMS.ConnectCall }],
  ['DisconnectCall', [], {}],
  ['MuteLocalVideo', [true], { mute: true }],
  ['MuteLocalAudio', [false], { mute: false }],
  ['SetRemoteAudioMute', [true], { mute: true }],
  ['EnableCameraCapture', [true], { enable: true }],
  ['SetAudioDebug', [false], { enable: false }],
  [
    'UpdateMediaStreamState',
    [PARAMS.ConnectCall.mediaStreamState],
    { state: PARAMS.ConnectCall.mediaStreamState },
  ],
  ['SetAudioInDevice', [PARAMS.device], { device: PARAMS.device }],
  ['SetAudioOutDevice', [PARAMS.device], { device: PARAMS.device }],
  ['SetVideoDevice', [PARAMS.videoDevice], { device: PARAMS.videoDevice }],
  ...[
    {
      videoDevice: PARAMS.videoDevice,
      audioInDevice: { id: 'in', name: 'In', sourceName: 'in source' },
      audioOutDevice: { id: 'out', name: 'Out', sourceName: 'out source' },
    },
  ].map((params) => ['SelectDevices', [params], { params }]),
  ...[{ isSpeakerMuted: true, speakerVolume: 4294967296, isMicMuted: false, micVolume: 0.5 }].map(
    (stats) => ['SendAudioDeviceStats', [stats], { stats }],
  ),
  ...[{ type: 2, screenId: -1, applicationId: 3, windowId: 42, engineFlag: true }].map((params) => [
    'StartPresentation',
    [params],
    { params },
  ]),
  ['StopPresentation', [], {}],
  ['RequestContentShareToken', [], {}],
  ['ReleaseContentShareToken', [], {}],
  ['GetScreenMonitorDetails', [], {}],
  ...[
    {
      streams: [{ ssrc: 4294967295, participantSsrc: 2, speakerGroup: 65535, priority: 1 }],
      constraints: [[], [{ maxQuality: 720, maxFrameRate: 30, minQuality: 180, minFrameRate: 7 }]],
    },
  ].map((both) => ['UpdateVideoStreamsState', [both.streams, both.constraints], both]),
  ['ConfigureMeetingStats', [true, 2000], { enable: true, timerDuration: 2000 }],
  ['GetMeetingStats', [], {}],
  ['GetRequiredMeetingAttributes', [], {}],
  ['GetConfigDataPtr', [], {}],
  [
    'RegisterEvent',
    ['x', 4294967295, 'application', 'json'],
    { eventName: 'x', expires: 4294967295, mimeType: 'application', mimeSubType: 'json' },
  ],
  ['UnregisterEvent', ['x'], { eventName: 'x' }],
  ['GetFrameManager', [REMOTE], { key: REMOTE }],
];

for (const [operation, args, named] of OPERATIONS) {
  test(`${operation} is recorded with every field`, () => {
    const facade = client.create({});
    engine.clearCalls();
    client.call(facade, operation, args);
    assert.deepEqual(engine.calls(), [{ operation, args: named }]);
  });
}

test('the calls of a facade are recorded in order, from creation to deletion', () => {
  const facade = client.create(PARAMS.CreateTSLMManager);
  client.registerCallback(facade, true);
  client.registerCallback(facade, false);
  client.destroyAll();
  client.deleteFacade(facade);
  assert.deepEqual(engine.calls(), [
    { operation: 'CreateTSLMManager', args: { params: PARAMS.CreateTSLMManager } },
    { operation: 'RegisterNotifyCallback', args: { callback: true } },
    { operation: 'RegisterNotifyCallback', args: { callback: false } },
    { operation: 'DestroyTSLMManager', args: {} },
    { operation: '~TSLMManager', args: {} },
  ]);
});

test('the operations of a frame manager are recorded with their stream', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  engine.clearCalls();
  client.getFrame(facade, REMOTE, 4294967295);
  client.callFrameManager(facade, REMOTE, 'ReleaseFrame', [-7]);
  client.callFrameManager(facade, REMOTE, 'EnableFrameCapture', []);
  client.callFrameManager(facade, REMOTE, 'DisableFrameCapture', []);
  client.callFrameManager(facade, REMOTE, 'ReservedSlot6', []);
  client.callFrameManager(facade, REMOTE, 'ReservedSlot7', []);
  client.setReceiver(facade, REMOTE, true);
  client.setReceiver(facade, REMOTE, false);
  const calls = engine.calls().filter(({ operation }) => operation !== 'GetFrameManager');
  assert.deepEqual(calls, [
    { operation: 'GetFrame', args: { key: REMOTE, frameId: 4294967295 } },
    { operation: 'ReleaseFrame', args: { key: REMOTE, frameId: -7 } },
    { operation: 'EnableFrameCapture', args: { key: REMOTE } },
    { operation: 'DisableFrameCapture', args: { key: REMOTE } },
    { operation: 'ReservedSlot6', args: { key: REMOTE } },
    { operation: 'ReservedSlot7', args: { key: REMOTE } },
    { operation: 'SetFrameReceiver', args: { key: REMOTE, receiver: true } },
    { operation: 'SetFrameReceiver', args: { key: REMOTE, receiver: false } },
  ]);
});

test('the operations of the configuration are recorded', () => {
  const facade = client.create({});
  engine.clearCalls();
  client.callConfigData(facade, 'isVesperCapable', []);
  client.callConfigData(facade, 'maxVOQualityIndex', []);
  client.callConfigData(facade, 'update', ['text']);
  const calls = engine.calls().filter(({ operation }) => operation !== 'GetConfigDataPtr');
  assert.deepEqual(calls, [
    { operation: 'isVesperCapable', args: {} },
    { operation: 'maxVOQualityIndex', args: {} },
    { operation: 'update', args: { configText: 'text' } },
  ]);
});

test('a recorded call has its thread and its facade', () => {
  const first = client.create({});
  const second = client.create({});
  engine.clearCalls();
  client.call(second, 'DisconnectCall', []);
  client.call(first, 'DisconnectCall', []);
  const [ofSecond, ofFirst] = engine.calls();
  assert.equal(ofFirst.thread, engine.jsThread);
  assert.equal(ofFirst.onJsThread, true);
  assert.equal(ofSecond.engine, ofFirst.engine + 1);
});

test('taking the recorded calls removes them, and operations() gives their names alone', () => {
  const facade = client.create({});
  client.call(facade, 'DisconnectCall', []);
  assert.deepEqual(engine.operations(), ['CreateTSLMManager', 'DisconnectCall']);
  assert.equal(engine.takeCalls().length, 2);
  assert.deepEqual(engine.calls(), []);
});

test('calls are not recorded while recording is off', () => {
  const facade = client.create({});
  engine.clearCalls();
  engine.recordCalls(false);
  client.call(facade, 'DisconnectCall', []);
  engine.recordCalls(true);
  client.call(facade, 'StopPresentation', []);
  assert.deepEqual(engine.operations(), ['StopPresentation']);
});

// ---- Initialisation

test('completion inside Initialize is reported by the calling thread', () => {
  const facade = facadeWithCallback();
  engine.setInitialisation('inside');
  client.call(facade, 'Initialize', []);
  const [completed] = client.takeNotifications();
  assert.equal(completed.notification, 'NotifyInitCompleted');
  assert.equal(completed.thread, engine.jsThread);
});

test('completion before the wait is reported by another thread, before Initialize returns', () => {
  const facade = facadeWithCallback();
  engine.setInitialisation('before-wait');
  client.call(facade, 'Initialize', []);
  const [completed] = client.takeNotifications();
  assert.equal(completed.notification, 'NotifyInitCompleted');
  assert.notEqual(completed.thread, engine.jsThread);
});

test('later completion is reported by another thread', () => {
  const facade = facadeWithCallback();
  engine.setInitialisation('later', { delayMs: 0 });
  client.call(facade, 'Initialize', []);
  client.awaitNotifications('NotifyInitCompleted', 1);
  const [completed] = client.takeNotifications();
  assert.notEqual(completed.thread, engine.jsThread);
});

test('Initialize does not wait for later completion, and a reset gives it up', () => {
  const facade = facadeWithCallback();
  const [week, notifications] = [7 * 24 * 3600 * 1000, [['NotifyMicLevel', 1]]];
  engine.setInitialisation('later', { delayMs: week, notifications });
  client.call(facade, 'Initialize', []);
  assert.deepEqual(arrived(), []);
  engine.reset();
  assert.deepEqual(arrived(), []);
});

for (const mode of ['inside', 'before-wait', 'later']) {
  test(`notifications queued for '${mode}' arrive from an engine thread before completion`, () => {
    const facade = facadeWithCallback();
    engine.setInitialisation(mode, {
      notifications: [
        ['NotifyMicLevel', 1],
        ['NotifyStreamAdded', { type: 'remote', streamIndex: 3 }, 7],
      ],
    });
    client.call(facade, 'Initialize', []);
    client.awaitNotifications('NotifyInitCompleted', 1);
    const notifications = client.takeNotifications();
    assert.deepEqual(
      notifications.map(({ notification, args }) => [notification, ...args]),
      [['NotifyMicLevel', 1], ['NotifyStreamAdded', REMOTE, 7], ['NotifyInitCompleted']],
    );
    assert.notEqual(notifications[0].thread, engine.jsThread);
  });
}

// ---- Failures

const ofConfigData = ['isVesperCapable', 'maxVOQualityIndex', 'update'];
const ofFrameManager = ['ReleaseFrame', 'EnableFrameCapture', 'DisableFrameCapture'];

// How the client reaches an operation, with arguments that fit.
function reach(facade, operation) {
  const found = OPERATIONS.find(([name]) => name === operation);
  if (found) return client.call(facade, operation, found[1]);
  if (ofConfigData.includes(operation)) {
    return client.callConfigData(facade, operation, operation === 'update' ? ['text'] : []);
  }
  if (ofFrameManager.includes(operation)) {
    return client.callFrameManager(
      facade,
      REMOTE,
      operation,
      operation === 'ReleaseFrame' ? [1] : [],
    );
  }
  return {
    CreateTSLMManager: () => client.create({}),
    DestroyTSLMManager: () => client.destroyAll(),
    RegisterNotifyCallback: () => client.registerCallback(facade, true),
    GetFrame: () => client.getFrame(facade, REMOTE, 0),
    SetFrameReceiver: () => client.setReceiver(facade, REMOTE, true),
  }[operation]();
}

const ALL_OPERATIONS = [
  ...OPERATIONS.map(([operation]) => operation),
  ...ofConfigData,
  ...ofFrameManager,
  'CreateTSLMManager',
  'DestroyTSLMManager',
  'RegisterNotifyCallback',
  'GetFrame',
  'SetFrameReceiver',
];

test('the engine lists the operations that can be made to fail', () => {
  assert.deepEqual([...engine.failingOperations].sort(), [...ALL_OPERATIONS].sort());
});

for (const operation of ALL_OPERATIONS) {
  test(`${operation} fails as configured, and works again afterwards`, () => {
    const facade = client.create({});
    engine.setStream(REMOTE);
    engine.failOperation(operation, { throws: 'no luck' });
    assert.throws(() => reach(facade, operation), { message: 'no luck' });
    engine.failOperation(operation, { throwsInt: true });
    assert.throws(() => reach(facade, operation), { message: 'the integer 42 was thrown' });
    engine.failOperation(operation, null);
    reach(facade, operation);
    assert.equal(engine.operations().filter((name) => name === operation).length >= 3, true);
  });
}

test('operations with a result return nothing when configured so', () => {
  const facade = client.create({});
  engine.setFrame(REMOTE, { width: 2, height: 2, frameId: 4 });
  engine.setResults({
    screenMonitors: [{ width: 1 }],
    meetingStats: { systemCpu: 5 },
    requiredMeetingAttributes: ['a'],
    isVesperCapable: true,
    maxVOQualityIndex: 4,
  });
  const answers = {
    CreateTSLMManager: 0,
    GetScreenMonitorDetails: [],
    GetRequiredMeetingAttributes: [],
    isVesperCapable: false,
    maxVOQualityIndex: 0,
    GetConfigDataPtr: false,
    GetFrameManager: false,
  };
  for (const [operation, nothing] of Object.entries(answers)) {
    assert.notDeepEqual(reach(facade, operation), nothing, operation);
    engine.failOperation(operation, { returnsNull: true });
    assert.deepEqual(reach(facade, operation), nothing, operation);
    engine.failOperation(operation, null);
  }
  engine.failOperation('GetMeetingStats', { returnsNull: true });
  assert.equal(reach(facade, 'GetMeetingStats').systemCpu, 0);
  engine.failOperation('GetFrame', { returnsNull: true });
  assert.equal(reach(facade, 'GetFrame').frame, false);
});

test('an operation without a result cannot be configured to return nothing', () => {
  assert.throws(() => engine.failOperation('ConnectCall', { returnsNull: true }), {
    message: 'there is no result of ConnectCall',
  });
});

// ---- Results

test('the results are returned field by field', () => {
  const facade = client.create({});
  const screenMonitors = [
    { x: -1920, y: 0, width: 1920, height: 1080, engineValue: 9 },
    { x: 0, y: -5, width: 800, height: 600, engineValue: -1 },
  ];
  engine.setResults({ screenMonitors });
  engine.setResults({ requiredMeetingAttributes: ['b', 'a', 'b'] });
  engine.setResults({ isVesperCapable: true, maxVOQualityIndex: -2 });
  assert.deepEqual(reach(facade, 'GetScreenMonitorDetails'), screenMonitors);
  assert.deepEqual(reach(facade, 'GetRequiredMeetingAttributes'), ['a', 'b']);
  assert.equal(reach(facade, 'isVesperCapable'), true);
  assert.equal(reach(facade, 'maxVOQualityIndex'), -2);
});

test('the meeting statistics are returned field by field, their maps ordered by SSRC', () => {
  const facade = client.create({});
  let value = 0;
  const next = () => ++value;
  const video = () => ({
    width: next(),
    height: next(),
    totalBitrateBps: next(),
    fractionLost: next() / 4,
    cumulativeLost: next(),
    delayMs: next(),
    fps: next(),
    rtxRecoveredPackets: next(),
    fecRecoveredPackets: next(),
    retransmitBitrateBps: next(),
  });
  const [first, second, third] = [video(), video(), video()];
  const meetingStats = {
    systemCpu: next(),
    processCpu: next(),
    inboundBweBps: next(),
    outboundBweBps: next(),
    totalInboundBps: next(),
    totalOutboundBps: next(),
    sendTmmbrBitrate: next(),
    instantInboundLoss: 0.25,
    instantOutboundLoss: 0.5,
    videoSend: [
      [4294967295, first],
      [10, second],
    ],
    contentSend: video(),
    videoReceive: [[11, third]],
    contentReceive: video(),
    audio: {
      transmitLevel: 0.1,
      outputLevel: 0.2,
      snr: 0.3,
      downlinkJitter: next(),
      uplinkJitter: next(),
      downlinkPacketLossCount: next(),
      uplinkPacketLossCount: next(),
      downlinkPacketCorrectedCount: next(),
      uplinkPacketCorrectedCount: next(),
      downlinkPayloadBytes: 2 ** 53 - 1,
      uplinkPayloadBytes: 2n ** 64n - 1n,
    },
  };
  engine.setResults({ meetingStats });
  assert.deepEqual(reach(facade, 'GetMeetingStats'), {
    ...meetingStats,
    videoSend: [
      [10, second],
      [4294967295, first],
    ],
  });
});

// ---- Notifications

const NOTIFICATIONS = [
  ['NotifyInitCompleted'],
  ['NotifyStreamAdded', LOCAL, 4294967295],
  ['NotifyStreamRemoved', REMOTE, 1],
  ['NotifyStreamUpdated', { kind: 7, index: -1 }, 0],
  ['NotifyGracefulEvent', 'event', true],
  ['NotifyCallConnectionStatus', false],
  ['NotifyScreenShareStatus', 5],
  ['NotifyContentReceiveStatus', true, 'guid'],
  ['NotifyCallDisconnect', -3, 'reason', 486],
  ['NotifyMediaMuteState', 99, true],
  ['NotifyMicLevel', 4294967295],
  ['NotifyRtpMediaState', 2, false],
  ['NotifyDeviceChange', 'id', 0],
  ['NotifyEvent', 'name', '{"text": "ünïcode"}'],
  ['NotifyUpdateVOQualityIndex', -1],
];

for (const [name, ...args] of NOTIFICATIONS) {
  test(`${name} is fired from a new thread with the given arguments`, () => {
    facadeWithCallback();
    engine.fire(name, ...args);
    const [{ thread, ...rest }, ...more] = client.takeNotifications();
    assert.deepEqual(rest, { notification: name, args });
    assert.notEqual(thread, engine.jsThread);
    assert.deepEqual(more, []);
  });
}

test('a notification fired without waiting arrives by the time it is joined', () => {
  facadeWithCallback();
  const running = engine.fireAsync('NotifyMicLevel', 5);
  client.awaitNotifications('NotifyMicLevel', 1);
  assert.equal(running.join(), 1);
  assert.throws(() => running.join(), { message: 'there is nothing to join' });
});

test('many threads fire at once, each in its own order', () => {
  facadeWithCallback();
  const [threads, count] = [4, 200];
  const sent = engine.fireMany({
    threads,
    count,
    notification: 'NotifyEvent',
    args: (thread, sequence) => [`${thread}`, `${sequence}`],
  });
  assert.equal(sent, threads * count);
  const notifications = client.takeNotifications();
  assert.equal(new Set(notifications.map(({ thread }) => thread)).size, threads);
  for (let thread = 0; thread < threads; ++thread) {
    const sequences = notifications.filter(({ args }) => args[0] === `${thread}`);
    assert.deepEqual(
      sequences.map(({ args }) => args[1]),
      Array.from({ length: count }, (_, sequence) => `${sequence}`),
    );
  }
});

test('many threads can repeat one notification', () => {
  facadeWithCallback();
  const options = { threads: 2, count: 3, notification: 'NotifyMicLevel', args: [8] };
  assert.equal(engine.fireManyAsync(options).join(), 6);
  assert.deepEqual(arrived(), Array(6).fill(['NotifyMicLevel', 8]));
});

test('the callback is still notified after the end of its facade, until it is dropped', () => {
  const facade = facadeWithCallback();
  client.call(facade, 'DeInitialize', []);
  client.destroyAll();
  client.deleteFacade(facade);
  engine.fire('NotifyMicLevel', 1);
  assert.deepEqual(arrived(), [['NotifyMicLevel', 1]]);
  engine.dropCallback();
  assert.throws(() => engine.fire('NotifyMicLevel', 2), {
    message: 'the engine holds no callback',
  });
});

test('the callback is dropped on the calling thread, or on an engine thread', () => {
  const facade = facadeWithCallback();
  assert.equal(client.callbackLetGoOnThread(), 0);
  engine.dropCallback();
  assert.equal(client.callbackLetGoOnThread(), engine.jsThread);
  client.registerCallback(facade, true);
  engine.dropCallback({ onEngineThread: true });
  assert.notEqual(client.callbackLetGoOnThread(), 0);
  assert.notEqual(client.callbackLetGoOnThread(), engine.jsThread);
});

test('notifications go to the callback that was registered last, or to the selected one', () => {
  const first = facadeWithCallback();
  client.call(first, 'StopPresentation', []);
  const [{ engine: number }] = engine.takeCalls();
  const second = client.create({});
  client.registerCallback(second, false);
  assert.throws(() => engine.fire('NotifyMicLevel', 1), {
    message: 'the engine holds no callback',
  });
  engine.selectEngine(number);
  engine.fire('NotifyMicLevel', 2);
  assert.deepEqual(arrived(), [['NotifyMicLevel', 2]]);
});

// ---- Frames that a caller fetches

const plane = (width, height, bytes) => ({
  width,
  height,
  size: width * height,
  stride: width,
  bytes,
});

test('a stream has a frame manager only after it was given one', () => {
  const facade = client.create({});
  assert.equal(client.call(facade, 'GetFrameManager', [REMOTE]), false);
  engine.setStream(REMOTE);
  assert.equal(client.call(facade, 'GetFrameManager', [REMOTE]), true);
  assert.equal(client.call(facade, 'GetFrameManager', [LOCAL]), false);
  engine.setStream(REMOTE, { frameManager: false });
  assert.equal(client.call(facade, 'GetFrameManager', [REMOTE]), false);
  assert.throws(() => client.getFrame(facade, REMOTE, 0));
});

test('streams can be given as the addon gives them', () => {
  const facade = client.create({});
  engine.setStream({ type: 'content', streamIndex: 2 });
  assert.equal(client.call(facade, 'GetFrameManager', [{ kind: 2, index: 2 }]), true);
});

test('a stream without a frame gives no update', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  const { noUpdate, clearFrame, frameId, csrc, frame } = client.getFrame(facade, REMOTE, 0);
  assert.deepEqual(
    { noUpdate, clearFrame, frameId, csrc, frame },
    { noUpdate: true, clearFrame: false, frameId: 0, csrc: 0, frame: false },
  );
});

test('a frame is answered with every field and, in its planes, the pattern', () => {
  const facade = client.create({});
  engine.setFrame(REMOTE, {
    frameId: 2 ** 40 + 3,
    csrc: 77,
    width: 7,
    height: 5,
    engineValue: 2n ** 63n,
  });
  const pattern = engine.patternBytes({ ...REMOTE, number: 2 ** 40 + 3 }, 35 + 12 + 12);
  const frame = client.getFrame(facade, REMOTE, 0);
  assert.deepEqual(frame, {
    noUpdate: false,
    clearFrame: false,
    frameId: 2 ** 40 + 3,
    csrc: 77,
    frame: true,
    width: 7,
    height: 5,
    engineValue: 2n ** 63n,
    y: plane(7, 5, pattern.subarray(0, 35)),
    u: plane(4, 3, pattern.subarray(35, 47)),
    v: plane(4, 3, pattern.subarray(47)),
  });
  assert.deepEqual(engine.frameIdentity(frame.y.bytes), { ...REMOTE, number: 2 ** 40 + 3 });
  assert.equal(engine.isWholeFrame(frame.y.bytes, frame.u.bytes, frame.v.bytes), true);
  frame.v.bytes[11] ^= 1;
  assert.equal(engine.isWholeFrame(frame.y.bytes, frame.u.bytes, frame.v.bytes), false);
});

test("a frame's planes have the configured sizes and content", () => {
  const facade = client.create({});
  engine.setFrame(REMOTE, {
    width: 4,
    height: 2,
    planes: {
      y: { width: 3, height: 2, stride: 8, size: 16, fill: 9 },
      u: { bytes: Buffer.from([1, 2]) },
      v: { size: 100, nullData: true },
    },
    clearFrame: true,
  });
  const { clearFrame, y, u, v } = client.getFrame(facade, REMOTE, 1);
  assert.equal(clearFrame, true);
  assert.deepEqual(y, { width: 3, height: 2, size: 16, stride: 8, bytes: Buffer.alloc(16, 9) });
  assert.deepEqual(u, plane(2, 1, Buffer.from([1, 2])));
  assert.deepEqual(v, { width: 2, height: 1, size: 100, stride: 2 });
});

test('a caller that has the frame gets no update, by the low 32 bits of its id', () => {
  const facade = client.create({});
  const answers = (newestId) => !client.getFrame(facade, REMOTE, newestId).noUpdate;
  engine.setFrame(REMOTE, { frameId: 2 ** 32 + 5, width: 2, height: 2 });
  assert.deepEqual([4, 5, 6].map(answers), [true, false, true]);
  engine.setFrame(REMOTE, { frameId: 2 ** 32 + 5, width: 2, height: 2, always: true });
  assert.deepEqual([4, 5, 6].map(answers), [true, true, true]);
  engine.setFrame(REMOTE, { frameId: 2 ** 32 + 5, noUpdate: true });
  assert.deepEqual([4, 5, 6].map(answers), [false, false, false]);
});

test('an answer without an update has only its first fields', () => {
  const facade = client.create({});
  engine.setFrame(REMOTE, { frameId: 6, csrc: 8, clearFrame: true, noUpdate: true });
  const { noUpdate, clearFrame, frameId, csrc, frame, width, y } = client.getFrame(
    facade,
    REMOTE,
    0,
  );
  assert.deepEqual(
    { noUpdate, clearFrame, frameId, csrc, frame, width, size: y.size },
    {
      noUpdate: true,
      clearFrame: true,
      frameId: 6,
      csrc: 8,
      frame: false,
      width: 0xdddddddd,
      size: 0xdddddddd,
    },
  );
});

test('a frame exists as long as the engine or its receiver holds it', () => {
  const facade = client.create({});
  assert.equal(engine.liveFrames(), 0);
  engine.setFrame(REMOTE, { frameId: 1, width: 2, height: 2 });
  assert.equal(engine.liveFrames(), 1);
  client.getFrame(facade, REMOTE, 0);
  engine.setFrame(REMOTE, { frameId: 2, width: 2, height: 2 });
  assert.equal(engine.liveFrames(), 2);
  client.getFrame(facade, REMOTE, 1);
  assert.equal(engine.liveFrames(), 1);
  engine.reset();
  assert.equal(engine.liveFrames(), 1);
  client.releaseFrame();
  assert.equal(engine.liveFrames(), 0);
});

test('a fresh frame for each call has the next id and belongs to the caller alone', () => {
  const facade = client.create({});
  engine.setFrame(REMOTE, { frameId: 10, width: 8, height: 4, fresh: true });
  assert.equal(engine.liveFrames(), 0);
  for (const id of [10, 11, 12]) {
    const { frameId, noUpdate, y, u, v } = client.getFrame(facade, REMOTE, id);
    assert.deepEqual([frameId, noUpdate], [id, false]);
    assert.deepEqual(engine.frameIdentity(y.bytes), { ...REMOTE, number: id });
    assert.equal(engine.isWholeFrame(y.bytes, u.bytes, v.bytes), true);
    assert.equal(engine.liveFrames(), 1);
  }
});

test('a fresh frame in recycled memory has its own identity', () => {
  const facade = client.create({});
  engine.setFrame(REMOTE, { frameId: 10, width: 8, height: 4, fresh: true, recycled: true });
  for (const id of [10, 11, 12]) {
    const { y } = client.getFrame(facade, REMOTE, 0);
    assert.deepEqual(engine.frameIdentity(y.bytes), { ...REMOTE, number: id });
  }
});

test('the objects that the process holds are counted', () => {
  const none = { engines: 0, frameManagers: 0, configurations: 0, frames: 0 };
  assert.deepEqual(engine.live(), none);
  const facade = client.create({});
  engine.setStream(REMOTE);
  client.getFrame(facade, REMOTE, 0);
  client.callConfigData(facade, 'isVesperCapable', []);
  assert.deepEqual(engine.live(), { ...none, engines: 1 });
  client.deleteFacade(facade);
  assert.deepEqual(engine.live(), none);
});

// ---- Frames for a receiver

test('a pushed frame reaches the receiver on an engine thread with all its properties', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  client.setReceiver(facade, REMOTE, true);
  const frame = { width: 6, height: 4, csrc: 5, valueA: 1, valueB: 2, valueC: 3, number: 9 };
  assert.equal(engine.pushFrame(REMOTE, frame), true);
  const [{ thread, ...rest }] = client.takeFrames();
  assert.deepEqual(rest, {
    key: REMOTE,
    csrc: 5,
    empty: false,
    width: 6,
    height: 4,
    valueA: 1,
    valueB: 2,
    valueC: 3,
    bufferSize: 36,
    bytes: engine.patternBytes({ ...REMOTE, number: 9 }, 36),
  });
  assert.notEqual(thread, engine.jsThread);
  assert.equal(engine.liveFrames(), 0);
});

for (const [what, frame, expected] of [
  ['filled', { fill: 3 }, { bytes: Buffer.alloc(6, 3), bufferSize: 6 }],
  [
    'with given bytes',
    { fill: 0, bytes: Buffer.from([7, 8]) },
    { bytes: Buffer.from([7, 8, 0, 0, 0, 0]), bufferSize: 6 },
  ],
  [
    'with a size of its own',
    { fill: 1, bufferSize: 9 },
    { bytes: Buffer.alloc(9, 1), bufferSize: 9 },
  ],
  [
    'without a buffer',
    { nullBuffer: true, bufferSize: 2n ** 64n - 1n },
    { bytes: undefined, bufferSize: 2n ** 64n - 1n },
  ],
  ['that is empty', { empty: true }, { empty: true, bytes: undefined, bufferSize: 0 }],
]) {
  test(`a frame ${what} can be pushed`, () => {
    const facade = client.create({});
    engine.setStream(REMOTE);
    client.setReceiver(facade, REMOTE, true);
    assert.equal(engine.pushFrame(REMOTE, { width: 2, height: 2, ...frame }), true);
    const [{ empty, bytes, bufferSize }] = client.takeFrames();
    assert.deepEqual({ empty, bytes, bufferSize }, { empty: false, ...expected });
  });
}

test('a frame without a receiver is not delivered', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  assert.equal(engine.pushFrame(REMOTE, { width: 2, height: 2 }), false);
  client.setReceiver(facade, REMOTE, true);
  client.setReceiver(facade, REMOTE, false);
  assert.equal(engine.pushFrame(REMOTE, { width: 2, height: 2 }), false);
  assert.deepEqual(client.takeFrames(), []);
});

test('detaching a receiver waits for the running delivery and releases the receiver', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  client.setFrameMs(100);
  client.setReceiver(facade, REMOTE, true);
  const running = engine.pushFrameAsync(REMOTE, { width: 2, height: 2 });
  client.awaitDelivery();
  client.setReceiver(facade, REMOTE, false);
  assert.equal(client.deliveriesUnderWay(), 0);
  assert.equal(client.receiverOwners(), 0);
  assert.equal(running.join(), 1);
});

test('a stream that keeps its receiver delivers to it after it was removed, until a reset', () => {
  const facade = client.create({});
  engine.setStream(REMOTE, { keepsReceiver: true });
  client.setReceiver(facade, REMOTE, true);
  client.setReceiver(facade, REMOTE, false);
  assert.equal(engine.pushFrame(REMOTE, { width: 2, height: 2 }), true);
  assert.equal(client.takeFrames().length, 1);
  engine.reset();
  assert.equal(client.receiverOwners(), 0);
});

test('the receiver never runs twice at once for one stream', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  client.setFrameMs(5);
  client.setReceiver(facade, REMOTE, true);
  const running = Array.from({ length: 8 }, () => engine.pushFrameAsync(REMOTE, {}));
  for (const each of running) each.join();
  assert.equal(client.takeFrames().length, 8);
  assert.equal(client.mostDeliveriesAtOnce(), 1);
});

for (const [pace, options] of [
  ['at a frame rate', { fps: 500 }],
  ['flat out', {}],
]) {
  test(`frames pushed ${pace} are whole and numbered, from one thread, until stopped`, () => {
    const facade = client.create({});
    engine.setStream(REMOTE);
    client.setReceiver(facade, REMOTE, true);
    engine.startPushing(REMOTE, { width: 16, height: 8, csrc: 4, ...options });
    client.awaitFrames(5);
    const delivered = engine.stopPushing(REMOTE);
    const frames = client.takeFrames();
    assert.equal(frames.length, delivered);
    frames.forEach(({ bytes, csrc }, number) => {
      assert.deepEqual(engine.frameIdentity(bytes), { ...REMOTE, number });
      assert.equal(engine.isWholeFrame(bytes), true);
      assert.equal(csrc, 4);
    });
    const threads = new Set(frames.map(({ thread }) => thread));
    assert.equal(threads.size, 1);
    assert.equal(threads.has(engine.jsThread), false);
    assert.equal(engine.stopPushing(REMOTE), 0);
  });
}

test('frames can be pushed from recycled memory', () => {
  const facade = client.create({});
  engine.setStream(REMOTE);
  client.setReceiver(facade, REMOTE, true);
  engine.startPushing(REMOTE, { width: 16, height: 8, recycled: true });
  client.awaitFrames(3);
  engine.stopPushing(REMOTE);
  const numbers = client.takeFrames().map(({ bytes }) => engine.frameIdentity(bytes).number);
  assert.deepEqual(
    numbers,
    numbers.map((_, number) => number),
  );
});

test('several streams push at once, and a receiver leaves one while the others go on', () => {
  const facade = client.create({});
  const streams = [0, 1, 2].map((index) => ({ kind: 1, index }));
  for (const stream of streams) {
    engine.startPushing(stream, { width: 4, height: 4 });
    client.setReceiver(facade, stream, true);
  }
  client.awaitFrames(50);
  client.setReceiver(facade, streams[0], false);
  client.takeFrames();
  client.awaitFrames(50);
  assert.equal(
    client.takeFrames().some(({ key }) => key.index === 0),
    false,
  );
});

// ---- State

test('reset ends running activities and restores the defaults', () => {
  const facade = facadeWithCallback();
  engine.failOperation('DisconnectCall', { throws: 'no luck' });
  engine.setInitialisation('later');
  engine.setResults({ isVesperCapable: true });
  engine.setFrame(LOCAL, { width: 2, height: 2 });
  engine.recordCalls(false);
  engine.fireAsync('NotifyMicLevel', 0);
  engine.selectEngine(99);
  engine.startPushing(REMOTE, { width: 2, height: 2 });
  client.setReceiver(facade, REMOTE, true);
  client.awaitFrames(1);
  engine.reset();

  assert.equal(engine.liveFrames(), 0);
  assert.equal(client.receiverOwners(), 0);
  assert.equal(client.callbackLetGoOnThread(), engine.jsThread);
  assert.deepEqual(engine.calls(), []);
  client.call(facade, 'DisconnectCall', []);
  assert.deepEqual(engine.operations(), ['DisconnectCall']);
  assert.equal(reach(facade, 'isVesperCapable'), false);
  assert.equal(client.call(facade, 'GetFrameManager', [LOCAL]), false);
  client.registerCallback(facade, true);
  client.takeNotifications();
  client.call(facade, 'Initialize', []);
  assert.equal(arrived().at(-1)[0], 'NotifyInitCompleted');
  engine.fire('NotifyMicLevel', 1);
  assert.deepEqual(arrived(), [['NotifyMicLevel', 1]]);
});

for (const [what, mistake, message] of [
  ['operation', () => engine.failOperation('Fail', null), 'there is no operation Fail'],
  ['notification', () => engine.fire('Notify'), 'there is no notification Notify'],
  ['initialisation', () => engine.setInitialisation('never'), 'there is no initialisation never'],
  ['result', () => engine.setResults({ cpu: 1 }), 'there is no field cpu'],
  [
    'field of a result',
    () => engine.setResults({ meetingStats: { audio: { snr: 'loud' } } }),
    'meetingStats: audio: snr: expected a number',
  ],
  ['number of arguments', () => engine.fire('NotifyMicLevel'), 'expected 1 arguments, got 0'],
  ['argument', () => engine.fire('NotifyMicLevel', -1), '-1 is out of range'],
  [
    "plane's size",
    () => engine.setFrame(REMOTE, { planes: { y: { size: 3, bytes: Buffer.alloc(2) } } }),
    "a plane's bytes are not as many as its size says",
  ],
]) {
  test(`an invalid ${what} is refused`, () => {
    facadeWithCallback();
    assert.throws(mistake, { message });
  });
}

// ---- The process

test("the engine has the file name and the library name of the product's engine", () => {
  const library = path.join(engine.engineDirectory, 'libtesselclient.so');
  const dynamic = execFileSync('readelf', ['-d', library], { encoding: 'utf8' });
  assert.match(dynamic, /SONAME.*\[libtesselclient\.so\]/);
});

test('a process ends by itself while engine threads are running', () => {
  const module = fileURLToPath(
    new URL('../../support/scripted/scripted_engine.mjs', import.meta.url),
  );
  const program = `
    import * as engine from ${JSON.stringify(module)};
    const { client } = engine;
    const facade = client.create({});
    client.registerCallback(facade, true);
    engine.setInitialisation('later');
    client.call(facade, 'Initialize', []);
    engine.fireAsync('NotifyMicLevel', 1);
    engine.startPushing({ kind: 0, index: 0 }, { width: 64, height: 64 });
    client.setReceiver(facade, { kind: 0, index: 0 }, true);
    client.awaitFrames(3);
  `;
  const { status, signal, stderr } = spawnSync(
    process.execPath,
    ['--input-type=module', '-e', program],
    { encoding: 'utf8' },
  );
  assert.deepEqual({ status, signal, stderr }, { status: 0, signal: null, stderr: '' });
});
