// The renderer, in a browser: the colours that it draws for given planes.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { before, test } from 'node:test';

import { PATIENCE_MS, openBrowser } from '../../support/meeting_app/browser.mjs';
import { serveFolder } from '../../support/meeting_app/folder_server.mjs';

const RENDERER = fileURLToPath(new URL('../../../js/renderer', import.meta.url));
// The tolerance for rounding to 8 bits.
const TOLERANCE = 2;

let page;
before(async (t) => {
  const address = await serveFolder(t, RENDERER);
  const browser = await openBrowser(t);
  page = await browser.newPage();
  page.setDefaultTimeout(PATIENCE_MS);
  await page.goto(address);
  await page.addScriptTag({
    type: 'module',
    content: `
      import { I420Renderer } from './renderer.mjs';
      window.I420Renderer = I420Renderer;
      // A frame of one colour for each quarter, [y, u, v]: top left, top right, bottom left, bottom
      // right. What lies between a row's end and the stride is noise.
      window.frameOf = (width, height, quarters, extra = 0) => {
        const plane = (index, columns, rows) => {
          const stride = columns + extra;
          const data = new Uint8Array(stride * rows).fill(77);
          for (let row = 0; row < rows; row++)
            for (let column = 0; column < columns; column++)
              data[row * stride + column] =
                quarters[2 * (row >= rows / 2) + (column >= columns / 2)][index];
          return [data, stride];
        };
        const half = (size) => (size + 1) >> 1;
        const [yPlaneBuffer, yPlaneBufferStride] = plane(0, width, height);
        const [uPlaneBuffer, uPlaneBufferStride] = plane(1, half(width), half(height));
        const [vPlaneBuffer, vPlaneBufferStride] = plane(2, half(width), half(height));
        return { width, height, yPlaneBuffer, yPlaneBufferStride, uPlaneBuffer, uPlaneBufferStride,
          vPlaneBuffer, vPlaneBufferStride };
      };
      // [red, green, blue] of a canvas at a place, in the turn in which it was drawn.
      window.pixel = (canvas, x, y) => {
        const copy = document.createElement('canvas');
        copy.width = canvas.width;
        copy.height = canvas.height;
        const context = copy.getContext('2d');
        context.drawImage(canvas, 0, 0);
        return [...context.getImageData(x, y, 1, 1).data].slice(0, 3);
      };
      window.ready = true;
    `,
  });
  await page.waitForFunction(() => window.ready);
});

const YUV = {
  black: [16, 128, 128],
  white: [235, 128, 128],
  red: [81, 90, 240],
  blue: [41, 240, 110],
};
const LIMITED = { black: [0, 0, 0], white: [255, 255, 255], red: [254, 0, 0], blue: [0, 0, 255] };
const ORDER = ['black', 'white', 'red', 'blue'];

function near(actual, expected, what) {
  const isNear = actual.every((value, index) => Math.abs(value - expected[index]) <= TOLERANCE);
  assert.ok(isNear, `${what}: ${actual} instead of ${expected}`);
}

// The pixels in the middle of a frame's quarters.
const quarters = (options) =>
  page.evaluate(({ use, range, width, height, colours, extra }) => {
    const canvas = document.createElement('canvas');
    const renderer = new window.I420Renderer(canvas, { use, range });
    renderer.draw(window.frameOf(width, height, colours, extra));
    const middle = (size) => [Math.floor(size / 4), Math.floor((3 * size) / 4)];
    const pixels = middle(height).flatMap((y) =>
      middle(width).map((x) => window.pixel(canvas, x, y)),
    );
    const { kind } = renderer;
    renderer.dispose();
    return { kind, pixels, size: [canvas.width, canvas.height] };
  }, options);

