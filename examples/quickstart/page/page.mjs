// Shows the newest picture of each stream, which the program gives out.

import { I420Renderer } from 'tessel-wrapper/renderer';

const tiles = new Map(); // by the key of the stream

function addTile(key) {
  const figure = document.body.appendChild(document.createElement('figure'));
  const renderer = new I420Renderer(figure.appendChild(document.createElement('canvas')));
  const caption = figure.appendChild(document.createElement('figcaption'));
  tiles.set(key, { figure, renderer, caption });
}

for (;;) {
  const bytes = new Uint8Array(await (await fetch('pictures')).arrayBuffer());
  let at = 0;
  const next = (length) => bytes.subarray(at, (at += length));
  const shown = JSON.parse(new TextDecoder().decode(next(bytes.indexOf(10) + 1)));
  for (const { key, name, width, height } of shown) {
    if (!tiles.has(key)) addTile(key);
    const { renderer, caption } = tiles.get(key);
    const [halfWidth, halfHeight] = [Math.ceil(width / 2), Math.ceil(height / 2)];
    renderer.draw({
      ...{ width, height },
      ...{ yPlaneBuffer: next(width * height), yPlaneBufferStride: width },
      ...{ uPlaneBuffer: next(halfWidth * halfHeight), uPlaneBufferStride: halfWidth },
      ...{ vPlaneBuffer: next(halfWidth * halfHeight), vPlaneBufferStride: halfWidth },
    });
    caption.textContent = name;
  }
  for (const [key, { figure }] of tiles) figure.hidden = !shown.some((each) => each.key === key);
  await new Promise((resolve) => setTimeout(resolve, 1000 / 15));
}
