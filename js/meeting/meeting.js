'use strict';

const { AsyncResource } = require('node:async_hooks');
const { inspect } = require('node:util');

const { TesselWrapper } = require('../addon.js');
const { ClosedError } = require('../errors.js');
const { requireEventName, requireEventNames } = require('../event_names.js');
const { FrameLedger } = require('../frame_counters.js');
const { summary } = require('../inspection.js');
const { requireMainThread } = require('../main_thread.js');
const { checkOptions } = require('../options.js');
const { makeSegment } = require('../private_segments.js');
const { nameOf, requireStream } = require('../stream_key.js');
const { Call } = require('./call.js');
const { EventQueue } = require('./event_queue.js');
const { FollowedEmitter } = require('./followed_emitter.js');
const { FrameSource } = require('./frame_source.js');
const { createParams } = require('./parameters.js');
const { Participants } = require('./participants.js');
const { PresentStreams } = require('./present_streams.js');
const { Sharing } = require('./sharing.js');
const { Waits } = require('./waits.js');
const { WidgetEntries } = require('./widget_entries.js');

// Only Meeting.open() has this, which the constructor requires.
const OPENING = Symbol('opening');

// The open meetings: a meeting that only its listeners refer to must stay alive.
const open = new Set();

// One engine with its events, promises for the results that arrive as events, and frames at a
// chosen rate. It belongs to the application, which closes it. Each concern is a separate part.
class Meeting {
  #closing = new AbortController();
  #emitter = new FollowedEmitter((event, payload) => this.#follow(event, payload));
  #streams = new PresentStreams();
  #participants = new Participants(this.#emitter);
  #waits = new Waits(this.#emitter, this.#closing.signal);
  #wrapper;
  #resource;
  #ledger;
  #call;
  #sharing;
  #entries;
  #source;

  static async open(params, options) {
    requireMainThread('Meeting');
    const record = createParams(params);
    const { signal } = checkOptions(options, ['signal'], 'open');
    return makeSegment('main', () => new Meeting(record, OPENING), [signal]);
  }

  // For Meeting.open(), which ensures that the segment made here is private and unique.
  constructor(record, key) {
    if (key !== OPENING) {
      throw new TypeError('A meeting is opened, not constructed: use await Meeting.open()');
    }
    TesselWrapper._internal_setEmitterFactory(() => this.#emitter);
    this.#wrapper = new TesselWrapper(record);
    // For tools that search for open handles: the engine's own handle is not one of Node.js.
    this.#resource = new AsyncResource('TesselMeeting', { requireManualDestroy: true });
    this.#ledger = new FrameLedger('meeting');
    this.#call = new Call(this.#wrapper, this.#waits);
    this.#sharing = new Sharing(this.#wrapper, this.#waits);
    this.#entries = new WidgetEntries(this.#wrapper, this.#streams, this.#closing.signal);
    this.#source = new FrameSource(this.#wrapper, this.#streams, this.#waits, this.#ledger);
    this.#participants.subscribe(this.#wrapper);
    open.add(this);
  }

  get wrapper() {
    return this.#wrapper;
  }

  get streams() {
    return this.#streams.all;
  }

  get participants() {
    return this.#participants.all;
  }

  get isClosed() {
    return this.#closing.signal.aborted;
  }

  on(event, listener) {
    requireEventName(event);
    this.#emitter.on(event, listener);
    return this;
  }

  once(event, listener) {
    requireEventName(event);
    this.#emitter.once(event, listener);
    return this;
  }

  off(event, listener) {
    requireEventName(event);
    this.#emitter.off(event, listener);
    return this;
  }

  waitFor(event, options) {
    return this.#waits.next(event, options);
  }

  events(names, options) {
    requireEventNames(names);
    const { signal } = checkOptions(options, ['signal'], 'events');
    return new EventQueue(this.#emitter, names, { closing: this.#closing.signal, signal });
  }

  join(connection, options) {
    return this.#call.join(connection, options);
  }

  leave(options) {
    return this.#call.leave(options);
  }

  requestContentShareToken(options) {
    return this.#sharing.requestToken(options);
  }

  releaseContentShareToken(options) {
    return this.#sharing.releaseToken(options);
  }

  startPresentation(params, options) {
    return this.#sharing.startPresentation(params, options);
  }

  stopPresentation(options) {
    return this.#sharing.stopPresentation(options);
  }

  frames(stream, options) {
    return this.#source.frames(stream, options);
  }

  enterWidgetMode(stream, options) {
    return this.#entries.enter(stream, options);
  }

  exitWidgetMode(stream) {
    requireStream(stream);
    this.#entries.exit(stream);
  }

  counters() {
    return this.#ledger.rows();
  }

  // Pending waits end first, even if the engine then fails.
  close() {
    if (this.isClosed) return;
    this.#closing.abort(new ClosedError('The meeting was closed'));
    open.delete(this);
    this.#resource.emitDestroy();
    this.#ledger.close();
    try {
      this.#entries.exitAll();
    } finally {
      this.#wrapper.destroy();
    }
  }

  [Symbol.dispose]() {
    this.close();
  }

  [inspect.custom](depth, options) {
    const call = {
      call: this.#call.state,
      streams: this.streams.map(nameOf),
      inWidgetMode: this.#entries.names,
    };
    const properties = {
      owner: this.#ledger.owner,
      isClosed: this.isClosed,
      ...(this.isClosed ? {} : call),
      frames: this.#ledger.byStream(),
    };
    return summary('Meeting', properties, depth, options);
  }

  // Keeps the parts up to date with what the engine tells. The participants are last: their listeners
  // may throw.
  #follow(event, payload) {
    const parts = [this.#streams, this.#entries, this.#call, this.#sharing, this.#participants];
    for (const part of parts) part.follow(event, payload);
  }
}

module.exports = { Meeting };
