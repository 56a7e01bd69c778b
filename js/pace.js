'use strict';

const clocks = require('./clocks.js');

// Node.js fires a longer timer at once.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

// The times of requests for frames, at a rate of at most `rate` frames per second.
class Pace {
  // A request without a new frame is repeated after this fraction of a period, so that no frame of
  // a source with the same rate is missed, whatever its phase.
  static #RETRY = 1 / 4;

  #period; // milliseconds
  #due = clocks.monotonicTime();

  constructor(rate) {
    this.#period = 1000 / rate;
  }

  // Whole milliseconds from now to the next request. Missed periods are skipped.
  next(foundFrame) {
    const now = clocks.monotonicTime();
    this.#due = foundFrame
      ? Math.max(this.#due + this.#period, now)
      : Math.max(this.#due, now + this.#period * Pace.#RETRY);
    return Math.min(Math.ceil(this.#due - now), LONGEST_TIMER_MS);
  }
}

module.exports = { Pace };
