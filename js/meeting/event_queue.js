'use strict';

const { inspect } = require('node:util');

const { onAbort } = require('../abortable.js');
const { summary } = require('../inspection.js');

// An async iterator over [name, payload] of the events `names` of `emitter`, from the moment it is
// made until return() or the end that `signals` bring. Events wait in it until they are asked for.
class EventQueue {
  static #over = () => Promise.resolve({ done: true, value: undefined });

  #names;
  #waiting = []; // asked for, and not there: what answers
  #arrived = []; // there, and not asked for
  #ending; // once ended: the last answer, given from then on
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
    // Also when the signal was aborted before: who leaves the loop wants no reason any more.
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
