'use strict';

// Makes shared-memory segments that other users cannot read and that have names of their own.
//
// - Segments are made with the permissions that the umask leaves. The usual umask lets every user
//   of the machine read the pictures; under 077 only processes of the same user can.
// - Names repeat within one second of one process: two segments made in one second would be the
//   same one. So the second one waits for the next second.

const timers = require('node:timers');

const { pause } = require('./abortable.js');
const clocks = require('./clocks.js');

// The system's own count of seconds is behind the wall time by less than this.
const CLOCK_LAG_MS = 20;

// For each purpose of a segment, the second in which the last one was made. One record for all
// copies of this module in the process, including those of other versions of the package. Test
// runners give each file its own global object and `process`, and share only Node.js modules, so
// the record is a property of one of these. The number in the symbol is its format's version.
const RECORD = Symbol.for('tessel-wrapper.segments.1');
const madeIn = (timers[RECORD] ??= new Map());

function withPrivateUmask(make) {
  const usual = process.umask(0o077);
  try {
    return make();
  } finally {
    process.umask(usual);
  }
}

// The rest of this second, in milliseconds, if a segment was made in it for `purpose`, else 0. Also
// 0 when the clock was set back.
function remainder(purpose) {
  const wait = ((madeIn.get(purpose) ?? 0) + 1) * 1000 + CLOCK_LAG_MS - clocks.wallTime();
  return wait > 1000 + CLOCK_LAG_MS ? 0 : Math.max(0, wait);
}

// Resolves with the result of `make`, a synchronous function that makes the segment for `purpose`,
// after little more than a second at most, and usually at once. Rejects with the reason of the
// first of `signals` that is aborted before (undefined ones are ignored).
async function makeSegment(purpose, make, signals = []) {
  for (const signal of signals) signal?.throwIfAborted();
  while (remainder(purpose) > 0) await pause(remainder(purpose), signals);
  try {
    return withPrivateUmask(make);
  } finally {
    madeIn.set(purpose, Math.floor(clocks.wallTime() / 1000));
  }
}

module.exports = { makeSegment };
