// Frames of 1280x720 on their way from a main process to a widget.

import assert from 'node:assert/strict';

import { remote, startMain, startWidget } from '../support/processes.mjs';

const STREAM = remote(3);
const PUSHED = { width: 1280, height: 720, csrc: 5, fps: 500 };

export async function run(count, { after }) {
  const { main, key } = await startMain(after);
  const widget = await startWidget(after, key);
  await main.does('enter', STREAM);
  await main.does('startPushing', STREAM, PUSHED);
  const { frames, broken, outOfOrder, newest } = await widget.does('read', STREAM, count);
  const written = await main.does('stopPushing', STREAM);
  assert.deepEqual({ broken, outOfOrder }, { broken: 0, outOfOrder: 0 });
  assert.ok(newest < written);
  await widget.ends();
  await main.ends();
  return { 'frames read': frames, 'frames written': written, broken, 'out of order': outOfOrder };
}
