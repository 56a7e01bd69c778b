// A process that ends in the requested way while engine threads notify and deliver frames. It
// reports on descriptor 3 when it begins to end, and how many events have not arrived by then.

import { openSync, readFileSync, readSync, writeSync } from 'node:fs';
import { once } from 'node:events';

import { addonFile } from '../build.mjs';
import { makeWrapper } from '../make_wrapper.mjs';
import { collect, construct, constructInWidgetMode, engine } from '../scripted/wrapper_kit.mjs';
import { loadCopy, loadWithClearedCache, terminateWorker } from '../ways_to_end.mjs';

const [way, directory] = process.argv.slice(2);

engine.recordCalls(false);

// A frame segment's header and its first pixels: its name is its meeting's and two digits.
const START_OF_SEGMENT = 4096;
// The first one belongs to a wrapper that is released before the load starts.
const LOADED_ENGINE = 2;
const THREADS = 4;
const EVENTS = 20_000; // of each: more than arrive before the end

let due = 0;
let arrived = 0;
let framesFlow;

function load() {
  engine.fireManyAsync({
    threads: THREADS,
    count: EVENTS,
    notification: 'NotifyEvent',
    args: ['name', 'body'],
  });
  due += THREADS * EVENTS;
}

function loadedWrapper() {
  const wrapper = constructInWidgetMode();
  wrapper.on('eventNotify', () => ++arrived);
  framesFlow = flow();
  load();
  return wrapper;
}

// Answers with a function that returns when a frame has been copied since its call. It reads the
// segment past the addon, because a wrapper that is made in the same second takes the names over.
function flow() {
  const maps = readFileSync('/proc/self/maps', 'latin1');
  const segment = openSync(maps.match(/\/dev\/shm\/SHM\w{27}$/m)[0]);
  const start = () => {
    const bytes = Buffer.alloc(START_OF_SEGMENT);
    readSync(segment, bytes, 0, START_OF_SEGMENT, 0);
    return bytes;
  };
  return () => {
    const before = start();
    while (before.equals(start()));
  };
}

function sayThatItEnds() {
  framesFlow();
  writeSync(3, JSON.stringify({ eventsLeft: due - arrived }));
}

const arrives = (wrapper) =>
  new Promise((resolve) => {
    wrapper.on('eventNotify', resolve);
  });

// One more wrapper, of these classes, that is destroyed. The load went on meanwhile and may be
// over: there is a new one behind it, for the wrapper from before.
async function useAnother({ TesselWrapper }) {
  const { wrapper, emitter } = makeWrapper(TesselWrapper);
  engine.fire('NotifyMicLevel', 1);
  await once(emitter, 'micLevel');
  wrapper.destroy();
  engine.selectEngine(LOADED_ENGINE);
  load();
}

const WAYS = {
  async destroyed() {
    const wrapper = loadedWrapper();
    await arrives(wrapper);
    sayThatItEnds();
    wrapper.destroy();
  },
  exitInListener() {
    globalThis.wrapper = loadedWrapper();
    globalThis.wrapper.on('eventNotify', () => {
      sayThatItEnds();
      process.exit(7);
    });
  },
  thrownInListener() {
    globalThis.wrapper = loadedWrapper();
    globalThis.wrapper.on('eventNotify', () => {
      sayThatItEnds();
      throw new RangeError('thrown to end');
    });
  },
  async notDestroyed() {
    const forget = () => void loadedWrapper();
    forget();
    sayThatItEnds();
    while (engine.live().engines > 0) await collect();
  },
  async workerTerminated() {
    const wrapper = loadedWrapper();
    await terminateWorker(addonFile);
    load();
    await arrives(wrapper);
    sayThatItEnds();
    wrapper.destroy();
  },
  async loadedTwice() {
    const wrapper = loadedWrapper();
    await useAnother(loadCopy(addonFile, directory));
    sayThatItEnds();
    wrapper.destroy();
  },
  async cacheCleared() {
    const wrapper = loadedWrapper();
    await useAnother(loadWithClearedCache(addonFile));
    sayThatItEnds();
    wrapper.destroy();
  },
};

construct().destroy();
await WAYS[way]();