for (const use of ['webgl2', '2d']) {
  for (const [what, width, height, extra] of [
    ['tight rows', 64, 36, 0],
    ['rows with something behind them', 64, 36, 24],
    ['an odd size', 63, 35, 0],
    ['an odd size and an odd stride', 61, 33, 7],
  ]) {
    test(`${use} draws a frame with ${what} the right way round in limited range`, async () => {
      const colours = ORDER.map((name) => YUV[name]);
      const drawn = await quarters({ use, range: 'limited', width, height, colours, extra });
      assert.equal(drawn.kind, use);
      assert.deepEqual(drawn.size, [width, height]);
      ORDER.forEach((name, index) => near(drawn.pixels[index], LIMITED[name], name));
    });
  }

  test(`${use} draws a full-range frame with black at 0 and white at 255`, async () => {
    const colours = [
      [0, 128, 128],
      [255, 128, 128],
      [16, 128, 128],
      [76, 85, 255],
    ];
    const drawn = await quarters({ use, range: 'full', width: 64, height: 36, colours, extra: 3 });
    const expected = [
      [0, 0, 0],
      [255, 255, 255],
      [16, 16, 16],
      [254, 0, 0],
    ];
    expected.forEach((colour, index) => near(drawn.pixels[index], colour, `quarter ${index}`));
  });

  test(`${use} refuses planes that do not fit the size, and draws the next frame`, async () => {
    const answer = await page.evaluate((use) => {
      const canvas = document.createElement('canvas');
      const renderer = new window.I420Renderer(canvas, { use });
      const grey = Array(4).fill([126, 128, 128]);
      const good = window.frameOf(32, 18, grey);
      const messages = [
        { ...good, yPlaneBuffer: new Uint8Array(0) },
        { ...good, vPlaneBuffer: good.vPlaneBuffer.subarray(1) },
        { ...good, uPlaneBufferStride: 15 },
        { ...good, width: 0 },
        { ...good, height: 1.5 },
      ].map((frame) => {
        try {
          renderer.draw(frame);
          return 'drawn';
        } catch (error) {
          return `${error.name}: ${error.message}`;
        }
      });
      renderer.draw(good);
      const colour = window.pixel(canvas, 9, 9);
      renderer.dispose();
      return { messages, colour };
    }, use);
    assert.deepEqual(answer.messages, [
      'RangeError: the y plane has 0 bytes of 576',
      'RangeError: the v plane has 143 bytes of 144',
      "RangeError: the u plane's stride is 15, its width 16",
      'RangeError: a picture cannot be 0x18',
      'RangeError: a picture cannot be 32x1.5',
    ]);
    near(answer.colour, [128, 128, 128], 'grey');
  });

  test(`${use} follows a change of size, and clears to black`, async () => {
    const answer = await page.evaluate((use) => {
      const canvas = document.createElement('canvas');
      const renderer = new window.I420Renderer(canvas, { use });
      const white = Array(4).fill([235, 128, 128]);
      const seen = [
        [64, 36],
        [20, 10],
        [64, 10],
      ].map(([width, height]) => {
        renderer.draw(window.frameOf(width, height, white));
        return [canvas.width, canvas.height, window.pixel(canvas, width - 1, height - 1)];
      });
      renderer.clear();
      const cleared = window.pixel(canvas, 5, 5);
      renderer.dispose();
      renderer.dispose();
      return { seen, cleared };
    }, use);
    assert.deepEqual(answer.seen, [
      [64, 36, [255, 255, 255]],
      [20, 10, [255, 255, 255]],
      [64, 10, [255, 255, 255]],
    ]);
    assert.deepEqual(answer.cleared, [0, 0, 0]);
  });
}

test('webgl2 aligns the chroma of a picture with odd dimensions', async () => {
  const red = await page.evaluate(() => {
    const canvas = document.createElement('canvas');
    const renderer = new window.I420Renderer(canvas, { range: 'full' });
    renderer.draw({
      width: 3,
      height: 1,
      yPlaneBuffer: new Uint8Array(3),
      yPlaneBufferStride: 3,
      uPlaneBuffer: Uint8Array.of(128, 128),
      uPlaneBufferStride: 2,
      vPlaneBuffer: Uint8Array.of(128, 228),
      vPlaneBufferStride: 2,
    });
    const values = [0, 1, 2].map((x) => window.pixel(canvas, x, 0)[0]);
    renderer.dispose();
    return values;
  });
  // The second sample lies between the third column and one beyond the picture.
  near(red, [0, 0.25 * 140, 0.75 * 140], 'red');
});

test('frames of one size use the same three textures', async () => {
  const calls = await page.evaluate(() => {
    const canvas = document.createElement('canvas');
    const renderer = new window.I420Renderer(canvas);
    const gl = canvas.getContext('webgl2');
    const counts = {};
    for (const name of ['createTexture', 'texStorage2D', 'texSubImage2D', 'deleteTexture']) {
      const original = gl[name];
      counts[name] = 0;
      gl[name] = (...args) => {
        counts[name] += 1;
        return original.apply(gl, args);
      };
    }
    const grey = Array(4).fill([126, 128, 128]);
    for (let frame = 0; frame < 5; frame++) renderer.draw(window.frameOf(32, 18, grey));
    const sameSize = { ...counts };
    renderer.draw(window.frameOf(64, 36, grey));
    const error = gl.getError();
    renderer.dispose();
    return { sameSize, otherSize: counts, error };
  });
  assert.deepEqual(calls.sameSize, {
    createTexture: 3,
    texStorage2D: 3,
    texSubImage2D: 15,
    deleteTexture: 0,
  });
  assert.deepEqual(calls.otherSize, {
    createTexture: 6,
    texStorage2D: 6,
    texSubImage2D: 18,
    deleteTexture: 3,
  });
  assert.equal(calls.error, 0);
});

