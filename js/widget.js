'use strict';

const { inspect } = require('node:util');

const { pause } = require('./abortable.js');
const { TesselWrapperProxy } = require('./addon.js');
const { ClosedError } = require('./errors.js');
const { FrameLedger } = require('./frame_counters.js');
const { inspectable, summary } = require('./inspection.js');
const { requireMainThread } = require('./main_thread.js');
const { checkOptions } = require('./options.js');
const { Pace } = require('./pace.js');
const { requireMemory } = require('./shared_memory.js');
const { nameOf, requireStream } = require('./stream_key.js');

// No frame of a segment has this number, so a request with it always returns the present frame.
const NO_FRAME = -1;

// The reader of the streams that another process's meeting has in widget mode. It belongs to the
// application, which closes it.
class Widget {
  #proxy;
  #closing = new AbortController();
  #ledger;
  #read = new Map(); // streams that were read, by name
  #inHand = new Map(); // by name: whether to forget the stream when its callback has returned

  constructor(names) {
    requireMainThread('Widget');
    requireNames(names);
    this.#proxy = new TesselWrapperProxy(names);
    this.#ledger = new FrameLedger('widget');
  }

  get proxy() {
    return this.#proxy;
  }

  get isClosed() {
    return this.#closing.signal.aborted;
  }

  // The segment is locked from getFrame to releaseFrame, whatever the answer: its writer waits.
  read(stream, use) {
    const key = this.#requireReadable(stream, use);
    const name = nameOf(key);
    if (this.#inHand.has(name)) {
      throw new Error(`The picture of ${name} is being read: its callback must not read it again`);
    }
    const frame = this.#proxy.getFrame(key, NO_FRAME);
    const counters = this.#ledger.of(key);
    this.#read.set(name, key);
    this.#inHand.set(name, false);
    const hasPicture = !frame.noUpdate && frame.width > 0 && frame.height > 0;
    if (hasPicture) counters.delivered += 1;
    try {
      return hasPicture ? synchronous(use(inspectable(frame))) : undefined;
    } finally {
      this.#proxy.releaseFrame(key);
      if (hasPicture) counters.released += 1;
      const isRemoved = this.#inHand.get(name);
      this.#inHand.delete(name);
      if (isRemoved) this.#forget(key);
    }
  }

  async watch(stream, use, options) {
    const key = this.#requireReadable(stream, use);
    const { rate = 30, signal } = checkOptions(options, ['rate', 'signal'], 'watch');
    const pace = new Pace(rate);
    for (;;) {
      try {
        await pause(pace.next(true), [signal, this.#closing.signal]);
      } catch (error) {
        if (error instanceof ClosedError) return;
        throw error;
      }
      this.read(key, use);
    }
  }

  // A stream that is forgotten while it is locked would stay locked.
  remove(stream) {
    const key = requireStream(stream);
    const name = nameOf(key);
    if (this.#inHand.has(name)) this.#inHand.set(name, true);
    else this.#forget(key);
  }

  counters() {
    return this.#ledger.rows();
  }

  close() {
    if (this.isClosed) return;
    this.#closing.abort(new ClosedError('The widget was closed'));
    this.#ledger.close();
    for (const stream of this.#read.values()) this.remove(stream);
  }

  [Symbol.dispose]() {
    this.close();
  }

  [inspect.custom](depth, options) {
    const properties = {
      owner: this.#ledger.owner,
      isClosed: this.isClosed,
      frames: this.#ledger.byStream(),
    };
    return summary('Widget', properties, depth, options);
  }

  #forget(stream) {
    this.#read.delete(nameOf(stream));
    this.#proxy.removeVideo(stream);
  }

  #requireReadable(stream, use) {
    this.#closing.signal.throwIfAborted();
    const key = requireStream(stream);
    if (typeof use === 'function') return key;
    throw new TypeError(`Wrong callback ${inspect(use, { depth: 0 })}, expected a function`);
  }
}

// When one name is missing, the addon reports no error and removes the other name. The addon itself
// refuses names that are not strings.
function requireNames(names) {
  const { shm_name: segment, sem_name: semaphore } = names ?? {};
  if (typeof segment !== 'string' || typeof semaphore !== 'string') return;
  requireMemory(names);
}

// The result of a callback, which must not use its frame after it returns.
function synchronous(result) {
  if (typeof result?.then === 'function') {
    throw new TypeError('A frame is gone when the callback returns: it must not be asynchronous');
  }
  return result;
}

module.exports = { Widget };
