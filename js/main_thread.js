'use strict';

const { isMainThread } = require('node:worker_threads');

// The addon says the same, but only after what cannot be done in a worker either.
function requireMainThread(what) {
  if (!isMainThread) throw new Error(`${what} is only possible on the main thread`);
}

module.exports = { requireMainThread };
