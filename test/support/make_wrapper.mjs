// A wrapper of any build of the addon, on any engine.

import { EventEmitter } from 'node:events';

export const PARAMS = {
  appVersion: '1.2.3',
  configPath: '/etc/tessel',
  logPath: '/var/log/tessel',
  logPrefix: 'client',
  userAgent: 'Agent/4.5',
};

// { wrapper, emitter }. The wrapper holds the emitter weakly; it is kept alive as long as the class
// has no other factory. The process ends by itself only after `wrapper.destroy()`.
export function makeWrapper(TesselWrapper, { emitter = new EventEmitter(), params = PARAMS } = {}) {
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  return { wrapper: new TesselWrapper(params), emitter };
}
