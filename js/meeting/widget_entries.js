'use strict';

const { checkOptions } = require('../options.js');
const { makeSegment } = require('../private_segments.js');
const { hasFrameMemory, requireEntry, requireMemory } = require('../shared_memory.js');
const { nameOf, requireStream } = require('../stream_key.js');

// Possible reasons why a meeting, or one of its streams, has no shared memory.
const NO_MAIN_MEMORY =
  ': its widget process has ended, of which a meeting has one in its life, ' +
  'or /dev/shm was full when it was opened (see: npx tessel-wrapper doctor)';
const NO_FRAME_MEMORY =
  'There is no room for it in /dev/shm (see: npx tessel-wrapper doctor), ' +
  'or a widget died while it held the table of streams: then only a new meeting helps';

// The streams of a meeting that are in widget mode, or wait to enter it.
class WidgetEntries {
  #wrapper;
  #streams;
  #closing;
  #entered = new Map(); // streams, by name
  #waiting = new Map(); // by name: the controllers that abort waiting entries

  // `streams` are the present ones; `closing` is the signal that is aborted when the meeting is
  // closed.
  constructor(wrapper, streams, closing) {
    this.#wrapper = wrapper;
    this.#streams = streams;
    this.#closing = closing;
  }

  get names() {
    return [...this.#entered.keys()];
  }

  // A stream that is added under the name of a removed one is a new stream for the engine.
  follow(event, payload) {
    if (event === 'streamRemoved') this.exit(payload);
  }

  // Resolves with the names of the main segment.
  async enter(stream, options) {
    this.#closing.throwIfAborted();
    const key = requireStream(stream);
    const { signal } = checkOptions(options, ['signal'], 'enterWidgetMode');
    requireEntry(key);
    signal?.throwIfAborted();
    const name = nameOf(key);
    if (!this.#entered.has(name)) {
      this.#requirePresent(name);
      this.#sharedNames(); // throws where there are none
      const entry = this.#waiting.get(name) ?? new AbortController();
      this.#waiting.set(name, entry);
      const signals = [signal, this.#closing, entry.signal];
      await makeSegment(name, () => this.#enter(name, key), signals);
    }
    return this.#sharedNames();
  }

  exit(stream) {
    const name = nameOf(stream);
    const reason = `The stream ${name} has left widget mode before it had entered it`;
    this.#waiting.get(name)?.abort(new Error(reason));
    this.#waiting.delete(name);
    if (this.#entered.delete(name)) this.#wrapper.exitWidgetMode(stream);
  }

  exitAll() {
    for (const stream of this.#entered.values()) this.exit(stream);
  }

  // After the wait, in which what was judged before may have changed.
  #enter(name, stream) {
    if (this.#entered.has(name)) return;
    this.#requirePresent(name);
    const names = this.#sharedNames();
    this.#wrapper.enterWidgetMode(stream);
    if (!hasFrameMemory(names, stream)) {
      this.#wrapper.exitWidgetMode(stream);
      throw new Error(`The stream ${name} has not entered widget mode. ${NO_FRAME_MEMORY}`);
    }
    this.#entered.set(name, stream);
  }

  #requirePresent(name) {
    if (this.#streams.presenceOf(name)) return;
    const present = this.#streams.all.map(nameOf).join(', ') || 'none';
    throw new Error(
      `The stream ${name} is not there, or not yet: enter it when its "streamAdded" has come ` +
        `(there are: ${present})`,
    );
  }

  // The names of the main segment, which a widget can open.
  #sharedNames() {
    const names = this.#wrapper.getSharedDataInfo();
    requireMemory(names, NO_MAIN_MEMORY);
    return names;
  }
}

module.exports = { WidgetEntries };
