// node frame_cost.mjs WAY LIVE_MEGABYTES: fetches one 1280x720 frame in each turn of the event loop
// while so much JavaScript heap is alive. Prints {"microseconds"} for each frame in the long run:
// the call, the turn, and what the collector does meanwhile.

import { writeSync } from 'node:fs';
import { loadAddon, loadProduct } from './addon.mjs';

const WARM_UP_MILLISECONDS = 500;
const MILLISECONDS = 2000;

const bench = loadAddon('frame_bench');
const [way, liveMegabytes] = [process.argv[2], Number(process.argv[3])];

const stream = { type: 'remote', streamIndex: 0 };
const callersBuffer = Buffer.alloc(bench.frameSize);
let frameId = 0;
let pixels = 0;

function useFrame(frame) {
  frameId = frame.frameId;
  pixels += frame.yPlaneBuffer[0] + frame.uPlaneBuffer[0] + frame.vPlaneBuffer[0];
}

const ways = {
  getFrame: () => useFrame(bench.getFrame(stream, frameId)),
  neverDetached: () => useFrame(bench.getFreshFrame(stream, frameId)),
  copy() {
    frameId = bench.copyFrame(stream, frameId, callersBuffer);
    pixels += callersBuffer[0];
  },
  proxy() {
    useFrame(proxy.getFrame(stream, -1));
    proxy.releaseFrame(stream);
  },
  nothing() {
    frameId += 1;
  },
};
const fetchFrame = ways[way];

// For the proxy, which an application has in a widget process.
let proxy;
let output = 1;
if (way === 'proxy') {
  const shared = loadAddon('shared_frame_bench');
  output = shared.silenceLines();
  shared.open();
  const { TesselWrapperProxy } = loadProduct();
  proxy = new TesselWrapperProxy(shared.share(1));
  shared.store(0, 1);
}

function fetchFor(milliseconds) {
  return new Promise((resolve) => {
    const started = performance.now();
    let frames = 0;
    const turn = () => {
      fetchFrame();
      frames += 1;
      const passed = performance.now() - started;
      if (passed >= milliseconds) resolve((passed * 1000) / frames);
      else setImmediate(turn);
    };
    turn();
  });
}

const live = [];
while (process.memoryUsage().heapUsed < liveMegabytes * 1e6) {
  live.push(Array.from({ length: 1000 }, (_, index) => ({ index, text: `${index}` })));
}
await fetchFor(WARM_UP_MILLISECONDS);
const microseconds = await fetchFor(MILLISECONDS);
if (live.length === 0 && liveMegabytes > 0) throw new Error('the heap was not filled');
if (pixels === 0 && way !== 'nothing') throw new Error('no pixels were seen');
writeSync(output, `${JSON.stringify({ microseconds })}\n`);
