'use strict';

const { inspect } = require('node:util');

const { onAbort } = require('../abortable.js');
const { summary } = require('../inspection.js');

// An async iterator over [name, payload] of the events `names` of `emitter`, from its construction
// until return() or until one of `signals` is aborted. Events are queued until they are requested.
class EventQueue {
  static #over = () => Promise.resolve({ done: true, value: undefined });

  #names;
  #waiting = []; // requests without an event: their resolvers
  #arrived = []; // events without a request
  #ending; // once ended: the result of every further request
  #undo = [];

  constructor(emitter, names, { closing, signal }) {
    this.#names = [...new Set(names)];
    for (const name of this.#names) {
      const listener = (payload) => this.#arrive([name, payload]);
      emitter.prependListener(name, listener);
      this.#undo.push(() => emitter.off(name, listener));
    }
    this.#endWith(closing, EventQueue.#over);
    if (signal) this.#endWith(signal, () => Promise.reject(signal.reason));
  }

  [Symbol.asyncIterator]() {
    return this;
  }

  next() {
    if (this.#arrived.length > 0) {
      return Promise.resolve({ done: false, value: this.#arrived.shift() });
    }
    if (this.#ending) return this.#ending();
    return new Promise((resolve) => this.#waiting.push(resolve));
  }

  return() {
    this.#arrived = [];
    this.#end(EventQueue.#over);
    // Even after the signal was aborted: a loop that is left must not throw the reason.
    this.#ending = EventQueue.#over;
    return this.#ending();
  }

  [inspect.custom](depth, options) {
    const properties = {
      names: this.#names,
      arrived: this.#arrived.length,
      isEnded: this.#ending !== undefined,
    };
    return summary('EventQueue', properties, depth, options);
  }

  #arrive(event) {
    const resolve = this.#waiting.shift();
    if (resolve) resolve({ done: false, value: event });
    else this.#arrived.push(event);
  }

  #endWith(signal, ending) {
    if (signal.aborted) this.#end(ending);
    else this.#undo.push(onAbort(signal, () => this.#end(ending)));
  }

  #end(ending) {
    for (const step of this.#undo.splice(0)) step();
    this.#ending ??= ending;
    for (const resolve of this.#waiting.splice(0)) resolve(this.#ending());
  }
}

module.exports = { EventQueue };
