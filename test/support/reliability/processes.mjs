// Main processes and widgets that trials command.

import { rmSync } from 'node:fs';
import path from 'node:path';

import { startProcess } from '../commanded_process.mjs';
import { filesNamedIn, removeLeftovers } from '../shared_memory/shared_memory_names.mjs';

const build = path.resolve(process.env.TESSEL_BUILD ?? 'build/release');
const PACKAGE = { TESSEL_WRAPPER_ADDON: path.join(build, 'tesselWrapper.node') };

export const remote = (streamIndex) => ({ type: 'remote', streamIndex });

// What a process writes when it has waited for a lock in vain.
export const TIMED_OUT = 'sem_timedwait timedout, error:110';

removeLeftovers();

// On the scripted engine: { main, key }, with the names of its main segment. What it leaves in
// /dev/shm is removed when the trial is over.
export async function startMain(after) {
  after(() => filesNamedIn(main.lines).forEach((file) => rmSync(file, { force: true })));
  const main = startProcess({ after }, './support/processes/main_process.mjs');
  return { main, key: await main.does('construct') };
}

// A widget that expects frames of this size.
export async function startWidget(after, key, { width, height }) {
  const widget = startProcess({ after }, './support/processes/frames_widget.mjs', {
    environment: PACKAGE,
  });
  await widget.does('open', key, { width, height });
  return widget;
}
