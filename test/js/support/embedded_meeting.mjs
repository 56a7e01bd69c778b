// Meetings on the embedded engine for JavaScript tests.

import { EventEmitter, once } from 'node:events';
import { createRequire } from 'node:module';
import path from 'node:path';
import { setImmediate } from 'node:timers/promises';

import { connection } from '../../../examples/support/connection.mjs';
import { temporaryDirectory } from './temporary_directory.mjs';

const require = createRequire(import.meta.url);
const build = path.resolve(process.env.TESSEL_BUILD ?? 'build/release');

export const { TesselWrapper, TesselWrapperProxy } = require(
  path.join(build, 'tesselWrapper.node'),
);

const EVENTS = [
  'streamAdded',
  'streamRemoved',
  'streamUpdated',
  'gracefulEvent',
  'callConnectionStatus',
  'screenShareStatus',
  'contentReceive',
  'callDisconnect',
  'mediaMuteState',
  'micLevel',
  'noRtpMedia',
  'deviceChange',
  'eventNotify',
  'vspUpdateVOQI',
];

// One wrapper with its emitter and everything that it emitted; destroyed when the test ends.
export class Meeting {
  constructor(test, { logPrefix = 'test' } = {}) {
    this.logPath = temporaryDirectory(test);
    this.emitter = new EventEmitter();
    TesselWrapper._internal_setEmitterFactory(() => this.emitter);
    this.wrapper = new TesselWrapper({
      appVersion: '1',
      configPath: '',
      logPath: this.logPath,
      logPrefix,
      userAgent: 'test',
    });
    this.events = []; // [name, payload] in order
    for (const name of EVENTS) {
      this.emitter.on(name, (payload) => this.events.push([name, payload]));
    }
    test.after(() => this.wrapper.destroy());
  }

  // The payloads of one event so far.
  payloads(name) {
    return this.events.filter(([event]) => event === name).map(([, payload]) => payload);
  }

  // Settles with the first payload, past or to come, that `matches`.
  async seen(name, matches = () => true) {
    for (;;) {
      const found = this.payloads(name).find(matches);
      if (found !== undefined) return found;
      await once(this.emitter, name);
    }
  }

  connect(uri, overrides = {}) {
    this.wrapper.connectCall({ ...connection(uri), ...overrides });
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
}
