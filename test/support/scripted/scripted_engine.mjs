// The scripted engine for JavaScript tests: an engine library that the test controls and that
// records its calls. Importing this module loads it; the product's addon, loaded after that, uses
// it instead of the engine that it was built with.
//
// Streams are named by { kind, index } with the numbers of the engine's interface, or as the
// addon's methods name them, by { type: 'local' | 'remote' | 'content', streamIndex }.
// Integers are returned as Numbers if those are exact, and otherwise as BigInts; both are accepted.
// An invalid name, an invalid type or an unknown field throws an Error.

import { createRequire } from 'node:module';
import path from 'node:path';

import { addonFile, build } from '../build.mjs';

export { frameIdentity, isWholeFrame, patternBytes } from './frame_pattern.mjs';

const require = createRequire(import.meta.url);
// A process started with this as LD_LIBRARY_PATH has the scripted engine without this module.
export const engineDirectory = path.join(build, 'test/engine');

const control = require(path.join(engineDirectory, 'scripted_engine.node'));
const { engine } = control;

// The thread that JavaScript runs on, as the system numbers it.
export const jsThread = control.thread;

// The engine's interface as the addon's wrapper uses it, by operation names; it lets the engine be
// tested without the wrapper. See EngineClient in test/engine/engine_client.h.
export const client = control.client;

// The product's addon, with the scripted engine behind it.
export function loadAddon() {
  return require(addonFile);
}

const KINDS = { local: 0, remote: 1, content: 2 };

function keyOf(stream) {
  if (!('type' in stream)) return stream;
  return { kind: KINDS[stream.type], index: stream.streamIndex };
}

// ---- Calls that the engine received

// `operation` and `args` are enumerable, so that a deepEqual compares them alone. Also there:
// `thread`, `onJsThread`, and `engine`, which numbers the facades (0 where none is concerned).
function presented({ operation, args, thread, engine: number }) {
  return Object.defineProperties(
    { operation, args },
    {
      thread: { value: thread },
      onJsThread: { value: thread === jsThread },
      engine: { value: number },
    },
  );
}

// All calls since the start, in order: { operation, args } with one property in `args` for each
// parameter, under its name in the engine's interface. Sets are given as sorted arrays, pairs as
// arrays of two, enumerations as numbers, shared objects as whether they are there, stream keys as
// { kind, index }. The operations of frame managers have their stream's `key` in front. Besides the
// operations of the interface there are "CreateTSLMManager", "DestroyTSLMManager" and, for the
// deletion of a facade, "~TSLMManager".
export const calls = () => engine.calls().map(presented);

// The same, and forgets them.
export const takeCalls = () => engine.takeCalls().map(presented);

export const clearCalls = () => void engine.takeCalls();

// Their names alone.
export const operations = () => calls().map(({ operation }) => operation);

// Whether calls are recorded; they are, unless told otherwise.
export const recordCalls = (enabled) => engine.recordCalls(enabled);

// Calls `look` with the name of each operation that the JavaScript thread calls from now on, before
// the call has an effect, until reset(). Answers with the list of what `look` returned, undefined
// left out, or threw.
export function watchCalls(look) {
  const seen = [];
  control.observeCalls((operation) => {
    try {
      const sight = look(operation);
      if (sight !== undefined) seen.push(sight);
    } catch (error) {
      seen.push(error);
    }
  });
  return seen;
}

// How many owners the callback of facade number `engine` has, and the receiver of a stream: 1 is
// the engine alone, 0 stands for none.
export const callbackOwners = (number) => engine.callbackOwners(number);
export const receiverOwners = (stream) => engine.receiverOwners(keyOf(stream));

// ---- What the engine does

// The names of the operations that can be made to fail, and of those among them that can answer
// with nothing.
export const { failingOperations, operationsWithResult } = control;

// `failure`: { throws: 'text' } throws a std::runtime_error, { throwsInt: true } throws an int,
// { returnsNull: true } answers with an empty, null or zero result, or leaves the record to fill as
// it is; null lets the operation work again. The call is recorded in any case, and has no other
// effect.
export const failOperation = (operation, failure) => engine.failOperation(operation, failure);

// When Initialize reports completion: 'inside' (the default) during the call, on its thread;
// 'before-wait' during the call, on another thread; 'later' on another thread, `delayMs` after the
// call; 'when-waiting' on another thread, when the thread of the call is asleep. `notifications`, a
// list of [name, ...args], are sent before that from an engine thread.
export function setInitialisation(mode, { delayMs, notifications = [] } = {}) {
  engine.setInitialisation({ mode, delayMs, notifications: notifications.map(notification) });
}

let results = {};

// What the engine answers: any of `screenMonitors`, `meetingStats` (maps as lists of
// [ssrc, stats]), `requiredMeetingAttributes`, `isVesperCapable`, `maxVOQualityIndex`. Fields of
// records that are left out have their defaults.
export function setResults(given) {
  engine.setResults({ ...results, ...given });
  results = { ...results, ...given };
}

// ---- Notifications

const notification = ([name, ...args]) => ({
  name,
  args: args.map((arg) => (typeof arg === 'object' ? keyOf(arg) : arg)),
});

