'use strict';

// An async iterator over [name, payload] of the events `names` of `emitter`, from the moment it is
// made until return() or the end that `signals` bring. Events wait in it until they are asked for.
class EventQueue {
  #waiting = []; // asked for, and not there: { resolve, reject }
  #arrived = []; // there, and not asked for
  #ending; // once ended: the last answer, given from then on
  #undo = [];

  constructor(emitter, names, { closing, signal }) {
    for (const name of new Set(names)) {
      const listener = (payload) => this.#arrive([name, payload]);
      emitter.prependListener(name, listener);
      this.#undo.push(() => emitter.off(name, listener));
    }
    this.#endWith(closing, () => Promise.resolve({ done: true, value: undefined }));
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
    this.#end(() => Promise.resolve({ done: true, value: undefined }));
    return this.#ending();
  }

  #arrive(event) {
    const resolve = this.#waiting.shift();
    if (resolve) resolve({ done: false, value: event });
    else this.#arrived.push(event);
  }

  #endWith(signal, ending) {
    const end = () => this.#end(ending);
    if (signal.aborted) {
      end();
      return;
    }
    signal.addEventListener('abort', end);
    this.#undo.push(() => signal.removeEventListener('abort', end));
  }

  #end(ending) {
    for (const step of this.#undo.splice(0)) step();
    this.#ending ??= ending;
    for (const resolve of this.#waiting.splice(0)) resolve(this.#ending());
  }
}

module.exports = { EventQueue };
