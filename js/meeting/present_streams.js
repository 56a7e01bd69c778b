'use strict';

const { nameOf } = require('../stream_key.js');

// The streams of a meeting that are there now, each as the engine told about it last.
class PresentStreams {
  #streams = new Map(); // by name: { event }

  get all() {
    return Array.from(this.#streams.values(), ({ event }) => event);
  }

  // Tells one presence of a stream from the next one under the same name; undefined when the stream
  // is not there.
  presenceOf(name) {
    return this.#streams.get(name);
  }

  follow(event, payload) {
    switch (event) {
      case 'streamAdded':
        this.#streams.set(nameOf(payload), { event: payload });
        break;
      case 'streamUpdated': {
        const present = this.#streams.get(nameOf(payload));
        if (present) present.event = payload;
        break;
      }
      case 'streamRemoved':
        this.#streams.delete(nameOf(payload));
        break;
    }
  }
}

module.exports = { PresentStreams };
