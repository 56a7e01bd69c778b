// Main processes and widgets that trials command.

import { rmSync } from 'node:fs';

import '../build.mjs'; // names the addon for the processes
import { startProcess } from '../commanded_process.mjs';
import { filesNamedIn, removeLeftovers } from '../shared_memory/shared_memory_names.mjs';

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
  const widget = startProcess({ after }, './support/processes/frames_widget.mjs');
  await widget.does('open', key, { width, height });
  return widget;
}
