'use strict';

const { inspect } = require('node:util');

const { abortable, pause } = require('../abortable.js');
const clocks = require('../clocks.js');
const { TimeoutError, withFramesOf } = require('../errors.js');
const { requireEventName } = require('../event_names.js');

// The longest that a timer can wait.
const MAX_TIMEOUT_MS = 2 ** 31 - 1;

function requireTimeout(timeout) {
  if (timeout === undefined) return;
  if (typeof timeout === 'number' && timeout >= 0 && timeout <= MAX_TIMEOUT_MS) return;
  throw new TypeError(
    `Wrong timeout ${inspect(timeout)}, expected milliseconds from 0 to ${MAX_TIMEOUT_MS}`,
  );
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

  requireOpen() {
    this.#closing.throwIfAborted();
  }

  // The payload of the next event of this name that `where` accepts.
  async next(event, options) {
    requireEventName(event);
    const { where = () => true, ...limits } = options ?? {};
    const judge = (_name, payload, resolve) => where(payload) && resolve(payload);
    return this.until([event], judge, limits);
  }

  // Listens to the events `names`, then runs `ask`; settles as `judge(name, payload, resolve,
  // reject)` says about them, and rejects when a limit is reached or the meeting is closed. It
  // listens in front of the application's listeners, one of which may throw. Rejections show where
  // the application asked.
  until(
    names,
    judge,
    { signal, timeout } = {},
    { ask = () => {}, tooLate = `No ${names.join(' or ')} within` } = {},
  ) {
    const asked = {};
    Error.captureStackTrace(asked, this.until);
    return abortable([this.#closing, signal], (resolve, reject, undo) => {
      requireTimeout(timeout);
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

  // Settles after `milliseconds`.
  pause(milliseconds, signal) {
    return pause(milliseconds, [signal, this.#closing]);
  }
}

module.exports = { Waits };
