// A process that joins a room of a real SFU with the WebRTC engine, and does what a test says.

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

const POLL_INTERVAL_MS = 5;
const LASTING_THREADS = /^(node|libuv-worker|V8|gmain|gdbus|pool-spawner|GstSystemClock)/;
// Newer lines of node give each of their threads a name of its own.
const threadsOfNode = new Set(threadNames());
const { TesselWrapper } = createRequire(import.meta.url)(
  path.join(build, 'webrtc', 'tesselWrapper.node'),
);

const emitter = new EventEmitter();
const events = []; // [name, payload] in order
for (const name of EVENT_NAMES) {
  emitter.on(name, (payload) => {
    events.push([name, payload]);
    emitter.emit('any');
  });
}
let logFile;
let wrapper;

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

const describe = (frame) => ({
  frameId: frame.frameId,
  csrc: frame.csrc,
  width: frame.width,
  height: frame.height,
  card: readCard(frame),
});

obey({
  open(logPath, { width = 640, height = 360, maxFPS = 30 } = {}) {
    TesselWrapper._internal_setEmitterFactory(() => emitter);
    logFile = path.join(logPath, `${process.pid}tesselclient.log`);
    wrapper = new TesselWrapper({
      ...{ appVersion: '1', configPath: '', userAgent: 'test' },
      ...{ logPath, logPrefix: `${process.pid}` },
    });
    wrapper.setVideoDevice({
      ...{ videoDeviceId: '', videoDeviceName: '' },
      capability: { width, height, maxFPS },
    });
    wrapper.enableCameraCapture(true);
  },

  // Answers with { connected: true }, or with the payload of the call's end.
  async join(uri, overrides = {}) {
    const from = events.length;
    wrapper.connectCall({ ...connectParams(uri), ...overrides });
    const answer = await eventFrom(
      from,
      ([name, { connected }]) => connected || name === 'callDisconnect',
    );
    return events[answer][1];
  },

  async leave() {
    const from = events.length;
    wrapper.disconnectCall();
    return events[await eventFrom(from, ([name]) => name === 'callDisconnect')][1];
  },

  // The payload of the first event of this name, past or to come, that has these values.
  async seen(name, part = {}) {
    const place = await eventFrom(0, ([each, payload]) => each === name && contains(payload, part));
    return events[place][1];
  },

  events: () => events,
  forget: () => events.splice(0),

  // The next picture of a stream after `frameId`.
  picture: async (stream, frameId = 0) => describe(await nextFrame(stream, frameId)),

  // What the next `count` pictures show.
  async pictures(stream, count) {
    const described = [];
    for (let frameId = 0; described.length < count; frameId = described.at(-1).frameId) {
      described.push(describe(await nextFrame(stream, frameId)));
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

  // Answers when the stream is to be cleared.
  async cleared(stream) {
    for (;;) {
      const { noUpdate, clearFrame } = wrapper.getFrame(stream, 0);
      if (noUpdate && clearFrame) return;
      await delay(POLL_INTERVAL_MS);
    }
  },

  call: (method, ...args) => wrapper[method](...args),

  log: () => readFileSync(logFile, 'utf8'),

  // Answers when the process has no threads but node's, and those that GLib and GStreamer have once
  // for the whole process.
  async threadsGone() {
    for (;;) {
      const others = threadNames().filter(
        (name) => !LASTING_THREADS.test(name) && !threadsOfNode.has(name),
      );
      if (others.length === 0) return;
      await delay(POLL_INTERVAL_MS);
    }
  },

  end: () => wrapper?.destroy(),
});