test('a lost WebGL context draws nothing, and draws again when it is restored', async () => {
  const colour = await page.evaluate(async () => {
    const canvas = document.createElement('canvas');
    const renderer = new window.I420Renderer(canvas);
    const white = window.frameOf(32, 18, Array(4).fill([235, 128, 128]));
    renderer.draw(white);
    const extension = canvas.getContext('webgl2').getExtension('WEBGL_lose_context');
    // Settles in a turn after the event's: what its listeners decided has been noted by then.
    const event = (name) =>
      new Promise((resolve) => canvas.addEventListener(name, () => setTimeout(resolve)));
    const lost = event('webglcontextlost');
    extension.loseContext();
    await lost;
    renderer.draw(white);
    renderer.clear();
    const restored = event('webglcontextrestored');
    extension.restoreContext();
    await restored;
    renderer.draw(white);
    const drawn = window.pixel(canvas, 9, 9);
    renderer.dispose();
    return drawn;
  });
  assert.deepEqual(colour, [255, 255, 255]);
});

test('a canvas whose WebGL context is already lost is drawn when it is restored, and counts once', async () => {
  const answer = await page.evaluate(async () => {
    const white = window.frameOf(32, 18, Array(4).fill([235, 128, 128]));
    const seen = [];
    for (let round = 0; round < 15; round++) {
      const canvas = document.createElement('canvas');
      const extension = canvas.getContext('webgl2').getExtension('WEBGL_lose_context');
      // Settles in a turn after the event's: what its listeners decided has been noted by then.
      const event = (name) =>
        new Promise((resolve) => canvas.addEventListener(name, () => setTimeout(resolve)));
      const lost = event('webglcontextlost');
      extension.loseContext();
      const renderer = new window.I420Renderer(canvas);
      renderer.draw(white);
      await lost;
      const restored = event('webglcontextrestored');
      extension.restoreContext();
      await restored;
      renderer.draw(white);
      seen.push(`${renderer.kind} ${window.pixel(canvas, 9, 9)}`);
      renderer.dispose();
    }
    return seen;
  });
  assert.deepEqual(answer, Array(15).fill('webgl2 255,255,255'));
});

test('a page with many canvases loses no WebGL context: the further canvases draw without one', async () => {
  const answer = await page.evaluate(() => {
    const canvases = Array.from({ length: 20 }, () => document.createElement('canvas'));
    const renderers = canvases.map((canvas) => new window.I420Renderer(canvas));
    const white = window.frameOf(32, 18, Array(4).fill([235, 128, 128]));
    const colours = renderers.map((renderer, index) => {
      renderer.draw(white);
      return window.pixel(canvases[index], 9, 9).join();
    });
    const kinds = renderers.map(({ kind }) => kind);
    for (const renderer of renderers) renderer.dispose();
    const after = new window.I420Renderer(document.createElement('canvas'));
    const { kind } = after;
    after.dispose();
    return { colours, kinds, kind };
  });
  assert.deepEqual(answer.colours, Array(20).fill('255,255,255'));
  assert.deepEqual(answer.kinds, [...Array(14).fill('webgl2'), ...Array(6).fill('2d')]);
  assert.equal(answer.kind, 'webgl2');
});

test('unknown options are rejected', async () => {
  const messages = await page.evaluate(() =>
    [{ range: 'none' }, { use: 'webgl' }].map((options) => {
      try {
        new window.I420Renderer(document.createElement('canvas'), options);
        return 'made';
      } catch (error) {
        return `${error.name}: ${error.message}`;
      }
    }),
  );
  assert.deepEqual(messages, ['TypeError: unknown range: none', 'TypeError: cannot use webgl']);
});

test('the renderer is imported as tessel-wrapper/renderer', () => {
  const resolved = import.meta.resolve('tessel-wrapper/renderer');
  assert.equal(fileURLToPath(resolved), `${RENDERER}/renderer.mjs`);
});

test('the lines of the README draw a frame', async () => {
  const readme = readFileSync(new URL('../../../README.md', import.meta.url), 'utf8');
  const [source] = readme.match(/^import { I420Renderer }.*?^renderer\.dispose\(\);.*?$/ms);
  const [width, height] = await page.evaluate(
    (frame) => {
      document.body.replaceChildren(document.createElement('canvas'));
      window.frame = window.frameOf(...frame);
      const canvas = document.querySelector('canvas');
      return [canvas.width, canvas.height];
    },
    [64, 36, ORDER.map((name) => YUV[name])],
  );
  assert.notDeepEqual([width, height], [64, 36]);
  const content = source
    .replace("'tessel-wrapper/renderer'", "'./renderer.mjs'")
    .replace(
      'renderer.dispose()',
      "window.drawn = window.pixel(document.querySelector('canvas'), 48, 27); $&",
    );
  await page.addScriptTag({ type: 'module', content });
  const drawn = await (await page.waitForFunction(() => window.drawn)).jsonValue();
  near(drawn, LIMITED.blue, 'the bottom right quarter');
});
