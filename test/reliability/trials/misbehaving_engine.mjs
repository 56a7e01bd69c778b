// An engine that breaks the contract of its interface.

import assert from 'node:assert/strict';
import { closeSync, fstatSync, openSync, readFileSync, readSync } from 'node:fs';

import {
  collect,
  construct,
  engine,
  EventEmitter,
  nextTurn,
} from '../../support/scripted/wrapper_kit.mjs';
import { collectUntil } from '../../support/collector.mjs';
import { METHODS } from '../../support/scripted/method_table.mjs';
import { remote } from '../../support/streams.mjs';

const STREAM = remote(3);
const FAILURES = [{ throws: 'the engine fails' }, { throwsInt: true }, { returnsNull: true }];

// All that have frame managers: the camera's, whose capture is switched, and that of the arguments.
const STREAMS = [STREAM, { type: 'local', streamIndex: 0 }, { type: 'content', streamIndex: 0 }];

// Arguments that bring a method to other operations than those of the table do.
const OTHER_CALLS = [{ name: 'enableCameraCapture', args: [false] }];

// No method releases a frame: requesting the next one does.
const OUT_OF_REACH = ['ReleaseFrame'];

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

const failuresOf = (operation) =>
  FAILURES.filter(
    ({ returnsNull }) => !returnsNull || engine.operationsWithResult.includes(operation),
  );

function failEach(operations, call) {
  for (const operation of operations) {
    for (const failure of failuresOf(operation)) {
      engine.failOperation(operation, failure);
      const threw = attempt(call);
      engine.failOperation(operation, null);
      // An exception from the engine is never swallowed.
      if (!failure.returnsNull) assert.equal(threw, true, `${operation} failed unseen`);
    }
  }
}

// Answers with the operations that were made to fail.
function failMethods() {
  const wrapper = construct();
  STREAMS.forEach((stream) => engine.setStream(stream));
  const failed = new Set();
  const calls = [...METHODS.filter(({ name }) => name !== 'destroy'), ...OTHER_CALLS];
  for (const { name, args } of calls) {
    const call = () => {
      // Entering reaches the engine only after leaving.
      if (name === 'enterWidgetMode') wrapper.exitWidgetMode(STREAM);
      return wrapper[name](...args);
    };
    const operations = operationsOf(call);
    operations.forEach((operation) => failed.add(operation));
    failEach(operations, call);
  }
  wrapper.exitWidgetMode(STREAM);
  for (const operation of operationsOf(() => wrapper.destroy())) {
    failEach([operation], () => wrapper.destroy());
    failed.add(operation);
  }
  return failed;
}

// Whatever goes wrong in it, there is no wrapper.
async function failConstruction() {
  const operations = operationsOf(() => construct().destroy());
  const ofConstruction = operations.slice(0, operations.indexOf('DeInitialize'));
  for (const operation of ofConstruction) {
    for (const failure of failuresOf(operation)) {
      engine.failOperation(operation, failure);
      assert.equal(attempt(construct), true, `${operation} failed unseen`);
      engine.failOperation(operation, null);
      engine.dropCallback();
      await collect();
    }
  }
  return ofConstruction;
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

// The engine holds on to the handler, and to the receiver, of wrappers that are gone.
const collectWrappers = () => collectUntil(() => engine.live().engines === 0);

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
  await collectWrappers();
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
  wrapper.exitWidgetMode(STREAM);
  wrapper.destroy();
}

// ---- Frames after the receiver was removed

function bytesOf(descriptor) {
  const bytes = Buffer.alloc(fstatSync(descriptor).size);
  assert.equal(readSync(descriptor, bytes, 0, bytes.length, 0), bytes.length);
  return bytes;
}

// The segments that this process has mapped. They can be read also when they have lost their names
// and nobody has them mapped any more.
class Segments {
  #descriptors;
  #kept;

  constructor() {
    const maps = readFileSync('/proc/self/maps', 'latin1');
    const files = new Set(maps.match(/\/dev\/shm\/SHM\w+$/gm));
    assert.ok(files.size >= 2); // the table and the stream's
    this.#descriptors = [...files].map((file) => openSync(file, 'r'));
  }

  keep() {
    this.#kept = this.#descriptors.map(bytesOf);
  }

  // Whether they hold what they held when that was kept.
  areUntouched() {
    return this.#descriptors.every(
      (descriptor, i) => Buffer.compare(bytesOf(descriptor), this.#kept[i]) === 0,
    );
  }

  close() {
    for (const descriptor of this.#descriptors) closeSync(descriptor);
  }
}

const LATE_FRAMES = [
  { width: 64, height: 36, fill: 0xee },
  { width: 1280, height: 720, fill: 0xee },
  { empty: true },
  { nullBuffer: true, width: 64, height: 36 },
];

// The engine keeps delivering, to a receiver whose stream has left widget mode.
function deliverLate(segments) {
  for (const frame of LATE_FRAMES) {
    ++tried;
    assert.equal(engine.pushFrame(STREAM, frame), true);
  }
  assert.ok(segments.areUntouched(), 'a late frame was written');
}

function enterAndLeave() {
  const wrapper = construct();
  wrapper.enterWidgetMode(STREAM);
  assert.equal(engine.pushFrame(STREAM, { width: 64, height: 36 }), true);
  const segments = new Segments();
  wrapper.exitWidgetMode(STREAM);
  segments.keep();
  deliverLate(segments);
  wrapper.destroy();
  deliverLate(segments);
  return segments;
}

// The same while frames are on their way all the time, and the stream in widget mode to the end.
async function endUnderway() {
  const wrapper = construct();
  const pushed = { width: 640, height: 360, recycled: true };
  engine.startPushing(STREAM, pushed);
  for (let times = 0; times < 5; ++times) {
    wrapper.enterWidgetMode(STREAM);
    assert.equal(engine.pushFrame(STREAM, { width: 64, height: 36 }), true);
    wrapper.exitWidgetMode(STREAM);
  }
  // A delivery that outlasts its stream takes the names of a segment of the same second with it.
  engine.stopPushing(STREAM);
  wrapper.enterWidgetMode(STREAM);
  const segments = new Segments();
  segments.keep();
  engine.startPushing(STREAM, pushed);
  while (segments.areUntouched()) await nextTurn();
  wrapper.destroy();
  return segments;
}

async function deliverAfterRemoval() {
  engine.setStream(STREAM, { keepsReceiver: true });
  const left = enterAndLeave();
  await collectWrappers();
  deliverLate(left);
  left.close();

  const collected = await endUnderway();
  await collectWrappers();
  engine.stopPushing(STREAM);
  collected.keep();
  deliverLate(collected);
  collected.close();
  engine.setStream(STREAM);
}

export async function run(count) {
  const failed = new Set();
  for (let round = 0; round < count; ++round) {
    for (const operation of failMethods()) failed.add(operation);
    for (const operation of await failConstruction()) failed.add(operation);
    await notifyLate();
    await oddFrames();
    await deliverAfterRemoval();
    engine.reset();
    await collect();
  }
  const inReach = engine.failingOperations.filter((name) => !OUT_OF_REACH.includes(name));
  assert.deepEqual([...failed].sort(), inReach.sort());
  return { operations: failed.size, calls: tried, errors };
}
