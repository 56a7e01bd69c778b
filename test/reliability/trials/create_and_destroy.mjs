// Wrappers and widgets' proxies on the embedded engine, made, used, destroyed and collected.

import assert from 'node:assert/strict';
import { EventEmitter, once } from 'node:events';
import { existsSync } from 'node:fs';
import { setImmediate } from 'node:timers/promises';

import { connection } from '../../../examples/support/connection.mjs';
import { collect } from '../../js/support/collector.mjs';
import { TesselWrapper, TesselWrapperProxy } from '../../js/support/embedded_meeting.mjs';
import { fileOfSegment, fileOfSemaphore } from '../../js/support/shared_memory_names.mjs';
import { temporaryDirectory } from '../../js/support/temporary_directory.mjs';
import { withoutGrowth } from '../support/holdings.mjs';

const STREAM = { type: 'remote', streamIndex: 0 };
const NO_FRAME = -1;

// A meeting with all that makes the addon hold something; nothing of it is returned but the files
// of its main segment.
async function meet(logPath) {
  const emitter = new EventEmitter();
  TesselWrapper._internal_setEmitterFactory(() => emitter);
  const wrapper = new TesselWrapper({
    ...{ appVersion: '1', configPath: '', userAgent: 'test' },
    ...{ logPath, logPrefix: 'test' },
  });
  const key = wrapper.getSharedDataInfo();
  wrapper.connectCall(connection('tessel:demo?participants=1&size=64x36&fps=60'));
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
  wrapper.exitWidgetMode(STREAM);
  wrapper.getMeetingStats();
  wrapper.destroy();
  return [fileOfSegment(key.shm_name), fileOfSemaphore(key.sem_name)];
}

export async function run(count, { after }) {
  const logPath = temporaryDirectory({ after });
  return withoutGrowth(async () => {
    for (let round = 0; round < count / 4; ++round) {
      const files = await meet(logPath);
      await collect();
      // What an await has kept until now.
      await collect();
      assert.deepEqual(files.filter(existsSync), []);
    }
  });
}
