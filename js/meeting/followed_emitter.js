'use strict';

const { EventEmitter } = require('node:events');

// An emitter that calls `follow` for each event before its listeners, which may throw.
class FollowedEmitter extends EventEmitter {
  #follow;

  constructor(follow) {
    super();
    this.#follow = follow;
    // Any number of waits is allowed.
    this.setMaxListeners(0);
  }

  emit(name, payload) {
    try {
      this.#follow(name, payload);
    } finally {
      super.emit(name, payload);
    }
  }
}

module.exports = { FollowedEmitter };