// Threads under way. They are joined by reset() at the latest.
class Running {
  #handle;

  constructor(handle) {
    this.#handle = handle;
  }

  // Blocks until the threads have ended, once; answers with the number of notifications sent, or of
  // frames that a receiver took.
  join() {
    return engine.join(this.#handle);
  }
}

// Sends a notification from a fresh engine thread, which has ended when this returns. Streams are
// named as everywhere here; enumerations are numbers, listed in the interface or not; a text that
// is not UTF-8 is a Buffer of its bytes.
export const fire = (name, ...args) => void fireAsync(name, ...args).join();

// The same from a thread that runs on.
export const fireAsync = (name, ...args) =>
  new Running(engine.startPosting([{ notifications: [notification([name, ...args])] }]));

// Sends from `threads` engine threads at once, `count` times each. `args` is a list that all of
// them send, or a function of the thread's number and the sequence number, both from 0. So may the
// name of the notification be.
export function fireManyAsync({ threads, count, notification: name, args = [] }) {
  const isSame = typeof name !== 'function' && typeof args !== 'function';
  const valueOf = (given, ...numbers) => (typeof given === 'function' ? given(...numbers) : given);
  const postings = Array.from({ length: threads }, (_, thread) => {
    if (isSame) return { notifications: [notification([name, ...args])], repeat: count };
    const numbers = Array.from({ length: count }, (_unused, sequence) => [thread, sequence]);
    return {
      notifications: numbers.map((each) =>
        notification([valueOf(name, ...each), ...valueOf(args, ...each)]),
      ),
    };
  });
  return new Running(engine.startPosting(postings));
}

// The same, and waits; answers with the number of notifications sent.
export const fireMany = (options) => fireManyAsync(options).join();

// Which facade's callback is notified: its number (see calls), or 0 for the one that registered
// last.
export const selectEngine = (number) => engine.selectEngine(number);

// The engine holds every callback that it was given, also beyond the facade's end, until now.
export const dropCallback = ({ onEngineThread = false } = {}) =>
  engine.dropCallbacks(onEngineThread);

// ---- Streams and frames

// Streams have no frame manager unless given one here, by setFrame or by startPushing. One that
// `keepsReceiver` breaks the interface's contract: it keeps delivering to a receiver that was
// removed, until reset(), and removing one does not wait for the running delivery.
export const setStream = (stream, { frameManager = true, keepsReceiver = false } = {}) =>
  engine.setStream(keyOf(stream), frameManager, keepsReceiver);

const half = (length) => Math.ceil(length / 2);

function i420Planes(width, height) {
  const plane = (w, h) => ({ width: w, height: h, size: w * h, stride: w });
  const chroma = plane(half(width), half(height));
  return { y: plane(width, height), u: chroma, v: chroma };
}

// What GetFrame answers: `noUpdate`, `clearFrame`, `frameId`, `csrc`, `width`, `height`,
// `engineValue`, and `planes` with any of `y`, `u`, `v`: { width, height, size, stride }, each of
// I420 if not given, and the plane's content: `fill` (a byte), `bytes`, `nullData: true`, or none
// for the pattern with `frameId` as its number (see frame_pattern.mjs).
// A caller that has the frame already gets "no update", unless `always` is true. With `fresh` every
// call makes a new frame, whose id is one higher; with `recycled` as well it is made of memory that
// is used again, and only its identity is new. The engine itself holds one frame, or none that are
// fresh.
export function setFrame(stream, { planes = {}, width = 0, height = 0, ...answer } = {}) {
  const defaults = i420Planes(width, height);
  engine.setFrame(keyOf(stream), {
    width,
    height,
    ...answer,
    y: { ...defaults.y, ...planes.y },
    u: { ...defaults.u, ...planes.u },
    v: { ...defaults.v, ...planes.v },
  });
}

// Delivers one frame to the stream's receiver on an engine thread of its own, which has ended when
// this returns. True when there was a receiver. `frame`: `width`, `height`, `csrc`, `valueA`,
// `valueB`, `valueC`, `bufferSize` (told as it is, by default the I420 size), its content (`fill`,
// `bytes` for its start, or the pattern with `number`), `nullBuffer`, or `empty` for no frame.
export const pushFrame = (stream, frame = {}) => pushFrameAsync(stream, frame).join() === 1;

// The same from a thread that runs on; join() answers with 1 or 0.
export const pushFrameAsync = (stream, frame = {}) =>
  new Running(engine.startPush(keyOf(stream), frame));

// Delivers patterned frames numbered from 0: `width`, `height`, `csrc`, `fps` (0, the default: as
// fast as the receiver takes them), `recycled` (as for setFrame).
export const startPushing = (stream, options) => engine.startPushing(keyOf(stream), options);

// Answers with the number of frames that a receiver took.
export const stopPushing = (stream) => engine.stopPushing(keyOf(stream));

// ---- State

// How many of the engine's objects the process holds: { engines, frameManagers, configurations,
// frames }.
export const live = () => engine.live();

export const liveFrames = () => live().frames;

// Resets the engine: ends all threads, releases callbacks, receivers and frames, removes the
// recorded calls. Facades and their numbers stay.
export function reset() {
  results = {};
  engine.reset();
}
