// Arrays of pixels that JavaScript keeps past their time.

import assert from 'node:assert/strict';

import { collect, construct, engine } from '../../js/fixtures/wrapper_kit.mjs';

const SIZE = { width: 64, height: 36 };
const STREAMS = [0, 1, 2].map((streamIndex) => ({ type: 'remote', streamIndex }));
const SHARED = { type: 'remote', streamIndex: 9 };
const CLEARED = { type: 'content', streamIndex: 0 };
const NO_FRAME = -1;
// How many frames back are read, and after how many frames again.
const KEPT = 50;
const EVERY = 500;
// So often a wrapper is thrown away with its frames.
const FRAMES_OF_A_WRAPPER = 5000;

// Of the frames that the widget sees, the part whose stream it removes instead of releasing it.
const REMOVED = 0.05;

function share(wrapper) {
  wrapper.enterWidgetMode(SHARED);
  assert.equal(engine.pushFrame(SHARED, SIZE), true);
}

const planesOf = (frame) => [frame.yPlaneBuffer, frame.uPlaneBuffer, frame.vPlaneBuffer];

// Several looks at each plane, as an application may have taken them.
function looksAt(frame) {
  return planesOf(frame).flatMap((plane) => [
    plane,
    plane.subarray(1),
    Buffer.from(plane.buffer, plane.byteOffset, plane.length),
    new Uint32Array(plane.buffer, 0, 1),
  ]);
}

let read = 0;

// Reads in a loop, as code does that V8 then optimizes: past every plane's end.
const LENGTH_READ = 200;

function sumOf(array) {
  let sum = 0;
  for (let i = 0; i < LENGTH_READ; ++i) sum += array[i] ?? 0;
  return sum;
}

function assertStale(looks) {
  for (const look of looks) {
    ++read;
    assert.equal(look.length, 0);
    assert.equal(look.buffer.byteLength, 0);
    assert.equal(sumOf(look), 0);
    look[0] = 1; // goes nowhere
    assert.equal(look[0], undefined);
  }
}

const FULL = SIZE.width * SIZE.height;

class Gallery {
  #kept = [];

  keep(looks) {
    this.#kept.push(looks);
    if (this.#kept.length > KEPT) this.#kept.shift();
  }

  assertAllStale() {
    for (const looks of this.#kept) assertStale(looks);
  }
}

export async function run(count, { random }) {
  engine.recordCalls(false);
  const { TesselWrapperProxy } = engine.loadAddon();
  for (let taken = 0; taken < count;) {
    const gallery = new Gallery();
    let wrapper = construct();
    let proxy = new TesselWrapperProxy(wrapper.getSharedDataInfo());
    for (const stream of STREAMS) {
      engine.setFrame(stream, { ...SIZE, frameId: 1, fresh: true });
    }
    engine.setFrame(CLEARED, { ...SIZE, frameId: 1, fresh: true, clearFrame: true });
    engine.setStream(SHARED);
    share(wrapper);

    // By stream, the looks at its newest frame, which are good until the next one is taken.
    const newest = new Map();
    const takers = [
      ...[...STREAMS, CLEARED].map((stream) => ({
        take() {
          const frame = wrapper.getFrame(stream, 0);
          const last = stream === CLEARED ? frame : wrapper.getLastFrame(stream);
          return [...looksAt(frame), ...looksAt(last)];
        },
      })),
      {
        take() {
          const looks = looksAt(proxy.getFrame(SHARED, NO_FRAME));
          assert.ok(looks.length > 0 && looks[0].length === FULL);
          if (random.chance(REMOVED)) {
            // With its lock, and with its names: the stream has to come anew.
            proxy.removeVideo(SHARED);
            assertStale(looks);
            wrapper.exitWidgetMode(SHARED);
            share(wrapper);
          } else {
            proxy.releaseFrame(SHARED);
            assertStale(looks);
          }
          return [];
        },
      },
    ];
    for (let frame = 0; frame < FRAMES_OF_A_WRAPPER && taken < count; ++frame, ++taken) {
      const taker = random.of(takers);
      const before = newest.get(taker) ?? [];
      const looks = taker.take();
      assertStale(before);
      gallery.keep(before);
      for (const look of looks) assert.ok(look.length > 0);
      newest.set(taker, looks);
      if (taken % EVERY === 0) gallery.assertAllStale();
    }
    wrapper.exitWidgetMode(SHARED);
    wrapper.destroy();
    engine.reset();
    wrapper = null;
    proxy = null;
    await collect();
    await collect();
    for (const looks of newest.values()) assertStale(looks);
    gallery.assertAllStale();
  }
  return { frames: count, 'arrays read': read };
}
