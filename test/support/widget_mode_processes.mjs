// Main processes and widgets for tests with both.

import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { after } from 'node:test';

import './build.mjs'; // names the addon for the processes
import { startProcess } from './commanded_process.mjs';
import { filesNamedIn, removeLeftovers } from './shared_memory/shared_memory_names.mjs';

const started = [];

removeLeftovers();

// When the tests of a file have ended, none of their files is left in /dev/shm.
after(async () => {
  await Promise.all(started.map(({ ended }) => ended));
  const files = new Set(started.flatMap(({ lines }) => filesNamedIn(lines)));
  assert.ok(files.size > 0);
  assert.deepEqual([...files].filter(existsSync), []);
});

function startRemembered(...args) {
  const one = startProcess(...args);
  started.push(one);
  return one;
}

// A main process on the scripted engine: { main, key }, with the names of its main segment.
export async function startMain(test, options) {
  const main = startMainWithoutWrapper(test, options);
  return { main, key: await main.does('construct') };
}

export const startMainWithoutWrapper = (test, options) =>
  startRemembered(test, './support/processes/main_process.mjs', options);

// A widget process that has opened these names.
export async function startWidget(test, key, options = {}) {
  const widget = startWidgetWithoutProxy(test, options);
  await widget.does('open', key);
  return widget;
}

export const startWidgetWithoutProxy = (test, options) =>
  startRemembered(test, './support/processes/widget_process.mjs', options);

export async function startEmbeddedMain(test, logPath) {
  const main = startRemembered(test, './support/processes/embedded_main_process.mjs');
  return { main, key: await main.does('construct', logPath) };
}
