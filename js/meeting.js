'use strict';

const { EventEmitter } = require('node:events');
const { inspect } = require('node:util');

const { abortable, pause, requireSignal } = require('./abortable.js');
const { CallError, ClosedError, ShareError, TimeoutError, withFramesOf } = require('./errors.js');
const { requireEventName, requireEventNames } = require('./event_names.js');
const { EventQueue } = require('./event_queue.js');
const { FrameLedger } = require('./frame_counters.js');
const { requireMainThread } = require('./main_thread.js');
const { Pace } = require('./pace.js');
const { makeSegment } = require('./private_segments.js');
const { hasFrameMemory, requireEntry, requireMemory } = require('./shared_memory.js');
const { Undertaking } = require('./undertaking.js');

// What Meeting.open() constructs with, and nobody else.
const OPENING = Symbol('opening');

const CREATE_PARAMS = {
  appVersion: '',
  configPath: '',
  logPrefix: '',
  userAgent: 'tessel-wrapper',
};

// Everything is sent and received, without relay servers.
const CONNECTION = {
  endpointName: '',
  meetingGuid: '',
  maxBandwidth: 4_000_000,
  forceTurn: false,
  enableRdc: false,
  isVesperMeeting: false,
  enableClientDrivenLayouts: true,
  enableClientLayoutOrdering: false,
  meetingAttributes: '',
  meetingFeatures: [],
  gracefulEvents: [],
  turnServers: [],
};
const MEDIA_STREAM_STATE = {
  contentStreamEnabled: true,
  incomingAudioEnabled: true,
  incomingVideoEnabled: true,
  outgoingAudioMuted: false,
  outgoingVideoMuted: false,
};
const CONNECTION_PROPERTIES = ['uri', ...Object.keys(CONNECTION), 'mediaStreamState'];

// The statuses that answer what is asked about sharing.
const PRESENTATION = { begun: 'started', refused: ['failed', 'denied'], over: 'stopped' };
const TOKEN = { begun: 'token_granted', refused: ['token_denied'], over: 'token_relinquished' };

// What may be the matter when a meeting, or one of its streams, has no shared memory.
const NO_MAIN_MEMORY =
  ': its widget process has ended, of which a meeting has one in its life, ' +
  'or /dev/shm was full when it was opened (see: npx tessel-wrapper doctor)';
const NO_FRAME_MEMORY =
  'There is no room for it in /dev/shm (see: npx tessel-wrapper doctor), ' +
  'or a widget died while it held the table of streams: then only a new meeting helps';

// The longest that a timer can wait.
const MAX_TIMEOUT_MS = 2 ** 31 - 1;

function requireTimeout(timeout) {
  if (typeof timeout === 'number' && timeout >= 0 && timeout <= MAX_TIMEOUT_MS) return;
  throw new TypeError(
    `Wrong timeout ${inspect(timeout)}, expected milliseconds from 0 to ${MAX_TIMEOUT_MS}`,
  );
}

const nameOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

// The one stream that may have frames without being announced: the camera's.
const UNANNOUNCED = 'local-0';

// The properties of `record` that are not left out; undefined leaves one out.
function given(record) {
  const entries = Object.entries(record ?? {});
  return Object.fromEntries(entries.filter(([, value]) => value !== undefined));
}

// A name that is not known would be the default of the one that was meant, in silence.
function requireKnown(record, known, objectName) {
  const unknown = Object.keys(given(record)).find((name) => !known.includes(name));
  if (unknown === undefined) return;
  throw new TypeError(`Unknown property ${unknown} on object ${objectName}`);
}

// The promise of `work`. An application may await it later than it rejects, after something else:
// that is no unhandled rejection. Awaiting it rejects all the same.
function promiseOf(work) {
  const promise = work();
  promise.catch(() => {});
  return promise;
}

// An emitter that tells `follow` about each event before its listeners, which may throw.
class FollowedEmitter extends EventEmitter {
  #follow;

  constructor(follow) {
    super();
    this.#follow = follow;
  }

