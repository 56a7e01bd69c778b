// Meetings on the embedded engine for JavaScript tests.

import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { setImmediate } from 'node:timers/promises';

import { connectParams } from '../../examples/support/connect_params.mjs';
import { EVENT_NAMES } from '../../js/event_names.js';
import { addonFile } from './build.mjs';
import { PARAMS, makeWrapper } from './make_wrapper.mjs';
import { temporaryDirectory } from './temporary_directory.mjs';

const require = createRequire(import.meta.url);

export const { TesselWrapper, TesselWrapperProxy } = require(addonFile);

// `wrapper` for tests: the names of the methods that they call are added to `called`.
function noting(wrapper, called) {
  return new Proxy(wrapper, {
    get(target, name) {
      called.add(name);
      return (...args) => target[name](...args);
    },
  });
}

// One wrapper with its emitter and everything that it emitted; destroyed when the test ends.
export class Meeting {
  constructor(test, { logPrefix = 'test', configPath = '' } = {}) {
    this.logPath = temporaryDirectory(test);
    this.logFile = path.join(this.logPath, `${logPrefix}tesselclient.log`);
    const params = { ...PARAMS, configPath, logPath: this.logPath, logPrefix };
    const { wrapper, emitter } = makeWrapper(TesselWrapper, { params });
    this.emitter = emitter;
    this.called = new Set(); // the names of the wrapper's methods that were called
    this.wrapper = noting(wrapper, this.called);
    this.events = []; // [name, payload] in order
    for (const name of EVENT_NAMES) {
      this.emitter.on(name, (payload) => this.events.push([name, payload]));
    }
    test.after(() => wrapper.destroy());
  }

  // The payloads of one event so far.
  payloads(name) {
    return this.events.filter(([event]) => event === name).map(([, payload]) => payload);
  }

  // Resolves with the first past or future payload that `matches`.
  async seen(name, matches = () => true) {
    for (;;) {
      const found = this.payloads(name).find(matches);
      if (found !== undefined) return found;
      await once(this.emitter, name);
    }
  }

  // Forgets what was emitted so far.
  forget() {
    this.events.length = 0;
  }

  // Settles with the first answer of `look` that is neither false nor the like.
  async until(look) {
    for (;;) {
      const answer = look();
      if (answer) return answer;
      await setImmediate();
    }
  }

  // What the engine's log says so far.
  log() {
    return readFileSync(this.logFile, 'utf8');
  }

  connect(uri, overrides = {}) {
    this.wrapper.connectCall({ ...connectParams(uri), ...overrides });
  }

  // Joins and settles when the engine has answered.
  async join(uri, overrides) {
    this.connect(uri, overrides);
    return (await this.seen('callConnectionStatus')).connected;
  }

  async leave() {
    this.wrapper.disconnectCall();
    return this.seen('callDisconnect');
  }

  // The next fresh frame of `stream` after `frameId`, whose planes are valid until the next turn of
  // the event loop that asks for another.
  async nextFrame(stream, frameId = 0) {
    for (;;) {
      const frame = this.wrapper.getFrame(stream, frameId);
      if (!frame.noUpdate) return frame;
      await setImmediate();
    }
  }

  // The first fresh frame of `stream` that `matches`.
  async frameWhere(stream, matches) {
    let frame = await this.nextFrame(stream);
    while (!matches(frame)) frame = await this.nextFrame(stream, frame.frameId);
    return frame;
  }

  // Settles when the sender of `stream` has gone on for `count` pictures.
  async passes(stream, count) {
    const { frameId: first } = await this.nextFrame(stream);
    await this.frameWhere(stream, ({ frameId }) => frameId >= first + count);
  }

  // Whether `stream` is to be cleared.
  showsNothing(stream) {
    const { noUpdate, clearFrame } = this.wrapper.getFrame(stream, 0);
    return noUpdate && clearFrame;
  }
}
