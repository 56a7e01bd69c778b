// The main process of a meeting on the embedded engine, which runs a test's commands.

import { once } from 'node:events';

import { connectParams } from '../../../examples/support/connect_params.mjs';
import addon from '../../../js/index.js';
import { obey, report } from '../commanded_process.mjs';
import { PARAMS, makeWrapper } from '../make_wrapper.mjs';
import { describeCard } from '../scripted/described_frames.mjs';

const POLL_INTERVAL_MS = 2;

let wrapper;
let emitter;
let poll;

obey({
  construct(logPath) {
    const params = { ...PARAMS, configPath: '', logPath };
    ({ wrapper, emitter } = makeWrapper(addon.TesselWrapper, { params }));
    return wrapper.getSharedDataInfo();
  },

  // Resolves when this number of streams was added.
  async join(uri, streams) {
    const added = [];
    wrapper.on('streamAdded', ({ type, streamIndex }) => added.push({ type, streamIndex }));
    wrapper.connectCall(connectParams(uri));
    while (added.length < streams) await once(emitter, 'streamAdded');
    return added;
  },

  enter: (stream) => wrapper.enterWidgetMode(stream),
  exit: (stream) => wrapper.exitWidgetMode(stream),

  // Reports each frame of these streams that it sees.
  keepReading(streams) {
    const newest = new Map();
    poll = setInterval(() => {
      for (const stream of streams) {
        const frame = wrapper.getFrame(stream, newest.get(stream) ?? 0);
        if (frame.noUpdate || frame.clearFrame) continue;
        newest.set(stream, frame.frameId);
        report(describeCard(frame));
      }
    }, POLL_INTERVAL_MS);
  },

  end() {
    clearInterval(poll);
    wrapper?.destroy();
  },
});
