// An engine that breaks its promises.

import assert from 'node:assert/strict';

import {
  collect,
  construct,
  engine,
  EventEmitter,
  nextTurn,
} from '../../js/fixtures/wrapper_kit.mjs';
import { collectUntil } from '../../js/support/collector.mjs';
import { METHODS } from '../../js/fixtures/method_table.mjs';

const STREAM = { type: 'remote', streamIndex: 3 };
const FAILURES = [{ throws: 'the engine fails' }, { throwsInt: true }, { returnsNull: true }];

// What the operations of the engine are reached by, besides the methods of their names.
const CONSTRUCTION = ['CreateTSLMManager', 'RegisterNotifyCallback', 'Initialize'];

let tried = 0;
let errors = 0;

// An Error or nothing. Answers with whether it was an Error.
function attempt(call) {
  ++tried;
  try {
    call();
    return false;
  } catch (error) {
    assert.ok(error instanceof Error, String(error));
    ++errors;
    return true;
  }
}

// The operations that a call reaches, so that each of them may fail.
function operationsOf(call) {
  engine.clearCalls();
  attempt(call);
  return [...new Set(engine.operations())];
}

// The others answer with nothing anyway.
const WITH_RESULT = [
  'CreateTSLMManager',
  'GetScreenMonitorDetails',
  'GetMeetingStats',
  'GetRequiredMeetingAttributes',
  'GetConfigDataPtr',
  'GetFrameManager',
];
const failuresOf = (operation) =>
  FAILURES.filter(({ returnsNull }) => !returnsNull || WITH_RESULT.includes(operation));

function failEach(operations, call) {
  for (const operation of operations) {
    for (const failure of failuresOf(operation)) {
      engine.failOperation(operation, failure);
      const threw = attempt(call);
      engine.failOperation(operation, null);
      // What the engine throws is never swallowed.
      if (!failure.returnsNull) assert.equal(threw, true, `${operation} failed unseen`);
    }
  }
}

async function failMethods() {
  const wrapper = construct();
  engine.setStream(STREAM);
  const reached = new Set();
  for (const { name, args } of METHODS.filter((method) => method.name !== 'destroy')) {
    const call = () => {
      // Entering reaches the engine only after leaving.
      if (name === 'enterWidgetMode') wrapper.exitWidgetMode(STREAM);
      return wrapper[name](...args);
    };
    const operations = operationsOf(call);
    operations.forEach((operation) => reached.add(operation));
    failEach(operations, call);
  }
  wrapper.exitWidgetMode(STREAM);
  for (const operation of ['DeInitialize', 'DestroyTSLMManager']) {
    failEach([operation], () => wrapper.destroy());
    reached.add(operation);
  }
  wrapper.destroy();
  return reached.size;
}

async function failConstruction() {
  for (const operation of CONSTRUCTION) {
    for (const failure of failuresOf(operation)) {
      engine.failOperation(operation, failure);
      let wrapper;
      attempt(() => {
        wrapper = construct();
      });
      engine.failOperation(operation, null);
      wrapper?.destroy();
      engine.dropCallback();
      await collect();
    }
  }
}

// Every notification, in values that the interface does not list too.
function notifyAll(number) {
  const key = { kind: number, index: number };
  engine.fire('NotifyInitCompleted');
  for (const what of ['Added', 'Removed', 'Updated']) engine.fire(`NotifyStream${what}`, key, 1);
  engine.fire('NotifyGracefulEvent', Buffer.from([0xff, 0, 0x80]), true);
  engine.fire('NotifyCallConnectionStatus', true);
  engine.fire('NotifyScreenShareStatus', number);
  engine.fire('NotifyContentReceiveStatus', true, Buffer.from([0xc0]));
  engine.fire('NotifyCallDisconnect', number, '', number);
  engine.fire('NotifyMediaMuteState', number, true);
  engine.fire('NotifyMicLevel', 1);
  engine.fire('NotifyRtpMediaState', number, true);
  engine.fire('NotifyDeviceChange', '', number);
  engine.fire('NotifyEvent', '', '');
  engine.fire('NotifyUpdateVOQualityIndex', number);
}

// Until its wrapper is destroyed, and then. `levels` are those that arrive.
async function notifyUntilDestroyed(levels) {
  const emitter = new EventEmitter();
  const wrapper = construct({ emitter });
  wrapper.on('micLevel', ({ level }) => levels.push(level));
  for (const number of [0, -1, 77, 2 ** 31 - 1]) notifyAll(number);
  await nextTurn();
  assert.equal(levels.length, 4);
  wrapper.destroy();
  notifyAll(1);
  await nextTurn();
  assert.equal(levels.length, 5);
}

async function notifyLate() {
  const levels = [];
  await notifyUntilDestroyed(levels);
  // The engine holds on to the handler of a wrapper that is gone.
  await collectUntil(() => engine.live().engines === 0);
  notifyAll(1);
  await nextTurn();
  assert.equal(levels.length, 5);
  engine.dropCallback({ onEngineThread: true });
}

const PLANES = [
  { nullData: true },
  { size: 0 },
  { size: 1, stride: 1_000_000 },
  { width: 0, height: 0 },
  { width: 2 ** 32 - 1, height: 2 ** 32 - 1, stride: 2 ** 32 - 1 },
];

const FRAMES = [
  { empty: true },
  { nullBuffer: true, width: 64, height: 36 },
  { bufferSize: 0, width: 64, height: 36 },
  { bufferSize: 2 ** 40, nullBuffer: true, width: 64, height: 36 },
  { bufferSize: 10, width: 1280, height: 720 },
  { width: 2 ** 32 - 1, height: 2 ** 32 - 1, bufferSize: 100 },
  { width: 0, height: 0 },
];

async function oddFrames() {
  const { TesselWrapperProxy } = engine.loadAddon();
  const wrapper = construct();
  const proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
  const touch = (frame) => {
    for (const plane of [frame.yPlaneBuffer, frame.uPlaneBuffer, frame.vPlaneBuffer]) {
      for (let i = 0; i < (plane?.length ?? 0); i += 97) void plane[i];
    }
  };
  for (const plane of PLANES) {
    for (const name of ['y', 'u', 'v']) {
      for (const flags of [{}, { clearFrame: true }, { noUpdate: true }]) {
        const size = { width: 64, height: 36, frameId: 1, fresh: true, ...flags };
        engine.setFrame(STREAM, { ...size, planes: { [name]: plane } });
        attempt(() => touch(wrapper.getFrame(STREAM, 0)));
        attempt(() => touch(wrapper.getLastFrame(STREAM)));
      }
    }
  }
  wrapper.enterWidgetMode(STREAM);
  for (const frame of FRAMES) {
    assert.equal(engine.pushFrame(STREAM, frame), true);
    attempt(() => touch(proxy.getFrame(STREAM, -1)));
    proxy.releaseFrame(STREAM);
  }
  // The stream's frames after its receiver was removed, and after its segment was.
  const late = engine.pushFrameAsync(STREAM, { width: 64, height: 36 });
  wrapper.exitWidgetMode(STREAM);
  late.join();
  assert.equal(engine.pushFrame(STREAM, { width: 64, height: 36 }), false);
  wrapper.destroy();
}

export async function run(count) {
  let operations;
  for (let round = 0; round < count; ++round) {
    operations = await failMethods();
    await failConstruction();
    await notifyLate();
    await oddFrames();
    engine.reset();
    await collect();
  }
  return { operations: operations + CONSTRUCTION.length, calls: tried, errors };
}
