// node warming_member.mjs DIRECTORY MILLISECONDS: a process that exits with 3 so many milliseconds after
// its engine has begun to make its certificate.

import { EventEmitter } from 'node:events';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';

import { build } from '../build.mjs';

const [logPath, milliseconds] = process.argv.slice(2);
const require = createRequire(import.meta.url);
const { TesselWrapper } = require(path.join(build, 'webrtc', 'tesselWrapper.node'));
const emitter = new EventEmitter();
TesselWrapper._internal_setEmitterFactory(() => emitter);
globalThis.wrapper = new TesselWrapper({
  ...{ appVersion: '1', configPath: '', logPath, logPrefix: '', userAgent: 'test' },
});
// The certificate is made when this library has just been loaded.
while (!readFileSync('/proc/self/maps', 'latin1').includes('libgstdtls'));
Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, Number(milliseconds));
process.exit(3);
