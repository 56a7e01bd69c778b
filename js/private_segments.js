'use strict';

// Makes shared-memory segments that other users cannot read and that have names of their own.
//
// - Segments are made with the rights that the umask leaves. The usual one lets every user of the
//   machine read the pictures; under 077 the same user's processes alone can.
// - Their names repeat within one second of one process: what is made twice in a second would be one
//   segment. The second making waits for the next second. So it does in a second that has been
//   before, when the clock was set back: a closed meeting has its names until it is collected.

const { pause } = require('./abortable.js');
const clocks = require('./clocks.js');
const { processRecord } = require('./process_record.js');

// The system's own count of seconds is behind the wall time by less than this.
const CLOCK_LAG_MS = 20;

// By the purpose of a segment: the times in which one was made for it, as [first, last] seconds.
const times = processRecord('segments.2', () => new Map());

function withPrivateUmask(make) {
  const usual = process.umask(0o077);
  try {
    return make();
  } finally {
    process.umask(usual);
  }
}

// The earliest second that the system may count at `time`, and the latest.
const secondsAt = (time) => [time - CLOCK_LAG_MS, time].map((point) => Math.floor(point / 1000));

// How long this second still lasts, in milliseconds, if a segment was made in it for `purpose`, else
// 0.
function remainder(purpose) {
  const now = clocks.wallTime();
  const [earliest, latest] = secondsAt(now);
  const isOver = ([first, last]) => last < earliest || latest < first;
  if ((times.get(purpose) ?? []).every(isOver)) return 0;
  return (earliest + 1) * 1000 + CLOCK_LAG_MS - now;
}

// Notes that a segment was made for `purpose` between these times. The clock may have been set back
// between them.
function note(purpose, begun, ended) {
  const [first] = secondsAt(begun);
  const [, last] = secondsAt(ended);
  if (!times.has(purpose)) times.set(purpose, []);
  if (first <= last) times.get(purpose).push([first, last]);
  else times.get(purpose).push([first, first], [last, last]);
}

// Resolves with the result of `make`, a synchronous function that makes the segment for `purpose`,
// after little more than a second at most, and usually at once. Rejects with the reason of the
// first of `signals` that is aborted before (undefined ones are ignored).
async function makeSegment(purpose, make, signals = []) {
  for (const signal of signals) signal?.throwIfAborted();
  while (remainder(purpose) > 0) await pause(remainder(purpose), signals);
  const begun = clocks.wallTime();
  try {
    return withPrivateUmask(make);
  } finally {
    note(purpose, begun, clocks.wallTime());
  }
}

module.exports = { makeSegment };
