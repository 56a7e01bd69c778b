'use strict';

const clocks = require('../clocks.js');
const { ClosedError } = require('../errors.js');
const { inspectable } = require('../inspection.js');
const { checkOptions } = require('../options.js');
const { Pace } = require('../pace.js');
const { nameOf, requireStream } = require('../stream_key.js');

// The only stream that may have frames without a stream event: the camera's.
const UNANNOUNCED = 'local-0';

// The loops over the frames of a meeting's streams.
class FrameSource {
  #wrapper;
  #streams;
  #waits;
  #ledger;

  constructor(wrapper, streams, waits, ledger) {
    this.#wrapper = wrapper;
    this.#streams = streams;
    this.#waits = waits;
    this.#ledger = ledger;
  }

  frames(stream, options) {
    const key = requireStream(stream);
    const { rate = 30, signal } = checkOptions(options, ['rate', 'signal'], 'frames');
    const leaving = new AbortController();
    const frames = this.#poll(key, new Pace(rate), [signal, leaving.signal]);
    // By itself a generator that waits for the next frame ends only when that has come.
    for (const name of ['return', 'throw']) {
      const end = frames[name];
      const value = (result) => {
        leaving.abort(new ClosedError('The loop was left'));
        return end.call(frames, result);
      };
      Object.defineProperty(frames, name, { value });
    }
    return frames;
  }

  // Requests the newest frame whenever one is due, and none in between, so that no frame is queued.
  // No frame is due while the stream is absent.
  async *#poll(stream, pace, signals) {
    const name = nameOf(stream);
    const counters = this.#ledger.of(stream);
    const isAdded = (_name, payload, resolve) => nameOf(payload) === name && resolve();
    let frameId = 0; // of the picture that is shown, or 0
    let shown; // the presence of the stream that the loop is about
    let isDelivered = false;
    let isAwaited = false;
    for (;;) {
      try {
        if (isAwaited) await this.#waits.until(['streamAdded'], isAdded, { signals });
        await this.#waits.pause(pace.next(isDelivered), signals);
      } catch (error) {
        if (error instanceof ClosedError) return;
        throw error;
      }
      const present = this.#streams.presenceOf(name);
      if (shown && shown !== present) return;
      shown = present;

      const frame = this.#wrapper.getFrame(stream, frameId);
      frame.receivedAt = clocks.monotonicTime();
      isDelivered = !frame.noUpdate || (frame.clearFrame && frameId > 0);
      isAwaited = !isDelivered && !present && name !== UNANNOUNCED;
      if (!isDelivered) continue;
      if (frame.noUpdate) {
        frameId = 0;
      } else {
        if (frameId > 0) counters.skipped += Math.max(0, frame.frameId - frameId - 1);
        frameId = frame.frameId;
      }
      counters.delivered += 1;
      try {
        yield inspectable(frame);
      } finally {
        counters.released += 1;
      }
    }
  }
}

module.exports = { FrameSource };
