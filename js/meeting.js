'use strict';

const { EventEmitter } = require('node:events');

const { abortable, pause } = require('./abortable.js');
const { CallError, ClosedError, ShareError, TimeoutError, withFramesOf } = require('./errors.js');
const { requireEventName, requireEventNames } = require('./event_names.js');
const { EventQueue } = require('./event_queue.js');
const { FrameLedger } = require('./frame_counters.js');
const { Pace } = require('./pace.js');
const { makeSegment } = require('./private_segments.js');

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

// The longest that a timer can wait.
const MAX_TIMEOUT_MS = 2 ** 31 - 1;

function requireTimeout(timeout) {
  if (typeof timeout === 'number' && timeout >= 0 && timeout <= MAX_TIMEOUT_MS) return;
  throw new TypeError(
    `Wrong timeout ${String(timeout)}, expected milliseconds from 0 to ${MAX_TIMEOUT_MS}`,
  );
}

const nameOf = ({ type, streamIndex }) => `${type}-${streamIndex}`;

// Makes the class Meeting over the addon's class: one engine, the events that it emits, promises for
// what it answers by events, and frames at a chosen rate. It belongs to the application, which
// closes it.
function defineMeeting(TesselWrapper) {
  // Those that are not closed: a meeting that only its listeners remember goes on.
  const open = new Set();

  return class Meeting {
    #emitter = new EventEmitter();
    #wrapper;
    #closing = new AbortController();
    #ledger;
    #streams = new Map(); // present ones, by name
    #inWidgetMode = new Map(); // streams, by name
    #call = 'none'; // then 'joining', 'joined' and 'leaving'
    #isPresenting = false;
    #hasToken = false;

    static open(params, { signal } = {}) {
      return makeSegment('main', () => new Meeting(params), signal);
    }

    // Use Meeting.open(): it sees to it that the segment made here is private and unique.
    constructor(params) {
      // Any number of waits is fine.
      this.#emitter.setMaxListeners(0);
      TesselWrapper._internal_setEmitterFactory(() => this.#emitter);
      this.#wrapper = new TesselWrapper({ ...CREATE_PARAMS, ...params });
      this.#ledger = new FrameLedger('meeting');
      this.#follow();
      open.add(this);
    }

    get wrapper() {
      return this.#wrapper;
    }

    get streams() {
      return [...this.#streams.values()];
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

    async waitFor(event, { where = () => true, ...limits } = {}) {
      requireEventName(event);
      const judge = (_name, payload, resolve) => where(payload) && resolve(payload);
      return this.#until([event], judge, limits);
    }

    events(names, { signal } = {}) {
      requireEventNames(names);
      return new EventQueue(this.#emitter, names, { closing: this.#closing.signal, signal });
    }

    async join(connection, limits) {
      if (typeof connection !== 'object' || connection === null) {
        throw new TypeError("join expects an object with a uri: { uri: 'tessel:demo' }");
      }
      const question = { asked: new Error(), tooLate: 'Joining took longer than' };
      if (this.#call === 'leaving') {
        const judge = (_name, _payload, resolve) => resolve();
        await this.#until(['callDisconnect'], judge, limits, question);
      }
      if (this.#call !== 'none')
        throw new Error('The meeting is in a call already: leave() it first');
      const params = {
        ...CONNECTION,
        ...connection,
        mediaStreamState: { ...MEDIA_STREAM_STATE, ...connection.mediaStreamState },
      };
      const judge = (name, payload, resolve, reject) => {
        if (name === 'callDisconnect') reject(new CallError(payload));
        else if (payload.connected) resolve();
      };
      try {
        await this.#until(['callConnectionStatus', 'callDisconnect'], judge, limits, {
          ...question,
          ask: () => {
            this.#wrapper.connectCall(params);
            this.#call = 'joining';
          },
        });
      } catch (error) {
        // Given up by the caller: the engine is not to join later.
        if (this.#call === 'joining') this.#disconnect();
        throw error;
      }
    }

    async leave(limits) {
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

    requestContentShareToken(limits) {
      return this.#answer('requestContentShareToken', limits, {
        good: ['token_granted'],
        bad: ['token_denied'],
      });
    }

    async releaseContentShareToken(limits) {
      if (!this.#hasToken) return;
      await this.#answer('releaseContentShareToken', limits, { good: ['token_relinquished'] });
    }

    startPresentation(params, limits) {
      const answers = { good: ['started'], bad: ['failed', 'denied'] };
      return this.#answer('startPresentation', limits, answers, params);
    }

    async stopPresentation(limits) {
      if (!this.#isPresenting) return;
      await this.#answer('stopPresentation', limits, { good: ['stopped'] });
    }

    frames(stream, { rate = 30, signal } = {}) {
      return this.#pollFrames({ ...stream }, new Pace(rate), signal);
    }

    async enterWidgetMode(stream, { signal } = {}) {
      const name = nameOf(stream);
      if (!this.#inWidgetMode.has(name)) {
        await makeSegment(name, () => this.#enterWidgetMode(name, stream), signal);
      }
      return this.#wrapper.getSharedDataInfo();
    }

    exitWidgetMode(stream) {
      if (this.#inWidgetMode.delete(nameOf(stream))) this.#wrapper.exitWidgetMode(stream);
    }

    counters() {
      return this.#ledger.rows();
    }

    close() {
      if (this.isClosed) return;
      for (const stream of this.#inWidgetMode.values()) this.exitWidgetMode(stream);
      this.#wrapper.destroy();
      open.delete(this);
      this.#call = 'none';
      this.#ledger.close();
      this.#closing.abort(new ClosedError('The meeting was closed'));
    }

    [Symbol.dispose]() {
      this.close();
    }

    // Keeps the state up to date. These listeners are the first: none of the application's can
    // throw before them.
    #follow() {
      this.#emitter
        .on('streamAdded', (stream) => this.#streams.set(nameOf(stream), stream))
        .on('streamRemoved', (stream) => {
          this.#streams.delete(nameOf(stream));
          // What comes back under this name is another stream for the engine.
          this.exitWidgetMode(stream);
        })
        .on('callConnectionStatus', ({ connected }) => {
          if (connected && this.#call === 'joining') this.#call = 'joined';
        })
        .on('callDisconnect', () => (this.#call = 'none'))
        .on('screenShareStatus', ({ status }) => {
          if (status === 'started') this.#isPresenting = true;
          if (status === 'stopped') this.#isPresenting = false;
          if (status === 'token_granted') this.#hasToken = true;
          if (status === 'token_relinquished') this.#hasToken = false;
        });
    }

    // Listens to the events `names`, then runs `ask`; settles as `judge(name, payload, resolve,
    // reject)` says about them, and rejects when a limit is reached or the meeting is closed. It
    // listens in front of the application's listeners, one of which may throw. Rejections show the
    // frames of `asked`.
    #until(
      names,
      judge,
      { signal, timeout } = {},
      { ask = () => {}, asked = new Error(), tooLate = `No ${names.join(' or ')} within` } = {},
    ) {
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

    // Calls the wrapper's operation, which is answered by a screenShareStatus; the end of the call
    // is an answer, too.
    async #answer(operation, limits, { good, bad = [] }, ...args) {
      const judge = (name, payload, resolve, reject) => {
        if (name === 'callDisconnect') reject(new CallError(payload));
        else if (good.includes(payload.status)) resolve();
        else if (bad.includes(payload.status)) reject(new ShareError(operation, payload.status));
      };
      await this.#until(['screenShareStatus', 'callDisconnect'], judge, limits, {
        ask: () => this.#wrapper[operation](...args),
        tooLate: `${operation} took longer than`,
      });
    }

    #disconnect() {
      this.#wrapper.disconnectCall();
      if (this.#call !== 'none') this.#call = 'leaving';
    }

    #enterWidgetMode(name, stream) {
      if (this.isClosed) throw this.#closing.signal.reason;
      if (this.#inWidgetMode.has(name)) return;
      if (!this.#streams.has(name)) throw new Error(`The stream ${name} is not there`);
      this.#wrapper.enterWidgetMode(stream);
      this.#inWidgetMode.set(name, { ...stream });
    }

    // Asks for the newest frame whenever one is due, and for none in between, so that none waits.
    async *#pollFrames(stream, pace, signal) {
      const counters = this.#ledger.of(stream);
      let frameId = 0; // of the picture that is shown, or 0
      let wasPresent = false;
      let isDelivered = false;
      for (;;) {
        try {
          await pause(pace.next(isDelivered), [signal, this.#closing.signal]);
        } catch (error) {
          if (error instanceof ClosedError) return;
          throw error;
        }
        const isPresent = this.#streams.has(nameOf(stream));
        if (wasPresent && !isPresent) return;
        wasPresent = isPresent;

        const frame = this.#wrapper.getFrame(stream, frameId);
        isDelivered = !frame.noUpdate || (frame.clearFrame && frameId > 0);
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
