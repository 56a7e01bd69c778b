'use strict';

// The clocks and timers of the face. They are taken when this module is loaded: the fake timers of a
// test, which take the place of the global ones, neither stop a meeting nor hurry it.

const { performance } = require('node:perf_hooks');
const { clearTimeout, setTimeout } = require('node:timers');
const { runInNewContext } = require('node:vm');

// The Date of a new context is the system's, also when a test runner has replaced the global one
// before it loads this module.
const { now: wallTime } = runInNewContext('Date');

module.exports = {
  clearTimeout,
  setTimeout,
  // Milliseconds since 1970: jumps when the system's clock is set.
  wallTime,
  // Milliseconds since the process started: never goes back.
  monotonicTime: performance.now.bind(performance),
};
