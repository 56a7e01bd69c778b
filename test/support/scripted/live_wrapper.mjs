// A live wrapper of any build of the addon.

import { EventEmitter } from 'node:events';

// { wrapper, emitter }. The wrapper holds the emitter weakly: who wants events keeps it. The process
// ends by itself only after `wrapper.destroy()`.
export function makeLiveWrapper(TesselWrapper, emitter = new EventEmitter()) {
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  const wrapper = new TesselWrapper({
    appVersion: '1.2.3',
    configPath: '/config',
    logPath: '/log',
    logPrefix: 'prefix',
    userAgent: 'agent',
  });
  return { wrapper, emitter };
}
