// A process that joins a room of a real SFU with the WebRTC engine, and runs a test's commands.

import { EventEmitter, once } from 'node:events';
import { readFileSync, readdirSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { connectParams } from '../../../examples/support/connect_params.mjs';
import { EVENT_NAMES } from '../../../js/event_names.js';
import { build } from '../build.mjs';
import { readCard } from '../card_code.mjs';
import { obey } from '../commanded_process.mjs';
import { settledCounts, withoutGrowth } from '../reliability/holdings.mjs';

const POLL_INTERVAL_MS = 5;
const PARTS = 8;
// Of a colour that was encoded and decoded.
const MOST_DIFFERENCE = 4;
const BYTES_PER_KILOBYTE = 1024;
const FIRST_OF_THE_OTHERS = { type: 'remote', streamIndex: 0 };
const LASTING_THREADS = /^(node|libuv-worker|V8|gmain|gdbus|pool-spawner|GstSystemClock)/;
// Newer lines of node give each of their threads a name of its own.
const threadsOfNode = new Set(threadNames());
const require = createRequire(import.meta.url);
const { TesselWrapper } = require(path.join(build, 'webrtc', 'tesselWrapper.node'));
const { allocatedBytes } = require(path.join(build, 'test/addons/allocated_memory.node'));

const emitter = new EventEmitter();
const events = []; // [name, payload] in order
for (const name of EVENT_NAMES) {
  emitter.on(name, (payload) => {
    events.push([name, payload]);
    emitter.emit('any');
  });
}
let directory;
let capability;
let wrapper;
let another;

// The place of the first event at `from` or later for which `matches` holds, waited for.
async function eventFrom(from, matches) {
  for (;;) {
    const index = events.findIndex((event, place) => place >= from && matches(event));
    if (index >= 0) return index;
    await once(emitter, 'any');
  }
}

const contains = (payload, part) =>
  Object.entries(part).every(([name, value]) => payload[name] === value);

async function nextFrame(stream, frameId) {
  for (;;) {
    const frame = wrapper.getFrame(stream, frameId);
    if (!frame.noUpdate) return frame;
    await delay(POLL_INTERVAL_MS);
  }
}

// A thread may end while its name is looked up.
function threadNames() {
  const names = readdirSync('/proc/self/task').map((id) => {
    try {
      return readFileSync(`/proc/self/task/${id}/comm`, 'utf8').trim();
    } catch {
      return undefined;
    }
  });
  return names.filter((name) => name !== undefined);
}

// When the process has no threads but node's, and those that GLib and GStreamer have once for the
// whole process.
async function untilThreadsAreGone() {
  for (;;) {
    const others = threadNames().filter(
      (name) => !LASTING_THREADS.test(name) && !threadsOfNode.has(name),
    );
    if (others.length === 0) return;
    await delay(POLL_INTERVAL_MS);
  }
}

function makeWrapper() {
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  const made = new TesselWrapper({
    ...{ appVersion: '1', configPath: '', userAgent: 'test' },
    ...{ logPath: directory, logPrefix: `${process.pid}` },
  });
  made.setVideoDevice({ ...{ videoDeviceId: '', videoDeviceName: '' }, capability });
  made.enableCameraCapture(true);
  return made;
}

// Answers with { connected: true }, or with the payload of the call's end.
async function join(uri, overrides = {}) {
  const from = events.length;
  wrapper.connectCall({ ...connectParams(uri), ...overrides });
  const answer = await eventFrom(
    from,
    ([name, { connected }]) => connected || name === 'callDisconnect',
  );
  return events[answer][1];
}

async function leave() {
  const from = events.length;
  wrapper.disconnectCall();
  return events[await eventFrom(from, ([name]) => name === 'callDisconnect')][1];
}

const describe = (frame, drawn) => ({
  frameId: frame.frameId,
  csrc: frame.csrc,
  width: frame.width,
  height: frame.height,
  card: readCard(frame, drawn),
});

function colourAt(frame, [across, down]) {
  const planes = [
    [frame.yPlaneBuffer, frame.yPlaneBufferStride, 1],
    [frame.uPlaneBuffer, frame.uPlaneBufferStride, 2],
    [frame.vPlaneBuffer, frame.vPlaneBufferStride, 2],
  ];
  return planes.map(([buffer, stride, reduction]) => {
    const x = Math.floor((across * frame.width) / reduction);
    const y = Math.floor((down * frame.height) / reduction);
    return buffer[y * stride + x];
  });
}

const isNear = (wanted, colour) =>
  wanted.every((value, index) => Math.abs(value - colour[index]) <= MOST_DIFFERENCE);

const log = () => readFileSync(path.join(directory, `${process.pid}tesselclient.log`), 'utf8');

obey({
  open(logPath, { width = 640, height = 360, maxFPS = 30 } = {}) {
    directory = logPath;
    capability = { width, height, maxFPS };
    wrapper = makeWrapper();
  },

  join,
  leave,

  // Joins, sees a picture of the first of the others, and leaves, so many times. Answers with what
  // the process holds at the end, which has not grown on the way.
  joinAgainAndAgain: (uri, count) =>
    withoutGrowth(
      async () => {
        for (let time = 0; time < count / PARTS; ++time) {
          const { reason } = await join(uri);
          if (reason) throw new Error(reason);
          await nextFrame(FIRST_OF_THE_OTHERS, 0);
          await leave();
          events.length = 0;
        }
        await untilThreadsAreGone();
      },
      { parts: PARTS, kilobytesOfProcess: () => allocatedBytes() / BYTES_PER_KILOBYTE },
    ),

  // Another engine, which begins to join and is destroyed so many milliseconds later. Answers with
  // what the process holds then, which is to be what is `expected`.
  async abandonJoin(uri, milliseconds, expected, overrides = {}) {
    const abandoned = makeWrapper();
    abandoned.connectCall({ ...connectParams(uri), ...overrides });
    await delay(milliseconds);
    abandoned.destroy();
    await untilThreadsAreGone();
    return settledCounts(expected);
  },

  // Another engine, which begins to join.
  startAnother(uri, overrides = {}) {
    another = makeWrapper();
    another.connectCall({ ...connectParams(uri), ...overrides });
  },

  // Answers with what the process holds when the other engine is destroyed, which is to be what is
  // `expected`, and with how many milliseconds the destruction took.
  async destroyAnother(expected) {
    const startedAt = performance.now();
    another.destroy();
    const milliseconds = performance.now() - startedAt;
    another = undefined;
    await untilThreadsAreGone();
    return { held: await settledCounts(expected), milliseconds };
  },

  // What the process holds, which is to be what is `expected`.
  async held(expected) {
    await untilThreadsAreGone();
    return settledCounts(expected);
  },

  // The payload of the first past or future event of this name that has these values.
  async seen(name, part = {}) {
    const place = await eventFrom(0, ([each, payload]) => each === name && contains(payload, part));
    return events[place][1];
  },

  // Resolves to the participant of this name when the latest event "participants" has these values.
  async knows(name, part = {}) {
    if (!events.some(([, { eventName }]) => eventName === 'participants')) {
      wrapper.registerEvent({
        ...{ eventName: 'participants', expires: 3600 },
        ...{ mimeType: 'application', mimeSubType: 'json' },
      });
    }
    for (;;) {
      const [, told] = events.findLast(([, { eventName }]) => eventName === 'participants') ?? [];
      const people = told ? JSON.parse(told.eventBody).participants : [];
      const found = people.find((person) => person.name === name && contains(person, part));
      if (found) return found;
      await once(emitter, 'any');
    }
  },

  events: () => events,
  forget: () => events.splice(0),

  // The next picture of a stream after `frameId`.
  picture: async (stream, frameId = 0) => describe(await nextFrame(stream, frameId)),

  // Whether the stream has a picture.
  hasPicture: (stream) => !wrapper.getFrame(stream, 0).noUpdate,

  // The content of the next `count` pictures, of cards drawn in another size than the pictures' if
  // `drawn` is given.
  async pictures(stream, count, drawn) {
    const described = [];
    for (let frameId = 0; described.length < count; frameId = described.at(-1).frameId) {
      described.push(describe(await nextFrame(stream, frameId), drawn));
    }
    return described;
  },

  // The next picture of a stream after `frameId`, with its luminance at `count` places of a row in
  // its upper part.
  async row(stream, count, frameId = 0) {
    const frame = await nextFrame(stream, frameId);
    const luma = new Uint8Array(frame.yPlaneBuffer);
    const start = Math.floor(frame.height / 4) * frame.yPlaneBufferStride;
    const places = Array.from({ length: count }, (_, index) =>
      Math.floor(((index + 0.5) * frame.width) / count),
    );
    return { ...describe(frame), row: places.map((place) => luma[start + place]) };
  },

  // Answers with the size of the first picture that has these luminances and chromas, each as [y, u,
  // v], at these places, which are parts of its width and of its height.
  async shows(stream, spots) {
    for (let frameId = 0; ;) {
      const frame = await nextFrame(stream, frameId);
      if (spots.every(({ at, yuv }) => isNear(yuv, colourAt(frame, at)))) {
        return { width: frame.width, height: frame.height };
      }
      ({ frameId } = frame);
    }
  },

  // Calls a method, and answers with the first picture of this size, of a card drawn in the size of
  // the capture.
  async pictureAfter(method, argument, stream, { width, height }) {
    wrapper[method](argument);
    for (let frameId = 0; ;) {
      const frame = await nextFrame(stream, frameId);
      if (frame.width === width && frame.height === height) {
        return describe(frame, capability);
      }
      ({ frameId } = frame);
    }
  },

  // Answers when the stream is to be cleared.
  async cleared(stream) {
    for (;;) {
      const { noUpdate, clearFrame } = wrapper.getFrame(stream, 0);
      if (noUpdate && clearFrame) return;
      await delay(POLL_INTERVAL_MS);
    }
  },

  call: (method, ...args) => wrapper[method](...args),

  // Answers when the application is told of so many monitors, with what it is told.
  async monitors(count) {
    for (;;) {
      const monitors = wrapper.getScreenMonitorDetails();
      if (monitors.length === count) return monitors;
      await delay(POLL_INTERVAL_MS);
    }
  },

  // The next statistics that are published, and when that was.
  async statistics() {
    const before = JSON.stringify(wrapper.getMeetingStats());
    for (;;) {
      const stats = wrapper.getMeetingStats();
      if (JSON.stringify(stats) !== before) {
        return { ...stats, at: performance.timeOrigin + performance.now() };
      }
      await delay(POLL_INTERVAL_MS);
    }
  },

  log,

  // Settles when the log has this text, behind its first `from` characters.
  async logged(text, from = 0) {
    while (!log().includes(text, from)) await delay(POLL_INTERVAL_MS);
  },

  threadsGone: untilThreadsAreGone,

  // Without destroying the engine.
  exit: (code) => void setImmediate(() => process.exit(code)),

  end: () => wrapper?.destroy(),
});
