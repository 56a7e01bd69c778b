// Making and losing wrappers, in the tests' own process or in a child. Importing this loads the
// scripted engine, but not the addon.

import { EventEmitter } from 'node:events';
import * as engine from './scripted_engine.mjs';

export { say } from '../child.mjs';
export { collect, collectGarbage } from '../collector.mjs';
export { nextTurn } from '../next_turn.mjs';
export { EventEmitter, engine };

export const PARAMS = {
  appVersion: '1.2.3',
  configPath: '/etc/tessel',
  logPath: '/var/log/tessel',
  logPrefix: 'client',
  userAgent: 'Agent/4.5',
};

// A new wrapper on this emitter, which is kept alive as long as the class has no other factory.
export function construct({ emitter = new EventEmitter(), params = PARAMS } = {}) {
  const { TesselWrapper } = engine.loadAddon();
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  return new TesselWrapper(params);
}

// The same with a remote stream in widget mode, whose frames are being copied into its segment.
export function constructInWidgetMode() {
  const stream = { type: 'remote', streamIndex: 3 };
  engine.setStream(stream);
  const wrapper = construct();
  wrapper.enterWidgetMode(stream);
  if (!engine.pushFrame(stream, { width: 64, height: 36 })) throw new Error('no receiver');
  engine.startPushing(stream, { width: 64, height: 36, recycled: true });
  return wrapper;
}
