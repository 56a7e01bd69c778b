'use strict';

const { nameOf } = require('./stream_key.js');

// Counters of the frames that meetings and widgets delivered to the application.

// The counters of one stream of a meeting or widget.
class FrameCounters {
  delivered = 0;
  skipped = 0;
  released = 0;
}

// The counters of one meeting or widget, by stream.
class FrameLedger {
  static #open = new Set();
  static #made = 0;

  #owner;
  #streams = new Map();

  constructor(kind) {
    FrameLedger.#made += 1;
    this.#owner = `${kind} ${FrameLedger.#made}`;
    FrameLedger.#open.add(this);
  }

  // The counters of all open meetings and widgets.
  static all() {
    return [...FrameLedger.#open].flatMap((ledger) => ledger.rows());
  }

  get owner() {
    return this.#owner;
  }

  of(stream) {
    const name = nameOf(stream);
    let counters = this.#streams.get(name);
    if (!counters) this.#streams.set(name, (counters = new FrameCounters()));
    return counters;
  }

  byStream() {
    return Object.fromEntries(this.#streams);
  }

  rows() {
    return Array.from(this.#streams, ([stream, counters]) => ({
      owner: this.#owner,
      stream,
      ...counters,
    }));
  }

  close() {
    FrameLedger.#open.delete(this);
  }
}

module.exports = { FrameLedger };
