'use strict';

const { nameOf } = require('../stream_key.js');

// The present streams of a meeting, each with its latest event.
class PresentStreams {
  #streams = new Map(); // by name: { event }

  get all() {
    return Array.from(this.#streams.values(), ({ event }) => event);
  }

  // Identifies a stream among successive streams of the same name; undefined when the stream is not
  // present.
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
