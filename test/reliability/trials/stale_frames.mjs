// Arrays of pixels that JavaScript keeps longer than they are valid.

import assert from 'node:assert/strict';

import { collect, construct, engine } from '../../support/scripted/wrapper_kit.mjs';
import { remote } from '../../support/streams.mjs';

const SIZE = { width: 64, height: 36 };
const FULL = SIZE.width * SIZE.height;
const PULLED = [0, 1, 2].map(remote);
const SHARED = remote(9);
const NO_FRAME = -1;
// How many frames back are read, and after how many frames again.
const KEPT = 50;
const EVERY = 500;
// So often a wrapper is thrown away with its frames.
const FRAMES_OF_A_WRAPPER = 5000;

// Parts of the frames: of those that are pulled, the ones with `clearFrame`; of those that the
// proxy reads, the ones that end with removeVideo, and with the stream.
const CLEARING = 0.2;
const REMOVED = 0.05;
const GONE = 0.05;

const planesOf = (frame) => [frame.yPlaneBuffer, frame.uPlaneBuffer, frame.vPlaneBuffer];

// Several looks at each plane, as an application may have taken them.
function looksAt(frame) {
  return planesOf(frame).flatMap((plane) => [
    plane,
    plane.subarray(1),
    Buffer.from(plane.buffer, plane.byteOffset, plane.length),
    new Uint32Array(plane.buffer, 0, 1),
    new DataView(plane.buffer),
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
    assert.equal(look.buffer.byteLength, 0);
    if (look instanceof DataView) {
      assert.throws(() => look.getUint8(0), TypeError);
      continue;
    }
    assert.equal(look.length, 0);
    assert.equal(sumOf(look), 0);
    look[0] = 1; // goes nowhere
    assert.equal(look[0], undefined);
  }
}

function assertReadable(looks) {
  for (const look of looks) {
    ++read;
    if (look instanceof DataView) {
      assert.equal(look.getUint8(0), new Uint8Array(look.buffer)[0]);
      continue;
    }
    assert.ok(look.length > 0);
    assert.ok(sumOf(look) > 0);
  }
}

// The looks that are good, by what they are of, and the last ones whose time is over.
class Gallery {
  #good = new Map();
  #over = [];

  show(name, looks) {
    this.end(name);
    assertReadable(looks);
    this.#good.set(name, looks);
  }

  // Their time is over.
  end(name) {
    if (!this.#good.has(name)) return;
    const looks = this.#good.get(name);
    this.#good.delete(name);
    assertStale(looks);
    this.#over.push(looks);
    if (this.#over.length > KEPT) this.#over.shift();
  }

  endAll() {
    for (const name of [...this.#good.keys()]) this.end(name);
  }

  assertReadable(name) {
    assertReadable(this.#good.get(name) ?? []);
  }

  assertAll() {
    for (const looks of this.#good.values()) assertReadable(looks);
    for (const looks of this.#over) assertStale(looks);
  }
}

// A wrapper whose frames are pulled, and a proxy that reads one stream of it.
class Frames {
  #wrapper = construct();
  #proxy;
  #gallery = new Gallery();
  #random;

  constructor(random) {
    const { TesselWrapperProxy } = engine.loadAddon();
    this.#proxy = new TesselWrapperProxy(this.#wrapper.getSharedDataInfo());
    this.#random = random;
    engine.setStream(SHARED);
    this.#share();
  }

  takeOne() {
    const stream = this.#random.of([...PULLED, SHARED]);
    if (stream === SHARED) this.#takeShared();
    else this.#takePulled(stream);
  }

  assertAll() {
    this.#gallery.assertAll();
  }

  // Drops wrapper and proxy. Answers with a function to be called when they have been collected.
  end() {
    this.#gallery.show(SHARED, looksAt(this.#proxy.getFrame(SHARED, NO_FRAME)));
    this.#wrapper.exitWidgetMode(SHARED);
    this.#gallery.assertAll();
    this.#wrapper.destroy();
    // That releases nothing.
    this.#gallery.assertAll();
    engine.reset();
    this.#gallery.assertAll();
    const gallery = this.#gallery;
    return () => {
      gallery.endAll();
      gallery.assertAll();
    };
  }

  #share() {
    this.#wrapper.enterWidgetMode(SHARED);
    assert.equal(engine.pushFrame(SHARED, SIZE), true);
  }

  #takePulled(stream) {
    const name = `${stream.streamIndex}`;
    const clearing = `${name}, clearing`;
    const clearFrame = this.#random.chance(CLEARING);
    engine.setFrame(stream, { ...SIZE, frameId: 1, fresh: true, clearFrame });
    const frame = this.#wrapper.getFrame(stream, 0);
    assert.equal(frame.clearFrame, clearFrame);
    if (clearFrame) {
      this.#gallery.show(clearing, looksAt(frame));
      this.#gallery.assertReadable(name);
      return;
    }
    this.#gallery.end(clearing);
    this.#gallery.show(name, [...looksAt(frame), ...looksAt(this.#wrapper.getLastFrame(stream))]);
  }

  #takeShared() {
    const looks = looksAt(this.#proxy.getFrame(SHARED, NO_FRAME));
    assert.equal(looks[0].length, FULL);
    this.#gallery.show(SHARED, looks);
    if (this.#random.chance(REMOVED)) {
      // With its lock and its names: the stream must leave and enter widget mode again.
      this.#proxy.removeVideo(SHARED);
      this.#gallery.end(SHARED);
      this.#wrapper.exitWidgetMode(SHARED);
      this.#share();
    } else if (this.#random.chance(GONE)) {
      this.#wrapper.exitWidgetMode(SHARED);
      this.#gallery.assertReadable(SHARED);
      assert.equal(this.#proxy.getFrame(SHARED, NO_FRAME).yPlaneBuffer, undefined);
      this.#gallery.end(SHARED);
      this.#share();
    } else {
      this.#proxy.releaseFrame(SHARED);
      this.#gallery.end(SHARED);
    }
  }
}

// Takes so many frames of one wrapper, which nobody holds when this returns. Answers with what is
// to be called when it has been collected.
function takeOfOneWrapper(count, random) {
  const frames = new Frames(random);
  for (let taken = 0; taken < count; ++taken) {
    frames.takeOne();
    if (taken % EVERY === 0) frames.assertAll();
  }
  return frames.end();
}

export async function run(count, { random }) {
  engine.recordCalls(false);
  for (let taken = 0; taken < count; taken += FRAMES_OF_A_WRAPPER) {
    const most = Math.min(FRAMES_OF_A_WRAPPER, count - taken);
    const assertAllOver = takeOfOneWrapper(most, random);
    await collect();
    await collect();
    assertAllOver();
  }
  return { frames: count, 'arrays read': read };
}
