'use strict';

const { setMaxListeners } = require('node:events');

const clocks = require('./clocks.js');

// Calls `abort` when `signal` is aborted, until the returned function is called. One signal may end
// any number of waits, so there is no warning about many listeners.
function onAbort(signal, abort) {
  setMaxListeners(0, signal);
  signal.addEventListener('abort', abort);
  return () => signal.removeEventListener('abort', abort);
}

// A promise that `begin` settles, or that rejects with the reason of the first aborted one of
// `signals` (undefined ones are ignored). `begin(resolve, reject, undo)` runs at once, unless a
// signal is already aborted; functions that it passes to `undo` run when the promise settles.
function abortable(signals, begin) {
  const given = signals.filter((signal) => signal !== undefined);
  return new Promise((resolve, reject) => {
    const aborted = given.find((signal) => signal.aborted);
    if (aborted) {
      reject(aborted.reason);
      return;
    }
    const steps = [];
    const end = (settle) => (value) => {
      for (const step of steps.splice(0)) step();
      settle(value);
    };
    for (const signal of given) {
      steps.push(onAbort(signal, () => end(reject)(signal.reason)));
    }
    try {
      begin(end(resolve), end(reject), (step) => steps.push(step));
    } catch (error) {
      end(reject)(error);
    }
  });
}

// Resolves after `milliseconds`.
function pause(milliseconds, signals) {
  return abortable(signals, (resolve, _reject, undo) => {
    const timer = clocks.setTimeout(resolve, milliseconds);
    undo(() => clocks.clearTimeout(timer));
  });
}

module.exports = { abortable, onAbort, pause };
