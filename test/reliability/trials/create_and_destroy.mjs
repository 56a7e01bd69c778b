// Wrappers and widgets' proxies on the embedded engine, made, used, destroyed and collected.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import { existsSync, readFileSync, readdirSync, statSync } from 'node:fs';
import path from 'node:path';
import { setImmediate } from 'node:timers/promises';

import { connectParams } from '../../../examples/support/connect_params.mjs';
import { collect } from '../../support/collector.mjs';
import { TesselWrapper, TesselWrapperProxy } from '../../support/embedded_meeting.mjs';
import { PARAMS, makeWrapper } from '../../support/make_wrapper.mjs';
import { remote } from '../../support/streams.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { withoutGrowth } from '../../support/reliability/holdings.mjs';

const STREAM = remote(0);
const NO_FRAME = -1;
const PARTS = 16;
const DIRECTORY = '/dev/shm';

// The names of what this process has mapped out of /dev/shm, by their inodes: who made a semaphore
// mapped it under another name.
function mappedFiles() {
  const maps = readFileSync('/proc/self/maps', 'latin1');
  const inodes = new Set((maps.match(/\d+(?= +\/dev\/shm\/)/g) ?? []).map(Number));
  return readdirSync(DIRECTORY)
    .map((name) => path.join(DIRECTORY, name))
    .filter((file) => inodes.has(statSync(file, { throwIfNoEntry: false })?.ino));
}

// A meeting with all that makes the addon hold something; nothing of it is returned but the files
// of its segments and semaphores.
async function meet(logPath) {
  const params = { ...PARAMS, configPath: '', logPath };
  const { wrapper, emitter } = makeWrapper(TesselWrapper, { params });
  const key = wrapper.getSharedDataInfo();
  wrapper.connectCall(connectParams('tessel:demo?participants=1&size=64x36&fps=60'));
  await once(emitter, 'streamAdded');

  const proxy = new TesselWrapperProxy(key);
  wrapper.enterWidgetMode(STREAM);
  let frame = wrapper.getFrame(STREAM, 0);
  for (; frame.noUpdate; frame = wrapper.getFrame(STREAM, 0)) await setImmediate();
  assert.equal(frame.yPlaneBuffer.length, 64 * 36);
  let shared = proxy.getFrame(STREAM, NO_FRAME);
  for (; shared.width !== 64; shared = proxy.getFrame(STREAM, NO_FRAME)) {
    proxy.releaseFrame(STREAM);
    await setImmediate();
  }
  assert.equal(shared.yPlaneBuffer.length, 64 * 36);
  proxy.releaseFrame(STREAM);
  const files = mappedFiles();
  assert.equal(files.length, 4, 'a segment and a semaphore each for the meeting and the stream');
  wrapper.exitWidgetMode(STREAM);
  wrapper.getMeetingStats();
  wrapper.destroy();
  return files;
}

export async function run(count, { after }) {
  const logPath = temporaryDirectory({ after });
  const work = async () => {
    for (let round = 0; round < count / PARTS; ++round) {
      const files = await meet(logPath);
      await collect();
      // What an await has kept until now.
      await collect();
      assert.deepEqual(files.filter(existsSync), []);
    }
  };
  return withoutGrowth(work, { parts: PARTS });
}
