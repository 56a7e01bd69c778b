// The ways in which a process with an engine ends, each with what is expected of it, and the steps
// that the programs which end in these ways share.

import { once } from 'node:events';
import { copyFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { Worker } from 'node:worker_threads';

const require = createRequire(import.meta.url);

export const WAYS_TO_END = {
  destroyed: { code: 0 },
  exitInListener: { code: 7 },
  thrownInListener: { code: 1, error: 'RangeError: thrown to end' },
  notDestroyed: { code: 0 },
  workerTerminated: { code: 0 },
  loadedTwice: { code: 0 },
  cacheCleared: { code: 0 },
};

// Loads the addon into a worker, which is then terminated while it runs.
export async function terminateWorker(addonFile) {
  const worker = new Worker(
    `require(${JSON.stringify(addonFile)});
     require('node:worker_threads').parentPort.postMessage('loaded');
     for (;;);`,
    { eval: true },
  );
  await once(worker, 'message');
  await worker.terminate();
}

// The addon as a second library of this process.
export function loadCopy(addonFile, directory) {
  const copy = path.join(directory, `copy ${process.pid}.node`);
  copyFileSync(addonFile, copy);
  return require(copy);
}

// The same library, for which node makes classes once more.
export function loadWithClearedCache(addonFile) {
  const { TesselWrapper } = require(addonFile);
  delete require.cache[addonFile];
  const again = require(addonFile);
  if (again.TesselWrapper === TesselWrapper) throw new Error('not loaded again');
  return again;
}
