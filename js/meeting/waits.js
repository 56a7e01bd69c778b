'use strict';

const { abortable, pause } = require('../abortable.js');
const clocks = require('../clocks.js');
const { ClosedError, TimeoutError, withFramesOf } = require('../errors.js');
const { requireEventName } = require('../event_names.js');
const { checkOptions } = require('../options.js');

// The limits of `operation`, as until() takes them.
function limitsOf(options, operation) {
  const { signal, timeout } = checkOptions(options, ['signal', 'timeout'], operation);
  return { signals: [signal], timeout };
}

// The result of `wait` for the end of something, or undefined when the closing of the meeting has ended
// it: who leaves and closes in one breath has done nothing wrong.
async function endOrClosing(wait) {
  try {
    return await wait;
  } catch (error) {
    if (error instanceof ClosedError) return undefined;
    throw error;
  }
}

// Promises for the events of one meeting, all of which reject when it is closed.
class Waits {
  #emitter;
  #closing;

  // `closing` is the signal that is aborted when the meeting is closed.
  constructor(emitter, closing) {
    this.#emitter = emitter;
    this.#closing = closing;
  }

  get isClosed() {
    return this.#closing.aborted;
  }

  // Throws where until() with these limits would not begin.
  requireBeginning({ signals }) {
    for (const signal of [this.#closing, ...signals]) signal?.throwIfAborted();
  }

  // The payload of the next event of this name that `where` accepts. The application may create the
  // promise early and await it late: a rejection in between is not reported as unhandled, unless it
  // is for an invalid argument.
  next(event, options) {
    try {
      const wait = this.#next(event, options);
      wait.catch(() => {});
      return wait;
    } catch (error) {
      return Promise.reject(error);
    }
  }

  // Listens to the events `names`, then runs `ask`; `judge(name, payload, resolve, reject)` settles
  // the promise, which also rejects when a limit is reached or the meeting is closed. It listens
  // before the application's listeners, one of which may throw. Rejections have the stack of the
  // application's call.
  until(
    names,
    judge,
    { signals = [], timeout } = {},
    { ask = () => {}, tooLate = `No ${names.join(' or ')} within` } = {},
  ) {
    const asked = {};
    Error.captureStackTrace(asked, this.until);
    return abortable([this.#closing, ...signals], (resolve, reject, undo) => {
      const fail = (error) => reject(withFramesOf(asked, error));
      for (const name of names) {
        const listener = (payload) => {
          try {
            judge(name, payload, resolve, fail);
          } catch (error) {
            reject(error);
          }
        };
        this.#emitter.prependListener(name, listener);
        undo(() => this.#emitter.off(name, listener));
      }
      if (timeout !== undefined) {
        const expire = () => fail(new TimeoutError(`${tooLate} ${timeout} ms`));
        const timer = clocks.setTimeout(expire, timeout);
        undo(() => clocks.clearTimeout(timer));
      }
      ask();
    });
  }

  // Resolves after `milliseconds`.
  pause(milliseconds, signals) {
    return pause(milliseconds, [this.#closing, ...signals]);
  }

  #next(event, options) {
    requireEventName(event);
    const names = ['where', 'signal', 'timeout'];
    const { where = () => true, signal, timeout } = checkOptions(options, names, 'waitFor');
    const judge = (_name, payload, resolve) => where(payload) && resolve(payload);
    return this.until([event], judge, { signals: [signal], timeout });
  }
}

module.exports = { Waits, endOrClosing, limitsOf };
