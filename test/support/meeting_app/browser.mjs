// Debian's Chromium for tests, drawing WebGL on the processor.

import { chromium } from 'playwright-core';

// For what a test waits for in a page: far above what anything takes.
export const PATIENCE_MS = 120_000;

const EXECUTABLE = '/usr/bin/chromium';

const ARGUMENTS = [
  '--use-angle=swiftshader',
  '--enable-unsafe-swiftshader',
  '--disable-gpu-compositing',
  // It would end the browser where a busy machine draws slowly.
  '--disable-gpu-watchdog',
  // What a test measures or waits for is not to depend on which window is in front.
  '--disable-backgrounding-occluded-windows',
  '--disable-renderer-backgrounding',
];

// A browser that is closed when the test ends, without the sanitizer's runtime that a node under
// test may have preloaded.
export async function openBrowser(test, moreArguments = []) {
  const browser = await chromium.launch({
    executablePath: EXECUTABLE,
    args: [...ARGUMENTS, ...moreArguments],
    chromiumSandbox: process.getuid() !== 0,
    env: { ...process.env, LD_PRELOAD: '' },
  });
  test.after(() => browser.close());
  return browser;
}
