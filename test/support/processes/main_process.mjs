// The main process of a meeting on the scripted engine, which runs a test's commands.

import { readFileSync, readdirSync, readlinkSync } from 'node:fs';

import { obey } from '../commanded_process.mjs';
import { construct, engine } from '../scripted/wrapper_kit.mjs';

let wrapper;
let entering;
const running = new Map();

// The data of this process in /proc.
function descriptors() {
  return readdirSync('/proc/self/fd').flatMap((fd) => {
    try {
      // Sockets and pipes are told apart by numbers; a widget may have removed a name.
      const target = readlinkSync(`/proc/self/fd/${fd}`);
      return [target.replace(/:\[\d+\]$/, '').replace(/ \(deleted\)$/, '')];
    } catch {
      return []; // the one of the listing itself
    }
  });
}

function mappedSegments() {
  const maps = readFileSync('/proc/self/maps', 'latin1');
  return maps.match(/\/dev\/shm\/\S+/g)?.length ?? 0;
}

function sharedMemoryKilobytes() {
  return Number(readFileSync('/proc/self/status', 'latin1').match(/^RssShmem:\s+(\d+) kB$/m)[1]);
}

obey({
  // Answers with the main segment's names.
  construct() {
    wrapper = construct();
    return wrapper.getSharedDataInfo();
  },

  enter(stream) {
    engine.setStream(stream);
    wrapper.enterWidgetMode(stream);
  },
  exit: (stream) => wrapper.exitWidgetMode(stream),
  // Enters and leaves, again and again, until the process ends.
  keepEntering(stream) {
    engine.setStream(stream);
    const once = () => {
      wrapper.enterWidgetMode(stream);
      wrapper.exitWidgetMode(stream);
      entering = setImmediate(once);
    };
    once();
  },

  // One frame; whether there was a receiver.
  push: (stream, frame) => engine.pushFrame(stream, frame),
  // The same without waiting for the receiver, and the wait.
  beginPush: (stream, frame) =>
    void running.set(stream.streamIndex, engine.pushFrameAsync(stream, frame)),
  endPush: (stream) => running.get(stream.streamIndex).join(),

  startPushing: (stream, options) => engine.startPushing(stream, options),
  stopPushing: (stream) => engine.stopPushing(stream),

  // The resources that must not grow.
  holdings: () => ({
    descriptors: descriptors().sort(),
    mappedSegments: mappedSegments(),
    sharedMemoryKilobytes: sharedMemoryKilobytes(),
    frames: engine.liveFrames(),
  }),

  end() {
    clearImmediate(entering);
    engine.reset();
    wrapper?.destroy();
  },
});