  emit(name, payload) {
    try {
      this.#follow(name, payload);
    } finally {
      super.emit(name, payload);
    }
  }
}

// Makes the class Meeting over the addon's class: one engine, the events that it emits, promises for
// what it answers by events, and frames at a chosen rate. It belongs to the application, which
// closes it.
function defineMeeting(TesselWrapper) {
  // Those that are not closed: a meeting that only its listeners remember goes on.
  const open = new Set();

  return class Meeting {
    #emitter = new FollowedEmitter((name, payload) => this.#follow(name, payload));
    #wrapper;
    #closing = new AbortController();
    #ledger;
    #streams = new Map(); // present ones, by name: { event } with what was told about them last
    #inWidgetMode = new Map(); // streams, by name
    #entries = new Map(); // into widget mode, by name: what gives up those that wait
    #call = 'none'; // then 'joining', 'joined' and 'leaving'
    #presentation = new Undertaking(PRESENTATION);
    #token = new Undertaking(TOKEN);

    static async open(params, { signal } = {}) {
      requireMainThread('Meeting');
      return makeSegment('main', () => new Meeting(params, OPENING), [signal]);
    }

    // For Meeting.open(), which sees to it that the segment made here is private and unique.
    constructor(params, key) {
      if (key !== OPENING) {
        throw new TypeError('A meeting is opened, not constructed: use await Meeting.open()');
      }
      requireKnown(params, ['logPath', ...Object.keys(CREATE_PARAMS)], 'CreateParams');
      // Any number of waits is fine.
      this.#emitter.setMaxListeners(0);
      TesselWrapper._internal_setEmitterFactory(() => this.#emitter);
      this.#wrapper = new TesselWrapper({ ...CREATE_PARAMS, ...given(params) });
      this.#ledger = new FrameLedger('meeting');
      open.add(this);
    }

    get wrapper() {
      return this.#wrapper;
    }

    get streams() {
      return Array.from(this.#streams.values(), ({ event }) => event);
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
      return promiseOf(async () => {
        requireEventName(event);
        const { where = () => true, ...limits } = options ?? {};
        const judge = (_name, payload, resolve) => where(payload) && resolve(payload);
        return this.#until([event], judge, limits);
      });
    }

    events(names, { signal } = {}) {
      requireEventNames(names);
      return new EventQueue(this.#emitter, names, { closing: this.#closing.signal, signal });
    }

    join(connection, limits) {
      return promiseOf(() => this.#join(connection, limits));
    }

    leave(limits) {
      return promiseOf(() => this.#leave(limits));
    }

    requestContentShareToken(limits) {
      return this.#begin(this.#token, 'requestContentShareToken', [], limits);
    }

    releaseContentShareToken(limits) {
      return this.#end(this.#token, 'releaseContentShareToken', limits);
    }

    startPresentation(params, limits) {
      return this.#begin(this.#presentation, 'startPresentation', [params], limits);
    }

    stopPresentation(limits) {
      return this.#end(this.#presentation, 'stopPresentation', limits);
    }

    frames(stream, { rate = 30, signal } = {}) {
      requireSignal(signal);
      return this.#pollFrames({ ...stream }, new Pace(rate), signal);
    }

    enterWidgetMode(stream, options) {
      return promiseOf(async () => {
        this.#requireOpen();
        const { signal } = options ?? {};
        const name = nameOf(stream);
        if (!this.#inWidgetMode.has(name)) {
          const entry = this.#entries.get(name) ?? new AbortController();
          this.#entries.set(name, entry);
          const signals = [signal, this.#closing.signal, entry.signal];
          await makeSegment(name, () => this.#enterWidgetMode(name, stream), signals);
        }
        return this.#sharedNames();
      });
    }

    exitWidgetMode(stream) {
      const name = nameOf(stream);
      const reason = `The stream ${name} has left widget mode before it had entered it`;
      this.#entries.get(name)?.abort(new Error(reason));
      this.#entries.delete(name);
      if (this.#inWidgetMode.delete(name)) this.#wrapper.exitWidgetMode(stream);
    }

    counters() {
      return this.#ledger.rows();
    }

    // What waits ends first, whatever the engine does.
    close() {
      if (this.isClosed) return;
      this.#closing.abort(new ClosedError('The meeting was closed'));
      open.delete(this);
      this.#ledger.close();
      try {
        for (const stream of this.#inWidgetMode.values()) this.exitWidgetMode(stream);
      } finally {
        this.#wrapper.destroy();
      }
    }

    [Symbol.dispose]() {
      this.close();
    }

    // Keeps the state up to date with what the engine tells.
    #follow(event, payload) {
      switch (event) {
        case 'streamAdded':
          this.#streams.set(nameOf(payload), { event: payload });
          break;
        case 'streamUpdated': {
          const present = this.#streams.get(nameOf(payload));
          if (present) present.event = payload;
          break;
        }
        case 'streamRemoved':
          this.#streams.delete(nameOf(payload));
          // What comes back under this name is another stream for the engine.
          this.exitWidgetMode(payload);
          break;
        case 'callConnectionStatus':
          if (payload.connected && this.#call === 'joining') this.#call = 'joined';
          break;
        case 'callDisconnect':
          this.#call = 'none';
          this.#presentation.forget();
          this.#token.forget();
          break;
        case 'screenShareStatus':
          this.#presentation.hear(payload.status);
          this.#token.hear(payload.status);
          break;
      }
    }

    #requireOpen() {
      this.#closing.signal.throwIfAborted();
    }

    // Listens to the events `names`, then runs `ask`; settles as `judge(name, payload, resolve,
    // reject)` says about them, and rejects when a limit is reached or the meeting is closed. It
    // listens in front of the application's listeners, one of which may throw. Rejections show where
    // the application asked.
    #until(
      names,
      judge,
      { signal, timeout } = {},
      { ask = () => {}, tooLate = `No ${names.join(' or ')} within` } = {},
    ) {
      const asked = {};
      Error.captureStackTrace(asked, promiseOf);
      return abortable([this.#closing.signal, signal], (resolve, reject, undo) => {
        if (timeout !== undefined) requireTimeout(timeout);
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
          const timer = setTimeout(expire, timeout);
          undo(() => clearTimeout(timer));
        }
        ask();
      });
    }

    async #join(connection, limits) {
      if (typeof connection !== 'object' || connection === null) {
        throw new TypeError("join expects an object with a uri: { uri: 'tessel:demo' }");
      }
      requireKnown(connection, CONNECTION_PROPERTIES, 'ConnectParams');
      const { mediaStreamState } = connection;
      requireKnown(mediaStreamState, Object.keys(MEDIA_STREAM_STATE), 'MediaStreamState');
      const params = {
        ...CONNECTION,
        ...given(connection),
        mediaStreamState: { ...MEDIA_STREAM_STATE, ...given(mediaStreamState) },
      };
      let isAsked = false;
      // Waits for the end of the call that is being left.
      const ask = () => {
        if (this.#call === 'leaving') return;
        if (this.#call !== 'none')
          throw new Error('The meeting is in a call already: leave() it first');
        this.#wrapper.connectCall(params);
        this.#call = 'joining';
        isAsked = true;
      };
      const judge = (name, payload, resolve, reject) => {
        if (!isAsked) ask();
        else if (name === 'callDisconnect') reject(new CallError(payload));
        else if (payload.connected) resolve();
      };
      try {
        await this.#until(['callConnectionStatus', 'callDisconnect'], judge, limits, {
          ask,
          tooLate: 'Joining took longer than',
        });
      } catch (error) {
        // Given up by the caller: the engine is not to join later.
        if (isAsked && this.#call === 'joining' && !this.isClosed) this.#disconnect();
        throw error;
      }
    }

    async #leave(limits) {
      this.#requireOpen();
      if (this.#call === 'none') {
        this.#disconnect();
        return undefined;
      }
      const judge = (_name, payload, resolve) => resolve(payload);
      return this.#until(['callDisconnect'], judge, limits, {
        ask: () => this.#disconnect(),
        tooLate: 'Leaving took longer than',
      });
    }

    #begin(undertaking, operation, args, limits) {
      const { begun, refused } = undertaking.statuses;
      const judge = ({ status }, resolve, reject) => {
        if (status === begun) resolve();
        else if (refused.includes(status)) reject(new ShareError(operation, args, status));
      };
      const ask = () => {
        this.#wrapper[operation](...args);
        undertaking.ask('begin');
      };
      return promiseOf(() => this.#answer(operation, judge, ask, limits));
    }

    #end(undertaking, operation, limits) {
      const judge = ({ status }, resolve) => {
        if (status === undertaking.statuses.over || !undertaking.isPossible) resolve();
      };
      const ask = () => {
        this.#wrapper[operation]();
        undertaking.ask('end');
      };
      return promiseOf(async () => {
        this.#requireOpen();
        if (undertaking.isPossible) await this.#answer(operation, judge, ask, limits);
      });
    }

    // Asks for an operation that is answered by a screenShareStatus; the end of the call is an
    // answer, too.
    async #answer(operation, judgeStatus, ask, limits) {
      const judge = (name, payload, resolve, reject) => {
        if (name === 'callDisconnect') reject(new CallError(payload));
        else judgeStatus(payload, resolve, reject);
      };
      await this.#until(['screenShareStatus', 'callDisconnect'], judge, limits, {
        ask,
        tooLate: `${operation} took longer than`,
      });
    }

    #disconnect() {
      this.#wrapper.disconnectCall();
      if (this.#call !== 'none') this.#call = 'leaving';
    }

    #enterWidgetMode(name, stream) {
      if (this.#inWidgetMode.has(name)) return;
      if (!this.#streams.has(name)) throw new Error(`The stream ${name} is not there`);
      requireEntry(stream);
      const names = this.#sharedNames();
      this.#wrapper.enterWidgetMode(stream);
      if (!hasFrameMemory(names, stream)) {
        this.#wrapper.exitWidgetMode(stream);
        throw new Error(`The stream ${name} has not entered widget mode. ${NO_FRAME_MEMORY}`);
      }
      this.#inWidgetMode.set(name, { ...stream });
    }

    // The names of the main segment, which a widget can open.
    #sharedNames() {
      const names = this.#wrapper.getSharedDataInfo();
      requireMemory(names, NO_MAIN_MEMORY);
      return names;
    }

    // Asks for the newest frame whenever one is due, and for none in between, so that none waits.
    // Nothing is due while the stream is not there.
    async *#pollFrames(stream, pace, signal) {
      const name = nameOf(stream);
      const counters = this.#ledger.of(stream);
      const isAdded = (_name, payload, resolve) => nameOf(payload) === name && resolve();
      let frameId = 0; // of the picture that is shown, or 0
      let shown; // the stream that was there, of this name
      let isDelivered = false;
      let isAwaited = false;
      for (;;) {
        try {
          if (isAwaited) await this.#until(['streamAdded'], isAdded, { signal });
          await pause(pace.next(isDelivered), [signal, this.#closing.signal]);
        } catch (error) {
          if (error instanceof ClosedError) return;
          throw error;
        }
        const present = this.#streams.get(name);
        if (shown && shown !== present) return;
        shown = present;

        const frame = this.#wrapper.getFrame(stream, frameId);
        isDelivered = !frame.noUpdate || (frame.clearFrame && frameId > 0);
        isAwaited = !isDelivered && !present && name !== UNANNOUNCED;
        if (!isDelivered) continue;
        if (frame.noUpdate) {
          frameId = 0;
        } else {
          if (frameId > 0) counters.skipped += Math.max(0, frame.frameId - frameId - 1);
          frameId = frame.frameId;
        }
        counters.delivered += 1;
        try {
          yield frame;
        } finally {
          counters.released += 1;
        }
      }
    }
  };
}

module.exports = { defineMeeting };
