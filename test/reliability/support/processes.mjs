// Main processes and widgets that trials command.

import path from 'node:path';

import { startProcess } from '../../js/support/commanded_process.mjs';
import { removeLeftovers } from '../../js/support/shared_memory_names.mjs';

const build = path.resolve(process.env.TESSEL_BUILD ?? 'build/release');
const PACKAGE = { TESSEL_WRAPPER_ADDON: path.join(build, 'tesselWrapper.node') };

export const remote = (streamIndex) => ({ type: 'remote', streamIndex });

removeLeftovers();

// On the scripted engine: { main, key }, with the names of its main segment.
export async function startMain(after) {
  const main = startProcess({ after }, './fixtures/main_process.mjs');
  return { main, key: await main.does('construct') };
}

export async function startWidget(after, key) {
  const widget = startProcess({ after }, '../reliability/fixtures/frames_widget.mjs', {
    environment: PACKAGE,
  });
  await widget.does('open', key);
  return widget;
}
