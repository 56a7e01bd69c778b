// Frames of 1280x720 on their way from a main process to a widget.

import assert from 'node:assert/strict';

import { startMain, startWidget } from '../../support/reliability/processes.mjs';
import { remote } from '../../support/streams.mjs';

const STREAM = remote(3);
const PUSHED = { width: 1280, height: 720, csrc: 5, fps: 0 };

export async function run(count, { after }) {
  const { main, key } = await startMain(after);
  const widget = await startWidget(after, key, PUSHED);
  await main.does('enter', STREAM);
  await main.does('startPushing', STREAM, PUSHED);
  const seen = await widget.does('read', STREAM, count);
  const written = await main.does('stopPushing', STREAM);
  const { frames, missing, broken, outOfOrder, newest } = seen;
  assert.deepEqual({ missing, broken, outOfOrder }, { missing: 0, broken: 0, outOfOrder: 0 });
  assert.ok(newest < written);
  await widget.ends();
  await main.ends();
  return {
    'frames read': frames,
    // Each reading is two calls, and compares the whole frame, also one that was read before.
    'readings compared': seen.calls / 2,
    'frames written': written,
    broken,
    'out of order': outOfOrder,
  };
}
