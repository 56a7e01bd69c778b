'use strict';

const clocks = require('./clocks.js');

// Node.js fires a longer timer at once.
const LONGEST_TIMER_MS = 2 ** 31 - 1;

// When to look for the next frame, at a rate of at most `rate` frames per second.
class Pace {
  // A look that found nothing is repeated after this part of a period, so that a source of the same
  // rate loses no frame, whatever its phase.
  static #RETRY = 1 / 4;

  #period; // milliseconds
  #due = clocks.monotonicTime();

  constructor(rate) {
    this.#period = 1000 / rate;
  }

  // Whole milliseconds from now to the next look. What is late is not caught up with.
  next(foundFrame) {
    const now = clocks.monotonicTime();
    this.#due = foundFrame
      ? Math.max(this.#due + this.#period, now)
      : Math.max(this.#due, now + this.#period * Pace.#RETRY);
    return Math.min(Math.ceil(this.#due - now), LONGEST_TIMER_MS);
  }
}

module.exports = { Pace };
