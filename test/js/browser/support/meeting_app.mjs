// The meeting application in processes of its own, and its page in a browser.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

import { readCard } from '../../support/card_code.mjs';
import { temporaryDirectory } from '../../support/temporary_directory.mjs';
import { PATIENCE_MS } from './browser.mjs';

export const PROGRAM = fileURLToPath(
  new URL('../../../../examples/meeting/main.mjs', import.meta.url),
);
const build = path.resolve(process.env.TESSEL_BUILD ?? 'build/release');

// For processes that load the package: the build under test.
export const environment = {
  ...process.env,
  TESSEL_WRAPPER_ADDON: path.join(build, 'tesselWrapper.node'),
};

// Starts the application until the test ends; answers with its process and its page's address.
export async function startMeetingApp(test, uri) {
  const options = ['--uri', uri, '--output', temporaryDirectory(test)];
  const child = spawn(process.execPath, [PROGRAM, ...options], {
    env: environment,
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const exit = once(child, 'exit');
  test.after(async () => {
    child.kill('SIGINT');
    await exit;
  });
  for await (const line of createInterface({ input: child.stdout })) {
    const [, address] = /^The meeting is at (\S+)$/.exec(line) ?? [];
    if (address) {
      child.stdout.resume();
      return { child, exit, address };
    }
  }
  throw new Error('the application has ended without an address');
}

// Opens the application's page. Its canvases keep what was drawn, so that it can be read back.
export async function openPage(test, browser, address, options = {}) {
  const context = await browser.newContext({ viewport: { width: 900, height: 560 }, ...options });
  test.after(() => context.close());
  context.setDefaultTimeout(PATIENCE_MS);
  await context.addInitScript(() => {
    const { getContext } = HTMLCanvasElement.prototype;
    HTMLCanvasElement.prototype.getContext = function (kind, attributes) {
      return getContext.call(this, kind, { ...attributes, preserveDrawingBuffer: true });
    };
  });
  const page = await context.newPage();
  const errors = [];
  page.on('pageerror', (error) => errors.push(error));
  page.on('console', (message) => message.type() === 'error' && errors.push(message.text()));
  await page.goto(address);
  return { page, context, errors };
}

export const tile = (page, name) => page.locator(`.tile[data-stream="${name}"]`);

// Settles with the first test card that the stream's tile shows and that `matches`.
export async function cardIn(page, name, matches = () => true) {
  await page.locator(`.tile.live[data-stream="${name}"]`).waitFor();
  for (;;) {
    const corner = await page.evaluate(cornerOf, name);
    const card = corner && readCard({ ...corner, yPlaneBuffer: Uint8Array.from(corner.luma) });
    if (card && matches(card, corner))
      return { ...card, width: corner.width, height: corner.height };
  }
}

// In the page: the luminance of the corner that holds the card's code, once more is drawn.
async function cornerOf(name) {
  await new Promise((resolve) => requestAnimationFrame(resolve));
  const canvas = document.querySelector(`.tile.live[data-stream="${name}"] canvas`);
  if (!canvas) return null;
  const { width, height } = canvas;
  const columns = Math.min(width, Math.ceil((width * 24) / 32) + 48);
  const rows = Math.min(height, Math.ceil((height * 3) / 24) + 6);
  const context = new OffscreenCanvas(columns, rows).getContext('2d');
  context.drawImage(canvas, 0, 0);
  const { data } = context.getImageData(0, 0, columns, rows);
  // A grey pixel: limited range taken back.
  const luma = Array.from({ length: columns * rows }, (_, at) => 16 + (data[4 * at] * 219) / 255);
  return { width, height, yPlaneBufferStride: columns, luma };
}

// Settles with the event log's texts once there are `count` entries with this name.
export async function logged(page, name, count = 1) {
  const entries = page.locator(`#events li.${name} span`);
  await entries.nth(count - 1).waitFor({ state: 'attached' });
  return entries.allTextContents();
}
