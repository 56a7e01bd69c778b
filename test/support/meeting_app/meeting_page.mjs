// The meeting application's page in a browser, and what it shows.

import { readFileSync } from 'node:fs';

import { PATIENCE_MS } from './browser.mjs';

// Pictures stay in the page: what a card says is a few numbers.
const cardCode = readFileSync(new URL('../card_code.mjs', import.meta.url), 'utf8');
const cardReader = `window.readCard = (() => {
  ${cardCode.replace('export function', 'return function')}
})();`;

// Opens the application's page. Its canvases keep what was drawn, so that it can be read back.
export async function openPage(test, browser, address, options = {}) {
  const context = await browser.newContext({ viewport: { width: 900, height: 560 }, ...options });
  test.after(() => context.close());
  context.setDefaultTimeout(PATIENCE_MS);
  await context.addInitScript(cardReader);
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

// Settles with the first test card that the stream's tile shows and that `matches`: what readCard
// says, and the picture's width and height.
export async function cardIn(page, name, matches) {
  const shown = `.tile.live[data-stream="${name}"]`;
  await page.locator(shown).waitFor();
  return cardOn(page, `${shown} canvas`, matches);
}

// The same of a canvas, which this selector finds.
export async function cardOn(page, selector, matches = () => true) {
  for (;;) {
    const card = await page.evaluate(cardOf, selector);
    if (card && matches(card)) return card;
  }
}

// In the page: the card that the canvas shows once more is drawn.
async function cardOf(selector) {
  await new Promise((resolve) => requestAnimationFrame(resolve));
  const canvas = document.querySelector(selector);
  if (!canvas) return null;
  const { width, height } = canvas;
  // The corner that holds the card's code.
  const columns = Math.min(width, Math.ceil((width * 24) / 32) + 48);
  const rows = Math.min(height, Math.ceil((height * 3) / 24) + 6);
  // Read where it was drawn: a copy to another canvas takes the browser several times as long.
  const gl = canvas.getContext('webgl2');
  const pixels = new Uint8Array(4 * columns * rows);
  gl.readPixels(0, height - rows, columns, rows, gl.RGBA, gl.UNSIGNED_BYTE, pixels);
  // A grey pixel: limited range taken back. WebGL's rows begin at the bottom.
  const luma = Array.from({ length: columns * rows }, (_, at) => {
    const row = rows - 1 - Math.floor(at / columns);
    return 16 + (pixels[4 * (row * columns + (at % columns))] * 219) / 255;
  });
  const card = window.readCard({ width, height, yPlaneBufferStride: columns, yPlaneBuffer: luma });
  return card && { ...card, width, height };
}

// Settles with the event log's texts once there are `count` entries with this name.
export async function logged(page, name, count = 1) {
  const entries = page.locator(`#events li.${name} span`);
  await entries.nth(count - 1).waitFor({ state: 'attached' });
  return entries.allTextContents();
}
