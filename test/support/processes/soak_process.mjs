// Either side of the soak, on the embedded engine: a main process whose meeting has four streams
// and a hundred events a second, or a widget that reads these streams. It runs a trial's commands.

import { once } from 'node:events';
import { setTimeout } from 'node:timers/promises';

import { connectParams } from '../../../examples/support/connect_params.mjs';
import addon from '../../../js/index.js';
import { readCard } from '../card_code.mjs';
import { obey } from '../commanded_process.mjs';
import { collect } from '../collector.mjs';
import { PARAMS, makeWrapper } from '../make_wrapper.mjs';
import { counted, privateKilobytes } from '../reliability/holdings.mjs';

const EVENTS_A_SECOND = 100;
const POLL_MS = 15; // twice for each frame
const NO_FRAME = -1;
// A stream without a new frame for this time counts as stopped, however busy the machine is.
const LONGEST_WAIT_MS = 60_000;

const wrongs = { eventsOutOfOrder: 0, wrongFrames: 0, framesOutOfOrder: 0 };
// The sequence number of each event's last, and of each stream how many frames were read and the
// numbers of the first and the newest.
const sequences = new Map();
let seen = [];
let wrapper;
let proxy;
let poll;

function checkEvents() {
  wrapper.on('eventNotify', ({ eventName, eventBody }) => {
    const { event, sequence } = JSON.parse(eventBody);
    if (event !== eventName || sequence !== sequences.get(event) + 1) ++wrongs.eventsOutOfOrder;
    sequences.set(event, sequence);
  });
}

function checkFrame(frame, { type, streamIndex }, stream) {
  const card = readCard(frame);
  if (card?.type !== type || card.streamIndex !== streamIndex) {
    ++wrongs.wrongFrames;
    return;
  }
  stream.first ??= card.number;
  if (card.number < stream.newest) ++wrongs.framesOutOfOrder;
  if (card.number > stream.newest) ++stream.frames;
  stream.newest = card.number;
}

function readAll(streams, read) {
  seen = streams.map(() => ({ frames: 0, newest: 0 }));
  poll = setInterval(() => {
    streams.forEach((stream, i) => read(stream, (frame) => checkFrame(frame, stream, seen[i])));
  }, POLL_MS);
}

obey({
  // Answers with the main segment's names and the streams.
  async join(logPath) {
    const params = { ...PARAMS, configPath: '', logPath };
    const made = makeWrapper(addon.TesselWrapper, { params });
    wrapper = made.wrapper;
    checkEvents();
    const streams = [];
    wrapper.on('streamAdded', ({ type, streamIndex }) => streams.push({ type, streamIndex }));
    wrapper.connectCall(connectParams('tessel:soak?participants=4&size=640x360&fps=30'));
    while (streams.length < 4) await once(made.emitter, 'streamAdded');
    for (let number = 0; number < EVENTS_A_SECOND; ++number) {
      const eventName = `event ${number}`;
      sequences.set(eventName, 0);
      wrapper.registerEvent({
        ...{ eventName, expires: 2 ** 31 - 1 },
        ...{ mimeType: 'application', mimeSubType: 'json' },
      });
    }
    for (const stream of streams) wrapper.enterWidgetMode(stream);
    readAll(streams, (stream, check) => {
      const frame = wrapper.getFrame(stream, 0);
      if (!frame.noUpdate && !frame.clearFrame) check(frame);
    });
    return { key: wrapper.getSharedDataInfo(), streams };
  },

  read(key, streams) {
    proxy = new addon.TesselWrapperProxy(key);
    readAll(streams, (stream, check) => {
      const frame = proxy.getFrame(stream, NO_FRAME);
      if (!frame.noUpdate && frame.width > 0) check(frame);
      proxy.releaseFrame(stream);
    });
  },

  // What there is once every stream has shown more than these numbers of frames.
  async state(frames) {
    const start = performance.now();
    while (seen.some((stream, i) => stream.frames <= frames[i])) {
      if (performance.now() - start > LONGEST_WAIT_MS) {
        throw new Error(`a stream stands still: ${frames} and then ${JSON.stringify(seen)}`);
      }
      await setTimeout(POLL_MS);
    }
    await collect();
    return {
      wrongs,
      events: [...sequences.values()],
      streams: seen,
      kilobytes: privateKilobytes(),
      counts: counted(),
    };
  },

  end() {
    clearInterval(poll);
    wrapper?.destroy();
  },
});
