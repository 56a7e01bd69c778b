// Frames as PNG files that a person can open.

import { writeFileSync } from 'node:fs';
import { PNG } from 'pngjs';

// The RGB picture of an I420 frame: BT.601, limited range, like the usual software codecs.
function toPng(frame) {
  const png = new PNG({ width: frame.width, height: frame.height });
  for (let row = 0; row < frame.height; row++) {
    for (let column = 0; column < frame.width; column++) {
      const chroma = (row >> 1) * frame.uPlaneBufferStride + (column >> 1);
      const y = 1.164 * (frame.yPlaneBuffer[row * frame.yPlaneBufferStride + column] - 16);
      const u = frame.uPlaneBuffer[chroma] - 128;
      const v = frame.vPlaneBuffer[chroma] - 128;
      const pixel = 4 * (row * frame.width + column);
      png.data[pixel] = clamp(y + 1.596 * v);
      png.data[pixel + 1] = clamp(y - 0.392 * u - 0.813 * v);
      png.data[pixel + 2] = clamp(y + 2.017 * u);
      png.data[pixel + 3] = 255;
    }
  }
  return png;
}

function clamp(value) {
  return Math.max(0, Math.min(255, Math.round(value)));
}

// Writes `frame`, whose planes must still be valid, to `file`.
export function writePicture(frame, file) {
  writeFileSync(file, PNG.sync.write(toPng(frame)));
}
