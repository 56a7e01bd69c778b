'use strict';

// Making shared-memory segments, so that nobody else can look into them and no two are mixed up.
//
// - Segments are made with the rights that the umask leaves. The usual one lets every user of the
//   machine read the pictures; under 077 the same user's processes alone can.
// - Their names repeat within one second of one process: what is made twice in a second would be one
//   segment. The second making waits for the next second.

const timers = require('node:timers');

const { pause } = require('./abortable.js');
const clocks = require('./clocks.js');

// The system's own count of seconds is behind the wall time by less than this.
const CLOCK_LAG_MS = 20;

// Purpose of a segment, and the second in which one was made for it last. One record for all copies
// of this module in the process, those of other versions of the package among them. Test runners give
// each file a global object and a `process` of its own, and share only node's modules: it is kept on
// one of these. Its form goes with the number in the symbol.
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

// How long this second still lasts, in milliseconds, if a segment was made in it for `purpose`, else
// 0. It is another one, too, when the clock was set back.
function remainder(purpose) {
  const wait = ((madeIn.get(purpose) ?? 0) + 1) * 1000 + CLOCK_LAG_MS - clocks.wallTime();
  return wait > 1000 + CLOCK_LAG_MS ? 0 : Math.max(0, wait);
}

// Settles with the result of `make`, which makes the segment for `purpose` and runs in one piece,
// after little more than a second at most, and mostly at once. Rejects with the reason of that of
// `signals` which is aborted before (those that are undefined are left out).
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
