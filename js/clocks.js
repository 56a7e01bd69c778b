'use strict';

// The clocks and timers of the package. They are taken when this module is loaded, so that a test's
// fake timers, which replace the global ones, neither stop nor accelerate a meeting.

const { performance } = require('node:perf_hooks');
const { clearTimeout, setTimeout } = require('node:timers');
const { runInNewContext } = require('node:vm');

// The Date of a new context is the system's, even when a test runner has replaced the global one
// before it loads this module.
const { now: wallTime } = runInNewContext('Date');

module.exports = {
  clearTimeout,
  setTimeout,
  // Milliseconds since 1970. Jumps when the system's clock is set.
  wallTime,
  // Milliseconds since the process started. Never goes back.
  monotonicTime: performance.now.bind(performance),
};
