// A widget: a second process, which loads the package and reads frames by the names that the test
// gives it. It runs the test's commands.

import { setTimeout } from 'node:timers/promises';

import addon from '../../../js/index.js';
import { obey, report } from '../commanded_process.mjs';
import { describePattern, describeCard } from '../scripted/described_frames.mjs';

// Between two readings, for the writer: a semaphore is not fair.
const PAUSE_MS = 1;
const NO_FRAME = -1; // the sequence number of none

let proxy;
let lookedAt;
let reading = false;

const describe = { pattern: describePattern, card: describeCard };

obey({
  open(key) {
    proxy = new addon.TesselWrapperProxy(key);
  },

  // Reads a frame, whose lock is then held until the release.
  look(stream, { kind = 'pattern', frameId = NO_FRAME } = {}) {
    lookedAt = proxy.getFrame(stream, frameId);
    return describe[kind](lookedAt);
  },
  // Looks once more at that very frame, without asking for it.
  lookAgain: ({ kind = 'pattern' } = {}) => describe[kind](lookedAt),
  release: (stream) => proxy.releaseFrame(stream),
  // Both.
  read(stream, { kind = 'pattern', frameId = NO_FRAME } = {}) {
    const seen = describe[kind](proxy.getFrame(stream, frameId));
    proxy.releaseFrame(stream);
    return seen;
  },
  remove: (stream) => proxy.removeVideo(stream),

  // Reads these streams in turn, again and again, and reports each frame that it had not seen.
  async keepReading(streams, { kind = 'pattern' } = {}) {
    reading = true;
    const newest = new Map();
    const readAll = async () => {
      while (reading) {
        for (const stream of streams) {
          const seen = describe[kind](proxy.getFrame(stream, NO_FRAME));
          proxy.releaseFrame(stream);
          if (seen.number === undefined || newest.get(stream) === seen.number) continue;
          newest.set(stream, seen.number);
          report(seen);
        }
        await setTimeout(PAUSE_MS);
      }
    };
    readAll();
  },
  stopReading: () => void (reading = false),
  end: () => void (reading = false),
});
