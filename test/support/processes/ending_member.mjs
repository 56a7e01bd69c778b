// node ending_member.mjs WAY DIRECTORY URI: joins the room of a real SFU, sees a picture of somebody
// there, says "in the call" on descriptor 3, and ends in this way.

import { EventEmitter, once } from 'node:events';
import { writeSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { connectParams } from '../../../examples/support/connect_params.mjs';
import { build } from '../build.mjs';
import { collectGarbage } from '../collector.mjs';
import { loadCopy, loadWithClearedCache, terminateWorker } from '../ways_to_end.mjs';

const require = createRequire(import.meta.url);
const [way, directory, uri] = process.argv.slice(2);
const addonFile = path.join(build, 'webrtc', 'tesselWrapper.node');
const REMOTE = { type: 'remote', streamIndex: 0 };
const POLL_INTERVAL_MS = 5;

const params = {
  ...{ appVersion: '1', configPath: '', userAgent: 'test' },
  ...{ logPath: directory, logPrefix: `${process.pid}` },
};

function makeWrapper({ TesselWrapper }) {
  const emitter = new EventEmitter();
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  return { wrapper: new TesselWrapper(params), emitter };
}

async function join() {
  const { wrapper, emitter } = makeWrapper(require(addonFile));
  wrapper.enableCameraCapture(true);
  wrapper.connectCall(connectParams(uri));
  const [{ connected }] = await once(emitter, 'callConnectionStatus');
  if (!connected) throw new Error('the call was refused');
  while (wrapper.getFrame(REMOTE, 0).noUpdate) await delay(POLL_INTERVAL_MS);
  return { wrapper, emitter };
}

const sayThatItEnds = () => writeSync(3, 'in the call');

// The engine notifies this of every call that mutes.
function listenForMute({ wrapper, emitter }, listener) {
  emitter.on('mediaMuteState', listener);
  wrapper.muteLocalAudio(true);
}

function useAnother(addon) {
  const { wrapper } = makeWrapper(addon);
  wrapper.destroy();
}

const WAYS = {
  destroyed({ wrapper }) {
    sayThatItEnds();
    wrapper.destroy();
  },
  exitInListener(member) {
    globalThis.member = member;
    listenForMute(member, () => {
      sayThatItEnds();
      process.exit(7);
    });
  },
  thrownInListener(member) {
    globalThis.member = member;
    listenForMute(member, () => {
      sayThatItEnds();
      throw new RangeError('thrown to end');
    });
  },
  notDestroyed(member) {
    const gone = new WeakRef(member.wrapper);
    delete member.wrapper;
    sayThatItEnds();
    const look = () => {
      collectGarbage();
      if (gone.deref()) setImmediate(look);
    };
    setImmediate(look);
  },
  async workerTerminated({ wrapper }) {
    await terminateWorker(addonFile);
    sayThatItEnds();
    wrapper.destroy();
  },
  loadedTwice({ wrapper }) {
    useAnother(loadCopy(addonFile, directory));
    sayThatItEnds();
    wrapper.destroy();
  },
  cacheCleared({ wrapper }) {
    useAnother(loadWithClearedCache(addonFile));
    sayThatItEnds();
    wrapper.destroy();
  },
};

await WAYS[way](await join());
